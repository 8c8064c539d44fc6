// The scan: a real tree walked in byte order of names, what counts as a font file, and the folders it keeps
// private.
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVNotificationCenter.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVFixtures;

namespace
{

// Stands in for the examiner: one record per file, so the walk alone is tested.
class RecordingExaminer final : public QVFontExaminer
{
public:
    void initialize() override { m_statuses.clear(); }
    void setDoActivation(bool) override { }
    void examineFont(const QString &) override { m_statuses.append(std::make_shared<QVStatus>()); }
    QList<QVStatusPtr> fontStatusArray() const override { return m_statuses; }
    void finalize() override { }
    bool hasResourceFork(const QString &) override { return false; }
    QString quotedTypeCode(const QString &) override { return QString(""); }

private:
    QList<QVStatusPtr> m_statuses;
};

class ScanTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kScanFolderComplete,
            &context, [this](const QVariantMap &userInfo) {
                statuses << userInfo.value(QStringLiteral("status")).toString();
            });
    }
    QString root() const { return home.path() + QStringLiteral("/fonts"); }
    QStringList found() const
    {
        QStringList paths;
        for (const QVFontFilePtr &item : dataMgr.fontFileItems)
            paths << QDir(root()).relativeFilePath(item->URL);
        return paths;
    }
    // Starts a scan and waits for its first "kScanFolderComplete".
    bool scanAndWait(const QStringList &folders)
    {
        fileMgr->scanFolders(folders, [](QVFileManager *) {});
        const bool posted = waitFor([this] { return !statuses.isEmpty(); });
        fileMgr->findFontsGlobalQueue()->waitUntilAllOperationsAreFinished(20000);
        return posted;
    }
    void fonts(const QStringList &relativePaths)
    {
        for (const QString &relative : relativePaths)
            copyFont(relative.endsWith(".pfb") ? kC059ItalicPfb : kDejaVuSans,
                QFileInfo(root() + "/" + relative).path(), QFileInfo(relative).fileName());
    }

    QVTestHome home;
    QVFontDataManager dataMgr { std::make_unique<RecordingExaminer>() };
    std::unique_ptr<QVFileManager> fileMgr = std::make_unique<QVFileManager>(&dataMgr);
    QStringList statuses;
    QObject context;
};

} // namespace

TEST_F(ScanTest, WalksARealTreeInByteOrderOfNamesDepthFirst)
{
    // U+FB01 sorts before U+1D509 in UTF-8 bytes, after it in UTF-16 units.
    const QString ligature = QString::fromUtf8("\xef\xac\x81.ttf"),
                  fraktur = QString::fromUtf8("\xf0\x9d\x94\x89.ttf");
    fonts({ ".hidden.otf", ".hiddenFolder/Deep.otf", "Boxes.app/Contents/Resources/Inside.ttf", "Font.TTF",
        "Invisible.ttf", "Zapf.ttf", ".AppleDouble/Zapf.ttf", "_under.ttf", "a.pfb", "b/c.ttf", "b/d/e.otf",
        "bb.ttf", fraktur, ligature });
    ASSERT_TRUE(setFinderInfo(root() + "/Invisible.ttf", "sfntmovr", 0x4000));
    ASSERT_TRUE(makeSuitcase(root() + "/Suitcase", readFile(testDataPath("fonts/DejaVuSans-suitcase.rsrc"))));
    // What macOS and netatalk leave beside a font on a file server are never fonts.
    home.writeFile("fonts/._Zapf.ttf", QByteArray("\x00\x05\x16\x07\x00\x02\x00\x00", 8));
    home.writeFile("fonts/notes.txt", "not a font");
    home.writeFile("fonts/Empty Folder/.keep", "");
    // A link to a font already met is passed over, one to a font outside is met after the walk, one to a
    // folder (back to the top) is not entered; a pipe with a font's name does not hold the walk up.
    ASSERT_TRUE(QFile::link(root() + "/Font.TTF", root() + "/Link.ttf"));
    ASSERT_TRUE(
        QFile::link(copyFont(kDejaVuSans, home.path() + "/elsewhere", "Out.ttf"), root() + "/Outside.ttf"));
    ASSERT_TRUE(QFile::link(root(), root() + "/Loop"));
    ASSERT_EQ(mkfifo(QFile::encodeName(root() + "/Pipe.ttf").constData(), 0600), 0);

    ASSERT_TRUE(scanAndWait({ root() }));
    const QStringList expected
        = { ".hiddenFolder/Deep.otf", "Font.TTF", "Invisible.ttf", "Suitcase", "Zapf.ttf", "_under.ttf",
              "a.pfb", "b/c.ttf", "b/d/e.otf", "bb.ttf", ligature, fraktur, "Outside.ttf" };
    EXPECT_EQ(found(), expected);
    EXPECT_EQ(statuses, QStringList { "success" });
}

