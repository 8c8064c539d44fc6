#include "store/QVQuarantineStore.h"

#include "engine/QVFontDataManager.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVFileLock.h"
#include "platform/QVFileName.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "platform/QVJournalFile.h"
#include "platform/QVPackageFiles.h"
#include "platform/QVPrivilegedRunner.h"
#include "settings/QVDataFolder.h"
#include "settings/QVLog.h"
#include "store/QVPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUuid>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const QString kIndexName = QStringLiteral("dataSource");
const QString kJournalName = QStringLiteral("dataSource.journal");
// How long a store used without a run's lock waits for it at its first change.
constexpr int kChangeLockWaitMs = 10000;

bool existsOrLink(const QString &path)
{
    struct stat st;
    return ::lstat(QVFileName::encode(path).constData(), &st) == 0;
}

QString folderOf(const QString &path)
{
    return QFileInfo(path).absolutePath();
}

QVariantList toVariantList(const QList<QVariantMap> &records)
{
    QVariantList list;
    list.reserve(records.size());
    for (const QVariantMap &record : records)
        list.append(record);
    return list;
}

// A list of dictionaries, or false.
bool toRecords(const QVariant &value, QList<QVariantMap> *records)
{
    if (value.typeId() != QMetaType::QVariantList)
        return false;
    records->clear();
    for (const QVariant &item : value.toList()) {
        if (item.typeId() != QMetaType::QVariantMap)
            return false;
        records->append(item.toMap());
    }
    return true;
}

bool sameRecord(const QVariantMap &a, const QVariantMap &b)
{
    return a.value(QStringLiteral("quarantineFileName")).toString()
        == b.value(QStringLiteral("quarantineFileName")).toString()
        && a.value(QStringLiteral("originalFilePath")).toString()
        == b.value(QStringLiteral("originalFilePath")).toString()
        && a.value(QStringLiteral("fontNames")).toStringList()
        == b.value(QStringLiteral("fontNames")).toStringList();
}

// The whole record as one text: equal for equal records, however their lists
// and numbers are typed in memory.
QByteArray recordKey(const QVariantMap &record)
{
    return QJsonDocument(QJsonObject::fromVariantMap(record)).toJson(QJsonDocument::Compact);
}

// `records` without one of each of `gone`.
QList<QVariantMap> withoutRecords(const QList<QVariantMap> &records, const QList<QVariantMap> &gone)
{
    QHash<QByteArray, int> toDrop;
    for (const QVariantMap &record : gone)
        ++toDrop[recordKey(record)];
    QList<QVariantMap> result;
    result.reserve(records.size());
    for (const QVariantMap &record : records) {
        if (!toDrop.isEmpty()) {
            const auto it = toDrop.find(recordKey(record));
            if (it != toDrop.end()) {
                if (--it.value() == 0)
                    toDrop.erase(it);
                continue;
            }
        }
        result.append(record);
    }
    return result;
}

// What changed from `before` to `after` (records added and removed), done to
// `base` instead.
QList<QVariantMap> replayChanges(
    const QList<QVariantMap> &base, const QList<QVariantMap> &before, const QList<QVariantMap> &after)
{
    if (before == after)
        return base;
    const QList<QVariantMap> added = withoutRecords(after, before);
    const QList<QVariantMap> removed = withoutRecords(before, after);
    return withoutRecords(base, removed) + added;
}

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QVariantMap fromJsonLine(const QByteArray &line)
{
    const QJsonDocument document = QJsonDocument::fromJson(line);
    return document.isObject() ? document.object().toVariantMap() : QVariantMap();
}

} // namespace

QVQuarantineStore::QVQuarantineStore(QVFontDataManager *dataManager)
    : dataMgr(dataManager)
{
    loadQuarantineDataSourceFromDisk();
}

QVQuarantineStore::~QVQuarantineStore() = default;

QString QVQuarantineStore::quarantineFolderPath() const
{
    return QVDataFolder::path() + QStringLiteral("/Quarantine");
}

QString QVQuarantineStore::indexPath() const
{
    return quarantineFolderPath() + QLatin1Char('/') + kIndexName;
}

QString QVQuarantineStore::journalPath() const
{
    return quarantineFolderPath() + QLatin1Char('/') + kJournalName;
}

QString QVQuarantineStore::lockPath() const
{
    return QVDataFolder::path() + QStringLiteral("/.lock");
}

QUrl QVQuarantineStore::getQuarantineFolder() const
{
    const QString folder = quarantineFolderPath();
    // Private to the user, and made so again if someone opened it up.
    if (QVDataFolder::ensureSubfolder(QFileInfo(folder).fileName()).isEmpty())
        qCWarning(lcStore) << "Error: could not create the quarantine folder" << folder;
    return QUrl::fromLocalFile(folder + QLatin1Char('/'));
}

