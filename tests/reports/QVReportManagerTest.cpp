#include "reports/QVReportManager.h"

#include "QVReportFixtures.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// Readable failure messages.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

using namespace QVReportFixtures;

namespace
{

const QDateTime kScanDate(QDate(2024, 1, 2), QTime(15, 4, 5));

QString parserScript()
{
    return QStringLiteral(QV_TEST_DATA_DIR "/../reports/report_html.py");
}

// The report as Python's HTML parser reads it.
QJsonObject parseReport(const QString &html)
{
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/report.html");
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(html.toUtf8());
    file.close();
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"), { parserScript(), path });
    EXPECT_TRUE(python.waitForFinished(30000));
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().constData();
    return QJsonDocument::fromJson(python.readAllStandardOutput()).object();
}

QStringList headings(const QJsonObject &report)
{
    QStringList list;
    for (const QJsonValue &section : report.value(QStringLiteral("sections")).toArray())
        list.append(section.toObject().value(QStringLiteral("heading")).toString());
    return list;
}

QJsonArray rowsOf(const QJsonObject &report, int section)
{
    return report.value(QStringLiteral("sections"))
        .toArray()
        .at(section)
        .toObject()
        .value(QStringLiteral("rows"))
        .toArray();
}

QString cell(const QJsonArray &rows, int row, int column)
{
    return rows.at(row).toObject().value(QStringLiteral("cells")).toArray().at(column).toString();
}

class ReportManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings settings;
        settings.setCopyFontFiles(false);
        settings.setOrganizeFontsFolder(QStringLiteral("/srv/Library & Co"));
        settings.setUserName(QStringLiteral("Ada <Prepress>"));
        settings.setShowReports(false);
        manager.setFileMgr(&store);
    }

    QString fill(const QVReportInput &input)
    {
        manager.setReportInput(input);
        return manager.fillTemplate(manager.createReportDataDictionary(kScanDate));
    }

    QVTestHome home;
    QVReportStore store;
    QVReportManager manager;
};

} // namespace

TEST_F(ReportManagerTest, DataDictionaryHoldsTitleCountsAndSectionsInOrder)
{
    manager.setReportInput(mixedDiagnosis());
    const QVReportData data = manager.createReportDataDictionary(kScanDate);
    EXPECT_EQ(data.qv_report_title, QStringLiteral("Quorvel Report 1/2/2024"));
    EXPECT_EQ(data.qv_total_examined, 1234);
    // Eight problem fonts and the two other copies of the duplicated one.
    EXPECT_EQ(data.qv_total_problems, 10);
    EXPECT_EQ(data.qv_total_healthy, 1224);
    EXPECT_EQ(data.qv_total_quarantined, 3);

    QStringList headers;
    QList<int> sizes;
    for (const QVReportRow &row : data.diagnosisArray) {
        if (!row.qv_diagnosis_header.isEmpty()) {
            headers.append(row.qv_diagnosis_header);
            sizes.append(0);
        }
        ASSERT_FALSE(sizes.isEmpty()) << "a row before the first heading";
        ++sizes.last();
    }
    EXPECT_EQ(headers,
        QStringList({
            "6 fonts were diagnosed as corrupt or damaged:",
            "2 fonts were diagnosed as having duplicate fonts:",
            "1 PostScript font was diagnosed as missing it's bitmap font counterpart:",
            "1 bitmap font was diagnosed as missing it's PostScript font counterpart:",
            "1 font had a problem when being organized:",
        }));
    EXPECT_EQ(sizes, QList<int>({ 6, 2, 1, 1, 1 }));
    EXPECT_EQ(data.qv_diagnosis_info_footer,
        QStringLiteral(
            "<span style=\"font-style:italic;font-size:12px;\">* The Bitmap and PostScript files for "
            "this font have been moved to the Quarantine.</span>"));
}

