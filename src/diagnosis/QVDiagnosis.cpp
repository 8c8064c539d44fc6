#include "diagnosis/QVDiagnosis.h"

#include "diagnosis/QVCounterpartIndex.h"
#include "diagnosis/QVDuplicateIndex.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVProblemCounts.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QMutexLocker>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <algorithm>

namespace
{

const QString kManualScan = QStringLiteral("Manual Scan");
const QString kAutoScan = QStringLiteral("AutoScan");
const QString kPlain = QStringLiteral("Plain");
const QString kNoName = QStringLiteral("<none>");
const QString kComplete = QStringLiteral(" - Complete ✓");
const QString kResponseScanFontsComplete = QStringLiteral("kResponse_ScanFonts_Complete");
const QString kPayloadOptions = QStringLiteral("kPayloadOptions");
// A bar's range before anyone sets it, as the view's bars start.
constexpr double kDefaultBarMaximum = 100.0;

QString text(const char *key)
{
    return QVStringTable::text(QString::fromLatin1(key));
}

} // namespace

QVDiagnosis::QVDiagnosis(QVFontDataManager *dataMgr, QObject *parent)
    : QObject(parent)
    , m_dataMgr(dataMgr)
    , m_settings(std::make_unique<QVSettings>())
{
    m_overallProgress = new QVProgress(this);
    m_overallProgress->setMaximum(kDefaultBarMaximum);
    for (int pass = 0; pass < kPassCount; ++pass) {
        m_passProgress[size_t(pass)] = new QVProgress(this);
        m_passProgress[size_t(pass)]->setMaximum(kDefaultBarMaximum);
        m_passProgress[size_t(pass)]->setTitle(titleForProgress(pass));
        m_passProgress[size_t(pass)]->setLabel(titleForProgress(pass));
    }
    setStateFromUserPrefs();
    connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::notificationPosted, this,
        [this](const QString &name, const QVariantMap &userInfo) {
            if (name == QLatin1String(kScanFolderComplete))
                handleSearchComplete(userInfo);
        });
}

QVDiagnosis::~QVDiagnosis()
{
    // A pass reports its end to the main thread and waits for it, so keep the
    // main thread's events moving until every pass job has returned.
    setDoCancel(true);
    while (m_passesInFlight.load() > 0) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    for (auto &queue : m_queues) {
        if (queue)
            queue->waitForDone();
    }
}

// ---------------------------------------------------------------------------
// Starting and ending a run

void QVDiagnosis::diagnoseFonts()
{
    m_reportButtonEnabled = false;

    if (m_dataMgr->fontFileItems.isEmpty()) {
        resetProgress();
        m_isDiagnosingFonts = false;
        m_isShowingDoneButton = true;
        setButtons(text("any.done.title"), true);
        m_alertContext = QStringLiteral("diagnoseFonts");
        if (m_delegate) {
            m_delegate->showAlert(QStringLiteral("Fonts Not Found"),
                QStringLiteral("No font files were found or scanned in the selected folders."),
                { text("any.ok.title") }, m_alertContext);
            m_delegate->setUserInterfaceEnabled(true);
        }
        qCInfo(lcDiagnosis) << "Diagnosis: no font files to diagnose";
        return;
    }

    {
        QMutexLocker locker(&m_problemLock);
        m_problemFonts.clear();
        m_problemByIndex.clear();
        m_problemStatusesByFamily.clear();
    }
    setDoCancel(false);
    m_isDiagnosingFonts = true;
    m_isShowingDoneButton = false;
    setButtons(text("any.cancel.title"), true);
    m_overallProgress->setIndeterminate(false);
    m_overallProgress->setValue(0);
    setProgressText(QStringLiteral("Diagnosing Fonts..."));

    const bool structure = m_settings->diagnoseFileStructure();
    const bool orphans = m_settings->findOrpanedFonts();
    const bool duplicates = m_settings->findDuplicateFonts();
    const int passCount = (structure ? 1 : 0) + (orphans ? 2 : 0) + (duplicates ? 1 : 0);
    m_overallStep = passCount > 0 ? double(100 / passCount) : 0.0;

    populateArrays();

    auto finishedPasses = std::make_shared<int>(0);
    m_cleanUpBlock = [this, finishedPasses, passCount] {
        ++*finishedPasses;
        if (*finishedPasses < passCount && !doCancel())
            return;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_overallProgress->setValue(100);
                if (doCancel())
                    setProgressText(QStringLiteral("Canceling Diagnosis..."));
                QTimer::singleShot(m_finishDelay, this, [this] { finishDiagnosis(); });
            },
            Qt::QueuedConnection);
    };

    qCInfo(lcDiagnosis) << "Diagnosis started:" << m_dataMgr->fontFileItems.size() << "files,"
                        << m_dataMgr->totalFonts << "fonts," << passCount << "passes";
    if (structure)
        dispatchPass(FileStructurePass, &QVDiagnosis::diagnoseFileStructure);
    if (orphans) {
        dispatchPass(MissingBitmapsPass, &QVDiagnosis::diagnoseMissingBitmaps);
        dispatchPass(MissingPostscriptsPass, &QVDiagnosis::diagnoseMissingPostscripts);
    }
    if (duplicates)
        dispatchPass(DuplicatesPass, &QVDiagnosis::diagnoseDuplicateFonts);
}