TEST(QVFileManagerRules, FontFilesByExtensionContentAndHfsType)
{
    QVTestHome home;
    QVFileManager fileMgr;
    const QString folder = home.path() + "/f/";
    for (const auto &[name, font] : { std::pair { "Font.TTF", true }, std::pair { "x.Otf", true },
             std::pair { "y.ttc", true }, std::pair { "ttf", false }, std::pair { "z.ttf.txt", false } })
        EXPECT_EQ(fileMgr.isSupportedFontFileType(folder + name), font) << name;
    // A Type 1 font is a font by its content even without an extension; text is not, unless called a font.
    EXPECT_TRUE(fileMgr.isFontFile(copyFont(kC059ItalicPfb, folder, "Type1")));
    const QString text = home.writeFile("f/readme.txt", "hello");
    EXPECT_FALSE(fileMgr.isFontFile(text));
    EXPECT_TRUE(fileMgr.isFontFile(home.writeFile("f/readme.ttf", "hello")));
    // The HFS type decides for files without a telling name: t1mac's outline file, a bitmap font file, text.
    const QString bare = home.writeFile("f/Bare", ""), bitmap = home.writeFile("f/Bitmaps", "");
    const QString tagged = home.writeFile("f/Tagged", "");
    EXPECT_FALSE(fileMgr.isFontFile(bare));
    ASSERT_TRUE(setFinderInfo(bitmap, "FONTDMOV"));
    ASSERT_TRUE(setFinderInfo(tagged, "TEXTttxt"));
    EXPECT_TRUE(fileMgr.isFontFile(bitmap));
    EXPECT_FALSE(fileMgr.isFontFile(tagged));
    EXPECT_TRUE(fileMgr.isFontFile(makeLwfn(home.path() + "/f", "C059Ita")));
    fileMgr.setTypeCodeReader(
        [](const QString &path) { return QByteArray(path.endsWith("Bare") ? "LWFN" : "TEXT"); });
    EXPECT_TRUE(fileMgr.isFontFile(bare));
    EXPECT_FALSE(fileMgr.isFontFile(text));
    for (const auto &[name, skipped] :
        { std::pair { "X.bundle", true }, std::pair { "Upper.APP", true }, std::pair { ".AppleDouble", true },
            std::pair { ".app", false }, std::pair { "Fonts", false }, std::pair { "AppleDouble", false } })
        EXPECT_EQ(QVFileManager::isSkippedFolderName(QLatin1String(name)), skipped) << name;
}

TEST(QVFileManagerRules, TheDataFoldersArePrivateAndStayPrivate)
{
    QVTestHome home;
    const QString root = QVFileManager().getRootRepository();
    EXPECT_EQ(root, home.dataHome() + "/Quorvel");
    const QStringList folders { root, root + "/Reports", root + "/Quarantine" };
    // Private, and made private again by the stores that use them when opened up since.
    for (int round = 0; round < 2; ++round) {
        for (const QString &folder : folders) {
            EXPECT_EQ(QFileInfo(folder).permissions(), QFileDevice::Permissions(0x7700))
                << qPrintable(folder);
            ASSERT_TRUE(QFile::setPermissions(folder, QFileDevice::Permissions(0x7777)));
        }
        QVQuarantineStore().getQuarantineFolder();
        QVReportStore().getReportFolder();
    }
}
