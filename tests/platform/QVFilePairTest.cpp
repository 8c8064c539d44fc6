// Moving, copying, renaming and deleting a file with its fork and Finder info,
// for each place they can live; checked by hashing all three.
#include "platform/QVFilePair.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceTestTools.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVForkStorage.h"
#include "support/QVTestHome.h"

#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVResourceTestTools;
using Place = QVForkStorage::Place;

namespace
{

QByteArray smallFork()
{
    QVResourceFile file;
    QVResourceFile::Entry entry;
    entry.type = qvFourCC("FOND");
    entry.id = 256;
    entry.name = "Tiny";
    entry.hasName = true;
    entry.data = QByteArray(80, 'f');
    file.entries.append(entry);
    qint16 error = 0;
    return file.serialize(&error);
}

QByteArray finderInfo(const char *typeCreator, quint16 flags)
{
    QByteArray info(typeCreator, 8);
    info.append(char(flags >> 8)).append(char(flags));
    info.resize(32, '\0');
    return info;
}

struct Variant {
    const char *name;
    bool needsXattrs;
};

const Variant kVariants[] = { { "appledouble", false }, { "netatalk", false }, { "xattr", true },
    { "netatalk-metadata", true }, { "dfont", false } };

class QVFilePairTest : public ::testing::TestWithParam<Variant>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        if (GetParam().needsXattrs && !QVExtendedAttributes::supported(dir.path()))
            GTEST_SKIP() << "the file system under /tmp keeps no user extended attributes";
    }

    // A font file with its fork and Finder info in the variant's place.
    QString make(const QString &folder, const QString &name)
    {
        QDir().mkpath(folder);
        const QString variant = QString::fromLatin1(GetParam().name);
        const QString path = folder + QLatin1Char('/') + name;
        if (variant == QLatin1String("appledouble")) {
            EXPECT_EQ(makeLwfn(folder, name), path);
        } else if (variant == QLatin1String("netatalk")) {
            // t1mac's own AppleDouble, stored where netatalk 2 keeps it.
            const QString scratch = dir.path() + QStringLiteral("/scratch");
            QDir().mkpath(scratch);
            EXPECT_FALSE(makeLwfn(scratch, name).isEmpty());
            QDir().mkpath(folder + QStringLiteral("/.AppleDouble"));
            EXPECT_TRUE(
                QFile::rename(scratch + QStringLiteral("/._") + name, QVForkStorage::netatalkPath(path)));
            EXPECT_TRUE(writeBytes(path, {}));
        } else if (variant == QLatin1String("xattr")) {
            EXPECT_TRUE(writeBytes(path, "outline data"));
            EXPECT_EQ(runTool(QStringLiteral("setfattr"),
                          { QStringLiteral("-n"), QString::fromLatin1(QVForkStorage::kForkAttribute),
                              QStringLiteral("-v"),
                              QStringLiteral("0x") + QString::fromLatin1(smallFork().toHex()), path })
                          .exitCode,
                0);
            EXPECT_EQ(QVExtendedAttributes::set(
                          path, QVForkStorage::kFinderInfoAttribute, finderInfo("FFILDMOV", 0x2000)),
                0);
        } else if (variant == QLatin1String("netatalk-metadata")) {
            EXPECT_TRUE(writeBytes(path, {}));
            QVAppleDouble meta;
            meta.entries.append({ QVAppleDouble::FinderInfo, finderInfo("FFILDMOV", 0x0100), 0 });
            EXPECT_EQ(
                QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, meta.serialize()), 0);
            EXPECT_EQ(QVForkStorage::writeResourceFork(path, smallFork(), Place::AppleDouble), 0);
        } else {
            const QString dfont = dfontPath();
            if (dfont.isEmpty())
                return {};
            const QString target = path + QStringLiteral(".dfont");
            EXPECT_TRUE(QFile::copy(dfont, target));
            return target;
        }
        return path;
    }

    void expectGone(const QString &path)
    {
        EXPECT_FALSE(QFileInfo::exists(path)) << qPrintable(path);
        EXPECT_FALSE(QFileInfo::exists(QVForkStorage::sidecarPath(path)));
        EXPECT_FALSE(QFileInfo::exists(QVForkStorage::netatalkPath(path)));
    }

    QTemporaryDir dir { QStringLiteral("/tmp/qv-pair-XXXXXX") };
};

} // namespace

