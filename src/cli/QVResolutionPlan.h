// What `diagnose --resolve` would do, shown before it is done (--plan, and
// the question a resolution asks on a terminal), and the kinds of problem
// --only picks.
#pragma once

#include "diagnosis/QVDiagnosisResolution.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

class QVResolutionPlan
{
public:
    using Steps = QList<QVDiagnosisResolution::PlannedStep>;

    // The kinds --only takes.
    static QStringList kinds();
    // "damaged,orphans" into its kinds; false for an unknown one.
    static bool parseKinds(const QString &text, QStringList *kinds);
    // Whether a problem font is of one of the kinds (all when none given).
    static bool matches(const QVProblemFontPtr &entry, const QStringList &kinds);

    // The steps for the problem fonts of the kinds, as a resolution would
    // take them.
    static Steps make(const QList<QVProblemFontPtr> &problemFonts, const QStringList &kinds,
        const QVFontDataManager *dataMgr);

    static QJsonArray toJson(const Steps &steps);
    static QString toText(const Steps &steps);
    // One word per font the plan touches ("Repair", "Quarantine", "Take out
    // of suitcase", "Keep"), by its status.
    static QHash<const QVStatus *, QString> actions(const Steps &steps);
    // "· A\n· B" (a reason as a quarantine record keeps it) back into its lines.
    static QJsonArray reasons(const QString &text);
};