QString QVQuarantineStore::folderProblem() const
{
    for (const QString &folder : { QVDataFolder::path(), quarantineFolderPath() }) {
        if (QVAtomicFile::isSymLink(folder))
            return QVAtomicFile::errorText(folder, ELOOP);
        if (QVFileSystem::exists(folder) && !QVFileSystem::isDirectory(folder))
            return QVAtomicFile::errorText(folder, ENOTDIR);
    }
    return QString();
}

QString QVQuarantineStore::quarantineDestination(const QString &name, bool keepExtension)
{
    const QString folder = getQuarantineFolder().toLocalFile().chopped(1);
    int &last = m_lastNumbers[name + (keepExtension ? QStringLiteral("\n1") : QStringLiteral("\n0"))];
    int number = last + 1;
    const QString destination
        = uniqueDestination(folder, name, keepExtension, &number, &m_plannedDestinations);
    if (number > 0)
        last = number;
    return destination;
}

QString QVQuarantineStore::uniqueDestination(const QString &folder, const QString &name, bool keepExtension,
    int *firstNumber, const QSet<QString> *reserved)
{
    auto taken = [reserved](const QString &path) {
        if (existsOrLink(path) || (reserved && reserved->contains(path)))
            return true;
        // A leftover sidecar would make the move refuse the name.
        const QFileInfo info(path);
        return existsOrLink(info.absolutePath() + QStringLiteral("/._") + info.fileName())
            || existsOrLink(info.absolutePath() + QStringLiteral("/.AppleDouble/") + info.fileName());
    };
    QString destination = QStringLiteral("%1/%2").arg(folder, name);
    if (!taken(destination)) {
        if (firstNumber)
            *firstNumber = 0;
        return destination;
    }
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = keepExtension && dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot + 1) : QString();
    for (int i = firstNumber ? qMax(1, *firstNumber) : 1;; ++i) {
        // Joined, never formatted: a "%1" in a font's name stays as it is.
        destination = folder + QLatin1Char('/') + base + QLatin1Char(' ') + QString::number(i)
            + (hasExtension ? QLatin1Char('.') + extension : QString());
        if (!taken(destination)) {
            if (firstNumber)
                *firstNumber = i;
            return destination;
        }
    }
}

QString QVQuarantineStore::displayName(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus)
{
    if (fontStatus->fontSize >= 1) {
        if (fontStatus->fontStyle == QLatin1String("Plain"))
            return fontStatus->fontName;
        return QStringLiteral("%1 (%2)").arg(fontStatus->fontName, fontStatus->fontStyle);
    }
    if (fontStatus->fontType == 3 && fontFile->fontFileType == 0 && !fontStatus->trueTypeFontName.isNull())
        return fontStatus->trueTypeFontName;
    return fontStatus->fontName;
}

QVariantMap QVQuarantineStore::makeRecord(const QString &quarantineFileName, const QVFontFilePtr &fontFile,
    const QVStatusPtr &fontStatus, const QString &reason)
{
    QVariantMap record;
    record.insert(QStringLiteral("fontFileType"), fontFile->fontFileType);
    record.insert(QStringLiteral("quarantineFileName"), quarantineFileName);
    record.insert(QStringLiteral("originalFilePath"), fontFile->URL);
    record.insert(QStringLiteral("fontCount"), int(fontFile->fontStatusArray.size()));
    record.insert(QStringLiteral("reason"), reason);
    record.insert(QStringLiteral("fontNames"), QStringList { displayName(fontFile, fontStatus) });
    record.insert(QStringLiteral("fontPSnames"), QStringList { fontStatus->PSname });
    record.insert(QStringLiteral("fontStyles"),
        QStringList { fontStatus->fontStyle.isEmpty() ? QStringLiteral("Plain") : fontStatus->fontStyle });
    record.insert(QStringLiteral("fontFoundries"),
        QStringList { fontStatus->fontFoundry.isEmpty() ? QStringLiteral("-") : fontStatus->fontFoundry });
    record.insert(QStringLiteral("fontTypes"), QVariantList { fontStatus->fontType });
    return record;
}

void QVQuarantineStore::addFileToQuarantineDataSource(const QString &quarantineFileName,
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason)
{
    if (!fontStatus->movedToQuarantine)
        return;
    quarantinedFilesDataArray.append(makeRecord(quarantineFileName, fontFile, fontStatus, reason));
    addedRecords.append(quarantinedFilesDataArray.last());
}