QThreadPool *QVDiagnosis::queueForPass(int pass)
{
    std::unique_ptr<QThreadPool> &queue = m_queues[size_t(pass)];
    if (!queue) {
        // A pool of one thread is a serial queue: a pass never overlaps itself.
        queue = std::make_unique<QThreadPool>();
        queue->setMaxThreadCount(1);
        queue->setExpiryTimeout(-1);
    }
    return queue.get();
}

void QVDiagnosis::dispatchPass(int pass, void (QVDiagnosis::*body)())
{
    QThreadPool *queue = queueForPass(pass);
    ++m_passesInFlight;
    queue->start([this, body] {
        (this->*body)();
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_overallProgress->increment(m_overallStep);
                if (m_cleanUpBlock)
                    m_cleanUpBlock();
            },
            Qt::BlockingQueuedConnection);
        --m_passesInFlight;
    });
}

void QVDiagnosis::finishDiagnosis()
{
    m_overallProgress->setValue(0);
    setProgressText(QString(""));
    if (!m_alertContext.isEmpty()) {
        if (m_delegate)
            m_delegate->dismissAlert();
        m_alertContext.clear();
    }
    m_isDiagnosingFonts = false;
    m_isShowingDoneButton = true;
    setButtons(text("any.done.title"), true);

    const qint32 total = qint32(QVProblemCounts::problemFonts(problemFontsArray()));
    setTotalFontProblems(total);

    const bool cancelled = doCancel();
    const bool manual = m_settings->lastScanType() == kManualScan;
    const bool autoScan = m_settings->lastScanType() == kAutoScan;
    const QDateTime now = QDateTime::currentDateTime();
    if (autoScan)
        m_settings->setLastAutoScanDate(now);
    m_settings->setLastScanDate(now);
    m_settings->setLastScanProblemCount(QString::number(total));
    m_settings->setLastScanTotalCount(QString::number(m_dataMgr->fontFileItems.size()));
    m_settings->removeValue(QStringLiteral("lastReportName"));
    m_settings->removeValue(QStringLiteral("lastReportFilePath"));

    QVNotificationCenter::defaultCenter()->postNotification(QString::fromLatin1(kEndDiagnosis),
        { { QStringLiteral("object"), QVariant::fromValue<QObject *>(this) } });

    const QString prefix = manual ? QStringLiteral("mac-icon") : QStringLiteral("autoscan");
    if (cancelled)
        setIcon(prefix + QStringLiteral("-cancel"));
    else
        setIcon(prefix + (total < 1 ? QStringLiteral("-ok") : QStringLiteral("-caution")));

    if (total < 1) {
        if (cancelled) {
            setProgressText(QStringLiteral("Diagnosis was canceled"));
        } else {
            setProgressText(QStringLiteral("No Problems Found!"));
            if (m_delegate)
                m_delegate->updateScanViewText();
            QVNotificationCenter::defaultCenter()->postNotification(QString::fromLatin1(kEndDiagnosisAction),
                { { QStringLiteral("object"), QVariant::fromValue<QObject *>(this) } });
        }
        if (autoScan) {
            const QVariantMap options { { kPayloadOptions, m_settings->lastAutoScanDate() } };
            if (m_helperCommunications)
                m_helperCommunications->sendResponse(kResponseScanFontsComplete, QString(), options);
            else if (m_delegate)
                m_delegate->sendResponse(kResponseScanFontsComplete, QString(), options);
        }
        if (m_delegate && m_delegate->isAutoScanLaunch() && m_settings->autoScanQuitWhenDone()) {
            QTimer::singleShot(2000, this, [this] {
                if (m_delegate)
                    m_delegate->terminateApplication();
            });
        }
        if (m_delegate)
            m_delegate->setIsAutoScanLaunch(false);
    } else {
        setProgressText(cancelled ? QStringLiteral("Diagnosis was canceled")
                                  : QStringLiteral("Font Problems Were Found"));
        m_reportButtonEnabled = !cancelled;
        if (m_delegate)
            m_delegate->setIsAutoScanLaunch(false);
        if (!cancelled)
            presentDiagnosisActionWindow();
    }
    qCInfo(lcDiagnosis) << "Diagnosis finished:" << total << "problems" << (cancelled ? "(cancelled)" : "");
    Q_EMIT stateChanged();
    Q_EMIT diagnosisFinished();
}

