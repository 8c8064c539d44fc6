#include "platform/QVForkPlace.h"

#include "platform/QVAtomicFile.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVFileSystem.h"
#include "platform/QVResourceError.h"
#include "settings/QVLog.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Place = QVForkPlace::Place;
using Companion = QVForkPlace::Companion;

Companion companionState(const QString &companion)
{
    if (QVFileSnapshot::companionKnownAbsent(companion))
        return Companion::Absent;
    const QFileInfo info(companion);
    if (info.absolutePath().endsWith(QLatin1String("/.AppleDouble"))) {
        struct stat folder;
        if (::lstat(QVFileName::encode(info.absolutePath()).constData(), &folder) == 0) {
            if (S_ISLNK(folder.st_mode))
                return Companion::Link;
            if (!S_ISDIR(folder.st_mode))
                return Companion::Other;
        }
    }
    struct stat st;
    if (::lstat(QVFileName::encode(companion).constData(), &st) != 0)
        return Companion::Absent;
    if (S_ISLNK(st.st_mode))
        return Companion::Link;
    return S_ISREG(st.st_mode) ? Companion::File : Companion::Other;
}

// Reads a companion without following a link to it or to its ".AppleDouble"
// folder, even one put there after companionState() looked; never waits on a
// pipe put there either.
std::optional<QByteArray> readCompanion(const QString &companion)
{
    const QFileInfo info(companion);
    const bool netatalk = info.absolutePath().endsWith(QLatin1String("/.AppleDouble"));
    const int folder = ::open(QVFileName::encode(info.absolutePath()).constData(),
        O_RDONLY | O_DIRECTORY | O_CLOEXEC | (netatalk ? O_NOFOLLOW : 0));
    if (folder < 0)
        return std::nullopt;
    const int fd = ::openat(folder, QVFileName::encode(info.fileName()).constData(),
        O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    ::close(folder);
    if (fd < 0)
        return std::nullopt;
    QFile file;
    struct stat st;
    std::optional<QByteArray> bytes;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= QVForkStorage::kMaxForkSize
        && file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        bytes = file.readAll();
    else
        ::close(fd);
    return bytes;
}

qint16 refuseLink(const QString &companion)
{
    qCWarning(lcStore).noquote() << QVAtomicFile::errorText(companion, ELOOP);
    return QVResourceError::Permission;
}

// Whether new AppleDouble data may be written to a place: not over someone's
// companion or attribute that we cannot parse, never through a link.
qint16 vacant(const QVForkPlace &self, const QString &path)
{
    if (!self.companionPath) {
        return QVExtendedAttributes::get(path, QVForkStorage::kNetatalkAttribute)
            ? QVResourceError::DuplicateFile
            : QVResourceError::NoErr;
    }
    const QString companion = self.companionPath(path);
    switch (companionState(companion)) {
    case Companion::Absent:
        return QVResourceError::NoErr;
    case Companion::Link:
        return refuseLink(companion);
    case Companion::File:
    case Companion::Other:
        break;
    }
    return QVResourceError::DuplicateFile;
}

// New AppleDouble data in the layout macOS writes (Finder info, then fork).
// Finder info is left out when the file keeps it elsewhere, so that empty
// Finder info here never hides the real one.
QVAppleDouble newAppleDouble(bool withFinderInfo)
{
    QVAppleDouble data;
    data.filler = QByteArray("Mac OS X        ", 16);
    if (withFinderInfo)
        data.entries.append(
            { QVAppleDouble::FinderInfo, QByteArray(QVAppleDouble::kFinderInfoSize, '\0'), 0 });
    data.entries.append({ QVAppleDouble::ResourceFork, QByteArray(), 0 });
    return data;
}

// The places keeping AppleDouble data: a companion file or the metadata
// attribute.

std::optional<QVAppleDouble> loadCompanion(const QVForkPlace &self, const QString &path)
{
    const QString companion = self.companionPath(path);
    if (companionState(companion) != Companion::File)
        return std::nullopt;
    const auto bytes = readCompanion(companion);
    return bytes ? QVAppleDouble::parse(*bytes) : std::nullopt;
}

qint16 storeCompanion(const QVForkPlace &self, const QString &path, const QVAppleDouble &data)
{
    const QString companion = self.companionPath(path);
    int error = 0;
    if (self.place == Place::NetatalkFolder)
        error = QVAtomicFile::makeFolder(QFileInfo(companion).absolutePath());
    if (error == 0)
        error = QVAtomicFile::write(companion, data.serialize(), QVAtomicFile::FolderNotLink);
    if (error == ELOOP)
        return refuseLink(companion);
    if (error != 0)
        qCWarning(lcStore).noquote() << QVAtomicFile::errorText(companion, error);
    return QVResourceError::fromErrno(error);
}

std::optional<QVAppleDouble> loadMetadata(const QVForkPlace &, const QString &path)
{
    const auto blob = QVExtendedAttributes::get(path, QVForkStorage::kNetatalkAttribute);
    return blob ? QVAppleDouble::parse(*blob) : std::nullopt;
}

qint16 storeMetadata(const QVForkPlace &, const QString &path, const QVAppleDouble &data)
{
    return QVResourceError::fromErrno(
        QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, data.serialize()));
}

