// Duplicate fonts, over copies of installed fonts in real folders.
#include "QVDiagnosisFixtures.h"
#include "diagnosis/QVDiagnosis.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "support/QVTestHome.h"

#include <gtest/gtest.h>

using namespace qvtest;

namespace
{

const QString kDejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
const QString kDejaVuBold = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf");

class QVDuplicatePassTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings().registerUserPreferences();
        diagnosis = std::make_unique<QVDiagnosis>(&library.dataMgr);
        diagnosis->setPacingEnabled(false);
    }

    QString folder(const QString &name) const { return home.path() + QLatin1Char('/') + name; }

    // A TrueType file as the examiner records it: one plain status.
    QVFontFilePtr addTrueType(const QString &path, qint32 version,
        const QString &psName = QStringLiteral("DejaVuSans"), const QString &style = QStringLiteral("Plain"),
        qint32 type = QVFontType::TrueType)
    {
        return library.addFile(path, 1, QString(""),
            { makeStatus(type, psName, 0, style, version, QStringLiteral("DejaVu Sans")) });
    }

    QVTestHome home;
    QVFontLibrary library;
    std::unique_ptr<QVDiagnosis> diagnosis;
};

} // namespace

TEST_F(QVDuplicatePassTest, OneTrueTypeFontInThreeFoldersGivesOneEntryForTheLowestVersion)
{
    diagnosis->settings()->setMatchVersionNumbers(false);
    const QVFontFilePtr a = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("A"))), 30);
    const QVFontFilePtr b = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("B"))), 10);
    const QVFontFilePtr c = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("C"))), 20);

    diagnosis->diagnoseDuplicateFonts();

    EXPECT_EQ(diagnosis->duplicateProblemCount(), 1);
    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    EXPECT_EQ(problems[0]->diagnosisType, 3);
    EXPECT_EQ(problems[0]->fontFile, b);
    EXPECT_EQ(problems[0]->fontStatus, b->fontStatusArray[0]);
    ASSERT_TRUE(problems[0]->hasDuplicatesArray);
    ASSERT_EQ(problems[0]->duplicatesArray.size(), 2);
    EXPECT_EQ(problems[0]->duplicatesArray[0].fontFile, c);
    EXPECT_EQ(problems[0]->duplicatesArray[0].fontStatus, c->fontStatusArray[0]);
    EXPECT_EQ(problems[0]->duplicatesArray[1].fontFile, a);
    for (const QVFontFilePtr &file : { a, b, c })
        EXPECT_EQ(file->fontStatusArray[0]->fontErrors, QList<int> { 3 });
    EXPECT_EQ(b->fontStatusArray[0]->fontErrorsInfo, QStringList { "Found Duplicate Fonts" });
    EXPECT_EQ(a->fontStatusArray[0]->fontErrorsInfo, QStringList { "Duplicate Font" });
    EXPECT_EQ(c->fontStatusArray[0]->fontErrorsInfo, QStringList { "Duplicate Font" });
    EXPECT_EQ(diagnosis->progressForPass(3)->label(), QStringLiteral("Duplicate Fonts - Complete ✓"));
}

TEST_F(QVDuplicatePassTest, VersionsMustMatchOnlyWhenTheSettingIsOn)
{
    const QVFontFilePtr older = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("A"))), 300);
    const QVFontFilePtr newer = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("B"))), 5);

    diagnosis->settings()->setMatchVersionNumbers(true);
    diagnosis->diagnoseDuplicateFonts();
    EXPECT_TRUE(diagnosis->problemFontsArray().isEmpty());
    EXPECT_TRUE(older->fontStatusArray[0]->fontErrors.isEmpty());
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 0);

    diagnosis->settings()->setMatchVersionNumbers(false);
    diagnosis->diagnoseDuplicateFonts();
    ASSERT_EQ(diagnosis->problemFontsArray().size(), 1);
    EXPECT_EQ(diagnosis->problemFontsArray()[0]->fontStatus, newer->fontStatusArray[0]);
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 1);
}

TEST_F(QVDuplicatePassTest, EqualVersionsKeepTheFirstFoundOtherCopy)
{
    // With every version equal the stable sort keeps the search's order: the
    // copies found in the index come before the font that found them.
    diagnosis->settings()->setMatchVersionNumbers(true);
    const QVFontFilePtr first = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("A"))), 7);
    const QVFontFilePtr second = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("B"))), 7);
    const QVFontFilePtr third = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("C"))), 7);

    diagnosis->diagnoseDuplicateFonts();
    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    EXPECT_EQ(problems[0]->fontFile, second);
    ASSERT_EQ(problems[0]->duplicatesArray.size(), 2);
    EXPECT_EQ(problems[0]->duplicatesArray[0].fontFile, third);
    EXPECT_EQ(problems[0]->duplicatesArray[1].fontFile, first);
}