void QVDiagnosis::presentDiagnosisActionWindow()
{
    m_dataMgr->foundProblemFonts = true;
    QList<QVProblemFontPtr> sorted;
    {
        QMutexLocker locker(&m_problemLock);
        std::stable_sort(m_problemFonts.begin(), m_problemFonts.end(),
            [](const QVProblemFontPtr &a, const QVProblemFontPtr &b) {
                return a->diagnosisType > b->diagnosisType;
            });
        sorted = m_problemFonts;
    }
    if (m_delegate)
        m_delegate->presentDiagnosisActionWindow(sorted);
}

// ---------------------------------------------------------------------------
// Sorting the fonts for the counterpart passes

void QVDiagnosis::populateArrays()
{
    m_bitmaps.clear();
    m_postscripts.clear();
    // A folder holding something unreadable may hold the counterpart that
    // cannot be seen: a file, its sidecar, or the netatalk folder of its forks.
    m_hiddenCounterpartFolders = m_dataMgr->foldersHidingFonts();
    const bool type3 = m_settings->diagnoseType3fonts();
    for (const QVFontFilePtr &fontFile : std::as_const(m_dataMgr->fontFileItems)) {
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            if (status->isUnreadable() || status->fontName.isEmpty())
                continue;
            if (status->fontName.startsWith(QLatin1Char('.')) || status->PSname.startsWith(QLatin1Char('.'))
                || status->fontName.startsWith(QLatin1Char('%')) || status->PSname == kNoName)
                continue;
            switch (status->fontType) {
            case QVFontType::Bitmap:
                m_bitmaps.append(fontFile);
                break;
            case QVFontType::PostScriptType1:
                m_postscripts.append(fontFile);
                break;
            case QVFontType::PostScriptType3:
                if (type3)
                    m_postscripts.append(fontFile);
                break;
            default:
                break;
            }
        }
    }
}

// ---------------------------------------------------------------------------
// The passes

void QVDiagnosis::pace() const
{
    if (m_pacingEnabled && m_dataMgr->totalFonts < kPacingFontLimit && !doCancel())
        QThread::usleep(1000);
}

double QVDiagnosis::stepFor(int pass, qsizetype count) const
{
    // An empty list leaves the bar where it is rather than fill it with infinity.
    return count > 0 ? m_passProgress[size_t(pass)]->maximum() / double(count) : 0.0;
}

void QVDiagnosis::endPass(int pass)
{
    resetProgress(pass, doCancel() ? titleForProgress(pass) : titleForProgress(pass, kComplete), true);
}

