#include "cli/QVExamineCommand.h"

#include "cli/QVRecordJson.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVFileSystem.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

QJsonObject QVExamineCommand::toJson(const QVFontDataManager &dataMgr)
{
    return QVRecordJson::dataManagerToJson(dataMgr);
}

void QVExamineCommand::printTable(const QVFontDataManager &dataMgr)
{
    out() << QStringLiteral("%1  %2  %3  %4  %5  %6  %7\n")
                 .arg(QStringLiteral("#"), 4)
                 .arg(QStringLiteral("Type"), -18)
                 .arg(QStringLiteral("Size"), 4)
                 .arg(QStringLiteral("Style"), -12)
                 .arg(QStringLiteral("Font"), -32)
                 .arg(QStringLiteral("PostScript name"), -32)
                 .arg(QStringLiteral("Defects"));
    for (const QVFontFilePtr &file : dataMgr.fontFileItems) {
        out() << file->URL;
        if (!file->macTypeCode.isEmpty())
            out() << "  [" << file->macTypeCode << ']';
        if (file->fontStatusArray.isEmpty())
            out() << "  (no fonts examined)";
        out() << '\n';
        for (const QVStatusPtr &status : file->fontStatusArray) {
            const QString type = getFontTypeName(status->fontType);
            out() << QStringLiteral("%1  %2  %3  %4  %5  %6  %7\n")
                         .arg(status->index, 4)
                         .arg(type.isEmpty() ? QString::number(status->fontType) : type, -18)
                         .arg(status->fontSize, 4)
                         .arg(status->fontStyle, -12)
                         .arg(status->fontName, -32)
                         .arg(status->PSname, -32)
                         .arg(status->fontErrorsInfo.isEmpty()
                                 ? QStringLiteral("-")
                                 : status->fontErrorsInfo.join(QStringLiteral("; ")));
        }
    }
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
