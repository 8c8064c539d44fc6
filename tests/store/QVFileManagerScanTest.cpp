#include "QVScanTestSupport.h"
#include "engine/QVFontDataManager.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QDBusConnection>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

class ScanTest : public ::testing::Test
{
protected:
    QString root() const { return home.path() + QStringLiteral("/fonts"); }

    // The found files, relative to the folder.
    QStringList found(const QString &folder) const
    {
        QStringList paths;
        for (const QVFontFilePtr &item : dataMgr.fontFileItems)
            paths.append(QDir(folder).relativeFilePath(item->URL));
        return paths;
    }

    // Starts a scan and waits for its first "kScanFolderComplete".
    bool scanAndWait(const QStringList &folders)
    {
        fileMgr->scanFolders(folders, [this](QVFileManager *manager) {
            completions.fetchAndAddOrdered(1);
            completedWith = manager;
        });
        const bool posted = waitFor([this] { return !notifications.statuses.isEmpty(); });
        fileMgr->findFontsGlobalQueue()->waitUntilAllOperationsAreFinished(20000);
        return posted;
    }

    QString font(const QString &relative, const QString &source = dejaVuSans())
    {
        return copyRealFont(source, root() + QLatin1Char('/') + relative);
    }

    QVTestHome home;
    std::shared_ptr<QVRecordingExaminer::Shared> record = std::make_shared<QVRecordingExaminer::Shared>();
    QVFontDataManager dataMgr { std::make_unique<QVRecordingExaminer>(record) };
    std::unique_ptr<QVFileManager> fileMgr = std::make_unique<QVFileManager>(&dataMgr);
    QVScanNotifications notifications;
    QAtomicInt completions = 0;
    QVFileManager *completedWith = nullptr;
};

TEST_F(ScanTest, WalksARealTreeInByteOrderOfNamesDepthFirst)
{
    font(QStringLiteral(".hidden.otf"));
    font(QStringLiteral(".hiddenFolder/Deep.otf"));
    font(QStringLiteral("Boxes.app/Contents/Resources/Inside.ttf"));
    font(QStringLiteral("Font.TTF"));
    font(QStringLiteral("Invisible.ttf"));
    ASSERT_TRUE(setFinderInfo(root() + QStringLiteral("/Invisible.ttf"), "sfnt", "movr", 0x4000));
    QString error;
    ASSERT_FALSE(makeSuitcase(root() + QStringLiteral("/Suitcase"), &error).isEmpty()) << qPrintable(error);
    font(QStringLiteral("Zapf.ttf"));
    // What macOS and netatalk leave beside a font on a file server: metadata,
    // named like fonts, never fonts themselves.
    home.writeFile(QStringLiteral("fonts/._Zapf.ttf"), QByteArray("\x00\x05\x16\x07\x00\x02\x00\x00", 8));
    font(QStringLiteral(".AppleDouble/Zapf.ttf"));
    font(QStringLiteral("_under.ttf"));
    font(QStringLiteral("a.pfb"), type1Font());
    font(QStringLiteral("b/c.ttf"));
    font(QStringLiteral("b/d/e.otf"));
    font(QStringLiteral("bb.ttf"));
    // U+FB01 sorts before U+1D509 in UTF-8 bytes, after it in UTF-16 units.
    font(QString::fromUtf8("\xf0\x9d\x94\x89.ttf"));
    font(QString::fromUtf8("\xef\xac\x81.ttf"));
    home.writeFile(QStringLiteral("fonts/notes.txt"), "not a font");
    // A link to a font already met is passed over, one to a font outside is
    // met after the walk, one to a folder (here, back to the top) is not entered.
    ASSERT_TRUE(QFile::link(root() + QStringLiteral("/Font.TTF"), root() + QStringLiteral("/Link.ttf")));
    ASSERT_TRUE(QFile::link(copyRealFont(dejaVuSans(), home.path() + QStringLiteral("/elsewhere/Out.ttf")),
        root() + QStringLiteral("/Outside.ttf")));
    ASSERT_TRUE(QFile::link(root(), root() + QStringLiteral("/Loop")));
    // A pipe with a font's name must not hold the walk up.
    ASSERT_EQ(mkfifo(QFile::encodeName(root() + QStringLiteral("/Pipe.ttf")).constData(), 0600), 0);
    home.writeFile(QStringLiteral("fonts/Empty Folder/.keep"), "");

    ASSERT_TRUE(scanAndWait({ root() }));
    const QStringList expected = { QStringLiteral(".hiddenFolder/Deep.otf"), QStringLiteral("Font.TTF"),
        QStringLiteral("Invisible.ttf"), QStringLiteral("Suitcase"), QStringLiteral("Zapf.ttf"),
        QStringLiteral("_under.ttf"), QStringLiteral("a.pfb"), QStringLiteral("b/c.ttf"),
        QStringLiteral("b/d/e.otf"), QStringLiteral("bb.ttf"), QString::fromUtf8("\xef\xac\x81.ttf"),
        QString::fromUtf8("\xf0\x9d\x94\x89.ttf"), QStringLiteral("Outside.ttf") };
    EXPECT_EQ(found(root()), expected);
    EXPECT_EQ(record->paths().size(), expected.size());
    EXPECT_EQ(notifications.statuses, QStringList { QStringLiteral("success") });
    EXPECT_EQ(completions.loadAcquire(), 1);
    EXPECT_EQ(completedWith, fileMgr.get());
    EXPECT_FALSE(fileMgr->isFindingFonts());
    // Every font is numbered in the order it was found.
    for (qsizetype i = 0; i < dataMgr.fontFileItems.size(); ++i)
        EXPECT_EQ(dataMgr.fontFileItems.at(i)->fontStatusArray.value(0)->index, i);

    // Half a second after the end the bar and label are cleared.
    EXPECT_TRUE(waitFor(
        [this] { return fileMgr->progress()->value() == 0 && fileMgr->progress()->label().isEmpty(); }));

    // The same tree scanned again is numbered the same way.
    notifications.statuses.clear();
    ASSERT_TRUE(scanAndWait({ root() }));
    EXPECT_EQ(found(root()), expected);
    EXPECT_EQ(dataMgr.fontFileItems.last()->fontStatusArray.value(0)->index, expected.size() - 1);
}

