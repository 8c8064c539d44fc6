#include "platform/QVJournalFile.h"

#include "platform/QVFileName.h"
#include "platform/QVWriteFault.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Makes a new directory entry durable.
void syncFolder(const QString &path)
{
    const int fd = ::open(
        QVFileName::encode(QFileInfo(path).absolutePath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

} // namespace

QVJournalFile::QVJournalFile(const QString &path)
    : m_path(path)
{
}

QVJournalFile::~QVJournalFile()
{
    close();
}

void QVJournalFile::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool QVJournalFile::exists() const
{
    struct stat st;
    return ::lstat(QVFileName::encode(m_path).constData(), &st) == 0;
}

int QVJournalFile::append(const QByteArray &line)
{
    return append(QList<QByteArray> { line });
}

int QVJournalFile::append(const QList<QByteArray> &lines)
{
    if (m_fd < 0) {
        const bool created = !exists();
        m_fd = ::open(QVFileName::encode(m_path).constData(),
            O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (m_fd < 0)
            return errno;
        struct stat st;
        m_size = ::fstat(m_fd, &st) == 0 ? st.st_size : 0;
        // A line left unfinished by an append that could not be taken back
        // must not swallow the next one.
        char last = '\n';
        m_needsNewline = m_size > 0 && ::pread(m_fd, &last, 1, m_size - 1) == 1 && last != '\n';
        if (created)
            syncFolder(m_path);
    }
    QByteArray bytes = m_needsNewline ? QByteArray("\n") : QByteArray();
    for (const QByteArray &line : lines)
        bytes += line + '\n';
    int error = QVWriteFault::check();
    for (qint64 done = 0; !error && done < bytes.size();) {
        const ssize_t put = ::write(m_fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (put < 0 && errno != EINTR)
            error = errno;
        else if (put > 0)
            done += put;
    }
    if (!error && ::fdatasync(m_fd) != 0)
        error = errno;
    if (error) {
        // Whatever part of the line got there is taken back.
        if (::ftruncate(m_fd, m_size) != 0)
            close();
        return error;
    }
    m_size += bytes.size();
    m_needsNewline = false;
    return 0;
}

int QVJournalFile::remove()
{
    close();
    if (::unlink(QVFileName::encode(m_path).constData()) != 0 && errno != ENOENT)
        return errno;
    m_size = 0;
    return 0;
}

QList<QByteArray> QVJournalFile::readLines(const QString &path, int *error)
{
    if (error)
        *error = 0;
    QList<QByteArray> lines;
    QFile file(path);
    if (!file.exists())
        return lines;
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.error() == QFileDevice::PermissionsError ? EACCES : EIO;
        return lines;
    }
    const QByteArray bytes = file.readAll();
    qsizetype start = 0;
    for (qsizetype end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', start)) {
        lines.append(bytes.mid(start, end - start));
        start = end + 1;
    }
    return lines;
}
