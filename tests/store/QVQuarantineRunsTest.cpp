// Restoring and removing quarantined fonts: every file back byte for byte, suitcase members back after a run
// killed midway, nothing taken on trust from an index another user may have written.
#include "store/QVQuarantineRuns.h"

#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFilePair.h"
#include "settings/QVProgress.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVFixtures;

namespace
{

class QuarantineRunsTest : public ::testing::Test
{
protected:
    void TearDown() override { QVResourceManager::closeAll(); }

    // Quarantines files holding one font each, named as the file.
    void quarantine(const QStringList &relativePaths, int fontType = 5)
    {
        for (const QString &relative : relativePaths) {
            const QString path = QFileInfo::exists(home.path() + "/" + relative)
                ? home.path() + "/" + relative
                : home.writeFile(relative, relative.toUtf8());
            auto file = oneFontFile(path, fontType, relative.contains('.') ? 1 : 0);
            ASSERT_TRUE(
                store.moveFileToQuarantine(file, file->fontStatusArray.first(), "· Bad Table Data").isNull());
        }
        ASSERT_TRUE(store.commitQuarantine().isNull());
    }
    QVQuarantineRuns::RunResult restore(const QStringList &fontNames = {}, const QString &folder = QString())
    {
        check(fontNames);
        return runs.restoreQuarantinedFiles(folder);
    }
    void check(const QStringList &fontNames)
    {
        runs.updateRowArray();
        runs.checkedRowsArray.clear();
        for (int i = 0; i < runs.rowArray.size(); ++i) {
            if (fontNames.isEmpty() || fontNames.contains(runs.rowArray.at(i).value("fontName").toString()))
                runs.checkedRowsArray << i;
        }
    }
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery { &store };
    QVQuarantineRuns runs { &store, &surgery };
};

} // namespace

TEST_F(QuarantineRunsTest, ARoundTripKeepsEveryForkPlaceByteIdentical)
{
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty());
    using Place = QVForkStorage::Place;
    QStringList paths;
    int n = 0;
    for (const Place place : { Place::ExtendedAttribute, Place::AppleDouble, Place::NetatalkFolder }) {
        paths << home.path() + QStringLiteral("/fonts/%1/Serif").arg(n++);
        ASSERT_TRUE(makeSuitcase(paths.last(), fork, place));
        ASSERT_EQ(QVForkStorage::resourceForkPlace(paths.last()), place);
    }
    paths << home.writeFile("fonts/3/Serif.dfont", fork);
    ASSERT_TRUE(setFinderInfo(paths.last(), "FFILDMOV"));
    paths << home.writeFile("fonts/4/Plain.otf", "OTTO data");
    // Finder info only, in the attribute netatalk 3 and Samba keep.
    paths << home.writeFile("fonts/5/Meta.ttf", "true data");
    QVAppleDouble metadata;
    metadata.setEntry(QVAppleDouble::FinderInfo, QByteArray("FFILDMOV").leftJustified(32, '\0'));
    ASSERT_EQ(
        QVExtendedAttributes::set(paths.last(), QVForkStorage::kNetatalkAttribute, metadata.serialize()), 0);
    ASSERT_EQ(QVForkStorage::finderInfoPlace(paths.last()), Place::NetatalkMetadata);
    QStringList hashes;
    for (const QString &path : std::as_const(paths))
        hashes << placedHashes(path);
    quarantine(paths.replaceInStrings(home.path() + "/", ""), 0);
    // In the quarantine, each file with its fork and Finder info in the same place.
    for (int i = 0; i < paths.size(); ++i) {
        const QString moved = store.quarantineFolderPath() + "/"
            + store.quarantinedFilesDataArray.at(i).value("quarantineFileName").toString();
        EXPECT_EQ(placedHashes(moved), hashes.at(i));
        EXPECT_TRUE(QVFilePair::companions(home.path() + "/" + paths.at(i)).isEmpty());
        ASSERT_FALSE(QFileInfo::exists(home.path() + "/" + paths.at(i)));
    }
    QDir(home.path() + "/fonts").removeRecursively(); // restoring makes the folders again
    const auto result = restore();
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    EXPECT_EQ(result.handledRows.size(), paths.size());
    for (int i = 0; i < paths.size(); ++i)
        EXPECT_EQ(placedHashes(home.path() + "/" + paths.at(i)), hashes.at(i));
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
    EXPECT_EQ(QDir(store.quarantineFolderPath()).entryList(QDir::Files | QDir::Hidden),
        QStringList { "dataSource" });
}

