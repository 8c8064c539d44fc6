#include "diagnosis/QVDiagnosisResolution.h"

#include "diagnosis/QVType1Counterparts.h"
#include "engine/QVDeepCheck.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVResouceFork.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "platform/QVPackageFiles.h"
#include "settings/QVLog.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QFileInfo>
#include <QHash>
#include <QMetaObject>
#include <QSet>
#include <QtConcurrent/QtConcurrentRun>

namespace
{

constexpr quint16 kInvisibleFlag = 0x4000;
constexpr quint16 kHasBundleFlag = 0x2000;

const QString kRepair = QStringLiteral("Repair");
const QString kQuarantine = QStringLiteral("Quarantine");

bool isSuitcaseFont(const QVFontFilePtr &file, const QVStatusPtr &status)
{
    return file->fontFileType == 0 && (status->fontType == 0 || status->fontType == 3);
}

// Marks the positions of one defect as fixed, or stores why not. The bound is
// the number of error classes, as the report reads it.
void markRepair(const QVStatusPtr &status, const QString &defect, const QString &error)
{
    for (int i = 0; i < status->fontErrors.size() && i < status->fontErrorsInfo.size(); ++i) {
        if (status->fontErrorsInfo.at(i) != defect)
            continue;
        while (status->fixedErrors.size() <= i)
            status->fixedErrors.append(false);
        while (status->fixedErrorMessages.size() <= i)
            status->fixedErrorMessages.append(QString());
        if (error.isNull())
            status->fixedErrors[i] = true;
        else
            status->fixedErrorMessages[i] = QVDiagnosisResolution::getErrormessage(error);
    }
}

} // namespace

QVDiagnosisResolution::QVDiagnosisResolution(
    QVQuarantineStore *store, QVSuitcaseSurgery *surgery, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_surgery(surgery)
{
    qRegisterMetaType<QVDiagnosisResolution::Outcome>();
}

QVDiagnosisResolution::~QVDiagnosisResolution()
{
    // A resolution in hand stops after its current font; it never waits for
    // this thread, so waiting here cannot deadlock.
    cancelRequested = true;
    waitForResolving();
}

void QVDiagnosisResolution::setStore(QVQuarantineStore *store, QVSuitcaseSurgery *surgery)
{
    if (m_running.load())
        return;
    m_store = store;
    m_surgery = surgery;
}

bool QVDiagnosisResolution::startResolving()
{
    if (!m_store || !m_surgery)
        return false;
    bool idle = false;
    if (!m_running.compare_exchange_strong(idle, true))
        return false;
    m_worker = QtConcurrent::run([this] {
        const Outcome outcome = resolveIssues();
        m_running = false;
        QMetaObject::invokeMethod(
            this, [this, outcome] { Q_EMIT resolved(outcome); }, Qt::QueuedConnection);
    });
    return true;
}

void QVDiagnosisResolution::waitForResolving()
{
    if (m_worker.isValid())
        m_worker.waitForFinished();
}

void QVDiagnosisResolution::setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts)
{
    problemFontsArray = problemFonts;
    rowArray = problemFonts;
    checkedRowsArray.clear();
    for (int i = 0; i < rowArray.size(); ++i) {
        rowArray.at(i)->row = i;
        // A font the deep check found usable is only reported: nothing moves
        // it unless the user checks it.
        if (!QVDeepCheck::onlyUsableDefects(*rowArray.at(i)->fontStatus))
            checkedRowsArray.append(i);
    }
    showCloseWarning = false;
    isDisabled = false;
    didCancel = false;
}

void QVDiagnosisResolution::setRowChecked(int row, bool checked)
{
    if (checked) {
        if (!checkedRowsArray.contains(row))
            checkedRowsArray.append(row);
    } else {
        checkedRowsArray.removeAll(row);
    }
}

QString QVDiagnosisResolution::getActionTitleForErrors(const QVStatusPtr &fontStatus)
{
    QString action = kQuarantine;
    for (const QString &defect : std::as_const(fontStatus->fontErrorsInfo)) {
        if (defect == QLatin1String(QVDefect::BadFileName)
            || defect == QLatin1String(QVDefect::IncorrectFileFlags))
            action = kRepair;
    }
    if (action == kRepair) {
        for (const int errorClass : std::as_const(fontStatus->fontErrors)) {
            if (errorClass == QVErrorClass::MissingBitmap || errorClass == QVErrorClass::MissingPostScript
                || errorClass == QVErrorClass::Duplicate)
                action = kQuarantine;
        }
    }
    return action;
}

