#include "cli/QVScanCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVExamineCommand.h"
#include "cli/QVJsonStream.h"
#include "cli/QVRecordCsv.h"
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
    QVCliScanRun::takeDeepOption(&arguments);
    QString format;
    if (!takeFormatOption(&arguments, &format)) {
        err()
            << "usage: quorvel-cli scan [--json | --format text|json|csv] [--jobs N] [--deep] [FOLDER...]\n";
        err().flush();
        return UsageError;
    }
    const bool json = format == QLatin1String("json");
    QStringList folders;
    for (const QString &argument : arguments) {
        if (argument.startsWith(QLatin1Char('-'))) {
            err() << "usage: quorvel-cli scan [--json | --format text|json|csv] [--jobs N] [--deep] "
                     "[FOLDER...]\n";
            err().flush();
            return UsageError;
        }
        folders.append(argument);
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
    const bool cancelled = !QVCliScanRun(&dataManager).scanFolders(folders);
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

    if (format == QLatin1String("csv"))
        out() << QVRecordCsv::write(dataManager);
    else if (!json)
        QVExamineCommand::printTable(dataManager);
    out().flush();
    if (reportUnreadable(dataManager))
        return UsageError;
    return dataManager.foundProblemFonts ? ProblemsFound : Success;
}

QVCliHelp::Command QVScanCommand::help() const
{
    return { {}, {},
        { QStringLiteral("scan [--json | --format text|json|csv] [--jobs N] [--deep] [FOLDER...]") },
        QStringLiteral(
            "Finds the font files in the folders (by default the configured font folders), examines "
            "each as it is found, and prints every file with the statuses of its fonts. Each folder "
            "and each file is taken once, however it is reached. A progress bar naming its phase is "
            "drawn on standard error when it is a terminal; Ctrl-C stops the scan (status 130)."
            "\n\nExits with 1 when a font has a problem, 2 when a file or folder could not be read."),
        { { QStringLiteral("--json"),
              QStringLiteral("The same as --format json: each file's record is written as "
                             "it is examined.") },
            { QStringLiteral("--format FORMAT"),
                QStringLiteral("text (the default), json, or csv: one line per font with the columns file, "
                               "fileType, fontName, familyName, style, type, version, size, psName, foundry, "
                               "status and defects.") },
            { QStringLiteral("--jobs N"),
                QStringLiteral("Files read at once, 1 to 64 (default: the scanJobs "
                               "setting). The output is the same whatever N.") },
            { QStringLiteral("--deep"),
                QStringLiteral("Then check every TrueType/OpenType font in depth: table checksums, "
                               "table structure and every glyph (as the deepCheck setting does).") } },
        { QStringLiteral("scan --format csv /srv/fonts > fonts.csv") } };
}
