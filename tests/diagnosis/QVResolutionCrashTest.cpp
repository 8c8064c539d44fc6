// A resolution killed midway, or meeting a full disk at any write, loses no
// font: each is where it was, or in the quarantine where the list shows it and
// a restore brings it back; the same holds for a restore on a full disk.
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

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

namespace
{

QString hashes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("missing");
    QByteArray fork, info;
    QVForkStorage::Place place;
    QVForkStorage::readResourceFork(path, &fork, &place);
    QVForkStorage::readFinderInfo(path, &info);
    return QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex())
        + ' ' + QString::fromLatin1(QCryptographicHash::hash(fork, QCryptographicHash::Sha256).toHex()) + ' '
        + QString::fromLatin1(QCryptographicHash::hash(info, QCryptographicHash::Sha256).toHex());
}

// Six fonts, their forks and Finder info in every writable place.
QStringList makeFonts(const QVTestHome &home)
{
    using Place = QVForkStorage::Place;
    const QList<Place> places = { Place::AppleDouble, Place::ExtendedAttribute, Place::NetatalkFolder,
        Place::AppleDouble, Place::None, Place::ExtendedAttribute };
    QStringList paths;
    for (int i = 0; i < places.size(); ++i) {
        const QString path = home.writeFile(
            QStringLiteral("fonts/%1/Font%2").arg(i % 2).arg(i), "data " + QByteArray::number(i));
        QByteArray info(32, '\0');
        info.replace(0, 8, "LWFNASPF");
        if (places.at(i) != Place::None) {
            // Any bytes do: the store moves forks without reading them.
            const QByteArray fork(300 + i, char('a' + i));
            QVForkStorage::writeResourceFork(path, fork, places.at(i));
            QVForkStorage::writeFinderInfo(path, info, places.at(i));
        }
        paths << path;
    }
    return paths;
}

// -1 when the peer died; *output gets what it printed.
int runPeer(const QStringList &arguments, QString *output = nullptr)
{
    QProcess peer;
    peer.setProcessChannelMode(output ? QProcess::ForwardedErrorChannel : QProcess::ForwardedChannels);
    peer.start(QStringLiteral(QV_RESOLUTION_PEER_PATH), arguments);
    EXPECT_TRUE(peer.waitForFinished(120000));
    if (output)
        *output = QString::fromUtf8(peer.readAllStandardOutput());
    return peer.exitStatus() == QProcess::CrashExit ? -1 : peer.exitCode();
}

int runPeer(int killAfter, const QStringList &paths)
{
    return runPeer(QStringList { QString::number(killAfter) } + paths);
}

// The six fonts of makeFonts and a suitcase of two families whose members
// are taken out singly; what each holds before a run.
struct Fonts {
    QStringList paths;
    QStringList hashes;
    QString suitcase;
    QStringList members;
    QStringList peerArguments() const { return paths + QStringList { "suitcase:" + suitcase }; }
};

Fonts makeAllFonts(const QVTestHome &home, const QByteArray &suitcaseFork)
{
    Fonts fonts;
    fonts.paths = makeFonts(home);
    for (const QString &path : std::as_const(fonts.paths))
        fonts.hashes << hashes(path);
    fonts.suitcase = home.path() + "/fonts/Two";
    EXPECT_TRUE(QVFixtures::makeSuitcase(fonts.suitcase, suitcaseFork, QVForkStorage::Place::AppleDouble));
    fonts.members
        = QVFixtures::fontToolsMembers({ QVFixtures::extractFork(fonts.suitcase, home.path() + "/m") });
    return fonts;
}

