#include "diagnosis/QVDiagnosis.h"

#include "diagnosis/QVCounterpartIndex.h"
#include "diagnosis/QVDuplicateIndex.h"
#include "diagnosis/QVType1Counterparts.h"
#include "diagnosis/QVType1Duplicates.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVProblemCounts.h"
#include "settings/QVLog.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"

#include <QDateTime>
#include <QMutexLocker>
#include <QThread>
#include <QThreadPool>
#include <algorithm>

namespace
{

const QString kAutoScan = QStringLiteral("AutoScan");
const QString kPlain = QStringLiteral("Plain");
const QString kNoName = QStringLiteral("<none>");
const QString kComplete = QStringLiteral(" - Complete ✓");
// A bar's range before anyone sets it, as the view's bars start.
constexpr double kDefaultBarMaximum = 100.0;

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
}

QVDiagnosis::~QVDiagnosis()
{
    // Passes never wait for the main thread, so waiting for them here cannot
    // deadlock; what they queued for this object is dropped with it.
    setDoCancel(true);
    for (auto &queue : m_queues) {
        if (queue)
            queue->waitForDone();
    }
}

// ---------------------------------------------------------------------------
// Starting and ending a run

bool QVDiagnosis::diagnoseFonts()
{
    if (m_dataMgr->fontFileItems.isEmpty()) {
        m_isDiagnosingFonts = false;
        qCInfo(lcDiagnosis) << "Diagnosis: no font files to diagnose";
        return false;
    }

    {
        QMutexLocker locker(&m_problemLock);
        m_problemFonts.clear();
        m_problemByIndex.clear();
        m_problemStatusesByFamily.clear();
        m_passCalls = {};
        m_entryOrder.clear();
    }
    setDoCancel(false);
    m_isDiagnosingFonts = true;
    m_overallProgress->setIndeterminate(false);
    m_overallProgress->setValue(0);

    const bool structure = m_settings->diagnoseFileStructure();
    const bool orphans = m_settings->findOrpanedFonts();
    const bool duplicates = m_settings->findDuplicateFonts();
    m_passCount = (structure ? 1 : 0) + (orphans ? 2 : 0) + (duplicates ? 1 : 0);
    m_finishedPasses = 0;
    m_overallStep = m_passCount > 0 ? double(100 / m_passCount) : 0.0;

    populateArrays();

    qCInfo(lcDiagnosis) << "Diagnosis started:" << m_dataMgr->fontFileItems.size() << "files,"
                        << m_dataMgr->totalFonts << "fonts," << m_passCount << "passes";
    if (structure)
        dispatchPass(FileStructurePass, &QVDiagnosis::diagnoseFileStructure);
    if (orphans) {
        dispatchPass(MissingBitmapsPass, &QVDiagnosis::diagnoseMissingBitmaps);
        dispatchPass(MissingPostscriptsPass, &QVDiagnosis::diagnoseMissingPostscripts);
    }
    if (duplicates)
        dispatchPass(DuplicatesPass, &QVDiagnosis::diagnoseDuplicateFonts);
    return true;
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
        // The end is delivered to the main thread; the pass does not wait.
        QMetaObject::invokeMethod(
            this, [this] { passReturned(); }, Qt::QueuedConnection);
        --m_passesInFlight;
    });
}

void QVDiagnosis::passReturned()
{
    m_overallProgress->increment(m_overallStep);
    ++m_finishedPasses;
    if (m_finishedPasses < m_passCount && !doCancel())
        return;
    m_overallProgress->setValue(100);
    finishDiagnosis();
}