void QVDiagnosis::diagnoseFileStructure()
{
    setFileStructureProblemCount(0);
    resetProgress(FileStructurePass, titleForProgress(FileStructurePass), false);
    QVProgress *bar = m_passProgress[FileStructurePass];
    const double step = m_dataMgr->totalFonts > 0 ? bar->maximum() / double(m_dataMgr->totalFonts) : 100.0;

    const QList<QVFontFilePtr> fontFiles = m_dataMgr->fontFileItems;
    for (const QVFontFilePtr &fontFile : fontFiles) {
        // One entry per file and font type: the last status added from this
        // file stands for the following ones of its type.
        QVStatusPtr lastAdded;
        bool stop = false;
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            pace();
            bar->increment(step);
            const QList<int> errors = marks(*status);
            for (int error : errors) {
                if (error != QVErrorClass::Defect)
                    continue;
                if (lastAdded && lastAdded->fontURL == status->fontURL
                    && lastAdded->fontType == status->fontType)
                    continue;
                addProblemFont(fontFile, status, QVErrorClass::Defect);
                ++m_fileStructureProblemCount;
                lastAdded = status;
            }
            if (doCancel())
                stop = true;
        }
        if (stop)
            break;
    }
    endPass(FileStructurePass);
}

void QVDiagnosis::diagnoseMissingBitmaps()
{
    setMissingBitmapProblemCount(0);
    resetProgress(MissingBitmapsPass, titleForProgress(MissingBitmapsPass), false);
    QVProgress *bar = m_passProgress[MissingBitmapsPass];
    const double step = stepFor(MissingBitmapsPass, m_postscripts.size());

    // The bitmap fonts that can stand for an outline font.
    QVCounterpartIndex candidates;
    for (const QVFontFilePtr &fontFile : std::as_const(m_bitmaps)) {
        if (fontFile->fileMovedToQuarantine)
            continue;
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            if (status->fontSize > 0 && !status->PSname.isEmpty() && !status->movedToQuarantine)
                candidates.add(status->PSname, status->fontURL);
        }
    }

    const QString message = QString::fromUtf8(QVDefect::CouldntFindBitmapFont);
    bool stop = false;
    for (const QVFontFilePtr &fontFile : std::as_const(m_postscripts)) {
        if (doCancel())
            break;
        bar->increment(step);
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            pace();
            if (!status->movedToQuarantine && !counterpartMayBeHidden(*status)) {
                // A bitmap font of the name beside the outline settles it; one
                // elsewhere settles it only when it was reported before.
                const bool settled = candidates.containsNameInFolder(
                                         status->PSname, QVCounterpartIndex::folderOfPath(status->fontURL))
                    || (hasMark(*status, QVErrorClass::MissingBitmap)
                        && candidates.containsName(status->PSname));
                if (!settled) {
                    appendMark(*status, QVErrorClass::MissingBitmap);
                    addMessage(*status, message);
                    ++m_missingBitmapProblemCount;
                    addProblemFont(fontFile, status, QVErrorClass::MissingBitmap);
                }
            }
            if (doCancel()) {
                stop = true;
                break;
            }
        }
        if (stop)
            break;
    }
    endPass(MissingBitmapsPass);
}

