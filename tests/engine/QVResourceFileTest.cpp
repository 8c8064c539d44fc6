// The classic fork format itself: what the parser accepts and refuses, and what
// the writer keeps.
#include "engine/QVResourceFile.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceTestTools.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QTemporaryDir>
#include <QtConcurrent>
#include <gtest/gtest.h>

using namespace QVResourceTestTools;

namespace
{

QVResourceFile::Entry entry(
    const char *type, qint16 id, const QByteArray &data, const QByteArray &name = {}, quint8 attributes = 0)
{
    QVResourceFile::Entry e;
    e.type = qvFourCC(reinterpret_cast<const char(&)[5]>(*type));
    e.id = id;
    e.data = data;
    e.name = name;
    e.hasName = !name.isEmpty();
    e.attributes = attributes;
    return e;
}

QByteArray serialized(const QVResourceFile &file)
{
    qint16 error = 0;
    const QByteArray bytes = file.serialize(&error);
    EXPECT_EQ(error, 0);
    return bytes;
}

quint32 u32(const QByteArray &b, int at)
{
    return quint32(quint8(b[at])) << 24 | quint32(quint8(b[at + 1])) << 16 | quint32(quint8(b[at + 2])) << 8
        | quint8(b[at + 3]);
}

} // namespace

TEST(QVResourceFile, EmptyMapStoresNoTypesAsFFFF)
{
    const QByteArray fork = QVResourceFile::emptyFork();
    ASSERT_EQ(fork.size(), 256 + 30);
    EXPECT_EQ(u32(fork, 0), 256u); // data offset
    EXPECT_EQ(u32(fork, 4), 256u); // map offset
    EXPECT_EQ(u32(fork, 8), 0u); // data length
    EXPECT_EQ(u32(fork, 12), 30u); // map length
    EXPECT_EQ(fork.mid(256, 16), fork.left(16)); // header copy in the map
    EXPECT_EQ(fork.mid(256 + 24, 6), QByteArray::fromHex("001c001effff"));
    qint16 error = 1;
    const auto parsed = QVResourceFile::parse(fork, &error);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(parsed->entries.isEmpty());
}

TEST(QVResourceFile, WriterKeepsOrderNamesAttributesAndDuplicates)
{
    QVResourceFile file;
    file.entries.append(entry("FOND", 128, "family", "Times", 0x20));
    file.entries.append(entry("NFNT", 1, "strike-a"));
    file.entries.append(entry("FOND", 129, "other", QByteArray("Caf\x8e", 4)));
    file.entries.append(entry("NFNT", 1, "duplicate id"));
    file.mapAttributes = QVResourceFile::kMapReadOnly;
    const QByteArray bytes = serialized(file);
    qint16 error = 0;
    const auto back = QVResourceFile::parse(bytes, &error);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->types(), (QList<quint32> { qvFourCC("FOND"), qvFourCC("NFNT") }));
    EXPECT_EQ(back->count(qvFourCC("FOND")), 2);
    EXPECT_EQ(back->count(qvFourCC("NFNT")), 2);
    EXPECT_EQ(back->mapAttributes, QVResourceFile::kMapReadOnly);
    const auto &times = back->entries.at(back->find(qvFourCC("FOND"), 128));
    EXPECT_EQ(times.name, QByteArray("Times"));
    EXPECT_EQ(times.attributes, 0x20);
    EXPECT_EQ(times.data, QByteArray("family"));
    // The first of two equal IDs is found; both are kept.
    EXPECT_EQ(back->entries.at(back->find(qvFourCC("NFNT"), 1)).data, QByteArray("strike-a"));
    EXPECT_EQ(back->entries.at(back->indexOf(qvFourCC("NFNT"), 2)).data, QByteArray("duplicate id"));
    EXPECT_EQ(back->findNamed(qvFourCC("FOND"), QByteArray("caf\x8e", 4)), back->find(qvFourCC("FOND"), 129));
    EXPECT_EQ(back->indexOf(qvFourCC("NFNT"), 3), -1);

    // macRes reads the same: names in Mac Roman, data intact.
    QTemporaryDir dir;
    const QString raw = dir.path() + QStringLiteral("/f.rsrc");
    ASSERT_TRUE(writeBytes(raw, bytes));
    const QStringList listing = macResListing(raw);
    ASSERT_EQ(listing.size(), 4);
    EXPECT_TRUE(listing.at(0).startsWith(QStringLiteral("FOND 128 Times 6 ")));
    EXPECT_TRUE(listing.at(1).startsWith(QStringLiteral("FOND 129 Café 5 ")));
}

