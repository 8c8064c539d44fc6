// Missing bitmap fonts and missing PostScript files, over real font files in
// real folders.
#include "QVDiagnosisFixtures.h"
#include "diagnosis/QVCounterpartIndex.h"
#include "diagnosis/QVDiagnosis.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "support/QVTestHome.h"

#include <gtest/gtest.h>

using namespace qvtest;

namespace
{

class QVCounterpartPassesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings().registerUserPreferences();
        diagnosis = std::make_unique<QVDiagnosis>(&library.dataMgr);
        diagnosis->setPacingEnabled(false);
    }

    void runCounterpartPasses()
    {
        diagnosis->populateArrays();
        diagnosis->diagnoseMissingBitmaps();
        diagnosis->diagnoseMissingPostscripts();
    }

    QString folder(const QString &name) const { return home.path() + QLatin1Char('/') + name; }

    QVTestHome home;
    QVFontLibrary library;
    std::unique_ptr<QVDiagnosis> diagnosis;
};

} // namespace

TEST(QVCounterpartIndex, FolderOfPathDropsTheLastComponent)
{
    EXPECT_EQ(QVCounterpartIndex::folderOfPath(QStringLiteral("/Fonts/Sans/NimbuSanReg")),
        QStringLiteral("/Fonts/Sans"));
    EXPECT_EQ(QVCounterpartIndex::folderOfPath(QStringLiteral("/Fonts/Sans/")), QStringLiteral("/Fonts"));
    EXPECT_EQ(QVCounterpartIndex::folderOfPath(QStringLiteral("/NimbuSanReg")), QStringLiteral("/"));
    EXPECT_EQ(QVCounterpartIndex::folderOfPath(QStringLiteral("NimbuSanReg")), QStringLiteral(""));
    EXPECT_EQ(QVCounterpartIndex::folderOfPath(QStringLiteral("/a//b")), QStringLiteral("/a"));
}

TEST_F(QVCounterpartPassesTest, OutlineAndItsBitmapFontInOneFolderAreNotReported)
{
    const QString sans = folder(QStringLiteral("Fonts/Nimbus Sans"));
    addOutline(library, makeOutlineFile(sans));
    addSuitcase(library, makeBitmapSuitcase(sans, { 10, 12 }), { 10, 12 });

    runCounterpartPasses();

    EXPECT_EQ(diagnosis->bitmaps().size(), 2);
    EXPECT_EQ(diagnosis->postscripts().size(), 1);
    EXPECT_TRUE(diagnosis->problemFontsArray().isEmpty());
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 0);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 0);
    for (const QVFontFilePtr &file : library.dataMgr.fontFileItems) {
        for (const QVStatusPtr &status : file->fontStatusArray) {
            EXPECT_TRUE(status->fontErrors.isEmpty());
            EXPECT_TRUE(status->fontErrorsInfo.isEmpty());
        }
    }
    EXPECT_EQ(diagnosis->progressForPass(1)->label(), QStringLiteral("Missing Bitmap Fonts - Complete ✓"));
    EXPECT_EQ(
        diagnosis->progressForPass(2)->label(), QStringLiteral("Missing Postscript Fonts - Complete ✓"));
}

TEST_F(QVCounterpartPassesTest, SamePairInTwoFoldersIsReportedBothWays)
{
    const QVFontFilePtr outline = addOutline(library, makeOutlineFile(folder(QStringLiteral("Outlines"))));
    const QVFontFilePtr suitcase
        = addSuitcase(library, makeBitmapSuitcase(folder(QStringLiteral("Screen")), { 12 }), { 12 });

    runCounterpartPasses();

    const QVStatusPtr outlineStatus = outline->fontStatusArray.first();
    const QVStatusPtr bitmapStatus = suitcase->fontStatusArray.first();
    EXPECT_EQ(outlineStatus->fontErrors, QList<int> { 1 });
    EXPECT_EQ(outlineStatus->fontErrorsInfo, QStringList { "Couldn't Find Bitmap Font" });
    EXPECT_EQ(bitmapStatus->fontErrors, QList<int> { 2 });
    EXPECT_EQ(bitmapStatus->fontErrorsInfo, QStringList { "Couldn't Find PostScript File" });
    EXPECT_EQ(bitmapStatus->fixedErrors, QList<bool> { false });
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 1);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);

    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 2);
    EXPECT_EQ(problems[0]->fontStatus, outlineStatus);
    EXPECT_EQ(problems[0]->fontFile, outline);
    EXPECT_EQ(problems[0]->diagnosisType, 1);
    EXPECT_EQ(problems[1]->fontStatus, bitmapStatus);
    EXPECT_EQ(problems[1]->fontFile, suitcase);
    EXPECT_EQ(problems[1]->diagnosisType, 2);
    EXPECT_FALSE(problems[1]->hasDuplicatesArray);
}

