// The counts a diagnosis is summed up by, each defined once, here: the
// command line's summary, its JSON and the report all take them from this.
//   problem fonts: every font the diagnosis lists, once however many problems
//     it has: each entry of the problem list and the other copies of each
//     duplicate group;
//   healthy fonts: the fonts examined that are not problem fonts.
// What each pass found (structure, missing bitmap, missing PostScript,
// duplicate groups) is counted by the pass; a font found by two passes is in
// both, so those need not add up to the problem fonts. The fonts quarantined
// by a resolution are the records it added to the quarantine, one per font.
#pragma once

#include "engine/QVProblemFont.h"

#include <QList>

class QVProblemCounts
{
public:
    static qint64 problemFonts(const QList<QVProblemFontPtr> &problemFonts);
    static qint64 healthyFonts(qint64 examinedFonts, const QList<QVProblemFontPtr> &problemFonts);
};
