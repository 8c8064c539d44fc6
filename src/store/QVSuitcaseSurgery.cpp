#include "store/QVSuitcaseSurgery.h"

#include "engine/QVFontLayouts.h"
#include "engine/QVResourceManager.h"
#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "platform/QVFileTimes.h"
#include "platform/QVForkStorage.h"
#include "platform/QVPackageFiles.h"
#include "settings/QVLog.h"
#include "store/QVQuarantineStore.h"

#include <QFileInfo>
#include <cerrno>
#include <cstring>

namespace
{

constexpr quint32 kFOND = qvFourCC("FOND");
constexpr quint32 kNFNT = qvFourCC("NFNT");
constexpr quint32 kFONT = qvFourCC("FONT");
constexpr quint32 kSfnt = qvFourCC("sfnt");
constexpr quint32 kCreator = qvFourCC("DMOV");
constexpr quint32 kSuitcaseType = qvFourCC("FFIL");

using namespace QVFontLayouts;

// One association entry of a family record. Entries are read only where the
// record holds them; a read past its end gives zeros.
struct FONDEntry {
    qint16 size = 0;
    qint16 style = 0;
    qint16 id = 0;
};

FONDEntry entryAt(const QVResourceHandle &fond, int index)
{
    QVByteReader in = QVByteReader(fond->data).at(FOND::entry(index));
    const auto size = in.i16();
    const auto style = in.i16();
    const auto id = in.i16();
    return { size.value_or(0), style.value_or(0), id.value_or(0) };
}

// The stored number of entries minus one; 0 when the record is too short.
qint32 storedCount(const QVResourceHandle &fond)
{
    return QVByteReader(fond->data).at(FOND::kEntryCount).i16().value_or(0);
}

// Moves the positive table offsets of a family record by delta, as entries
// are inserted or removed before the tables.
void shiftTableOffsets(const QVResourceHandle &fond, qint32 delta)
{
    for (const qint64 offset : { FOND::kWidthTable, FOND::kKerningTable, FOND::kStyleTable }) {
        const qint32 value = QVByteReader(fond->data).at(offset).i32().value_or(0);
        if (value > 0)
            QVByteWriter(fond->data).setU32(offset, quint32(qint64(value) + delta));
    }
}

// Holds the handle locked while it is read, as byte readers expect.
class HandleLock
{
public:
    explicit HandleLock(const QVResourceHandle &h)
        : m_h(h)
    {
        if (m_h)
            ++m_h->lockCount;
    }
    ~HandleLock()
    {
        if (m_h && m_h->lockCount > 0)
            --m_h->lockCount;
    }
    HandleLock(const HandleLock &) = delete;
    HandleLock &operator=(const HandleLock &) = delete;

private:
    QVResourceHandle m_h;
};

// Restores the current resource file when an operation ends.
class CurrentFileRestorer
{
public:
    CurrentFileRestorer()
        : m_saved(QVResourceManager::curResFile())
    {
    }
    ~CurrentFileRestorer()
    {
        if (QVResourceManager::openFiles().contains(m_saved))
            QVResourceManager::useResFile(m_saved);
    }
    CurrentFileRestorer(const CurrentFileRestorer &) = delete;
    CurrentFileRestorer &operator=(const CurrentFileRestorer &) = delete;

private:
    qint16 m_saved;
};

bool permissionRefused(int error)
{
    return error == EACCES || error == EPERM;
}

} // namespace

QVSuitcaseSurgery::QVSuitcaseSurgery(QVQuarantineStore *store)
    : m_store(store)
{
}

QString QVSuitcaseSurgery::resourceErrorText(qint16 code) const
{
    return QStringLiteral("File Resource Error (%1)").arg(QVResouceFork::errorMessageForCode(code));
}

