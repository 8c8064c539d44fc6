#include "platform/QVExtendedAttributes.h"

#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVWriteFault.h"

#include <QFile>
#include <cerrno>
#include <sys/xattr.h>
#include <vector>

namespace
{

// Attributes worth reading are small (ext4 keeps them all in one block); a
// bigger one is still read, but never beyond this.
constexpr ssize_t kMaxAttributeSize = 64 * 1024 * 1024;

} // namespace

std::optional<QByteArray> QVExtendedAttributes::get(const QString &path, const char *name, int *error)
{
    if (error)
        *error = 0;
    // A scan has listed the file's attribute names already.
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path)) {
        if (snapshot->hasAttribute(name) == false)
            return std::nullopt;
    }
    const QByteArray native = QVFileName::encode(path);
    for (int attempt = 0; attempt < 3; ++attempt) {
        const ssize_t size = ::getxattr(native.constData(), name, nullptr, 0);
        if (size < 0) {
            if (error && errno != ENODATA)
                *error = errno;
            return std::nullopt;
        }
        if (size > kMaxAttributeSize) {
            if (error)
                *error = EFBIG;
            return std::nullopt;
        }
        QByteArray value(qsizetype(size), '\0');
        const ssize_t got = ::getxattr(native.constData(), name, value.data(), size_t(size));
        if (got >= 0) {
            value.resize(got);
            return value;
        }
        if (errno != ERANGE) { // ERANGE: it grew in between; ask again
            if (error && errno != ENODATA)
                *error = errno;
            return std::nullopt;
        }
    }
    if (error)
        *error = ERANGE;
    return std::nullopt;
}

int QVExtendedAttributes::set(const QString &path, const char *name, const QByteArray &value)
{
    if (const int fault = QVWriteFault::check())
        return fault;
    const QByteArray native = QVFileName::encode(path);
    if (::lsetxattr(native.constData(), name, value.constData(), size_t(value.size()), 0) == 0)
        return 0;
    return errno;
}

int QVExtendedAttributes::remove(const QString &path, const char *name)
{
    const QByteArray native = QVFileName::encode(path);
    if (::lremovexattr(native.constData(), name) == 0 || errno == ENODATA)
        return 0;
    return errno;
}

QStringList QVExtendedAttributes::list(const QString &path)
{
    const QByteArray native = QVFileName::encode(path);
    QStringList names;
    const ssize_t size = ::listxattr(native.constData(), nullptr, 0);
    if (size <= 0)
        return names;
    std::vector<char> buffer(size_t(size) + 1, '\0');
    const ssize_t got = ::listxattr(native.constData(), buffer.data(), size_t(size));
    if (got <= 0)
        return names;
    for (ssize_t at = 0; at < got;) {
        const QByteArray name(buffer.data() + at);
        if (!name.isEmpty())
            names.append(QString::fromUtf8(name));
        at += name.size() + 1;
    }
    return names;
}

bool QVExtendedAttributes::supported(const QString &path)
{
    const QByteArray native = QVFileName::encode(path);
    static const char probe[] = "user.org.quorvel.probe";
    if (::lsetxattr(native.constData(), probe, "1", 1, 0) != 0)
        return false;
    ::lremovexattr(native.constData(), probe);
    return true;
}
