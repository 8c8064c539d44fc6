// Where forks and Finder info live: every place read and written, with data
// made by outside tools (setfattr, t1mac, hand-laid AppleDouble bytes).
#include "platform/QVForkStorage.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceTestTools.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFilePair.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVResourceTestTools;
using Place = QVForkStorage::Place;

namespace
{

QByteArray be32(quint32 v)
{
    QByteArray b;
    b.append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
    return b;
}

QByteArray be16(quint16 v)
{
    return QByteArray().append(char(v >> 8)).append(char(v));
}

// A small fork with one resource, serialised by our writer and checked by macRes
// in the engine tests.
QByteArray smallFork()
{
    QVResourceFile file;
    QVResourceFile::Entry entry;
    entry.type = qvFourCC("TEXT");
    entry.id = 128;
    entry.data = "small";
    file.entries.append(entry);
    qint16 error = 0;
    return file.serialize(&error);
}

QByteArray finderInfo(const char *typeCreator, quint16 flags)
{
    QByteArray info(typeCreator, 8);
    info.append(be16(flags));
    info.resize(32, '\0');
    return info;
}

// The AppleDouble layout macOS writes on other file systems: Finder info with an
// extended-attribute block ("ATTR") holding absolute offsets, then the fork.
QByteArray macOSSidecar(const QByteArray &fork, const QByteArray &attrName, const QByteArray &attrValue)
{
    const int entriesEnd = 26 + 2 * 12; // 50
    QByteArray attrEntry = be32(0) + be32(quint32(attrValue.size())) + be16(0)
        + QByteArray(1, char(attrName.size() + 1)) + attrName + QByteArray(1, '\0');
    while (attrEntry.size() % 4)
        attrEntry.append('\0');
    const int headerAt = entriesEnd + 32 + 2; // 84
    const int dataStart = headerAt + 36 + int(attrEntry.size());
    attrEntry.replace(0, 4, be32(quint32(dataStart)));
    const int totalSize = dataStart + int(attrValue.size());
    QByteArray attrHeader = be32(0x41545452) + be32(0) + be32(quint32(totalSize)) + be32(quint32(dataStart))
        + be32(quint32(attrValue.size())) + QByteArray(12, '\0') + be16(0) + be16(1);
    const QByteArray finder
        = finderInfo("LWFNT1UT", 0x0100) + QByteArray(2, '\0') + attrHeader + attrEntry + attrValue;
    QByteArray out = be32(0x00051607) + be32(0x00020000) + QByteArray("Mac OS X        ", 16) + be16(2);
    out += be32(9) + be32(entriesEnd) + be32(quint32(finder.size()));
    out += be32(2) + be32(quint32(entriesEnd + finder.size())) + be32(quint32(fork.size()));
    return out + finder + fork;
}

// Reads back the value of the one attribute of a macOS sidecar by its offsets.
QByteArray macOSAttribute(const QByteArray &sidecar)
{
    const auto u32 = [&sidecar](int at) {
        return quint32(quint8(sidecar.at(at))) << 24 | quint32(quint8(sidecar.at(at + 1))) << 16
            | quint32(quint8(sidecar.at(at + 2))) << 8 | quint32(quint8(sidecar.at(at + 3)));
    };
    const int count = quint8(sidecar.at(24)) << 8 | quint8(sidecar.at(25));
    for (int i = 0; i < count; ++i) {
        if (u32(26 + 12 * i) != 9)
            continue;
        const int entry = int(u32(26 + 12 * i + 4));
        if (u32(entry + 34) != 0x41545452)
            return {};
        const int at = entry + 34 + 36;
        return sidecar.mid(u32(at), u32(at + 4));
    }
    return {};
}

class QVForkStorageTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    QString file(const QString &name, const QByteArray &data = "data")
    {
        const QString p = dir.path() + QLatin1Char('/') + name;
        EXPECT_TRUE(writeBytes(p, data));
        return p;
    }
    bool xattrs()
    {
        return QVExtendedAttributes::supported(dir.path()) && toolExists(QStringLiteral("setfattr"));
    }

    QVTestHome home;
    QTemporaryDir dir { QStringLiteral("/tmp/qv-storage-XXXXXX") };
};

} // namespace