TEST_F(ScanTest, SeveralFoldersAreWalkedOneAfterAnotherInTheGivenOrder)
{
    font(QStringLiteral("one/b.ttf"));
    font(QStringLiteral("one/a.ttf"));
    font(QStringLiteral("two/z.otf"));
    font(QStringLiteral("three/m.ttf"));
    ASSERT_TRUE(scanAndWait({ root() + QStringLiteral("/two/"), root() + QStringLiteral("/one"),
        root() + QStringLiteral("/three") }));
    EXPECT_EQ(found(root()),
        (QStringList { QStringLiteral("two/z.otf"), QStringLiteral("one/a.ttf"), QStringLiteral("one/b.ttf"),
            QStringLiteral("three/m.ttf") }));
    // Only the last folder ends the scan.
    spinEventLoop(100);
    EXPECT_EQ(notifications.statuses, QStringList { QStringLiteral("success") });
    EXPECT_EQ(completions.loadAcquire(), 1);
}

TEST_F(ScanTest, AnEmptyFolderListStartsNothing)
{
    fileMgr->scanFolders({}, [this](QVFileManager *) { completions.fetchAndAddOrdered(1); });
    spinEventLoop(300);
    EXPECT_EQ(fileMgr->findFontsGlobalQueue()->operationCount(), 0);
    EXPECT_TRUE(notifications.statuses.isEmpty());
    EXPECT_EQ(completions.loadAcquire(), 0);
    EXPECT_FALSE(fileMgr->isFindingFonts());
    // The label still says that a scan began.
    EXPECT_EQ(fileMgr->progress()->label(), QVStringTable::text(QStringLiteral("scan.label.title")));
}

TEST_F(ScanTest, MissingAndEmptyFoldersEndQuietly)
{
    QDir().mkpath(root() + QStringLiteral("/empty"));
    ASSERT_TRUE(
        scanAndWait({ root() + QStringLiteral("/no such folder"), root() + QStringLiteral("/empty") }));
    EXPECT_TRUE(dataMgr.fontFileItems.isEmpty());
    EXPECT_EQ(notifications.statuses, QStringList { QStringLiteral("success") });
    EXPECT_EQ(completions.loadAcquire(), 1);
}