TEST_F(ReportManagerTest, CellsFollowTheirSectionsForms)
{
    manager.setReportInput(mixedDiagnosis());
    const QList<QVReportRow> rows = manager.createReportDataDictionary(kScanDate).diagnosisArray;
    ASSERT_EQ(rows.size(), 11);

    // Corrupt: three-line font cell, path and PostScript name, first defect.
    EXPECT_EQ(rows[0].qv_diagnosis_fontName,
        QStringLiteral(
            "<b>DejaVu Sans</b><ul style=\"font-size:12px;color:#555\"><li>Book<li>TrueType</ul>"));
    EXPECT_EQ(rows[0].qv_diagnosis_location,
        QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf<br><br><span "
                       "style=\"color:#555;\">PostScript Name: </span><span "
                       "style=\"color:#333;\">DejaVuSans</span>"));
    EXPECT_EQ(rows[0].qv_diagnosis_condition, QStringLiteral("Bad Table Data"));
    EXPECT_EQ(rows[0].qv_diagnosis_action,
        QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine</p>"));
    EXPECT_EQ(rows[1].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:green;\"><p style=\"text-align:center;\">Repaired</p></span>"));
    // No style: the two-line cell; a failed repair shows its message.
    EXPECT_EQ(rows[2].qv_diagnosis_fontName,
        QStringLiteral("<b>C059</b><ul style=\"font-size:12px;color:#555\"><li>PostScript Type 1</ul>"));
    EXPECT_EQ(rows[2].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">Couldn't Fix File: Operation not permitted</span>"));
    EXPECT_EQ(rows[3].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\"><p style=\"text-align:center;\">Ignored</p></span>"));
    // A TrueType font in a suitcase goes by its TrueType name; "<none>" shows the path.
    EXPECT_TRUE(rows[4].qv_diagnosis_fontName.startsWith(QStringLiteral("<b>Futura Medium TT</b>")));
    EXPECT_EQ(rows[4].qv_diagnosis_location, QStringLiteral("/srv/Mac Fonts/Futura Suitcase"));
    EXPECT_EQ(
        rows[4].qv_diagnosis_action, QStringLiteral("<span style=\"color:red;\">Not Authorized</span>"));

    // Duplicates: the owner's defect, the duplicate's name, the owner's path.
    EXPECT_EQ(rows[6].qv_diagnosis_condition,
        QStringLiteral(
            "<b>Found Duplicate Fonts</b><br><div style=\"padding-top:5px;font-size:11px;\">Matched "
            "Font: Garamond<br><span style=\"color:#777;\">/srv/Mac Fonts/Garamond/Garamond</span></div>"));
    EXPECT_TRUE(
        rows[6].qv_diagnosis_location.startsWith(QStringLiteral("/srv/Old Fonts/Garamond/Garamond<br>")));
    EXPECT_EQ(rows[6].qv_diagnosis_action,
        QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine*</p>"));
    EXPECT_EQ(rows[7].qv_diagnosis_action,
        QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine</p>"));

    // Missing counterparts: two-line and three-line cells, the text at the kind's index.
    EXPECT_EQ(rows[8].qv_diagnosis_fontName,
        QStringLiteral(
            "<b>Helvetica Neue</b><ul style=\"font-size:12px;color:#555\"><li>PostScript Type 1</ul>"));
    EXPECT_EQ(rows[8].qv_diagnosis_condition, QStringLiteral("Couldn't Find Bitmap Font"));
    EXPECT_EQ(rows[8].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">Authorization Error: 1</span>"));
    EXPECT_EQ(rows[9].qv_diagnosis_fontName,
        QStringLiteral("<b>Optima</b><ul style=\"font-size:12px;color:#555\"><li>Bold<li>Bitmap</ul>"));
    EXPECT_EQ(rows[9].qv_diagnosis_condition, QStringLiteral("Couldn't Find PostScript File"));

    // Organize: "<none>" printed as such, the library folder quoted, the error in red.
    EXPECT_EQ(rows[10].qv_diagnosis_location, QStringLiteral("&lt;none&gt;"));
    EXPECT_EQ(rows[10].qv_diagnosis_condition,
        QStringLiteral("Couldn't move font to folder \"/srv/Library &amp; Co\""));
    EXPECT_EQ(rows[10].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">No space left on device</span>"));

    QVSettings().setCopyFontFiles(true);
    const QList<QVReportRow> copied = manager.createReportDataDictionary(kScanDate).diagnosisArray;
    EXPECT_EQ(copied[10].qv_diagnosis_condition,
        QStringLiteral("Couldn't copy font to folder \"/srv/Library &amp; Co\""));
}

