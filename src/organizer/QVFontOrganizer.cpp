#include "organizer/QVFontOrganizer.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVType1Files.h"
#include "platform/QVFileName.h"
#include "platform/QVFilePair.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"
#include "platform/QVPackageFiles.h"
#include "settings/QVLog.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVOperationQueue.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace
{

const QString kRecoverySuggestion
    = QStringLiteral("Check that the library folder can be written and that its disk has room.");

bool existsOrLink(const QString &path)
{
    struct stat st;
    return ::lstat(QVFileName::encode(path).constData(), &st) == 0;
}

QString folderOf(const QString &path)
{
    return QFileInfo(path).absolutePath();
}

// A name read from a font becomes one folder or file name: it may not climb
// out of the library, make extra levels, hide (a leading dot; "._" would be
// taken for a sidecar by the next scan) or exceed what a file system holds.
QString safeComponent(QString name)
{
    name.replace(QLatin1Char('/'), QLatin1Char('-'));
    name.remove(QChar(0));
    if (name.startsWith(QLatin1Char('.')))
        name[0] = QLatin1Char('_');
    while (name.toUtf8().size() > 240)
        name.chop(1);
    return name;
}

// The name without its last extension ("Sans.ttf" -> "Sans"; ".x" stays).
QString withoutExtension(const QString &name)
{
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.left(dot) : name;
}

// The folders that making `folder` creates, deepest first.
QStringList missingFolders(const QString &folder)
{
    QStringList missing;
    QString current = QDir::cleanPath(folder);
    while (!existsOrLink(current)) {
        missing.append(current);
        const QString parent = QFileInfo(current).absolutePath();
        if (parent == current)
            break;
        current = parent;
    }
    return missing;
}

// Takes back the folders a run made for a font that did not arrive; a folder
// that holds anything (another font got there) is left.
void removeEmptyFolders(const QStringList &deepestFirst)
{
    for (const QString &folder : deepestFirst)
        QDir().rmdir(folder);
}

bool isLWFN(const QString &path)
{
    QByteArray info;
    if (QVForkStorage::readFinderInfo(path, &info) != 0 || info.size() < 4)
        return false;
    return info.left(4) == "LWFN";
}

// A PC Type 1 outline (a Mac outline file is known by its HFS type, whatever its name).
bool isPCOutline(const QVFontFile &file)
{
    return file.macTypeCode != QLatin1String("LWFN") && QVType1Files::isOutline(file.URL);
}

// Whether a file of that name could be put in the folder as it is.
bool isFree(const QString &folder, const QString &name)
{
    return QVQuarantineStore::uniqueDestination(folder, name, true) == folder + QLatin1Char('/') + name;
}

} // namespace

QVFontOrganizer::QVFontOrganizer(
    QVFontDataManager *dataManager, QVSuitcaseSurgery *surgery, QVSettings *settings, QObject *parent)
    : QObject(parent)
    , m_dataManager(dataManager)
    , m_surgery(surgery)
    , m_settings(settings)
    , m_progress(new QVProgress(this))
{
}

QVFontOrganizer::~QVFontOrganizer()
{
    if (!m_organizeFontsQueue)
        return;
    m_doCancel = true;
    // The walk never waits for this thread, so waiting for it cannot deadlock.
    m_organizeFontsQueue->waitUntilAllOperationsAreFinished();
}

bool QVFontOrganizer::copying() const
{
    return m_settings->copyFontFiles();
}

void QVFontOrganizer::onMainThread(const std::function<void()> &work)
{
    if (!QCoreApplication::instance()) {
        work();
        return;
    }
    // Queued on the organizer: work left when it goes is dropped with it.
    QMetaObject::invokeMethod(this, work, Qt::QueuedConnection);
}