TEST(QVResourceFile, DamagedMapsAreRefusedAndBadDataIsMarked)
{
    QVResourceFile file;
    file.entries.append(entry("sfnt", 1, QByteArray(100, 's'), "A"));
    file.entries.append(entry("sfnt", 2, QByteArray(50, 't')));
    const QByteArray good = serialized(file);
    const int map = int(u32(good, 4));
    qint16 error = 0;

    EXPECT_FALSE(QVResourceFile::parse(good.left(15), &error));
    EXPECT_EQ(error, QVResourceError::MapRead);
    EXPECT_FALSE(QVResourceFile::parse(good.left(good.size() - 1), &error)); // map runs past the end
    QByteArray typeCount = good;
    typeCount[map + 28] = char(0x40); // thousands of types
    EXPECT_FALSE(QVResourceFile::parse(typeCount, &error));
    EXPECT_EQ(error, QVResourceError::MapRead);
    QByteArray refCount = good;
    refCount[map + 30 + 4] = char(0x7F);
    EXPECT_FALSE(QVResourceFile::parse(refCount, &error));
    QByteArray nameOffset = good;
    nameOffset[map + 28 + 2 + 8 + 2] = char(0x70); // first reference's name offset
    EXPECT_FALSE(QVResourceFile::parse(nameOffset, &error));

    // A reference whose data lies outside the data area parses, but cannot load.
    QByteArray dataOffset = good;
    dataOffset[map + 28 + 2 + 8 + 5] = char(0x7F);
    const auto parsed = QVResourceFile::parse(dataOffset, &error);
    ASSERT_TRUE(parsed);
    EXPECT_FALSE(parsed->allDataValid());
    EXPECT_FALSE(parsed->entries.at(0).dataValid);
    EXPECT_TRUE(parsed->entries.at(1).dataValid);
    QByteArray dataLength = good;
    dataLength[256] = char(0x7F); // first resource's length word
    EXPECT_FALSE(QVResourceFile::parse(dataLength, &error)->entries.at(0).dataValid);

    // References into one another's data: those at one place share its bytes,
    // one inside another's data (more than the data area holds) is unreadable.
    // A small fork never becomes many copies of itself in memory.
    QVResourceFile overlapping;
    overlapping.entries.append(entry("TEST", 0, QByteArray::fromHex("00000300") + QByteArray(996, 'a')));
    for (int i = 1; i <= 100; ++i)
        overlapping.entries.append(entry("TEST", qint16(i), "b"));
    QByteArray bomb = serialized(overlapping);
    const int refs = int(u32(bomb, 4)) + 28 + 2 + 8;
    for (int i = 1; i <= 100; ++i)
        bomb.replace(refs + 12 * i + 5, 3, QByteArray::fromHex(i % 2 ? "000000" : "000004"));
    const auto shared = QVResourceFile::parse(bomb, &error);
    ASSERT_TRUE(shared);
    for (int i = 1; i <= 100; ++i) {
        const auto &e = shared->entries.at(i);
        EXPECT_EQ(e.dataValid, i % 2 == 1) << i;
        EXPECT_EQ(e.data.isSharedWith(shared->entries.at(0).data), i % 2 == 1) << i;
    }
}

