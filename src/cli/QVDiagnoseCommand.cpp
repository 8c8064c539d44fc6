#include "cli/QVDiagnoseCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVJsonStream.h"
#include "cli/QVQuarantineCommand.h"
#include "cli/QVRecordJson.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisSummary.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVDefaultApplication.h"
#include "reports/QVReportManager.h"
#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <memory>

int QVDiagnoseCommand::run(const QStringList &givenArguments)
{
    QStringList arguments = givenArguments;
    if (const QString error = QVCliScanRun::takeJobsOption(&arguments); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    bool json = false;
    bool resolve = false;
    bool report = false;
    bool open = false;
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--resolve")) {
            resolve = true;
        } else if (argument == QLatin1String("--report")) {
            report = true;
        } else if (argument == QLatin1String("--open")) {
            report = true;
            open = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli diagnose [--json] [--resolve] [--report [--open]] [--jobs N] "
                     "[FOLDER...]\n";
            err().flush();
            return UsageError;
        } else {
            folders.append(argument);
        }
    }
    QVSettings settings;
    if (const QString error = QVCliScanRun::prepareFolders(&folders); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    if (const QString error = QVCliScanRun::passesError(settings); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }

    QVFontDataManager dataManager;
    QVCliScanRun run(&dataManager);
    // A resolution changes the quarantine: one run at a time, from the scan
    // on, so that no other run moves the fonts this one examined.
    std::unique_ptr<QVQuarantineStore> store;
    if (resolve)
        store = std::make_unique<QVQuarantineStore>(&dataManager);
    if (store && !QVQuarantineCommand::lockQuarantine(store.get(), true, &QVCliScanRun::interrupted))
        return QVCliScanRun::interrupted() ? Cancelled : ProblemsFound;
    if (!run.scanFolders(folders)) {
        err() << "quorvel-cli: scan cancelled; " << dataManager.fontFileItems.size()
              << " font files were examined before it stopped\n";
        err().flush();
        return Cancelled;
    }
    QVDiagnosis &diagnosis = run.diagnose(folders);

    if (!run.alert().isEmpty()) {
        // No font files: nothing to diagnose, nothing wrong.
        if (json) {
            out() << QJsonDocument(
                QJsonObject { { QStringLiteral("folders"), QJsonArray::fromStringList(folders) },
                    { QStringLiteral("totalFonts"), 0 }, { QStringLiteral("fontFiles"), QJsonArray() },
                    { QStringLiteral("outcome"), run.alert() },
                    { QStringLiteral("problemFonts"), QJsonArray() } })
                         .toJson(QJsonDocument::Indented);
        } else {
            out() << run.alert() << '\n';
        }
        out().flush();
        return reportUnreadable(dataManager) ? UsageError : Success;
    }

    // Every problem font resolved by its recommended action.
    const bool resolving = resolve && !diagnosis.doCancel();
    const QJsonObject resolution = resolving
        ? QVQuarantineCommand::resolve(store.get(), diagnosis.problemFontsArray(), &QVCliScanRun::interrupted)
        : QJsonObject();
    // Stopped by Ctrl-C or SIGTERM: what was done is committed and printed.
    const bool stopped = resolving && QVCliScanRun::interrupted();
    // The report, after the resolution so that it shows what was done.
    QString reportPath;
    if (report && !diagnosis.doCancel()) {
        QVReportInput input = QVReportInput::fromRun(
            { diagnosis.fileStructureProblemCount(), diagnosis.missingBitmapProblemCount(),
                diagnosis.missingPSProblemCount(), diagnosis.duplicateProblemCount() },
            diagnosis.totalFontProblems(), diagnosis.problemFontsArray(), *diagnosis.qvDataMgr(),
            diagnosis.manualScanFolders());
        input.qv_total_quarantined = resolution.value(QStringLiteral("qv_total_quarantined")).toInt();
        QVReportStore reportStore;
        QVReportManager reportManager;
        reportManager.setFileMgr(&reportStore);
        reportManager.setReportInput(input);
        reportPath
            = reportManager.writeReport(settings.lastScanDate()).value(QStringLiteral("filePath")).toString();
        if (reportPath.isEmpty()) {
            err() << "quorvel-cli: the report could not be written to " << reportStore.reportFolderPath()
                  << '\n';
            err().flush();
            return UsageError;
        }
        if (open) {
            QString error;
            const QString copy = reportStore.browserCopyOfReport(reportPath, &error);
            if (!copy.isEmpty())
                error = QVDefaultApplication::open(copy);
            if (!error.isEmpty())
                err() << "quorvel-cli: the report could not be opened: " << error << '\n';
        }
    }

    if (json) {
        // The two long lists go out a record at a time.
        QJsonObject object = QVDiagnosisSummary::countsToJson(diagnosis);
        object.insert(QStringLiteral("folders"), QJsonArray::fromStringList(folders));
        object.insert(QStringLiteral("foundProblemFonts"), dataManager.foundProblemFonts);
        object.insert(QStringLiteral("totalFonts"), qint64(dataManager.totalFonts));
        object.insert(
            QStringLiteral("unreadable"), QJsonArray::fromStringList(dataManager.unreadablePaths()));
        if (resolving)
            object.insert(QStringLiteral("resolution"), resolution);
        if (!reportPath.isEmpty())
            object.insert(QStringLiteral("report"), reportPath);
        QVJsonStream stream(out());
        stream.beginObject();
        stream.members(object,
            { { QStringLiteral("fontFiles"),
                  [&dataManager](QVJsonStream &s, const QString &key) {
                      s.beginArray(key);
                      for (const QVFontFilePtr &file : std::as_const(dataManager.fontFileItems))
                          QVRecordJson::writeFontFile(s, *file);
                      s.endArray();
                  } },
                { QStringLiteral("problemFonts"), [&diagnosis](QVJsonStream &s, const QString &key) {
                     s.beginArray(key);
                     for (const QVProblemFontPtr &entry : diagnosis.problemFontsArray())
                         s.element(QVDiagnosisSummary::problemFontToJson(entry));
                     s.endArray();
                 } } });
        stream.endObject();
    } else {
        out() << dataManager.fontFileItems.size() << " font files, " << dataManager.totalFonts << " fonts\n";
        out() << QVDiagnosisSummary::toText(diagnosis);
        if (resolving)
            out() << QVQuarantineCommand::resolutionText(resolution);
        if (stopped)
            out() << "Interrupted: the resolution stopped after the font in hand; what was done is kept.\n";
        if (!reportPath.isEmpty())
            out() << "Report: " << reportPath << '\n';
    }
    out().flush();
    if (diagnosis.doCancel() || stopped)
        return Cancelled;
    if (reportUnreadable(dataManager))
        return UsageError;
    if (resolution.contains(QStringLiteral("error")))
        return ProblemsFound;
    return diagnosis.totalFontProblems() > 0 ? ProblemsFound : Success;
}