TEST_P(QVFilePairTest, MoveCopyRenameDeleteKeepForkAndFinderInfo)
{
    const QString source = make(dir.path() + QStringLiteral("/src"), QStringLiteral("Font One"));
    if (source.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    const PairHash original = hashPair(source);
    ASSERT_NE(original.forkPlace, Place::None);
    const QString ext = source.endsWith(QLatin1String(".dfont")) ? QStringLiteral(".dfont") : QString();

    // Move into another folder.
    const QString moved = dir.path() + QStringLiteral("/dst/Font Moved") + ext;
    QDir().mkpath(dir.path() + QStringLiteral("/dst"));
    const QVFilePair::Result move = QVFilePair::move(source, moved);
    ASSERT_TRUE(move) << qPrintable(move.message);
    EXPECT_EQ(hashPair(moved), original);
    expectGone(source);

    // Copy: both sides whole.
    const QString copied = dir.path() + QStringLiteral("/src/Font Copy") + ext;
    const QVFilePair::Result copy = QVFilePair::copy(moved, copied);
    ASSERT_TRUE(copy) << qPrintable(copy.message);
    EXPECT_EQ(hashPair(copied), original);
    EXPECT_EQ(hashPair(moved), original);

    // Rename in place.
    const QVFilePair::Result rename = QVFilePair::rename(copied, QStringLiteral("Font Renamed") + ext);
    ASSERT_TRUE(rename) << qPrintable(rename.message);
    const QString renamed = dir.path() + QStringLiteral("/src/Font Renamed") + ext;
    EXPECT_EQ(hashPair(renamed), original);
    expectGone(copied);

    // Delete takes the companions along.
    ASSERT_TRUE(QVFilePair::remove(renamed));
    expectGone(renamed);
    EXPECT_EQ(hashPair(moved), original);
    EXPECT_FALSE(QVFilePair::remove(renamed));
}

TEST_P(QVFilePairTest, NothingIsOverwrittenAndTheSourceStays)
{
    const QString source = make(dir.path(), QStringLiteral("Keep"));
    if (source.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    const PairHash original = hashPair(source);
    const QString ext = source.endsWith(QLatin1String(".dfont")) ? QStringLiteral(".dfont") : QString();

    const QString occupied = dir.path() + QStringLiteral("/Occupied") + ext;
    ASSERT_TRUE(writeBytes(occupied, "someone else"));
    QVFilePair::Result result = QVFilePair::move(source, occupied);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.error, EEXIST);
    EXPECT_FALSE(QVFilePair::copy(source, occupied));
    EXPECT_EQ(readBytes(occupied), QByteArray("someone else"));

    // A stray sidecar at the destination would give the file a foreign fork.
    const QString strayTarget = dir.path() + QStringLiteral("/Stray") + ext;
    ASSERT_TRUE(writeBytes(QVForkStorage::sidecarPath(strayTarget), "orphan"));
    EXPECT_FALSE(QVFilePair::move(source, strayTarget));
    EXPECT_FALSE(QVFilePair::copy(source, strayTarget));
    EXPECT_FALSE(QFileInfo::exists(strayTarget));
    EXPECT_EQ(readBytes(QVForkStorage::sidecarPath(strayTarget)), QByteArray("orphan"));
    EXPECT_FALSE(QVFilePair::rename(source, QStringLiteral("a/b")));
    EXPECT_EQ(hashPair(source), original);
}

TEST_P(QVFilePairTest, MoveToAnotherFileSystemCopiesThenDeletes)
{
    struct stat here, shm;
    if (::stat("/dev/shm", &shm) != 0 || ::stat(QFile::encodeName(dir.path()).constData(), &here) != 0
        || here.st_dev == shm.st_dev)
        GTEST_SKIP() << "no second file system (/dev/shm) to move to";
    QTemporaryDir other(QStringLiteral("/dev/shm/qv-pair-XXXXXX"));
    ASSERT_TRUE(other.isValid());
    const QString source = make(dir.path(), QStringLiteral("Travels"));
    if (source.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    const PairHash original = hashPair(source);
    const QString target = other.path() + QLatin1Char('/') + QFileInfo(source).fileName();
    const QVFilePair::Result move = QVFilePair::move(source, target);
    ASSERT_TRUE(move) << qPrintable(move.message);
    expectGone(source);
    PairHash arrived = hashPair(target);
    // Where the target's file system keeps no attributes, they land in a sidecar.
    if (!QVExtendedAttributes::supported(other.path())) {
        if (original.forkPlace == Place::ExtendedAttribute)
            arrived.forkPlace = Place::ExtendedAttribute;
        if (original.finderPlace == Place::ExtendedAttribute
            || original.finderPlace == Place::NetatalkMetadata)
            arrived.finderPlace = original.finderPlace;
    }
    EXPECT_EQ(arrived, original);
    ASSERT_TRUE(QVFilePair::move(target, source));
    EXPECT_EQ(hashPair(source).fork, original.fork);
}

TEST_P(QVFilePairTest, TrashTakesTheCompanionsAlong)
{
    QVTestHome home; // the trash lives in the test's own data folder
    const QString source = make(home.path() + QStringLiteral("/fonts"), QStringLiteral("Gone"));
    if (source.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    const PairHash original = hashPair(source);
    const QStringList companions = QVFilePair::companions(source);
    QString trashed;
    const QVFilePair::Result result = QVFilePair::moveToTrash(source, &trashed);
    ASSERT_TRUE(result) << qPrintable(result.message);
    expectGone(source);
    ASSERT_TRUE(QFile::exists(trashed));
    EXPECT_EQ(hashPair(trashed).data, original.data);
    // Every companion went to the trash too, with a record of where it was.
    const QDir info(home.dataHome() + QStringLiteral("/Trash/info"));
    const QStringList records = info.entryList({ QStringLiteral("*.trashinfo") }, QDir::Files | QDir::Hidden);
    EXPECT_EQ(records.size(), 1 + companions.size());
    QStringList originals;
    for (const QString &record : records)
        originals.append(QString::fromUtf8(readBytes(info.filePath(record))));
    for (const QString &companion : companions)
        EXPECT_TRUE(originals.join('\n').contains(QUrl::toPercentEncoding(companion, "/")))
            << qPrintable(companion);
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, QVFilePairTest, ::testing::ValuesIn(kVariants),
    [](const ::testing::TestParamInfo<Variant> &param) {
        QString name = QString::fromLatin1(param.param.name);
        name.remove(QLatin1Char('-'));
        return name.toStdString();
    });

TEST(QVFilePair, FailedCompanionMovePutsEverythingBack)
{
    QTemporaryDir dir(QStringLiteral("/tmp/qv-pair-XXXXXX"));
    // A file whose fork netatalk keeps, moved into a folder where ".AppleDouble"
    // is a plain file: the companion cannot follow, so the move is undone.
    const QString source = dir.path() + QStringLiteral("/src/Font");
    QDir().mkpath(dir.path() + QStringLiteral("/src/.AppleDouble"));
    ASSERT_TRUE(writeBytes(source, "data"));
    ASSERT_EQ(
        QVForkStorage::writeResourceFork(source, QVResourceFile::emptyFork(), Place::NetatalkFolder), 0);
    const PairHash original = hashPair(source);
    ASSERT_EQ(original.forkPlace, Place::NetatalkFolder);

    QDir().mkpath(dir.path() + QStringLiteral("/dst"));
    ASSERT_TRUE(writeBytes(dir.path() + QStringLiteral("/dst/.AppleDouble"), "in the way"));
    const QString target = dir.path() + QStringLiteral("/dst/Font");
    const QVFilePair::Result result = QVFilePair::move(source, target);
    EXPECT_FALSE(result);
    EXPECT_FALSE(result.message.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(target));
    EXPECT_EQ(hashPair(source), original);
    // Copy fails the same way and leaves no half copy behind.
    EXPECT_FALSE(QVFilePair::copy(source, target));
    EXPECT_FALSE(QFileInfo::exists(target));
    EXPECT_EQ(hashPair(source), original);
}