QString QVQuarantineStore::moveFileToQuarantine(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason)
{
    if (fontFile->fileMovedToQuarantine || fontStatus->movedToQuarantine)
        return QString();
    if (const QString problem = folderProblem(); !problem.isNull())
        return problem;
    const QString source = fontFile->URL;
    if (QVPackageFiles::isPackageFile(source))
        return QVPackageFiles::refusal(source);
    const Plan plan = m_planned.take(fontStatus.get());
    const bool planned = !plan.destination.isEmpty() && !existsOrLink(plan.destination);
    if (!plan.destination.isEmpty() && !planned) {
        // Its name was taken after all: that intent is void.
        m_lastIntentId = plan.id;
        dropLastIntent();
    }
    const QString destination
        = planned ? plan.destination : quarantineDestination(QFileInfo(source).fileName(), true);
    const QString destinationName = QFileInfo(destination).fileName();

    if (existsOrLink(source)) {
        if (planned)
            m_lastIntentId = plan.id;
        else if (!journalIntent(QStringLiteral("file"), source,
                     makeRecord(destinationName, fontFile, fontStatus, reason)))
            return quarantineError();
        const QVFilePair::Result moved = QVFilePair::move(source, destination);
        QString error;
        if (!moved) {
            if (moved.error == EACCES || moved.error == EPERM) {
                error = authorizedMoveFileToQuarantine(source, destination);
                if (error.isNull() && existsOrLink(source))
                    error = moved.message;
            } else {
                error = moved.message;
            }
        }
        if (!error.isNull()) {
            qCWarning(lcStore, "Error: moveFileToQuarantine %s", qUtf8Printable(error));
            if (!existsOrLink(destination))
                dropLastIntent();
            return error;
        }
        if (movedHook)
            movedHook(destination);
    }

    if (QFileInfo(source).suffix() == QLatin1String("ttc"))
        updateFontMovedStatusForAllFonts(fontFile);
    else
        fontStatus->movedToQuarantine = true;
    updateFileMovedStatus(fontFile, true);
    addFileToQuarantineDataSource(destinationName, fontFile, fontStatus, reason);
    return QString();
}

bool QVQuarantineStore::moveSisterPostScriptFontToQuarantine(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason)
{
    if (fontFile->fontFileType != 0 || fontStatus->fontType != 0 || !dataMgr)
        return false;
    // The scan's files by folder, made once: looking through all of them for
    // each bitmap font would make a resolution quadratic.
    if (m_foldersOf != dataMgr || m_foldersCount != dataMgr->fontFileItems.size()) {
        m_filesByFolder.clear();
        for (const QVFontFilePtr &item : std::as_const(dataMgr->fontFileItems))
            m_filesByFolder[folderOf(item->URL)].append(item);
        m_foldersOf = dataMgr;
        m_foldersCount = dataMgr->fontFileItems.size();
    }
    QList<QPair<QVFontFilePtr, QVStatusPtr>> sisters;
    bool otherUser = false;
    for (const QVFontFilePtr &item : m_filesByFolder.value(folderOf(fontFile->URL))) {
        for (const QVStatusPtr &status : std::as_const(item->fontStatusArray)) {
            if (status->PSname != fontStatus->PSname || item->fontFileType != 0)
                continue;
            if (status->fontType == 1 || status->fontType == 2)
                sisters.append({ item, status });
            else if (status->fontType == 0 && status->index != fontStatus->index && !status->movedToQuarantine
                && !item->fileMovedToQuarantine)
                otherUser = true;
        }
    }
    if (otherUser || sisters.isEmpty())
        return false;
    for (const auto &[file, status] : std::as_const(sisters))
        moveFileToQuarantine(file, status, reason);
    fontStatus->movedSisterToQuarantine = true;
    return true;
}

void QVQuarantineStore::markAsMoved(const QVFontFilePtr &fontFile, int fontSize, const QString &fontStyle)
{
    for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
        if (status->fontSize == fontSize && status->fontStyle == fontStyle) {
            status->movedToQuarantine = true;
            return;
        }
    }
}

void QVQuarantineStore::updateFileMovedStatus(const QVFontFilePtr &fontFile, bool toQuarantine)
{
    for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
        if (toQuarantine ? !status->movedToQuarantine : !status->movedToLibrary)
            return;
    }
    if (toQuarantine)
        fontFile->fileMovedToQuarantine = true;
    else
        fontFile->fileMovedToLibrary = true;
}

void QVQuarantineStore::updateFontMovedStatus(const QVFontFilePtr &fontFile, const QString &psName,
    const QString &fontName, bool allStyles, bool asQuarantine)
{
    for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
        if (status->fontName != fontName || (!allStyles && status->PSname != psName))
            continue;
        if (asQuarantine) {
            status->movedToQuarantine = true;
        } else {
            status->movedToLibrary = true;
            status->copiedToLibrary = true;
        }
    }
}

