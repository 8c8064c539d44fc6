#include "cli/QVResolutionPlan.h"

#include "engine/QVFontConstants.h"
#include "store/QVQuarantineStore.h"

#include <QFileInfo>

namespace
{

using Step = QVDiagnosisResolution::PlannedStep;

QString pathOf(const QVFontRef &font)
{
    return font.fontStatus->fontURL.isEmpty() ? font.fontFile->URL : font.fontStatus->fontURL;
}

QString nameOf(const QVFontRef &font)
{
    return QVQuarantineStore::displayName(font.fontFile, font.fontStatus);
}

QJsonObject fontJson(const QVFontRef &font)
{
    return { { QStringLiteral("fontName"), nameOf(font) }, { QStringLiteral("path"), pathOf(font) } };
}

const char *actionName(Step::Kind kind)
{
    switch (kind) {
    case Step::Repair:
        return "repair";
    case Step::TakeOutOfSuitcase:
        return "takeOutOfSuitcase";
    case Step::Keep:
        return "keep";
    case Step::Quarantine:
        break;
    }
    return "quarantine";
}

QString repairText(const Step &step)
{
    QStringList parts;
    if (step.renames)
        parts << (step.newName.isEmpty() ? QStringLiteral("rename (it has no PostScript file name to take)")
                                         : QStringLiteral("rename to ") + step.newName);
    if (step.fixesFlags)
        parts << QStringLiteral("set its Finder flags right");
    return parts.join(QStringLiteral(" and "));
}

} // namespace

QStringList QVResolutionPlan::kinds()
{
    return { QStringLiteral("damaged"), QStringLiteral("orphans"), QStringLiteral("duplicates"),
        QStringLiteral("repairs") };
}

bool QVResolutionPlan::parseKinds(const QString &text, QStringList *chosen)
{
    for (const QString &kind : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (!kinds().contains(kind))
            return false;
        if (!chosen->contains(kind))
            chosen->append(kind);
    }
    return !chosen->isEmpty();
}

bool QVResolutionPlan::matches(const QVProblemFontPtr &entry, const QStringList &chosen)
{
    if (chosen.isEmpty())
        return true;
    const QList<int> &classes = entry->fontStatus->fontErrors;
    const bool repair
        = QVDiagnosisResolution::getActionTitleForErrors(entry->fontStatus) == QLatin1String("Repair");
    return (chosen.contains(QLatin1String("repairs")) && repair)
        || (chosen.contains(QLatin1String("duplicates"))
            && (entry->diagnosisType == QVErrorClass::Duplicate || entry->hasDuplicatesArray))
        || (chosen.contains(QLatin1String("orphans")) && !repair
            && (classes.contains(QVErrorClass::MissingBitmap)
                || classes.contains(QVErrorClass::MissingPostScript)))
        || (chosen.contains(QLatin1String("damaged")) && !repair && classes.contains(QVErrorClass::Defect));
}

QVResolutionPlan::Steps QVResolutionPlan::make(
    const QList<QVProblemFontPtr> &problemFonts, const QStringList &chosen, const QVFontDataManager *dataMgr)
{
    QVDiagnosisResolution resolution(nullptr, nullptr);
    resolution.setProblemFontsArray(problemFonts);
    for (int row = 0; row < resolution.rowArray.size(); ++row) {
        if (!matches(resolution.rowArray.at(row), chosen))
            resolution.setRowChecked(row, false);
    }
    return resolution.plan(dataMgr);
}