TEST_F(QVForkStorageTest, AttributesWrittenBySetfattrAreReadAndWrittenInPlace)
{
    if (!xattrs())
        GTEST_SKIP()
            << "the file system under /tmp keeps no user extended attributes (or setfattr is missing)";
    const QString f = file(QStringLiteral("attr"));
    const QByteArray fork = smallFork();
    ASSERT_EQ(runTool(QStringLiteral("setfattr"),
                  { QStringLiteral("-n"), QString::fromLatin1(QVForkStorage::kForkAttribute),
                      QStringLiteral("-v"), QStringLiteral("0x") + QString::fromLatin1(fork.toHex()), f })
                  .exitCode,
        0);
    ASSERT_EQ(runTool(QStringLiteral("setfattr"),
                  { QStringLiteral("-n"), QString::fromLatin1(QVForkStorage::kFinderInfoAttribute),
                      QStringLiteral("-v"),
                      QStringLiteral("0x") + QString::fromLatin1(finderInfo("FFILDMOV", 0x0020).toHex()), f })
                  .exitCode,
        0);
    QVResouceFork rf;
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::ExtendedAttribute);
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::ExtendedAttribute);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x0020);
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, true, f), 0);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x2020);
    const qint16 ref = rf.openResourceFile(QVPermission::ReadWrite, f);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(rf.addResource(newHandleFromBytes("more"), qvFourCC("TEXT"), 129, QStringLiteral("b")), 0);
    rf.closeResourceFile(ref);
    // Both stayed in their attributes; no sidecar appeared.
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::ExtendedAttribute);
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::ExtendedAttribute);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(f)));
    const ToolResult dump = runTool(QStringLiteral("getfattr"),
        { QStringLiteral("--only-values"), QStringLiteral("-n"),
            QString::fromLatin1(QVForkStorage::kFinderInfoAttribute), f });
    EXPECT_EQ(dump.out.left(10), finderInfo("FFILDMOV", 0x2020).left(10));
    const ToolResult forkDump = runTool(QStringLiteral("getfattr"),
        { QStringLiteral("--only-values"), QStringLiteral("-n"),
            QString::fromLatin1(QVForkStorage::kForkAttribute), f });
    const QString raw = dir.path() + QStringLiteral("/attr.rsrc");
    ASSERT_TRUE(writeBytes(raw, forkDump.out));
    const QStringList listing = macResListing(raw);
    ASSERT_EQ(listing.size(), 2);
    EXPECT_TRUE(listing.at(1).startsWith(QStringLiteral("TEXT 129 b 4 ")));
}

TEST_F(QVForkStorageTest, ForkTooBigForAnAttributeMovesToTheSidecar)
{
    if (!xattrs())
        GTEST_SKIP() << "the file system under /tmp keeps no user extended attributes";
    const QString f = file(QStringLiteral("grows"));
    ASSERT_EQ(QVForkStorage::writeResourceFork(f, smallFork(), Place::ExtendedAttribute), 0);
    ASSERT_EQ(QVForkStorage::resourceForkPlace(f), Place::ExtendedAttribute);
    QVResouceFork rf;
    const qint16 ref = rf.openResourceFile(QVPermission::ReadWrite, f);
    ASSERT_GE(ref, 1);
    // 256 KB is beyond any attribute that ext4 keeps.
    EXPECT_EQ(rf.addResource(newHandleFromBytes(QByteArray(256 * 1024, 'x')), qvFourCC("sfnt"), 1,
                  QStringLiteral("big")),
        0);
    rf.closeResourceFile(ref);
    EXPECT_EQ(rf.resourceError(), 0);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::AppleDouble);
    EXPECT_FALSE(QVExtendedAttributes::get(f, QVForkStorage::kForkAttribute).has_value());
    const qint16 again = rf.openResourceFile(QVPermission::Read, f);
    ASSERT_GE(again, 1);
    EXPECT_EQ(rf.countResourceTypes(again, qvFourCC("sfnt")), 1);
    EXPECT_EQ(rf.countResourceTypes(again, qvFourCC("TEXT")), 1);
    rf.closeResourceFile(again);
    QVResourceManager::closeAll();
}