QString QVDiagnosisResolution::getDiagnosisDescription(int diagnosisType)
{
    switch (diagnosisType) {
    case 0:
        return QStringLiteral("File Structure Problems");
    case 1:
        return QStringLiteral("No Matching Bitmap Font");
    case 2:
        return QStringLiteral("No Matching Postscript Font");
    case 3:
        return QStringLiteral("Found Duplicate Fonts");
    default:
        return QString();
    }
}

QString QVDiagnosisResolution::getDiagnosisActionReason(int diagnosisType)
{
    switch (diagnosisType) {
    case 0:
        return QStringLiteral("File Structure Problems");
    case 1:
        return QStringLiteral("Has No Matched Bitmap Font");
    case 2:
        return QStringLiteral("Has No Matched Postscript Font");
    case 3:
        return QStringLiteral("Duplicate Font");
    default:
        return QString();
    }
}

QString QVDiagnosisResolution::getDiagnosisReasons(const QStringList &errors)
{
    return QStringLiteral("· ") + errors.join(QStringLiteral("\n· "));
}

QString QVDiagnosisResolution::rowTitle(const QVProblemFontPtr &entry)
{
    if (entry->fontStatus->fontErrors.size() < 2) {
        // A PC Type 1 file's counterpart is a metrics or an outline file.
        const QStringList &defects = entry->fontStatus->fontErrorsInfo;
        if (defects.contains(QLatin1String(QVDefect::CouldntFindMetricsFile)))
            return QStringLiteral("No Matching Metrics File");
        if (defects.contains(QLatin1String(QVDefect::CouldntFindOutlineFile)))
            return QStringLiteral("No Matching Outline File");
        return getDiagnosisDescription(entry->fontStatus->fontErrors.value(0, 0));
    }
    return QStringLiteral("Multiple Issues Found");
}

QString QVDiagnosisResolution::getErrormessage(
    const QString &failureReason, const QString &recoverySuggestion)
{
    if (!failureReason.isEmpty() && !recoverySuggestion.isEmpty())
        return QStringLiteral("Couldn't Fix File: %1 %2").arg(failureReason, recoverySuggestion);
    if (!failureReason.isEmpty())
        return QStringLiteral("Couldn't Fix File: %1").arg(failureReason);
    return QStringLiteral("Couldn't Fix File");
}

