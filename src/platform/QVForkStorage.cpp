#include "platform/QVForkStorage.h"

#include "platform/QVAppleDouble.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkPlace.h"
#include "platform/QVResourceError.h"

#include <QDir>
#include <QFileInfo>
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

bool fileExists(const QString &path)
{
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path))
        return snapshot->exists() && !snapshot->isDirectory();
    struct stat st;
    return ::stat(QVFileName::encode(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// Writes one entry to a place. What no longer fits in an attribute goes to the
// sidecar, and only then does the attribute go: left behind, it would win
// over the sidecar on the next read. *written gets where the entry went.
qint16 writeEntry(
    const QVForkPlace &row, const QString &path, quint32 entry, const QByteArray &bytes, Place *written)
{
    const QVForkPlace *target = &row;
    qint16 result = row.write(row, path, entry, bytes);
    if (result == QVForkPlace::kDoesNotFit) {
        target = &QVForkPlace::of(Place::AppleDouble);
        result = target->write(*target, path, entry, bytes);
        if (result == 0)
            result = row.remove(path, entry);
    }
    if (result == 0 && written)
        *written = target->place;
    return result;
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
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path);
        snapshot && !snapshot->sidecarPath().isEmpty())
        return snapshot->sidecarPath();
    const QFileInfo info(path);
    return info.absolutePath() + QStringLiteral("/._") + info.fileName();
}

QString QVForkStorage::netatalkPath(const QString &path)
{
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path);
        snapshot && !snapshot->netatalkPath().isEmpty())
        return snapshot->netatalkPath();
    const QFileInfo info(path);
    return info.absolutePath() + QStringLiteral("/.AppleDouble/") + info.fileName();
}

bool QVForkStorage::mayHaveResourceFork(const QString &path)
{
    for (const QVForkPlace &row : QVForkPlace::table()) {
        if (!row.canKeep(QVAppleDouble::ResourceFork))
            continue;
        if (row.companionPath) {
            if (row.companionAt(path) != QVForkPlace::Companion::Absent)
                return true;
        } else if (row.place == Place::ExtendedAttribute) {
            int error = 0;
            if (QVExtendedAttributes::get(path, kForkAttribute, &error) || error != 0)
                return true;
        } else if (path.endsWith(QLatin1String(".dfont"), Qt::CaseInsensitive)) {
            return true; // the data fork itself
        }
    }
    return false;
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
    bool unreadable = false;
    for (const QVForkPlace &row : QVForkPlace::table()) {
        if (!row.canKeep(QVAppleDouble::ResourceFork))
            continue;
        QByteArray bytes;
        const qint16 result = row.read(row, path, QVAppleDouble::ResourceFork, &bytes);
        if (result == QVResourceError::NoErr && !bytes.isEmpty()) {
            *fork = bytes;
            *place = row.place;
            return QVResourceError::NoErr;
        }
        if (result == QVResourceError::Permission)
            unreadable = true;
        else if (result != QVResourceError::NoErr && result != QVResourceError::ResFileNotFound)
            return result;
    }
    if (unreadable || ::access(QVFileName::encode(path).constData(), R_OK) != 0)
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
    const QVForkPlace &row = QVForkPlace::of(place);
    return writeEntry(row.canKeep(QVAppleDouble::ResourceFork) ? row : QVForkPlace::of(Place::AppleDouble),
        path, QVAppleDouble::ResourceFork, fork, written);
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
    // A scan asks several times about one file; the first answer is kept.
    const QVFileSnapshot *snapshot = QVFileSnapshot::of(path);
    if (snapshot && snapshot->memo().finderInfoRead) {
        *info = snapshot->memo().finderInfo;
        if (place)
            *place = Place(snapshot->memo().finderInfoPlace);
        return QVResourceError::NoErr;
    }
    Place found = Place::None;
    for (const QVForkPlace &row : QVForkPlace::table()) {
        QByteArray bytes;
        if (row.canKeep(QVAppleDouble::FinderInfo)
            && row.read(row, path, QVAppleDouble::FinderInfo, &bytes) == QVResourceError::NoErr) {
            *info = bytes.left(QVAppleDouble::kFinderInfoSize);
            info->resize(QVAppleDouble::kFinderInfoSize, '\0');
            found = row.place;
            break;
        }
    }
    if (place)
        *place = found;
    if (snapshot)
        snapshot->memo() = { true, *info, int(found) };
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
        place = forkPlace != Place::None && QVForkPlace::of(forkPlace).canKeep(QVAppleDouble::FinderInfo)
            ? forkPlace
            : fallback;
    }
    const QVForkPlace &row = QVForkPlace::of(place);
    return writeEntry(row.canKeep(QVAppleDouble::FinderInfo) ? row : QVForkPlace::of(Place::AppleDouble),
        path, QVAppleDouble::FinderInfo, bytes, nullptr);
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
    for (const QVForkPlace &row : QVForkPlace::table()) {
        QByteArray dates;
        if (!row.canKeep(QVAppleDouble::FileDates)
            || row.read(row, path, QVAppleDouble::FileDates, &dates) != QVResourceError::NoErr)
            continue;
        const auto raw = QVByteReader(dates).u32();
        if (!raw || *raw == kUnknownDate)
            continue;
        const QDateTime epoch(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
        return epoch.addSecs(qint32(*raw));
    }
    if (const QVFileSnapshot *snapshot = QVFileSnapshot::of(path))
        return QDateTime::fromSecsSinceEpoch(snapshot->birthOrModificationTime(), Qt::UTC);
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
    for (const QVForkPlace &row : QVForkPlace::table()) {
        auto data = row.canKeep(QVAppleDouble::FileDates) ? row.load(row, path) : std::nullopt;
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
        return row.store(row, path, *data);
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
    for (const QVForkPlace &row : QVForkPlace::table()) {
        if (row.companionAt(path) == QVForkPlace::Companion::File)
            result.append(row.companionPath(path));
    }
    return result;
}

QString QVForkStorage::linkedCompanion(const QString &path)
{
    for (const QVForkPlace &row : QVForkPlace::table()) {
        if (row.companionAt(path) != QVForkPlace::Companion::Link)
            continue;
        const QString companion = row.companionPath(path);
        return QVAtomicFile::isSymLink(companion) ? companion : QFileInfo(companion).absolutePath();
    }
    return QString();
}
