#include "diagnosis/QVDiagnosisSummary.h"

#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisResolution.h"
#include "settings/QVProgress.h"

#include <QJsonArray>

QJsonObject QVDiagnosisSummary::problemFontToJson(const QVProblemFontPtr &entry)
{
    QJsonObject object { { QStringLiteral("diagnosisType"), entry->diagnosisType },
        { QStringLiteral("fontFile"), entry->fontFile ? entry->fontFile->URL : QString() },
        { QStringLiteral("fontStatus"), entry->fontStatus ? entry->fontStatus->index : -1 } };
    if (entry->hasDuplicatesArray) {
        QJsonArray duplicates;
        for (const QVFontRef &member : entry->duplicatesArray) {
            duplicates.append(QJsonObject { { QStringLiteral("fontFile"), member.fontFile->URL },
                { QStringLiteral("fontStatus"), member.fontStatus->index } });
        }
        object.insert(QStringLiteral("duplicatesArray"), duplicates);
    }
    return object;
}

QJsonObject QVDiagnosisSummary::toJson(const QVDiagnosis &diagnosis)
{
    QJsonArray problems;
    for (const QVProblemFontPtr &entry : diagnosis.problemFontsArray())
        problems.append(problemFontToJson(entry));
    QJsonObject object = countsToJson(diagnosis);
    object.insert(QStringLiteral("problemFonts"), problems);
    return object;
}

QJsonObject QVDiagnosisSummary::countsToJson(const QVDiagnosis &diagnosis)
{
    return QJsonObject { { QStringLiteral("outcome"), diagnosis.overallProgress()->label() },
        { QStringLiteral("fileStructureProblemCount"), diagnosis.fileStructureProblemCount() },
        { QStringLiteral("missingBitmapProblemCount"), diagnosis.missingBitmapProblemCount() },
        { QStringLiteral("missingPSProblemCount"), diagnosis.missingPSProblemCount() },
        { QStringLiteral("duplicateProblemCount"), diagnosis.duplicateProblemCount() },
        { QStringLiteral("totalFontProblems"), diagnosis.totalFontProblems() } };
}

QString QVDiagnosisSummary::toText(const QVDiagnosis &diagnosis)
{
    auto describe = [](const QVFontFilePtr &file, const QVStatusPtr &status) {
        QString line = status->fontName;
        if (!status->fontStyle.isEmpty())
            line += QStringLiteral(" (") + status->fontStyle + QLatin1Char(')');
        if (status->fontSize > 0)
            line += QStringLiteral(" %1 pt").arg(status->fontSize);
        line += QStringLiteral(" [%1]").arg(status->index);
        line += QStringLiteral("  ") + (file ? file->URL : status->fontURL);
        return line;
    };

    QString text = diagnosis.overallProgress()->label() + QStringLiteral("\n\n");
    text += QStringLiteral("File structure problems:   %1\n").arg(diagnosis.fileStructureProblemCount());
    text += QStringLiteral("Missing bitmap fonts:      %1\n").arg(diagnosis.missingBitmapProblemCount());
    text += QStringLiteral("Missing PostScript fonts:  %1\n").arg(diagnosis.missingPSProblemCount());
    text += QStringLiteral("Duplicate fonts:           %1\n").arg(diagnosis.duplicateProblemCount());
    text += QStringLiteral("Fonts with problems:       %1\n").arg(diagnosis.totalFontProblems());

    const QList<QVProblemFontPtr> problems = diagnosis.problemFontsArray();
    // Duplicates first, as the resolution window lists them.
    for (int type = 3; type >= 0; --type) {
        QString group;
        for (const QVProblemFontPtr &entry : problems) {
            if (entry->diagnosisType != type || !entry->fontStatus)
                continue;
            group += QStringLiteral("  ") + describe(entry->fontFile, entry->fontStatus) + QLatin1Char('\n');
            for (const QString &defect : std::as_const(entry->fontStatus->fontErrorsInfo))
                group += QStringLiteral("      - ") + defect + QLatin1Char('\n');
            for (const QVFontRef &member : entry->duplicatesArray)
                group += QStringLiteral("      copy: ") + describe(member.fontFile, member.fontStatus)
                    + QLatin1Char('\n');
        }
        if (!group.isEmpty())
            text += QLatin1Char('\n') + QVDiagnosisResolution::getDiagnosisDescription(type)
                + QStringLiteral(":\n") + group;
    }
    return text;
}