TEST_F(QuarantineRunsTest, MembersTakenOutByAKilledRunAreListedAndComeBack)
{
    for (int killAfter = 1; killAfter <= 2; ++killAfter) {
        SCOPED_TRACE(killAfter);
        QVTestHome killedHome;
        const QString work = killedHome.path() + "/work", path = killedHome.path() + "/fonts/Two";
        ASSERT_TRUE(makeSuitcase(path, mergeForks(c059Fork(work), dejaVuSerifFork(work))));
        auto families = [&](const QString &name) {
            return sortedLines(fontToolsFONDEntries(extractFork(path, work + "/" + name)));
        };
        const QStringList before = families("0");
        ASSERT_EQ(before.size(), 2);
        QProcess peer;
        peer.setProcessChannelMode(QProcess::ForwardedChannels);
        peer.start(
            QStringLiteral(QV_RESOLUTION_PEER_PATH), { QString::number(killAfter), "suitcase:" + path });
        ASSERT_TRUE(peer.waitForFinished(120000));
        ASSERT_EQ(peer.exitStatus(), QProcess::CrashExit);
        QVQuarantineStore killedStore;
        QVSuitcaseSurgery killedSurgery(&killedStore);
        QVQuarantineRuns killedRuns(&killedStore, &killedSurgery);
        // The family copied last is still in the source as well as listed.
        ASSERT_EQ(killedRuns.rowArray.size(), killAfter);
        EXPECT_EQ(families("1").size(), 3 - killAfter);
        for (int i = 0; i < killedRuns.rowArray.size(); ++i)
            killedRuns.checkedRowsArray << i;
        const auto result = killedRuns.restoreQuarantinedFiles();
        EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
        EXPECT_EQ(families("2"), before);
        EXPECT_TRUE(killedStore.quarantinedFilesDataArray.isEmpty());
        QVResourceManager::closeAll();
    }
}

