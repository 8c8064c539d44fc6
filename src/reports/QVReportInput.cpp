#include "reports/QVReportInput.h"

#include "engine/QVFontDataManager.h"
#include "settings/QVSettings.h"

QVReportInput QVReportInput::fromRun(const std::array<qint32, 4> &passCounts, qint32 totalFontProblems,
    const QList<QVProblemFontPtr> &problemFonts, const QVFontDataManager &dataMgr,
    const QStringList &manualScanFolders)
{
    QVReportInput input;
    input.fileStructureProblemCount = passCounts[0];
    input.missingBitmapProblemCount = passCounts[1];
    input.missingPSProblemCount = passCounts[2];
    input.duplicateProblemCount = passCounts[3];
    input.totalFontProblems = totalFontProblems;
    input.fontFileItems = dataMgr.fontFileItems;
    input.totalFonts = dataMgr.totalFonts;
    input.problemFontsArray = problemFonts;
    const QVSettings settings;
    input.scanType = settings.lastScanType();
    input.scanFolders = manualScanFolders.isEmpty() ? settings.fontFolderPaths() : manualScanFolders;
    return input;
}
