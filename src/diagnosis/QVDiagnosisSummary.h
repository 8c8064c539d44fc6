// A finished diagnosis as the command line prints it: the outcome, the five
// counters and the problem fonts grouped by diagnosis type (duplicates with
// their copies), as text and as JSON.
#pragma once

#include "engine/QVProblemFont.h"

#include <QJsonObject>
#include <QList>
#include <QString>

class QVDiagnosis;

class QVDiagnosisSummary
{
public:
    // "problemFonts" and the counters under their field names.
    static QJsonObject toJson(const QVDiagnosis &diagnosis);
    // toJson() but for "problemFonts", which a caller may write one by one.
    static QJsonObject countsToJson(const QVDiagnosis &diagnosis);
    static QJsonObject problemFontToJson(const QVProblemFontPtr &entry);
    static QString toText(const QVDiagnosis &diagnosis);
};
