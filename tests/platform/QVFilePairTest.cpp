// Moving, copying, renaming, trashing and deleting a file with its fork and Finder info, for each place they
// can live; checked by hashing all three.
#include "platform/QVFilePair.h"

#include "engine/QVResourceFile.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVForkStorage.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVFixtures;
using Place = QVForkStorage::Place;

namespace
{

enum class Variant { AppleDouble, Netatalk, Attribute, NetatalkMetadata, Dfont };

class QVFilePairTest : public ::testing::TestWithParam<Variant>
{
protected:
    void SetUp() override
    {
        if ((GetParam() == Variant::Attribute || GetParam() == Variant::NetatalkMetadata)
            && !QVExtendedAttributes::supported(home.path()))
            GTEST_SKIP() << "the file system here keeps no user extended attributes";
    }
    // A font file with its fork and Finder info in the variant's place.
    QString make(const QString &folder, const QString &name)
    {
        const QString path = folder + "/" + name;
        const QByteArray info = QByteArray("FFILDMOV\x01\x00", 10).leftJustified(32, '\0');
        switch (GetParam()) {
        case Variant::AppleDouble:
            return makeLwfn(folder, name);
        case Variant::Netatalk: // t1mac's AppleDouble where netatalk 2 keeps it
            EXPECT_FALSE(makeLwfn(home.path() + "/scratch", name).isEmpty());
            QDir().mkpath(folder + "/.AppleDouble");
            EXPECT_TRUE(QFile::rename(home.path() + "/scratch/._" + name, QVForkStorage::netatalkPath(path)));
            return writeFile(path, {}) ? path : QString();
        case Variant::Attribute:
            EXPECT_TRUE(writeFile(path, "outline data"));
            EXPECT_EQ(runTool("setfattr",
                          { "-n", QVForkStorage::kForkAttribute, "-v",
                              QString::fromLatin1("0x" + QVResourceFile::emptyFork().toHex()), path })
                          .exitCode,
                0);
            EXPECT_EQ(QVExtendedAttributes::set(path, QVForkStorage::kFinderInfoAttribute, info), 0);
            return path;
        case Variant::NetatalkMetadata: {
            EXPECT_TRUE(writeFile(path, {}));
            QVAppleDouble meta;
            meta.entries.append({ QVAppleDouble::FinderInfo, info, 0 });
            EXPECT_EQ(
                QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, meta.serialize()), 0);
            EXPECT_EQ(
                QVForkStorage::writeResourceFork(path, QVResourceFile::emptyFork(), Place::AppleDouble), 0);
            return path;
        }
        case Variant::Dfont:
            return copyFont(kPanicSansDfont, folder, name + ".dfont");
        }
        return {};
    }
    void expectGone(const QString &path)
    {
        for (const QString &p : { path, QVForkStorage::sidecarPath(path), QVForkStorage::netatalkPath(path) })
            EXPECT_FALSE(QFileInfo::exists(p)) << qPrintable(p);
    }
    static QString ext(const QString &path)
    {
        return path.endsWith(".dfont") ? QStringLiteral(".dfont") : QString();
    }
    static void expectDone(const QVFilePair::Result &result)
    {
        ASSERT_TRUE(result) << qPrintable(result.message);
    }

    QVTestHome home; // the trash lives in the test's own data folder
};

} // namespace

TEST_P(QVFilePairTest, MoveCopyRenameTrashAndDeleteKeepForkAndFinderInfo)
{
    const QString source = make(home.path() + "/src", "Font One");
    ASSERT_FALSE(source.isEmpty());
    const QString original = placedHashes(source), e = ext(source);
    ASSERT_NE(QVForkStorage::resourceForkPlace(source), Place::None);
    const QString moved = home.path() + "/dst/Font Moved" + e, copied = home.path() + "/src/Font Copy" + e;
    QDir().mkpath(home.path() + "/dst");
    expectDone(QVFilePair::move(source, moved));
    EXPECT_EQ(placedHashes(moved), original);
    expectGone(source);
    expectDone(QVFilePair::copy(moved, copied));
    EXPECT_EQ(placedHashes(copied) + placedHashes(moved), original + original);
    expectDone(QVFilePair::rename(copied, "Renamed" + e));
    const QString renamed = home.path() + "/src/Renamed" + e;
    EXPECT_EQ(placedHashes(renamed), original);
    expectGone(copied);
    // The trash takes the companions along, each with a record of where it was.
    const QStringList companions = QVFilePair::companions(renamed);
    QString trashed;
    expectDone(QVFilePair::moveToTrash(renamed, &trashed));
    expectGone(renamed);
    EXPECT_EQ(fileSha256(trashed), fileSha256(moved));
    const QDir info(home.dataHome() + "/Trash/info");
    QString records;
    for (const QString &record : info.entryList({ "*.trashinfo" }, QDir::Files | QDir::Hidden))
        records += QString::fromUtf8(readFile(info.filePath(record)));
    EXPECT_EQ(records.count("Path="), 1 + companions.size());
    for (const QString &companion : companions)
        EXPECT_TRUE(records.contains(QUrl::toPercentEncoding(companion, "/"))) << qPrintable(companion);
    // Delete takes the companions along.
    ASSERT_TRUE(QVFilePair::remove(moved));
    expectGone(moved);
    EXPECT_FALSE(QVFilePair::remove(moved));
}

