// Reports made from a diagnosis of every kind, read back by Python's own HTML
// parser (report_html.py): what a reader sees, with hostile names as text.
#include "reports/QVReportManager.h"

#include "engine/QVFontConstants.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QDateTime kScanDate(QDate(2024, 1, 2), QTime(15, 4, 5));

struct Font {
    QVFontFilePtr file;
    QVStatusPtr status;
};

// A file with one font, its defects given as (class, message) pairs.
Font font(const QString &path, const QString &name, const QString &style, int fontType, const QString &psName,
    int fileType, const QList<QPair<int, QString>> &defects = {})
{
    Font f { std::make_shared<QVFontFile>(path), std::make_shared<QVStatus>() };
    f.file->fontFileType = fileType;
    f.status->fontURL = path;
    f.status->fontName = name;
    f.status->fontStyle = style;
    f.status->fontType = fontType;
    f.status->PSname = psName;
    for (const auto &[errorClass, message] : defects) {
        f.status->setFontError(errorClass);
        f.status->setFontErrorInfo(message);
    }
    f.file->fontStatusArray.append(f.status);
    return f;
}

QVProblemFontPtr entry(const Font &f, int diagnosisType)
{
    auto e = std::make_shared<QVProblemFont>();
    e->fontFile = f.file;
    e->fontStatus = f.status;
    e->diagnosisType = diagnosisType;
    return e;
}

// A diagnosis of every kind, with the fate of each font after the resolution
// and the organizer.
QVReportInput mixedDiagnosis()
{
    using namespace QVFontType;
    const int defect = QVErrorClass::Defect, duplicate = QVErrorClass::Duplicate;
    QVReportInput input;
    input.scanType = QStringLiteral("Manual Scan");
    input.scanFolders
        = { "/usr/share/fonts/truetype/dejavu/", "/srv/Jobs & Clients/\"Spring\" <2024>/Fonts/" };
    Font damaged = font(kDejaVuSans, "DejaVu Sans", "Book", TrueType, "DejaVuSans", 1,
        { { defect, QVDefect::BadTableData } });
    damaged.file->fileMovedToQuarantine = true;
    Font renamed = font("/fonts/NimbusSans-Regular.t1", "Nimbus Sans", "Regular", PostScriptType1,
        "NimbusSans-Regular", 0, { { defect, QVDefect::BadFileName } });
    renamed.status->fixedErrors[0] = true;
    Font flags = font("/fonts/C059-Bold.t1", "C059", QString(), PostScriptType1, "C059-Bold", 0,
        { { defect, QVDefect::IncorrectFileFlags } });
    flags.status->fixedErrorMessages[0] = QStringLiteral("Couldn't Fix File: Operation not permitted");
    // A hostile name and path: they must print as text.
    const Font hostile = font("/srv/Jobs & Clients/\"Spring\" <2024>/<b>Bold</b>.otf",
        "<script>alert(1)</script>", "<b>Heavy</b> & Co", OpenType, "Evil&<PS>\"Name\"", 1,
        { { defect, "Defective Table data (<cmap> & \"name\")" } });
    // A TrueType font in a suitcase goes by its TrueType name.
    Font suitcase = font("/srv/Mac Fonts/Futura Suitcase", "Futura", "Medium", TrueType, "<none>", 0,
        { { defect, QVDefect::MissingCriticalResource } });
    suitcase.status->trueTypeFontName = QStringLiteral("Futura Medium TT");
    suitcase.status->movedToQuarantineErrorInfo = QStringLiteral("Not Authorized");
    // A duplicate group: the owner stays, one duplicate moved with its sisters, one not movable.
    const Font owner = font("/srv/Mac Fonts/Garamond", "Garamond", "Plain", Bitmap, "Garamond-Regular", 0,
        { { duplicate, QVDefect::FoundDuplicateFonts } });
    Font dupA = font("/srv/Old Fonts/Garamond", "Garamond", "Plain", Bitmap, "Garamond-Regular", 0,
        { { duplicate, QVDefect::DuplicateFont } });
    dupA.status->movedToQuarantine = dupA.status->movedSisterToQuarantine = true;
    Font dupB = font("/srv/Backup/Garamond.dfont", "Garamond", "Plain", TrueType, "Garamond-Regular", 1,
        { { duplicate, QVDefect::DuplicateFont } });
    dupB.status->movedToQuarantineErrorInfo = QStringLiteral("Permission denied");
    // Counterparts missing; the bitmap font has a structure defect first.
    Font lonelyPS = font("/srv/Mac Fonts/HelveNeu", "Helvetica Neue", "Roman", PostScriptType1,
        "HelveticaNeue-Roman", 0, { { QVErrorClass::MissingBitmap, QVDefect::CouldntFindBitmapFont } });
    lonelyPS.status->movedToQuarantineErrorInfo = QStringLiteral("Authorization Error: 1");
    const Font lonelyBitmap = font("/srv/Mac Fonts/Optima", "Optima", "Bold", Bitmap, "Optima-Bold", 0,
        { { defect, QVDefect::BadFontEntriesCount },
            { QVErrorClass::MissingPostScript, QVDefect::CouldntFindPostScriptFile } });
    // Fonts the organizer could not place: the move error wins over the copy error.
    Font unplaced = font(kDejaVuSerif, "DejaVu Serif", "Book", TrueType, "<none>", 1);
    unplaced.status->movedToLibraryErrorInfo = QStringLiteral("No space left on device");
    unplaced.status->copiedToLibraryErrorInfo = QStringLiteral("File exists");
    input.problemFontsArray = { entry(damaged, 0), entry(renamed, 0), entry(flags, 0), entry(hostile, 0),
        entry(suitcase, 0), entry(owner, 3), entry(lonelyPS, 1), entry(lonelyBitmap, 0) };
    input.problemFontsArray.at(5)->duplicatesArray
        = { { dupA.file, dupA.status }, { dupB.file, dupB.status } };
    input.problemFontsArray.at(5)->hasDuplicatesArray = true;
    for (const Font &f :
        { damaged, renamed, flags, hostile, suitcase, owner, dupA, dupB, lonelyPS, lonelyBitmap, unplaced })
        input.fontFileItems << f.file;
    input.totalFonts = 1234;
    input.fileStructureProblemCount = 6;
    input.missingBitmapProblemCount = input.missingPSProblemCount = input.duplicateProblemCount = 1;
    input.totalFontProblems = 9;
    input.qv_total_quarantined = 3;
    return input;
}

