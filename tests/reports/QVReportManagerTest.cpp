// Reports of a diagnosis of every kind, read back by Python's HTML parser (report_html.py): what a reader
// sees, with hostile names as text.
#include "reports/QVReportManager.h"

#include "engine/QVFontConstants.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QDateTime kScanDate(QDate(2024, 1, 2), QTime(15, 4, 5));
const int kDefect = QVErrorClass::Defect;

struct Font {
    QVFontFilePtr file;
    QVStatusPtr status;
};

// A file with one font "NAME/STYLE", its defects given as (class, message) pairs.
Font font(const QString &path, const QString &nameStyle, int fontType, const QString &psName, int fileType,
    const QList<QPair<int, QString>> &defects = {})
{
    Font f { std::make_shared<QVFontFile>(path), std::make_shared<QVStatus>() };
    f.file->fontFileType = fileType;
    f.status->fontURL = path;
    f.status->fontName = nameStyle.section('/', 0, 0);
    f.status->fontStyle = nameStyle.section('/', 1);
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

// A diagnosis of every kind, with the fate of each font after the resolution and the organizer.
QVReportInput mixedDiagnosis()
{
    using namespace QVFontType;
    const int duplicate = QVErrorClass::Duplicate;
    QVReportInput input;
    input.scanType = "Manual Scan";
    input.scanFolders = { "/usr/share/fonts/", "/Jobs & \"Spring\" <2024>/" };
    Font damaged = font(
        kDejaVuSans, "DejaVu Sans/Book", TrueType, "DejaVuSans", 1, { { kDefect, QVDefect::BadTableData } });
    damaged.file->fileMovedToQuarantine = true;
    Font renamed = font("/f/Nimbus.t1", "Nimbus/Regular", PostScriptType1, "Nimbus-R", 0,
        { { kDefect, QVDefect::BadFileName } });
    renamed.status->fixedErrors[0] = true;
    Font flags = font(
        "/f/C059.t1", "C059", PostScriptType1, "C059-Bold", 0, { { kDefect, QVDefect::IncorrectFileFlags } });
    flags.status->fixedErrorMessages[0] = "Couldn't Fix File: Operation not permitted";
    // A hostile name and path: they must print as text.
    const Font hostile
        = font("/Jobs & \"Spring\" <2024>/<b>B</b>.otf", "<script>alert(1)</script>/<b>Heavy</b> & Co",
            OpenType, "Evil&<PS>\"N\"", 1, { { kDefect, "Defective Table data (<cmap> & \"name\")" } });
    // A TrueType font in a suitcase goes by its TrueType name.
    Font suitcase = font("/m/Futura", "Futura/Medium", TrueType, "<none>", 0,
        { { kDefect, QVDefect::MissingCriticalResource } });
    suitcase.status->trueTypeFontName = "Futura TT";
    suitcase.status->movedToQuarantineErrorInfo = "Not Authorized";
    // A duplicate group: the owner stays, one duplicate moved with its sisters, one not movable.
    const Font owner = font("/m/Garamond", "Garamond/Plain", Bitmap, "Garamond", 0,
        { { duplicate, QVDefect::FoundDuplicateFonts } });
    Font dupA = font(
        "/o/Garamond", "Garamond/Plain", Bitmap, "Garamond", 0, { { duplicate, QVDefect::DuplicateFont } });
    dupA.status->movedToQuarantine = dupA.status->movedSisterToQuarantine = true;
    Font dupB = font("/b/Garamond.dfont", "Garamond/Plain", TrueType, "Garamond", 1,
        { { duplicate, QVDefect::DuplicateFont } });
    dupB.status->movedToQuarantineErrorInfo = "Permission denied";
    // Counterparts missing; the bitmap font has a structure defect first.
    Font lonelyPS = font("/m/HelveNeu", "Helvetica Neue/Roman", PostScriptType1, "HelveticaNeue", 0,
        { { QVErrorClass::MissingBitmap, QVDefect::CouldntFindBitmapFont } });
    lonelyPS.status->movedToQuarantineErrorInfo = "Authorization Error: 1";
    const Font lonelyBitmap = font("/m/Optima", "Optima/Bold", Bitmap, "Optima-Bold", 0,
        { { kDefect, QVDefect::BadFontEntriesCount },
            { QVErrorClass::MissingPostScript, QVDefect::CouldntFindPostScriptFile } });
    // Fonts the organizer could not place: the move error wins over the copy error.
    Font unplaced = font(kDejaVuSerif, "DejaVu Serif/Book", TrueType, "<none>", 1);
    unplaced.status->movedToLibraryErrorInfo = "No space left on device";
    unplaced.status->copiedToLibraryErrorInfo = "File exists";
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
    const ToolRun run = runTool("/usr/bin/python3",
        { QStringLiteral(QV_TEST_DATA_DIR "/../reports/report_html.py"),
            home.writeFile("report.html", html.toUtf8()) });
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
        settings.setOrganizeFontsFolder("/srv/Library & Co");
        settings.setUserName("Ada <Prepress>");
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
    EXPECT_EQ(report["title"].toString(), "Quorvel Report 1/2/2024");
    // Eight problem fonts and the two other copies of the duplicated one.
    QStringList figures;
    for (const char *figure : { "Fonts examined", "Problem fonts", "Healthy fonts", "Moved to quarantine" })
        figures << report["figures"][QLatin1String(figure)].toString();
    EXPECT_EQ(figures.join(' '), "1,234 10 1,224 3");
    EXPECT_EQ(report["markers"].toArray().size(), 0) << qPrintable(html.left(2000));
    QStringList table;
    for (const QJsonValue &section : report["sections"].toArray()) {
        table << "## " + section["heading"].toString();
        for (const QJsonValue &row : section["rows"].toArray()) {
            QStringList cells;
            for (const QJsonValue &cell : row["cells"].toArray())
                cells << cell.toString().replace('\n', '/');
            table << row["shade"].toString().right(2) + " " + cells.join(" | ");
        }
    }
    // Shades alternate and start again after every heading.
    const QString ps = "//PostScript Name: ",
                  matched = " | Found Duplicate Fonts/Matched Font: Garamond//m/Garamond | ";
    EXPECT_EQ(table,
        (QStringList { "## 6 fonts were diagnosed as corrupt or damaged:",
            "CC DejaVu Sans/Book/TrueType | " + kDejaVuSans + ps
                + "DejaVuSans | Bad Table Data | Moved to/Quarantine",
            "E1 Nimbus/Regular/PostScript Type 1 | /f/Nimbus.t1" + ps + "Nimbus-R | Bad File Name | Repaired",
            "CC C059/PostScript Type 1 | /f/C059.t1" + ps
                + "C059-Bold | Incorrect File Flags | Couldn't Fix File: Operation not permitted",
            "E1 <script>alert(1)</script>/<b>Heavy</b> & Co/OpenType | /Jobs & \"Spring\" <2024>/<b>B</b>.otf"
                + ps + "Evil&<PS>\"N\" | Defective Table data (<cmap> & \"name\") | Ignored",
            "CC Futura TT/Medium/TrueType | /m/Futura | Missing Critical Resource | Not Authorized",
            "E1 Optima/Bold/Bitmap | /m/Optima" + ps + "Optima-Bold | Bad Font Entries Count | Ignored",
            "## 2 fonts were diagnosed as having duplicate fonts:",
            "CC Garamond/Plain/Bitmap | /o/Garamond" + ps + "Garamond" + matched + "Moved to/Quarantine*",
            "E1 Garamond/Plain/TrueType | /b/Garamond.dfont" + ps + "Garamond" + matched
                + "Permission denied",
            "## 1 PostScript font was diagnosed as missing it's bitmap font counterpart:",
            "CC Helvetica Neue/PostScript Type 1 | /m/HelveNeu" + ps
                + "HelveticaNeue | Couldn't Find Bitmap Font | Authorization Error: 1",
            "## 1 bitmap font was diagnosed as missing it's PostScript font counterpart:",
            "CC Optima/Bold/Bitmap | /m/Optima" + ps
                + "Optima-Bold | Couldn't Find PostScript File | Ignored",
            "## 1 font had a problem when being organized:",
            "CC DejaVu Serif/TrueType | <none> | Couldn't move font to folder \"/srv/Library & Co\" | No "
            "space "
            "left on device" }));
    EXPECT_EQ(report["sections"][0]["rows"][0]["shade"].toString(), "#CCCCCC");
    EXPECT_TRUE(report["footnote"].toString().contains(
        "* The Bitmap and PostScript files for this font have been moved to the Quarantine."));
    EXPECT_TRUE(report["scan"].toString().contains("Manual Scan")
        && report["scan"].toString().contains("/Jobs & \"Spring\" <2024>/"));
    // Names are text: no script, and the only tags in a font cell are the report's own.
    EXPECT_EQ(report["scripts"].toInt(), 0);
    for (const char *raw : { "<script>", "<b>Heavy</b>", "<PS>", "<cmap>", "<2024>", "Ada <Prepress>" })
        EXPECT_FALSE(html.contains(QLatin1String(raw))) << raw;
    EXPECT_TRUE(html.contains("Ada &lt;Prepress&gt;"));
    EXPECT_EQ(report["sections"][0]["rows"][3]["tags"][0].toArray(), QJsonArray({ "b", "ul", "li", "li" }));
}

TEST(ReportTemplate, IsSelfContainedAndPrintable)
{
    QFile file(":/quorvel/QVReportTemplate1.html");
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    // No scripts and nothing fetched from elsewhere: a stored report opens the same anywhere, years later.
    EXPECT_FALSE(text.contains("<script", Qt::CaseInsensitive));
    EXPECT_FALSE(text.contains(QRegularExpression("(src|href)=\"(?!https://quorvel\\.org/)")));
    for (const char *part : { "Content-Security-Policy", "@media print", "<meta charset=\"utf-8\">" })
        EXPECT_TRUE(text.contains(QLatin1String(part))) << part;
}