int QVSuitcaseSurgery::entryCount(const QVResourceHandle &fond)
{
    if (!fond)
        return 0;
    const qint32 countMinusOne = storedCount(fond);
    // Below -1 is a damaged count: no entries, so no loop can run away on it.
    if (countMinusOne < 0)
        return 0;
    const qint64 fitting = (fond->data.size() - FOND::kFirstEntry) / FOND::kEntrySize;
    return int(qMin<qint64>(countMinusOne + 1, qMax<qint64>(fitting, 0)));
}

QString QVSuitcaseSurgery::partialSuitcasePath(const QString &destination)
{
    const QFileInfo info(destination);
    return info.absolutePath() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".partial");
}

QString QVSuitcaseSurgery::fileNameForFamily(const QString &name)
{
    QString result;
    result.reserve(name.size());
    for (const QChar c : name) {
        if (c == QLatin1Char('/'))
            result.append(QLatin1Char(':'));
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            result.append(QLatin1Char('_'));
        else
            result.append(c);
    }
    if (result.startsWith(QLatin1Char('.')))
        result[0] = QLatin1Char('_');
    // Leaves room for a collision number within the usual 255-byte limit.
    while (result.toUtf8().size() > 240) {
        result.chop(1);
        if (!result.isEmpty() && result.back().isHighSurrogate())
            result.chop(1);
    }
    if (result.isEmpty())
        result = QStringLiteral("Untitled Font");
    return result;
}

QVResourceHandle QVSuitcaseSurgery::memberResource(qint16 ref, qint32 size, qint16 id)
{
    if (size < 1)
        return m_fork.getResourceOfID(id, kSfnt, ref);
    QVResourceHandle strike = m_fork.getResourceOfID(id, kNFNT, ref);
    if (!strike)
        strike = m_fork.getResourceOfID(id, kFONT, ref);
    return strike;
}

QString QVSuitcaseSurgery::checkRestoreIntoSuitcase(
    const QString &quarantinedPath, const QString &suitcasePath)
{
    std::lock_guard guard(QVResouceFork::lock());
    CurrentFileRestorer restorer;
    // What the merge itself refuses (no family, no suitcase) it reports itself.
    const qint16 quarantineRef = m_fork.openResourceFile(QVPermission::Read, quarantinedPath);
    if (quarantineRef < 1)
        return QString();
    QVResourceHandle fond;
    const int count = m_fork.countResourceTypes(quarantineRef, kFOND);
    for (int i = 1; i <= count && !fond && m_fork.resourceError() == 0; ++i) {
        QVResourceHandle candidate = m_fork.getIndexResource(quarantineRef, kFOND, i);
        if (candidate && m_fork.resourceError() == 0 && candidate->data.size() >= kMinimumFONDSize)
            fond = candidate;
    }
    if (!fond || !m_fork.hasResourceFork(suitcasePath)) {
        m_fork.closeResourceFile(quarantineRef);
        return QString();
    }
    const qint16 suitcaseRef = m_fork.openResourceFile(QVPermission::Read, suitcasePath);
    if (suitcaseRef < 1) {
        m_fork.closeResourceFile(quarantineRef);
        return QString();
    }
    const QString familyName = m_fork.getResourceInfo(fond).value(QStringLiteral("name")).toString();
    QVResourceHandle existing = m_fork.getNamedResource(familyName, kFOND, suitcaseRef);
    if (existing && existing->data.size() < kMinimumFONDSize)
        existing.reset();
    QString problem;
    const int entries = entryCount(fond);
    for (int j = 0; j < entries && problem.isNull(); ++j) {
        const auto [size, style, id] = entryAt(fond, j);
        const QVResourceHandle held = memberResource(quarantineRef, size, id);
        if (!held)
            continue; // nothing of this member in the quarantine to lose
        // The entry the family record will list for this size and style.
        qint16 listedID = id;
        const int present = existing ? entryCount(existing) : 0;
        for (int k = 0; k < present; ++k) {
            const FONDEntry other = entryAt(existing, k);
            if (other.size == size && other.style == style) {
                listedID = other.id;
                break;
            }
        }
        const QVResourceHandle there = memberResource(suitcaseRef, size, listedID);
        // The member must be there as it is, or arrive: under its own ID when
        // the family record is to list it there and that ID is free.
        if (there ? there->data != held->data : listedID != id)
            problem = QStringLiteral("The suitcase \"%1\" does not hold the %2 of \"%3\" (size %4, style %5, "
                                     "ID %6); the quarantined copy is kept")
                          .arg(suitcasePath, size < 1 ? QStringLiteral("outline") : QStringLiteral("strike"),
                              familyName, QString::number(size), QString::number(style), QString::number(id));
    }
    m_fork.closeResourceFile(suitcaseRef);
    m_fork.closeResourceFile(quarantineRef);
    return problem;
}

