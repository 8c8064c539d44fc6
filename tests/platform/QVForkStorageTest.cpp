// Where forks and Finder info live: every place read and written, with data laid down by outside tools
// (setfattr, Python's struct, macOS's AppleDouble layout) and read back by getfattr and fontTools.
#include "platform/QVForkStorage.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFilePair.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVFixtures;
using Place = QVForkStorage::Place;

namespace
{

QByteArray be32(quint32 v)
{
    return QByteArray().append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
}

QByteArray be16(quint16 v)
{
    return QByteArray().append(char(v >> 8)).append(char(v));
}

// A fork with one resource, TEXT 128.
QByteArray smallFork()
{
    return forkOf({ rsrc("TEXT", 128, "small") });
}

QByteArray finderInfo(const char *typeCreator, quint16 flags)
{
    return QByteArray(QByteArray(typeCreator, 8) + be16(flags)).leftJustified(32, '\0');
}

// The AppleDouble layout macOS writes on other file systems: Finder info with an extended-attribute block
// ("ATTR", absolute offsets), then the fork.
QByteArray macOSSidecar(const QByteArray &fork, const QByteArray &attrName, const QByteArray &attrValue)
{
    QByteArray entry
        = be32(0) + be32(quint32(attrValue.size())) + be16(0) + char(attrName.size() + 1) + attrName + '\0';
    entry = entry.leftJustified((entry.size() + 3) / 4 * 4, '\0');
    const int dataStart = 50 + 32 + 2 + 36 + int(entry.size());
    entry.replace(0, 4, be32(quint32(dataStart)));
    const QByteArray header = be32(0x41545452) + be32(0) + be32(quint32(dataStart + attrValue.size()))
        + be32(quint32(dataStart)) + be32(quint32(attrValue.size())) + QByteArray(12, '\0') + be16(0)
        + be16(1);
    const QByteArray finder
        = finderInfo("LWFNT1UT", 0x0100) + QByteArray(2, '\0') + header + entry + attrValue;
    return be32(0x00051607) + be32(0x00020000) + QByteArray("Mac OS X        ", 16) + be16(2) + be32(9)
        + be32(50) + be32(quint32(finder.size())) + be32(2) + be32(quint32(50 + finder.size()))
        + be32(quint32(fork.size())) + finder + fork;
}

// The value of the one attribute of a macOS sidecar, found by its offsets.
QByteArray macOSAttribute(const QByteArray &sidecar)
{
    const auto u32 = [&sidecar](qsizetype at) { return be32at(sidecar, at); };
    for (int i = 0; i < (quint8(sidecar.at(24)) << 8 | quint8(sidecar.at(25))); ++i) {
        if (u32(26 + 12 * i) == 9 && u32(u32(26 + 12 * i + 4) + 34) == 0x41545452) {
            const qsizetype at = u32(26 + 12 * i + 4) + 34 + 36;
            return sidecar.mid(u32(at), u32(at + 4));
        }
    }
    return {};
}

class QVForkStorageTest : public ::testing::Test
{
protected:
    void TearDown() override { QVResourceManager::closeAll(); }
    QString file(const QString &name, const QByteArray &data = "data") { return home.writeFile(name, data); }
    // Where the fork and the Finder info of the file live.
    static QString places(const QString &f)
    {
        return QVForkStorage::placeName(QVForkStorage::resourceForkPlace(f)) + " "
            + QVForkStorage::placeName(QVForkStorage::finderInfoPlace(f));
    }
    bool xattrs() const { return QVExtendedAttributes::supported(home.path()); }
    QByteArray sidecarOf(const QString &path) const { return readFile(QVForkStorage::sidecarPath(path)); }

    QVTestHome home;
    QVResouceFork rf;
};

} // namespace