QJsonArray QVResolutionPlan::toJson(const Steps &steps)
{
    QJsonArray array;
    for (const Step &step : steps) {
        QJsonObject object = fontJson(step.font);
        object.insert(QStringLiteral("action"), QLatin1String(actionName(step.kind)));
        object.insert(QStringLiteral("reasons"), QJsonArray::fromStringList(step.defects));
        if (step.kind == Step::Repair) {
            object.insert(QStringLiteral("rename"), step.renames);
            object.insert(QStringLiteral("finderFlags"), step.fixesFlags);
            if (step.renames && !step.newName.isEmpty())
                object.insert(QStringLiteral("newPath"),
                    QString(QFileInfo(pathOf(step.font)).absolutePath() + QLatin1Char('/') + step.newName));
        }
        if (step.kind == Step::TakeOutOfSuitcase)
            object.insert(QStringLiteral("emptiesSuitcase"), step.emptiesSuitcase);
        if (step.duplicateOf.fontStatus)
            object.insert(QStringLiteral("duplicateOf"), fontJson(step.duplicateOf));
        if (step.outlineOf.fontStatus)
            object.insert(QStringLiteral("outlineOf"), fontJson(step.outlineOf));
        if (!step.why.isEmpty())
            object.insert(QStringLiteral("why"), step.why);
        array.append(object);
    }
    return array;
}

QString QVResolutionPlan::toText(const Steps &steps)
{
    int repairs = 0, moves = 0, kept = 0;
    QString lines;
    for (const Step &step : steps) {
        const QString name = nameOf(step.font);
        const QString defects = step.defects.join(QStringLiteral("; "));
        switch (step.kind) {
        case Step::Repair:
            ++repairs;
            lines += QStringLiteral("  Repair %1: %2\n").arg(name, repairText(step));
            break;
        case Step::TakeOutOfSuitcase:
            ++moves;
            lines += QStringLiteral("  Take %1 out of suitcase %2 into the quarantine%3: %4\n")
                         .arg(name, QFileInfo(step.font.fontFile->URL).fileName(),
                             step.emptiesSuitcase ? QStringLiteral(" (the suitcase, left empty, goes)")
                                                  : QString(),
                             defects);
            break;
        case Step::Keep:
            ++kept;
            lines += QStringLiteral("  Keep %1: %2\n").arg(name, step.why);
            break;
        case Step::Quarantine:
            ++moves;
            if (step.duplicateOf.fontStatus)
                lines += QStringLiteral("  Quarantine %1: duplicate of %2 (%3)\n")
                             .arg(name, nameOf(step.duplicateOf), pathOf(step.duplicateOf));
            else if (step.outlineOf.fontStatus)
                lines
                    += QStringLiteral("  Quarantine %1: the outline file of %2, which leaves its suitcase\n")
                           .arg(name, nameOf(step.outlineOf));
            else
                lines += QStringLiteral("  Quarantine %1: %2\n").arg(name, defects);
            break;
        }
        lines += QStringLiteral("      ") + pathOf(step.font) + QLatin1Char('\n');
    }
    if (steps.isEmpty())
        return QStringLiteral("\nPlan: nothing to do.\n");
    return QStringLiteral("\nPlan: %1 to repair, %2 to move into the quarantine, %3 to keep\n")
               .arg(repairs)
               .arg(moves)
               .arg(kept)
        + lines;
}

QHash<const QVStatus *, QString> QVResolutionPlan::actions(const Steps &steps)
{
    QHash<const QVStatus *, QString> actions;
    for (const Step &step : steps) {
        switch (step.kind) {
        case Step::Repair:
            actions.insert(step.font.fontStatus.get(), QStringLiteral("Repair"));
            break;
        case Step::TakeOutOfSuitcase:
            actions.insert(step.font.fontStatus.get(), QStringLiteral("Take out of suitcase"));
            break;
        case Step::Keep:
            actions.insert(step.font.fontStatus.get(), QStringLiteral("Keep"));
            break;
        case Step::Quarantine:
            // A whole file goes: each of its fonts with it.
            for (const QVStatusPtr &status : std::as_const(step.font.fontFile->fontStatusArray))
                actions.insert(status.get(), QStringLiteral("Quarantine"));
            break;
        }
    }
    return actions;
}

QJsonArray QVResolutionPlan::reasons(const QString &text)
{
    QJsonArray lines;
    for (QString line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (line.startsWith(QStringLiteral("· ")))
            line.remove(0, 2);
        lines.append(line);
    }
    return lines;
}
