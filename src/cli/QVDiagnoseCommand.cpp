#include "cli/QVDiagnoseCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVQuarantineCommand.h"
#include "cli/QVScanCommand.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisSummary.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

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
    QVCliScanRun run(&dataManager);
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