TEST_F(QVForkStorageTest, PlacesAreSearchedInOrderAndEachPieceOnItsOwn)
{
    const QString f = file(QStringLiteral("order"));
    // Finder info only in netatalk's folder, the fork only in the sidecar.
    QVAppleDouble netatalk;
    netatalk.entries.append({ QVAppleDouble::FinderInfo, finderInfo("FFILDMOV", 0x4000), 0 });
    ASSERT_TRUE(QDir().mkpath(dir.path() + QStringLiteral("/.AppleDouble")));
    ASSERT_TRUE(writeBytes(QVForkStorage::netatalkPath(f), netatalk.serialize()));
    ASSERT_EQ(QVForkStorage::writeResourceFork(f, smallFork(), Place::None), 0);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::AppleDouble);
    // The new sidecar must not hide the Finder info kept by netatalk.
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::NetatalkFolder);
    EXPECT_TRUE(QVForkStorage::isHidden(f));
    ASSERT_EQ(QVForkStorage::setHidden(f, false), 0);
    EXPECT_FALSE(QVForkStorage::isHidden(f));
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::NetatalkFolder);
    QByteArray info;
    QVForkStorage::readFinderInfo(f, &info);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    EXPECT_TRUE(QVForkStorage::isHidden(file(QStringLiteral(".dotted"))));

    if (!xattrs())
        GTEST_SKIP() << "no user extended attributes: the attribute's precedence was not tried";
    ASSERT_EQ(
        QVExtendedAttributes::set(f, QVForkStorage::kFinderInfoAttribute, finderInfo("LWFNASPF", 0)), 0);
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::ExtendedAttribute);
    QVForkStorage::readFinderInfo(f, &info);
    EXPECT_EQ(info.left(8), QByteArray("LWFNASPF"));
}

TEST_F(QVForkStorageTest, NetatalkMetadataAttributeHoldsFinderInfo)
{
    if (!xattrs())
        GTEST_SKIP() << "the file system under /tmp keeps no user extended attributes";
    const QString f = file(QStringLiteral("meta"));
    // An AppleDouble blob laid out by Python's struct, as netatalk stores it.
    const ToolResult blob = runTool(python(),
        { QStringLiteral("-c"),
            QStringLiteral("import struct, sys\n"
                           "fi = b'FFILDMOV' + struct.pack('>H', 0x0100) + bytes(22)\n"
                           "dates = struct.pack('>iiii', 100, 200, -2**31, 300)\n"
                           "hdr = struct.pack('>II16sH', 0x00051607, 0x00020000, bytes(16), 2)\n"
                           "off = 26 + 24\n"
                           "ent = struct.pack('>III', 9, off, 32) + struct.pack('>III', 8, off + 32, 16)\n"
                           "sys.stdout.buffer.write(hdr + ent + fi + dates)\n") });
    ASSERT_EQ(blob.exitCode, 0);
    ASSERT_EQ(QVExtendedAttributes::set(f, QVForkStorage::kNetatalkAttribute, blob.out), 0);
    QVResouceFork rf;
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::NetatalkMetadata);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x0100);
    EXPECT_EQ(QVForkStorage::creationDate(f), QDateTime(QDate(2000, 1, 1), QTime(0, 1, 40), Qt::UTC));
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, true, f), 0);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x2100);
    EXPECT_EQ(QVForkStorage::finderInfoPlace(f), Place::NetatalkMetadata);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(f)));
    // The other entries of the blob are kept.
    const auto stored
        = QVAppleDouble::parse(*QVExtendedAttributes::get(f, QVForkStorage::kNetatalkAttribute));
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->entry(QVAppleDouble::FileDates).left(8), QByteArray::fromHex("00000064000000c8"));
    // A fork never goes into the metadata attribute; it has none.
    EXPECT_EQ(QVForkStorage::resourceForkPlace(f), Place::None);
}

TEST_F(QVForkStorageTest, MacOSSidecarKeepsItsAttributeBlock)
{
    const QString f = file(QStringLiteral("fromMac"), {});
    const QByteArray value = "quarantine-value-0081;5f3e";
    ASSERT_TRUE(
        writeBytes(QVForkStorage::sidecarPath(f), macOSSidecar(smallFork(), "com.apple.quarantine", value)));
    ASSERT_EQ(macOSAttribute(readBytes(QVForkStorage::sidecarPath(f))), value);

    QVResouceFork rf;
    EXPECT_EQ(rf.finderInfoFlags(f), 0x0100);
    EXPECT_EQ(rf.setFinderInfoFlag(0x4000, true, f), 0);
    EXPECT_EQ(macOSAttribute(readBytes(QVForkStorage::sidecarPath(f))), value);
    const qint16 ref = rf.openResourceFile(QVPermission::ReadWrite, f);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(rf.addResource(newHandleFromBytes(QByteArray(5000, 'p')), qvFourCC("POST"), 501, QString()), 0);
    rf.closeResourceFile(ref);
    EXPECT_EQ(macOSAttribute(readBytes(QVForkStorage::sidecarPath(f))), value);
    // A third entry grows the header and moves the block: its offsets follow.
    const QDateTime date(QDate(1999, 12, 31), QTime(23, 0), Qt::UTC);
    ASSERT_EQ(QVForkStorage::setCreationDate(f, date), 0);
    EXPECT_EQ(QVForkStorage::creationDate(f), date);
    EXPECT_EQ(macOSAttribute(readBytes(QVForkStorage::sidecarPath(f))), value);
    EXPECT_EQ(rf.finderInfoFlags(f), 0x4100);
    const qint16 again = rf.openResourceFile(QVPermission::Read, f);
    EXPECT_EQ(rf.countResourceTypes(again, qvFourCC("POST")), 1);
    rf.closeResourceFile(again);
}