TEST_F(ReportManagerTest, RepeatedErrorsRepeatRowsAndOnlySomeRowsEarnTheFootnote)
{
    // Two class-0 errors: the font is listed twice.
    Font twice = makeFont(
        QStringLiteral("/srv/a.ttf"), QStringLiteral("A"), QStringLiteral("Regular"), 3, QStringLiteral("A"));
    twice.status->fontErrors = { 0, 0 };
    twice.status->fontErrorsInfo = { QStringLiteral("Bad Table Data"), QStringLiteral("Out of Memory") };
    twice.status->fixedErrors = { false, false };
    twice.status->fixedErrorMessages = { QString(""), QString("") };
    // A moved bitmap font with its sisters, but in the missing-PostScript section:
    // no star there, so no footnote.
    Font bitmap = makeFont(
        QStringLiteral("/srv/b"), QStringLiteral("B"), QStringLiteral("Plain"), 0, QStringLiteral("B"), 0);
    addDefect(bitmap.status, 2, QStringLiteral("Couldn't Find PostScript File"));
    bitmap.status->movedToQuarantine = true;
    bitmap.status->movedSisterToQuarantine = true;
    // An owner with two duplicate-class errors yields one row per error for each duplicate.
    Font owner = makeFont(
        QStringLiteral("/srv/c"), QStringLiteral("C"), QStringLiteral("Plain"), 3, QStringLiteral("C"));
    owner.status->fontErrors = { 3, 0, 3 };
    owner.status->fontErrorsInfo = { QStringLiteral("Found Duplicate Fonts"),
        QStringLiteral("Bad Table Data"), QStringLiteral("Duplicate Font") };
    owner.status->fixedErrors = { false, false, false };
    owner.status->fixedErrorMessages = { QString(""), QString(""), QString("") };
    Font dup = makeFont(
        QStringLiteral("/srv/d"), QStringLiteral("C"), QStringLiteral("Plain"), 3, QStringLiteral("C"));

    QVReportInput input;
    input.totalFonts = 10;
    input.problemFontsArray = { makeEntry(twice, 0), makeEntry(bitmap, 2), makeEntry(owner, 0) };
    input.problemFontsArray.last()->duplicatesArray = { { dup.file, dup.status } };
    manager.setReportInput(input);
    const QVReportData data = manager.createReportDataDictionary(kScanDate);

    QStringList headers;
    for (const QVReportRow &row : data.diagnosisArray) {
        if (!row.qv_diagnosis_header.isEmpty())
            headers.append(row.qv_diagnosis_header);
    }
    EXPECT_EQ(headers,
        QStringList({ "3 fonts were diagnosed as corrupt or damaged:",
            "1 font was diagnosed as having duplicate fonts:",
            "1 bitmap font was diagnosed as missing it's PostScript font counterpart:" }));
    // Corrupt: twice, twice, owner; duplicates: two rows for one duplicate; missing PS: one.
    ASSERT_EQ(data.diagnosisArray.size(), 6);
    EXPECT_EQ(data.diagnosisArray[0].qv_diagnosis_fontName, data.diagnosisArray[1].qv_diagnosis_fontName);
    EXPECT_TRUE(data.diagnosisArray[3].qv_diagnosis_condition.startsWith(
        QStringLiteral("<b>Found Duplicate Fonts</b>")));
    EXPECT_TRUE(
        data.diagnosisArray[4].qv_diagnosis_condition.startsWith(QStringLiteral("<b>Duplicate Font</b>")));
    EXPECT_EQ(data.diagnosisArray[5].qv_diagnosis_action,
        QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine</p>"));
    EXPECT_TRUE(data.qv_diagnosis_info_footer.isEmpty());
}

TEST_F(ReportManagerTest, FilledReportReadsBackWithItsSectionsRowsAndShades)
{
    const QString html = fill(mixedDiagnosis());
    const QJsonObject report = parseReport(html);

    EXPECT_EQ(report.value("title").toString(), QStringLiteral("Quorvel Report 1/2/2024"));
    const QJsonObject figures = report.value("figures").toObject();
    EXPECT_EQ(figures.value("Fonts examined").toString(), QStringLiteral("1,234"));
    EXPECT_EQ(figures.value("Problem fonts").toString(), QStringLiteral("10"));
    EXPECT_EQ(figures.value("Healthy fonts").toString(), QStringLiteral("1,224"));
    EXPECT_EQ(figures.value("Moved to quarantine").toString(), QStringLiteral("3"));
    EXPECT_EQ(report.value("markers").toArray().size(), 0) << qPrintable(html.left(2000));
    EXPECT_EQ(headings(report).size(), 5);
    EXPECT_EQ(headings(report).first(), QStringLiteral("6 fonts were diagnosed as corrupt or damaged:"));

    // Shades alternate and start again after every heading.
    const QList<QStringList> expectedShades
        = { { "#CCCCCC", "#E1E1E1", "#CCCCCC", "#E1E1E1", "#CCCCCC", "#E1E1E1" }, { "#CCCCCC", "#E1E1E1" },
              { "#CCCCCC" }, { "#CCCCCC" }, { "#CCCCCC" } };
    for (int s = 0; s < expectedShades.size(); ++s) {
        const QJsonArray rows = rowsOf(report, s);
        QStringList shades;
        for (const QJsonValue &row : rows)
            shades.append(row.toObject().value("shade").toString());
        EXPECT_EQ(shades, expectedShades[s]) << "section " << s;
    }
    const QJsonArray corrupt = rowsOf(report, 0);
    EXPECT_EQ(cell(corrupt, 0, 0), QStringLiteral("DejaVu Sans\nBook\nTrueType"));
    EXPECT_EQ(cell(corrupt, 1, 3), QStringLiteral("Repaired"));
    EXPECT_EQ(cell(rowsOf(report, 1), 0, 3), QStringLiteral("Moved to\nQuarantine*"));
    EXPECT_TRUE(
        report.value("footnote")
            .toString()
            .contains(QStringLiteral(
                "* The Bitmap and PostScript files for this font have been moved to the Quarantine.")));
    EXPECT_TRUE(report.value("scan").toString().contains(QStringLiteral("Manual Scan")));
    EXPECT_TRUE(html.contains(QStringLiteral("Ada &lt;Prepress&gt;")));
}

TEST_F(ReportManagerTest, FontAndPathTextIsEscapedEverywhere)
{
    const QString html = fill(mixedDiagnosis());
    const QJsonObject report = parseReport(html);
    EXPECT_EQ(report.value("scripts").toInt(), 0);
    EXPECT_FALSE(html.contains(QStringLiteral("<script>")));
    EXPECT_FALSE(html.contains(QStringLiteral("<b>Heavy</b>")));
    EXPECT_FALSE(html.contains(QStringLiteral("<PS>")));
    EXPECT_FALSE(html.contains(QStringLiteral("<cmap>")));
    EXPECT_FALSE(html.contains(QStringLiteral("<2024>")));

    const QJsonArray corrupt = rowsOf(report, 0);
    const QJsonObject hostile = corrupt.at(3).toObject();
    EXPECT_EQ(cell(corrupt, 3, 0), QStringLiteral("<script>alert(1)</script>\n<b>Heavy</b> & Co\nOpenType"));
    EXPECT_EQ(cell(corrupt, 3, 1),
        QStringLiteral("/srv/Jobs & Clients/\"Spring\" <2024>/<b>Bold</b>.otf\n\nPostScript "
                       "Name: Evil&<PS>\"Name\""));
    EXPECT_EQ(cell(corrupt, 3, 2), QStringLiteral("Defective Table data (<cmap> & \"name\")"));
    // The only tags in the font cell are the ones the report itself puts there.
    const QJsonArray fontTags = hostile.value("tags").toArray().at(0).toArray();
    QStringList tags;
    for (const QJsonValue &tag : fontTags)
        tags.append(tag.toString());
    EXPECT_EQ(tags, QStringList({ "b", "ul", "li", "li" }));
    // Scan folders with the same characters.
    EXPECT_TRUE(report.value("scan").toString().contains(
        QStringLiteral("/srv/Jobs & Clients/\"Spring\" <2024>/Fonts/")));
}

TEST_F(ReportManagerTest, ReportWithoutProblemsHasCountsNoSectionsAndABreakForFooter)
{
    QVReportInput input;
    input.totalFonts = 1234;
    const QString html = fill(input);
    const QJsonObject report = parseReport(html);
    EXPECT_EQ(report.value("figures").toObject().value("Fonts examined").toString(), QStringLiteral("1,234"));
    EXPECT_EQ(report.value("figures").toObject().value("Healthy fonts").toString(), QStringLiteral("1,234"));
    EXPECT_EQ(report.value("figures").toObject().value("Problem fonts").toString(), QStringLiteral("0"));
    EXPECT_EQ(report.value("sections").toArray().size(), 0);
    EXPECT_TRUE(html.contains(QStringLiteral("<qv_diagnosis_table></qv_diagnosis_table>")));
    EXPECT_TRUE(html.contains(QStringLiteral("<div class=\"footnote\"><br></div>")));
    EXPECT_EQ(report.value("markers").toArray().size(), 0);
}

TEST_F(ReportManagerTest, MissingTemplateGivesAnEmptyReport)
{
    manager.setTemplatePath(home.path() + QStringLiteral("/no-such-template.html"));
    const QString html = fill(mixedDiagnosis());
    EXPECT_FALSE(html.isNull());
    EXPECT_TRUE(html.isEmpty());
}

TEST_F(ReportManagerTest, CreateReportStoresItAndRecordsTheNewestReport)
{
    QList<QVariantMap> shown;
    QVReportManager::setShowReportHook([&shown](const QVariantMap &record) { shown.append(record); });
    manager.setReportInput(mixedDiagnosis());
    QSignalSpy stored(&manager, &QVReportManager::reportStored);

    manager.createReport(kScanDate, true);
    ASSERT_TRUE(stored.wait(30000));
    EXPECT_TRUE(manager.reportIsReady());
    EXPECT_FALSE(manager.reportIsProcessing());

    ASSERT_EQ(store.reportFilesDataArray().size(), 1);
    const QVariantMap record = store.reportFilesDataArray().last();
    EXPECT_EQ(record.value("reportName").toString(), QStringLiteral("Quorvel Report 1/2/2024"));
    EXPECT_TRUE(record.value("filePath").toString().endsWith(QStringLiteral("/Reports/QuorvelReport122024")));
    EXPECT_EQ(record.value("qv_total_examined").toString(), QStringLiteral("1,234"));
    const QString html = store.getReportFileData(record.value("filePath").toString());
    EXPECT_TRUE(html.contains(QStringLiteral("6 fonts were diagnosed as corrupt or damaged:")));

    QVSettings settings;
    EXPECT_EQ(settings.lastReportName(), QStringLiteral("Quorvel Report 1/2/2024"));
    EXPECT_EQ(settings.lastReportFilePath(), record.value("filePath").toString());
    EXPECT_EQ(settings.lastScanTotalCount(), QStringLiteral("1,234"));
    EXPECT_EQ(settings.lastScanProblemCount(), QStringLiteral("10"));

    // The hook runs on the main thread, after the event loop turns.
    QCoreApplication::processEvents();
    ASSERT_EQ(shown.size(), 1);
    EXPECT_EQ(shown.first().value("filePath"), record.value("filePath"));

    // Not asked to show, with showReports off: stored, not shown.
    manager.createReport(kScanDate, false);
    ASSERT_TRUE(stored.wait(30000));
    QCoreApplication::processEvents();
    EXPECT_EQ(shown.size(), 1);
    EXPECT_TRUE(QVSettings().lastReportFilePath().endsWith(QStringLiteral("QuorvelReport122024_1")));
    QVReportManager::setShowReportHook({});
}

TEST_F(ReportManagerTest, WriteReportWaitsAndReturnsTheStoredRecord)
{
    manager.setReportInput(mixedDiagnosis());
    const QVariantMap record = manager.writeReport(kScanDate);
    ASSERT_FALSE(record.isEmpty());
    EXPECT_TRUE(QFileInfo::exists(record.value("filePath").toString()));
    EXPECT_EQ(QVSettings().lastReportFilePath(), record.value("filePath").toString());
}

TEST_F(ReportManagerTest, LargeReportsShowProgressAndCancellingAbandonsThem)
{
    QVSettings settings;
    settings.setLastReportName(QStringLiteral("Previous"));

    // 1,000 rows: no progress.
    manager.setReportInput(corruptFonts(1000, 1000));
    QSignalSpy shownSpy(&manager, &QVReportManager::progressShown);
    EXPECT_FALSE(manager.fillTemplate(manager.createReportDataDictionary(kScanDate)).isEmpty());
    EXPECT_EQ(shownSpy.count(), 0);

    // 1,001 rows: the progress runs to 100.
    manager.setReportInput(corruptFonts(1001, 1001));
    const QString html = manager.fillTemplate(manager.createReportDataDictionary(kScanDate));
    EXPECT_EQ(shownSpy.count(), 1);
    EXPECT_DOUBLE_EQ(manager.progressWindow()->value(), 100.0);
    EXPECT_EQ(manager.progressWindow()->label(), QStringLiteral("Generating Report..."));
    EXPECT_EQ(html.count(QStringLiteral("<tr class=\"row\"")), 1001);

    // Cancelled from the progress window: nothing stored, the settings keep the previous report.
    QObject::connect(
        &manager, &QVReportManager::progressShown, &manager, [this] { manager.cancelReport(); },
        Qt::DirectConnection);
    QSignalSpy cancelled(&manager, &QVReportManager::reportCancelled);
    QSignalSpy closed(&manager, &QVReportManager::progressClosed);
    const QVariantMap record = manager.writeReport(kScanDate);
    EXPECT_TRUE(record.isEmpty());
    EXPECT_EQ(cancelled.count(), 1);
    EXPECT_GE(closed.count(), 1);
    EXPECT_FALSE(manager.reportIsProcessing());
    EXPECT_TRUE(store.reportFilesDataArray().isEmpty());
    EXPECT_EQ(QVSettings().lastReportName(), QStringLiteral("Previous"));
}

TEST_F(ReportManagerTest, ActionCellsReadTheFirstDefectAndQuarantineRuleOfTheirOwnFont)
{
    // Two defects, only the second repaired: both rows follow the first one.
    Font partly = makeFont(
        QStringLiteral("/srv/p.ttf"), QStringLiteral("P"), QStringLiteral("Plain"), 3, QStringLiteral("P"));
    partly.status->fontErrors = { 0, 0 };
    partly.status->fontErrorsInfo = { QStringLiteral("Bad Table Data"), QStringLiteral("Out of Memory") };
    partly.status->fixedErrors = { false, true };
    partly.status->fixedErrorMessages = { QString(""), QString("") };
    // A whole file in the quarantine counts as moved although its font is not marked.
    partly.file->fileMovedToQuarantine = true;
    // A PostScript font without its bitmap font, moved with its sisters: no star
    // outside the corrupt and duplicate sections.
    Font outline = makeFont(
        QStringLiteral("/srv/Outline"), QStringLiteral("O"), QStringLiteral("Plain"), 1, QStringLiteral("O"));
    addDefect(outline.status, 1, QStringLiteral("Couldn't Find Bitmap Font"));
    outline.status->movedToQuarantine = true;
    outline.status->movedSisterToQuarantine = true;
    // A duplicate that could not be moved says why, not "Ignored".
    Font owner = makeFont(
        QStringLiteral("/srv/k.ttf"), QStringLiteral("K"), QStringLiteral("Plain"), 3, QStringLiteral("K"));
    addDefect(owner.status, 3, QStringLiteral("Found Duplicate Fonts"));
    Font dup = makeFont(QStringLiteral("/srv/old/k.ttf"), QStringLiteral("K"), QStringLiteral("Plain"), 3,
        QStringLiteral("K"));
    addDefect(dup.status, 3, QStringLiteral("Duplicate Font"));
    dup.status->movedToQuarantineErrorInfo = QStringLiteral("Permission denied");

    QVReportInput input;
    input.totalFonts = 3;
    input.problemFontsArray = { makeEntry(partly, 0), makeEntry(outline, 1), makeEntry(owner, 3) };
    input.problemFontsArray.last()->duplicatesArray = { { dup.file, dup.status } };
    manager.setReportInput(input);
    const QVReportData data = manager.createReportDataDictionary(kScanDate);

    ASSERT_EQ(data.diagnosisArray.size(), 4);
    const QString moved = QStringLiteral("<p style=\"text-align:center;\">Moved to<br>Quarantine</p>");
    EXPECT_EQ(data.diagnosisArray[0].qv_diagnosis_action, moved);
    EXPECT_EQ(data.diagnosisArray[1].qv_diagnosis_action, moved);
    EXPECT_EQ(data.diagnosisArray[0].qv_diagnosis_condition, QStringLiteral("Bad Table Data"));
    EXPECT_EQ(data.diagnosisArray[2].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">Permission denied</span>"));
    EXPECT_EQ(data.diagnosisArray[3].qv_diagnosis_action, moved);
    EXPECT_TRUE(data.qv_diagnosis_info_footer.isEmpty());
}

