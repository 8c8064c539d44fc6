// Damaged forks: thousands of truncated and bit-flipped variants of real forks
// open, list and read with errors, never a crash or a read outside the data
// (the asan build checks the latter).
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceTestTools.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace QVResourceTestTools;

namespace
{

struct Tally {
    int opened = 0;
    int refused = 0;
    int resources = 0;
    int unreadable = 0;
};

// Everything the examiner and suitcase surgery do to a fork, on one variant.
void exercise(QVResouceFork &fork, qint16 ref, Tally &tally)
{
    QVMemoryHandler &mem = *fork.memoryHandler;
    fork.useResourceFile(ref);
    const int typeCount = QVResourceManager::count1Types();
    for (int t = 1; t <= typeCount; ++t) {
        fork.useResourceFile(ref);
        const quint32 type = QVResourceManager::get1IndType(t);
        const int count = fork.countResourceTypes(ref, type);
        for (int i = 1; i <= count; ++i) {
            const QVResourceHandle h = fork.getIndexResource(ref, type, i);
            if (!h) {
                ++tally.unreadable;
                continue;
            }
            ++tally.resources;
            fork.getResourceInfo(h);
            if (type == qvFourCC("FOND")) {
                for (int style = 0; style < 48; ++style)
                    fork.getBitmapPSname(h, style);
                const int entries = mem.Handle_ReadShort(h, 52) + 1;
                for (int e = 0; e < qMin(entries, 64); ++e)
                    fork.getResourceOfID(qint16(mem.Handle_ReadShort(h, 58 + 6 * e)), qvFourCC("NFNT"), ref);
            } else if (type == qvFourCC("sfnt")) {
                fork.getSNFTResourceName(h, 4);
                fork.getSNFTResourceName(h, 6);
            }
            mem.Handle_ReadLong(h, h->data.size() - 8);
            mem.Handle_ReadPString(h, h->data.size() - 1);
            fork.releaseResource(h);
        }
    }
}

QByteArray mutate(const QByteArray &fork, QRandomGenerator &random)
{
    QByteArray variant = fork;
    if (random.bounded(3) == 0) {
        variant.truncate(random.bounded(qMax<int>(1, int(fork.size()))));
        return variant;
    }
    // Flips, mostly in the header and the map, where counts and offsets live.
    const qint64 mapOffset = fork.size() >= 8
        ? qint64(quint8(fork[4])) << 24 | quint8(fork[5]) << 16 | quint8(fork[6]) << 8 | quint8(fork[7])
        : 0;
    const int flips = 1 + random.bounded(8);
    for (int f = 0; f < flips && !variant.isEmpty(); ++f) {
        qint64 at;
        const int where = random.bounded(4);
        if (where == 0)
            at = random.bounded(16);
        else if (where < 3 && mapOffset < variant.size())
            at = mapOffset + random.bounded(int(variant.size() - mapOffset));
        else
            at = random.bounded(int(variant.size()));
        if (at < variant.size())
            variant[at] = char(variant[at] ^ (1 << random.bounded(8)));
    }
    return variant;
}

class QVResourceFuzzTest : public ::testing::Test
{
protected:
    void TearDown() override { QVResourceManager::closeAll(); }
    QVTestHome home;
    QTemporaryDir dir { QStringLiteral("/tmp/qv-fuzz-XXXXXX") };
};

} // namespace