QVDiagnosisResolution::Outcome QVDiagnosisResolution::resolveIssues()
{
    Outcome outcome;
    if (!m_store || !m_surgery) {
        outcome.error = QStringLiteral("There is no quarantine to move fonts into");
        return outcome;
    }
    isDisabled = true;
    showCloseWarning = true;
    m_store->setQv_total_quarantined(0);
    cancelRequested = false;
    const qsizetype recordsBefore = m_store->addedRecords.size();

    const QList<int> checked = checkedRowsArray;
    bool withProgress = progress && rowArray.size() >= kProgressThreshold;
    // The window offers cancel only through its progress bar; a caller with
    // another way to stop (a signal on the command line) polls stopRequested.
    const bool cancellable = withProgress;
    double step = checked.isEmpty() ? 0 : 100.0 / (2.0 * double(checked.size()));
    if (step == 0)
        step = 0.1;
    if (withProgress) {
        progress->reset();
        progress->setLabel(QStringLiteral("Resolving Font Issues..."));
        progress->setMaximum(100);
    }
    bool failed = false;
    // Before each row of either sweep. A cancel in the repair sweep ends that
    // sweep; the quarantine sweep meets the same request at its first row.
    auto stopHere = [&]() {
        const bool stop = (cancellable && cancelRequested) || (stopRequested && stopRequested())
            || !m_store->quarantineError().isNull();
        if (stop) {
            if (withProgress) {
                progress->setValue(100);
                withProgress = false;
            }
            failed = true;
            didCancel = true;
            return true;
        }
        if (withProgress)
            progress->increment(step);
        return false;
    };

    for (const int row : checked) {
        if (stopHere())
            break;
        if (row < 0 || row >= rowArray.size())
            continue;
        const QVProblemFontPtr entry = rowArray.at(row);
        if (getActionTitleForErrors(entry->fontStatus) != kQuarantine) {
            const QString error = repairFile(entry);
            outcome.repairedRows << row;
            Q_EMIT rowResolved(row, error);
        }
    }
    qsizetype plannedUpTo = 0;
    for (qsizetype k = 0; k < checked.size(); ++k) {
        const int row = checked.at(k);
        if (stopHere())
            break;
        if (row < 0 || row >= rowArray.size())
            continue;
        const QVProblemFontPtr entry = rowArray.at(row);
        if (getActionTitleForErrors(entry->fontStatus) == kQuarantine) {
            if (k >= plannedUpTo)
                plannedUpTo = planMoves(checked, k);
            if (!quarantineFile(entry)) {
                // Stopped between the check above and the move: the row
                // stays listed, as the fonts after it do.
                failed = true;
                didCancel = true;
                break;
            }
            outcome.quarantinedRows << row;
            Q_EMIT rowResolved(row, quarantineError(entry));
        }
    }
    // Each move was journalled before it happened; the index is written once.
    outcome.error = m_store->quarantineError();
    if (const QString commitError = m_store->commitQuarantine(); outcome.error.isNull())
        outcome.error = commitError;
    // Each font moved in counts once, however many of its problems led there.
    m_store->setQv_total_quarantined(int(m_store->addedRecords.size() - recordsBefore));
    // A row stopped half-way may have moved some of its duplicates.
    const bool movedAny = m_store->addedRecords.size() > recordsBefore;
    checkedRowsArray.clear();
    if (withProgress)
        progress->setValue(100);

    if (!failed) {
        showCloseWarning = false;
        isDisabled = false;
        if (movedAny)
            Q_EMIT quarantineChanged();
        return outcome;
    }
    outcome.cancelled = true;
    QList<QVProblemFontPtr> remaining;
    for (int i = 0; i < rowArray.size(); ++i) {
        if (rowArray.at(i)->fontStatus->movedToQuarantine)
            outcome.removedRows << i;
        else
            remaining << rowArray.at(i);
    }
    rowArray = remaining;
    for (int i = 0; i < rowArray.size(); ++i)
        rowArray.at(i)->row = i;
    isDisabled = false;
    if (movedAny)
        Q_EMIT quarantineChanged();
    return outcome;
}