void QVDiagnosis::diagnoseMissingPostscripts()
{
    setMissingPSProblemCount(0);
    resetProgress(MissingPostscriptsPass, titleForProgress(MissingPostscriptsPass), false);
    QVProgress *bar = m_passProgress[MissingPostscriptsPass];
    // Sized by the missing-bitmaps bar, as that pass does.
    const double step = m_bitmaps.isEmpty()
        ? 0.0
        : m_passProgress[MissingBitmapsPass]->maximum() / double(m_bitmaps.size());
    const bool allStyles = m_settings->allStylesRequirePostScript();

    QVCounterpartIndex candidates;
    for (const QVFontFilePtr &fontFile : std::as_const(m_postscripts)) {
        if (fontFile->fileMovedToQuarantine)
            continue;
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            if (!status->PSname.isEmpty() && !status->movedToQuarantine)
                candidates.add(status->PSname, status->fontURL);
        }
    }

    const QString message = QString::fromUtf8(QVDefect::CouldntFindPostScriptFile);
    bool stop = false;
    for (const QVFontFilePtr &fontFile : std::as_const(m_bitmaps)) {
        if (doCancel())
            break;
        bar->increment(step);
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            pace();
            if (status->fontSize >= 1 && !status->movedToQuarantine && !counterpartMayBeHidden(*status)) {
                const bool matched = candidates.containsNameInFolder(
                    status->PSname, QVCounterpartIndex::folderOfPath(status->fontURL));
                // One size of a bitmap font in one file stands for its other sizes.
                const bool alreadyReported = !matched
                    && (hasMark(*status, QVErrorClass::MissingPostScript)
                        || problemListHoldsReportedSize(*status));
                const bool eligible = allStyles || status->fontStyle == kPlain;
                if (!matched && !alreadyReported && eligible) {
                    appendMark(*status, QVErrorClass::MissingPostScript);
                    addMessage(*status, message);
                    ++m_missingPSProblemCount;
                    addProblemFont(fontFile, status, QVErrorClass::MissingPostScript);
                }
            }
            if (doCancel()) {
                stop = true;
                break;
            }
        }
        if (stop)
            break;
    }
    endPass(MissingPostscriptsPass);
}

void QVDiagnosis::diagnoseDuplicateFonts()
{
    setDuplicateProblemCount(0);
    resetProgress(DuplicatesPass, titleForProgress(DuplicatesPass), false);
    QVProgress *bar = m_passProgress[DuplicatesPass];
    // Sized by the bitmap list although the bar advances once per file.
    const double step = stepFor(DuplicatesPass, m_bitmaps.size());
    const bool matchVersions = m_settings->matchVersionNumbers();
    const QList<QVFontFilePtr> fontFiles = m_dataMgr->fontFileItems;

    // The name index. A bitmap font family in one file is indexed once, by its
    // first size.
    QVDuplicateIndex index;
    QVStatusPtr lastIndexed;
    for (qsizetype i = 0; i < fontFiles.size(); ++i) {
        const QList<QVStatusPtr> &statuses = fontFiles.at(i)->fontStatusArray;
        for (qsizetype j = 0; j < statuses.size(); ++j) {
            const QVStatusPtr &status = statuses.at(j);
            if (status->isUnreadable() || status->PSname == kNoName
                || status->fontType == QVFontType::PostScriptType1
                || status->fontType == QVFontType::PostScriptType3 || status->fontStyle != kPlain)
                continue;
            if (lastIndexed && lastIndexed->fontSize != status->fontSize
                && lastIndexed->PSname == status->PSname && lastIndexed->fontURL == status->fontURL
                && lastIndexed->fontType == status->fontType)
                continue;
            index.add(qint32(i), qint32(j), status->PSname, status->fontType, status->fontVersion);
            lastIndexed = status;
        }
    }

    const QString duplicateMessage = QString::fromUtf8(QVDefect::DuplicateFont);
    const QString keptMessage = QString::fromUtf8(QVDefect::FoundDuplicateFonts);
    QVStatusPtr lastSearched;
    for (qsizetype i = 0; i < fontFiles.size(); ++i) {
        const QVFontFilePtr &fontFile = fontFiles.at(i);
        bar->increment(step);
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            pace();
            const QList<int> errors = marks(*status);
            if (errors.contains(QVErrorClass::Unreadable))
                continue;
            if (!errors.isEmpty()
                && (errors.contains(QVErrorClass::Duplicate)
                    || status->fontType == QVFontType::PostScriptType1
                    || status->fontType == QVFontType::PostScriptType3 || status->fontStyle != kPlain))
                continue;
            // Another size of the type in the file of the previous font searched.
            if (lastSearched && lastSearched->fontSize != status->fontSize
                && lastSearched->fontURL == status->fontURL && lastSearched->fontType == status->fontType
                && !status->PSname.isEmpty())
                continue;
            if (status->fontStyle == kPlain) {
                QList<QVFontRef> group;
                const QList<QVDuplicateIndex::Entry> found = index.matches(status->PSname, status->fontType,
                    qint32(i), matchVersions ? std::optional<qint32>(status->fontVersion) : std::nullopt);
                for (const QVDuplicateIndex::Entry &entry : found) {
                    const QVFontFilePtr &other = fontFiles.at(entry.fileIndex);
                    if (entry.statusIndex >= other->fontStatusArray.size())
                        continue;
                    const QVStatusPtr &match = other->fontStatusArray.at(entry.statusIndex);
                    if (hasMark(*match, QVErrorClass::Duplicate))
                        continue;
                    appendMark(*match, QVErrorClass::Duplicate);
                    group.append(QVFontRef { other, match });
                }
                if (!group.isEmpty()) {
                    appendMark(*status, QVErrorClass::Duplicate);
                    group.append(QVFontRef { fontFile, status });
                    // The oldest-numbered, that is the newest file, is the one kept.
                    std::stable_sort(group.begin(), group.end(), [](const QVFontRef &a, const QVFontRef &b) {
                        return a.fontStatus->fontVersion < b.fontStatus->fontVersion;
                    });
                    const QVFontRef kept = group.takeFirst();
                    for (const QVFontRef &member : std::as_const(group))
                        addMessage(*member.fontStatus, duplicateMessage);
                    addMessage(*kept.fontStatus, keptMessage);
                    addProblemFont(kept.fontFile, kept.fontStatus, QVErrorClass::Duplicate, group);
                    ++m_duplicateProblemCount;
                }
            }
            lastSearched = status;
        }
        if (doCancel())
            break;
    }
    endPass(DuplicatesPass);
}