TEST_F(QuarantineRunsTest, ARestoreTakesNoPathFromTheIndexOnTrust)
{
    quarantine({ "f/Alpha.otf" });
    const QString evil = home.writeFile("att/a/evil", "[Desktop Entry]"),
                  secret = home.writeFile("docs/id_rsa", "secret");
    QFile::link(evil, store.quarantineFolderPath() + "/Link.otf");
    // Records another user wrote into the index.
    auto forged = [&](const QString &name, const QString &original, const QString &font) {
        QVariantMap record = store.quarantinedFilesDataArray.first();
        record.insert("quarantineFileName", name);
        record.insert("originalFilePath", QString(home.path() + original));
        record.insert("fontNames", QStringList { font });
        store.quarantinedFilesDataArray.append(record);
    };
    forged("../../../../att/a/evil", "/.config/autostart/evil.desktop", "Evil");
    forged("../../../../docs/id_rsa", "/att/stolen", "Steal");
    forged("Dots.otf", "/att/../f/Other.otf", "Dots");
    forged("Link.otf", "/.config/autostart/link.desktop", "Link");
    ASSERT_TRUE(store.commitQuarantine().isNull());
    QDir(home.path() + "/f").removeRecursively();
    QVQuarantineStore reloaded;
    QVQuarantineRuns reloadedRuns(&reloaded, &surgery);
    int alpha = -1;
    for (int i = 0; i < reloadedRuns.rowArray.size(); ++i) {
        reloadedRuns.checkedRowsArray << i;
        alpha = reloadedRuns.rowArray.at(i).value("fontName") == "Alpha" ? i : alpha;
    }
    const auto result = reloadedRuns.restoreQuarantinedFiles();
    EXPECT_EQ(result.handledRows, QList<int> { alpha }) << qPrintable(result.errors.join('\n'));
    EXPECT_EQ(result.errors.size(), 4);
    for (const char *made : { "/.config/autostart", "/att/stolen", "/f/Other.otf" })
        EXPECT_FALSE(QFileInfo::exists(home.path() + made)) << made;
    EXPECT_EQ(fileSha256(secret) + fileSha256(evil), sha256("secret") + sha256("[Desktop Entry]"));
    EXPECT_EQ(reloaded.quarantinedFilesDataArray.size(), 4);
    // The folder a restore makes again has the user's default permissions.
    EXPECT_EQ(fileSha256(home.path() + "/f/Alpha.otf"), sha256("f/Alpha.otf"));
    const mode_t mask = ::umask(0);
    ::umask(mask);
    struct stat st;
    ASSERT_EQ(::stat(QFile::encodeName(home.path() + "/f").constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777 & ~mask);
}

// A folder chosen after a failed restore, for the first row only, takes that
// outline's metrics file with it; the next row goes back to its own folder.
TEST_F(QuarantineRunsTest, AChosenFolderTakesAnOutlineWithItsMetrics)
{
    quarantine({ "t/Foo.pfb", "t/Foo.afm", "t/Bar.otf" }, 1);
    runs.updateRowArray();
    auto rowOf = [&](const QString &fileName) {
        for (int i = 0; i < runs.rowArray.size(); ++i) {
            if (runs.rowArray.at(i).value("fileName") == fileName)
                return i;
        }
        return -1;
    };
    runs.checkedRowsArray = { rowOf("Foo.pfb"), rowOf("Bar.otf") };
    runs.isHandlingError = true;
    const QString chosen = home.path() + "/chosen";
    QDir().mkpath(chosen);
    const auto result = runs.restoreQuarantinedFiles(chosen);
    EXPECT_EQ(result.handledRows.size(), 3) << qPrintable(result.errors.join('\n'));
    EXPECT_EQ(QDir(chosen).entryList(QDir::Files), QStringList({ "Foo.afm", "Foo.pfb" }));
    EXPECT_EQ(QDir(home.path() + "/t").entryList(QDir::Files), QStringList { "Bar.otf" });
}

TEST_F(QuarantineRunsTest, LinksInOrInPlaceOfTheQuarantineAreNeverFollowed)
{
    quarantine({ "f/Truncated.ttf" });
    const QString folder = store.quarantineFolderPath(),
                  victim = home.writeFile("elsewhere/Truncated.ttf", "victim");
    const QString elsewhere = QFileInfo(victim).absolutePath();
    // A companion folder that is a link: the remove is refused, the font stays listed.
    ASSERT_TRUE(QFile::link(elsewhere, folder + "/.AppleDouble"));
    check({});
    auto result = runs.removeQuaratinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty() && result.errors.size() == 1);
    EXPECT_TRUE(QFileInfo::exists(folder + "/Truncated.ttf") && store.quarantinedFilesDataArray.size() == 1);
    ASSERT_TRUE(QFile::remove(folder + "/.AppleDouble"));
    // The quarantine folder itself replaced by a link: nothing goes in or out.
    ASSERT_TRUE(QDir().rename(folder, folder + ".real"));
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    check({});
    result = runs.removeQuaratinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty() && result.errors.size() == 1);
    EXPECT_TRUE(restore().handledRows.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/f/Truncated.ttf"));
    const QString other = home.writeFile("f/Other.ttf", "other");
    auto file = oneFontFile(other);
    EXPECT_FALSE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    EXPECT_TRUE(QFileInfo::exists(other));
    store.clearQuarantine();
    EXPECT_EQ(fileSha256(victim), sha256("victim"));
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), QStringList { "Truncated.ttf" });
}
