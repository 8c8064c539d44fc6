#include "cli/QVExamineCommand.h"

#include "cli/QVRecordJson.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVFileSystem.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>

QJsonObject QVExamineCommand::toJson(const QVFontDataManager &dataMgr)
{
    return QVRecordJson::dataManagerToJson(dataMgr);
}

void QVExamineCommand::printTable(const QVFontDataManager &dataMgr)
{
    // Columns are padded and joined, never formatted in turn: a "%1" in a
    // font's name must not take the next column's place.
    auto row = [](const QStringList &cells) -> QString {
        static const int widths[] = { 4, -18, 4, -12, -32, -32, 0 };
        QStringList padded;
        for (int i = 0; i < cells.size(); ++i)
            padded << (widths[i] < 0 ? cells.at(i).leftJustified(-widths[i])
                                     : cells.at(i).rightJustified(widths[i]));
        return padded.join(QStringLiteral("  ")) + QLatin1Char('\n');
    };
    if (!quiet())
        out() << row(
            { QStringLiteral("#"), QStringLiteral("Type"), QStringLiteral("Size"), QStringLiteral("Style"),
                QStringLiteral("Font"), QStringLiteral("PostScript name"), QStringLiteral("Defects") });
    for (const QVFontFilePtr &file : dataMgr.fontFileItems) {
        // Quiet: only the files with a problem.
        if (quiet()
            && std::none_of(file->fontStatusArray.cbegin(), file->fontStatusArray.cend(),
                [](const QVStatusPtr &status) { return !status->fontErrorsInfo.isEmpty(); }))
            continue;
        out() << file->URL;
        if (!file->macTypeCode.isEmpty())
            out() << "  [" << file->macTypeCode << ']';
        if (file->fontStatusArray.isEmpty())
            out() << "  (no fonts examined)";
        out() << '\n';
        for (const QVStatusPtr &status : file->fontStatusArray) {
            const QString type = getFontTypeName(status->fontType);
            out() << row(
                { QString::number(status->index), type.isEmpty() ? QString::number(status->fontType) : type,
                    QString::number(status->fontSize), status->fontStyle, status->fontName, status->PSname,
                    status->fontErrorsInfo.isEmpty() ? QStringLiteral("-")
                                                     : status->fontErrorsInfo.join(QStringLiteral("; ")) });
        }
    }
    if (quiet())
        return;
    out() << dataMgr.totalFonts << (dataMgr.totalFonts == 1 ? " font" : " fonts") << " in "
          << dataMgr.fontFileItems.size() << (dataMgr.fontFileItems.size() == 1 ? " file" : " files") << ", "
          << (dataMgr.foundProblemFonts ? "problems found" : "no problems found") << '\n';
}

int QVExamineCommand::run(const QStringList &arguments)
{
    bool json = false;
    QStringList paths;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--json") && !json)
            json = true;
        else if (argument.startsWith(QLatin1String("--")) && paths.isEmpty())
            paths.append(QString()); // marks an unknown option
        else
            paths.append(argument);
    }
    if (paths.isEmpty() || paths.contains(QString())) {
        err() << "usage: quorvel-cli examine [--json] FILE...\n";
        err().flush();
        return UsageError;
    }

    bool missing = false;
    for (const QString &path : std::as_const(paths)) {
        if (!QVFileSystem::exists(path)) {
            err() << "quorvel-cli: no such file: " << path << '\n';
            missing = true;
        } else if (!QVFileSystem::isFile(path)) {
            err() << "quorvel-cli: not a file: " << path << '\n';
            missing = true;
        }
    }
    if (missing) {
        err().flush();
        return UsageError;
    }

    QVFontDataManager dataMgr;
    for (const QString &path : std::as_const(paths))
        dataMgr.addFontFileItem(QFileInfo(path).absoluteFilePath());

    if (json)
        out() << QJsonDocument(toJson(dataMgr)).toJson(QJsonDocument::Indented);
    else
        printTable(dataMgr);
    out().flush();
    if (reportUnreadable(dataMgr))
        return UsageError;
    return dataMgr.foundProblemFonts ? ProblemsFound : Success;
}

QVCliHelp::Command QVExamineCommand::help() const
{
    return { {}, {}, { QStringLiteral("examine [--json] FILE...") },
        QStringLiteral(
            "Examines font files as a scan does (resource forks included, wherever they are stored) "
            "and prints every font found in them, one line a font, with its defects beside it."),
        { { QStringLiteral("--json"),
            QStringLiteral("Write each file's record, with the record's field names.") } },
        { QStringLiteral("examine --json /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf") } };
}