void QVQuarantineStore::updateFontMovedStatusForAllFonts(const QVFontFilePtr &fontFile)
{
    for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray))
        status->movedToQuarantine = true;
}

QString QVQuarantineStore::quarantineError() const
{
    if (!hasQuarantineIndex)
        return QStringLiteral("The quarantine index %1 cannot be read; nothing is quarantined until it can")
            .arg(indexPath());
    return m_writeError;
}

bool QVQuarantineStore::holdsLock() const
{
    return m_lock && m_lock->isLocked();
}

bool QVQuarantineStore::acquire(int timeoutMs, const std::function<bool(qint64)> &waiting)
{
    if (holdsLock())
        return true;
    m_lockError = 0;
    if (QVDataFolder::ensure().isEmpty()) {
        m_lockError = EACCES;
        return false;
    }
    auto lock = std::make_unique<QVFileLock>(lockPath());
    if (!lock->lock(timeoutMs, waiting)) {
        m_lockError = lock->error();
        return false;
    }
    m_lock = std::move(lock);
    return true;
}

void QVQuarantineStore::unlock()
{
    m_journal.reset();
    m_lock.reset();
    m_runLock = false;
}

QString QVQuarantineStore::lockForRun(int timeoutMs, const std::function<bool(qint64)> &waiting)
{
    if (!holdsLock()) {
        if (!acquire(timeoutMs, waiting)) {
            if (m_lockError != 0)
                return QStringLiteral("Could not lock %1: %2").arg(lockPath(), errnoText(m_lockError));
            const qint64 holder = QVFileLock(lockPath()).holder();
            return QStringLiteral(
                "Another Quorvel run (process %1) is changing the quarantine in %2; try again "
                "when it has finished")
                .arg(holder > 0 ? QString::number(holder) : QStringLiteral("unknown"), QVDataFolder::path());
        }
    }
    m_runLock = true;
    m_writeError.clear();
    syncUnderLock(true);
    return hasQuarantineIndex ? QString() : quarantineError();
}

QVQuarantineStore::IndexState QVQuarantineStore::readIndex(QList<QVariantMap> *records, QByteArray *raw) const
{
    records->clear();
    QFile file(indexPath());
    if (!file.exists())
        return IndexState::Missing;
    QByteArray bytes;
    if (file.open(QIODevice::ReadOnly))
        bytes = file.readAll();
    QString error;
    const QVariant root = QVPropertyList::fromXml(bytes, &error);
    if (toRecords(root, records))
        return IndexState::Good;
    qCWarning(lcStore) << "Error: the quarantine index cannot be read" << indexPath() << error;
    records->clear();
    if (raw)
        *raw = bytes;
    return IndexState::Damaged;
}

QString QVQuarantineStore::setDamagedIndexAside()
{
    // Kept already by an attempt whose rebuilt index could not be written.
    struct stat index;
    if (::stat(QVFileName::encode(indexPath()).constData(), &index) == 0) {
        const QDir folder(quarantineFolderPath());
        for (const QString &name :
            folder.entryList({ kIndexName + QStringLiteral(".damaged-*") }, QDir::Files)) {
            struct stat kept;
            const QString path = folder.filePath(name);
            if (::stat(QVFileName::encode(path).constData(), &kept) == 0 && kept.st_ino == index.st_ino
                && kept.st_dev == index.st_dev)
                return path;
        }
    }
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = indexPath() + QStringLiteral(".damaged-") + stamp;
    for (int i = 1; existsOrLink(aside); ++i)
        aside = indexPath() + QStringLiteral(".damaged-%1-%2").arg(stamp).arg(i);
    // A second name for the same bytes: nothing to write, and the index stays
    // where it is until the rebuilt one replaces it.
    if (::link(QVFileName::encode(indexPath()).constData(), QVFileName::encode(aside).constData()) == 0
        || QFile::copy(indexPath(), aside))
        return aside;
    qCWarning(lcStore) << "Error: could not keep the damaged quarantine index as" << aside;
    return QString();
}

void QVQuarantineStore::syncUnderLock(bool keepChanges)
{
    const QList<QVariantMap> before = m_loaded;
    const QList<QVariantMap> ours = quarantinedFilesDataArray;
    QList<QVariantMap> disk;
    QByteArray raw;
    bool changed = false;
    if (readIndex(&disk, &raw) == IndexState::Damaged) {
        const QString aside = setDamagedIndexAside();
        if (aside.isNull()) {
            hasQuarantineIndex = false;
            return;
        }
        damagedIndexPath = aside;
        toRecords(QVPropertyList::salvageList(raw), &disk);
        qCWarning(lcStore) << "The damaged quarantine index was kept as" << aside << "and rebuilt;"
                           << disk.size() << "records could be read";
        changed = true;
    }
    hasQuarantineIndex = true;
    m_loaded = disk;
    quarantinedFilesDataArray = keepChanges ? replayChanges(disk, before, ours) : disk;
    if (settleEntries(readJournal()))
        changed = true;
    if (recordUnrecordedFiles())
        changed = true;
    if (!changed)
        return;
    // What was settled or repaired is written at once, so that a run that
    // cannot write the index does not start.
    if (const QString error = writeIndex(); !error.isNull()) {
        m_writeError = error;
        return;
    }
    m_loaded = quarantinedFilesDataArray;
}

