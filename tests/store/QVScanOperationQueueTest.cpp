#include "store/QVOperationQueue.h"

#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>
#include <QStringList>
#include <QThread>
#include <gtest/gtest.h>

namespace
{

struct Log {
    QMutex mutex;
    QStringList entries;
    void add(const QString &entry)
    {
        QMutexLocker locker(&mutex);
        entries.append(entry);
    }
};

TEST(QVScanOperationQueue, DependenciesDecideTheOrderNotTheOrderOfAdding)
{
    Log log;
    QVOperationQueue queue;
    queue.setSuspended(true);
    auto first = std::make_shared<QVOperation>([&] { log.add(QStringLiteral("first")); });
    auto second = std::make_shared<QVOperation>([&] { log.add(QStringLiteral("second")); });
    auto third = std::make_shared<QVOperation>([&] { log.add(QStringLiteral("third")); });
    third->addDependency(second);
    second->addDependency(first);
    queue.addOperation(third);
    queue.addOperation(second);
    queue.addOperation(first);
    EXPECT_EQ(queue.operationCount(), 3);
    queue.setSuspended(false);
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinished(10000));
    EXPECT_EQ(log.entries,
        (QStringList { QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("third") }));
    EXPECT_TRUE(first->isFinished());
    EXPECT_EQ(queue.operationCount(), 0);
}

TEST(QVScanOperationQueue, SuspendingAndCancellingSpareTheRunningOperation)
{
    Log log;
    QSemaphore started, proceed;
    QVOperationQueue queue;
    auto running = std::make_shared<QVOperation>([&] {
        started.release();
        proceed.acquire();
        log.add(QStringLiteral("running"));
    });
    auto waiting = std::make_shared<QVOperation>([&] { log.add(QStringLiteral("waiting")); });
    waiting->addDependency(running);
    queue.addOperation(running);
    queue.addOperation(waiting);
    ASSERT_TRUE(started.tryAcquire(1, 10000));

    queue.setSuspended(true);
    proceed.release();
    // The running one ends; the next is held back.
    ASSERT_FALSE(queue.waitUntilAllOperationsAreFinished(300));
    EXPECT_EQ(log.entries, QStringList { QStringLiteral("running") });
    EXPECT_EQ(queue.operationCount(), 1);

    queue.cancelAllOperations();
    EXPECT_TRUE(waiting->isCancelled());
    EXPECT_FALSE(waiting->isFinished());
    queue.setSuspended(false);
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinished(10000));
    EXPECT_EQ(log.entries, QStringList { QStringLiteral("running") });
}

TEST(QVScanOperationQueue, DestroyingWaitsForTheRunningOperationAndDropsTheRest)
{
    Log log;
    QSemaphore started;
    {
        QVOperationQueue queue;
        queue.addOperation(std::make_shared<QVOperation>([&] {
            started.release();
            QThread::msleep(100);
            log.add(QStringLiteral("ran"));
        }));
        queue.addOperation(std::make_shared<QVOperation>([&] { log.add(QStringLiteral("dropped")); }));
        ASSERT_TRUE(started.tryAcquire(1, 10000));
    }
    EXPECT_EQ(log.entries, QStringList { QStringLiteral("ran") });
}

} // namespace