TEST_F(QVCounterpartPassesTest, SuitcaseOfThreeSizesWithoutOutlineIsReportedOnceForTheFirstSize)
{
    const QVFontFilePtr suitcase = addSuitcase(
        library, makeBitmapSuitcase(folder(QStringLiteral("Screen")), { 10, 12, 14 }), { 10, 12, 14 });

    runCounterpartPasses();

    // The record stands in the bitmap list once per strike.
    EXPECT_EQ(diagnosis->bitmaps().size(), 3);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);
    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    EXPECT_EQ(problems[0]->fontStatus->fontSize, 10);
    EXPECT_EQ(problems[0]->diagnosisType, 2);
    EXPECT_EQ(suitcase->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    EXPECT_TRUE(suitcase->fontStatusArray[1]->fontErrors.isEmpty());
    EXPECT_TRUE(suitcase->fontStatusArray[2]->fontErrors.isEmpty());
}

TEST_F(QVCounterpartPassesTest, PlainStyleRuleWhenNotAllStylesRequireAnOutline)
{
    const QString screen = folder(QStringLiteral("Screen"));
    const QString suitcasePath = makeBitmapSuitcase(screen, { 12 });
    const QVFontFilePtr plain = addSuitcase(library, suitcasePath, { 12 });
    const QVFontFilePtr bold = addSuitcase(library, suitcasePath, { 12 }, QStringLiteral("Bold"));
    bold->fontStatusArray[0]->PSname = QStringLiteral("NimbusSans-Bold");

    diagnosis->settings()->setAllStylesRequirePostScript(false);
    runCounterpartPasses();
    EXPECT_EQ(plain->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    EXPECT_TRUE(bold->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);

    diagnosis->settings()->setAllStylesRequirePostScript(true);
    runCounterpartPasses();
    EXPECT_EQ(bold->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    // The plain font carries its earlier mark and is not reported again.
    EXPECT_EQ(plain->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);
}

TEST_F(QVCounterpartPassesTest, Type3FontsTakePartOnlyWhenTheSettingIsOn)
{
    const QString sans = folder(QStringLiteral("Nimbus"));
    const QVFontFilePtr type3 = addOutline(library, makeOutlineFile(sans), 2);
    const QVFontFilePtr suitcase = addSuitcase(library, makeBitmapSuitcase(sans, { 12 }), { 12 });
    const QVFontFilePtr lonely = addOutline(library, makeOutlineFile(folder(QStringLiteral("Lonely"))), 2);
    lonely->fontStatusArray[0]->PSname = QStringLiteral("Lonely-Type3");

    diagnosis->settings()->setDiagnoseType3fonts(false);
    runCounterpartPasses();
    EXPECT_TRUE(diagnosis->postscripts().isEmpty());
    // Without its Type 3 outline in the list, the bitmap font has no partner.
    EXPECT_EQ(suitcase->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    EXPECT_TRUE(lonely->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 0);

    diagnosis->settings()->setDiagnoseType3fonts(true);
    suitcase->fontStatusArray[0]->fontErrors.clear();
    runCounterpartPasses();
    EXPECT_EQ(diagnosis->postscripts().size(), 2);
    EXPECT_TRUE(suitcase->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_TRUE(type3->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_EQ(lonely->fontStatusArray[0]->fontErrors, QList<int> { 1 });
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 1);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 0);
}

TEST_F(QVCounterpartPassesTest, QuarantinedFontsAreNeitherCheckedNorPartners)
{
    const QString sans = folder(QStringLiteral("Nimbus"));
    const QVFontFilePtr outline = addOutline(library, makeOutlineFile(sans));
    const QVFontFilePtr suitcase = addSuitcase(library, makeBitmapSuitcase(sans, { 12 }), { 12 });
    suitcase->fontStatusArray[0]->movedToQuarantine = true;

    runCounterpartPasses();
    // The quarantined bitmap font is not checked, and cannot settle the outline.
    EXPECT_TRUE(suitcase->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_EQ(outline->fontStatusArray[0]->fontErrors, QList<int> { 1 });

    // A whole file moved there counts the same.
    suitcase->fontStatusArray[0]->movedToQuarantine = false;
    outline->fontStatusArray[0]->fontErrors.clear();
    outline->fileMovedToQuarantine = true;
    runCounterpartPasses();
    EXPECT_EQ(suitcase->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    // A file in the quarantine is no partner, but its own fonts are still
    // walked: the outline finds its bitmap font beside it.
    EXPECT_TRUE(outline->fontStatusArray[0]->fontErrors.isEmpty());
}

TEST_F(QVCounterpartPassesTest, EarlierMarksAreAcceptedDifferentlyByTheTwoPasses)
{
    const QVFontFilePtr outline = addOutline(library, makeOutlineFile(folder(QStringLiteral("Outlines"))));
    const QVFontFilePtr far
        = addSuitcase(library, makeBitmapSuitcase(folder(QStringLiteral("Screen")), { 12 }), { 12 });
    const QVFontFilePtr orphan
        = addOutline(library, makeOutlineFile(folder(QStringLiteral("Orphan")), "NimbuSanBol"));
    orphan->fontStatusArray[0]->PSname = QStringLiteral("NimbusSans-Bold");

    runCounterpartPasses();
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 2);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);

    // Second run. The outline whose bitmap font lies elsewhere is settled by its
    // mark; the one with no bitmap font anywhere is reported again, its class
    // appended twice and its message kept once.
    runCounterpartPasses();
    EXPECT_EQ(outline->fontStatusArray[0]->fontErrors, QList<int> { 1 });
    EXPECT_EQ(orphan->fontStatusArray[0]->fontErrors, (QList<int> { 1, 1 }));
    EXPECT_EQ(orphan->fontStatusArray[0]->fontErrorsInfo, QStringList { "Couldn't Find Bitmap Font" });
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 1);
    // The bitmap font's own mark settles it at once.
    EXPECT_EQ(far->fontStatusArray[0]->fontErrors, QList<int> { 2 });
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 0);
}

TEST_F(QVCounterpartPassesTest, SkippedNamesStayOutOfBothLists)
{
    const QString path = folder(QStringLiteral("x/Fonts.dfont"));
    QVStatusPtr unnamed = makeStatus(1, QStringLiteral("Ok"));
    unnamed->fontName.clear();
    library.addFile(path, 0, QStringLiteral("FFIL"),
        { makeStatus(0, QStringLiteral(".Hidden"), 12),
            makeStatus(
                0, QStringLiteral("Ok"), 12, QStringLiteral("Plain"), 0, QStringLiteral(".LastResort")),
            makeStatus(0, QStringLiteral("Ok"), 12, QStringLiteral("Plain"), 0, QStringLiteral("%Percent")),
            makeStatus(1, QStringLiteral("<none>")), unnamed });
    diagnosis->populateArrays();
    EXPECT_TRUE(diagnosis->bitmaps().isEmpty());
    EXPECT_TRUE(diagnosis->postscripts().isEmpty());

    // With nothing to walk both passes end complete, reporting nothing.
    diagnosis->diagnoseMissingBitmaps();
    diagnosis->diagnoseMissingPostscripts();
    EXPECT_TRUE(diagnosis->problemFontsArray().isEmpty());
    EXPECT_EQ(diagnosis->progressForPass(1)->label(), QStringLiteral("Missing Bitmap Fonts - Complete ✓"));
    EXPECT_EQ(diagnosis->progressForPass(1)->value(), 0.0);
}