TEST_F(QVForkStorageTest, CreationDateFallsBackToTheFileSystem)
{
    const QString f = file(QStringLiteral("plain"));
    const QDateTime fs = QVForkStorage::creationDate(f);
    ASSERT_TRUE(fs.isValid());
    const QDateTime birth = QFileInfo(f).birthTime();
    EXPECT_EQ(
        fs.toSecsSinceEpoch(), (birth.isValid() ? birth : QFileInfo(f).lastModified()).toSecsSinceEpoch());
    // A file without AppleDouble data keeps its own date and gains no sidecar.
    EXPECT_EQ(QVForkStorage::setCreationDate(f, QDateTime(QDate(1995, 5, 5), QTime(5, 5), Qt::UTC)), 0);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(f)));
    EXPECT_EQ(QVForkStorage::creationDate(f), fs);
    EXPECT_FALSE(QVForkStorage::creationDate(dir.path() + QStringLiteral("/none")).isValid());
}

TEST_F(QVForkStorageTest, ForeignFilesAreNeverOverwritten)
{
    const QString f = file(QStringLiteral("foreign"));
    const QString sidecar = QVForkStorage::sidecarPath(f);
    ASSERT_TRUE(writeBytes(sidecar, "not appledouble at all"));
    EXPECT_EQ(QVForkStorage::writeFinderInfo(f, finderInfo("TEXTttxt", 0)), QVResourceError::DuplicateFile);
    EXPECT_EQ(QVForkStorage::writeResourceFork(f, smallFork(), Place::None), QVResourceError::DuplicateFile);
    EXPECT_EQ(readBytes(sidecar), QByteArray("not appledouble at all"));
    QVResouceFork rf;
    EXPECT_EQ(rf.openResourceFile(QVPermission::ReadWrite, f), -1);
    EXPECT_EQ(readBytes(sidecar), QByteArray("not appledouble at all"));
    // Clearing a flag that is not set writes nothing anywhere.
    const QString bare = file(QStringLiteral("bare.ttf"));
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, false, bare), 0);
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(bare)));
    EXPECT_EQ(rf.finderInfoFlags(dir.path() + QStringLiteral("/missing")), 0);
    EXPECT_EQ(rf.setFinderInfoFlag(0x2000, true, dir.path() + QStringLiteral("/missing")),
        QVResourceError::FileNotFound);
}