QString QVSuitcaseSurgery::entryPostScriptName(const QVResourceHandle &fond, int index)
{
    return m_fork.getBitmapPSname(fond, entryAt(fond, index).style);
}

QString QVSuitcaseSurgery::moveFontFromSuitcaseToQuarantine(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason)
{
    if (fontStatus->movedToQuarantine || fontFile->fileMovedToQuarantine)
        return QString();
    if (const QString problem = m_store->folderProblem(); !problem.isNull())
        return problem;
    const QString destination
        = m_store->quarantineDestination(fileNameForFamily(fontStatus->fontName), false);
    return takeFontOut(fontFile, fontStatus, reason, destination, Target::Quarantine);
}

QString QVSuitcaseSurgery::moveFontFromSuitcaseToFolder(const QVFontFilePtr &fontFile,
    const QVStatusPtr &fontStatus, const QString &folder, const QString &name, bool copyOnly)
{
    if (fontStatus->movedToQuarantine || fontFile->fileMovedToQuarantine || fontStatus->movedToLibrary
        || fontFile->fileMovedToLibrary)
        return QString();
    const QString destination = QVQuarantineStore::uniqueDestination(folder, name, false);
    return takeFontOut(
        fontFile, fontStatus, QString(), destination, copyOnly ? Target::FolderCopyOnly : Target::Folder);
}

