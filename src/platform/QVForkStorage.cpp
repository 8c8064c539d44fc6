#include "platform/QVForkStorage.h"

#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSystem.h"
#include "platform/QVWriteFault.h"
#include "settings/QVLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Place = QVForkStorage::Place;

// AppleDouble dates count seconds from 2000-01-01 00:00:00 UTC; this value means "unknown".
constexpr quint32 kUnknownDate = 0x80000000;
// The Finder flags in the Finder info.
constexpr qint64 kFinderFlags = 8;

qint16 errnoToMac(int error)
{
    switch (error) {
    case 0:
        return QVResourceError::NoErr;
    case ENOENT:
    case ENOTDIR:
        return QVResourceError::FileNotFound;
    case EACCES:
    case EPERM:
        return QVResourceError::Permission;
    case EROFS:
        return QVResourceError::WritePermission;
    case ENOSPC:
    case EDQUOT:
        return QVResourceError::DskFull;
    case ENAMETOOLONG:
        return QVResourceError::BadFileName;
    default:
        return QVResourceError::IoErr;
    }
}

bool fileExists(const QString &path)
{
    struct stat st;
    return ::stat(QVFileName::encode(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// Reads a whole small file; std::nullopt when absent or unreadable (*error set).
std::optional<QByteArray> readFile(const QString &path, qint16 *error)
{
    QFile file;
    int openError = 0;
    if (!QVFileSystem::openForReading(file, path, {}, &openError)) {
        *error = openError == ENOENT || openError == ENOTDIR ? QVResourceError::FileNotFound
            : openError == EACCES || openError == EPERM      ? QVResourceError::Permission
                                                             : QVResourceError::IoErr;
        return std::nullopt;
    }
    if (file.size() > QVForkStorage::kMaxForkSize) {
        *error = QVResourceError::IoErr;
        return std::nullopt;
    }
    *error = QVResourceError::NoErr;
    return file.readAll();
}

// What lies at a companion's place. A link (the companion itself, or the
// ".AppleDouble" folder holding it) is never read, written or deleted: it may
// name any file of anyone.
enum class Companion { Absent, File, Link, Other };

Companion companionAt(const QString &companion)
{
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

QString companionPath(const QString &path, Place place)
{
    return place == Place::AppleDouble ? QVForkStorage::sidecarPath(path) : QVForkStorage::netatalkPath(path);
}

// Reads a companion without following a link to it or to its ".AppleDouble"
// folder, even one put there after companionAt() looked; never waits on a
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

// The AppleDouble data of a companion file or the metadata attribute.
std::optional<QVAppleDouble> readAppleDouble(const QString &path, Place place)
{
    if (place == Place::NetatalkMetadata) {
        const auto blob = QVExtendedAttributes::get(path, QVForkStorage::kNetatalkAttribute);
        return blob ? QVAppleDouble::parse(*blob) : std::nullopt;
    }
    const QString companion = companionPath(path, place);
    if (companionAt(companion) != Companion::File)
        return std::nullopt;
    const auto bytes = readCompanion(companion);
    return bytes ? QVAppleDouble::parse(*bytes) : std::nullopt;
}

qint16 writeAppleDouble(const QString &path, Place place, const QVAppleDouble &data)
{
    const QByteArray bytes = data.serialize();
    if (place == Place::NetatalkMetadata)
        return errnoToMac(QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, bytes));
    const QString companion = companionPath(path, place);
    int error = 0;
    if (place == Place::NetatalkFolder)
        error = QVAtomicFile::makeFolder(QFileInfo(companion).absolutePath());
    if (error == 0)
        error = QVAtomicFile::write(companion, bytes, QVAtomicFile::FolderNotLink);
    if (error == ELOOP)
        return refuseLink(companion);
    if (error != 0)
        qCWarning(lcStore).noquote() << QVAtomicFile::errorText(companion, error);
    return errnoToMac(error);
}

// Whether new AppleDouble data may be written at the companion's place: not
// over someone's file we cannot parse, never through a link.
qint16 checkNewCompanion(const QString &companion)
{
    switch (companionAt(companion)) {
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

// A new AppleDouble file in the layout macOS writes (Finder info, then fork).
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

const QList<Place> kAppleDoublePlaces
    = { Place::AppleDouble, Place::NetatalkFolder, Place::NetatalkMetadata };

bool isDfont(const QString &path)
{
    return path.endsWith(QLatin1String(".dfont"), Qt::CaseInsensitive);
}

// Rewrites a data-fork resource file (.dfont) in one step: a temporary file
// beside it takes the new fork, the file's permissions and its user extended
// attributes (its Finder info may live there), reaches the disk and is renamed
// over it. On any failure the file is left exactly as it was.
qint16 replaceDataFork(const QString &path, const QByteArray &bytes)
{
    const QByteArray target = QVFileName::encode(path);
    struct stat st;
    if (::stat(target.constData(), &st) != 0)
        return errnoToMac(errno);
    const QFileInfo info(path);
    QByteArray temporary = QVFileName::encode(info.absolutePath() + QStringLiteral("/.") + info.fileName())
        + ".quorvel-XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return errnoToMac(errno);
    const QString temporaryPath = QVFileName::decode(temporary);
    auto fail = [&](int error) {
        ::close(fd);
        ::unlink(temporary.constData());
        return errnoToMac(error);
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
        return errnoToMac(error);
    }
    if (::rename(temporary.constData(), target.constData()) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return errnoToMac(error);
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

} // namespace

QString QVForkStorage::placeName(Place place)
{
    switch (place) {
    case Place::ExtendedAttribute:
        return QStringLiteral("xattr");
    case Place::AppleDouble:
        return QStringLiteral("appledouble");
    case Place::NetatalkFolder:
        return QStringLiteral("netatalk");
    case Place::NetatalkMetadata:
        return QStringLiteral("netatalk-metadata");
    case Place::DataFork:
        return QStringLiteral("datafork");
    case Place::None:
        break;
    }
    return QStringLiteral("none");
}

QString QVForkStorage::sidecarPath(const QString &path)
{
    const QFileInfo info(path);
    return info.absolutePath() + QStringLiteral("/._") + info.fileName();
}

QString QVForkStorage::netatalkPath(const QString &path)
{
    const QFileInfo info(path);
    return info.absolutePath() + QStringLiteral("/.AppleDouble/") + info.fileName();
}

QVForkStorage::Place QVForkStorage::resourceForkPlace(const QString &path)
{
    QByteArray fork;
    Place place = Place::None;
    readResourceFork(path, &fork, &place);
    return place;
}

qint16 QVForkStorage::readResourceFork(const QString &path, QByteArray *fork, Place *place)
{
    *place = Place::None;
    fork->clear();
    if (!fileExists(path))
        return QVResourceError::FileNotFound;
    int attributeError = 0;
    if (auto value = QVExtendedAttributes::get(path, kForkAttribute, &attributeError);
        value && !value->isEmpty()) {
        *fork = *value;
        *place = Place::ExtendedAttribute;
        return QVResourceError::NoErr;
    }
    bool unreadableCompanion = false;
    for (Place candidate : { Place::AppleDouble, Place::NetatalkFolder }) {
        const QString companion = companionPath(path, candidate);
        const Companion state = companionAt(companion);
        if (state == Companion::Link
            || (state == Companion::File && ::access(QVFileName::encode(companion).constData(), R_OK) != 0)) {
            unreadableCompanion = true;
            continue;
        }
        const auto data = readAppleDouble(path, candidate);
        if (data && !data->entry(QVAppleDouble::ResourceFork).isEmpty()) {
            *fork = data->entry(QVAppleDouble::ResourceFork);
            *place = candidate;
            return QVResourceError::NoErr;
        }
    }
    if (isDfont(path)) {
        qint16 error = 0;
        const auto bytes = readFile(path, &error);
        if (!bytes)
            return error;
        if (!bytes->isEmpty()) {
            *fork = *bytes;
            *place = Place::DataFork;
            return QVResourceError::NoErr;
        }
    }
    if (unreadableCompanion || attributeError == EACCES || attributeError == EPERM
        || ::access(QVFileName::encode(path).constData(), R_OK) != 0)
        return QVResourceError::Permission;
    return QVResourceError::ResFileNotFound;
}

qint16 QVForkStorage::writeResourceFork(
    const QString &path, const QByteArray &fork, Place place, Place *written)
{
    if (written)
        *written = Place::None;
    if (!fileExists(path))
        return QVResourceError::FileNotFound;
    if (place == Place::DataFork) {
        const qint16 result = isDfont(path) ? replaceDataFork(path, fork) : QVResourceError::Permission;
        if (result == 0 && written)
            *written = place;
        return result;
    }
    if (place == Place::ExtendedAttribute) {
        const int error = QVExtendedAttributes::set(path, kForkAttribute, fork);
        if (error == 0) {
            if (written)
                *written = place;
            return QVResourceError::NoErr;
        }
        if (error != E2BIG && error != ENOSPC && error != ERANGE)
            return errnoToMac(error);
        // Too big for an attribute: the sidecar takes it, and only then does
        // the attribute go.
        auto data = readAppleDouble(path, Place::AppleDouble);
        if (!data) {
            if (const qint16 refused = checkNewCompanion(sidecarPath(path)); refused != 0)
                return refused;
            data = newAppleDouble(finderInfoPlace(path) == Place::None);
        }
        data->setEntry(QVAppleDouble::ResourceFork, fork);
        if (const qint16 result = writeAppleDouble(path, Place::AppleDouble, *data); result != 0)
            return result;
        // The stale attribute would win over the sidecar on the next read.
        if (const int removeError = QVExtendedAttributes::remove(path, kForkAttribute); removeError != 0)
            return errnoToMac(removeError);
        if (written)
            *written = Place::AppleDouble;
        return QVResourceError::NoErr;
    }
    if (place != Place::NetatalkFolder)
        place = Place::AppleDouble;
    auto data = readAppleDouble(path, place);
    if (!data) {
        // A companion that exists but does not parse is someone's data: keep it.
        if (const qint16 refused = checkNewCompanion(companionPath(path, place)); refused != 0)
            return refused;
        data = newAppleDouble(finderInfoPlace(path) == Place::None);
    }
    data->setEntry(QVAppleDouble::ResourceFork, fork);
    const qint16 result = writeAppleDouble(path, place, *data);
    if (result == 0 && written)
        *written = place;
    return result;
}

QVForkStorage::Place QVForkStorage::finderInfoPlace(const QString &path)
{
    QByteArray info;
    Place place = Place::None;
    readFinderInfo(path, &info, &place);
    return place;
}

qint16 QVForkStorage::readFinderInfo(const QString &path, QByteArray *info, Place *place)
{
    if (place)
        *place = Place::None;
    *info = QByteArray(QVAppleDouble::kFinderInfoSize, '\0');
    if (!fileExists(path))
        return QVResourceError::FileNotFound;
    if (auto value = QVExtendedAttributes::get(path, kFinderInfoAttribute); value && !value->isEmpty()) {
        *info = value->left(QVAppleDouble::kFinderInfoSize);
        info->resize(QVAppleDouble::kFinderInfoSize, '\0');
        if (place)
            *place = Place::ExtendedAttribute;
        return QVResourceError::NoErr;
    }
    for (Place candidate : kAppleDoublePlaces) {
        const auto data = readAppleDouble(path, candidate);
        if (data && data->has(QVAppleDouble::FinderInfo)) {
            *info = data->entry(QVAppleDouble::FinderInfo).left(QVAppleDouble::kFinderInfoSize);
            info->resize(QVAppleDouble::kFinderInfoSize, '\0');
            if (place)
                *place = candidate;
            return QVResourceError::NoErr;
        }
    }
    return QVResourceError::NoErr;
}

qint16 QVForkStorage::writeFinderInfo(const QString &path, const QByteArray &info, Place fallback)
{
    if (!fileExists(path))
        return QVResourceError::FileNotFound;
    QByteArray bytes = info.left(QVAppleDouble::kFinderInfoSize);
    bytes.resize(QVAppleDouble::kFinderInfoSize, '\0');
    Place place = finderInfoPlace(path);
    if (place == Place::None) {
        const Place forkPlace = resourceForkPlace(path);
        place = (forkPlace == Place::None || forkPlace == Place::DataFork) ? fallback : forkPlace;
    }
    if (place == Place::ExtendedAttribute) {
        const int error = QVExtendedAttributes::set(path, kFinderInfoAttribute, bytes);
        if (error == 0)
            return QVResourceError::NoErr;
        if (error != E2BIG && error != ENOSPC && error != ERANGE)
            return errnoToMac(error);
        place = Place::AppleDouble;
        auto data = readAppleDouble(path, place);
        if (!data) {
            if (const qint16 refused = checkNewCompanion(sidecarPath(path)); refused != 0)
                return refused;
            data = newAppleDouble(true);
        }
        data->setEntry(QVAppleDouble::FinderInfo, bytes);
        if (const qint16 result = writeAppleDouble(path, place, *data); result != 0)
            return result;
        if (const int removeError = QVExtendedAttributes::remove(path, kFinderInfoAttribute);
            removeError != 0)
            return errnoToMac(removeError);
        return QVResourceError::NoErr;
    }
    if (place == Place::DataFork || place == Place::None)
        place = Place::AppleDouble;
    auto data = readAppleDouble(path, place);
    if (!data) {
        if (place != Place::NetatalkMetadata) {
            if (const qint16 refused = checkNewCompanion(companionPath(path, place)); refused != 0)
                return refused;
        } else if (QVExtendedAttributes::get(path, kNetatalkAttribute)) {
            return QVResourceError::DuplicateFile;
        }
        data = newAppleDouble(true);
        if (place == Place::NetatalkMetadata)
            data->removeEntry(QVAppleDouble::ResourceFork);
    }
    data->setEntry(QVAppleDouble::FinderInfo, bytes);
    return writeAppleDouble(path, place, *data);
}

bool QVForkStorage::isHidden(const QString &path)
{
    if (QFileInfo(path).fileName().startsWith(QLatin1Char('.')))
        return true;
    QByteArray info;
    if (readFinderInfo(path, &info) != 0)
        return false;
    return QVByteReader(info).at(kFinderFlags).u16().value_or(0) & kInvisibleFlag;
}

qint16 QVForkStorage::setHidden(const QString &path, bool hidden)
{
    QByteArray info;
    Place place = Place::None;
    if (const qint16 error = readFinderInfo(path, &info, &place); error != 0)
        return error;
    const quint16 flags = QVByteReader(info).at(kFinderFlags).u16().value_or(0);
    const quint16 changed = hidden ? (flags | kInvisibleFlag) : (flags & ~kInvisibleFlag);
    // Clearing a flag of a file without Finder info creates nothing.
    if (changed == flags)
        return QVResourceError::NoErr;
    QVByteWriter(info).setU16(kFinderFlags, changed);
    return writeFinderInfo(path, info);
}

QDateTime QVForkStorage::creationDate(const QString &path)
{
    if (!fileExists(path))
        return {};
    for (Place candidate : kAppleDoublePlaces) {
        const auto data = readAppleDouble(path, candidate);
        if (!data || !data->has(QVAppleDouble::FileDates))
            continue;
        const QByteArray dates = data->entry(QVAppleDouble::FileDates);
        const auto raw = QVByteReader(dates).u32();
        if (!raw || *raw == kUnknownDate)
            continue;
        const QDateTime epoch(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
        return epoch.addSecs(qint32(*raw));
    }
    struct statx sx;
    if (::statx(AT_FDCWD, QVFileName::encode(path).constData(), 0, STATX_BTIME | STATX_MTIME, &sx) == 0) {
        if (sx.stx_mask & STATX_BTIME)
            return QDateTime::fromSecsSinceEpoch(qint64(sx.stx_btime.tv_sec), Qt::UTC);
        return QDateTime::fromSecsSinceEpoch(qint64(sx.stx_mtime.tv_sec), Qt::UTC);
    }
    return QVFileSystem::modificationTime(path).toUTC();
}

qint16 QVForkStorage::setCreationDate(const QString &path, const QDateTime &date)
{
    if (!fileExists(path))
        return QVResourceError::FileNotFound;
    if (!date.isValid())
        return QVResourceError::Param;
    const QDateTime epoch(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
    const qint64 seconds = qBound(qint64(-0x7FFFFFFF), epoch.secsTo(date), qint64(0x7FFFFFFF));
    for (Place candidate : kAppleDoublePlaces) {
        auto data = readAppleDouble(path, candidate);
        if (!data)
            continue;
        QByteArray dates = data->entry(QVAppleDouble::FileDates);
        if (dates.size() < 16) {
            // create, modify, backup, access
            const qint64 modified = epoch.secsTo(QVFileSystem::modificationTime(path));
            dates = QByteArray(16, '\0');
            for (int i = 1; i < 4; ++i) {
                const quint32 v = i == 2
                    ? kUnknownDate
                    : quint32(qint32(qBound(qint64(-0x7FFFFFFF), modified, qint64(0x7FFFFFFF))));
                QVByteWriter(dates).setU32(i * 4, v);
            }
        }
        QVByteWriter(dates).setU32(0, quint32(qint32(seconds)));
        data->setEntry(QVAppleDouble::FileDates, dates);
        return writeAppleDouble(path, candidate, *data);
    }
    return QVResourceError::NoErr;
}

bool QVForkStorage::isMetadataStore(const QString &path)
{
    const QFileInfo info(path);
    if (info.fileName().startsWith(QLatin1String("._")) || info.fileName() == QLatin1String(".AppleDouble"))
        return true;
    return QDir::fromNativeSeparators(info.absolutePath() + QLatin1Char('/'))
        .contains(QLatin1String("/.AppleDouble/"));
}

QStringList QVForkStorage::companionFiles(const QString &path)
{
    QStringList result;
    for (const QString &companion : { sidecarPath(path), netatalkPath(path) }) {
        if (companionAt(companion) == Companion::File)
            result.append(companion);
    }
    return result;
}

QString QVForkStorage::linkedCompanion(const QString &path)
{
    for (const QString &companion : { sidecarPath(path), netatalkPath(path) }) {
        if (companionAt(companion) == Companion::Link)
            return QVAtomicFile::isSymLink(companion) ? companion : QFileInfo(companion).absolutePath();
    }
    return QString();
}