TEST_F(QVForkStorageTest, AttributesWrittenBySetfattrAreReadAndWrittenInPlace)
{
    if (!xattrs())
        GTEST_SKIP() << "the file system here keeps no user extended attributes";
    const QString f = file("attr");
    for (const auto &[name, value] : { std::pair { QVForkStorage::kForkAttribute, smallFork() },
             std::pair { QVForkStorage::kFinderInfoAttribute, finderInfo("FFILDMOV", 0x0020) } })
        ASSERT_EQ(
            runTool("setfattr", { "-n", name, "-v", QString::fromLatin1("0x" + value.toHex()), f }).exitCode,
            0);
    EXPECT_EQ(places(f), "xattr xattr");
    EXPECT_EQ(rf.finderInfoFlags(f), 0x0020);
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, true, f), 0);
    const qint16 ref = rf.openResourceFile(QVPermission::ReadWrite, f);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(rf.addResource(newHandleFromBytes("more"), qvFourCC("TEXT"), 129, QStringLiteral("b")), 0);
    rf.closeResourceFile(ref);
    // Both stayed in their attributes, as getfattr and fontTools read them; no sidecar appeared.
    EXPECT_EQ(places(f), "xattr xattr");
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(f)));
    auto attribute = [&f](const char *name) {
        return runTool("getfattr", { "--only-values", "-n", name, f }).out;
    };
    EXPECT_EQ(
        attribute(QVForkStorage::kFinderInfoAttribute).left(10), finderInfo("FFILDMOV", 0x2020).left(10));
    ASSERT_TRUE(writeFile(home.path() + "/attr.rsrc", attribute(QVForkStorage::kForkAttribute)));
    const QStringList listing = fontToolsResources(home.path() + "/attr.rsrc");
    ASSERT_EQ(listing.size(), 2);
    EXPECT_TRUE(listing.at(1).startsWith("TEXT 129 4 ") && listing.at(1).endsWith(" b"))
        << qPrintable(listing.at(1));

    // A fork that grows beyond what an attribute holds moves to the sidecar.
    const qint16 again = rf.openResourceFile(QVPermission::ReadWrite, f);
    EXPECT_EQ(rf.addResource(newHandleFromBytes(QByteArray(256 * 1024, 'x')), qvFourCC("sfnt"), 1,
                  QStringLiteral("big")),
        0);
    rf.closeResourceFile(again);
    EXPECT_EQ(rf.resourceError(), 0);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::AppleDouble);
    EXPECT_FALSE(QVExtendedAttributes::get(f, QVForkStorage::kForkAttribute).has_value());
    EXPECT_EQ(fontToolsResources(extractFork(f, home.path() + "/out")).size(), 3);
}

TEST_F(QVForkStorageTest, AMacOSSidecarKeepsItsAttributeBlockThroughEveryChange)
{
    const QString f = file("fromMac", {});
    const QByteArray value = "quarantine-value-0081;5f3e";
    ASSERT_TRUE(
        writeFile(QVForkStorage::sidecarPath(f), macOSSidecar(smallFork(), "com.apple.quarantine", value)));
    ASSERT_EQ(macOSAttribute(sidecarOf(f)), value);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x0100);
    EXPECT_EQ(rf.setFinderInfoFlag(0x4000, true, f), 0);
    EXPECT_EQ(macOSAttribute(sidecarOf(f)), value);
    const qint16 ref = rf.openResourceFile(QVPermission::ReadWrite, f);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(rf.addResource(newHandleFromBytes(QByteArray(5000, 'p')), qvFourCC("POST"), 501, QString()), 0);
    rf.closeResourceFile(ref);
    EXPECT_EQ(macOSAttribute(sidecarOf(f)), value);
    // A third entry grows the header and moves the block: its offsets follow.
    const QDateTime date(QDate(1999, 12, 31), QTime(23, 0), Qt::UTC);
    ASSERT_EQ(QVForkStorage::setCreationDate(f, date), 0);
    EXPECT_EQ(QVForkStorage::creationDate(f), date);
    EXPECT_EQ(macOSAttribute(sidecarOf(f)), value);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x4100);
    EXPECT_EQ(fontToolsResources(extractFork(f, home.path() + "/out")).filter("POST 501 5000 ").size(), 1);
    // A file without AppleDouble data keeps its file system date and gains no sidecar.
    const QString plain = file("plain");
    const QDateTime fs = QVForkStorage::creationDate(plain);
    const QDateTime birth = QFileInfo(plain).birthTime();
    EXPECT_EQ(fs.toSecsSinceEpoch(),
        (birth.isValid() ? birth : QFileInfo(plain).lastModified()).toSecsSinceEpoch());
    EXPECT_EQ(QVForkStorage::setCreationDate(plain, date), 0);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(plain)));
    EXPECT_EQ(QVForkStorage::creationDate(plain), fs);
    EXPECT_FALSE(QVForkStorage::creationDate(home.path() + "/none").isValid());
}

TEST_F(QVForkStorageTest, ForeignFilesAreNeverOverwritten)
{
    const QString f = file("foreign"), sidecar = QVForkStorage::sidecarPath(f);
    ASSERT_TRUE(writeFile(sidecar, "not appledouble at all"));
    EXPECT_EQ(QVForkStorage::writeFinderInfo(f, finderInfo("TEXTttxt", 0)), QVResourceError::DuplicateFile);
    EXPECT_EQ(QVForkStorage::writeResourceFork(f, smallFork(), Place::None), QVResourceError::DuplicateFile);
    EXPECT_EQ(rf.openResourceFile(QVPermission::ReadWrite, f), -1);
    EXPECT_EQ(readFile(sidecar), QByteArray("not appledouble at all"));
    // Clearing a flag that is not set writes nothing anywhere.
    const QString bare = file("bare.ttf");
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, false, bare), 0);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(bare)));
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, true, home.path() + "/missing"), QVResourceError::FileNotFound);
}

