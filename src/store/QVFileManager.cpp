#include "store/QVFileManager.h"

#include "engine/QVDeepCheck.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVDirectory.h"
#include "platform/QVFileAccess.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSnapshot.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "settings/QVDataFolder.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVOperationQueue.h"

#include <QCborArray>
#include <QCborValue>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QStandardPaths>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <dirent.h>
#include <map>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace
{

// Seconds of the last label update, whole, kept for the life of the process:
// a later scan leaves the label alone until its own elapsed time passes this
// value by more than two seconds.
quint64 lastProgressUpdate = 0;

// How often, at most, the walk hands the label's update to the main thread.
constexpr qint64 kLabelPostInterval = 100'000'000; // ns

// A saved list larger than this is not ours.
constexpr qint64 kMaxFontItemsFileSize = 512 * 1024 * 1024;

// The type code from the file's Finder info, wherever the platform keeps it.
QByteArray finderInfoTypeCode(const QString &path)
{
    QByteArray info;
    if (QVForkStorage::readFinderInfo(path, &info) != 0 || info.size() < 4)
        return QByteArray();
    const QByteArray type = info.left(4);
    return type == QByteArray(4, '\0') ? QByteArray() : type;
}

qint64 steadyNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool isInsideOrSame(const QString &path, const QString &folder)
{
    return path == folder || folder == QLatin1String("/") || path.startsWith(folder + QLatin1Char('/'));
}

// The folders of a scan as the file system knows them: each once, and none
// that another of them already holds, so no file is reached twice. The order
// given is kept.
QStringList canonicalFolders(const QStringList &folders)
{
    QStringList canonical;
    for (const QString &folder : folders) {
        const QString real = QVFileSystem::canonicalPath(folder);
        // A folder that is not there keeps its name: its walk finds nothing.
        canonical.append(real.isEmpty() ? QDir::cleanPath(QDir(folder).absolutePath()) : real);
    }
    QStringList kept;
    for (qsizetype i = 0; i < canonical.size(); ++i) {
        bool inside = false;
        for (qsizetype j = 0; j < canonical.size() && !inside; ++j) {
            if (i == j)
                continue;
            // Of two equal folders the first stays; a folder inside another goes.
            inside = canonical.at(i) == canonical.at(j) ? j < i
                                                        : isInsideOrSame(canonical.at(i), canonical.at(j));
        }
        if (!inside)
            kept.append(canonical.at(i));
    }
    return kept;
}

// Whether a name alone leaves open that the file is a font: a font extension,
// or none that the MIME database knows (suitcases and PostScript outlines
// carry no extension).
bool mayBeFontByName(const QString &name)
{
    if (name.endsWith(QLatin1String(".dfont"), Qt::CaseInsensitive))
        return true;
    static const QMimeDatabase mimeDatabase;
    const QList<QMimeType> types = mimeDatabase.mimeTypesForFileName(name);
    if (types.isEmpty())
        return true;
    return std::any_of(types.cbegin(), types.cend(),
        [](const QMimeType &type) { return type.name().contains(QLatin1String("font")); });
}

QString withoutTrailingSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

} // namespace

QVFileManager::QVFileManager(QObject *parent)
    : QObject(parent)
    , m_ownDataMgr(std::make_unique<QVFontDataManager>())
{
    m_dataMgr = m_ownDataMgr.get();
    initCommon();
}

QVFileManager::QVFileManager(QVFontDataManager *dataManager, QObject *parent)
    : QObject(parent)
    , m_dataMgr(dataManager)
{
    if (!m_dataMgr) {
        m_ownDataMgr = std::make_unique<QVFontDataManager>();
        m_dataMgr = m_ownDataMgr.get();
    }
    initCommon();
}

void QVFileManager::initCommon()
{
    // Until the owner gives its own, so that the scan can always read doLogging.
    m_ownSettings = std::make_unique<QVSettings>();
    m_settings = m_ownSettings.get();
    m_ownProgress = new QVProgress(this);
    m_ownProgress->setMaximum(100);
    m_progress = m_ownProgress;
    m_clock = steadyNanoseconds;
    m_typeCodeReader = finderInfoTypeCode;
}

