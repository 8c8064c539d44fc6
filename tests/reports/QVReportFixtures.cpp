#include "QVReportFixtures.h"

#include "engine/QVFontConstants.h"

namespace QVReportFixtures
{

Font makeFont(const QString &path, const QString &name, const QString &style, int fontType,
    const QString &psName, int fileType)
{
    Font font;
    font.file = std::make_shared<QVFontFile>(path);
    font.file->fontFileType = fileType;
    font.status = std::make_shared<QVStatus>();
    font.status->fontURL = path;
    font.status->fontName = name;
    font.status->fontStyle = style;
    font.status->fontType = fontType;
    font.status->PSname = psName;
    font.file->fontStatusArray.append(font.status);
    return font;
}

void addDefect(const QVStatusPtr &status, int errorClass, const QString &message)
{
    status->setFontError(errorClass);
    status->setFontErrorInfo(message);
}

QVProblemFontPtr makeEntry(const Font &font, int diagnosisType)
{
    auto entry = std::make_shared<QVProblemFont>();
    entry->fontFile = font.file;
    entry->fontStatus = font.status;
    entry->diagnosisType = diagnosisType;
    return entry;
}

QVReportInput mixedDiagnosis()
{
    QVReportInput input;
    input.scanType = QStringLiteral("Manual Scan");
    input.scanFolders = { QStringLiteral("/usr/share/fonts/truetype/dejavu/"),
        QStringLiteral("/srv/Jobs & Clients/\"Spring\" <2024>/Fonts/") };

    // A damaged TrueType file, quarantined.
    Font damaged = makeFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"),
        QStringLiteral("DejaVu Sans"), QStringLiteral("Book"), QVFontType::TrueType,
        QStringLiteral("DejaVuSans"));
    addDefect(damaged.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::BadTableData));
    damaged.status->movedToQuarantine = true;
    damaged.file->fileMovedToQuarantine = true;

    // A PostScript outline file with a wrong file name, repaired in place.
    Font renamed = makeFont(QStringLiteral("/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1"),
        QStringLiteral("Nimbus Sans"), QStringLiteral("Regular"), QVFontType::PostScriptType1,
        QStringLiteral("NimbusSans-Regular"), 0);
    addDefect(renamed.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::BadFileName));
    renamed.status->fixedErrors[0] = true;

    // Wrong Finder flags that could not be fixed; no style, so the two-line cell.
    Font flags = makeFont(QStringLiteral("/usr/share/fonts/type1/urw-base35/C059-Bold.t1"),
        QStringLiteral("C059"), QString(), QVFontType::PostScriptType1, QStringLiteral("C059-Bold"), 0);
    addDefect(flags.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::IncorrectFileFlags));
    flags.status->fixedErrorMessages[0] = QStringLiteral("Couldn't Fix File: Operation not permitted");

    // A hostile name and path: must print as text.
    Font hostile = makeFont(QStringLiteral("/srv/Jobs & Clients/\"Spring\" <2024>/<b>Bold</b>.otf"),
        QStringLiteral("<script>alert(1)</script>"), QStringLiteral("<b>Heavy</b> & Co"),
        QVFontType::OpenType, QStringLiteral("Evil&<PS>\"Name\""));
    addDefect(
        hostile.status, QVErrorClass::Defect, QStringLiteral("Defective Table data (<cmap> & \"name\")"));

    // A TrueType font inside a suitcase: listed under its TrueType name.
    Font suitcaseTT = makeFont(QStringLiteral("/srv/Mac Fonts/Futura Suitcase"), QStringLiteral("Futura"),
        QStringLiteral("Medium"), QVFontType::TrueType, QStringLiteral("<none>"), 0);
    suitcaseTT.status->trueTypeFontName = QStringLiteral("Futura Medium TT");
    addDefect(
        suitcaseTT.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::MissingCriticalResource));
    suitcaseTT.status->movedToQuarantineErrorInfo = QStringLiteral("Not Authorized");

    // A duplicate group: the owner is kept, its two duplicates are quarantined,
    // one of them with its PostScript sisters.
    Font owner = makeFont(QStringLiteral("/srv/Mac Fonts/Garamond/Garamond"), QStringLiteral("Garamond"),
        QStringLiteral("Plain"), QVFontType::Bitmap, QStringLiteral("Garamond-Regular"), 0);
    addDefect(owner.status, QVErrorClass::Duplicate, QString::fromLatin1(QVDefect::FoundDuplicateFonts));
    Font dupA = makeFont(QStringLiteral("/srv/Old Fonts/Garamond/Garamond"), QStringLiteral("Garamond"),
        QStringLiteral("Plain"), QVFontType::Bitmap, QStringLiteral("Garamond-Regular"), 0);
    addDefect(dupA.status, QVErrorClass::Duplicate, QString::fromLatin1(QVDefect::DuplicateFont));
    dupA.status->movedToQuarantine = true;
    dupA.status->movedSisterToQuarantine = true;
    Font dupB = makeFont(QStringLiteral("/srv/Backup/Garamond.dfont"), QStringLiteral("Garamond"),
        QStringLiteral("Plain"), QVFontType::TrueType, QStringLiteral("Garamond-Regular"), 1);
    addDefect(dupB.status, QVErrorClass::Duplicate, QString::fromLatin1(QVDefect::DuplicateFont));
    dupB.file->fileMovedToQuarantine = true;

    // A PostScript font whose bitmap font is missing; its quarantine failed.
    Font lonelyPS = makeFont(QStringLiteral("/srv/Mac Fonts/HelveNeu"), QStringLiteral("Helvetica Neue"),
        QStringLiteral("Roman"), QVFontType::PostScriptType1, QStringLiteral("HelveticaNeue-Roman"), 0);
    addDefect(
        lonelyPS.status, QVErrorClass::MissingBitmap, QString::fromLatin1(QVDefect::CouldntFindBitmapFont));
    lonelyPS.status->movedToQuarantineErrorInfo = QStringLiteral("Authorization Error: 1");

    // A bitmap font whose PostScript file is missing, left alone; it also has a
    // structural defect first, so its missing-counterpart text is the second.
    Font lonelyBitmap = makeFont(QStringLiteral("/srv/Mac Fonts/Optima"), QStringLiteral("Optima"),
        QStringLiteral("Bold"), QVFontType::Bitmap, QStringLiteral("Optima-Bold"), 0);
    addDefect(lonelyBitmap.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::BadFontEntriesCount));
    addDefect(lonelyBitmap.status, QVErrorClass::MissingPostScript,
        QString::fromLatin1(QVDefect::CouldntFindPostScriptFile));

    // A healthy font the organizer could not place.
    Font unplaced = makeFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"),
        QStringLiteral("DejaVu Serif"), QStringLiteral("Book"), QVFontType::TrueType,
        QStringLiteral("<none>"));
    unplaced.status->movedToLibraryErrorInfo = QStringLiteral("No space left on device");

    input.problemFontsArray = { makeEntry(damaged, 0), makeEntry(renamed, 0), makeEntry(flags, 0),
        makeEntry(hostile, 0), makeEntry(suitcaseTT, 0), makeEntry(owner, 3), makeEntry(lonelyPS, 1),
        makeEntry(lonelyBitmap, 0) };
    input.problemFontsArray.at(5)->duplicatesArray
        = { { dupA.file, dupA.status }, { dupB.file, dupB.status } };
    input.problemFontsArray.at(5)->hasDuplicatesArray = true;

    input.fontFileItems = { damaged.file, renamed.file, flags.file, hostile.file, suitcaseTT.file, owner.file,
        dupA.file, dupB.file, lonelyPS.file, lonelyBitmap.file, unplaced.file };
    input.totalFonts = 1234;
    input.fileStructureProblemCount = 6;
    input.missingBitmapProblemCount = 1;
    input.missingPSProblemCount = 1;
    input.duplicateProblemCount = 1;
    input.totalFontProblems = 9;
    input.qv_total_quarantined = 3;
    return input;
}

QVReportInput corruptFonts(int count, int totalFonts)
{
    QVReportInput input;
    input.totalFonts = quint32(totalFonts);
    input.problemFontsArray.reserve(count);
    for (int i = 0; i < count; ++i) {
        Font font = makeFont(QStringLiteral("/srv/Fonts/Family %1/Font %1.ttf").arg(i),
            QStringLiteral("Font %1").arg(i), QStringLiteral("Regular"), QVFontType::TrueType,
            QStringLiteral("Font%1-Regular").arg(i));
        addDefect(font.status, QVErrorClass::Defect, QString::fromLatin1(QVDefect::BadTableData));
        input.fontFileItems.append(font.file);
        input.problemFontsArray.append(makeEntry(font, 0));
    }
    return input;
}

} // namespace QVReportFixtures