TEST_F(ScanTest, CancelDuringAWalkStopsAfterTheCurrentFile)
{
    for (const char *name : { "a.ttf", "b.ttf", "c.ttf", "d.ttf", "e.ttf" })
        font(QStringLiteral("first/") + QLatin1String(name));
    font(QStringLiteral("second/f.ttf"));
    record->holdAt = QStringLiteral("/first/c.ttf");

    fileMgr->scanFolders({ root() + QStringLiteral("/first"), root() + QStringLiteral("/second") },
        [this](QVFileManager *) { completions.fetchAndAddOrdered(1); });
    ASSERT_TRUE(record->waitUntilHolding(20000));
    EXPECT_TRUE(fileMgr->isFindingFonts());
    fileMgr->cancelScan();
    EXPECT_FALSE(fileMgr->isFindingFonts());
    EXPECT_EQ(fileMgr->progress()->label(), QVStringTable::text(QStringLiteral("filemanager.scan.canceled")));
    record->release();
    ASSERT_TRUE(fileMgr->findFontsGlobalQueue()->waitUntilAllOperationsAreFinished(20000));

    // Once from the cancel, once from the walk that noticed it.
    EXPECT_TRUE(waitFor([this] { return notifications.statuses.size() == 2; }));
    spinEventLoop(100);
    EXPECT_EQ(
        notifications.statuses, (QStringList { QStringLiteral("cancelled"), QStringLiteral("cancelled") }));
    EXPECT_EQ(found(root()),
        (QStringList {
            QStringLiteral("first/a.ttf"), QStringLiteral("first/b.ttf"), QStringLiteral("first/c.ttf") }));
    EXPECT_EQ(completions.loadAcquire(), 0);
    EXPECT_FALSE(fileMgr->isFindingFonts());
    EXPECT_EQ(fileMgr->progress()->value(), 0);
}

TEST_F(ScanTest, PauseHoldsTheNextFolderBackUntilResumed)
{
    font(QStringLiteral("first/a.ttf"));
    font(QStringLiteral("first/b.ttf"));
    font(QStringLiteral("second/c.ttf"));
    record->holdAt = QStringLiteral("/first/a.ttf");

    fileMgr->scanFolders({ root() + QStringLiteral("/first"), root() + QStringLiteral("/second") });
    ASSERT_TRUE(record->waitUntilHolding(20000));
    fileMgr->pauseScan();
    EXPECT_TRUE(fileMgr->findFontsGlobalQueue()->isSuspended());
    record->release();

    // The running folder goes on to its end; the next one waits.
    ASSERT_TRUE(waitFor([this] { return fileMgr->findFontsGlobalQueue()->operationCount() == 1; }));
    spinEventLoop(300);
    EXPECT_EQ(found(root()), (QStringList { QStringLiteral("first/a.ttf"), QStringLiteral("first/b.ttf") }));
    EXPECT_TRUE(notifications.statuses.isEmpty());
    EXPECT_TRUE(fileMgr->isFindingFonts());

    fileMgr->resumeScan();
    EXPECT_FALSE(fileMgr->findFontsGlobalQueue()->isSuspended());
    ASSERT_TRUE(waitFor([this] { return !notifications.statuses.isEmpty(); }));
    EXPECT_EQ(notifications.statuses, QStringList { QStringLiteral("success") });
    EXPECT_EQ(found(root()),
        (QStringList {
            QStringLiteral("first/a.ttf"), QStringLiteral("first/b.ttf"), QStringLiteral("second/c.ttf") }));
}

TEST_F(ScanTest, CancelWithoutAWalkOnlySetsTheFlag)
{
    font(QStringLiteral("a.ttf"));
    fileMgr->cancelScan();
    fileMgr->pauseScan();
    EXPECT_TRUE(fileMgr->didCancel());
    spinEventLoop(50);
    EXPECT_TRUE(notifications.statuses.isEmpty());
    // The next walk clears it at once.
    ASSERT_TRUE(scanAndWait({ root() }));
    EXPECT_EQ(notifications.statuses, QStringList { QStringLiteral("success") });
    EXPECT_EQ(found(root()), QStringList { QStringLiteral("a.ttf") });
}