// Every font where it was and unchanged, or listed in the quarantine with its
// bytes (a family member: in its suitcase or a listed copy, strike and all).
void expectNothingLost(const QVTestHome &home, const Fonts &fonts)
{
    QVQuarantineStore store;
    EXPECT_TRUE(store.quarantineError().isNull()) << qPrintable(store.quarantineError());
    EXPECT_TRUE(store.unrecordedFiles.isEmpty()) << qPrintable(store.unrecordedFiles.join(", "));
    QStringList forks;
    if (QFileInfo::exists(fonts.suitcase))
        forks << QVFixtures::extractFork(fonts.suitcase, home.path() + "/check");
    for (int i = 0; i < fonts.paths.size(); ++i) {
        if (QFileInfo::exists(fonts.paths.at(i))) {
            EXPECT_EQ(hashes(fonts.paths.at(i)), fonts.hashes.at(i)) << qPrintable(fonts.paths.at(i));
            continue;
        }
        bool listed = false;
        for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray)) {
            const QString path
                = store.quarantineFolderPath() + "/" + record.value("quarantineFileName").toString();
            if (record.value("originalFilePath").toString() == fonts.paths.at(i))
                listed = hashes(path) == fonts.hashes.at(i);
        }
        EXPECT_TRUE(listed) << qPrintable(fonts.paths.at(i)) << " is neither in place nor listed whole";
    }
    for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray)) {
        if (record.value("originalFilePath").toString() == fonts.suitcase)
            forks << QVFixtures::extractFork(
                store.quarantineFolderPath() + "/" + record.value("quarantineFileName").toString(),
                home.path() + "/check/" + QString::number(forks.size()));
    }
    EXPECT_EQ(QVFixtures::fontToolsMembers(forks), fonts.members);
    QVResourceManager::closeAll();
}

} // namespace

TEST(QVResolutionCrash, AResolutionKilledAfterEachMoveLosesNoFont)
{
    for (int killAfter = 1; killAfter <= 6; ++killAfter) {
        SCOPED_TRACE(killAfter);
        QVTestHome home;
        const QStringList paths = makeFonts(home);
        QStringList before;
        for (const QString &path : paths)
            before << hashes(path);

        ASSERT_EQ(runPeer(killAfter, paths), -1) << "the run was not killed";

        // Loading settles the journal the killed run left.
        QVQuarantineStore store;
        EXPECT_FALSE(QFile::exists(store.journalPath()));
        EXPECT_EQ(store.quarantinedFilesDataArray.size(), killAfter);

        // Every font: at its place unchanged, or listed with its bytes intact.
        QVSuitcaseSurgery surgery(&store);
        QVQuarantineRuns runs(&store, &surgery);
        int listed = 0;
        for (int i = 0; i < paths.size(); ++i) {
            if (QFileInfo::exists(paths.at(i))) {
                EXPECT_EQ(hashes(paths.at(i)), before.at(i)) << qPrintable(paths.at(i));
                continue;
            }
            bool found = false;
            for (const QVariantMap &row : std::as_const(runs.rowArray)) {
                if (row.value("originalFilePath").toString() != paths.at(i))
                    continue;
                found = true;
                EXPECT_EQ(
                    hashes(store.quarantineFolderPath() + "/" + row.value("quarantineFileName").toString()),
                    before.at(i));
            }
            EXPECT_TRUE(found) << qPrintable(paths.at(i)) << " is neither in place nor listed";
            listed += found;
        }
        EXPECT_EQ(listed, killAfter);

        // And a restore brings every one of them back.
        for (int i = 0; i < runs.rowArray.size(); ++i)
            runs.checkedRowsArray << i;
        const auto result = runs.restoreQuarantinedFiles();
        EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
        for (int i = 0; i < paths.size(); ++i)
            EXPECT_EQ(hashes(paths.at(i)), before.at(i)) << qPrintable(paths.at(i));
    }
}

TEST(QVResolutionCrash, AResolutionKilledBeforeAnyWriteLosesNoFont)
{
    QVTestHome work;
    const QByteArray both
        = QVFixtures::mergeForks(QVFixtures::c059Fork(work.path()), QVFixtures::dejaVuSerifFork(work.path()));
    ASSERT_FALSE(both.isEmpty());
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        QVTestHome home;
        const Fonts fonts = makeAllFonts(home, both);
        QString output;
        const int status = runPeer(
            QStringList { "--kill-at-write", QString::number(n), "0" } + fonts.peerArguments(), &output);
        expectNothingLost(home, fonts);
        if (status != -1)
            break; // the run ended before its nth write: it was killed at every one
    }
}