QString QVQuarantineStore::writeIndex()
{
    getQuarantineFolder();
    const QString error = QVPropertyList::writeFile(indexPath(), toVariantList(quarantinedFilesDataArray));
    if (!error.isNull()) {
        qCWarning(lcStore, "Error: commitQuarantine %s", qUtf8Printable(error));
        return QStringLiteral("Could not write the quarantine index %1: %2").arg(indexPath(), error);
    }
    // Everything the journal held is in the index now; moves recorded ahead
    // and not made are recorded no more.
    m_planned.clear();
    m_plannedDestinations.clear();
    if (!m_journal)
        m_journal = std::make_unique<QVJournalFile>(journalPath());
    if (const int removed = m_journal->remove(); removed != 0)
        qCWarning(lcStore) << "Error: could not empty the quarantine journal" << journalPath()
                           << errnoText(removed);
    return QString();
}

QString QVQuarantineStore::commitQuarantine()
{
    const bool tookLock = !holdsLock();
    if (tookLock) {
        if (!acquire(kChangeLockWaitMs))
            return QStringLiteral(
                "The quarantine is being changed by another run; the index %1 was not written")
                .arg(indexPath());
        syncUnderLock(true);
    }
    QString error;
    if (!hasQuarantineIndex) {
        error = QStringLiteral("The quarantine index %1 cannot be read; it was not overwritten")
                    .arg(indexPath());
    } else {
        error = writeIndex();
        if (error.isNull())
            m_loaded = quarantinedFilesDataArray;
        else
            m_writeError = error;
    }
    if (!m_runLock)
        unlock();
    return error;
}

void QVQuarantineStore::loadQuarantineDataSourceFromDisk()
{
    quarantinedFilesDataArray.clear();
    m_loaded.clear();
    hasQuarantineIndex = true;
    if (holdsLock()) {
        syncUnderLock(false);
        return;
    }
    if (!QVFileSystem::isDirectory(QVDataFolder::path()))
        return;
    // Settling and repairs write; they are left to whoever holds the lock.
    if (acquire(0)) {
        syncUnderLock(false);
        unlock();
        return;
    }
    if (readIndex(&quarantinedFilesDataArray) == IndexState::Damaged)
        hasQuarantineIndex = false;
    m_loaded = quarantinedFilesDataArray;
}

QList<QVariantMap> QVQuarantineStore::readJournal() const
{
    QList<QVariantMap> entries;
    int error = 0;
    const QList<QByteArray> lines = QVJournalFile::readLines(journalPath(), &error);
    if (error)
        qCWarning(lcStore) << "Error: the quarantine journal cannot be read" << journalPath()
                           << errnoText(error);
    QSet<QString> dropped;
    for (const QByteArray &line : lines) {
        const QVariantMap entry = fromJsonLine(line);
        if (entry.value(QStringLiteral("kind")).toString() == QLatin1String("drop"))
            dropped.insert(entry.value(QStringLiteral("id")).toString());
        else if (!entry.isEmpty())
            entries.append(entry);
    }
    // Moves undone before anything changed.
    entries.removeIf([&dropped](const QVariantMap &entry) {
        return dropped.contains(entry.value(QStringLiteral("id")).toString());
    });
    return entries;
}

