// Report inputs made of real font and status records: the defects, the
// outcomes of a resolution and an organize run as the diagnosis leaves them.
#pragma once

#include "reports/QVReportInput.h"

#include <QString>

namespace QVReportFixtures
{

struct Font {
    QVFontFilePtr file;
    QVStatusPtr status;
};

// A file with one font; the status is also added to the file's statuses.
Font makeFont(const QString &path, const QString &name, const QString &style, int fontType,
    const QString &psName, int fileType = 1);
// Adds a defect with its error class to a status.
void addDefect(const QVStatusPtr &status, int errorClass, const QString &message);
QVProblemFontPtr makeEntry(const Font &font, int diagnosisType);

// A diagnosis of every kind: see the .cpp for the fonts and their fate.
QVReportInput mixedDiagnosis();
// count corrupt fonts in one section, nothing else.
QVReportInput corruptFonts(int count, int totalFonts);

} // namespace QVReportFixtures