QVFileManager::~QVFileManager()
{
    m_didCancel = true;
    if (m_findFontsGlobalQueue)
        m_findFontsGlobalQueue->cancelAllOperations();
    // Joins the walk, which notices the flag after its current item.
    m_findFontsGlobalQueue.reset();
}

QVProgress *QVFileManager::progress() const
{
    return m_progress ? m_progress.data() : m_ownProgress;
}

void QVFileManager::setProgress(QVProgress *progress)
{
    m_progress = progress;
}

QVHelperCommunications *QVFileManager::helperCommunications() const
{
    return m_helperCommunications;
}

void QVFileManager::setHelperCommunications(QVHelperCommunications *helper)
{
    m_helperCommunications = helper;
}

void QVFileManager::onMainThread(std::function<void()> work)
{
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void QVFileManager::postScanFolderComplete(bool cancelled)
{
    QVNotificationCenter::defaultCenter()->postScanFolderComplete({ { QStringLiteral("status"),
        cancelled ? QStringLiteral("cancelled") : QStringLiteral("success") } });
}

void QVFileManager::scanFolders(const QStringList &folders, const CompletionBlock &completionBlock)
{
    // The examiner reads checkFontActivation itself for every file it examines.
    m_dataMgr->removeAllFontFileItems();

    onMainThread([this] { progress()->setLabel(QVStringTable::text(QStringLiteral("scan.label.title"))); });

    if (m_helperCommunications)
        m_helperCommunications->sendResponse(QStringLiteral("kResponse_ScanFonts_Start"), QString(),
            QVariantMap { { QStringLiteral("kPayloadOptions"), QDateTime::currentDateTimeUtc() } });

    m_findFontsGlobalQueue = std::make_unique<QVOperationQueue>();
    m_seenFiles.clear();
    m_linkedFiles.clear();
    const QStringList walked = canonicalFolders(folders);
    QVOperationPtr previous;
    for (qsizetype i = 0; i < walked.size(); ++i) {
        FindFontsRequest request;
        request.startDirectory = walked.at(i);
        request.isFinal = i == walked.size() - 1;
        request.completionBlock = completionBlock;
        auto operation = std::make_shared<QVOperation>([this, request] { findFontsOperation(request); });
        if (previous)
            operation->addDependency(previous);
        m_findFontsGlobalQueue->addOperation(operation);
        previous = operation;
    }
}

void QVFileManager::findFontsOperation(const FindFontsRequest &request)
{
    findFontFiles(request.startDirectory, request.isFinal, request.completionBlock);
}

bool QVFileManager::findFontFiles(
    const QString &startDirectory, bool isFinalDirectory, const CompletionBlock &completionBlock)
{
    m_didCancel = false;
    m_isFindingFonts = true;

    const QString start = withoutTrailingSlash(startDirectory);
    QVProgress *bar = progress();
    if (bar->maximum() <= 0)
        bar->setMaximum(100);
    // An empty folder makes the step infinite; it is never used, as nothing
    // lies directly inside.
    const double step = bar->maximum() / double(getDirectoryItemCount(start));

    startTime = m_clock();

    // Depth first: each level keeps its sorted entries and the next to visit.
    struct Level {
        QString path;
        std::vector<QVDirectory::Entry> entries;
        size_t next = 0;
        // The listing as the files' snapshots consult it, made when first needed.
        std::shared_ptr<const QVFileSnapshot::Folder> folder;
        // Snapshots being taken ahead of the walk, a run of kRun entries per
        // task (one hand-off per file costs more than a local read), keyed by
        // the run's first entry; and the first entry not yet handed out.
        std::map<size_t, QFuture<std::vector<SnapshotPtr>>> ahead;
        size_t handedOut = 0;
    };
    // With several jobs, workers take the snapshots of the next files while
    // the walk examines this one; a file system that answers slowly answers
    // several of them at once.
    const int jobs = this->jobs();
    std::unique_ptr<QThreadPool> pool;
    if (jobs > 1) {
        pool = std::make_unique<QThreadPool>();
        pool->setMaxThreadCount(jobs);
    }
    constexpr size_t kRun = 16;
    // Each snapshot ahead holds its file open: a bounded number of them.
    const size_t window = qMin<size_t>(size_t(jobs) * kRun * 2, 128);
    std::vector<Level> stack;
    if (QVFileAccess::isPermissionError(QVFileAccess::folderError(start)))
        noteUnreadableFolder(start);
    else
        stack.push_back({ start, QVDirectory::sortedEntries(start), 0, nullptr, {}, 0 });
    const auto listing = [](Level &level) {
        if (!level.folder) {
            std::vector<QByteArray> names;
            names.reserve(level.entries.size());
            for (const QVDirectory::Entry &entry : level.entries)
                names.push_back(entry.native);
            level.folder = std::make_shared<const QVFileSnapshot::Folder>(level.path, std::move(names));
        }
        return level.folder;
    };
    // The label's clock is looked at a few times a second, not once a file.
    qint64 lastLabelPost = 0;

    bool cancelled = false;
    while (!stack.empty() && !cancelled) {
        Level &level = stack.back();
        if (level.next >= level.entries.size()) {
            stack.pop_back();
            continue;
        }
        const size_t index = level.next++;
        const QVDirectory::Entry &entry = level.entries[index];
        const auto isCandidate = [](const QVDirectory::Entry &e) {
            return e.type == DT_REG && !e.name.startsWith(QLatin1Char('.'));
        };
        for (; pool && level.handedOut < level.entries.size() && level.handedOut < index + window;
             level.handedOut += kRun) {
            // Candidates of the run by their place in it; others stay null.
            std::vector<std::pair<QString, QByteArray>> run;
            for (size_t i = level.handedOut; i < qMin(level.handedOut + kRun, level.entries.size()); ++i) {
                const QVDirectory::Entry &later = level.entries[i];
                run.emplace_back(
                    isCandidate(later) ? QString(level.path + QLatin1Char('/') + later.name) : QString(),
                    later.native);
            }
            level.ahead.emplace(level.handedOut,
                QtConcurrent::run(pool.get(), [run = std::move(run), folder = listing(level)] {
                    std::vector<SnapshotPtr> snapshots;
                    for (const auto &[path, native] : run)
                        snapshots.push_back(path.isNull()
                                ? nullptr
                                : std::make_shared<const QVFileSnapshot>(path, folder, native));
                    return snapshots;
                }));
        }
        const QString &name = entry.name;
        const QString path = level.path + QLatin1Char('/') + name;
        const bool direct = stack.size() == 1;
        if (direct)
            bar->increment(step);

        struct stat st;
        if (entry.type == DT_REG) {
            // The listing says what it is: no need to ask again.
            if (isCandidate(entry)) {
                SnapshotPtr snapshot;
                const size_t runStart = index - index % kRun;
                if (const auto taken = level.ahead.find(runStart); taken != level.ahead.end()) {
                    snapshot = taken->second.resultAt(0).at(index - runStart);
                    // Runs the walk has passed are done with.
                    level.ahead.erase(level.ahead.begin(), taken);
                }
                if (!snapshot) {
                    snapshot = std::make_shared<const QVFileSnapshot>(path, listing(level), entry.native);
                }
                considerFile(snapshot);
            }
        } else if (::lstat(QVFileName::encode(path).constData(), &st) != 0) {
            // The folder can be listed but not entered: its files are unknown.
            if (QVFileAccess::isPermissionError(errno))
                noteUnreadableFolder(level.path);
        } else if (S_ISLNK(st.st_mode)) {
            // A link to a folder is not followed, so a tree that links back
            // into itself is walked once. A link to a file waits until every
            // folder is walked: the file itself, when met, is the one examined.
            struct stat target;
            if (!name.startsWith(QLatin1Char('.'))
                && ::stat(QVFileName::encode(path).constData(), &target) == 0 && S_ISREG(target.st_mode))
                m_linkedFiles.append(path);
        } else if (S_ISDIR(st.st_mode)) {
            // The metadata store of a file server is never walked, but one that
            // cannot be read hides the forks of the files beside it.
            const bool skipped = isSkippedFolderName(name);
            const int error = QVFileAccess::folderError(path);
            // The last use of `level`: the push may move it.
            if (QVFileAccess::isPermissionError(error) && (!skipped || name == QLatin1String(".AppleDouble")))
                noteUnreadableFolder(path);
            else if (!skipped && error == 0)
                stack.push_back({ path, QVDirectory::sortedEntries(path), 0, nullptr, {}, 0 });
        } else if (S_ISREG(st.st_mode) && !name.startsWith(QLatin1Char('.'))) {
            // Only regular files: reading the content type of a pipe or a
            // device would hang the walk. Names beginning with "." (hidden
            // files, "._" sidecars) are never fonts to examine.
            considerFile(std::make_shared<const QVFileSnapshot>(path, listing(level), entry.native));
        }

        if (m_didCancel.load()) {
            cancelled = true;
            break;
        }
        if (const qint64 now = m_clock(); now - lastLabelPost >= kLabelPostInterval) {
            lastLabelPost = now;
            onMainThread([this] { updateProgressLabel(); });
        }
    }
    cancelled = cancelled || m_didCancel.load();

    if (isFinalDirectory && !cancelled) {
        for (const QString &link : std::as_const(m_linkedFiles)) {
            struct stat target;
            if (::stat(QVFileName::encode(link).constData(), &target) == 0 && S_ISREG(target.st_mode))
                considerFile(std::make_shared<const QVFileSnapshot>(link, nullptr, QByteArray()));
        }
        m_linkedFiles.clear();
    }
    if (isFinalDirectory && !cancelled && deepCheck())
        cancelled = deepCheckFonts(pool.get());

    if (isFinalDirectory) {
        onMainThread([this] { Q_EMIT closeAlertDialogIfShowing(); });
        bar->setValue(100);
        if (cancelled)
            bar->setValue(0);
        else
            onMainThread([this] { QTimer::singleShot(500, this, [this] { resetProgress(); }); });
        m_isFindingFonts = false;
    }

    if (cancelled) {
        if (m_settings->doLogging())
            qCInfo(lcStore) << " ----> Find fonts canceled by user";
        postScanFolderComplete(true);
        m_isFindingFonts = false;
        return true;
    }
    if (isFinalDirectory && completionBlock) {
        completionBlock(this);
        postScanFolderComplete(m_didCancel.load());
    } else if (isFinalDirectory) {
        postScanFolderComplete(false);
    }
    return false;
}

int QVFileManager::jobs() const
{
    int jobs = m_jobs > 0 ? m_jobs : m_settings->scanJobs();
    if (jobs <= 0)
        jobs = QThread::idealThreadCount();
    return qBound(1, jobs, 64);
}

bool QVFileManager::deepCheck() const
{
    return m_deepCheck.value_or(m_settings->deepCheck());
}

bool QVFileManager::deepCheckFonts(QThreadPool *pool)
{
    const QList<QVFontFilePtr> files = m_dataMgr->fontFileItems;
    if (files.isEmpty())
        return false;
    QVProgress *bar = progress();
    bar->setValue(0);
    onMainThread([this] { progress()->setLabel(QStringLiteral("Deep check of the fonts found...")); });
    const double step = bar->maximum() / double(files.size());
    // A few files a task: one hand-off per file costs more than a small font.
    constexpr qsizetype kRun = 8;
    std::atomic<bool> stop { false };
    std::atomic<int> reported { 0 };
    const auto checkRun = [&files, &stop, &reported](qsizetype from) {
        for (qsizetype i = from; i < qMin(from + kRun, files.size()) && !stop.load(); ++i)
            reported += QVDeepCheck::checkFontFile(*files.at(i));
    };
    std::vector<QFuture<void>> runs;
    for (qsizetype from = 0; pool && from < files.size(); from += kRun)
        runs.push_back(QtConcurrent::run(pool, checkRun, from));
    for (qsizetype from = 0, run = 0; from < files.size(); from += kRun, ++run) {
        if (pool)
            runs[size_t(run)].waitForFinished();
        else if (!stop.load())
            checkRun(from);
        bar->increment(step * double(qMin(kRun, files.size() - from)));
        if (m_didCancel.load())
            stop = true;
    }
    if (reported.load() > 0)
        m_dataMgr->foundProblemFonts = true;
    if (m_settings->doLogging())
        qCInfo(lcStore) << " ----> Deep check:" << reported.load() << "fonts with findings";
    return stop.load();
}

void QVFileManager::considerFile(const SnapshotPtr &snapshot)
{
    // One look at the file answers what follows: its identity, its type, and
    // everything the examiner asks of it.
    if (!snapshot->isRegular())
        return;
    const QString &path = snapshot->path();
    const QVFileSnapshot::Use use(snapshot.get());
    // One file under several names (hard links, links, folders given twice)
    // is one font file: only its first path is examined.
    const QPair<quint64, quint64> identity { snapshot->fileSystem(), snapshot->inode() };
    if (m_seenFiles.contains(identity))
        return;
    // A file that cannot be read is handed over when it may be a font, so that
    // it is reported rather than silently left out.
    if (!isFontFile(path)
        && !(mayBeFontByName(QFileInfo(path).fileName()) && !QVFileAccess::unreadablePart(path).isEmpty()))
        return;
    m_seenFiles.insert(identity);
    m_dataMgr->addFontFileItem(path);
}

void QVFileManager::noteUnreadableFolder(const QString &folder)
{
    if (!m_dataMgr->unreadableFolders.contains(folder))
        m_dataMgr->unreadableFolders.append(folder);
}

void QVFileManager::cancelScan()
{
    m_didCancel = true;
    if (!m_isFindingFonts.load())
        return;
    if (m_findFontsGlobalQueue)
        m_findFontsGlobalQueue->cancelAllOperations();
    // Cleared at once rather than later on the event loop, so that the
    // cancelled text below stays on the label.
    progress()->setValue(0);
    m_isFindingFonts = false;
    postScanFolderComplete(true);
    progress()->setLabel(QVStringTable::text(QStringLiteral("filemanager.scan.canceled")));
}

void QVFileManager::pauseScan()
{
    if (m_isFindingFonts.load() && m_findFontsGlobalQueue && !m_findFontsGlobalQueue->isSuspended())
        m_findFontsGlobalQueue->setSuspended(true);
}

void QVFileManager::resumeScan()
{
    if (m_isFindingFonts.load() && m_findFontsGlobalQueue && m_findFontsGlobalQueue->isSuspended())
        m_findFontsGlobalQueue->setSuspended(false);
}

bool QVFileManager::isSupportedFontFileType(const QString &path) const
{
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("otf") || extension == QLatin1String("ttf")
        || extension == QLatin1String("ttc"))
        return true;
    if (!m_typeCodeReader)
        return false;
    const QByteArray type = m_typeCodeReader(path);
    return type == "FFIL" || type == "FONT" || type == "LWFN" || type == "ffil" || type == "tfil";
}