bool QVQuarantineStore::settleEntries(const QList<QVariantMap> &entries)
{
    const QString folder = quarantineFolderPath();
    int settled = 0;
    int dropped = 0;
    for (const QVariantMap &entry : std::as_const(entries)) {
        const QString kind = entry.value(QStringLiteral("kind")).toString();
        if (kind == QLatin1String("restore") || kind == QLatin1String("remove")) {
            // The file left the quarantine: so do its records.
            const QString name = entry.value(QStringLiteral("quarantineFileName")).toString();
            if (name.isEmpty() || name.contains(QLatin1Char('/'))
                || existsOrLink(folder + QLatin1Char('/') + name))
                continue;
            QList<QVariantMap> gone;
            for (const QVariant &record : entry.value(QStringLiteral("records")).toList())
                gone.append(record.toMap());
            const qsizetype count = quarantinedFilesDataArray.size();
            quarantinedFilesDataArray = withoutRecords(quarantinedFilesDataArray, gone);
            dropped += int(count - quarantinedFilesDataArray.size());
            continue;
        }
        const QVariantMap record = entry.value(QStringLiteral("record")).toMap();
        const QString source = entry.value(QStringLiteral("source")).toString();
        const QString name = record.value(QStringLiteral("quarantineFileName")).toString();
        if (name.isEmpty() || name.contains(QLatin1Char('/')))
            continue;
        const bool known = std::any_of(quarantinedFilesDataArray.cbegin(), quarantinedFilesDataArray.cend(),
            [&record](const QVariantMap &r) { return sameRecord(r, record); });
        if (known)
            continue;
        const QString destination = folder + QLatin1Char('/') + name;
        const bool isFile = kind == QLatin1String("file");
        if (existsOrLink(destination)) {
            // A move cut short between the file and its companions: bring the
            // fork and Finder info after it.
            if (isFile && !existsOrLink(source)) {
                const QStringList from = { QFileInfo(source).absolutePath() + QStringLiteral("/._")
                        + QFileInfo(source).fileName(),
                    QFileInfo(source).absolutePath() + QStringLiteral("/.AppleDouble/")
                        + QFileInfo(source).fileName() };
                const QStringList to = { folder + QStringLiteral("/._") + name,
                    folder + QStringLiteral("/.AppleDouble/") + name };
                for (int i = 0; i < from.size(); ++i) {
                    if (QVFileSystem::isFile(from.at(i)) && !existsOrLink(to.at(i))) {
                        const QVFilePair::Result moved = QVFilePair::move(from.at(i), to.at(i));
                        if (!moved)
                            qCWarning(lcStore) << "Error: could not bring" << from.at(i) << moved.message;
                    }
                }
            }
        } else if (!isFile || existsOrLink(source) || entry.value(QStringLiteral("planned")).toBool()) {
            continue; // nothing moved: the font is where it was (or went elsewhere)
        }
        // Reached the quarantine (or had vanished already): it gets its record.
        quarantinedFilesDataArray.append(record);
        ++settled;
    }
    if (!entries.isEmpty())
        qCInfo(lcStore) << "Settled the quarantine journal:" << settled << "records added," << dropped
                        << "removed, from" << entries.size() << "entries";
    return settled > 0 || dropped > 0 || !entries.isEmpty();
}

bool QVQuarantineStore::recordUnrecordedFiles()
{
    const QString folder = quarantineFolderPath();
    if (!QVFileSystem::isDirectory(folder))
        return false;
    QSet<QString> recorded;
    for (const QVariantMap &record : std::as_const(quarantinedFilesDataArray))
        recorded.insert(record.value(QStringLiteral("quarantineFileName")).toString());
    // The index, its journal and its leftovers, and companions, are not fonts.
    const QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    bool changed = false;
    for (const QString &name : names) {
        // A suitcase a killed run was still building (".NAME.partial"): its
        // font is still in its source.
        if (name.startsWith(QLatin1Char('.')) && !name.startsWith(QLatin1String("._"))
            && name.endsWith(QLatin1String(".partial"))) {
            QVFilePair::remove(folder + QLatin1Char('/') + name);
            continue;
        }
        if (name.startsWith(QLatin1Char('.')) || name.startsWith(kIndexName) || recorded.contains(name))
            continue;
        QVariantMap record;
        const bool hasFork = QVForkStorage::resourceForkPlace(folder + QLatin1Char('/') + name)
            != QVForkStorage::Place::None;
        record.insert(QStringLiteral("fontFileType"), hasFork ? 0 : 1);
        record.insert(QStringLiteral("quarantineFileName"), name);
        record.insert(QStringLiteral("originalFilePath"), QString());
        record.insert(QStringLiteral("fontCount"), 0);
        record.insert(QStringLiteral("reason"), QStringLiteral("· Found in the quarantine without a record"));
        record.insert(QStringLiteral("fontNames"), QStringList { name });
        record.insert(QStringLiteral("fontPSnames"), QStringList { QString() });
        record.insert(QStringLiteral("fontStyles"), QStringList { QStringLiteral("Plain") });
        record.insert(QStringLiteral("fontFoundries"), QStringList { QStringLiteral("-") });
        record.insert(QStringLiteral("fontTypes"), QVariantList { -1 });
        quarantinedFilesDataArray.append(record);
        unrecordedFiles.append(name);
        changed = true;
    }
    return changed;
}