QString QVSuitcaseSurgery::takeFontOut(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus,
    const QString &reason, const QString &destination, Target target)
{
    std::lock_guard guard(QVResouceFork::lock());
    CurrentFileRestorer restorer;
    const bool toQuarantine = target == Target::Quarantine;
    const QString path = fontStatus->fontURL.isEmpty() ? fontFile->URL : fontStatus->fontURL;
    if (target != Target::FolderCopyOnly && QVPackageFiles::isPackageFile(path))
        return QVPackageFiles::refusal(path);
    const QString destinationName = QFileInfo(destination).fileName();
    const QDateTime created = QVForkStorage::creationDate(path);
    // Taking a font out makes no font newer: the source keeps its times, and
    // the new suitcase gets them and the source's Finder info.
    const QVFileTimes times = QVFileTimes::read(path);
    QByteArray finderInfo;
    QVForkStorage::readFinderInfo(path, &finderInfo);
    const bool isTrueType = fontStatus->fontSize == 0;

    auto finish = [&]() {
        if (toQuarantine)
            m_store->addFileToQuarantineDataSource(destinationName, fontFile, fontStatus, reason);
        return QString();
    };

    qint16 ref = m_fork.openResourceFile(QVPermission::Read, path);
    if (ref < 1)
        return resourceErrorText(ref == 0 ? QVResourceError::BadFileName : m_fork.resourceError());
    const int count = m_fork.countResourceTypes(ref, kFOND);
    if (m_fork.resourceError() != 0) {
        m_fork.closeResourceFile(ref);
        return finish();
    }

    if (count == 0) {
        // No family record: the file goes whole.
        m_fork.closeResourceFile(ref);
        if (target == Target::FolderCopyOnly)
            return QString();
        if (toQuarantine
            && !m_store->journalIntent(QStringLiteral("file"), path,
                QVQuarantineStore::makeRecord(destinationName, fontFile, fontStatus, reason)))
            return m_store->quarantineError();
        const QVFilePair::Result moved = QVFilePair::move(path, destination);
        QString error = moved ? QString() : moved.message;
        // Refused for lack of rights: moved with administrator rights instead
        // (never deleted: the file may hold data we do not read).
        if (!moved && toQuarantine && permissionRefused(moved.error)) {
            error = m_store->authorizedMoveFileToQuarantine(path, destination);
            if (error.isNull() && QVFileSystem::exists(path))
                error = moved.message;
        }
        if (!error.isNull()) {
            qCWarning(lcStore, "Error moving font file: %s", qUtf8Printable(error));
            if (toQuarantine && !QVFileSystem::exists(destination))
                m_store->dropLastIntent();
            return QStringLiteral("File Resource Error (%1)").arg(error);
        }
        if (toQuarantine) {
            fontStatus->movedToQuarantine = true;
            if (m_store->movedHook)
                m_store->movedHook(destination);
        } else {
            fontStatus->movedToLibrary = true;
            fontStatus->copiedToLibrary = true;
        }
        QVQuarantineStore::updateFileMovedStatus(fontFile, toQuarantine);
        return finish();
    }

    // Copy phase: a new suitcase holding the family record cut down to the font.
    bool copied = false;
    QString copyError;
    for (int i = 1; i <= count && !copied; ++i) {
        const QVResourceHandle fond = m_fork.getIndexResource(ref, kFOND, i);
        if (!fond || m_fork.resourceError() != 0 || fond->data.size() < kMinimumFONDSize)
            continue;
        HandleLock locked(fond);
        const QVariantMap info = m_fork.getResourceInfo(fond);
        const QString familyName = info.value(QStringLiteral("name")).toString();
        if (familyName != fontStatus->fontName)
            continue;
        const int entries = entryCount(fond);
        for (int j = 0; j < entries; ++j) {
            const QString psName = entryPostScriptName(fond, j);
            if (psName != fontStatus->PSname)
                continue;
            if (toQuarantine
                && !m_store->journalIntent(QStringLiteral("suitcase"), path,
                    QVQuarantineStore::makeRecord(destinationName, fontFile, fontStatus, reason))) {
                m_fork.closeResourceFile(ref);
                return m_store->quarantineError();
            }
            // Built under a hidden name and renamed when whole, so that
            // nothing half made ever stands under the name recorded for it.
            const QString building = partialSuitcasePath(destination);
            if (QVFileSystem::exists(building))
                QVFilePair::remove(building);
            qint16 error = m_fork.createNewResourceFileAtPath(building, kCreator, kSuitcaseType);
            const qint16 newRef
                = error == 0 ? m_fork.openResourceFile(QVPermission::ReadWrite, building) : -1;
            if (newRef < 1) {
                qCWarning(lcStore, "Error: could not create the suitcase %s (%d)",
                    qUtf8Printable(destination), error ? error : m_fork.resourceError());
                if (QVFileSystem::exists(building))
                    QVFilePair::remove(building);
                if (toQuarantine)
                    m_store->dropLastIntent();
                continue;
            }
            m_fork.useResourceFile(newRef);
            // A copy, so the source suitcase keeps its own record untouched.
            const QVResourceHandle family = newHandleFromBytes(fond->data);
            error = addCopy(fond, family, kFOND);
            if (error == 0) {
                removeFONDAssocTables(family, psName, isTrueType, fontFile);
                // No member of the font's kind under that name: the record went
                // whole and the new suitcase would hold nothing of the font.
                if (family->data.isEmpty())
                    error = QVResourceError::ResNotFound;
                else
                    addFONDAssociatedResources(family, ref, newRef);
            }
            m_fork.useResourceFile(ref);
            m_fork.closeResourceFile(newRef);
            if (error == 0)
                error = m_fork.resourceError();
            if (error == 0)
                error = QVForkStorage::setCreationDate(building, created);
            if (error == 0 && finderInfo.count('\0') != finderInfo.size())
                error = QVForkStorage::writeFinderInfo(building, finderInfo);
            if (error == 0)
                times.apply(building);
            if (error == 0 && !QVFilePair::move(building, destination))
                error = QVResourceError::IoErr;
            if (error != 0) {
                qCWarning(lcStore, "Error: could not write the suitcase %s (%d)", qUtf8Printable(destination),
                    error);
                QVFilePair::remove(building);
                if (toQuarantine)
                    m_store->dropLastIntent();
                copyError = resourceErrorText(error);
                continue;
            }
            if (toQuarantine) {
                fontStatus->movedToQuarantine = true;
                if (m_store->movedHook)
                    m_store->movedHook(destination);
            }
            copied = true;
            break;
        }
    }
    m_fork.closeResourceFile(ref);

    // Removal phase, only once the font is safe in its new suitcase.
    if (!copied && !copyError.isNull())
        return copyError;
    if (!copied || target == Target::FolderCopyOnly)
        return finish();
    ref = m_fork.openResourceFile(QVPermission::ReadWrite, path);
    if (ref < 1) {
        const qint16 error = ref == 0 ? QVResourceError::BadFileName : m_fork.resourceError();
        // The source is as it was: take the copy back rather than hold the font twice.
        QVFilePair::remove(destination);
        if (toQuarantine) {
            m_store->dropLastIntent();
            fontStatus->movedToQuarantine = false;
        }
        return resourceErrorText(error);
    }
    const int families = m_fork.countResourceTypes(ref, kFOND);
    bool removed = false;
    for (int i = 1; i <= families && !removed; ++i) {
        const QVResourceHandle fond = m_fork.getIndexResource(ref, kFOND, i);
        if (!fond || m_fork.resourceError() != 0 || fond->data.size() < kMinimumFONDSize)
            continue;
        const QString familyName = m_fork.getResourceInfo(fond).value(QStringLiteral("name")).toString();
        if (familyName != fontStatus->fontName)
            continue;
        const int entries = entryCount(fond);
        for (int j = 0; j < entries; ++j) {
            const QString psName = entryPostScriptName(fond, j);
            if (psName != fontStatus->PSname)
                continue;
            const bool familyGone = removeFONDAssocTables(fond, psName, isTrueType) == -1;
            const int left = m_fork.countResourceTypes(ref, kFOND);
            m_fork.closeResourceFile(ref);
            const qint16 closeError = m_fork.resourceError();
            if (!familyGone)
                m_fork.releaseResource(fond);
            removed = true;
            if (closeError != 0) {
                // The source could not be rewritten and still holds the font:
                // take the copy back, so nothing counts as moved that did not move.
                const QString text = resourceErrorText(closeError);
                qCWarning(lcStore, "Error moving font file: %s", qUtf8Printable(text));
                QVFilePair::remove(destination);
                if (toQuarantine) {
                    m_store->dropLastIntent();
                    fontStatus->movedToQuarantine = false;
                }
                return text;
            }
            if (left > 0)
                times.apply(path);
            // The marking goes by name; members of the other kind (an outline
            // beside bitmaps of the same name) are still in the suitcase.
            QList<QVStatusPtr> otherKind;
            for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
                const bool marked = toQuarantine ? status->movedToQuarantine : status->movedToLibrary;
                if (!familyGone && !marked && (status->fontSize == 0) != isTrueType)
                    otherKind.append(status);
            }
            QVQuarantineStore::updateFontMovedStatus(
                fontFile, psName, fontStatus->fontName, familyGone, toQuarantine);
            for (const QVStatusPtr &status : std::as_const(otherKind)) {
                if (toQuarantine) {
                    status->movedToQuarantine = false;
                } else {
                    status->movedToLibrary = false;
                    status->copiedToLibrary = false;
                }
            }
            if (left == 0) {
                QString error;
                const QVFilePair::Result deleted = QVFilePair::remove(path);
                if (!deleted)
                    error = permissionRefused(deleted.error) ? m_store->authorizedDeleteFile(path)
                                                             : deleted.message;
                if (!error.isNull())
                    (toQuarantine ? fontStatus->movedToQuarantineErrorInfo
                                  : fontStatus->movedToLibraryErrorInfo)
                        = error;
                else
                    QVQuarantineStore::updateFileMovedStatus(fontFile, toQuarantine);
            }
            break;
        }
    }
    if (!removed)
        m_fork.closeResourceFile(ref);
    return finish();
}

