#include "platform/QVFileSnapshot.h"

#include "platform/QVFileName.h"
#include "platform/QVForkStorage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace
{

thread_local const QVFileSnapshot *t_current = nullptr;

// Reads through the snapshot's descriptor; seeking is free.
class SnapshotDevice : public QIODevice
{
public:
    explicit SnapshotDevice(const QVFileSnapshot &snapshot)
        : m_snapshot(snapshot)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_snapshot.size(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const QByteArray bytes = m_snapshot.read(pos(), maxSize);
        std::memcpy(data, bytes.constData(), size_t(bytes.size()));
        return bytes.size();
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QVFileSnapshot &m_snapshot;
};

} // namespace

QVFileSnapshot::Folder::Folder(const QString &path, std::vector<QByteArray> sortedNames)
    : m_path(path)
    , m_names(std::move(sortedNames))
    , m_fd(::open(QVFileName::encode(path).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
}

QVFileSnapshot::Folder::~Folder()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool QVFileSnapshot::Folder::has(const QByteArray &name) const
{
    return std::binary_search(m_names.cbegin(), m_names.cend(), name);
}

QVFileSnapshot::QVFileSnapshot(
    const QString &path, std::shared_ptr<const Folder> folder, const QByteArray &name)
    : m_folder(std::move(folder))
    , m_path(path)
    , m_name(name)
{
    m_sidecarPath = QVForkStorage::sidecarPath(m_path);
    m_netatalkPath = QVForkStorage::netatalkPath(m_path);
    if (m_folder) {
        m_sidecarListed = m_folder->has(QByteArrayLiteral("._") + m_name);
        m_netatalkListed = m_folder->has(QByteArrayLiteral(".AppleDouble"));
    }

    // By name in the open folder when there is one, else by the whole path.
    const bool inFolder = m_folder && m_folder->descriptor() >= 0 && !m_name.isEmpty();
    const int base = inFolder ? m_folder->descriptor() : AT_FDCWD;
    const QByteArray encoded = inFolder ? m_name : QVFileName::encode(m_path);
    // Non-blocking, so that a pipe put in place of the file never holds the scan.
    m_fd = ::openat(base, encoded.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    m_openError = m_fd < 0 ? errno : 0;
    struct statx sx;
    const int statted = m_fd >= 0
        ? ::statx(m_fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &sx)
        : ::statx(base, encoded.constData(), 0, STATX_BASIC_STATS | STATX_BTIME, &sx);
    if (statted != 0)
        return;
    m_exists = true;
    m_mode = sx.stx_mode;
    m_device = (quint64(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
    m_inode = sx.stx_ino;
    m_size = qint64(sx.stx_size);
    m_birth = (sx.stx_mask & STATX_BTIME) ? qint64(sx.stx_btime.tv_sec) : qint64(sx.stx_mtime.tv_sec);
    if (m_fd < 0 || !S_ISREG(m_mode))
        return;
    m_head = read(0, qMin(m_size, kHeadSize));
    // The names fit in a page nearly always; a longer list is asked for again.
    QByteArray names(1024, Qt::Uninitialized);
    ssize_t length = ::flistxattr(m_fd, names.data(), size_t(names.size()));
    if (length < 0 && errno == ERANGE) {
        const ssize_t needed = ::flistxattr(m_fd, nullptr, 0);
        if (needed > 0 && needed <= 64 * 1024) {
            names.resize(needed);
            length = ::flistxattr(m_fd, names.data(), size_t(names.size()));
        }
    }
    if (length >= 0) {
        names.truncate(length);
        m_attributeNames = names;
        m_attributesListed = true;
    } else if (errno == ENOTSUP) {
        // A file system without user attributes has none to look up.
        m_attributesListed = true;
    }
}

QVFileSnapshot::~QVFileSnapshot()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

QVFileSnapshot::Use::Use(const QVFileSnapshot *snapshot)
    : m_previous(t_current)
{
    t_current = snapshot;
}

QVFileSnapshot::Use::~Use()
{
    t_current = m_previous;
}

const QVFileSnapshot *QVFileSnapshot::of(const QString &path)
{
    return t_current && t_current->m_path == path ? t_current : nullptr;
}

bool QVFileSnapshot::companionKnownAbsent(const QString &companion)
{
    const QVFileSnapshot *snapshot = t_current;
    if (!snapshot || !snapshot->m_folder)
        return false;
    if (companion == snapshot->m_sidecarPath)
        return !snapshot->m_sidecarListed;
    if (companion == snapshot->m_netatalkPath)
        return !snapshot->m_netatalkListed;
    return false;
}

bool QVFileSnapshot::isRegular() const
{
    return m_exists && S_ISREG(m_mode);
}

bool QVFileSnapshot::isDirectory() const
{
    return m_exists && S_ISDIR(m_mode);
}

std::optional<bool> QVFileSnapshot::hasAttribute(const char *name) const
{
    if (!m_attributesListed)
        return std::nullopt;
    const QByteArrayView wanted(name);
    qsizetype at = 0;
    while (at < m_attributeNames.size()) {
        const qsizetype end = m_attributeNames.indexOf('\0', at);
        const qsizetype stop = end < 0 ? m_attributeNames.size() : end;
        if (QByteArrayView(m_attributeNames).sliced(at, stop - at) == wanted)
            return true;
        at = stop + 1;
    }
    return false;
}

std::unique_ptr<QIODevice> QVFileSnapshot::open() const
{
    if (m_fd < 0)
        return nullptr;
    return std::make_unique<SnapshotDevice>(*this);
}

QByteArray QVFileSnapshot::read(qint64 pos, qint64 length) const
{
    if (pos < 0 || length <= 0 || pos >= m_size)
        return {};
    const qint64 wanted = qMin(length, m_size - pos);
    if (pos + wanted <= m_head.size())
        return m_head.mid(pos, wanted);
    if (m_fd < 0)
        return {};
    QByteArray bytes(wanted, Qt::Uninitialized);
    qint64 done = 0;
    while (done < wanted) {
        const ssize_t got = ::pread(m_fd, bytes.data() + done, size_t(wanted - done), off_t(pos + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    bytes.truncate(done);
    return bytes;
}