void QVDiagnosis::finishDiagnosis()
{
    m_isDiagnosingFonts = false;
    sortProblemFonts();
    const qint32 total = qint32(QVProblemCounts::problemFonts(problemFontsArray()));
    setTotalFontProblems(total);

    const bool cancelled = doCancel();
    const bool autoScan = m_settings->lastScanType() == kAutoScan;
    const QDateTime now = QDateTime::currentDateTime();
    if (autoScan)
        m_settings->setLastAutoScanDate(now);
    m_settings->setLastScanDate(now);
    m_settings->setLastScanProblemCount(QString::number(total));
    m_settings->setLastScanTotalCount(QString::number(m_dataMgr->fontFileItems.size()));
    m_settings->removeValue(QStringLiteral("lastReportName"));
    m_settings->removeValue(QStringLiteral("lastReportFilePath"));

    if (total > 0 && !cancelled) {
        // The resolution window lists the entries by diagnosis, last pass first.
        m_dataMgr->foundProblemFonts = true;
        QMutexLocker locker(&m_problemLock);
        std::stable_sort(m_problemFonts.begin(), m_problemFonts.end(),
            [](const QVProblemFontPtr &a, const QVProblemFontPtr &b) {
                return a->diagnosisType > b->diagnosisType;
            });
    }

    QVNotificationCenter *center = QVNotificationCenter::defaultCenter();
    center->postEndDiagnosis({ { QStringLiteral("object"), QVariant::fromValue<QObject *>(this) } });
    // A run with nothing to resolve ends its diagnosis action here.
    if (total < 1 && !cancelled)
        center->postEndDiagnosisAction(
            { { QStringLiteral("object"), QVariant::fromValue<QObject *>(this) } });
    qCInfo(lcDiagnosis) << "Diagnosis finished:" << total << "problems" << (cancelled ? "(cancelled)" : "");
    Q_EMIT diagnosisFinished(cancelled);
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
                // PC Type 1 files have metrics files, not bitmap fonts, as
                // their counterparts.
                if (!QVType1Counterparts::isPCFile(*fontFile))
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
    if (!stop)
        reportType1Counterparts(true);
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
    if (!stop)
        reportType1Counterparts(false);
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
    // The oldest-numbered, that is the newest file, is the one kept; the
    // others are the group's duplicates.
    const auto settleGroup = [&](QList<QVFontRef> group) {
        std::stable_sort(group.begin(), group.end(), [](const QVFontRef &a, const QVFontRef &b) {
            return a.fontStatus->fontVersion < b.fontStatus->fontVersion;
        });
        const QVFontRef kept = group.takeFirst();
        for (const QVFontRef &member : std::as_const(group))
            addMessage(*member.fontStatus, duplicateMessage);
        addMessage(*kept.fontStatus, keptMessage);
        addProblemFont(kept.fontFile, kept.fontStatus, QVErrorClass::Duplicate, group);
        ++m_duplicateProblemCount;
    };
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
                    settleGroup(std::move(group));
                }
            }
            lastSearched = status;
        }
        if (doCancel())
            break;
    }
    // The same Type 1 font as a Mac and as a PC outline file.
    for (const QList<QVFontRef> &found : QVType1Duplicates::groups(fontFiles)) {
        if (doCancel())
            break;
        QList<QVFontRef> group;
        for (const QVFontRef &member : found) {
            if (!hasMark(*member.fontStatus, QVErrorClass::Duplicate)) {
                appendMark(*member.fontStatus, QVErrorClass::Duplicate);
                group.append(member);
            }
        }
        if (group.size() >= 2)
            settleGroup(std::move(group));
    }
    endPass(DuplicatesPass);
}

void QVDiagnosis::reportType1Counterparts(bool outlines)
{
    // PC outlines missing their metrics count with the outlines missing their
    // bitmap fonts, metrics files missing their outline with the bitmap fonts
    // missing theirs: the same problem, the same resolution.
    QVType1Counterparts counterparts;
    const int errorClass = outlines ? QVErrorClass::MissingBitmap : QVErrorClass::MissingPostScript;
    const QString message
        = QString::fromUtf8(outlines ? QVDefect::CouldntFindMetricsFile : QVDefect::CouldntFindOutlineFile);
    const QList<QVFontFilePtr> fontFiles = m_dataMgr->fontFileItems;
    // Mac collections keep metrics files beside the Mac outline of the font,
    // which is named otherwise: its PostScript name in the folder settles them.
    QVCounterpartIndex macOutlines;
    for (const QVFontFilePtr &fontFile : outlines ? QList<QVFontFilePtr>() : m_postscripts) {
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            if (!fontFile->fileMovedToQuarantine && !status->movedToQuarantine)
                macOutlines.add(status->PSname, status->fontURL);
        }
    }
    for (const QVFontFilePtr &fontFile : fontFiles) {
        if (doCancel())
            return;
        if (fontFile->fileMovedToQuarantine
            || !(outlines ? QVType1Counterparts::isPCOutline(*fontFile)
                          : QVType1Counterparts::isPCMetrics(*fontFile)))
            continue;
        for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
            if (status->isUnreadable() || status->movedToQuarantine || hasMark(*status, errorClass)
                || counterpartMayBeHidden(*status))
                continue;
            const bool settled = outlines ? !counterparts.lacksMetrics(status->fontURL)
                                          : (!QVType1Counterparts::lacksOutline(status->fontURL)
                                              || macOutlines.containsNameInFolder(status->PSname,
                                                  QVCounterpartIndex::folderOfPath(status->fontURL)));
            if (settled)
                continue;
            appendMark(*status, errorClass);
            addMessage(*status, message);
            ++(outlines ? m_missingBitmapProblemCount : m_missingPSProblemCount);
            addProblemFont(fontFile, status, errorClass);
        }
    }
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
    // The passes run at once, but a font found again keeps the diagnosis of
    // the first pass in pass order, and the list keeps each pass's own order,
    // so a run gives the same list whichever pass finds a font first.
    const int pass = qBound(0, diagnosisType, kPassCount - 1);
    const quint32 sequence = m_passCalls[size_t(pass)]++;
    if (isNew) {
        entry = std::make_shared<QVProblemFont>();
        entry->fontFile = fontFile;
        entry->fontStatus = fontStatus;
    }
    if (isNew || diagnosisType < entry->diagnosisType) {
        entry->diagnosisType = diagnosisType;
        m_entryOrder.insert(entry.get(), sequence);
    }
    // A duplicate group is attached whatever the entry was made for.
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

void QVDiagnosis::sortProblemFonts()
{
    QMutexLocker locker(&m_problemLock);
    std::stable_sort(m_problemFonts.begin(), m_problemFonts.end(),
        [this](const QVProblemFontPtr &a, const QVProblemFontPtr &b) {
            if (a->diagnosisType != b->diagnosisType)
                return a->diagnosisType < b->diagnosisType;
            return m_entryOrder.value(a.get()) < m_entryOrder.value(b.get());
        });
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
// State

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