TEST_F(ScanTest, TellsTheHelpersThatAScanStarted)
{
    if (!QDBusConnection::sessionBus().isConnected())
        GTEST_SKIP() << "no session bus: run under dbus-run-session (scripts/test.sh does)";
    struct Heard final {
        void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
        {
            names.append(response);
            senders.append(sender);
            dates.append(options.value(QStringLiteral("kPayloadOptions")).toDateTime());
        }
        QStringList names, senders;
        QList<QDateTime> dates;
    };
    QVHelperCommunications application(QString::fromLatin1(QVSettings::kBundleIdentifier));
    QVHelperCommunications handler(QString::fromLatin1(QVSettings::kHandlerBundleIdentifier));
    QVHelperCommunications scheduler(QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier));
    Heard heardByHandler, heardByScheduler;
    qvtest::listen(handler, heardByHandler);
    qvtest::listen(scheduler, heardByScheduler);
    fileMgr->setHelperCommunications(&application);

    font(QStringLiteral("a.ttf"));
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    ASSERT_TRUE(scanAndWait({ root() }));
    ASSERT_TRUE(
        waitFor([&] { return !heardByHandler.names.isEmpty() && !heardByScheduler.names.isEmpty(); }));
    EXPECT_EQ(heardByHandler.names, QStringList { QStringLiteral("kResponse_ScanFonts_Start") });
    EXPECT_EQ(heardByScheduler.names, QStringList { QStringLiteral("kResponse_ScanFonts_Start") });
    EXPECT_EQ(heardByHandler.senders.value(0), QString::fromLatin1(QVSettings::kBundleIdentifier));
    const QDateTime sent = heardByHandler.dates.value(0);
    EXPECT_TRUE(sent.isValid());
    EXPECT_GE(sent, before);
    EXPECT_LE(sent, QDateTime::currentDateTimeUtc());
}

TEST(QVFileManagerRules, FontFilesByTypeExtensionAndName)
{
    QVTestHome home;
    QVFileManager fileMgr;
    const QString folder = home.path() + QStringLiteral("/f/");
    EXPECT_TRUE(fileMgr.isSupportedFontFileType(folder + QStringLiteral("Font.TTF")));
    EXPECT_TRUE(fileMgr.isSupportedFontFileType(folder + QStringLiteral("x.Otf")));
    EXPECT_TRUE(fileMgr.isSupportedFontFileType(folder + QStringLiteral("y.ttc")));
    EXPECT_FALSE(fileMgr.isSupportedFontFileType(folder + QStringLiteral("ttf")));
    EXPECT_FALSE(fileMgr.isSupportedFontFileType(folder + QStringLiteral("z.ttf.txt")));

    const QString type1 = copyRealFont(type1Font(), folder + QStringLiteral("Type1"));
    const QString text = home.writeFile(QStringLiteral("f/readme.txt"), "hello");
    // A Type 1 font is a font by its content type even without an extension;
    // text is not, whatever it is called.
    EXPECT_TRUE(fileMgr.isFontFile(type1));
    EXPECT_FALSE(fileMgr.isFontFile(text));
    const QString textCalledTtf = home.writeFile(QStringLiteral("f/readme.ttf"), "hello");
    EXPECT_TRUE(fileMgr.isFontFile(textCalledTtf));

    // The HFS type code decides for files without a telling name.
    const QString bare = home.writeFile(QStringLiteral("f/Bare"), "");
    EXPECT_FALSE(fileMgr.isFontFile(bare));
    const QString outline = copyRealFont(type1Font(), folder + QStringLiteral("Outline.bin"));
    const QString bitmap = home.writeFile(QStringLiteral("f/Bitmaps"), "");
    const QString tagged = home.writeFile(QStringLiteral("f/Tagged"), "");
    ASSERT_TRUE(setFinderInfo(outline, "LWFN", "ASPF", 0));
    ASSERT_TRUE(setFinderInfo(bitmap, "FONT", "DMOV", 0));
    ASSERT_TRUE(setFinderInfo(tagged, "TEXT", "ttxt", 0));
    EXPECT_TRUE(fileMgr.isSupportedFontFileType(outline));
    EXPECT_TRUE(fileMgr.isFontFile(bitmap));
    EXPECT_FALSE(fileMgr.isFontFile(tagged));

    // A Type 1 outline file as t1mac writes it for a file server: an empty
    // data fork and an AppleDouble sidecar with type LWFN.
    const QString lwfn = home.writeFile(QStringLiteral("f/C059Ita"), "");
    QProcess t1mac;
    t1mac.start(QStringLiteral("t1mac"),
        { QStringLiteral("--appledouble"), type1Font(), folder + QStringLiteral("._C059Ita") });
    ASSERT_TRUE(t1mac.waitForFinished(60000));
    ASSERT_EQ(t1mac.exitCode(), 0) << t1mac.readAllStandardError().constData();
    EXPECT_TRUE(fileMgr.isFontFile(lwfn));
    fileMgr.setTypeCodeReader([](const QString &path) {
        return path.endsWith(QLatin1String("Bare")) ? QByteArray("LWFN") : QByteArray("TEXT");
    });
    EXPECT_TRUE(fileMgr.isFontFile(bare));
    EXPECT_FALSE(fileMgr.isFontFile(text));

    for (const char *name : { "Fonts.app", "X.bundle", "Y.framework", "Z.plugin", "K.kext", "Doc.rtfd",
             "I.pkg", "M.mpkg", "P.photoslibrary", "Upper.APP", ".AppleDouble" })
        EXPECT_TRUE(QVFileManager::isSkippedFolderName(QLatin1String(name))) << name;
    for (const char *name : { ".app", "app", "Fonts", ".hidden", "AppleDouble", "__MACOSX" })
        EXPECT_FALSE(QVFileManager::isSkippedFolderName(QLatin1String(name))) << name;
}