QList<QVDiagnosisResolution::PlannedStep> QVDiagnosisResolution::plan(const QVFontDataManager *dataMgr) const
{
    QList<PlannedStep> steps;
    // What the steps so far would have moved: a second move of the same font
    // or file does nothing.
    QSet<const QVStatus *> movedFonts;
    QSet<const QVFontFile *> movedFiles;
    auto isMoved = [&](const QVFontRef &font) {
        return font.fontStatus->movedToQuarantine || font.fontFile->fileMovedToQuarantine
            || movedFonts.contains(font.fontStatus.get()) || movedFiles.contains(font.fontFile.get());
    };
    auto markMoved = [&](const QVFontRef &font, bool wholeFile) {
        movedFonts.insert(font.fontStatus.get());
        if (!wholeFile) {
            // A suitcase gives up every size of the font's kind under its
            // PostScript name, and the whole family when nothing else of it
            // stays.
            const QVStatus &taken = *font.fontStatus;
            const bool outline = taken.fontSize == 0;
            bool familyGone = true;
            for (const QVStatusPtr &status : std::as_const(font.fontFile->fontStatusArray)) {
                if (status->fontName == taken.fontName && !isMoved({ font.fontFile, status })
                    && (status->PSname != taken.PSname || (status->fontSize == 0) != outline))
                    familyGone = false;
            }
            for (const QVStatusPtr &status : std::as_const(font.fontFile->fontStatusArray)) {
                if (status->fontName == taken.fontName
                    && (familyGone || (status->PSname == taken.PSname && (status->fontSize == 0) == outline)))
                    movedFonts.insert(status.get());
            }
        }
        bool all = true;
        for (const QVStatusPtr &status : std::as_const(font.fontFile->fontStatusArray))
            all = all && (wholeFile || movedFonts.contains(status.get()));
        if (all)
            movedFiles.insert(font.fontFile.get());
    };
    QHash<QString, QList<QVFontFilePtr>> filesByFolder;
    if (dataMgr) {
        for (const QVFontFilePtr &item : dataMgr->fontFileItems)
            filesByFolder[QFileInfo(item->URL).absolutePath()].append(item);
    }
    // The outline files that leave with a bitmap font, unless another bitmap
    // font that stays still uses them.
    auto outlinesOf = [&](const QVFontRef &font) {
        QList<QVFontRef> outlines;
        if (font.fontFile->fontFileType != 0 || font.fontStatus->fontType != 0)
            return outlines;
        for (const QVFontFilePtr &item : filesByFolder.value(QFileInfo(font.fontFile->URL).absolutePath())) {
            for (const QVStatusPtr &status : std::as_const(item->fontStatusArray)) {
                if (status->PSname != font.fontStatus->PSname || item->fontFileType != 0)
                    continue;
                if (status->fontType == 1 || status->fontType == 2)
                    outlines.append({ item, status });
                else if (status->fontType == 0 && status->index != font.fontStatus->index
                    && !isMoved({ item, status }))
                    return QList<QVFontRef>();
            }
        }
        return outlines;
    };
    auto keep = [&](int row, const QVFontRef &font, const QString &why) {
        PlannedStep step;
        step.kind = PlannedStep::Keep;
        step.row = row;
        step.font = font;
        step.defects = font.fontStatus->fontErrorsInfo;
        step.why = why;
        steps.append(step);
    };
    auto move = [&](int row, const QVFontRef &font, const QVFontRef &duplicateOf) {
        if (isMoved(font))
            return;
        const QString path
            = font.fontStatus->fontURL.isEmpty() ? font.fontFile->URL : font.fontStatus->fontURL;
        if (QVPackageFiles::isPackageFile(path)) {
            keep(row, font, QVPackageFiles::refusal(path));
            return;
        }
        PlannedStep step;
        step.kind = isSuitcaseFont(font.fontFile, font.fontStatus) ? PlannedStep::TakeOutOfSuitcase
                                                                   : PlannedStep::Quarantine;
        step.row = row;
        step.font = font;
        step.defects = font.fontStatus->fontErrorsInfo;
        step.duplicateOf = duplicateOf;
        steps.append(step);
        markMoved(font, step.kind == PlannedStep::Quarantine);
        if (step.kind != PlannedStep::TakeOutOfSuitcase)
            return;
        steps.last().emptiesSuitcase = movedFiles.contains(font.fontFile.get());
        for (const QVFontRef &outline : outlinesOf(font)) {
            if (isMoved(outline) || QVPackageFiles::isPackageFile(outline.fontFile->URL))
                continue;
            PlannedStep sister;
            sister.row = row;
            sister.font = outline;
            sister.defects = font.fontStatus->fontErrorsInfo;
            sister.outlineOf = font;
            steps.append(sister);
            markMoved(outline, true);
        }
    };

    for (const int row : checkedRowsArray) {
        if (row < 0 || row >= rowArray.size())
            continue;
        const QVProblemFontPtr &entry = rowArray.at(row);
        if (getActionTitleForErrors(entry->fontStatus) == kQuarantine)
            continue;
        PlannedStep step;
        step.kind = PlannedStep::Repair;
        step.row = row;
        step.font = { entry->fontFile, entry->fontStatus };
        step.defects = entry->fontStatus->fontErrorsInfo;
        step.renames = step.defects.contains(QLatin1String(QVDefect::BadFileName));
        step.newName = step.renames ? entry->fontStatus->PS533name : QString();
        step.fixesFlags = step.defects.contains(QLatin1String(QVDefect::IncorrectFileFlags));
        if (QVPackageFiles::isPackageFile(entry->fontStatus->fontURL))
            keep(row, step.font, QVPackageFiles::refusal(entry->fontStatus->fontURL));
        else
            steps.append(step);
    }
    for (const int row : checkedRowsArray) {
        if (row < 0 || row >= rowArray.size())
            continue;
        const QVProblemFontPtr &entry = rowArray.at(row);
        if (getActionTitleForErrors(entry->fontStatus) != kQuarantine)
            continue;
        const QVFontRef font { entry->fontFile, entry->fontStatus };
        for (const QVFontRef &member : std::as_const(entry->duplicatesArray))
            move(row, member, font);
        if (keptInPlace(entry->fontStatus)) {
            if (!entry->duplicatesArray.isEmpty() && !isMoved(font))
                keep(row, font, QStringLiteral("the copy kept"));
            continue;
        }
        move(row, font, {});
    }
    return steps;
}