TEST(QVResolutionCrash, TheIndexIsWrittenOnceAndTheJournalHoldsEveryMoveUntilThen)
{
    QVTestHome home;
    const QStringList paths = makeFonts(home);
    ASSERT_EQ(runPeer(3, paths), -1);
    // Read before any store settles it: no index yet, and the six moves
    // journalled ahead, before the first of them.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    EXPECT_FALSE(QFile::exists(folder + "/dataSource"));
    const QList<QByteArray> journal = QVJournalFile::readLines(folder + "/dataSource.journal");
    ASSERT_EQ(journal.size(), 6);
    EXPECT_EQ(QJsonDocument::fromJson(journal.at(2)).object().value("source").toString(),
        QFileInfo(paths.at(2)).absoluteFilePath());

    // A run that finishes leaves no journal behind.
    QVTestHome other;
    const QStringList more = makeFonts(other);
    ASSERT_EQ(runPeer(0, more), 0);
    EXPECT_FALSE(QFile::exists(other.dataHome() + "/Quorvel/Quarantine/dataSource.journal"));
    EXPECT_EQ(
        QVPropertyList::readFile(other.dataHome() + "/Quorvel/Quarantine/dataSource").toList().size(), 6);
}

TEST(QVResolutionCrash, AResolutionMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    QVTestHome work;
    const QByteArray both
        = QVFixtures::mergeForks(QVFixtures::c059Fork(work.path()), QVFixtures::dejaVuSerifFork(work.path()));
    ASSERT_FALSE(both.isEmpty());
    int writes = 0;
    {
        QVTestHome home;
        const Fonts fonts = makeAllFonts(home, both);
        QString output;
        ASSERT_EQ(runPeer(QStringList { "0" } + fonts.peerArguments(), &output), 0);
        writes = output.section("writes ", 1).trimmed().toInt();
        ASSERT_GT(writes, 10) << qPrintable(output);
    }
    for (const char *mode : { "--full-disk-at", "--write-fails-at" }) {
        for (int n = 1; n <= writes; ++n) {
            SCOPED_TRACE(QStringLiteral("%1 %2").arg(mode).arg(n).toStdString());
            QVTestHome home;
            const Fonts fonts = makeAllFonts(home, both);
            QString output;
            ASSERT_EQ(
                runPeer(QStringList { mode, QString::number(n), "0" } + fonts.peerArguments(), &output), 0);
            expectNothingLost(home, fonts);
        }
    }
}

TEST(QVResolutionCrash, ARestoreMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    QVTestHome work;
    const QByteArray both
        = QVFixtures::mergeForks(QVFixtures::c059Fork(work.path()), QVFixtures::dejaVuSerifFork(work.path()));
    ASSERT_FALSE(both.isEmpty());
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        QVTestHome home;
        const Fonts fonts = makeAllFonts(home, both);
        QString output;
        ASSERT_EQ(runPeer(QStringList { "0" } + fonts.peerArguments(), &output), 0);
        int writes = 0;
        {
            QVQuarantineStore store;
            QVSuitcaseSurgery surgery(&store);
            QVQuarantineRuns runs(&store, &surgery);
            ASSERT_EQ(runs.rowArray.size(), 8);
            for (int i = 0; i < runs.rowArray.size(); ++i)
                runs.checkedRowsArray << i;
            QVWriteFault::failWrite(n);
            runs.restoreQuarantinedFiles();
            writes = QVWriteFault::count();
            QVWriteFault::clear();
        }
        expectNothingLost(home, fonts);
        // With room again, everything comes back as it was.
        QVQuarantineStore store;
        QVSuitcaseSurgery surgery(&store);
        QVQuarantineRuns runs(&store, &surgery);
        for (int i = 0; i < runs.rowArray.size(); ++i)
            runs.checkedRowsArray << i;
        const auto result = runs.restoreQuarantinedFiles();
        EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
        for (int i = 0; i < fonts.paths.size(); ++i)
            EXPECT_EQ(hashes(fonts.paths.at(i)), fonts.hashes.at(i)) << qPrintable(fonts.paths.at(i));
        EXPECT_EQ(
            QVFixtures::fontToolsMembers({ QVFixtures::extractFork(fonts.suitcase, home.path() + "/end") }),
            fonts.members);
        QVResourceManager::closeAll();
        if (writes < n)
            break; // the restore ended before its nth write: every write has failed once
    }
}
