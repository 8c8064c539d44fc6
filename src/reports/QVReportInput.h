// What a report is made from: the outcome of one diagnosis and of the
// resolution and organizing that followed it. The diagnosis fills it; the
// report manager only reads it.
#pragma once

#include "diagnosis/QVProblemFont.h"
#include "engine/QVFontFile.h"

#include <QList>
#include <QString>
#include <QStringList>

struct QVReportInput
{
    // The diagnosis's counters, one per pass.
    qint32 fileStructureProblemCount = 0;
    qint32 missingBitmapProblemCount = 0;
    qint32 missingPSProblemCount = 0;
    qint32 duplicateProblemCount = 0;
    qint32 totalFontProblems = 0;

    // The data manager's file records (their statuses carry the resolution's
    // and the organizer's outcome) and the number of fonts in them.
    QList<QVFontFilePtr> fontFileItems;
    quint32 totalFonts = 0;

    // The problem list, one entry per problem font.
    QList<QVProblemFontPtr> problemFontsArray;

    // The file manager's running count of items moved into the quarantine.
    qint64 qv_total_quarantined = 0;

    // "Manual Scan" or "AutoScan", and the folders examined.
    QString scanType;
    QStringList scanFolders;
};