TEST_F(QVResourceFuzzTest, DamagedRealForksGiveErrorsNotCrashes)
{
    ASSERT_TRUE(dir.isValid());
    QList<QPair<QString, QByteArray>> forks;
    const QString suitcase = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(suitcase.isEmpty());
    forks.append({ QStringLiteral("ufond suitcase"), readBytes(suitcase) });
    const QString lwfn = dir.path() + QStringLiteral("/lwfn.rsrc");
    ASSERT_EQ(
        runTool(QStringLiteral("t1mac"),
            { QStringLiteral("--raw"), QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb"), lwfn })
            .exitCode,
        0);
    forks.append({ QStringLiteral("t1mac LWFN"), readBytes(lwfn) });
    if (!dfontPath().isEmpty())
        forks.append({ QStringLiteral("dfont"), readBytes(dfontPath()) });

    QVResouceFork fork;
    QRandomGenerator random(20261121);
    const QString target = dir.path() + QStringLiteral("/variant");
    const QString sidecarTarget = dir.path() + QStringLiteral("/wrapped");
    ASSERT_TRUE(writeBytes(sidecarTarget, {}));
    for (const auto &[name, original] : forks) {
        Tally tally;
        const int variants = 1500;
        for (int v = 0; v < variants; ++v) {
            const QByteArray bytes = mutate(original, random);
            // Most variants as a data-fork resource file; every tenth inside an
            // AppleDouble sidecar (whose own header is damaged now and then).
            qint16 ref;
            if (v % 10 == 0) {
                QVAppleDouble wrapper;
                wrapper.entries.append({ QVAppleDouble::ResourceFork, bytes, 0 });
                QByteArray sidecar = wrapper.serialize();
                if (v % 20 == 0)
                    sidecar[26 + random.bounded(12)] = char(random.bounded(256));
                QFile::remove(QVForkStorage::sidecarPath(sidecarTarget));
                ASSERT_TRUE(writeBytes(QVForkStorage::sidecarPath(sidecarTarget), sidecar));
                ref = fork.openResourceFile(QVPermission::Read, sidecarTarget);
            } else {
                // A fresh name each time: rewriting one file in place makes ext4 flush it.
                QFile::remove(target);
                ASSERT_TRUE(writeBytes(target, bytes));
                ref = fork.openDataForkAtResourceFile(nullptr, target);
            }
            if (ref < 1) {
                ++tally.refused;
                const qint16 error = fork.resourceError();
                EXPECT_TRUE(error == QVResourceError::MapRead || error == QVResourceError::ResFileNotFound)
                    << qPrintable(name) << " variant " << v << " error " << error;
                continue;
            }
            ++tally.opened;
            exercise(fork, ref, tally);
            fork.closeResourceFile(ref);
        }
        // The variants cover both sides: damaged maps refused, and forks that
        // still open with some resources unreadable.
        EXPECT_GT(tally.opened, 0) << qPrintable(name);
        EXPECT_GT(tally.refused, 0) << qPrintable(name);
        std::printf("[ fuzz ] %s: %d variants, %d opened, %d refused, %d resources read, %d unreadable\n",
            qPrintable(name), variants, tally.opened, tally.refused, tally.resources, tally.unreadable);
    }
    EXPECT_TRUE(QVResourceManager::openFiles().isEmpty());
}

TEST_F(QVResourceFuzzTest, ParsedForksSerializeToWhatTheyHold)
{
    ASSERT_TRUE(dir.isValid());
    const QString suitcase = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(suitcase.isEmpty());
    const QByteArray original = readBytes(suitcase);
    QRandomGenerator random(7);
    int roundTrips = 0;
    for (int v = 0; v < 2000; ++v) {
        const QByteArray bytes = mutate(original, random);
        qint16 error = 0;
        const auto parsed = QVResourceFile::parse(bytes, &error);
        if (!parsed || !parsed->allDataValid())
            continue;
        const QByteArray written = parsed->serialize(&error);
        ASSERT_EQ(error, 0);
        const auto again = QVResourceFile::parse(written, &error);
        ASSERT_TRUE(again) << v;
        ASSERT_EQ(again->entries.size(), parsed->entries.size());
        for (int i = 0; i < parsed->entries.size(); ++i) {
            const auto &a = parsed->entries.at(i), &b = again->entries.at(i);
            EXPECT_EQ(a.type, b.type);
            EXPECT_EQ(a.id, b.id);
            EXPECT_EQ(a.name, b.name);
            EXPECT_EQ(a.data, b.data);
        }
        ++roundTrips;
    }
    EXPECT_GT(roundTrips, 100);
}

TEST_F(QVResourceFuzzTest, DamagedNamingTablesReadInsideTheData)
{
    const QString dfont = dfontPath();
    if (dfont.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::Read, dfont);
    ASSERT_GE(ref, 1);
    const QByteArray sfnt = fork.getIndexResource(ref, qvFourCC("sfnt"), 1)->data;
    fork.closeResourceFile(ref);
    QRandomGenerator random(99);
    int answered = 0;
    for (int v = 0; v < 3000; ++v) {
        QByteArray bytes = sfnt;
        const int flips = 1 + random.bounded(6);
        for (int f = 0; f < flips; ++f) {
            const int at = random.bounded(2) ? random.bounded(512) : random.bounded(int(bytes.size()));
            bytes[at] = char(bytes[at] ^ (1 << random.bounded(8)));
        }
        if (v % 3 == 0)
            bytes.truncate(random.bounded(int(bytes.size())));
        const QVResourceHandle h = newHandleFromBytes(bytes);
        for (int id : { 1, 4, 6 })
            answered += !fork.getSNFTResourceName(h, id).isEmpty();
    }
    EXPECT_GT(answered, 0);
}