qsizetype QVDiagnosisResolution::planMoves(const QList<int> &checked, qsizetype from)
{
    QList<QVQuarantineStore::PlannedMove> moves;
    qsizetype k = from;
    for (; k < checked.size() && k < from + qMax(1, planBatch); ++k) {
        const int row = checked.at(k);
        if (row < 0 || row >= rowArray.size())
            continue;
        const QVProblemFontPtr &entry = rowArray.at(row);
        if (getActionTitleForErrors(entry->fontStatus) != kQuarantine)
            continue;
        // The whole files quarantineFile() will move, in its order.
        for (const QVFontRef &member : std::as_const(entry->duplicatesArray)) {
            if (!isSuitcaseFont(member.fontFile, member.fontStatus))
                moves.append({ member.fontFile, member.fontStatus,
                    getDiagnosisReasons(member.fontStatus->fontErrorsInfo) });
        }
        if (!isSuitcaseFont(entry->fontFile, entry->fontStatus) && !keptInPlace(entry->fontStatus))
            moves.append({ entry->fontFile, entry->fontStatus,
                getDiagnosisReasons(entry->fontStatus->fontErrorsInfo) });
    }
    m_store->planMoves(moves);
    return k;
}

bool QVDiagnosisResolution::keptInPlace(const QVStatusPtr &status)
{
    int kept = 0;
    for (const QString &defect : std::as_const(status->fontErrorsInfo)) {
        if (defect == QLatin1String(QVDefect::IncorrectFileFlags)
            || defect == QLatin1String(QVDefect::BadFileName)
            || defect == QLatin1String(QVDefect::FoundDuplicateFonts))
            ++kept;
    }
    return kept >= status->fontErrorsInfo.size();
}

QString QVDiagnosisResolution::quarantineError(const QVProblemFontPtr &entry)
{
    for (const QVFontRef &member : std::as_const(entry->duplicatesArray)) {
        if (!member.fontStatus->movedToQuarantineErrorInfo.isEmpty())
            return member.fontStatus->movedToQuarantineErrorInfo;
    }
    if (!entry->fontStatus->movedToQuarantineErrorInfo.isEmpty())
        return entry->fontStatus->movedToQuarantineErrorInfo;
    return QString();
}

bool QVDiagnosisResolution::quarantineFile(const QVProblemFontPtr &entry)
{
    const QVFontFilePtr file = entry->fontFile;
    const QVStatusPtr status = entry->fontStatus;
    const QString reason = getDiagnosisReasons(status->fontErrorsInfo);
    // A stop asked for (or a journal that can no longer be written) ends the
    // work after the font in hand.
    auto mustStop
        = [this]() { return (stopRequested && stopRequested()) || !m_store->quarantineError().isNull(); };

    // The other members of a duplicate group go first; this one is the kept copy.
    for (const QVFontRef &member : std::as_const(entry->duplicatesArray)) {
        if (mustStop())
            return false;
        const QString memberReason = getDiagnosisReasons(member.fontStatus->fontErrorsInfo);
        QString error;
        if (isSuitcaseFont(member.fontFile, member.fontStatus)) {
            error = m_surgery->moveFontFromSuitcaseToQuarantine(
                member.fontFile, member.fontStatus, memberReason);
            if (error.isNull() && member.fontStatus->fontType == 0)
                m_store->moveSisterPostScriptFontToQuarantine(
                    member.fontFile, member.fontStatus, memberReason);
        } else {
            error = m_store->moveFileToQuarantine(member.fontFile, member.fontStatus, memberReason);
        }
        if (!error.isNull())
            member.fontStatus->movedToQuarantineErrorInfo = error;
        else
            QVQuarantineStore::updateFileMovedStatus(file, true);
        if (error.isNull())
            moveType1Companions(member.fontFile, memberReason);
    }

    if (keptInPlace(status))
        return true;
    if (mustStop())
        return false;

    QString error;
    if (isSuitcaseFont(file, status)) {
        error = m_surgery->moveFontFromSuitcaseToQuarantine(file, status, reason);
        if (error.isNull() && status->fontType == 0)
            m_store->moveSisterPostScriptFontToQuarantine(file, status, reason);
    } else {
        error = m_store->moveFileToQuarantine(file, status, reason);
    }
    if (!error.isNull()) {
        status->movedToQuarantineErrorInfo = error;
        return true;
    }
    QVQuarantineStore::updateFileMovedStatus(file, true);
    moveType1Companions(file, reason);
    return true;
}