QString QVSuitcaseSurgery::moveFontFromQuarantineToSuitcase(
    const QString &quarantinedPath, const QString &suitcasePath)
{
    std::lock_guard guard(QVResouceFork::lock());
    CurrentFileRestorer restorer;
    const QDateTime created = QVForkStorage::creationDate(quarantinedPath);
    const qint16 quarantineRef = m_fork.openResourceFile(QVPermission::Read, quarantinedPath);
    if (quarantineRef < 1)
        return resourceErrorText(quarantineRef == 0 ? QVResourceError::BadFileName : m_fork.resourceError());
    const int count = m_fork.countResourceTypes(quarantineRef, kFOND);
    if (m_fork.resourceError() != 0) {
        m_fork.closeResourceFile(quarantineRef);
        return QString();
    }
    QVResourceHandle fond;
    for (int i = 1; i <= count && !fond; ++i) {
        QVResourceHandle candidate = m_fork.getIndexResource(quarantineRef, kFOND, i);
        if (candidate && m_fork.resourceError() == 0 && candidate->data.size() >= kMinimumFONDSize)
            fond = candidate;
    }
    if (!fond) {
        m_fork.closeResourceFile(quarantineRef);
        return resourceErrorText(QVResourceError::ResNotFound);
    }
    HandleLock locked(fond);
    const QVariantMap info = m_fork.getResourceInfo(fond);
    const QString familyName = info.value(QStringLiteral("name")).toString();
    // Only into a file that is a resource file already: opening for writing
    // would give any other file a new, empty fork.
    if (!m_fork.hasResourceFork(suitcasePath)) {
        const qint16 error = QVResourceManager::resError();
        m_fork.closeResourceFile(quarantineRef);
        return resourceErrorText(error ? error : QVResourceError::ResFileNotFound);
    }
    const qint16 suitcaseRef = m_fork.openResourceFile(QVPermission::ReadWrite, suitcasePath);
    if (suitcaseRef < 1) {
        const qint16 error = suitcaseRef == 0 ? QVResourceError::BadFileName : m_fork.resourceError();
        m_fork.closeResourceFile(quarantineRef);
        return resourceErrorText(error);
    }
    const QVFileTimes times = QVFileTimes::read(suitcasePath);
    m_fork.useResourceFile(suitcaseRef);
    const QVResourceHandle existing = m_fork.getNamedResource(familyName, kFOND, suitcaseRef);
    // The family record lists the font again, and the suitcase gets its strike
    // or outline unless it holds it already: a family record never lists a
    // font its suitcase lacks.
    if (existing && existing->data.size() >= kMinimumFONDSize) {
        addAssocTables(fond, existing);
        addFONDAssociatedResources(fond, quarantineRef, suitcaseRef);
    } else {
        m_fork.useResourceFile(suitcaseRef);
        const QVResourceHandle family = newHandleFromBytes(fond->data);
        if (addCopy(fond, family, kFOND) == 0)
            addFONDAssociatedResources(fond, quarantineRef, suitcaseRef);
    }
    m_fork.useResourceFile(quarantineRef);
    m_fork.closeResourceFile(suitcaseRef);
    const qint16 error = m_fork.resourceError();
    m_fork.closeResourceFile(quarantineRef);
    if (error != 0)
        return resourceErrorText(error);
    // Putting a font back makes the suitcase no newer than it was.
    if (const qint16 dated = QVForkStorage::setCreationDate(suitcasePath, created); dated != 0)
        return resourceErrorText(dated);
    times.apply(suitcasePath);
    return QString();
}