TEST(QVFileManagerRules, RootRepositoryIsMadeOnceAndCached)
{
    QVTestHome home;
    QVFileManager fileMgr;
    const QString root = fileMgr.getRootRepository();
    EXPECT_EQ(root, home.dataHome() + QStringLiteral("/Quorvel"));
    EXPECT_TRUE(QFileInfo(root + QStringLiteral("/Reports")).isDir());
    EXPECT_TRUE(QFileInfo(root + QStringLiteral("/Quarantine")).isDir());
    // Private to the user: nobody else may take fonts out of the quarantine.
    const QFile::Permissions owner = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser
        | QFile::WriteUser | QFile::ExeUser;
    const QStringList folders { root, root + QStringLiteral("/Reports"),
        root + QStringLiteral("/Quarantine") };
    for (const QString &folder : folders)
        EXPECT_EQ(QFileInfo(folder).permissions(), owner) << qPrintable(folder);
    // Folders opened up since are made private again by the stores that use them.
    for (const QString &folder : folders)
        ASSERT_TRUE(QFile::setPermissions(folder, QFileDevice::Permissions(0x7777)));
    QVQuarantineStore().getQuarantineFolder();
    QVReportStore().getReportFolder();
    for (const QString &folder : folders)
        EXPECT_EQ(QFileInfo(folder).permissions(), owner) << qPrintable(folder);

    // Later calls do not touch the disk.
    ASSERT_TRUE(QDir(root).removeRecursively());
    EXPECT_EQ(fileMgr.getRootRepository(), root);
    EXPECT_FALSE(QFileInfo::exists(root));
    // A fresh manager makes the folders again.
    EXPECT_EQ(QVFileManager().getRootRepository(), root);
    EXPECT_TRUE(QFileInfo(root + QStringLiteral("/Reports")).isDir());
}

TEST(QVFileManagerRules, DirectoryItemCountIncludesHiddenEntries)
{
    QVTestHome home;
    home.writeFile(QStringLiteral("d/a"), "");
    home.writeFile(QStringLiteral("d/.b"), "");
    home.writeFile(QStringLiteral("d/sub/c"), "");
    EXPECT_EQ(QVFileManager::getDirectoryItemCount(home.path() + QStringLiteral("/d")), 3);
    EXPECT_EQ(QVFileManager::getDirectoryItemCount(home.path() + QStringLiteral("/missing")), 0);
}