TEST_F(QVForkStorageTest, CompanionsThatAreLinksAreNeverFollowed)
{
    // What the links point at: someone's AppleDouble file, and someone's folder.
    const QByteArray victimBytes = macOSSidecar(smallFork(), "x", "y");
    const QString victim = file("elsewhere-victim", victimBytes), kept = file("elsewhere/Font", victimBytes);
    const QString elsewhere = home.path() + "/elsewhere";
    const QString sidecarLinked = file("a/Font"), folderLinked = file("b/Font");
    ASSERT_TRUE(QFile::link(victim, QVForkStorage::sidecarPath(sidecarLinked)));
    ASSERT_TRUE(QFile::link(elsewhere, home.path() + "/b/.AppleDouble"));
    EXPECT_EQ(QVForkStorage::writeResourceFork(sidecarLinked, smallFork(), Place::AppleDouble),
        QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::setHidden(sidecarLinked, true), QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::writeResourceFork(folderLinked, smallFork(), Place::NetatalkFolder),
        QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::linkedCompanion(sidecarLinked), QVForkStorage::sidecarPath(sidecarLinked));
    EXPECT_EQ(QVForkStorage::linkedCompanion(folderLinked), home.path() + "/b/.AppleDouble");
    for (const QString &f : { sidecarLinked, folderLinked }) {
        QByteArray fork;
        Place place = Place::None;
        EXPECT_EQ(QVForkStorage::readResourceFork(f, &fork, &place), QVResourceError::Permission);
        EXPECT_TRUE(fork.isEmpty());
        EXPECT_TRUE(QVForkStorage::companionFiles(f).isEmpty());
        for (const auto &result :
            { QVFilePair::remove(f), QVFilePair::move(f, f + "-moved"), QVFilePair::copy(f, f + "-copy") })
            EXPECT_EQ(result.error, ELOOP) << qPrintable(result.message);
        EXPECT_TRUE(QFileInfo::exists(f));
    }
    // Nor does a file with a real fork move into a folder whose ".AppleDouble" is a link.
    const QString withFork = file("Font2");
    ASSERT_EQ(QVForkStorage::writeResourceFork(withFork, smallFork(), Place::NetatalkFolder), 0);
    EXPECT_EQ(QVFilePair::move(withFork, home.path() + "/b/Font2").error, ELOOP);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(withFork), Place::NetatalkFolder);
    EXPECT_EQ(readFile(victim), victimBytes);
    EXPECT_EQ(readFile(kept), victimBytes);
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), QStringList { "Font" });
    // A rewrite in place keeps the sidecar's permissions.
    const QString own = file("Own");
    ASSERT_EQ(QVForkStorage::writeResourceFork(own, smallFork(), Place::AppleDouble), 0);
    const QByteArray ownSidecar = QFile::encodeName(QVForkStorage::sidecarPath(own));
    ASSERT_EQ(::chmod(ownSidecar.constData(), 0604), 0);
    ASSERT_EQ(QVForkStorage::writeFinderInfo(own, finderInfo("FFILDMOV", 0)), 0);
    struct stat st;
    ASSERT_EQ(::stat(ownSidecar.constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
}

TEST(QVAppleDouble, ParsingIsBoundsChecked)
{
    const QByteArray good = macOSSidecar(smallFork(), "x", "y");
    ASSERT_TRUE(QVAppleDouble::parse(good));
    EXPECT_EQ(QVAppleDouble::parse(good)->serialize(), good);
    QByteArray hugeCount = good, badOffset = good, badMagic = good;
    hugeCount[24] = char(0xFF);
    badOffset.replace(26 + 4, 4, be32(0xFFFFFFF0));
    badMagic[0] = 1;
    for (const QByteArray &bad : { good.left(20), good.left(60), hugeCount, badOffset, badMagic })
        EXPECT_FALSE(QVAppleDouble::parse(bad));
    // Many entries over one range share its bytes; overlapping ranges that
    // would need more than the file holds make it no sidecar at all.
    auto overlapping = [](qint64 step) -> QByteArray {
        QByteArray out = be32(0x00051607) + be32(0x00020000) + QByteArray(16, ' ') + be16(200);
        for (int i = 0; i < 200; ++i)
            out += be32(quint32(100 + i)) + be32(quint32(26 + 2400 + step * i)) + be32(800);
        return out + QByteArray(1000, 'x');
    };
    const auto shared = QVAppleDouble::parse(overlapping(0));
    ASSERT_TRUE(shared);
    EXPECT_TRUE(shared->entries.last().data.isSharedWith(shared->entries.first().data));
    EXPECT_FALSE(QVAppleDouble::parse(overlapping(1)));
    // Metadata stores are recognised by name.
    for (const char *path : { "/fonts/._Times", "/fonts/.AppleDouble", "/fonts/.AppleDouble/Times",
             "/fonts/.AppleDouble/deeper/x" })
        EXPECT_TRUE(QVForkStorage::isMetadataStore(QLatin1String(path))) << path;
    for (const char *path : { "/fonts/Times", "/fonts/.hidden-font.ttf", "/fonts/AppleDouble/Times" })
        EXPECT_FALSE(QVForkStorage::isMetadataStore(QLatin1String(path))) << path;
    EXPECT_EQ(QVForkStorage::sidecarPath("/fonts/Times Bold"), QStringLiteral("/fonts/._Times Bold"));
    EXPECT_EQ(QVForkStorage::netatalkPath("/fonts/Times"), QStringLiteral("/fonts/.AppleDouble/Times"));
}