// ---------------------------------------------------------------------------
// The problem list

void QVDiagnosis::addProblemFont(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus,
    int diagnosisType, const std::optional<QList<QVFontRef>> &duplicatesArray)
{
    if (!fontStatus)
        return;
    QMutexLocker locker(&m_problemLock);
    QVProblemFontPtr entry = m_problemByIndex.value(fontStatus->index);
    const bool isNew = !entry;
    if (isNew) {
        entry = std::make_shared<QVProblemFont>();
        entry->fontFile = fontFile;
        entry->fontStatus = fontStatus;
        entry->diagnosisType = diagnosisType;
    }
    // A font found again keeps its first diagnosis; a duplicate group is
    // attached whatever the entry was made for.
    if (diagnosisType == QVErrorClass::Duplicate) {
        entry->duplicatesArray = duplicatesArray.value_or(QList<QVFontRef>());
        entry->hasDuplicatesArray = duplicatesArray.has_value();
    }
    if (isNew) {
        m_problemFonts.append(entry);
        m_problemByIndex.insert(fontStatus->index, entry);
        m_problemStatusesByFamily[familyKey(*fontStatus)].append(fontStatus);
    }
}

QList<QVProblemFontPtr> QVDiagnosis::problemFontsArray() const
{
    QMutexLocker locker(&m_problemLock);
    return m_problemFonts;
}

void QVDiagnosis::setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts)
{
    QMutexLocker locker(&m_problemLock);
    m_problemFonts = problemFonts;
    rebuildProblemIndexes();
}

void QVDiagnosis::rebuildProblemIndexes()
{
    m_problemByIndex.clear();
    m_problemStatusesByFamily.clear();
    for (const QVProblemFontPtr &entry : std::as_const(m_problemFonts)) {
        if (!entry || !entry->fontStatus)
            continue;
        // The first entry of an index is the one a search finds.
        if (!m_problemByIndex.contains(entry->fontStatus->index))
            m_problemByIndex.insert(entry->fontStatus->index, entry);
        m_problemStatusesByFamily[familyKey(*entry->fontStatus)].append(entry->fontStatus);
    }
}

QString QVDiagnosis::familyKey(const QVStatus &status)
{
    // Unit separators cannot occur in names or paths that the examiner reads.
    return status.PSname + QChar(0x1f) + status.fontURL + QChar(0x1f) + QString::number(status.fontType);
}

bool QVDiagnosis::counterpartMayBeHidden(const QVStatus &status) const
{
    return !m_hiddenCounterpartFolders.isEmpty()
        && m_hiddenCounterpartFolders.contains(QVCounterpartIndex::folderOfPath(status.fontURL));
}

