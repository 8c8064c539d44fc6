#include "platform/QVAtomicFile.h"

#include "platform/QVFileName.h"
#include "platform/QVWriteFault.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

class Descriptor
{
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd)
    {
    }
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }
    // Closes now, so that a failing close (NFS reports write errors there) is seen.
    int close()
    {
        const int result = ::close(m_fd);
        m_fd = -1;
        return result;
    }

private:
    int m_fd;
};

int writeAll(int fd, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t put = ::write(fd, data, size_t(qMin<qint64>(size, 1 << 20)));
        if (put < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        data += put;
        size -= put;
    }
    return 0;
}

// A hidden name beside the target, never a valid file name of a font or a
// sidecar of one that exists, short enough for any file system.
QByteArray temporaryName(const QByteArray &name)
{
    QByteArray base = name.left(200);
    const quint64 random = QRandomGenerator::global()->generate64();
    return "." + base + ".qv-" + QByteArray::number(random, 36);
}

} // namespace

int QVAtomicFile::write(const QString &path, const QByteArray &bytes, int options)
{
    if (const int fault = QVWriteFault::check())
        return fault;
    const QFileInfo info(path);
    const QByteArray folder = QVFileName::encode(info.absolutePath());
    const QByteArray name = QVFileName::encode(info.fileName());
    if (name.isEmpty() || name == "." || name == "..")
        return EINVAL;
    const int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | ((options & FolderNotLink) ? O_NOFOLLOW : 0);
    Descriptor dir(::open(folder.constData(), folderFlags));
    if (dir.get() < 0) {
        const int error = errno;
        // Some kernels answer ENOTDIR for a link opened as a folder without following.
        return (options & FolderNotLink) && isSymLink(info.absolutePath()) ? ELOOP : error;
    }

    struct stat old;
    bool existed = false;
    if (::fstatat(dir.get(), name.constData(), &old, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(old.st_mode))
            return ELOOP;
        if (S_ISDIR(old.st_mode))
            return EISDIR;
        if (!S_ISREG(old.st_mode))
            return EINVAL;
        existed = true;
    } else if (errno != ENOENT) {
        return errno;
    }

    QByteArray temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = temporaryName(name);
        fd = ::openat(dir.get(), temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
            existed ? (old.st_mode & 07777) : 0666);
        if (fd < 0 && errno != EEXIST)
            return errno;
    }
    if (fd < 0)
        return EEXIST;
    Descriptor file(fd);
    int error = writeAll(fd, bytes.constData(), bytes.size());
    if (!error && existed) {
        // The umask must not narrow what the file had; root keeps the owner.
        if (::fchmod(fd, old.st_mode & 07777) != 0)
            error = errno;
        if (!error && ::geteuid() == 0 && ::fchown(fd, old.st_uid, old.st_gid) != 0)
            error = errno;
    }
    if (!error && ::fsync(fd) != 0)
        error = errno;
    if (file.close() != 0 && !error)
        error = errno;
    if (!error && ::renameat(dir.get(), temporary.constData(), dir.get(), name.constData()) != 0)
        error = errno;
    if (error) {
        ::unlinkat(dir.get(), temporary.constData(), 0);
        return error;
    }
    // The rename is what makes the new file the file; a folder that cannot be
    // flushed (some file systems refuse) changes nothing already done.
    ::fsync(dir.get());
    return 0;
}

int QVAtomicFile::makeFolder(const QString &path)
{
    const QByteArray native = QVFileName::encode(path);
    if (::mkdir(native.constData(), 0777) == 0)
        return 0;
    const int error = errno;
    struct stat st;
    if (::lstat(native.constData(), &st) != 0)
        return error;
    if (S_ISLNK(st.st_mode))
        return ELOOP;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

bool QVAtomicFile::isSymLink(const QString &path)
{
    struct stat st;
    return ::lstat(QVFileName::encode(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

QString QVAtomicFile::errorText(const QString &path, int error)
{
    if (error == ELOOP) {
        // The link may be the folder rather than the file.
        const QString link = isSymLink(path) || !isSymLink(QFileInfo(path).absolutePath())
            ? path
            : QFileInfo(path).absolutePath();
        return QStringLiteral("\"%1\" is a symbolic link; Quorvel does not follow it").arg(link);
    }
    return QStringLiteral("\"%1\": %2").arg(path, QString::fromLocal8Bit(std::strerror(error ? error : EIO)));
}
