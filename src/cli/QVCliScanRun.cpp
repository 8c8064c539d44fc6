#include "cli/QVCliScanRun.h"

#include "cli/QVCliCommand.h"
#include "cli/QVTerminalProgress.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileAccess.h"
#include "platform/QVFileSystem.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QTimer>
#include <atomic>

namespace
{

volatile std::sig_atomic_t interruptedFlag = 0;

void onInterrupt(int)
{
    interruptedFlag = 1;
}

} // namespace

QVCliScanRun::QVCliScanRun(QVFontDataManager *dataManager, FILE *progressStream)
    : m_dataManager(dataManager)
    , m_progressStream(progressStream)
{
    interruptedFlag = 0;
    struct sigaction action {
    };
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &m_previous);
    sigaction(SIGTERM, &action, &m_previousTerm);
}

QVCliScanRun::~QVCliScanRun()
{
    sigaction(SIGINT, &m_previous, nullptr);
    sigaction(SIGTERM, &m_previousTerm, nullptr);
}

QString QVCliScanRun::passesError(const QVSettings &settings)
{
    if (settings.diagnoseFileStructure() || settings.findOrpanedFonts() || settings.findDuplicateFonts())
        return {};
    return QVStringTable::text(QStringLiteral("settings.errorMessage.dignosisOptions"))
        + QStringLiteral(" (diagnoseFileStructure, findOrpanedFonts, findDuplicateFonts)");
}

QString QVCliScanRun::folderError(const QStringList &folders)
{
    for (const QString &folder : folders) {
        if (!QVFileSystem::exists(folder))
            return folder + QStringLiteral(": no such folder");
        if (!QVFileSystem::isDirectory(folder))
            return folder + QStringLiteral(": not a folder");
        if (const int error = QVFileAccess::folderError(folder); QVFileAccess::isPermissionError(error))
            return QVFileAccess::describe(folder, error);
    }
    return QString();
}

QString QVCliScanRun::prepareFolders(QStringList *folders)
{
    if (folders->isEmpty())
        *folders = QVSettings().fontFolderPaths();
    return folderError(*folders);
}

bool QVCliScanRun::interrupted()
{
    return interruptedFlag != 0;
}

namespace
{
// 0: the setting decides.
int jobsOption = 0;
bool deepOption = false;
} // namespace

QString QVCliScanRun::takeJobsOption(QStringList *arguments)
{
    const qsizetype at = arguments->indexOf(QStringLiteral("--jobs"));
    if (at < 0)
        return QString();
    bool ok = false;
    const int jobs = at + 1 < arguments->size() ? arguments->at(at + 1).toInt(&ok) : 0;
    if (!ok || jobs < 1 || jobs > 64)
        return QStringLiteral("--jobs takes a number from 1 to 64");
    arguments->remove(at, 2);
    if (arguments->contains(QStringLiteral("--jobs")))
        return QStringLiteral("--jobs given twice");
    jobsOption = jobs;
    return QString();
}

void QVCliScanRun::takeDeepOption(QStringList *arguments)
{
    deepOption = arguments->removeAll(QStringLiteral("--deep")) > 0 || deepOption;
}

bool QVCliScanRun::scanFolders(const QStringList &folders)
{
    bool scanCancelled = false;
    if (!folders.isEmpty()) {
        QVFileManager fileManager(m_dataManager);
        fileManager.setJobs(jobsOption);
        QVCliCommand::step(QStringLiteral("looking for fonts in ") + folders.join(QStringLiteral(", ")));
        if (deepOption)
            fileManager.setDeepCheck(true);
        QVTerminalProgress terminal(fileManager.progress(), m_progressStream);
        // Files are examined as the walk finds them: the phase turns once
        // the first one is in.
        std::atomic<qsizetype> examined = 0;
        auto added = m_dataManager->fontFileAdded;
        m_dataManager->fontFileAdded = [&examined, added](const QVFontFilePtr &file) {
            ++examined;
            if (added)
                added(file);
        };
        terminal.setPhase([&examined](const QString &label) {
            const qsizetype count = examined.load();
            if (count == 0)
                return QStringLiteral("Looking for fonts");
            // The estimate of the time left, once there is one, takes the
            // place of the count.
            if (label.startsWith(QLatin1String("Estimated")))
                return QString(QStringLiteral("Examining - ") + label);
            return QStringLiteral("Examining (%1 font files)").arg(count);
        });
        QEventLoop loop;
        QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kScanFolderComplete,
            &loop, [&](const QVariantMap &userInfo) {
                scanCancelled
                    = userInfo.value(QStringLiteral("status")).toString() == QLatin1String("cancelled");
                loop.quit();
            });
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (interruptedFlag && fileManager.isFindingFonts())
                fileManager.cancelScan();
        });
        poll.start(50);
        fileManager.scanFolders(folders);
        loop.exec();
        // The walk may still be finishing its current file.
        fileManager.findFontsGlobalQueue()->waitUntilAllOperationsAreFinished();
        m_dataManager->fontFileAdded = added;
        terminal.clear();
        QVCliCommand::step(QStringLiteral("examined %1 font files, %2 fonts")
                               .arg(m_dataManager->fontFileItems.size())
                               .arg(m_dataManager->totalFonts));
    }
    return !scanCancelled && !interruptedFlag;
}

QVDiagnosis &QVCliScanRun::diagnose(const QStringList &folders)
{
    QVSettings().setLastScanType(QStringLiteral("Manual Scan"));
    m_view.reset();
    m_diagnosis = std::make_unique<QVDiagnosis>(m_dataManager);
    QVDiagnosis &diagnosis = *m_diagnosis;
    m_view = std::make_unique<QVDiagnosisViewState>(&diagnosis);
    QVDiagnosisViewState &view = *m_view;
    QObject::connect(&view, &QVDiagnosisViewState::alertRequested,
        [this](const QString &message, const QString &informativeText) {
            m_alert = message + QStringLiteral(": ") + informativeText;
        });
    view.setPacingEnabled(false);
    view.setFinishDelay(0);
    diagnosis.setManualScanFolders(folders);
    QVTerminalProgress terminal(diagnosis.overallProgress(), m_progressStream);
    // The passes run side by side: the phase names those under way.
    terminal.setPhase([&diagnosis](const QString &) {
        QStringList running;
        for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass) {
            const QVProgress *bar = diagnosis.progressForPass(pass);
            if (diagnosis.isProgressEnabled(pass) && bar->label() == diagnosis.titleForProgress(pass)
                && bar->value() > 0)
                running << diagnosis.titleForProgress(pass);
        }
        return running.isEmpty() ? QStringLiteral("Diagnosing")
                                 : QStringLiteral("Diagnosing: ") + running.join(QStringLiteral(", "));
    });
    {
        QStringList passes;
        for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass) {
            if (diagnosis.isProgressEnabled(pass))
                passes << diagnosis.titleForProgress(pass);
        }
        QVCliCommand::step(QStringLiteral("diagnosing: ") + passes.join(QStringLiteral(", ")));
    }
    QEventLoop loop;
    bool finished = false;
    QObject::connect(&view, &QVDiagnosisViewState::diagnosisFinished, &loop, [&] { finished = true; });
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (interruptedFlag && !diagnosis.doCancel())
            diagnosis.setDoCancel(true);
        // A cancelled run may finish before its last passes return.
        if (finished && diagnosis.passesInFlight() == 0)
            loop.quit();
    });
    poll.start(20);
    view.diagnoseFonts();
    if (view.isDiagnosingFonts())
        loop.exec();
    terminal.clear();
    return diagnosis;
}