QString QVQuarantineStore::lockForChange()
{
    if (!holdsLock()) {
        if (!acquire(kChangeLockWaitMs)) {
            qCWarning(lcStore) << "Error: the quarantine is being changed by another process" << lockPath();
            return QStringLiteral("The quarantine is being changed by another run (%1)").arg(lockPath());
        }
        // A journal left by a run that died is settled here and stays until
        // our commit, as our own entries do.
        syncUnderLock(true);
    }
    return hasQuarantineIndex ? QString() : quarantineError();
}

QString QVQuarantineStore::appendToJournal(const QList<QVariantMap> &entries, bool intoQuarantine)
{
    if (intoQuarantine && !quarantineError().isNull())
        return quarantineError();
    if (const QString error = lockForChange(); !error.isNull())
        return error;
    getQuarantineFolder();
    if (!m_journal)
        m_journal = std::make_unique<QVJournalFile>(journalPath());
    QList<QByteArray> lines;
    for (const QVariantMap &entry : entries)
        lines << QJsonDocument(QJsonObject::fromVariantMap(entry)).toJson(QJsonDocument::Compact);
    const int error = m_journal->append(lines);
    if (error == 0)
        return QString();
    const QString text = QStringLiteral("Could not write the quarantine journal %1: %2")
                             .arg(journalPath(), errnoText(error));
    qCWarning(lcStore, "Error: %s", qUtf8Printable(text));
    if (intoQuarantine)
        m_writeError = text;
    return text;
}

QVariantMap QVQuarantineStore::intentEntry(
    const QString &kind, const QString &source, const QVariantMap &record)
{
    QVariantMap entry;
    entry.insert(QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces));
    entry.insert(QStringLiteral("kind"), kind);
    entry.insert(QStringLiteral("source"), source);
    entry.insert(QStringLiteral("record"), record);
    return entry;
}

bool QVQuarantineStore::journalIntent(const QString &kind, const QString &source, const QVariantMap &record)
{
    const QVariantMap entry = intentEntry(kind, source, record);
    if (!appendToJournal({ entry }, true).isNull())
        return false;
    m_lastIntentId = entry.value(QStringLiteral("id")).toString();
    return true;
}

void QVQuarantineStore::planMoves(const QList<PlannedMove> &moves)
{
    // Under the lock before any name is chosen: taking it may settle a
    // journal, which clears what was planned.
    if (!quarantineError().isNull() || !lockForChange().isNull())
        return;
    QList<QVariantMap> entries;
    QHash<const QVStatus *, Plan> plans;
    for (const PlannedMove &move : moves) {
        const QString source = move.fontFile->URL;
        if (move.fontFile->fileMovedToQuarantine || move.fontStatus->movedToQuarantine
            || plans.contains(move.fontStatus.get()) || m_planned.contains(move.fontStatus.get())
            || !existsOrLink(source))
            continue;
        // Each gets a name of its own, though none of them has moved yet, and
        // no other move takes it while its intent stands.
        const QString destination = quarantineDestination(QFileInfo(source).fileName(), true);
        m_plannedDestinations.insert(destination);
        QVariantMap entry = intentEntry(QStringLiteral("file"), source,
            makeRecord(QFileInfo(destination).fileName(), move.fontFile, move.fontStatus, move.reason));
        // Recorded ahead: a font whose turn never came is found unmoved.
        entry.insert(QStringLiteral("planned"), true);
        plans.insert(move.fontStatus.get(), { destination, entry.value(QStringLiteral("id")).toString() });
        entries.append(entry);
    }
    if (!entries.isEmpty() && appendToJournal(entries, true).isNull())
        m_planned.insert(plans);
}

QString QVQuarantineStore::journalRemovals(const QString &kind, const QList<Removal> &removals)
{
    QList<QVariantMap> entries;
    for (const Removal &removal : removals) {
        QVariantMap entry;
        entry.insert(QStringLiteral("kind"), kind);
        entry.insert(QStringLiteral("quarantineFileName"), removal.quarantineFileName);
        entry.insert(QStringLiteral("records"), toVariantList(removal.records));
        entries.append(entry);
    }
    return entries.isEmpty() ? QString() : appendToJournal(entries, false);
}

void QVQuarantineStore::dropLastIntent()
{
    // Should this fail, the entry stays; settling finds the move undone. The
    // run stops all the same: its journal can no longer be trusted to be whole.
    if (m_lastIntentId.isEmpty())
        return;
    appendToJournal(
        { { { QStringLiteral("kind"), QStringLiteral("drop") }, { QStringLiteral("id"), m_lastIntentId } } },
        true);
    m_lastIntentId.clear();
}

void QVQuarantineStore::removeRecords(const QList<QVariantMap> &records)
{
    quarantinedFilesDataArray = withoutRecords(quarantinedFilesDataArray, records);
}

