#include "cli/QVDiagnoseCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVJsonStream.h"
#include "cli/QVQuarantineCommand.h"
#include "cli/QVRecordCsv.h"
#include "cli/QVRecordJson.h"
#include "cli/QVResolutionPlan.h"
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
#include <unistd.h>

namespace
{

const char kUsage[]
    = "usage: quorvel-cli diagnose [--json | --format text|json|csv] [--plan | --resolve [--dry-run] "
      "[--yes]] [--only KIND[,KIND]] [--report [--open]] [--jobs N] [--deep] [FOLDER...]\n";

} // namespace

int QVDiagnoseCommand::run(const QStringList &givenArguments)
{
    QStringList arguments = givenArguments;
    if (const QString error = QVCliScanRun::takeJobsOption(&arguments); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    QVCliScanRun::takeDeepOption(&arguments);
    QString format;
    if (!takeFormatOption(&arguments, &format)) {
        err() << kUsage;
        err().flush();
        return UsageError;
    }
    const bool json = format == QLatin1String("json");
    bool resolve = false;
    bool planOnly = false;
    bool dryRun = false;
    bool yes = false;
    bool report = false;
    bool open = false;
    QStringList only;
    QStringList folders;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == QLatin1String("--resolve")) {
            resolve = true;
        } else if (argument == QLatin1String("--plan")) {
            planOnly = true;
        } else if (argument == QLatin1String("--dry-run")) {
            dryRun = true;
        } else if (argument == QLatin1String("--yes") || argument == QLatin1String("-y")) {
            yes = true;
        } else if (argument == QLatin1String("--only") && i + 1 < arguments.size()) {
            if (!QVResolutionPlan::parseKinds(arguments.at(++i), &only)) {
                err() << "quorvel-cli: --only takes " << QVResolutionPlan::kinds().join(QStringLiteral(", "))
                      << " (several joined with commas)\n";
                err().flush();
                return UsageError;
            }
        } else if (argument == QLatin1String("--report")) {
            report = true;
        } else if (argument == QLatin1String("--open")) {
            report = true;
            open = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << kUsage;
            err().flush();
            return UsageError;
        } else {
            folders.append(argument);
        }
    }
    // --resolve --dry-run is the plan, and only the plan.
    planOnly = planOnly || dryRun;
    if ((dryRun && !resolve) || (!only.isEmpty() && !resolve && !planOnly)) {
        err() << "quorvel-cli: " << (dryRun ? "--dry-run" : "--only") << " goes with --resolve"
              << (dryRun ? "" : " or --plan") << '\n';
        err().flush();
        return UsageError;
    }
    resolve = resolve && !planOnly;
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
    // The report names the folders wherever the command was run from.
    QStringList absoluteFolders;
    for (const QString &folder : std::as_const(folders))
        absoluteFolders << QFileInfo(folder).absoluteFilePath();
    QVDiagnosis &diagnosis = run.diagnose(absoluteFolders);

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

    // What a resolution would do, for the plan, the question and the CSV.
    const QVResolutionPlan::Steps plan
        = QVResolutionPlan::make(diagnosis.problemFontsArray(), only, &dataManager);
    // Every problem font (of the kinds asked for) resolved by its recommended
    // action; on a terminal, after showing the plan and asking.
    bool resolving = resolve && !diagnosis.doCancel();
    if (resolving && !yes && !plan.isEmpty() && isatty(STDIN_FILENO)) {
        err() << QVResolutionPlan::toText(plan).mid(1) << '\n';
        if (!confirm(QStringLiteral("Resolve the problem fonts as planned?"))) {
            err() << "Nothing was changed.\n";
            err().flush();
            resolving = false;
        }
    }
    const QJsonObject resolution = resolving
        ? QVQuarantineCommand::resolve(store.get(), diagnosis.problemFontsArray(), &QVCliScanRun::interrupted,
            [&only](const QVProblemFontPtr &entry) { return QVResolutionPlan::matches(entry, only); })
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
        input.resolved = resolving;
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
        if (planOnly)
            object.insert(QStringLiteral("plan"), QVResolutionPlan::toJson(plan));
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
    } else if (format == QLatin1String("csv")) {
        // Each font with its problems and what a resolution does (or did) with it.
        QHash<const QVStatus *, QStringList> extra;
        const QHash<const QVStatus *, QString> actions = QVResolutionPlan::actions(plan);
        for (const QVFontFilePtr &file : std::as_const(dataManager.fontFileItems)) {
            for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
                QStringList problems;
                for (const int errorClass : std::as_const(status->fontErrors))
                    problems << QVDiagnosisResolution::getDiagnosisDescription(errorClass);
                problems.removeAll(QString());
                problems.removeDuplicates();
                extra.insert(
                    status.get(), { problems.join(QStringLiteral("; ")), actions.value(status.get()) });
            }
        }
        out() << QVRecordCsv::write(
            dataManager, { QStringLiteral("diagnosis"), QStringLiteral("action") }, extra);
    } else {
        if (!quiet())
            out() << dataManager.fontFileItems.size() << " font files, " << dataManager.totalFonts
                  << " fonts\n"
                  << QVDiagnosisSummary::toText(diagnosis);
        else if (diagnosis.totalFontProblems() > 0)
            out() << QVDiagnosisSummary::toText(diagnosis).section(QStringLiteral("\n\n"), 2);
        if (planOnly)
            out() << QVResolutionPlan::toText(plan);
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

QVCliHelp::Command QVDiagnoseCommand::help() const
{
    return { {}, {},
        { QStringLiteral("diagnose [--json | --format text|json|csv] [--jobs N] [FOLDER...]"),
            QStringLiteral("diagnose --plan [--only KIND] [--json] [FOLDER...]"),
            QStringLiteral(
                "diagnose --resolve [--dry-run] [--yes] [--only KIND] [--report [--open]] [--json] "
                "[FOLDER...]") },
        QStringLiteral(
            "Scans the folders (by default the configured font folders) and looks for damaged fonts, "
            "fonts missing their bitmap or PostScript counterpart, and duplicate fonts, with the "
            "diagnosis settings in force. It prints the outcome, the counters and the problem fonts."
            "\n\nWith --resolve, every problem font is resolved by its recommended action: a bad file "
            "name or wrong Finder flags are repaired where the font lies, everything else is moved "
            "into the quarantine (the copy of a duplicate group that is kept stays). On a terminal "
            "the plan is shown first and nothing moves until you answer yes; --yes skips the "
            "question. Files that belong to an installed package are never moved or changed."
            "\n\nExits with 0 when no problem was found, 1 when problems were found, 2 on bad usage "
            "or unreadable input, 130 when stopped by Ctrl-C."),
        { { QStringLiteral("--plan"),
              QStringLiteral("Print, per problem font, what a resolution would do "
                             "(repair, quarantine, take out of its suitcase) and what "
                             "would stay, and change nothing.") },
            { QStringLiteral("--resolve"), QStringLiteral("Repair or quarantine every problem font.") },
            { QStringLiteral("--dry-run"), QStringLiteral("With --resolve: the same as --plan.") },
            { QStringLiteral("-y, --yes"), QStringLiteral("Resolve without asking, even on a terminal.") },
            { QStringLiteral("--only KIND[,KIND]"),
                QStringLiteral(
                    "Resolve (or plan) only one kind of problem: damaged (quarantined for their "
                    "defects), orphans (missing their bitmap or PostScript counterpart), duplicates, "
                    "or repairs (repaired in place).") },
            { QStringLiteral("--report"), QStringLiteral("Write the HTML report of the run.") },
            { QStringLiteral("--open"), QStringLiteral("Write the report and open it in the browser.") },
            { QStringLiteral("--json"), QStringLiteral("The same as --format json.") },
            { QStringLiteral("--format FORMAT"),
                QStringLiteral(
                    "text (the default), json, or csv (one line per font, the columns of scan's csv "
                    "with the diagnosis and the action planned).") },
            { QStringLiteral("--jobs N"), QStringLiteral("Files read at once, 1 to 64.") },
            { QStringLiteral("--deep"),
                QStringLiteral("Check every TrueType/OpenType font in depth first, as scan --deep does; a "
                               "font whose only finding is a checksum mismatch is not resolved.") } },
        { QStringLiteral("diagnose --plan /srv/fonts"),
            QStringLiteral("diagnose --resolve --only duplicates --yes --report /srv/fonts") } };
}