TEST_F(QVForkStorageTest, CompanionsThatAreLinksAreNeverFollowed)
{
    // What the links point at: someone's AppleDouble file, and someone's folder.
    const QByteArray victimBytes = macOSSidecar(smallFork(), "x", "y");
    const QString victim = file(QStringLiteral("elsewhere-victim"), victimBytes);
    const QString elsewhere = dir.path() + QStringLiteral("/elsewhere");
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    const QString kept = file(QStringLiteral("elsewhere/Font"), victimBytes);
    ASSERT_TRUE(QDir().mkpath(dir.path() + QStringLiteral("/a")));
    ASSERT_TRUE(QDir().mkpath(dir.path() + QStringLiteral("/b")));
    const QString sidecarLinked = file(QStringLiteral("a/Font"));
    ASSERT_TRUE(QFile::link(victim, QVForkStorage::sidecarPath(sidecarLinked)));
    const QString folderLinked = file(QStringLiteral("b/Font"));
    ASSERT_TRUE(QFile::link(elsewhere, dir.path() + QStringLiteral("/b/.AppleDouble")));

    EXPECT_EQ(QVForkStorage::writeResourceFork(sidecarLinked, smallFork(), Place::AppleDouble),
        QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::setHidden(sidecarLinked, true), QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::writeResourceFork(folderLinked, smallFork(), Place::NetatalkFolder),
        QVResourceError::Permission);
    EXPECT_EQ(QVForkStorage::linkedCompanion(sidecarLinked), QVForkStorage::sidecarPath(sidecarLinked));
    EXPECT_EQ(QVForkStorage::linkedCompanion(folderLinked), dir.path() + QStringLiteral("/b/.AppleDouble"));
    for (const QString &f : { sidecarLinked, folderLinked }) {
        QByteArray fork;
        Place place = Place::None;
        EXPECT_EQ(QVForkStorage::readResourceFork(f, &fork, &place), QVResourceError::Permission);
        EXPECT_TRUE(fork.isEmpty());
        EXPECT_TRUE(QVForkStorage::companionFiles(f).isEmpty());
        for (const auto &result : { QVFilePair::remove(f), QVFilePair::move(f, f + QStringLiteral("-moved")),
                 QVFilePair::copy(f, f + QStringLiteral("-copy")) })
            EXPECT_EQ(result.error, ELOOP) << qPrintable(result.message);
        EXPECT_TRUE(QFileInfo::exists(f));
    }
    // Nor does a file with a real fork move into a folder whose ".AppleDouble" is a link.
    const QString withFork = file(QStringLiteral("Font2"));
    ASSERT_EQ(QVForkStorage::writeResourceFork(withFork, smallFork(), Place::NetatalkFolder), 0);
    EXPECT_EQ(QVFilePair::move(withFork, dir.path() + QStringLiteral("/b/Font2")).error, ELOOP);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(withFork), Place::NetatalkFolder);
    EXPECT_EQ(readBytes(victim), victimBytes);
    EXPECT_EQ(readBytes(kept), victimBytes);
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), QStringList { QStringLiteral("Font") });

    // A rewrite in place keeps the sidecar's permissions.
    const QString own = file(QStringLiteral("Own"));
    ASSERT_EQ(QVForkStorage::writeResourceFork(own, smallFork(), Place::AppleDouble), 0);
    const QByteArray ownSidecar = QFile::encodeName(QVForkStorage::sidecarPath(own));
    ASSERT_EQ(::chmod(ownSidecar.constData(), 0604), 0);
    ASSERT_EQ(QVForkStorage::writeFinderInfo(own, finderInfo("FFILDMOV", 0)), 0);
    struct stat st;
    ASSERT_EQ(::stat(ownSidecar.constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
}

TEST_F(QVForkStorageTest, AppleDoubleParsingIsBoundsChecked)
{
    const QByteArray good = macOSSidecar(smallFork(), "x", "y");
    ASSERT_TRUE(QVAppleDouble::parse(good));
    EXPECT_FALSE(QVAppleDouble::parse(good.left(20)));
    EXPECT_FALSE(QVAppleDouble::parse(good.left(60))); // entries run past the end
    QByteArray hugeCount = good;
    hugeCount[24] = char(0xFF);
    EXPECT_FALSE(QVAppleDouble::parse(hugeCount));
    QByteArray badOffset = good;
    badOffset.replace(26 + 4, 4, be32(0xFFFFFFF0));
    EXPECT_FALSE(QVAppleDouble::parse(badOffset));
    QByteArray badMagic = good;
    badMagic[0] = 1;
    EXPECT_FALSE(QVAppleDouble::parse(badMagic));
    // Round trip keeps every entry.
    const auto parsed = QVAppleDouble::parse(good);
    EXPECT_EQ(QVAppleDouble::parse(parsed->serialize())->entries.size(), 2);
    EXPECT_EQ(parsed->serialize(), good);

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
}

TEST(QVForkStorage, MetadataStoresAreRecognised)
{
    EXPECT_TRUE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/._Times")));
    EXPECT_TRUE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/.AppleDouble")));
    EXPECT_TRUE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/.AppleDouble/Times")));
    EXPECT_TRUE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/.AppleDouble/deeper/x")));
    EXPECT_FALSE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/Times")));
    EXPECT_FALSE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/.hidden-font.ttf")));
    EXPECT_FALSE(QVForkStorage::isMetadataStore(QStringLiteral("/fonts/AppleDouble/Times")));
    EXPECT_EQ(QVForkStorage::sidecarPath(QStringLiteral("/fonts/Times Bold")),
        QStringLiteral("/fonts/._Times Bold"));
    EXPECT_EQ(QVForkStorage::netatalkPath(QStringLiteral("/fonts/Times")),
        QStringLiteral("/fonts/.AppleDouble/Times"));
}