qint16 QVSuitcaseSurgery::removeSuitcaseFontFromQuarantine(
    const QString &path, const QString &postScriptName, bool isTrueType)
{
    std::lock_guard guard(QVResouceFork::lock());
    CurrentFileRestorer restorer;
    if (!m_fork.hasResourceFork(path))
        return 0;
    const qint16 ref = m_fork.openResourceFile(QVPermission::ReadWrite, path);
    if (ref < 1)
        return 0;
    const int count = m_fork.countResourceTypes(ref, kFOND);
    for (int i = 1; i <= count; ++i) {
        const QVResourceHandle fond = m_fork.getIndexResource(ref, kFOND, i);
        if (!fond || m_fork.resourceError() != 0 || fond->data.size() < kMinimumFONDSize)
            continue;
        const int entries = entryCount(fond);
        for (int j = 0; j < entries; ++j) {
            if (entryPostScriptName(fond, j) != postScriptName)
                continue;
            const bool familyGone = removeFONDAssocTables(fond, postScriptName, isTrueType) == -1;
            const int left = m_fork.countResourceTypes(ref, kFOND);
            m_fork.closeResourceFile(ref);
            const qint16 error = m_fork.resourceError();
            if (!familyGone)
                m_fork.releaseResource(fond);
            if (left == 0 && error == 0)
                QVFilePair::remove(path);
            return error;
        }
    }
    m_fork.closeResourceFile(ref);
    return 0;
}

