// A resolution killed midway loses no font: each is where it was, or in the
// quarantine where the list shows it and a restore brings it back.
#include "platform/QVForkStorage.h"
#include "platform/QVJournalFile.h"
#include "store/QVPropertyList.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
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

int runPeer(int killAfter, const QStringList &paths)
{
    QProcess peer;
    peer.setProcessChannelMode(QProcess::ForwardedChannels);
    peer.start(QStringLiteral(QV_RESOLUTION_PEER_PATH), QStringList { QString::number(killAfter) } + paths);
    EXPECT_TRUE(peer.waitForFinished(120000));
    return peer.exitStatus() == QProcess::CrashExit ? -1 : peer.exitCode();
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

TEST(QVResolutionCrash, TheIndexIsWrittenOnceAndTheJournalHoldsEveryMoveUntilThen)
{
    QVTestHome home;
    const QStringList paths = makeFonts(home);
    ASSERT_EQ(runPeer(3, paths), -1);
    // Read before any store settles it: no index yet, three moves journalled.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    EXPECT_FALSE(QFile::exists(folder + "/dataSource"));
    const QList<QByteArray> journal = QVJournalFile::readLines(folder + "/dataSource.journal");
    ASSERT_EQ(journal.size(), 3);
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