TEST_F(ReportManagerTest, OrganizeFailuresPreferTheMoveErrorAndListEveryFailedFont)
{
    Font both = makeFont(QStringLiteral("/srv/a.otf"), QStringLiteral("A"), QStringLiteral("Regular"), 3,
        QStringLiteral("A-Regular"));
    both.status->movedToLibraryErrorInfo = QStringLiteral("Read-only file system");
    both.status->copiedToLibraryErrorInfo = QStringLiteral("File exists");
    Font copied = makeFont(QStringLiteral("/srv/b.otf"), QStringLiteral("B"), QStringLiteral("Regular"), 3,
        QStringLiteral("B-Regular"));
    copied.status->copiedToLibraryErrorInfo = QStringLiteral("File exists");
    Font placed = makeFont(QStringLiteral("/srv/c.otf"), QStringLiteral("C"), QStringLiteral("Regular"), 3,
        QStringLiteral("C-Regular"));

    QVReportInput input;
    input.totalFonts = 3;
    input.fontFileItems = { both.file, copied.file, placed.file };
    manager.setReportInput(input);
    const QVReportData data = manager.createReportDataDictionary(kScanDate);

    ASSERT_EQ(data.diagnosisArray.size(), 2);
    EXPECT_EQ(data.diagnosisArray[0].qv_diagnosis_header,
        QStringLiteral("2 fonts had problems when being organized:"));
    EXPECT_TRUE(data.diagnosisArray[1].qv_diagnosis_header.isEmpty());
    EXPECT_EQ(data.diagnosisArray[0].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">Read-only file system</span>"));
    EXPECT_EQ(data.diagnosisArray[1].qv_diagnosis_action,
        QStringLiteral("<span style=\"color:red;\">File exists</span>"));
    EXPECT_EQ(data.diagnosisArray[1].qv_diagnosis_fontName,
        QStringLiteral("<b>B</b><ul style=\"font-size:12px;color:#555\"><li>TrueType</ul>"));
    EXPECT_EQ(data.diagnosisArray[1].qv_diagnosis_location,
        QStringLiteral("/srv/b.otf<br><br><span style=\"color:#555;\">PostScript Name: </span><span "
                       "style=\"color:#333;\">B-Regular</span>"));
    EXPECT_EQ(data.qv_total_problems, 0);
    EXPECT_EQ(data.qv_total_healthy, 3);
}