void QVSuitcaseSurgery::addFONDAssociatedResources(const QVResourceHandle &fond, qint16 fromRes, qint16 toRes)
{
    std::lock_guard guard(QVResouceFork::lock());
    m_fork.useResourceFile(fromRes);
    const int entries = entryCount(fond);
    for (int j = 0; j < entries; ++j) {
        const FONDEntry entry = entryAt(fond, j);
        const qint16 id = entry.id;
        if (entry.size < 1) {
            const QVResourceHandle outline = m_fork.getResourceOfID(id, kSfnt, fromRes);
            if (outline) {
                m_fork.useResourceFile(toRes);
                if (!m_fork.getResourceOfID(id, kSfnt, toRes))
                    addCopy(outline, newHandleFromBytes(outline->data), kSfnt);
            }
        } else {
            QVResourceHandle strike = m_fork.getResourceOfID(id, kNFNT, fromRes);
            quint32 type = kNFNT;
            if (!strike) {
                strike = m_fork.getResourceOfID(id, kFONT, fromRes);
                type = kFONT;
            }
            if (!strike)
                continue;
            m_fork.useResourceFile(toRes);
            // A strike keeps its type (an old FONT stays a FONT), so that a
            // suitcase taken apart and put together again is the one it was.
            if (!m_fork.getResourceOfID(id, kNFNT, toRes) && !m_fork.getResourceOfID(id, kFONT, toRes))
                addCopy(strike, newHandleFromBytes(strike->data), type);
        }
        m_fork.useResourceFile(fromRes);
    }
}

qint16 QVSuitcaseSurgery::addCopy(const QVResourceHandle &source, const QVResourceHandle &copy, quint32 type)
{
    std::lock_guard guard(QVResouceFork::lock());
    copy->attributes = source->attributes;
    if (QVResourceManager::addResource(copy, type, source->id, source->name, source->hasName) == 0)
        QVResourceManager::writeResource(copy);
    return QVResourceManager::resError();
}

