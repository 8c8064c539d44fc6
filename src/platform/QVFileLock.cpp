#include "platform/QVFileLock.h"

#include "platform/QVFileName.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

QVFileLock::QVFileLock(const QString &path)
    : m_path(path)
{
}

QVFileLock::~QVFileLock()
{
    unlock();
}

bool QVFileLock::lock(int timeoutMs, const std::function<bool(qint64)> &waiting)
{
    if (m_fd >= 0)
        return true;
    m_error = 0;
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        // A new descriptor each try: flock excludes descriptors, not processes.
        const int fd
            = ::open(QVFileName::encode(m_path).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) {
            m_error = errno;
            return false;
        }
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_fd = fd;
            // Who holds it, for the message of whoever waits.
            const QByteArray pid = QByteArray::number(qint64(::getpid())) + '\n';
            if (::ftruncate(fd, 0) == 0 && ::pwrite(fd, pid.constData(), size_t(pid.size()), 0) < 0) {
                // Only a courtesy to others: the lock is held all the same.
            }
            return true;
        }
        const int error = errno;
        ::close(fd);
        if (error != EWOULDBLOCK && error != EINTR) {
            m_error = error;
            return false;
        }
        if (timeoutMs >= 0 && timer.elapsed() >= timeoutMs)
            return false;
        if (waiting && !waiting(holder()))
            return false;
        QThread::msleep(100);
    }
}

void QVFileLock::unlock()
{
    if (m_fd < 0)
        return;
    ::flock(m_fd, LOCK_UN);
    ::close(m_fd);
    m_fd = -1;
}

qint64 QVFileLock::holder() const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readLine(32).trimmed().toLongLong();
}