qint16 readAppleDoubleEntry(const QVForkPlace &self, const QString &path, quint32 entry, QByteArray *bytes)
{
    if (const Companion state = self.companionAt(path); state == Companion::Link
        || (state == Companion::File
            && ::access(QVFileName::encode(self.companionPath(path)).constData(), R_OK) != 0))
        return QVResourceError::Permission;
    const auto data = self.load(self, path);
    if (!data || !data->has(entry))
        return QVResourceError::ResFileNotFound;
    *bytes = data->entry(entry);
    return QVResourceError::NoErr;
}

qint16 writeAppleDoubleEntry(
    const QVForkPlace &self, const QString &path, quint32 entry, const QByteArray &bytes)
{
    auto data = self.load(self, path);
    if (!data) {
        if (const qint16 refused = vacant(self, path); refused != 0)
            return refused;
        data = newAppleDouble(
            entry == QVAppleDouble::FinderInfo || QVForkStorage::finderInfoPlace(path) == Place::None);
        if (!self.canKeep(QVAppleDouble::ResourceFork))
            data->removeEntry(QVAppleDouble::ResourceFork);
    }
    data->setEntry(entry, bytes);
    return self.store(self, path, *data);
}

// The attributes macOS keeps a fork and Finder info in.

const char *attributeOf(quint32 entry)
{
    return entry == QVAppleDouble::ResourceFork ? QVForkStorage::kForkAttribute
                                                : QVForkStorage::kFinderInfoAttribute;
}

qint16 readAttribute(const QVForkPlace &, const QString &path, quint32 entry, QByteArray *bytes)
{
    int error = 0;
    if (auto value = QVExtendedAttributes::get(path, attributeOf(entry), &error);
        value && !value->isEmpty()) {
        *bytes = *value;
        return QVResourceError::NoErr;
    }
    return error == EACCES || error == EPERM ? QVResourceError::Permission : QVResourceError::ResFileNotFound;
}

qint16 writeAttribute(const QVForkPlace &, const QString &path, quint32 entry, const QByteArray &bytes)
{
    const int error = QVExtendedAttributes::set(path, attributeOf(entry), bytes);
    if (error == E2BIG || error == ENOSPC || error == ERANGE)
        return QVForkPlace::kDoesNotFit;
    return QVResourceError::fromErrno(error);
}

qint16 removeAttribute(const QString &path, quint32 entry)
{
    return QVResourceError::fromErrno(QVExtendedAttributes::remove(path, attributeOf(entry)));
}

// The data fork of a ".dfont", a resource file through and through.

bool isDfont(const QString &path)
{
    return path.endsWith(QLatin1String(".dfont"), Qt::CaseInsensitive);
}

qint16 readDataFork(const QVForkPlace &, const QString &path, quint32, QByteArray *bytes)
{
    if (!isDfont(path))
        return QVResourceError::ResFileNotFound;
    QFile file;
    int error = 0;
    if (!QVFileSystem::openForReading(file, path, {}, &error)) {
        return error == ENOENT || error == ENOTDIR ? QVResourceError::FileNotFound
            : error == EACCES || error == EPERM    ? QVResourceError::Permission
                                                   : QVResourceError::IoErr;
    }
    if (file.size() > QVForkStorage::kMaxForkSize)
        return QVResourceError::IoErr;
    *bytes = file.readAll();
    return bytes->isEmpty() ? QVResourceError::ResFileNotFound : QVResourceError::NoErr;
}

