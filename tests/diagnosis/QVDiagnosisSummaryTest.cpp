// The finished diagnosis as the command line prints it.
#include "diagnosis/QVDiagnosisSummary.h"

#include "QVDiagnosisFixtures.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "settings/QVSettings.h"
#include "support/QVTestHome.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace qvtest;

TEST(QVDiagnosisSummary, JsonAndTextListEveryProblemWithItsCopies)
{
    QVTestHome home;
    QVSettings().registerUserPreferences();
    QVFontLibrary library;
    const QString dejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    const QVFontFilePtr first = library.addFile(copyFont(dejaVu, home.path() + "/A"), 1, QString(""),
        { makeStatus(3, QStringLiteral("DejaVuSans"), 0, "Plain", 8) });
    const QVFontFilePtr second = library.addFile(copyFont(dejaVu, home.path() + "/B"), 1, QString(""),
        { makeStatus(3, QStringLiteral("DejaVuSans"), 0, "Plain", 3) });
    const QVFontFilePtr suitcase
        = addSuitcase(library, makeBitmapSuitcase(home.path() + "/Screen", { 10, 12 }), { 10, 12 });

    QVDiagnosis diagnosis(&library.dataMgr);
    QVDiagnosisViewState view(&diagnosis);
    view.setPacingEnabled(false);
    view.setFinishDelay(0);
    diagnosis.settings()->setLastScanType(QStringLiteral("Manual Scan"));
    diagnosis.settings()->setMatchVersionNumbers(false);
    QSignalSpy finished(&view, &QVDiagnosisViewState::diagnosisFinished);
    view.diagnoseFonts();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !finished.isEmpty() && diagnosis.passesInFlight() == 0; }, 20000));

    const QJsonObject json = QVDiagnosisSummary::toJson(diagnosis);
    EXPECT_EQ(json.value("outcome").toString(), QStringLiteral("Font Problems Were Found"));
    EXPECT_EQ(json.value("duplicateProblemCount").toInt(), 1);
    EXPECT_EQ(json.value("missingPSProblemCount").toInt(), 1);
    EXPECT_EQ(json.value("missingBitmapProblemCount").toInt(), 0);
    EXPECT_EQ(json.value("fileStructureProblemCount").toInt(), 0);
    // Three fonts: both copies of the duplicate and the lone bitmap font.
    EXPECT_EQ(json.value("totalFontProblems").toInt(), 3);
    const QJsonArray problems = json.value("problemFonts").toArray();
    ASSERT_EQ(problems.size(), 2);
    // Sorted for the resolution window: the duplicate comes first.
    const QJsonObject duplicate = problems[0].toObject();
    EXPECT_EQ(duplicate.value("diagnosisType").toInt(), 3);
    EXPECT_EQ(duplicate.value("fontFile").toString(), second->URL);
    EXPECT_EQ(duplicate.value("fontStatus").toInt(), 1);
    const QJsonArray copies = duplicate.value("duplicatesArray").toArray();
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(copies[0].toObject().value("fontFile").toString(), first->URL);
    EXPECT_EQ(copies[0].toObject().value("fontStatus").toInt(), 0);
    const QJsonObject missing = problems[1].toObject();
    EXPECT_EQ(missing.value("diagnosisType").toInt(), 2);
    EXPECT_EQ(missing.value("fontFile").toString(), suitcase->URL);
    EXPECT_EQ(missing.value("fontStatus").toInt(), 2);
    EXPECT_FALSE(missing.contains("duplicatesArray"));

    const QString text = QVDiagnosisSummary::toText(diagnosis);
    EXPECT_TRUE(text.startsWith(QStringLiteral("Font Problems Were Found\n"))) << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("Fonts with problems:       3\n"))) << qPrintable(text);
    const qsizetype duplicates = text.indexOf(QStringLiteral("Found Duplicate Fonts:\n"));
    const qsizetype orphans = text.indexOf(QStringLiteral("No Matching Postscript Font:\n"));
    ASSERT_GE(duplicates, 0) << qPrintable(text);
    ASSERT_GT(orphans, duplicates) << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("      copy: DejaVuSans (Plain) [0]  ") + first->URL))
        << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("  Nimbus Sans (Plain) 10 pt [2]  ") + suitcase->URL))
        << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("      - Couldn't Find PostScript File\n"))) << qPrintable(text);
    EXPECT_FALSE(text.contains(QStringLiteral("File Structure Problems:"))) << qPrintable(text);
}