bool QVDiagnosis::problemListHoldsReportedSize(const QVStatus &bitmap) const
{
    QMutexLocker locker(&m_problemLock);
    const auto it = m_problemStatusesByFamily.constFind(familyKey(bitmap));
    if (it == m_problemStatusesByFamily.cend())
        return false;
    for (const QVStatusPtr &listed : *it) {
        if (listed->fontSize > 0 && listed->fontSize != bitmap.fontSize
            && hasMark(*listed, QVErrorClass::MissingPostScript))
            return true;
    }
    return false;
}

QMutex &QVDiagnosis::marksLockFor(const QVStatus &status) const
{
    return m_marksLocks[(quintptr(&status) / alignof(QVStatus)) % kMarkLockCount];
}

bool QVDiagnosis::hasMark(const QVStatus &status, int errorClass) const
{
    QMutexLocker locker(&marksLockFor(status));
    return status.fontErrors.contains(errorClass);
}

QList<int> QVDiagnosis::marks(const QVStatus &status) const
{
    QMutexLocker locker(&marksLockFor(status));
    return status.fontErrors;
}

void QVDiagnosis::appendMark(QVStatus &status, int errorClass)
{
    // Appended as it is: a class may stand twice when a pass finds it again.
    QMutexLocker locker(&marksLockFor(status));
    status.fontErrors.append(errorClass);
}

void QVDiagnosis::addMessage(QVStatus &status, const QString &message)
{
    QMutexLocker locker(&marksLockFor(status));
    status.setFontErrorInfo(message);
}

// ---------------------------------------------------------------------------
// State shown by the view

void QVDiagnosis::setButtons(const QString &cancelTitle, bool cancelEnabled)
{
    m_cancelButtonTitle = cancelTitle;
    m_cancelButtonEnabled = cancelEnabled;
    Q_EMIT stateChanged();
}

void QVDiagnosis::setIcon(const QString &name)
{
    m_iconName = name;
    Q_EMIT stateChanged();
}

void QVDiagnosis::setStateFromUserPrefs()
{
    setTotalFontProblems(0);
    setDuplicateProblemCount(0);
    setMissingBitmapProblemCount(0);
    setMissingPSProblemCount(0);
    setProgressEnabled(FileStructurePass, m_settings->diagnoseFileStructure());
    setProgressEnabled(MissingBitmapsPass, m_settings->findOrpanedFonts());
    setProgressEnabled(MissingPostscriptsPass, m_settings->findOrpanedFonts());
    setProgressEnabled(DuplicatesPass, m_settings->findDuplicateFonts());
}

void QVDiagnosis::setScanMode()
{
    setIcon(
        m_settings->lastScanType() == kManualScan ? QStringLiteral("mac-icon") : QStringLiteral("AutoScan"));
    setStateFromUserPrefs();
}

void QVDiagnosis::handleSearchComplete(const QVariantMap &userInfo)
{
    const QVariant status = userInfo.value(QStringLiteral("status"));
    if (status.isValid() && status.toString() != QLatin1String("success"))
        setIcon(m_settings->lastScanType() == kManualScan ? QStringLiteral("mac-icon-cancel")
                                                          : QStringLiteral("autoscan-cancel"));
}

void QVDiagnosis::cancelButtonAction()
{
    if (m_isDiagnosingFonts) {
        if (m_alertContext.isEmpty()) {
            m_alertContext = QStringLiteral("cancelButtonAction");
            if (m_delegate)
                m_delegate->showAlert(text("diagnosis.cancel.message"), text("diagnosis.cancel.info"),
                    { text("any.continue.title"), text("any.cancel.title") }, m_alertContext);
        }
        return;
    }
    if (m_delegate && m_delegate->isFindingFonts()) {
        m_delegate->handleScanButton();
        return;
    }
    m_isShowingDoneButton = false;
    resetAllProgressViews();
    if (m_delegate) {
        m_delegate->closeDiagnosisView(1);
        m_delegate->selectButton(0);
    }
    setProgressText(QString(""));
    m_reportButtonEnabled = false;
    Q_EMIT stateChanged();
}

