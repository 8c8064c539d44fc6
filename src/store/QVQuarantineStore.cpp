#include "store/QVQuarantineStore.h"

#include "engine/QVFontDataManager.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "platform/QVPackageFiles.h"
#include "platform/QVPrivilegedRunner.h"
#include "settings/QVDataFolder.h"
#include "settings/QVLog.h"
#include "store/QVPropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <algorithm>
#include <cerrno>

namespace
{

const QString kIndexName = QStringLiteral("dataSource");
const QString kJournalName = QStringLiteral("dataSource.journal");

bool existsOrLink(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
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
    return a.value(QStringLiteral("quarantineFileName")) == b.value(QStringLiteral("quarantineFileName"))
        && a.value(QStringLiteral("originalFilePath")) == b.value(QStringLiteral("originalFilePath"))
        && a.value(QStringLiteral("fontNames")) == b.value(QStringLiteral("fontNames"));
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

QString QVQuarantineStore::journalLockPath() const
{
    return journalPath() + QStringLiteral(".lock");
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

QString QVQuarantineStore::uniqueDestination(const QString &folder, const QString &name, bool keepExtension)
{
    auto taken = [](const QString &path) {
        if (existsOrLink(path))
            return true;
        // A leftover sidecar would make the move refuse the name.
        const QFileInfo info(path);
        return existsOrLink(info.absolutePath() + QStringLiteral("/._") + info.fileName())
            || existsOrLink(info.absolutePath() + QStringLiteral("/.AppleDouble/") + info.fileName());
    };
    QString destination = QStringLiteral("%1/%2").arg(folder, name);
    if (!taken(destination))
        return destination;
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = keepExtension && dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot + 1) : QString();
    for (int i = 1;; ++i) {
        // Joined, never formatted: a "%1" in a font's name stays as it is.
        destination = folder + QLatin1Char('/') + base + QLatin1Char(' ') + QString::number(i)
            + (hasExtension ? QLatin1Char('.') + extension : QString());
        if (!taken(destination))
            return destination;
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
    const QString folder = getQuarantineFolder().toLocalFile().chopped(1);
    const QString destination = uniqueDestination(folder, QFileInfo(source).fileName(), true);
    const QString destinationName = QFileInfo(destination).fileName();

    if (existsOrLink(source)) {
        if (!journalIntent(
                QStringLiteral("file"), source, makeRecord(destinationName, fontFile, fontStatus, reason)))
            return QStringLiteral("Could not write the quarantine journal in %1").arg(folder);
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
    const QString folder = folderOf(fontFile->URL);
    QList<QPair<QVFontFilePtr, QVStatusPtr>> sisters;
    bool otherUser = false;
    for (const QVFontFilePtr &item : std::as_const(dataMgr->fontFileItems)) {
        if (folderOf(item->URL) != folder)
            continue;
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

QString QVQuarantineStore::commitQuarantine()
{
    if (!hasQuarantineIndex)
        return QStringLiteral("The quarantine index %1 cannot be read; it was not overwritten")
            .arg(indexPath());
    getQuarantineFolder();
    const QString error = QVPropertyList::writeFile(indexPath(), toVariantList(quarantinedFilesDataArray));
    if (!error.isNull()) {
        qCWarning(lcStore, "Error: commitQuarantine %s", qUtf8Printable(error));
        return error;
    }
    m_journal.clear();
    if (QFile::exists(journalPath()) && !QFile::remove(journalPath())) {
        // Kept locked: the entries stay ours to settle.
        qCWarning(lcStore) << "Error: could not empty the quarantine journal" << journalPath();
        return QString();
    }
    m_journalLock.reset();
    return QString();
}

void QVQuarantineStore::loadQuarantineDataSourceFromDisk()
{
    quarantinedFilesDataArray.clear();
    hasQuarantineIndex = true;
    if (QFile::exists(indexPath())) {
        QString error;
        const QVariant root = QVPropertyList::readFile(indexPath(), &error);
        if (!toRecords(root, &quarantinedFilesDataArray)) {
            qCWarning(lcStore) << "Error: the quarantine index cannot be read" << indexPath() << error;
            quarantinedFilesDataArray.clear();
            hasQuarantineIndex = false;
            return;
        }
    }
    settleJournal();
}

void QVQuarantineStore::settleJournal()
{
    if (!QFile::exists(journalPath()))
        return;
    // A live process still working on its journal: leave it to that process.
    // The lock of a process that died is stale and taken over here.
    QLockFile lock(journalLockPath());
    if (!lock.tryLock(0))
        return;
    QList<QVariantMap> entries;
    if (!toRecords(QVPropertyList::readFile(journalPath()), &entries)) {
        // Kept for a person to read; nothing here is lost by leaving it.
        qCWarning(lcStore) << "Error: the quarantine journal cannot be read" << journalPath();
        return;
    }
    const int settled = settleEntries(entries);
    qCInfo(lcStore) << "Settled the quarantine journal:" << settled << "of" << entries.size()
                    << "entries recorded";
    commitQuarantine();
}

int QVQuarantineStore::settleEntries(const QList<QVariantMap> &entries)
{
    const QString folder = quarantineFolderPath();
    int settled = 0;
    for (const QVariantMap &entry : std::as_const(entries)) {
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
        const bool isFile = entry.value(QStringLiteral("kind")).toString() == QLatin1String("file");
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
        } else if (!isFile || existsOrLink(source)) {
            continue; // nothing moved: the font is where it was
        }
        // Reached the quarantine (or had vanished already): it gets its record.
        quarantinedFilesDataArray.append(record);
        ++settled;
    }
    return settled;
}

bool QVQuarantineStore::writeJournal()
{
    getQuarantineFolder();
    QVariantList list;
    for (const QVariantMap &entry : std::as_const(m_journal))
        list.append(entry);
    const QString error = QVPropertyList::writeFile(journalPath(), list);
    if (!error.isNull())
        qCWarning(lcStore) << "Error: could not write the quarantine journal" << error;
    return error.isNull();
}

bool QVQuarantineStore::journalIntent(const QString &kind, const QString &source, const QVariantMap &record)
{
    if (!m_journalLock) {
        getQuarantineFolder();
        auto lock = std::make_unique<QLockFile>(journalLockPath());
        // Another process resolving at the same moment: wait for its commit.
        if (!lock->tryLock(10000)) {
            qCWarning(lcStore) << "Error: the quarantine is being changed by another process"
                               << journalLockPath();
            return false;
        }
        m_journalLock = std::move(lock);
        // A journal left by a run that died while this store was open: its
        // entries are settled here and stay journalled until our commit.
        QList<QVariantMap> leftovers;
        if (m_journal.isEmpty() && QFile::exists(journalPath())
            && toRecords(QVPropertyList::readFile(journalPath()), &leftovers)) {
            settleEntries(leftovers);
            m_journal = leftovers;
        }
    }
    QVariantMap entry;
    entry.insert(QStringLiteral("kind"), kind);
    entry.insert(QStringLiteral("source"), source);
    entry.insert(QStringLiteral("record"), record);
    m_journal.append(entry);
    if (writeJournal())
        return true;
    m_journal.removeLast();
    return false;
}

void QVQuarantineStore::dropLastIntent()
{
    if (m_journal.isEmpty())
        return;
    m_journal.removeLast();
    writeJournal();
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
    m_journal.clear();
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
