// Suitcase members taken out by a resolution that is killed midway: a member
// copied into the quarantine but not yet removed from its suitcase is listed
// (it is in both places), and restoring everything gives back every family.
#include "engine/QVResourceManager.h"
#include "platform/QVForkStorage.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVStoreFixtures.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVTestHome.h"

#include <QFileInfo>
#include <QProcess>
#include <gtest/gtest.h>

using namespace QVStoreFixtures;

namespace
{

int runPeer(int killAfter, const QStringList &arguments)
{
    QProcess peer;
    peer.setProcessChannelMode(QProcess::ForwardedChannels);
    peer.start(
        QStringLiteral(QV_RESOLUTION_PEER_PATH), QStringList { QString::number(killAfter) } + arguments);
    EXPECT_TRUE(peer.waitForFinished(120000));
    return peer.exitStatus() == QProcess::CrashExit ? -1 : peer.exitCode();
}

QStringList sortedLines(const QString &text)
{
    QStringList lines = text.split('\n', Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

} // namespace

TEST(QVSuitcaseCrash, MembersTakenOutByAKilledRunAreListedAndComeBack)
{
    for (int killAfter = 1; killAfter <= 2; ++killAfter) {
        SCOPED_TRACE(killAfter);
        QVTestHome home;
        const QString work = home.path() + "/work";
        const QByteArray both = mergeForks(c059Fork(work), dejaVuSerifFork(work));
        ASSERT_FALSE(both.isEmpty());
        const QString path = home.path() + "/fonts/Two";
        ASSERT_TRUE(makeSuitcase(path, both, QVForkStorage::Place::AppleDouble));
        const QStringList families = sortedLines(fontToolsFONDEntries(extractFork(path, work + "/0")));
        ASSERT_EQ(families.size(), 2);

        ASSERT_EQ(runPeer(killAfter, { "suitcase:" + path }), -1);
        QVQuarantineStore store;
        QVSuitcaseSurgery surgery(&store);
        QVQuarantineRuns runs(&store, &surgery);
        // The family copied last is still in the source as well as listed.
        ASSERT_EQ(runs.rowArray.size(), killAfter);
        const QStringList left = sortedLines(fontToolsFONDEntries(extractFork(path, work + "/1")));
        EXPECT_EQ(left.size(), 3 - killAfter);

        for (int i = 0; i < runs.rowArray.size(); ++i)
            runs.checkedRowsArray << i;
        const auto result = runs.restoreQuarantinedFiles();
        EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
        EXPECT_EQ(sortedLines(fontToolsFONDEntries(extractFork(path, work + "/2"))), families);
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
        QVResourceManager::closeAll();
    }
}
