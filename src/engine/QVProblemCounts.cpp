#include "engine/QVProblemCounts.h"

#include <QSet>

qint64 QVProblemCounts::problemFonts(const QList<QVProblemFontPtr> &problemFonts)
{
    QSet<const QVStatus *> fonts;
    for (const QVProblemFontPtr &entry : problemFonts) {
        if (!entry || !entry->fontStatus)
            continue;
        fonts.insert(entry->fontStatus.get());
        for (const QVFontRef &member : std::as_const(entry->duplicatesArray)) {
            if (member.fontStatus)
                fonts.insert(member.fontStatus.get());
        }
    }
    return fonts.size();
}

qint64 QVProblemCounts::healthyFonts(qint64 examinedFonts, const QList<QVProblemFontPtr> &problemFonts)
{
    return qMax<qint64>(0, examinedFonts - QVProblemCounts::problemFonts(problemFonts));
}
