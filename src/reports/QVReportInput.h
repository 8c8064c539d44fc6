// What a report is made from: the outcome of one diagnosis and of the
// resolution and organizing that followed it. fromRun() fills it; the report
// manager only reads it.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVProblemFont.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <array>

class QVFontDataManager;

struct QVReportInput {
    // The input of a diagnosis run's report: the run's counters (one per pass,
    // in pass order, and the problem fonts), its problem list, the data
    // manager's records; the scan type from the settings, and the folders the
    // run was given, else the settings' font folders. The quarantine count is
    // the caller's: it belongs to the store that the resolution moved fonts into.
    static QVReportInput fromRun(const std::array<qint32, 4> &passCounts, qint32 totalFontProblems,
        const QList<QVProblemFontPtr> &problemFonts, const QVFontDataManager &dataMgr,
        const QStringList &manualScanFolders);

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

    // False for a run that nobody resolved (the command line without
    // --resolve): its problem fonts are "Not resolved" rather than "Ignored".
    bool resolved = true;

    // "Manual Scan" or "AutoScan", and the folders examined.
    QString scanType;
    QStringList scanFolders;
};
