#include "platform/QVFileSystem.h"

#include "platform/QVFileName.h"

#include <QFile>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

bool QVFileSystem::exists(const QString &path)
{
    struct stat st;
    return !path.isEmpty() && ::stat(QVFileName::encode(path).constData(), &st) == 0;
}

bool QVFileSystem::isDirectory(const QString &path)
{
    struct stat st;
    return !path.isEmpty() && ::stat(QVFileName::encode(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool QVFileSystem::isFile(const QString &path)
{
    struct stat st;
    return !path.isEmpty() && ::stat(QVFileName::encode(path).constData(), &st) == 0 && S_ISREG(st.st_mode);
}

QDateTime QVFileSystem::modificationTime(const QString &path)
{
    struct stat st;
    if (path.isEmpty() || ::stat(QVFileName::encode(path).constData(), &st) != 0)
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000);
}

QString QVFileSystem::canonicalPath(const QString &path)
{
    if (path.isEmpty())
        return QString();
    char *resolved = ::realpath(QVFileName::encode(path).constData(), nullptr);
    if (!resolved)
        return QString();
    const QString result = QVFileName::decode(resolved);
    std::free(resolved);
    return result;
}

bool QVFileSystem::openForReading(QFile &file, const QString &path, QIODevice::OpenMode extra, int *error)
{
    // Non-blocking, so that a pipe in place of a font never holds the caller.
    const int fd = ::open(QVFileName::encode(path).constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        if (error)
            *error = errno;
        return false;
    }
    if (!file.open(fd, QIODevice::ReadOnly | extra, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        if (error)
            *error = EIO;
        return false;
    }
    if (error)
        *error = 0;
    return true;
}