TEST(QVFileManagerRules, FontItemsAreSavedAndLoaded)
{
    QVTestHome home;
    QVFontDataManager dataMgr;
    QVFileManager fileMgr(&dataMgr);
    dataMgr.addFontFileItem(dejaVuSans());
    dataMgr.addFontFileItem(type1Font());
    const QString folder = home.path() + QStringLiteral("/saved");
    QDir().mkpath(folder);
    ASSERT_TRUE(fileMgr.saveFontFileItemsToDisk(folder));
    EXPECT_TRUE(QFileInfo::exists(fileMgr.getFontItemsFilePath(folder)));
    EXPECT_EQ(QFileInfo(fileMgr.getFontItemsFilePath(QString())).absolutePath(),
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));

    QVFontDataManager restoredMgr;
    QVFileManager restoring(&restoredMgr);
    ASSERT_TRUE(restoring.loadFontFileItemsFromDisk(folder));
    ASSERT_EQ(restoredMgr.fontFileItems.size(), 2);
    EXPECT_EQ(restoredMgr.fontFileItems.at(0)->URL, dejaVuSans());
    EXPECT_EQ(restoredMgr.fontFileItems.at(1)->URL, type1Font());

    // A damaged list changes nothing.
    QFile damaged(fileMgr.getFontItemsFilePath(folder));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write("\x9f\x41\xff garbage");
    damaged.close();
    EXPECT_FALSE(restoring.loadFontFileItemsFromDisk(folder));
    EXPECT_EQ(restoredMgr.fontFileItems.size(), 2);
    EXPECT_FALSE(restoring.loadFontFileItemsFromDisk(home.path() + QStringLiteral("/nowhere")));
}

TEST(QVFileManagerRules, TimeRemainingTexts)
{
    EXPECT_EQ(QVFileManager::timeRemainingText(0), QStringLiteral("less than a minute"));
    EXPECT_EQ(QVFileManager::timeRemainingText(59.9), QStringLiteral("less than a minute"));
    EXPECT_EQ(QVFileManager::timeRemainingText(60), QStringLiteral("1 minute"));
    EXPECT_EQ(QVFileManager::timeRemainingText(89), QStringLiteral("1 minute"));
    EXPECT_EQ(QVFileManager::timeRemainingText(90), QStringLiteral("2 minutes"));
    EXPECT_EQ(QVFileManager::timeRemainingText(3599), QStringLiteral("60 minutes"));
    EXPECT_EQ(QVFileManager::timeRemainingText(3600), QStringLiteral("1 hours"));
    EXPECT_EQ(QVFileManager::timeRemainingText(9360), QStringLiteral("3 hours"));
    // "%.0f" rounds an exact half to even, as the C library does.
    EXPECT_EQ(QVFileManager::timeRemainingText(150), QStringLiteral("2 minutes"));
    EXPECT_EQ(QVFileManager::timeRemainingText(210), QStringLiteral("4 minutes"));
    EXPECT_EQ(QVFileManager::timeRemainingText(9000), QStringLiteral("2 hours"));
    EXPECT_EQ(QVFileManager::timeRemainingText(5400), QStringLiteral("2 hours"));
}

TEST(QVFileManagerRules, ProgressLabelUpdatesAtMostEveryTwoSeconds)
{
    QVTestHome home;
    QVFileManager fileMgr;
    qint64 now = 0;
    fileMgr.setClock([&now] { return now; });
    QVProgress *bar = fileMgr.progress();
    bar->setMaximum(100);
    bar->setValue(10);
    bar->setLabel(QStringLiteral("start"));
    fileMgr.startTime = 0;
    const qint64 second = 1000000000;

    // The remembered time outlives scans, so this starts far past whatever an
    // earlier scan of this process left.
    now = 1000 * second;
    fileMgr.updateProgressLabel();

    // Ten units in 1003 s leave 90 units: about 2.5 hours.
    now = 1003 * second;
    fileMgr.updateProgressLabel();
    spinEventLoop(20);
    EXPECT_EQ(bar->label(), QStringLiteral("Estimated time remaining: 3 hours"));

    // Within two seconds of the last update, nothing changes.
    bar->setValue(50);
    now = 1005 * second;
    fileMgr.updateProgressLabel();
    spinEventLoop(20);
    EXPECT_EQ(bar->label(), QStringLiteral("Estimated time remaining: 3 hours"));

    now = 1006 * second;
    fileMgr.updateProgressLabel();
    spinEventLoop(20);
    EXPECT_EQ(bar->label(), QStringLiteral("Estimated time remaining: 17 minutes"));
}

} // namespace