void QVFontOrganizer::organizeFonts(const QString &libraryPath, const CompletionBlock &completionBlock)
{
    m_problemFontCount = 0;
    m_doCancel = false;
    m_copiedOrMovedFonts = false;
    {
        std::lock_guard guard(m_placementMutex);
        m_placements.clear();
    }
    QString library = libraryPath;
    while (library.size() > 1 && library.endsWith(QLatin1Char('/')))
        library.chop(1);
    m_libraryURL = library;
    m_settings->setOrganizeFontsFolder(library);

    m_progress->setTitle(QVStringTable::text(QStringLiteral("organize.organizing.setup.message")));
    m_progress->setLabel(QVStringTable::text(QStringLiteral("organize.folders.message")));
    m_progress->setValue(0);
    m_progress->setMaximum(m_dataManager->totalFonts);
    m_progress->setIndeterminate(true);
    Q_EMIT progressSheetRequested();
    executeOrganizeFontsQueue(completionBlock);
}

void QVFontOrganizer::executeOrganizeFontsQueue(const CompletionBlock &completionBlock)
{
    if (m_organizeFontsQueue)
        m_organizeFontsQueue->waitUntilAllOperationsAreFinished();
    m_organizeFontsQueue = std::make_unique<QVOperationQueue>();
    m_organizeFontsQueue->addOperation(
        std::make_shared<QVOperation>([this, completionBlock] { organizeFontsOperation(completionBlock); }));
}

void QVFontOrganizer::organizeFontsOperation(const CompletionBlock &completionBlock)
{
    createLibrary();
    m_isOrganizingFonts = false;
    m_settings->setOrganizeFonts(false);
    if (!m_doCancel) {
        onMainThread([this] {
            m_progress->setValue(m_dataManager->totalFonts);
            m_progress->setLabel(QVStringTable::text(QStringLiteral("organize.finish.message")));
            Q_EMIT progressSheetClosed();
            if (m_problemFontCount > 0)
                m_dataManager->foundProblemFonts = true;
            Q_EMIT alertRequested(QStringLiteral("Organize Fonts Completed"),
                QVStringTable::text(QStringLiteral("The fonts were successfully organized.")),
                QVStringTable::text(QStringLiteral("any.ok.title")));
        });
        if (m_settings->showLibraryFolder() && m_copiedOrMovedFonts) {
            const QString library = m_libraryURL;
            onMainThread([this, library] { Q_EMIT libraryFolderRevealRequested(library); });
        }
    }
    if (completionBlock)
        completionBlock();
}

void QVFontOrganizer::cancelOrganizing()
{
    m_doCancel = true;
    onMainThread([this] {
        m_progress->setValue(m_dataManager->totalFonts);
        m_progress->setLabel(QVStringTable::text(QStringLiteral("organize.cancel.message")));
        QTimer::singleShot(2000, this, [this] {
            Q_EMIT progressSheetClosed();
            if (m_settings->showLibraryFolder())
                Q_EMIT libraryFolderRevealRequested(m_libraryURL);
        });
    });
}

bool QVFontOrganizer::statusHasErrors(const QVStatusPtr &fontStatus)
{
    const QList<int> &errors = fontStatus->fontErrors;
    return errors.size() >= 2 || (errors.size() == 1 && errors.first() != 3);
}

bool QVFontOrganizer::parentStatusHasErrors(const QVStatusPtr &fontStatus) const
{
    for (const QVFontFilePtr &item : std::as_const(m_dataManager->fontFileItems)) {
        for (const QVStatusPtr &status : std::as_const(item->fontStatusArray)) {
            if (status->index == fontStatus->index || status->fontType != fontStatus->fontType
                || status->fontURL != fontStatus->fontURL || status->PSname != fontStatus->PSname
                || status->fontSize == fontStatus->fontSize)
                continue;
            if (status->copiedOrMoved() || status->hasErrors())
                return true;
        }
    }
    return false;
}