// The report as report_html.py reads it.
QJsonObject parse(const QString &html)
{
    QVTestHome home;
    const QString path = home.writeFile("report.html", html.toUtf8());
    const ToolRun run = runTool(QStringLiteral("/usr/bin/python3"),
        { QStringLiteral(QV_TEST_DATA_DIR "/../reports/report_html.py"), path });
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    return QJsonDocument::fromJson(run.out).object();
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

TEST_F(ReportManagerTest, TheReportReadsBackWithItsCountsSectionsRowsAndShades)
{
    const QString html = fill(mixedDiagnosis());
    const QJsonObject report = parse(html);
    EXPECT_EQ(report["title"].toString(), QStringLiteral("Quorvel Report 1/2/2024"));
    // Eight problem fonts and the two other copies of the duplicated one.
    const QJsonObject figures = report["figures"].toObject();
    EXPECT_EQ(QStringList({ figures["Fonts examined"].toString(), figures["Problem fonts"].toString(),
                  figures["Healthy fonts"].toString(), figures["Moved to quarantine"].toString() }),
        (QStringList { "1,234", "10", "1,224", "3" }));
    EXPECT_EQ(report["markers"].toArray().size(), 0) << qPrintable(html.left(2000));
    QStringList table;
    for (const QJsonValue &section : report["sections"].toArray()) {
        table << "## " + section["heading"].toString();
        for (const QJsonValue &row : section["rows"].toArray()) {
            QStringList cells;
            for (const QJsonValue &cell : row["cells"].toArray())
                cells << cell.toString().replace('\n', '/');
            table << row["shade"].toString() + " " + cells.join(" | ");
        }
    }
    // Shades alternate and start again after every heading.
    const QString moved = "Moved to/Quarantine";
    EXPECT_EQ(table,
        (QStringList { "## 6 fonts were diagnosed as corrupt or damaged:",
            "#CCCCCC DejaVu Sans/Book/TrueType | " + kDejaVuSans
                + "//PostScript Name: DejaVuSans | Bad Table Data | " + moved,
            "#E1E1E1 Nimbus Sans/Regular/PostScript Type 1 | /fonts/NimbusSans-Regular.t1//PostScript Name: "
            "NimbusSans-Regular | Bad File Name | Repaired",
            "#CCCCCC C059/PostScript Type 1 | /fonts/C059-Bold.t1//PostScript Name: C059-Bold | Incorrect "
            "File Flags | "
            "Couldn't Fix File: Operation not permitted",
            "#E1E1E1 <script>alert(1)</script>/<b>Heavy</b> & Co/OpenType | /srv/Jobs & Clients/\"Spring\" "
            "<2024>/<b>Bold</b>.otf//PostScript Name: Evil&<PS>\"Name\" | Defective Table data (<cmap> & "
            "\"name\") | "
            "Ignored",
            "#CCCCCC Futura Medium TT/Medium/TrueType | /srv/Mac Fonts/Futura Suitcase | Missing Critical "
            "Resource | "
            "Not Authorized",
            "#E1E1E1 Optima/Bold/Bitmap | /srv/Mac Fonts/Optima//PostScript Name: Optima-Bold | Bad Font "
            "Entries Count | "
            "Ignored",
            "## 2 fonts were diagnosed as having duplicate fonts:",
            "#CCCCCC Garamond/Plain/Bitmap | /srv/Old Fonts/Garamond//PostScript Name: Garamond-Regular | "
            "Found "
            "Duplicate Fonts/Matched Font: Garamond//srv/Mac Fonts/Garamond | Moved to/Quarantine*",
            "#E1E1E1 Garamond/Plain/TrueType | /srv/Backup/Garamond.dfont//PostScript Name: Garamond-Regular "
            "| Found "
            "Duplicate Fonts/Matched Font: Garamond//srv/Mac Fonts/Garamond | Permission denied",
            "## 1 PostScript font was diagnosed as missing it's bitmap font counterpart:",
            "#CCCCCC Helvetica Neue/PostScript Type 1 | /srv/Mac Fonts/HelveNeu//PostScript Name: "
            "HelveticaNeue-Roman | "
            "Couldn't Find Bitmap Font | Authorization Error: 1",
            "## 1 bitmap font was diagnosed as missing it's PostScript font counterpart:",
            "#CCCCCC Optima/Bold/Bitmap | /srv/Mac Fonts/Optima//PostScript Name: Optima-Bold | Couldn't "
            "Find "
            "PostScript File | Ignored",
            "## 1 font had a problem when being organized:",
            "#CCCCCC DejaVu Serif/TrueType | <none> | Couldn't move font to folder \"/srv/Library & "
            "Co\" | No "
            "space left on device" }));
    EXPECT_TRUE(report["footnote"].toString().contains(
        "* The Bitmap and PostScript files for this font have been moved to the Quarantine."));
    EXPECT_TRUE(report["scan"].toString().contains("Manual Scan"));
    EXPECT_TRUE(report["scan"].toString().contains("/srv/Jobs & Clients/\"Spring\" <2024>/Fonts/"));
    // Names are text: no script, and the only tags in a font cell are the report's own.
    EXPECT_EQ(report["scripts"].toInt(), 0);
    for (const char *raw : { "<script>", "<b>Heavy</b>", "<PS>", "<cmap>", "<2024>", "Ada <Prepress>" })
        EXPECT_FALSE(html.contains(QLatin1String(raw))) << raw;
    EXPECT_TRUE(html.contains("Ada &lt;Prepress&gt;"));
    EXPECT_EQ(report["sections"][0]["rows"][3]["tags"][0].toArray(), QJsonArray({ "b", "ul", "li", "li" }));
}

TEST_F(ReportManagerTest, AReportWithoutProblemsOrTemplate)
{
    QVReportInput input;
    input.totalFonts = 1234;
    const QString html = fill(input);
    const QJsonObject report = parse(html);
    EXPECT_EQ(
        report["figures"]["Healthy fonts"].toString() + " " + report["figures"]["Problem fonts"].toString(),
        "1,234 0");
    EXPECT_EQ(report["sections"].toArray().size(), 0);
    EXPECT_TRUE(html.contains("<qv_diagnosis_table></qv_diagnosis_table>"));
    EXPECT_TRUE(html.contains("<div class=\"footnote\"><br></div>"));
    manager.setTemplatePath(home.path() + "/no-such-template.html");
    EXPECT_EQ(fill(mixedDiagnosis()), QString(""));
}

TEST_F(ReportManagerTest, CreatingAReportStoresItAndRecordsTheNewest)
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
    const QString path = record.value("filePath").toString();
    EXPECT_EQ(record.value("reportName").toString(), "Quorvel Report 1/2/2024");
    EXPECT_TRUE(path.endsWith("/Reports/QuorvelReport122024"));
    EXPECT_EQ(record.value("qv_total_examined").toString(), "1,234");
    EXPECT_TRUE(store.getReportFileData(path).contains("6 fonts were diagnosed as corrupt or damaged:"));
    QVSettings settings;
    EXPECT_EQ(QStringList({ settings.lastReportName(), settings.lastReportFilePath(),
                  settings.lastScanTotalCount(), settings.lastScanProblemCount() }),
        (QStringList { "Quorvel Report 1/2/2024", path, "1,234", "10" }));
    // The hook runs on the main thread, after the event loop turns.
    QCoreApplication::processEvents();
    ASSERT_EQ(shown.size(), 1);
    EXPECT_EQ(shown.first().value("filePath"), record.value("filePath"));
    // Not asked to show, with showReports off: stored, not shown; writeReport waits for it.
    const QVariantMap second = manager.writeReport(kScanDate);
    QCoreApplication::processEvents();
    EXPECT_EQ(shown.size(), 1);
    EXPECT_TRUE(second.value("filePath").toString().endsWith("QuorvelReport122024_1"));
    EXPECT_TRUE(QFile::exists(second.value("filePath").toString()));
    EXPECT_EQ(QVSettings().lastReportFilePath(), second.value("filePath").toString());
    QVReportManager::setShowReportHook({});
}