void QVDiagnosisResolution::moveType1Companions(const QVFontFilePtr &outline, const QString &reason)
{
    // A PC outline's metrics files are of no use without it.
    const QList<QVFontFilePtr> files
        = m_store->dataMgr ? m_store->dataMgr->fontFileItems : QList<QVFontFilePtr>();
    for (const QVFontFilePtr &companion : QVType1Counterparts::companionsLeftBehind(files, outline)) {
        for (const QVStatusPtr &status : std::as_const(companion->fontStatusArray)) {
            const QString error = m_store->moveFileToQuarantine(companion, status, reason);
            if (!error.isNull())
                status->movedToQuarantineErrorInfo = error;
        }
    }
}

QString QVDiagnosisResolution::repairFile(const QVProblemFontPtr &entry)
{
    QString result;
    const QStringList defects = entry->fontStatus->fontErrorsInfo;
    for (const QString &defect : defects) {
        if (defect == QLatin1String(QVDefect::IncorrectFileFlags)) {
            result = fixIncorrectFileFlags(entry->fontStatus);
        } else if (defect == QLatin1String(QVDefect::BadFileName)) {
            const QString oldPath = entry->fontStatus->fontURL;
            result = fixBadFileName(entry->fontStatus);
            if (result.isNull() && entry->fontFile->URL == oldPath)
                entry->fontFile->URL = entry->fontStatus->fontURL;
        }
    }
    return result;
}

QString QVDiagnosisResolution::fixIncorrectFileFlags(const QVStatusPtr &fontStatus)
{
    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    const QString path = fontStatus->fontURL;
    QString error;
    if (QVPackageFiles::isPackageFile(path)) {
        // Not even its Finder info is rewritten.
        error = QVPackageFiles::refusal(path);
        markRepair(fontStatus, QString::fromLatin1(QVDefect::IncorrectFileFlags), error);
        return error;
    }
    if (!QVFileSystem::exists(path)) {
        error = QVResouceFork::errorMessageForCode(-43);
    } else if (fork.finderInfoFlags(path) & kInvisibleFlag) {
        // Written only when set, so a file without Finder info gets none.
        if (const qint16 code = fork.setFinderInfoFlag(kInvisibleFlag, false, path); code != 0)
            error = QVResouceFork::errorMessageForCode(code);
    }
    markRepair(fontStatus, QString::fromLatin1(QVDefect::IncorrectFileFlags), error);

    if (fork.hasResourceFork(path)) {
        const qint16 ref = fork.openResourceFile(1, path);
        if (ref >= 1) {
            const int bundles = fork.countResourceTypes(ref, qvFourCC("BNDL"));
            fork.closeResourceFile(ref);
            const bool hasBundle = bundles > 0;
            if (bool(fork.finderInfoFlags(path) & kHasBundleFlag) != hasBundle)
                fork.setFinderInfoFlag(kHasBundleFlag, hasBundle, path);
        }
    }
    return error;
}

QString QVDiagnosisResolution::fixBadFileName(const QVStatusPtr &fontStatus)
{
    const QString path = fontStatus->fontURL;
    QString error;
    if (fontStatus->PS533name.isEmpty()) {
        error = QStringLiteral("The font has no PostScript file name");
    } else if (QVPackageFiles::isPackageFile(path)) {
        error = QVPackageFiles::refusal(path);
    } else {
        // The file moves with its fork and Finder info.
        const QVFilePair::Result renamed = QVFilePair::rename(path, fontStatus->PS533name);
        if (renamed)
            fontStatus->fontURL = QFileInfo(path).absolutePath() + QLatin1Char('/') + fontStatus->PS533name;
        else
            error = renamed.message;
    }
    if (!error.isNull())
        qCWarning(lcDiagnosis, "Error: fixBadFileName %s", qUtf8Printable(error));
    markRepair(fontStatus, QString::fromLatin1(QVDefect::BadFileName), error);
    return error;
}

void QVDiagnosisResolution::ignoreIssues()
{
    if (m_store)
        m_store->setQv_total_quarantined(0);
    showCloseWarning = false;
}

void QVDiagnosisResolution::endDiagnosis()
{
    QVSettings settings;
    if (settings.automaticallySaveReports() && !settings.organizeFonts()) {
        Q_EMIT reportRequested();
    } else {
        Q_EMIT scanViewTextChanged();
    }
    if (settings.lastScanType() == QLatin1String("AutoScan"))
        Q_EMIT helperResponse(QStringLiteral("kResponse_ScanFonts_Complete"),
            { { QStringLiteral("kPayloadOptions"), settings.lastAutoScanDate() } });
    QVNotificationCenter::defaultCenter()->postEndDiagnosisAction();
}