TEST_P(QVFilePairTest, NothingIsOverwrittenAndTheSourceStays)
{
    const QString source = make(home.path(), "Keep");
    ASSERT_FALSE(source.isEmpty());
    const QString original = placedHashes(source);
    const QString occupied = home.writeFile("Occupied" + ext(source), "someone else");
    const QVFilePair::Result result = QVFilePair::move(source, occupied);
    EXPECT_TRUE(!result && result.error == EEXIST);
    EXPECT_FALSE(QVFilePair::copy(source, occupied));
    EXPECT_EQ(readFile(occupied), QByteArray("someone else"));
    // A stray sidecar at the destination would give the file a foreign fork.
    const QString stray = home.path() + "/Stray" + ext(source);
    ASSERT_TRUE(writeFile(QVForkStorage::sidecarPath(stray), "orphan"));
    EXPECT_FALSE(
        QVFilePair::move(source, stray) || QVFilePair::copy(source, stray) || QFileInfo::exists(stray));
    EXPECT_EQ(readFile(QVForkStorage::sidecarPath(stray)), QByteArray("orphan"));
    EXPECT_FALSE(QVFilePair::rename(source, "a/b"));
    EXPECT_EQ(placedHashes(source), original);
}

TEST_P(QVFilePairTest, MoveToAnotherFileSystemCopiesThenDeletes)
{
    struct stat here, shm;
    if (::stat("/dev/shm", &shm) != 0 || ::stat(QFile::encodeName(home.path()).constData(), &here) != 0
        || here.st_dev == shm.st_dev)
        GTEST_SKIP() << "no second file system (/dev/shm) to move to";
    QTemporaryDir other(QStringLiteral("/dev/shm/qv-pair-XXXXXX"));
    const QString source = make(home.path(), "Travels");
    ASSERT_FALSE(source.isEmpty());
    const QString original = placedHashes(source), target = other.path() + "/" + QFileInfo(source).fileName();
    expectDone(QVFilePair::move(source, target));
    expectGone(source);
    // Where the other file system keeps no attributes, they land in a sidecar.
    EXPECT_EQ(QVExtendedAttributes::supported(other.path()) ? placedHashes(target) : forkHashes(target),
        QVExtendedAttributes::supported(other.path()) ? original : original.section('\n', 0, 2));
    ASSERT_TRUE(QVFilePair::move(target, source));
    EXPECT_EQ(forkHashes(source), original.section('\n', 0, 2));
}

std::string variantName(const ::testing::TestParamInfo<Variant> &info)
{
    return std::array { "appledouble", "netatalk", "xattr", "netatalkmetadata", "dfont" }[size_t(info.param)];
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, QVFilePairTest,
    ::testing::Values(Variant::AppleDouble, Variant::Netatalk, Variant::Attribute, Variant::NetatalkMetadata,
        Variant::Dfont),
    variantName);

TEST(QVFilePair, AFailedCompanionMovePutsEverythingBack)
{
    QVTestHome home;
    // A fork netatalk keeps, moved where ".AppleDouble" is a plain file: it cannot follow, so the move is
    // undone.
    const QString source = home.writeFile("src/Font", "data"), target = home.path() + "/dst/Font";
    ASSERT_EQ(
        QVForkStorage::writeResourceFork(source, QVResourceFile::emptyFork(), Place::NetatalkFolder), 0);
    const QString original = placedHashes(source);
    home.writeFile("dst/.AppleDouble", "in the way");
    const QVFilePair::Result result = QVFilePair::move(source, target);
    EXPECT_TRUE(!result && !result.message.isEmpty());
    EXPECT_FALSE(QVFilePair::copy(source, target) || QFileInfo::exists(target)); // nor a half copy
    EXPECT_EQ(placedHashes(source), original);
}