TEST(QVResourceFile, LimitsOfTheFormatAreErrors)
{
    QVResourceFile file;
    // The 24-bit data offsets reach 16 MB: a resource starting beyond cannot be written.
    file.entries.append(entry("sfnt", 1, QByteArray(QVResourceFile::kMaxDataArea, 'x')));
    file.entries.append(entry("sfnt", 2, "tail"));
    qint16 error = 0;
    EXPECT_TRUE(file.serialize(&error).isEmpty());
    EXPECT_EQ(error, QVResourceError::WritingPastEnd);
}

TEST(QVResourceFile, BadResourcesFailToLoadWithoutClosingTheFork)
{
    QVTestHome home;
    QTemporaryDir dir(QStringLiteral("/tmp/qv-file-XXXXXX"));
    QVResourceFile file;
    file.entries.append(entry("sfnt", 1, "compressed", {}, 0x01));
    file.entries.append(entry("sfnt", 2, "plain"));
    file.entries.append(entry("sfnt", 3, "moved away"));
    QByteArray bytes = serialized(file);
    const int map = int(u32(bytes, 4));
    bytes[map + 30 + 8 + 24 + 5] = char(0x7F); // third reference's data offset
    const QString path = dir.path() + QStringLiteral("/odd.dfont");
    ASSERT_TRUE(writeBytes(path, bytes));

    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
    ASSERT_GE(ref, 1);
    EXPECT_FALSE(fork.getResourceOfID(1, qvFourCC("sfnt"), ref));
    EXPECT_EQ(fork.resourceError(), -186);
    EXPECT_TRUE(fork.getResourceOfID(2, qvFourCC("sfnt"), ref));
    EXPECT_FALSE(fork.getResourceOfID(3, qvFourCC("sfnt"), ref));
    EXPECT_EQ(fork.resourceError(), QVResourceError::Eof);
    EXPECT_FALSE(fork.getResourceOfID(4, qvFourCC("sfnt"), ref));
    EXPECT_EQ(fork.resourceError(), QVResourceError::ResNotFound);
    // getResourcesOfType skips what cannot be loaded.
    EXPECT_EQ(fork.getResourcesOfType(qvFourCC("sfnt"), ref).size(), 1);
    fork.closeResourceFile(ref);
}

TEST(QVResourceFile, LayerIsSafeFromSeveralThreads)
{
    QVTestHome home;
    QTemporaryDir dir(QStringLiteral("/tmp/qv-threads-XXXXXX"));
    QStringList files;
    for (int i = 0; i < 4; ++i) {
        QVResourceFile file;
        for (int r = 0; r < 20; ++r)
            file.entries.append(entry("POST", qint16(501 + r), QByteArray(100 + r, char('A' + i))));
        const QString path = dir.path() + QStringLiteral("/f%1").arg(i);
        ASSERT_TRUE(writeBytes(path, {}));
        ASSERT_EQ(
            QVForkStorage::writeResourceFork(path, serialized(file), QVForkStorage::Place::AppleDouble), 0);
        files.append(path);
    }
    // Each worker holds the lock across its whole examination, as the examiner does.
    const QList<int> sums = QtConcurrent::blockingMapped(files, [](const QString &path) {
        int total = 0;
        for (int round = 0; round < 25; ++round) {
            std::lock_guard guard(QVResouceFork::lock());
            QVResouceFork fork;
            const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
            if (ref < 1)
                return -1;
            for (const QVResourceHandle &h : fork.getResourcesOfType(qvFourCC("POST"), ref))
                total += int(h->data.size()) + fork.memoryHandler->Handle_ReadPString(h, 0)[0];
            fork.closeResourceFile(ref);
        }
        return total;
    });
    // 25 rounds of 20 resources of 100..119 bytes whose first byte is 'A' + i.
    for (int i = 0; i < sums.size(); ++i)
        EXPECT_EQ(sums.at(i), 25 * (2190 + 20 * (65 + i))) << i;
    EXPECT_TRUE(QVResourceManager::openFiles().isEmpty());
}