void QVQuarantineStore::clearQuarantine()
{
    if (!folderProblem().isNull())
        return;
    const QString folder = quarantineFolderPath();
    for (const QVariantMap &record : std::as_const(quarantinedFilesDataArray)) {
        const QString name = record.value(QStringLiteral("quarantineFileName")).toString();
        // Only files directly inside the quarantine, whatever the index says.
        if (name.isEmpty() || name.contains(QLatin1Char('/')) || name == QLatin1String(".")
            || name == QLatin1String(".."))
            continue;
        const QString path = folder + QLatin1Char('/') + name;
        if (existsOrLink(path))
            QVFilePair::remove(path);
    }
    QFile::remove(indexPath());
    QFile::remove(journalPath());
    m_journal.reset();
}

bool QVQuarantineStore::getAuthorization()
{
    if (!m_authorized)
        m_authorized = QVPrivilegedRunner::shared() != nullptr;
    return m_authorized;
}

QString QVQuarantineStore::authorizedMoveFileToQuarantine(const QString &source, const QString &destination)
{
    if (!getAuthorization())
        return QString::fromLatin1(QVPrivilegedRunner::kNotAuthorized);
    const auto runner = QVPrivilegedRunner::shared();
    // Listed before the file moves: afterwards they can no longer be found.
    const QStringList companions = QVFilePair::companions(source);
    const QStringList companionTargets = QVFilePair::companionDestinations(source, destination);
    // mv carries extended attributes only where the destination can hold
    // them, and says nothing when it cannot: what they hold is read first and
    // written beside the file should it arrive without it.
    using Place = QVForkStorage::Place;
    QByteArray fork;
    QByteArray info;
    Place forkPlace = Place::None;
    Place infoPlace = Place::None;
    if (QVForkStorage::readResourceFork(source, &fork, &forkPlace) != 0
        || forkPlace != Place::ExtendedAttribute)
        fork.clear();
    if (QVForkStorage::readFinderInfo(source, &info, &infoPlace) != 0
        || infoPlace != Place::ExtendedAttribute)
        info.clear();
    // -T: a destination that appeared meanwhile as a link to a folder is
    // replaced, never entered; "--": no path is ever read as an option.
    auto mv = [&runner](const QString &from, const QString &to) {
        return runner->runWithAdministratorRights(QStringLiteral("/bin/mv"),
            { QStringLiteral("-f"), QStringLiteral("-T"), QStringLiteral("--"), from, to });
    };
    if (const QString link = QVForkStorage::linkedCompanion(source); !link.isNull())
        return QVAtomicFile::errorText(link, ELOOP);
    QString error = mv(source, destination);
    if (!error.isNull())
        return error;
    for (int i = 0; i < companions.size(); ++i) {
        const QString folder = QFileInfo(companionTargets.at(i)).absolutePath();
        const int folderError
            = folder == QFileInfo(destination).absolutePath() ? 0 : QVAtomicFile::makeFolder(folder);
        error = folderError ? QVAtomicFile::errorText(folder, folderError)
                            : mv(companions.at(i), companionTargets.at(i));
        if (!error.isNull()) {
            // Never leave the font apart from its fork: put everything back.
            for (int j = i - 1; j >= 0; --j)
                mv(companionTargets.at(j), companions.at(j));
            mv(destination, source);
            return error;
        }
    }
    if (existsOrLink(destination)) {
        if (!fork.isEmpty() && QVForkStorage::resourceForkPlace(destination) == Place::None
            && QVForkStorage::writeResourceFork(destination, fork, Place::AppleDouble) != 0)
            qCWarning(lcStore) << "Error: could not keep the resource fork of" << destination;
        // A sidecar just written for the fork holds an empty Finder info.
        QByteArray arrived;
        QVForkStorage::readFinderInfo(destination, &arrived);
        if (!info.isEmpty() && arrived.count('\0') == arrived.size()
            && QVForkStorage::writeFinderInfo(destination, info, Place::AppleDouble) != 0)
            qCWarning(lcStore) << "Error: could not keep the Finder info of" << destination;
    }
    return QString();
}

QString QVQuarantineStore::authorizedDeleteFile(const QString &path)
{
    if (!getAuthorization())
        return QString::fromLatin1(QVPrivilegedRunner::kNotAuthorized);
    if (const QString link = QVForkStorage::linkedCompanion(path); !link.isNull())
        return QVAtomicFile::errorText(link, ELOOP);
    // Files only (no -r), and no path taken for an option.
    QStringList arguments { QStringLiteral("-f"), QStringLiteral("--"), path };
    arguments << QVFilePair::companions(path);
    return QVPrivilegedRunner::shared()->runWithAdministratorRights(QStringLiteral("/bin/rm"), arguments);
}
