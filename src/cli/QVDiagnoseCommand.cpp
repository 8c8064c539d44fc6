#include "cli/QVDiagnoseCommand.h"

#include "cli/QVQuarantineCommand.h"
#include "cli/QVScanCommand.h"
#include "cli/QVTerminalProgress.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisSummary.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>
#include <csignal>

namespace
{

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int)
{
    interrupted = 1;
}

// Ctrl-C asks the scan or the diagnosis to stop instead of killing the
// process, for as long as this object lives.
class QVInterruptGuard
{
public:
    QVInterruptGuard()
    {
        interrupted = 0;
        struct sigaction action {
        };
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_previous);
    }
    ~QVInterruptGuard() { sigaction(SIGINT, &m_previous, nullptr); }
    QVInterruptGuard(const QVInterruptGuard &) = delete;
    QVInterruptGuard &operator=(const QVInterruptGuard &) = delete;

private:
    struct sigaction m_previous {
    };
};

// The command line has no window: it keeps the one sheet a run can show.
class QVCommandLineDelegate final : public QVDiagnosisDelegate
{
public:
    void showAlert(
        const QString &message, const QString &informativeText, const QStringList &, const QString &) override
    {
        alert = message + QStringLiteral(": ") + informativeText;
    }
    QString alert;
};

} // namespace

int QVDiagnoseCommand::run(const QStringList &arguments)
{
    bool json = false;
    bool resolve = false;
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--resolve")) {
            resolve = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli diagnose [--json] [--resolve] [FOLDER...]\n";
            err().flush();
            return UsageError;
        } else {
            folders.append(argument);
        }
    }
    QVSettings settings;
    if (folders.isEmpty())
        folders = settings.fontFolderPaths();
    for (const QString &folder : std::as_const(folders)) {
        const QFileInfo info(folder);
        if (!info.exists() || !info.isDir()) {
            err() << "quorvel-cli: " << folder << (info.exists() ? ": not a folder\n" : ": no such folder\n");
            err().flush();
            return UsageError;
        }
    }
    if (!settings.diagnoseFileStructure() && !settings.findOrpanedFonts() && !settings.findDuplicateFonts()) {
        err() << "quorvel-cli: "
              << QVStringTable::text(QStringLiteral("settings.errorMessage.dignosisOptions"))
              << " (diagnoseFileStructure, findOrpanedFonts, findDuplicateFonts)\n";
        err().flush();
        return UsageError;
    }

    QVFontDataManager dataManager;
    QVInterruptGuard guard;

    // The discovery scan.
    bool scanCancelled = false;
    if (!folders.isEmpty()) {
        QVFileManager fileManager(&dataManager);
        QVTerminalProgress terminal(fileManager.progress(), stderr);
        QEventLoop loop;
        QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::notificationPosted,
            &loop, [&](const QString &name, const QVariantMap &userInfo) {
                if (name != QLatin1String(kScanFolderComplete))
                    return;
                scanCancelled
                    = userInfo.value(QStringLiteral("status")).toString() == QLatin1String("cancelled");
                loop.quit();
            });
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (interrupted && fileManager.isFindingFonts())
                fileManager.cancelScan();
        });
        poll.start(50);
        fileManager.scanFolders(folders);
        loop.exec();
        // The walk may still be finishing its current file.
        fileManager.findFontsGlobalQueue()->waitUntilAllOperationsAreFinished();
        terminal.clear();
    }
    if (scanCancelled || interrupted) {
        err() << "quorvel-cli: scan cancelled; " << dataManager.fontFileItems.size()
              << " font files were examined before it stopped\n";
        err().flush();
        return Cancelled;
    }

    // The diagnosis, unpaced: nobody watches its bars here.
    settings.setLastScanType(QStringLiteral("Manual Scan"));
    QVCommandLineDelegate delegate;
    QVDiagnosis diagnosis(&dataManager);
    diagnosis.setDelegate(&delegate);
    diagnosis.setPacingEnabled(false);
    diagnosis.setFinishDelay(0);
    diagnosis.setManualScanFolders(folders);
    {
        QVTerminalProgress terminal(diagnosis.overallProgress(), stderr);
        QEventLoop loop;
        bool finished = false;
        QObject::connect(&diagnosis, &QVDiagnosis::diagnosisFinished, &loop, [&] { finished = true; });
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (interrupted && !diagnosis.doCancel())
                diagnosis.setDoCancel(true);
            // A cancelled run may finish before its last passes return.
            if (finished && diagnosis.passesInFlight() == 0)
                loop.quit();
        });
        poll.start(20);
        diagnosis.diagnoseFonts();
        if (diagnosis.isDiagnosingFonts())
            loop.exec();
        terminal.clear();
    }

    if (!delegate.alert.isEmpty()) {
        // No font files: nothing to diagnose, nothing wrong.
        if (json) {
            out() << QJsonDocument(
                QJsonObject { { QStringLiteral("folders"), QJsonArray::fromStringList(folders) },
                    { QStringLiteral("totalFonts"), 0 }, { QStringLiteral("fontFiles"), QJsonArray() },
                    { QStringLiteral("outcome"), delegate.alert },
                    { QStringLiteral("problemFonts"), QJsonArray() } })
                         .toJson(QJsonDocument::Indented);
        } else {
            out() << delegate.alert << '\n';
        }
        out().flush();
        return Success;
    }

    // Every problem font resolved by its recommended action.
    const bool resolving = resolve && !diagnosis.doCancel();
    const QJsonObject resolution = resolving
        ? QVQuarantineCommand::resolve(&dataManager, diagnosis.problemFontsArray())
        : QJsonObject();
    if (json) {
        QJsonArray files;
        for (const QVFontFilePtr &fontFile : std::as_const(dataManager.fontFileItems))
            files.append(QVScanCommand::fontFileToJson(fontFile));
        QJsonObject object { { QStringLiteral("folders"), QJsonArray::fromStringList(folders) },
            { QStringLiteral("totalFonts"), qint64(dataManager.totalFonts) },
            { QStringLiteral("fontFiles"), files } };
        const QJsonObject diagnosed = QVDiagnosisSummary::toJson(diagnosis);
        for (auto it = diagnosed.begin(); it != diagnosed.end(); ++it)
            object.insert(it.key(), it.value());
        if (resolving)
            object.insert(QStringLiteral("resolution"), resolution);
        out() << QJsonDocument(object).toJson(QJsonDocument::Indented);
    } else {
        out() << dataManager.fontFileItems.size() << " font files, " << dataManager.totalFonts << " fonts\n";
        out() << QVDiagnosisSummary::toText(diagnosis);
        if (resolving)
            out() << QVQuarantineCommand::resolutionText(resolution);
    }
    out().flush();
    if (diagnosis.doCancel())
        return Cancelled;
    return diagnosis.totalFontProblems() > 0 ? ProblemsFound : Success;
}
