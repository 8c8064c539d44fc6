#include "platform/QVFilePair.h"

#include "platform/QVAppleDouble.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "platform/QVWriteFault.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Result = QVFilePair::Result;

QByteArray native(const QString &path)
{
    return QVFileName::encode(path);
}

Result failure(int error, const QString &what)
{
    return { error ? error : EIO,
        what + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error ? error : EIO)) };
}

bool pathExists(const QString &path)
{
    struct stat st;
    return ::lstat(native(path).constData(), &st) == 0;
}

// Renames without ever replacing an existing file.
int renameNoReplace(const QString &from, const QString &to)
{
    if (::renameat2(AT_FDCWD, native(from).constData(), AT_FDCWD, native(to).constData(), RENAME_NOREPLACE)
        == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // File systems without the flag: check, then rename.
    if (pathExists(to))
        return EEXIST;
    return ::rename(native(from).constData(), native(to).constData()) == 0 ? 0 : errno;
}

// The folder a companion goes into: an ".AppleDouble" folder is made here
// (never a link to elsewhere); any other is the destination's own folder.
int ensureParent(const QString &path)
{
    const QString parent = QFileInfo(path).absolutePath();
    if (QFileInfo(parent).fileName() == QLatin1String(".AppleDouble"))
        return QVAtomicFile::makeFolder(parent);
    if (QVFileSystem::isDirectory(parent))
        return 0;
    return QDir().mkpath(parent) ? 0 : EACCES;
}

// A fork behind a symbolic link cannot travel with its file, and what the link
// names is not ours to move or delete: the whole operation is refused.
Result checkLinks(const QString &path)
{
    const QString link = QVForkStorage::linkedCompanion(path);
    if (link.isNull())
        return {};
    return { ELOOP, QVAtomicFile::errorText(link, ELOOP) };
}

// Copies one file's bytes, permissions and times; the destination must not exist.
int copyBytes(const QString &from, const QString &to)
{
    const int in = ::open(native(from).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return errno;
    struct stat st;
    if (::fstat(in, &st) != 0) {
        const int error = errno;
        ::close(in);
        return error;
    }
    const int out
        = ::open(native(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    if (out < 0) {
        const int error = errno;
        ::close(in);
        return error;
    }
    int error = QVWriteFault::check();
    char buffer[64 * 1024];
    while (!error) {
        const ssize_t got = ::read(in, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            error = errno;
            break;
        }
        if (got == 0)
            break;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out, buffer + done, size_t(got - done));
            if (put < 0) {
                if (errno == EINTR)
                    continue;
                error = errno;
                break;
            }
            done += put;
        }
        if (error)
            break;
    }
    if (!error && ::fsync(out) != 0)
        error = errno;
    if (!error) {
        const struct timespec times[2] = { st.st_atim, st.st_mtim };
        ::futimens(out, times);
    }
    ::close(in);
    if (::close(out) != 0 && !error)
        error = errno;
    if (error)
        ::unlink(native(to).constData());
    return error;
}

// Copies every extended attribute. A fork or Finder info the destination's
// file system cannot keep as an attribute goes into a sidecar instead.
int copyAttributes(const QString &from, const QString &to)
{
    for (const QString &name : QVExtendedAttributes::list(from)) {
        const QByteArray key = name.toUtf8();
        int readError = 0;
        const auto value = QVExtendedAttributes::get(from, key.constData(), &readError);
        if (!value) {
            if (readError && name.startsWith(QLatin1String("user.")))
                return readError;
            continue; // system attributes we may not read are not ours to carry
        }
        const int error = QVExtendedAttributes::set(to, key.constData(), *value);
        if (error == 0)
            continue;
        if (!name.startsWith(QLatin1String("user.")))
            continue;
        if (key == QVForkStorage::kForkAttribute) {
            if (QVForkStorage::writeResourceFork(to, *value, QVForkStorage::Place::AppleDouble) != 0)
                return error;
        } else if (key == QVForkStorage::kFinderInfoAttribute) {
            if (QVForkStorage::writeFinderInfo(to, *value, QVForkStorage::Place::AppleDouble) != 0)
                return error;
        } else if (key == QVForkStorage::kNetatalkAttribute) {
            const auto data = QVAppleDouble::parse(*value);
            if (data && data->has(QVAppleDouble::FinderInfo)
                && QVForkStorage::writeFinderInfo(
                       to, data->entry(QVAppleDouble::FinderInfo), QVForkStorage::Place::AppleDouble)
                    != 0)
                return error;
        } else {
            return error;
        }
    }
    return 0;
}

// Checks that nothing would be overwritten.
Result checkDestination(const QString &from, const QString &to)
{
    if (!pathExists(from))
        return failure(ENOENT, QStringLiteral("\"%1\"").arg(from));
    if (QVFileSystem::isDirectory(from))
        return failure(EISDIR, QStringLiteral("\"%1\"").arg(from));
    if (pathExists(to))
        return failure(EEXIST, QStringLiteral("\"%1\"").arg(to));
    if (Result linked = checkLinks(from); !linked)
        return linked;
    if (Result linked = checkLinks(to); !linked)
        return linked;
    // Any metadata already at the destination (even for a file that is gone)
    // would be taken for the arriving file's own.
    for (const QString &companion : { QVForkStorage::sidecarPath(to), QVForkStorage::netatalkPath(to) }) {
        if (pathExists(companion))
            return failure(EEXIST, QStringLiteral("\"%1\"").arg(companion));
    }
    return {};
}

Result copyPair(const QString &from, const QString &to)
{
    if (Result check = checkDestination(from, to); !check)
        return check;
    const QStringList companions = QVFilePair::companions(from);
    const QStringList destinations = QVFilePair::companionDestinations(from, to);
    QStringList made;
    auto undo = [&made]() {
        for (const QString &path : std::as_const(made))
            ::unlink(native(path).constData());
    };
    // Companions first: a destination file never exists without its fork.
    for (int i = 0; i < companions.size(); ++i) {
        int error = ensureParent(destinations.at(i));
        if (!error)
            error = copyBytes(companions.at(i), destinations.at(i));
        if (error) {
            undo();
            return failure(error,
                QStringLiteral("Could not copy \"%1\" to \"%2\"").arg(companions.at(i), destinations.at(i)));
        }
        made.append(destinations.at(i));
    }
    if (const int error = copyBytes(from, to)) {
        undo();
        return failure(error, QStringLiteral("Could not copy \"%1\" to \"%2\"").arg(from, to));
    }
    made.append(to);
    if (const int error = copyAttributes(from, to)) {
        undo();
        return failure(error, QStringLiteral("Could not copy the attributes of \"%1\"").arg(from));
    }
    return {};
}

Result removeCompanions(const QStringList &companions)
{
    for (const QString &companion : companions) {
        if (::unlink(native(companion).constData()) != 0 && errno != ENOENT)
            return failure(errno, QStringLiteral("Could not delete \"%1\"").arg(companion));
    }
    return {};
}

} // namespace

QStringList QVFilePair::companions(const QString &path)
{
    return QVForkStorage::companionFiles(path);
}

QStringList QVFilePair::companionDestinations(const QString &from, const QString &to)
{
    QStringList result;
    for (const QString &companion : companions(from)) {
        if (companion == QVForkStorage::sidecarPath(from))
            result.append(QVForkStorage::sidecarPath(to));
        else
            result.append(QVForkStorage::netatalkPath(to));
    }
    return result;
}

QVFilePair::Result QVFilePair::move(const QString &from, const QString &to)
{
    if (Result check = checkDestination(from, to); !check)
        return check;
    const QStringList sources = companions(from);
    const QStringList destinations = companionDestinations(from, to);
    int error = renameNoReplace(from, to);
    if (error == EXDEV) {
        // Another file system: copy everything, then delete the source.
        if (Result copied = copyPair(from, to); !copied)
            return copied;
        if (::unlink(native(from).constData()) != 0) {
            const int unlinkError = errno;
            QVFilePair::remove(to);
            return failure(unlinkError, QStringLiteral("Could not move \"%1\"").arg(from));
        }
        return removeCompanions(sources);
    }
    if (error)
        return failure(error, QStringLiteral("Could not move \"%1\" to \"%2\"").arg(from, to));
    for (int i = 0; i < sources.size(); ++i) {
        error = ensureParent(destinations.at(i));
        if (!error)
            error = renameNoReplace(sources.at(i), destinations.at(i));
        if (error == EXDEV) {
            error = copyBytes(sources.at(i), destinations.at(i));
            if (!error && ::unlink(native(sources.at(i)).constData()) != 0) {
                error = errno;
                ::unlink(native(destinations.at(i)).constData());
            }
        }
        if (error) {
            // Put everything back where it was.
            for (int j = i - 1; j >= 0; --j)
                renameNoReplace(destinations.at(j), sources.at(j));
            renameNoReplace(to, from);
            return failure(error,
                QStringLiteral("Could not move \"%1\" to \"%2\"").arg(sources.at(i), destinations.at(i)));
        }
    }
    return {};
}

QVFilePair::Result QVFilePair::copy(const QString &from, const QString &to)
{
    return copyPair(from, to);
}

QVFilePair::Result QVFilePair::rename(const QString &path, const QString &newName)
{
    if (newName.isEmpty() || newName.contains(QLatin1Char('/')) || newName == QLatin1String(".")
        || newName == QLatin1String(".."))
        return failure(EINVAL, QStringLiteral("Bad file name \"%1\"").arg(newName));
    return move(path, QFileInfo(path).absolutePath() + QLatin1Char('/') + newName);
}

QVFilePair::Result QVFilePair::remove(const QString &path)
{
    if (!pathExists(path))
        return failure(ENOENT, QStringLiteral("\"%1\"").arg(path));
    if (Result linked = checkLinks(path); !linked)
        return linked;
    const QStringList others = companions(path);
    for (const QString &companion : others) {
        if (::access(native(QFileInfo(companion).absolutePath()).constData(), W_OK) != 0)
            return failure(errno, QStringLiteral("Could not delete \"%1\"").arg(companion));
    }
    if (::unlink(native(path).constData()) != 0)
        return failure(errno, QStringLiteral("Could not delete \"%1\"").arg(path));
    return removeCompanions(others);
}

QVFilePair::Result QVFilePair::moveToTrash(const QString &path, QString *trashedPath)
{
    if (!pathExists(path))
        return failure(ENOENT, QStringLiteral("\"%1\"").arg(path));
    if (Result linked = checkLinks(path); !linked)
        return linked;
    const QStringList others = companions(path);
    QString inTrash;
    if (!QFile::moveToTrash(path, &inTrash))
        return failure(EACCES, QStringLiteral("Could not move \"%1\" to the trash").arg(path));
    if (trashedPath)
        *trashedPath = inTrash;
    for (const QString &companion : others) {
        if (!QFile::moveToTrash(companion))
            return failure(EACCES, QStringLiteral("Could not move \"%1\" to the trash").arg(companion));
    }
    return {};
}
