// A queue of operations run one at a time on a thread of its own. An operation
// starts only when the operations it depends on have finished or were
// cancelled. A suspended queue starts nothing new; the running operation goes
// on. Cancelling drops every operation that has not started yet.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class QVOperation
{
public:
    explicit QVOperation(std::function<void()> body);

    // This operation will not start before the other one has ended.
    void addDependency(const std::shared_ptr<QVOperation> &operation);

    bool isFinished() const;
    bool isCancelled() const;

private:
    friend class QVOperationQueue;

    std::function<void()> m_body;
    std::vector<std::weak_ptr<QVOperation>> m_dependencies;
    std::atomic<bool> m_finished = false;
    std::atomic<bool> m_cancelled = false;
};

using QVOperationPtr = std::shared_ptr<QVOperation>;

class QVOperationQueue
{
public:
    QVOperationQueue();
    // Drops the operations not yet started and waits for the running one.
    ~QVOperationQueue();
    QVOperationQueue(const QVOperationQueue &) = delete;
    QVOperationQueue &operator=(const QVOperationQueue &) = delete;

    void addOperation(const QVOperationPtr &operation);
    void cancelAllOperations();

    void setSuspended(bool suspended);
    bool isSuspended() const;

    // Operations waiting or running.
    int operationCount() const;
    // True when every operation has ended before the timeout (milliseconds;
    // negative waits for ever).
    bool waitUntilAllOperationsAreFinished(int timeoutMs = -1);

private:
    void run();
    // The first waiting operation whose dependencies have all ended.
    QVOperationPtr takeReadyOperation();

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<QVOperationPtr> m_waiting;
    QVOperationPtr m_running;
    bool m_suspended = false;
    bool m_stopping = false;
    std::thread m_thread;
};
