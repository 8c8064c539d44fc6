#include "cli/QVScanCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVExamineCommand.h"
#include "cli/QVRecordJson.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVSettings.h"

#include <QJsonArray>
#include <QJsonDocument>

int QVScanCommand::run(const QStringList &arguments)
{
    bool json = false;
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli scan [--json] [FOLDER...]\n";
            err().flush();
            return UsageError;
        } else {
            folders.append(argument);
        }
    }
    if (const QString error = QVCliScanRun::prepareFolders(&folders); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }

    QVFontDataManager dataManager;
    const bool cancelled = !QVCliScanRun(&dataManager, stdout).scanFolders(folders);

    if (cancelled) {
        err() << "quorvel-cli: scan cancelled; " << dataManager.fontFileItems.size()
              << " font files were examined before it stopped\n";
        err().flush();
        return Cancelled;
    }

    if (json) {
        QJsonObject object = QVRecordJson::dataManagerToJson(dataManager);
        object.insert(QStringLiteral("folders"), QJsonArray::fromStringList(folders));
        out() << QJsonDocument(object).toJson(QJsonDocument::Indented);
    } else {
        QVExamineCommand::printTable(dataManager);
    }
    out().flush();
    if (reportUnreadable(dataManager))
        return UsageError;
    return dataManager.foundProblemFonts ? ProblemsFound : Success;
}