TEST_F(ReportManagerTest, LargeReportsShowProgressAndCancellingAbandonsThem)
{
    QVSettings().setLastReportName(QStringLiteral("Previous"));
    auto corrupt = [](int count) {
        QVReportInput input;
        input.totalFonts = quint32(count);
        for (int i = 0; i < count; ++i) {
            const Font f = font(QStringLiteral("/srv/Fonts/Font %1.ttf").arg(i),
                QStringLiteral("Font %1").arg(i), "Regular", QVFontType::TrueType,
                QStringLiteral("Font%1").arg(i), 1, { { QVErrorClass::Defect, QVDefect::BadTableData } });
            input.fontFileItems << f.file;
            input.problemFontsArray << entry(f, 0);
        }
        return input;
    };
    QSignalSpy shownSpy(&manager, &QVReportManager::progressShown);
    EXPECT_FALSE(fill(corrupt(1000)).isEmpty()); // 1,000 rows: no progress
    EXPECT_EQ(shownSpy.count(), 0);
    const QString html = fill(corrupt(1001));
    EXPECT_EQ(shownSpy.count(), 1);
    EXPECT_DOUBLE_EQ(manager.progressWindow()->value(), 100.0);
    EXPECT_EQ(manager.progressWindow()->label(), QStringLiteral("Generating Report..."));
    EXPECT_EQ(html.count("<tr class=\"row\""), 1001);
    // Cancelled from the progress window: nothing stored, the settings keep the previous report.
    QObject::connect(
        &manager, &QVReportManager::progressShown, &manager, [this] { manager.cancelReport(); },
        Qt::DirectConnection);
    QSignalSpy cancelled(&manager, &QVReportManager::reportCancelled);
    QSignalSpy closed(&manager, &QVReportManager::progressClosed);
    EXPECT_TRUE(manager.writeReport(kScanDate).isEmpty());
    EXPECT_EQ(cancelled.count(), 1);
    EXPECT_GE(closed.count(), 1);
    EXPECT_FALSE(manager.reportIsProcessing());
    EXPECT_TRUE(store.reportFilesDataArray().isEmpty());
    EXPECT_EQ(QVSettings().lastReportName(), QStringLiteral("Previous"));
}