void QVSuitcaseSurgery::addAssocTables(const QVResourceHandle &source, const QVResourceHandle &destination)
{
    std::lock_guard guard(QVResouceFork::lock());
    if (!source || !destination)
        return;
    const int sourceEntries = entryCount(source);
    for (int j = 0; j < sourceEntries; ++j) {
        const FONDEntry entry = entryAt(source, j);
        const qint32 countMinusOne = storedCount(destination);
        // A damaged count, or entries running past the end: leave it alone.
        if (countMinusOne < -1 || FOND::entry(countMinusOne + 1) > destination->data.size())
            break;
        const int present = countMinusOne + 1;
        bool duplicate = false;
        int insertAt = present;
        for (int k = 0; k < present; ++k) {
            const FONDEntry other = entryAt(destination, k);
            if (other.size == entry.size && other.style == entry.style) {
                duplicate = true;
                break;
            }
            if (insertAt == present
                && (other.size > entry.size || (other.size == entry.size && other.style > entry.style)))
                insertAt = k;
        }
        if (duplicate)
            continue;
        const qint64 oldSize = destination->data.size();
        const qint64 at = FOND::entry(insertAt);
        if (!QVResourceManager::setHandleSize(destination, oldSize + FOND::kEntrySize))
            break;
        char *bytes = destination->data.data();
        std::memmove(bytes + at + FOND::kEntrySize, bytes + at, size_t(oldSize - at));
        QVByteWriter out(destination->data);
        out.setU16(FOND::kEntryCount, quint16(countMinusOne + 1));
        out.setU16(at + FOND::kEntryPointSize, quint16(entry.size));
        out.setU16(at + FOND::kEntryStyle, quint16(entry.style));
        out.setU16(at + FOND::kEntryID, quint16(entry.id));
        shiftTableOffsets(destination, qint32(FOND::kEntrySize));
    }
    QVResourceManager::changedResource(destination);
    QVResourceManager::writeResource(destination);
}

qint16 QVSuitcaseSurgery::remove1AssocTable(const QVResourceHandle &fond, int index)
{
    std::lock_guard guard(QVResouceFork::lock());
    if (!fond)
        return -1;
    const qint32 countMinusOne = storedCount(fond);
    const qint64 size = fond->data.size();
    if (index >= 0 && index <= countMinusOne && FOND::entry(index + 1) <= size) {
        if (countMinusOne == 0) {
            const qint16 error = QVResourceManager::removeResource(fond);
            if (error != 0)
                return error;
            fond->data.clear();
            return -1;
        }
        QVByteWriter(fond->data).setU16(FOND::kEntryCount, quint16(countMinusOne - 1));
        const qint64 from = FOND::entry(index + 1);
        char *bytes = fond->data.data();
        std::memmove(bytes + from - FOND::kEntrySize, bytes + from, size_t(size - from));
        QVResourceManager::setHandleSize(fond, size - FOND::kEntrySize);
        shiftTableOffsets(fond, -qint32(FOND::kEntrySize));
    }
    QVResourceManager::changedResource(fond);
    if (QVResourceManager::resError() == 0)
        QVResourceManager::writeResource(fond);
    return QVResourceManager::resError();
}

qint16 QVSuitcaseSurgery::removeFONDAssocTables(
    const QVResourceHandle &fond, const QString &postScriptName, bool isTrueType)
{
    std::lock_guard guard(QVResouceFork::lock());
    qint16 result = 0;
    // Each pass removes one entry, so there are never more passes than entries.
    for (int passes = entryCount(fond); passes > 0; --passes) {
        const int entries = entryCount(fond);
        int found = -1;
        for (int j = 0; j < entries && found < 0; ++j) {
            const qint32 size = entryAt(fond, j).size;
            const bool kindFits = isTrueType ? size == 0 : size != 0;
            if (kindFits && entryPostScriptName(fond, j) == postScriptName)
                found = j;
        }
        if (found < 0)
            break;
        result = remove1AssocTable(fond, found);
        if (result == -1)
            return -1;
    }
    return result;
}

void QVSuitcaseSurgery::removeFONDAssocTables(
    const QVResourceHandle &fond, const QString &postScriptName, bool isTrueType, const QVFontFilePtr &)
{
    std::lock_guard guard(QVResouceFork::lock());
    for (int passes = entryCount(fond); passes > 0; --passes) {
        const int entries = entryCount(fond);
        int found = -1;
        for (int j = 0; j < entries && found < 0; ++j) {
            const qint32 size = entryAt(fond, j).size;
            const bool kindFits = isTrueType ? size == 0 : size != 0;
            if (!kindFits || entryPostScriptName(fond, j) != postScriptName)
                found = j;
        }
        if (found < 0 || remove1AssocTable(fond, found) == -1)
            break;
    }
}
