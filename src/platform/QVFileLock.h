// An exclusive lock between processes, held on a lock file (flock). The system
// lets go of it when its holder exits, however it ends (a killed run never
// leaves a stale lock behind), and two locks on one file in one process
// exclude each other as two processes do.
#pragma once

#include <QString>
#include <functional>

class QVFileLock
{
public:
    explicit QVFileLock(const QString &path);
    ~QVFileLock();
    QVFileLock(const QVFileLock &) = delete;
    QVFileLock &operator=(const QVFileLock &) = delete;

    // Takes the lock, trying again until timeoutMs has passed (0: once, -1:
    // without end). While waiting, `waiting` is called about every 100 ms with
    // the holder's process id (0 when unknown); it returns false to give up.
    bool lock(int timeoutMs, const std::function<bool(qint64 holder)> &waiting = {});
    void unlock();
    bool isLocked() const { return m_fd >= 0; }

    // errno of the last failure to open the lock file (0 when it was the
    // other holder that kept the lock).
    int error() const { return m_error; }
    // The process id the holder wrote into the lock file, or 0.
    qint64 holder() const;
    QString path() const { return m_path; }

private:
    QString m_path;
    int m_fd = -1;
    int m_error = 0;
};