bool QVFileManager::isFontFile(const QString &path) const
{
    // A font extension decides alone: its content type is a font type, and
    // it is a supported type whatever the file holds.
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("ttf") || extension == QLatin1String("otf")
        || extension == QLatin1String("ttc"))
        return true;
    // Linux's MIME database has no entry for a data-fork suitcase: its name
    // decides, before anything of a possibly damaged file is read.
    if (path.endsWith(QLatin1String(".dfont"), Qt::CaseInsensitive))
        return true;
    // Nor for a Type 1 font's Windows metrics, nor for an outline whose
    // header is damaged: they are reported, not left out.
    if (extension == QLatin1String("pfm") || extension == QLatin1String("t1"))
        return true;
    static const QMimeDatabase mimeDatabase;
    // A scan has the file's first bytes already: the content test reads fewer.
    const QVFileSnapshot *snapshot = QVFileSnapshot::of(path);
    const QMimeType type = snapshot
        ? mimeDatabase.mimeTypeForFileNameAndData(QFileInfo(path).fileName(), snapshot->head())
        : mimeDatabase.mimeTypeForFile(path);
    if (!type.isValid())
        return false;
    return type.name().contains(QLatin1String("font")) || isSupportedFontFileType(path);
}

bool QVFileManager::isSkippedFolderName(const QString &name)
{
    static const QStringList packageSuffixes
        = { QStringLiteral(".app"), QStringLiteral(".bundle"), QStringLiteral(".framework"),
              QStringLiteral(".plugin"), QStringLiteral(".kext"), QStringLiteral(".rtfd"),
              QStringLiteral(".pkg"), QStringLiteral(".mpkg"), QStringLiteral(".photoslibrary") };
    if (name == QLatin1String(".AppleDouble"))
        return true;
    for (const QString &suffix : packageSuffixes) {
        if (name.size() > suffix.size() && name.endsWith(suffix, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

QString QVFileManager::getRootRepository()
{
    if (!m_rootRepository.isEmpty())
        return m_rootRepository;
    const QString root = QVDataFolder::path();
    // A failure shows later, where a file is written.
    QVDataFolder::ensureSubfolder(QStringLiteral("Reports"));
    QVDataFolder::ensureSubfolder(QStringLiteral("Quarantine"));
    m_rootRepository = root;
    return m_rootRepository;
}

int QVFileManager::getDirectoryItemCount(const QString &folder)
{
    const QDir dir(folder);
    if (!dir.exists() || !dir.isReadable())
        return 0;
    return int(
        dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort)
            .size());
}

QString QVFileManager::getFontItemsFilePath(const QString &folder) const
{
    const QString base
        = folder.isNull() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) : folder;
    return base + QLatin1Char('/') + QVStringTable::text(QStringLiteral("filemanager.filename.archive"));
}

bool QVFileManager::saveFontFileItemsToDisk(const QString &folder)
{
    QCborArray items;
    for (const QVFontFilePtr &item : std::as_const(m_dataMgr->fontFileItems))
        items.append(item->encode());
    const QString path = getFontItemsFilePath(folder);
    if (const int error = QVAtomicFile::write(path, QCborValue(items).toCbor())) {
        qCWarning(lcStore).noquote() << "Error: saveFontFileItemsToDisk"
                                     << QVAtomicFile::errorText(path, error);
        return false;
    }
    return true;
}

bool QVFileManager::loadFontFileItemsFromDisk(const QString &folder)
{
    QFile file(getFontItemsFilePath(folder));
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxFontItemsFileSize)
        return false;
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(file.readAll(), &error);
    if (error.error != QCborError::NoError || !value.isArray())
        return false;
    QList<QVFontFilePtr> items;
    for (const QCborValue &element : value.toArray()) {
        if (!element.isByteArray())
            return false;
        QVFontFilePtr item = QVFontFile::decode(element.toByteArray());
        if (!item)
            return false;
        items.append(item);
    }
    m_dataMgr->setAllFontItems(items);
    return true;
}

QString QVFileManager::timeRemainingText(double remainingSeconds)
{
    // The C library's "%.0f" rounds a half to even (2.5 minutes -> "2");
    // QString::asprintf rounds it away from zero, so it is not used here.
    char buffer[512]; // room for the largest double written out whole
    if (remainingSeconds < 60)
        return QStringLiteral("less than a minute");
    if (remainingSeconds > 59 && remainingSeconds < 3600)
        std::snprintf(buffer, sizeof buffer, "%.0f minutes", remainingSeconds / 60);
    else
        std::snprintf(buffer, sizeof buffer, "%.0f hours", remainingSeconds / 3600);
    QString text = QString::fromLatin1(buffer);
    // "1 hours" stays as it is.
    if (text == QLatin1String("1 minutes"))
        text = QStringLiteral("1 minute");
    return text;
}

void QVFileManager::updateProgressLabel()
{
    const double elapsed = double(m_clock() - startTime) / 1e9;
    if (lastProgressUpdate != 0 && elapsed - double(lastProgressUpdate) <= 2.0)
        return;
    if (lastProgressUpdate != 0) {
        QVProgress *bar = progress();
        const double value = bar->value();
        const double secondsPerUnit = elapsed / value;
        const double remaining = (bar->maximum() - value) * secondsPerUnit;
        const QString label
            = QStringLiteral("Estimated time remaining: %1").arg(timeRemainingText(remaining));
        onMainThread([this, label] { progress()->setLabel(label); });
    }
    lastProgressUpdate = elapsed > 0 ? quint64(elapsed) : 0;
}

void QVFileManager::resetProgress()
{
    onMainThread([this] {
        progress()->setValue(0);
        progress()->setLabel(QString(""));
    });
}
