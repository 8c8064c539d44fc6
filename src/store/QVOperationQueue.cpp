#include "store/QVOperationQueue.h"

#include <chrono>

QVOperation::QVOperation(std::function<void()> body)
    : m_body(std::move(body))
{
}

void QVOperation::addDependency(const std::shared_ptr<QVOperation> &operation)
{
    m_dependencies.push_back(operation);
}

bool QVOperation::isFinished() const
{
    return m_finished;
}

bool QVOperation::isCancelled() const
{
    return m_cancelled;
}

QVOperationQueue::QVOperationQueue()
    : m_thread([this] { run(); })
{
}

QVOperationQueue::~QVOperationQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        for (const QVOperationPtr &operation : m_waiting)
            operation->m_cancelled = true;
        m_waiting.clear();
    }
    m_wake.notify_all();
    m_thread.join();
}

void QVOperationQueue::addOperation(const QVOperationPtr &operation)
{
    if (!operation)
        return;
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping)
            return;
        m_waiting.push_back(operation);
    }
    m_wake.notify_all();
}

void QVOperationQueue::cancelAllOperations()
{
    {
        std::lock_guard lock(m_mutex);
        for (const QVOperationPtr &operation : m_waiting)
            operation->m_cancelled = true;
        m_waiting.clear();
        // The running one learns of it through its owner's own flag.
        if (m_running)
            m_running->m_cancelled = true;
    }
    m_idle.notify_all();
    m_wake.notify_all();
}

void QVOperationQueue::setSuspended(bool suspended)
{
    {
        std::lock_guard lock(m_mutex);
        m_suspended = suspended;
    }
    m_wake.notify_all();
}

bool QVOperationQueue::isSuspended() const
{
    std::lock_guard lock(m_mutex);
    return m_suspended;
}

int QVOperationQueue::operationCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_waiting.size()) + (m_running ? 1 : 0);
}

bool QVOperationQueue::waitUntilAllOperationsAreFinished(int timeoutMs)
{
    std::unique_lock lock(m_mutex);
    auto done = [this] { return m_waiting.empty() && !m_running; };
    if (timeoutMs < 0) {
        m_idle.wait(lock, done);
        return true;
    }
    return m_idle.wait_for(lock, std::chrono::milliseconds(timeoutMs), done);
}

QVOperationPtr QVOperationQueue::takeReadyOperation()
{
    for (auto it = m_waiting.begin(); it != m_waiting.end(); ++it) {
        bool ready = true;
        for (const std::weak_ptr<QVOperation> &weak : (*it)->m_dependencies) {
            const QVOperationPtr dependency = weak.lock();
            if (dependency && !dependency->m_finished && !dependency->m_cancelled) {
                ready = false;
                break;
            }
        }
        if (ready) {
            QVOperationPtr operation = *it;
            m_waiting.erase(it);
            return operation;
        }
    }
    return nullptr;
}

void QVOperationQueue::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        QVOperationPtr operation;
        m_wake.wait(lock, [&] {
            if (m_stopping)
                return true;
            if (m_suspended)
                return false;
            operation = takeReadyOperation();
            return operation != nullptr;
        });
        if (!operation)
            return;
        m_running = operation;
        lock.unlock();
        if (operation->m_body)
            operation->m_body();
        lock.lock();
        operation->m_finished = true;
        m_running.reset();
        if (m_waiting.empty())
            m_idle.notify_all();
    }
}