// Rewrites a data fork in one step: a temporary file beside it takes the new
// fork, the file's permissions and its user extended attributes (its Finder
// info may live there), reaches the disk and is renamed over it. On any
// failure the file is left exactly as it was.
qint16 writeDataFork(const QVForkPlace &, const QString &path, quint32, const QByteArray &bytes)
{
    if (!isDfont(path))
        return QVResourceError::Permission;
    const QByteArray target = QVFileName::encode(path);
    struct stat st;
    if (::stat(target.constData(), &st) != 0)
        return QVResourceError::fromErrno(errno);
    const QFileInfo info(path);
    QByteArray temporary = QVFileName::encode(info.absolutePath() + QStringLiteral("/.") + info.fileName())
        + ".quorvel-XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return QVResourceError::fromErrno(errno);
    const QString temporaryPath = QVFileName::decode(temporary);
    auto fail = [&](int error) {
        ::close(fd);
        ::unlink(temporary.constData());
        return QVResourceError::fromErrno(error);
    };
    for (qint64 done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return fail(n < 0 ? errno : ENOSPC);
        done += n;
    }
    if (::fchmod(fd, st.st_mode & 07777) != 0)
        return fail(errno);
    // Root rewriting someone's font leaves it theirs.
    if (::geteuid() == 0 && ::fchown(fd, st.st_uid, st.st_gid) != 0)
        return fail(errno);
    for (const QString &name : QVExtendedAttributes::list(path)) {
        if (!name.startsWith(QLatin1String("user.")))
            continue;
        const QByteArray key = name.toUtf8();
        int error = 0;
        const auto value = QVExtendedAttributes::get(path, key.constData(), &error);
        if (!value)
            return fail(error ? error : EIO);
        if (const int setError = QVExtendedAttributes::set(temporaryPath, key.constData(), *value))
            return fail(setError);
    }
    if (::fsync(fd) != 0)
        return fail(errno);
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return QVResourceError::fromErrno(error);
    }
    if (::rename(temporary.constData(), target.constData()) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return QVResourceError::fromErrno(error);
    }
    // The rename itself reaches the disk with the folder.
    if (const int folder
        = ::open(QVFileName::encode(info.absolutePath()).constData(), O_RDONLY | O_DIRECTORY);
        folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
    return QVResourceError::NoErr;
}

constexpr quint32 kFork = 1u << QVAppleDouble::ResourceFork;
constexpr quint32 kFinderInfo = 1u << QVAppleDouble::FinderInfo;
constexpr quint32 kDates = 1u << QVAppleDouble::FileDates;

constexpr QVForkPlace kPlaces[] = {
    { Place::ExtendedAttribute, kFork | kFinderInfo, nullptr, readAttribute, writeAttribute, removeAttribute,
        nullptr, nullptr },
    { Place::AppleDouble, kFork | kFinderInfo | kDates, QVForkStorage::sidecarPath, readAppleDoubleEntry,
        writeAppleDoubleEntry, nullptr, loadCompanion, storeCompanion },
    { Place::NetatalkFolder, kFork | kFinderInfo | kDates, QVForkStorage::netatalkPath, readAppleDoubleEntry,
        writeAppleDoubleEntry, nullptr, loadCompanion, storeCompanion },
    { Place::NetatalkMetadata, kFinderInfo | kDates, nullptr, readAppleDoubleEntry, writeAppleDoubleEntry,
        nullptr, loadMetadata, storeMetadata },
    { Place::DataFork, kFork, nullptr, readDataFork, writeDataFork, nullptr, nullptr, nullptr },
};

} // namespace

QVForkPlace::Companion QVForkPlace::companionAt(const QString &path) const
{
    return companionPath ? companionState(companionPath(path)) : Companion::Absent;
}

std::span<const QVForkPlace> QVForkPlace::table()
{
    return kPlaces;
}

const QVForkPlace &QVForkPlace::of(Place place)
{
    for (const QVForkPlace &row : kPlaces) {
        if (row.place == place)
            return row;
    }
    return of(Place::AppleDouble);
}