QVStatusPtr QVFontOrganizer::getSisterPostScriptFont(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const
{
    if (fontStatus->fontType != 0 || fontFile->fontFileType != 0)
        return nullptr;
    const QString folder = folderOf(fontFile->URL);
    for (const QVFontFilePtr &item : std::as_const(m_dataManager->fontFileItems)) {
        if (item->fontFileType != 0 || folderOf(item->URL) != folder)
            continue;
        for (const QVStatusPtr &status : std::as_const(item->fontStatusArray)) {
            if (status->PSname == fontStatus->PSname && (status->fontType == 1 || status->fontType == 2))
                return status;
        }
    }
    return nullptr;
}

QString QVFontOrganizer::fontDisplayName(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus)
{
    if (fontFile->fontFileType == 0 && fontStatus->fontType == 3 && !fontStatus->trueTypeFontName.isEmpty()
        && !fontStatus->trueTypeFontName.contains(fontStatus->fontName))
        return fontStatus->trueTypeFontName;
    return fontStatus->fontName;
}

QString QVFontOrganizer::libraryFolderFor(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const
{
    const QString name = fontDisplayName(fontFile, fontStatus);
    QString folder = m_libraryURL + QLatin1Char('/');
    if (m_settings->createFoundryFolders()) {
        QString foundry = fontStatus->fontFoundry;
        if (fontStatus->fontType == 0) {
            const QVStatusPtr sister = getSisterPostScriptFont(fontFile, fontStatus);
            foundry = sister ? sister->fontFoundry : QStringLiteral("Generic");
        }
        const QString component = safeComponent(foundry);
        if (!component.isEmpty())
            folder += component + QLatin1Char('/');
    }
    if (m_settings->createAlphabetFolders() && !name.isEmpty())
        // The first character, not the first half of a surrogate pair.
        folder += safeComponent(name.left(name.at(0).isHighSurrogate() ? 2 : 1).toUpper()) + QLatin1Char('/');
    if (m_settings->createFamilyFolders()) {
        QString family;
        if (fontStatus->familyName.size() >= 2)
            family = fontStatus->familyName;
        else if (name.isEmpty())
            family = withoutExtension(QFileInfo(fontStatus->fontURL).fileName());
        else
            family = withoutExtension(name);
        const QString component = safeComponent(family);
        if (!component.isEmpty())
            folder += component + QLatin1Char('/');
    }
    return folder;
}

QString QVFontOrganizer::suitcaseMemberFileName(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const
{
    QString fileName;
    if (m_settings->usePostscriptNameForFonts()) {
        fileName = fontStatus->PSname;
        if (fontStatus->fontType == 0 && fontStatus->PSname == fontStatus->PS533name)
            fileName += QStringLiteral(".suit");
    } else if (m_settings->useFamilyNameForFonts()) {
        const QString name = fontDisplayName(fontFile, fontStatus);
        if (fontStatus->fontStyle == QLatin1String("Plain"))
            fileName = name;
        else
            fileName
                = QStringLiteral("%1 %2").arg(name, QString(fontStatus->fontStyle).remove(QLatin1Char(',')));
    }
    if (fileName.isEmpty())
        fileName = QFileInfo(fontStatus->fontURL.isEmpty() ? fontFile->URL : fontStatus->fontURL).fileName();
    return safeComponent(fileName);
}

QString QVFontOrganizer::storeError(const QVStatusPtr &fontStatus, const QString &text)
{
    (copying() ? fontStatus->copiedToLibraryErrorInfo : fontStatus->movedToLibraryErrorInfo) = text;
    ++m_problemFontCount;
    return text;
}

void QVFontOrganizer::addPlacement(const Placement &placement)
{
    std::lock_guard guard(m_placementMutex);
    m_placements.append(placement);
}

QList<QVFontOrganizer::Placement> QVFontOrganizer::placements() const
{
    std::lock_guard guard(m_placementMutex);
    return m_placements;
}

void QVFontOrganizer::advanceProgress(int fonts, const QString &label)
{
    // On the main thread behind the cancel's own update, which stays shown.
    onMainThread([this, fonts, label] {
        if (m_doCancel)
            return;
        if (fonts > 0)
            m_progress->increment(fonts);
        if (!label.isNull())
            m_progress->setLabel(label);
    });
}

void QVFontOrganizer::createLibrary()
{
    onMainThread([this] {
        m_progress->setIndeterminate(false);
        m_progress->setMaximum(m_dataManager->totalFonts);
        m_progress->setTitle(QVStringTable::text(QStringLiteral("organize.organizing.message")));
    });
    m_isOrganizingFonts = true;
    const bool copy = copying();

    // A copy of the list: the main thread may mark records, never add files.
    const QList<QVFontFilePtr> items = m_dataManager->fontFileItems;
    // A font moved away from a folder holding files that cannot be read could
    // leave its counterpart behind unseen: such fonts are only copied.
    const QSet<QString> hiding = copy ? QSet<QString>() : m_dataManager->foldersHidingFonts();
    for (const QVFontFilePtr &fontFile : items) {
        if (m_doCancel)
            return;
        if (fontFile->copiedOrMoved() || fontFile->hasErrors()) {
            advanceProgress(fontFile->fontStatusArray.size(), QString());
            continue;
        }
        const QList<QVStatusPtr> statuses = fontFile->fontStatusArray;
        for (const QVStatusPtr &fontStatus : statuses) {
            if (m_doCancel)
                return;
            advanceProgress(1, QString());
            // Mac outlines go with their bitmap fonts, PC metrics files with their outline.
            if (fontStatus->copiedOrMoved() || statusHasErrors(fontStatus)
                || parentStatusHasErrors(fontStatus)
                || ((fontStatus->fontType == 1 || fontStatus->fontType == 2) && !isPCOutline(*fontFile)))
                continue;

            if (hiding.contains(folderOf(fontFile->URL))) {
                storeError(fontStatus,
                    QStringLiteral("Left in place: %1 holds files that cannot be read, which may belong to "
                                   "this font")
                        .arg(folderOf(fontFile->URL)));
                continue;
            }
            const QString name = fontDisplayName(fontFile, fontStatus);
            const QString folder = libraryFolderFor(fontFile, fontStatus);
            const QStringList created = missingFolders(folder);
            std::error_code error;
            std::filesystem::create_directories(std::filesystem::path(folder.toStdString()), error);
            if (error || !QVFileSystem::isDirectory(folder)) {
                removeEmptyFolders(created);
                const QString reason = error ? QString::fromStdString(error.message())
                                             : QStringLiteral("A file of that name is in the way");
                const QString text = QStringLiteral("%1 (%2)").arg(
                    QStringLiteral("The folder \"%1\" could not be created: %2").arg(folder, reason),
                    kRecoverySuggestion);
                storeError(fontStatus, text);
                qCWarning(lcOrganizer, "Error trying to create folder at \"%s\" (%s)", qUtf8Printable(folder),
                    qUtf8Printable(reason));
                continue;
            }

            if (isPCOutline(*fontFile)) {
                advanceProgress(0,
                    (copy ? QStringLiteral("Copying font file \"%1\"")
                          : QStringLiteral("Moving font file \"%1\""))
                        .arg(QFileInfo(fontFile->URL).fileName()));
                moveType1ToFolder(fontFile, fontStatus, folder);
                removeEmptyFolders(created);
                break;
            }
            const bool suitcaseMember
                = fontFile->fontFileType == 0 && (fontStatus->fontType == 0 || fontStatus->fontType == 3);
            if (suitcaseMember) {
                advanceProgress(0,
                    (copy ? QStringLiteral("Copying font \"%1\"") : QStringLiteral("Moving font \"%1\""))
                        .arg(name));
                const QString fileName = suitcaseMemberFileName(fontFile, fontStatus);
                m_copiedOrMovedFonts = true;
                moveSuitcaseMember(fontFile, fontStatus, folder, fileName);
                removeEmptyFolders(created);
                continue;
            }

            const QString fileName = QFileInfo(fontFile->URL).fileName();
            advanceProgress(0,
                (copy ? QStringLiteral("Copying font file \"%1\"")
                      : QStringLiteral("Moving font file \"%1\""))
                    .arg(fileName));
            m_copiedOrMovedFonts = true;
            moveFileToFolder(fontFile, fontStatus, folder);
            removeEmptyFolders(created);
            // The file's other fonts went with it.
            break;
        }
    }
}

void QVFontOrganizer::moveSuitcaseMember(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus,
    const QString &folder, const QString &fileName)
{
    const bool copy = copying();
    const QString source = fontStatus->fontURL.isEmpty() ? fontFile->URL : fontStatus->fontURL;
    // The surgery numbers a taken name the same way; knowing the place lets
    // the run say where the font went.
    const QString destination = QVQuarantineStore::uniqueDestination(folder.chopped(1), fileName, false);
    QString result
        = m_surgery->moveFontFromSuitcaseToFolder(fontFile, fontStatus, folder.chopped(1), fileName, copy);
    // The surgery passes over a family it cannot write out; a font that did
    // not arrive must not count as organized.
    if (result.isEmpty() && !existsOrLink(destination))
        result = QStringLiteral("%1 (%2)").arg(
            QStringLiteral("The font could not be saved as \"%1\"").arg(destination), kRecoverySuggestion);
    if (!result.isEmpty()) {
        storeError(fontStatus, result);
        qCWarning(lcOrganizer, "Error trying to move font at \"%s\" (%s)", qUtf8Printable(source),
            qUtf8Printable(result));
    } else {
        m_copiedOrMovedFonts = true;
        QVQuarantineStore::updateFontMovedStatus(
            fontFile, fontStatus->PSname, fontStatus->fontName, false, false);
        addPlacement({ source, destination, fontStatus->fontName, copy });
    }
    moveSisterPostScriptFontToFolder(fontFile, fontStatus, folder.chopped(1));
}

QString QVFontOrganizer::moveFileToFolder(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &folder)
{
    std::lock_guard guard(m_moveMutex);
    const bool copy = copying();
    QString base = folder;
    while (base.size() > 1 && base.endsWith(QLatin1Char('/')))
        base.chop(1);
    const QString fileName = QFileInfo(fontFile->URL).fileName();
    const QString wanted = QStringLiteral("%1/%2").arg(base, fileName);
    // A PostScript outline already in its place is done.
    if (existsOrLink(wanted) && isLWFN(wanted))
        return QString();
    const QString destination = QVQuarantineStore::uniqueDestination(base, fileName, true);

    if (!copy && QVPackageFiles::isPackageFile(fontFile->URL)) {
        m_lastFailureReason = QVPackageFiles::refusal(fontFile->URL);
        return storeError(fontStatus, m_lastFailureReason);
    }
    if (existsOrLink(fontFile->URL)) {
        const QVFilePair::Result result = copy ? QVFilePair::copy(fontFile->URL, destination)
                                               : QVFilePair::move(fontFile->URL, destination);
        if (!result) {
            m_lastFailureReason = result.message;
            const QString text = QStringLiteral("%1 (%2, %3)")
                                     .arg(result.message, kRecoverySuggestion, QString::number(result.error));
            storeError(fontStatus, text);
            qCWarning(lcOrganizer, "Error trying to move font at \"%s\" (%s)", qUtf8Printable(fontFile->URL),
                qUtf8Printable(result.message));
            return text;
        }
        addPlacement({ fontFile->URL, destination, fontStatus->fontName, copy });
    }
    markInLibrary(fontFile, copy);
    return QString();
}

bool QVFontOrganizer::moveSisterPostScriptFontToFolder(
    const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &folder)
{
    if (fontStatus->fontType != 0 || fontFile->fontFileType != 0)
        return false;
    const bool copy = copying();
    const QString sourceFolder = folderOf(fontFile->URL);
    QList<QPair<QVFontFilePtr, QVStatusPtr>> sisters;
    for (const QVFontFilePtr &item : std::as_const(m_dataManager->fontFileItems)) {
        if (item->fontFileType != 0 || folderOf(item->URL) != sourceFolder)
            continue;
        for (const QVStatusPtr &status : std::as_const(item->fontStatusArray)) {
            if (status->PSname == fontStatus->PSname && (status->fontType == 1 || status->fontType == 2))
                sisters.append({ item, status });
        }
    }
    bool arrived = false;
    for (const auto &[file, status] : std::as_const(sisters)) {
        arrived = moveFileToFolder(file, status, folder).isNull();
        if (!arrived) {
            (copy ? status->copiedToLibraryErrorInfo : status->movedToLibraryErrorInfo) = m_lastFailureReason;
        } else {
            (copy ? fontStatus->copiedSisterToLibrary : fontStatus->movedSisterToLibrary) = true;
        }
    }
    return arrived;
}

QString QVFontOrganizer::moveType1ToFolder(
    const QVFontFilePtr &outline, const QVStatusPtr &fontStatus, const QString &folder)
{
    std::lock_guard guard(m_moveMutex);
    const bool copy = copying();
    const QString base = folder.endsWith(QLatin1Char('/')) ? folder.chopped(1) : folder;
    QStringList sources { outline->URL };
    sources += QVType1Files::metricsOf(outline->URL);
    if (!copy) {
        for (const QString &source : std::as_const(sources)) {
            if (QVPackageFiles::isPackageFile(source))
                return storeError(fontStatus, QVPackageFiles::refusal(source));
        }
    }
    // One base name for all, numbered when any of them is taken, so that the
    // files still find each other in the library.
    const QString stem = QFileInfo(outline->URL).completeBaseName();
    QStringList destinations;
    for (int number = 0; destinations.size() < sources.size(); ++number) {
        destinations.clear();
        const QString numbered = number == 0 ? stem : stem + QLatin1Char(' ') + QString::number(number);
        for (const QString &source : std::as_const(sources)) {
            const QString name = numbered + QLatin1Char('.') + QFileInfo(source).suffix();
            if (!isFree(base, name))
                break;
            destinations << base + QLatin1Char('/') + name;
        }
    }
    for (qsizetype i = 0; i < sources.size(); ++i) {
        const QVFilePair::Result result = copy ? QVFilePair::copy(sources.at(i), destinations.at(i))
                                               : QVFilePair::move(sources.at(i), destinations.at(i));
        if (result)
            continue;
        // Those already placed go back, so the font stays whole where it was.
        for (qsizetype j = i - 1; j >= 0; --j) {
            const QVFilePair::Result undone = copy ? QVFilePair::remove(destinations.at(j))
                                                   : QVFilePair::move(destinations.at(j), sources.at(j));
            if (!undone)
                qCWarning(lcOrganizer, "Error putting back \"%s\" (%s)", qUtf8Printable(destinations.at(j)),
                    qUtf8Printable(undone.message));
        }
        m_lastFailureReason = result.message;
        qCWarning(lcOrganizer, "Error trying to move font at \"%s\" (%s)", qUtf8Printable(sources.at(i)),
            qUtf8Printable(result.message));
        return storeError(fontStatus,
            QStringLiteral("%1 (%2, %3)")
                .arg(result.message, kRecoverySuggestion, QString::number(result.error)));
    }
    m_copiedOrMovedFonts = true;
    for (qsizetype i = 0; i < sources.size(); ++i) {
        QVFontFilePtr record = i == 0 ? outline : nullptr;
        for (qsizetype k = 0; !record && k < m_dataManager->fontFileItems.size(); ++k) {
            if (m_dataManager->fontFileItems.at(k)->URL == sources.at(i))
                record = m_dataManager->fontFileItems.at(k);
        }
        addPlacement({ sources.at(i), destinations.at(i),
            i == 0 ? fontStatus->fontName : QFileInfo(sources.at(i)).fileName(), copy });
        if (record)
            markInLibrary(record, copy);
    }
    return QString();
}

void QVFontOrganizer::markInLibrary(const QVFontFilePtr &fontFile, bool copied)
{
    if (copied) {
        fontFile->fileCopiedToLibrary = true;
        updateFileCopiedStatus(fontFile);
    } else {
        fontFile->fileMovedToLibrary = true;
        QVQuarantineStore::updateFileMovedStatus(fontFile, false);
    }
}

void QVFontOrganizer::updateFileCopiedStatus(const QVFontFilePtr &fontFile)
{
    for (const QVStatusPtr &status : std::as_const(fontFile->fontStatusArray)) {
        if (!status->copiedToLibrary)
            return;
    }
    fontFile->fileCopiedToLibrary = true;
}