TEST_F(QVDuplicatePassTest, FontsInOneFileBoldAndPostScriptFontsAreNeverDuplicates)
{
    diagnosis->settings()->setMatchVersionNumbers(false);
    // Two fonts of one name inside one collection file.
    const QString collection = copyFont(kDejaVu, folder(QStringLiteral("A")), QStringLiteral("Family.ttc"));
    library.addFile(collection, 1, QString(""),
        { makeStatus(3, QStringLiteral("Twin")), makeStatus(3, QStringLiteral("Twin")) });
    // Bold copies and PostScript outlines in two folders each.
    addTrueType(copyFont(kDejaVuBold, folder(QStringLiteral("B"))), 1, QStringLiteral("DejaVuSans-Bold"),
        QStringLiteral("Bold"));
    addTrueType(copyFont(kDejaVuBold, folder(QStringLiteral("C"))), 1, QStringLiteral("DejaVuSans-Bold"),
        QStringLiteral("Bold"));
    addOutline(library, makeOutlineFile(folder(QStringLiteral("D"))));
    addOutline(library, makeOutlineFile(folder(QStringLiteral("E"))));
    addOutline(library, makeOutlineFile(folder(QStringLiteral("F"))), 2);
    addOutline(library, makeOutlineFile(folder(QStringLiteral("G"))), 2);

    diagnosis->diagnoseDuplicateFonts();
    EXPECT_TRUE(diagnosis->problemFontsArray().isEmpty());
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 0);
    for (const QVFontFilePtr &file : library.dataMgr.fontFileItems) {
        for (const QVStatusPtr &status : file->fontStatusArray)
            EXPECT_TRUE(status->fontErrors.isEmpty()) << qPrintable(status->PSname);
    }
}

TEST_F(QVDuplicatePassTest, BitmapSuitcasesInTwoFoldersAreOneGroupByTheirFirstSize)
{
    diagnosis->settings()->setMatchVersionNumbers(true);
    const QVFontFilePtr one = addSuitcase(
        library, makeBitmapSuitcase(folder(QStringLiteral("One")), { 10, 12, 14 }), { 10, 12, 14 });
    const QVFontFilePtr two = addSuitcase(
        library, makeBitmapSuitcase(folder(QStringLiteral("Two")), { 10, 12, 14 }), { 10, 12, 14 });

    diagnosis->diagnoseDuplicateFonts();
    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    EXPECT_EQ(problems[0]->fontStatus, two->fontStatusArray[0]);
    ASSERT_EQ(problems[0]->duplicatesArray.size(), 1);
    EXPECT_EQ(problems[0]->duplicatesArray[0].fontStatus, one->fontStatusArray[0]);
    // The other sizes were neither indexed nor searched.
    for (const QVFontFilePtr &file : { one, two }) {
        EXPECT_EQ(file->fontStatusArray[0]->fontErrors, QList<int> { 3 });
        EXPECT_TRUE(file->fontStatusArray[1]->fontErrors.isEmpty());
        EXPECT_TRUE(file->fontStatusArray[2]->fontErrors.isEmpty());
    }
}

TEST_F(QVDuplicatePassTest, DamagedDuplicateKeepsItsStructureEntryAndGainsTheGroup)
{
    diagnosis->settings()->setMatchVersionNumbers(false);
    const QVFontFilePtr damaged = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("A"))), 2);
    withDefect(damaged->fontStatusArray[0], QVDefect::BadTableData);
    const QVFontFilePtr healthy = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("B"))), 9);

    diagnosis->diagnoseFileStructure();
    diagnosis->diagnoseDuplicateFonts();

    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    EXPECT_EQ(problems[0]->diagnosisType, 0);
    EXPECT_EQ(problems[0]->fontStatus, damaged->fontStatusArray[0]);
    ASSERT_TRUE(problems[0]->hasDuplicatesArray);
    ASSERT_EQ(problems[0]->duplicatesArray.size(), 1);
    EXPECT_EQ(problems[0]->duplicatesArray[0].fontStatus, healthy->fontStatusArray[0]);
    EXPECT_EQ(damaged->fontStatusArray[0]->fontErrors, (QList<int> { 0, 3 }));
    EXPECT_EQ(damaged->fontStatusArray[0]->fontErrorsInfo,
        (QStringList { "Bad Table Data", "Found Duplicate Fonts" }));
    EXPECT_EQ(diagnosis->fileStructureProblemCount(), 1);
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 1);
}

TEST_F(QVDuplicatePassTest, MarkedFontsAreNotGroupedAgainButOtherSizesOfTheLastSearchedArePassedOver)
{
    diagnosis->settings()->setMatchVersionNumbers(false);
    // A copy already marked by an earlier run is neither searched nor found.
    const QVFontFilePtr marked = addTrueType(copyFont(kDejaVu, folder(QStringLiteral("A"))), 1);
    marked->fontStatusArray[0]->fontErrors.append(3);
    addTrueType(copyFont(kDejaVu, folder(QStringLiteral("B"))), 1);
    // In two suitcases a strike of another size follows the first strike
    // searched: both are passed over, whatever their names, so the copies of
    // "Beta" never meet.
    const QString suitcase = makeBitmapSuitcase(folder(QStringLiteral("C")), { 10, 12 });
    library.addFile(suitcase, 0, QStringLiteral("FFIL"),
        { makeStatus(0, QStringLiteral("Alpha"), 10), makeStatus(0, QStringLiteral("Beta"), 12) });
    const QString other = makeBitmapSuitcase(folder(QStringLiteral("D")), { 10, 12 });
    library.addFile(other, 0, QStringLiteral("FFIL"),
        { makeStatus(0, QStringLiteral("Gamma"), 10), makeStatus(0, QStringLiteral("Beta"), 12) });

    diagnosis->diagnoseDuplicateFonts();
    EXPECT_TRUE(diagnosis->problemFontsArray().isEmpty());
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 0);
}
