// A resolution killed midway or meeting a full disk at any write, and a restore
// on a full disk, lose no font: each is in place or listed in the quarantine.
#include "engine/QVResourceManager.h"
#include "platform/QVForkStorage.h"
#include "platform/QVJournalFile.h"
#include "platform/QVWriteFault.h"
#include "store/QVPropertyList.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

using QVFixtures::forkHashes;

namespace
{

// Six fonts, their forks and Finder info in every writable place, and, given
// a fork, a suitcase whose members are taken out singly; what each holds.
struct Fonts {
    QStringList paths, hashes;
    QString suitcase;
    QStringList members;
    QStringList peerArguments() const
    {
        return suitcase.isEmpty() ? paths : paths + QStringList { "suitcase:" + suitcase };
    }
};

Fonts makeFonts(const QVTestHome &home, const QByteArray &suitcaseFork = QByteArray())
{
    using Place = QVForkStorage::Place;
    const QList<Place> places = { Place::AppleDouble, Place::ExtendedAttribute, Place::NetatalkFolder,
        Place::AppleDouble, Place::None, Place::ExtendedAttribute };
    Fonts fonts;
    for (int i = 0; i < places.size(); ++i) {
        const QString path = home.writeFile(
            QStringLiteral("fonts/%1/Font%2").arg(i % 2).arg(i), "data " + QByteArray::number(i));
        if (places.at(i) != Place::None) {
            // Any bytes do: the store moves forks without reading them.
            QVForkStorage::writeResourceFork(path, QByteArray(300 + i, char('a' + i)), places.at(i));
            QVFixtures::setFinderInfo(path, "LWFNASPF", 0, places.at(i));
        }
        fonts.paths << path;
        fonts.hashes << forkHashes(path);
    }
    if (!suitcaseFork.isEmpty()) {
        fonts.suitcase = home.path() + "/fonts/Two";
        EXPECT_TRUE(QVFixtures::makeSuitcase(fonts.suitcase, suitcaseFork));
        fonts.members
            = QVFixtures::fontToolsMembers({ QVFixtures::extractFork(fonts.suitcase, home.path() + "/m") });
    }
    return fonts;
}

// The suitcase of two families that the full-disk runs take apart.
QByteArray twoFamilies()
{
    QVTestHome work;
    const QByteArray both
        = QVFixtures::mergeForks(QVFixtures::c059Fork(work.path()), QVFixtures::dejaVuSerifFork(work.path()));
    EXPECT_FALSE(both.isEmpty());
    return both;
}

// A resolution in a process of its own (exit code -1: it died).
QVFixtures::ToolRun peer(const QStringList &arguments)
{
    return QVFixtures::runTool(QStringLiteral(QV_RESOLUTION_PEER_PATH), arguments);
}

// Every font in place unchanged or listed in the quarantine whole (a family
// member: in its suitcase or a listed copy); the number of files listed.
int expectNothingLost(const QVTestHome &home, const Fonts &fonts)
{
    QVQuarantineStore store;
    EXPECT_TRUE(store.quarantineError().isNull()) << qPrintable(store.quarantineError());
    EXPECT_TRUE(store.unrecordedFiles.isEmpty()) << qPrintable(store.unrecordedFiles.join(", "));
    auto quarantined = [&](const QVariantMap &record) -> QString {
        return store.quarantineFolderPath() + "/" + record.value("quarantineFileName").toString();
    };
    int listed = 0;
    for (int i = 0; i < fonts.paths.size(); ++i) {
        if (QFileInfo::exists(fonts.paths.at(i))) {
            EXPECT_EQ(forkHashes(fonts.paths.at(i)), fonts.hashes.at(i)) << qPrintable(fonts.paths.at(i));
            continue;
        }
        bool whole = false;
        for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray)) {
            if (record.value("originalFilePath").toString() == fonts.paths.at(i))
                whole = forkHashes(quarantined(record)) == fonts.hashes.at(i);
        }
        EXPECT_TRUE(whole) << qPrintable(fonts.paths.at(i)) << " is neither in place nor listed whole";
        listed += whole;
    }
    if (!fonts.suitcase.isEmpty()) {
        QStringList forks;
        if (QFileInfo::exists(fonts.suitcase))
            forks << QVFixtures::extractFork(fonts.suitcase, home.path() + "/check");
        for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray)) {
            if (record.value("originalFilePath").toString() == fonts.suitcase)
                forks << QVFixtures::extractFork(
                    quarantined(record), home.path() + "/check/" + QString::number(forks.size()));
        }
        EXPECT_EQ(QVFixtures::fontToolsMembers(forks), fonts.members);
    }
    QVResourceManager::closeAll();
    return listed;
}