TEST(ReportTemplate, IsOneTableOfOneRowInASelfContainedPrintableDocument)
{
    QFile file(QStringLiteral(":/quorvel/QVReportTemplate1.html"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    for (const char *marker : { "<qv_user_name>", "<qv_computer_name>", "<qv_date>", "<qv_time>",
             "<qv_total_examined>", "<qv_total_problems>", "<qv_total_healthy>", "<qv_total_quarantined>",
             "<qv_diagnosis_version>", "<qv_diagnosis_info_footer>" })
        EXPECT_TRUE(text.contains(QLatin1String(marker))) << marker;
    // The heading belongs to the table, the cells to its one row.
    const QRegularExpressionMatch table = QRegularExpression(
        "<qv_diagnosis_table>(.*)</qv_diagnosis_table>", QRegularExpression::DotMatchesEverythingOption)
                                              .match(text);
    ASSERT_TRUE(table.hasMatch());
    EXPECT_EQ(text.count("<qv_diagnosis_table>") + text.count("<qv_diagnosis_row>"), 2);
    const QString row
        = table.captured(1).section("<qv_diagnosis_row>", 1).section("</qv_diagnosis_row>", 0, 0);
    EXPECT_TRUE(
        table.captured(1).contains("<qv_diagnosis_header>") && !row.contains("<qv_diagnosis_header>"));
    for (const char *cell : { "<qv_row_color>", "<qv_diagnosis_fontName>", "<qv_diagnosis_location>",
             "<qv_diagnosis_condition>", "<qv_diagnosis_action>" })
        EXPECT_TRUE(row.contains(QLatin1String(cell))) << cell;
    // No scripts and nothing fetched from elsewhere: a stored report opens the
    // same in a browser, a web view or on paper years later.
    EXPECT_FALSE(text.contains("<script", Qt::CaseInsensitive));
    EXPECT_FALSE(text.contains(QRegularExpression("(src|href)=\"(?!https://quorvel\\.org/)")));
    EXPECT_TRUE(text.contains("Content-Security-Policy") && text.contains("@media print")
        && text.contains("<meta charset=\"utf-8\">"));
}
