#include "platform/QVFileAccess.h"

#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVForkStorage.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// errno of opening an existing part for reading, 0 when it opens or is absent.
int openError(const QString &path)
{
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path))
        return snapshot->exists() ? snapshot->openError() : 0;
    if (QVFileSnapshot::companionKnownAbsent(path))
        return 0;
    const QByteArray encoded = QVFileName::encode(path);
    struct stat st;
    if (::lstat(encoded.constData(), &st) != 0)
        return errno == ENOENT || errno == ENOTDIR ? 0 : errno;
    if (S_ISDIR(st.st_mode))
        return 0;
    // Non-blocking, so that a pipe in place of a font never holds the caller.
    const int fd = ::open(encoded.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    ::close(fd);
    return 0;
}

} // namespace

QString QVFileAccess::unreadablePart(const QString &path, int *error)
{
    for (const QString &part :
        { path, QVForkStorage::sidecarPath(path), QVForkStorage::netatalkPath(path) }) {
        const int code = openError(part);
        if (isPermissionError(code)) {
            if (error)
                *error = code;
            return part;
        }
    }
    if (error)
        *error = 0;
    return QString();
}

int QVFileAccess::folderError(const QString &folder)
{
    const QByteArray encoded = QVFileName::encode(folder);
    DIR *dir = ::opendir(encoded.constData());
    if (!dir)
        return errno;
    ::closedir(dir);
    // Listing needs read, looking at the entries needs search rights.
    if (::faccessat(AT_FDCWD, encoded.constData(), X_OK, AT_EACCESS) != 0)
        return errno;
    return 0;
}

bool QVFileAccess::isPermissionError(int error)
{
    return error == EACCES || error == EPERM;
}

QString QVFileAccess::describe(const QString &path, int error)
{
    return QStringLiteral("%1: cannot be read (%2)").arg(path, QString::fromLocal8Bit(std::strerror(error)));
}
