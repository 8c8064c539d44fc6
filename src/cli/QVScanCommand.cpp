#include "cli/QVScanCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVExamineCommand.h"
#include "cli/QVJsonStream.h"
#include "cli/QVRecordJson.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVSettings.h"

#include <QJsonArray>
#include <optional>

int QVScanCommand::run(const QStringList &givenArguments)
{
    QStringList arguments = givenArguments;
    if (const QString error = QVCliScanRun::takeJobsOption(&arguments); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    bool json = false;
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli scan [--json] [--jobs N] [FOLDER...]\n";
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
    // The records go out as the walk examines them; only the closing members
    // wait for its end.
    std::optional<QVJsonStream> stream;
    if (json) {
        stream.emplace(out());
        stream->beginObject();
        stream->value(QStringLiteral("folders"), QJsonArray::fromStringList(folders));
        stream->beginArray(QStringLiteral("fontFiles"));
        dataManager.fontFileAdded
            = [&stream](const QVFontFilePtr &file) { QVRecordJson::writeFontFile(*stream, *file); };
    }
    const bool cancelled = !QVCliScanRun(&dataManager, json ? stderr : stdout).scanFolders(folders);
    dataManager.fontFileAdded = nullptr;
    if (stream) {
        // Stopped or not, what was written is a whole document.
        stream->endArray();
        QVRecordJson::writeClosingMembers(*stream, dataManager);
        stream->endObject();
        stream.reset();
    }

    if (cancelled) {
        err() << "quorvel-cli: scan cancelled; " << dataManager.fontFileItems.size()
              << " font files were examined before it stopped\n";
        err().flush();
        return Cancelled;
    }

    if (!json)
        QVExamineCommand::printTable(dataManager);
    out().flush();
    if (reportUnreadable(dataManager))
        return UsageError;
    return dataManager.foundProblemFonts ? ProblemsFound : Success;
}