void QVDiagnosis::modalEnded(int returnCode, const QString &context)
{
    if (returnCode == 1001 && context == QLatin1String("cancelButtonAction")) {
        setDoCancel(true);
        setButtons(m_cancelButtonTitle, false);
    }
    m_alertContext.clear();
}

QString QVDiagnosis::getSettingsStartText() const
{
    QString scanType = m_settings->lastScanType();
    if (scanType == kManualScan && m_settings->organizeFonts())
        scanType += QStringLiteral(" & Organize");

    QStringList diagnoses;
    if (m_settings->diagnoseFileStructure())
        diagnoses << QStringLiteral("Diagnose Corrupt Fonts");
    if (m_settings->findDuplicateFonts())
        diagnoses << QStringLiteral("Duplicate Fonts");
    if (m_settings->findOrpanedFonts())
        diagnoses << QStringLiteral("Orphaned Fonts");
    // A missing list prints as a missing object does.
    const QString diagnosisList
        = diagnoses.isEmpty() ? QStringLiteral("(null)") : diagnoses.join(QStringLiteral(", "));

    const QStringList folders
        = scanType.startsWith(kManualScan) ? m_manualScanFolders : m_settings->fontFolderPaths();
    QString folderList;
    for (const QString &folder : folders)
        folderList += folder + QLatin1Char('\n');

    return QStringLiteral("Scan Type: %1\n\nCurrent Diagnosis Settings:\n%2\n\nScanned Folders:\n%3")
        .arg(scanType, diagnosisList, folderList);
}

QStringList QVDiagnosis::settingsStartHeadings()
{
    return { QStringLiteral("Scan Type:"), QStringLiteral("Current Diagnosis Settings:"),
        QStringLiteral("Scanned Folders:") };
}

// ---------------------------------------------------------------------------
// Progress

QVProgress *QVDiagnosis::progressForPass(int pass) const
{
    if (pass < 0 || pass >= kPassCount)
        return nullptr;
    return m_passProgress[size_t(pass)];
}

bool QVDiagnosis::isProgressEnabled(int pass) const
{
    return pass >= 0 && pass < kPassCount && m_passEnabled[size_t(pass)];
}

QString QVDiagnosis::titleForProgress(int pass, const QString &appendedText) const
{
    static const char *const titles[kPassCount]
        = { "Font File Structure", "Missing Bitmap Fonts", "Missing Postscript Fonts", "Duplicate Fonts" };
    if (pass < 0 || pass >= kPassCount)
        return QString();
    return QString::fromLatin1(titles[pass]) + appendedText;
}

void QVDiagnosis::resetProgress(int pass, const QString &text, bool /*finished*/)
{
    // A finished pass's bar goes back to 0 too; its label tells it is complete.
    QVProgress *bar = progressForPass(pass);
    if (!bar)
        return;
    bar->setIndeterminate(false);
    bar->setValue(0);
    if (!text.isNull())
        bar->setLabel(text);
}

void QVDiagnosis::setProgressEnabled(int pass, bool enabled)
{
    QVProgress *bar = progressForPass(pass);
    if (!bar)
        return;
    m_passEnabled[size_t(pass)] = enabled;
    if (!enabled)
        bar->setValue(0);
    Q_EMIT stateChanged();
}

void QVDiagnosis::resetAllProgressViews()
{
    for (int pass = 0; pass < kPassCount; ++pass)
        resetProgress(pass, titleForProgress(pass), false);
}

void QVDiagnosis::setAllProgressViewsAsIndeterminate()
{
    for (QVProgress *bar : m_passProgress)
        bar->setIndeterminate(true);
}

void QVDiagnosis::setOverallProgressToIndeterminate()
{
    m_overallProgress->setIndeterminate(true);
}

void QVDiagnosis::setProgressText(const QString &text)
{
    m_overallProgress->setLabel(text);
}

void QVDiagnosis::resetProgress()
{
    m_overallProgress->setIndeterminate(false);
    m_overallProgress->setValue(0);
    m_overallProgress->setLabel(QString(""));
}
