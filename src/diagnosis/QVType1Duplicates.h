// Type 1 fonts installed twice across formats: the same PostScript name and
// program version as a Mac outline file and as a PC outline file. Outline
// files of one format are left alone, as the duplicate pass leaves them.
#pragma once

#include "engine/QVProblemFont.h"

#include <QList>

class QVType1Duplicates
{
public:
    // The groups in the order of their first member; each holds every outline
    // of its name and version (Mac and PC) that is readable and not in the
    // quarantine.
    static QList<QList<QVFontRef>> groups(const QList<QVFontFilePtr> &fontFiles);
};
