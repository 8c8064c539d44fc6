#include "platform/QVForkStorage.h"

#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVWriteFault.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

using Place = QVForkStorage::Place;

// AppleDouble dates count seconds from 2000-01-01 00:00:00 UTC; this value means "unknown".
constexpr quint32 kUnknownDate = 0x80000000;

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
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// Reads a whole small file; std::nullopt when absent or unreadable (*error set).
std::optional<QByteArray> readFile(const QString &path, qint16 *error)
{
    QFile file(path);
    if (!file.exists()) {
        *error = QVResourceError::FileNotFound;
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.error() == QFileDevice::PermissionsError ? QVResourceError::Permission
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

// Writes a file atomically (temporary file and rename).
qint16 writeFileAtomically(const QString &path, const QByteArray &bytes)
{
    if (QVWriteFault::check())
        return QVResourceError::DskFull;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.error() == QFileDevice::PermissionsError ? QVResourceError::Permission
                                                             : QVResourceError::IoErr;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return QVResourceError::DskFull;
    }
    if (!file.commit())
        return QVResourceError::DskFull;
    return QVResourceError::NoErr;
}

// The AppleDouble data of a companion file or the metadata attribute.
std::optional<QVAppleDouble> readAppleDouble(const QString &path, Place place)
{
    if (place == Place::NetatalkMetadata) {
        const auto blob = QVExtendedAttributes::get(path, QVForkStorage::kNetatalkAttribute);
        return blob ? QVAppleDouble::parse(*blob) : std::nullopt;
    }
    const QString companion
        = place == Place::AppleDouble ? QVForkStorage::sidecarPath(path) : QVForkStorage::netatalkPath(path);
    if (!QFileInfo(companion).isFile())
        return std::nullopt;
    qint16 error = 0;
    const auto bytes = readFile(companion, &error);
    return bytes ? QVAppleDouble::parse(*bytes) : std::nullopt;
}

qint16 writeAppleDouble(const QString &path, Place place, const QVAppleDouble &data)
{
    const QByteArray bytes = data.serialize();
    if (place == Place::NetatalkMetadata)
        return errnoToMac(QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, bytes));
    if (place == Place::NetatalkFolder) {
        const QString folder = QFileInfo(path).absolutePath() + QStringLiteral("/.AppleDouble");
        if (!QDir().mkpath(folder))
            return QVResourceError::Permission;
        return writeFileAtomically(QVForkStorage::netatalkPath(path), bytes);
    }
    return writeFileAtomically(QVForkStorage::sidecarPath(path), bytes);
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
        const QFileInfo companion(candidate == Place::AppleDouble ? sidecarPath(path) : netatalkPath(path));
        if (companion.isFile() && !companion.isReadable()) {
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
        || !QFileInfo(path).isReadable())
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
    if (place == Place::DataFork)
        return QVResourceError::Permission;
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
        if (!data && QFileInfo::exists(sidecarPath(path)))
            return QVResourceError::DuplicateFile;
        if (!data)
            data = newAppleDouble(finderInfoPlace(path) == Place::None);
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
        const QString companion = place == Place::AppleDouble ? sidecarPath(path) : netatalkPath(path);
        // A companion that exists but does not parse is someone's data: keep it.
        if (QFileInfo::exists(companion))
            return QVResourceError::DuplicateFile;
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
        if (!data && QFileInfo::exists(sidecarPath(path)))
            return QVResourceError::DuplicateFile;
        if (!data)
            data = newAppleDouble(true);
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
            const QString companion = place == Place::AppleDouble ? sidecarPath(path) : netatalkPath(path);
            if (QFileInfo::exists(companion))
                return QVResourceError::DuplicateFile;
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
    return (quint8(info.at(8)) << 8 | quint8(info.at(9))) & kInvisibleFlag;
}

qint16 QVForkStorage::setHidden(const QString &path, bool hidden)
{
    QByteArray info;
    Place place = Place::None;
    if (const qint16 error = readFinderInfo(path, &info, &place); error != 0)
        return error;
    const quint16 flags = quint16(quint8(info.at(8)) << 8 | quint8(info.at(9)));
    const quint16 changed = hidden ? (flags | kInvisibleFlag) : (flags & ~kInvisibleFlag);
    // Clearing a flag of a file without Finder info creates nothing.
    if (changed == flags)
        return QVResourceError::NoErr;
    info[8] = char(changed >> 8);
    info[9] = char(changed);
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
        if (dates.size() < 4)
            continue;
        const auto *p = reinterpret_cast<const quint8 *>(dates.constData());
        const quint32 raw
            = (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
        if (raw == kUnknownDate)
            continue;
        const QDateTime epoch(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
        return epoch.addSecs(qint32(raw));
    }
    struct statx sx;
    if (::statx(AT_FDCWD, QFile::encodeName(path).constData(), 0, STATX_BTIME | STATX_MTIME, &sx) == 0) {
        if (sx.stx_mask & STATX_BTIME)
            return QDateTime::fromSecsSinceEpoch(qint64(sx.stx_btime.tv_sec), Qt::UTC);
        return QDateTime::fromSecsSinceEpoch(qint64(sx.stx_mtime.tv_sec), Qt::UTC);
    }
    return QFileInfo(path).lastModified().toUTC();
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
            const qint64 modified = epoch.secsTo(QFileInfo(path).lastModified());
            dates = QByteArray(16, '\0');
            for (int i = 1; i < 4; ++i) {
                const quint32 v = i == 2
                    ? kUnknownDate
                    : quint32(qint32(qBound(qint64(-0x7FFFFFFF), modified, qint64(0x7FFFFFFF))));
                dates[i * 4] = char(v >> 24);
                dates[i * 4 + 1] = char(v >> 16);
                dates[i * 4 + 2] = char(v >> 8);
                dates[i * 4 + 3] = char(v);
            }
        }
        const quint32 v = quint32(qint32(seconds));
        dates[0] = char(v >> 24);
        dates[1] = char(v >> 16);
        dates[2] = char(v >> 8);
        dates[3] = char(v);
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
        if (QFileInfo(companion).isFile())
            result.append(companion);
    }
    return result;
}