// Restores every row the list shows, the disk failing from its nth write on;
// the number of writes made. With room (0), every font is back as it was.
int restoreAll(const QVTestHome &home, const Fonts &fonts, int failAt = 0)
{
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    QVQuarantineRuns runs(&store, &surgery);
    for (int i = 0; i < runs.rowArray.size(); ++i)
        runs.checkedRowsArray << i;
    if (failAt > 0)
        QVWriteFault::failWrite(failAt);
    const auto result = runs.restoreQuarantinedFiles();
    const int writes = QVWriteFault::count();
    QVWriteFault::clear();
    QVResourceManager::closeAll();
    if (failAt > 0)
        return writes;
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    for (int i = 0; i < fonts.paths.size(); ++i)
        EXPECT_EQ(forkHashes(fonts.paths.at(i)), fonts.hashes.at(i)) << qPrintable(fonts.paths.at(i));
    if (!fonts.suitcase.isEmpty()) {
        EXPECT_EQ(
            QVFixtures::fontToolsMembers({ QVFixtures::extractFork(fonts.suitcase, home.path() + "/end") }),
            fonts.members);
    }
    return writes;
}

} // namespace

TEST(QVResolutionCrash, AResolutionKilledAfterEachMoveLosesNoFont)
{
    for (int killAfter = 1; killAfter <= 6; ++killAfter) {
        SCOPED_TRACE(killAfter);
        QVTestHome home;
        const Fonts fonts = makeFonts(home);
        ASSERT_EQ(peer(QStringList { QString::number(killAfter) } + fonts.paths).exitCode, -1)
            << "not killed";
        // Before a store settles it: no index, all six moves journalled ahead.
        const QString index = home.dataHome() + "/Quorvel/Quarantine/dataSource";
        EXPECT_FALSE(QFile::exists(index));
        EXPECT_EQ(QVJournalFile::readLines(index + ".journal").size(), 6);
        EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), killAfter);
        EXPECT_FALSE(QFile::exists(index + ".journal"));
        EXPECT_EQ(expectNothingLost(home, fonts), killAfter);
        restoreAll(home, fonts);
    }
}

TEST(QVResolutionCrash, AResolutionKilledBeforeAnyWriteLosesNoFont)
{
    const QByteArray both = twoFamilies();
    ASSERT_FALSE(both.isEmpty());
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        QVTestHome home;
        const Fonts fonts = makeFonts(home, both);
        const int status
            = peer(QStringList { "--kill-at-write", QString::number(n), "0" } + fonts.peerArguments())
                  .exitCode;
        expectNothingLost(home, fonts);
        if (status != -1)
            break; // the run ended before its nth write: it was killed at every one
    }
}

TEST(QVResolutionCrash, AResolutionMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    const QByteArray both = twoFamilies();
    ASSERT_FALSE(both.isEmpty());
    int writes = 0;
    {
        QVTestHome home;
        const QVFixtures::ToolRun run = peer(QStringList { "0" } + makeFonts(home, both).peerArguments());
        writes = QString::fromUtf8(run.out).section("writes ", 1).trimmed().toInt();
        ASSERT_GT(writes, 10) << run.out.constData() << run.err.constData();
        // A run that finishes leaves its index and no journal.
        const QString index = home.dataHome() + "/Quorvel/Quarantine/dataSource";
        EXPECT_EQ(QVPropertyList::readFile(index).toList().size(), 8);
        EXPECT_FALSE(QFile::exists(index + ".journal"));
    }
    for (const char *mode : { "--full-disk-at", "--write-fails-at" }) {
        for (int n = 1; n <= writes; ++n) {
            SCOPED_TRACE(QStringLiteral("%1 %2").arg(mode).arg(n).toStdString());
            QVTestHome home;
            const Fonts fonts = makeFonts(home, both);
            ASSERT_EQ(
                peer(QStringList { mode, QString::number(n), "0" } + fonts.peerArguments()).exitCode, 0);
            expectNothingLost(home, fonts);
        }
    }
}

TEST(QVResolutionCrash, ARestoreMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    const QByteArray both = twoFamilies();
    ASSERT_FALSE(both.isEmpty());
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        QVTestHome home;
        const Fonts fonts = makeFonts(home, both);
        ASSERT_EQ(peer(QStringList { "0" } + fonts.peerArguments()).exitCode, 0);
        ASSERT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 8);
        const int writes = restoreAll(home, fonts, n);
        expectNothingLost(home, fonts);
        // With room again, everything comes back as it was.
        restoreAll(home, fonts);
        if (writes < n)
            break; // the restore ended before its nth write: every write has failed once
    }
}
