#include "engine/QVFontConstants.h"
#include "organizer/QVOrganizerFixtures.h"
#include "platform/QVWriteFault.h"
#include "settings/QVProgress.h"
#include "settings/QVStringTable.h"
#include "store/QVOperationQueue.h"
#include "support/QVPackageLists.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>

using namespace qvorg;
using namespace QVFixtures;

namespace
{

// The Nimbus Sans bitmap suitcase and its PostScript outline (t1mac, LWFN in
// an AppleDouble sidecar) side by side in a folder.
struct BitmapWithOutline {
    QString suitcase;
    QString outline;
};

} // namespace

class LibraryLayoutTest : public OrganizerTest
{
protected:
    BitmapWithOutline nimbusPair(const QString &folder)
    {
        BitmapWithOutline pair;
        pair.suitcase = makeSuitcase(folder + "/Nimbus Sans",
            { { kNimbusRegular, 10 }, { kNimbusRegular, 12 } }, "NimbusSans-Regular");
        pair.outline = qvtest::makeOutlineFile(folder);
        return pair;
    }
};

TEST_F(LibraryLayoutTest, WithEveryLevelOffEveryFontLandsInTheLibraryFolder)
{
    qvtest::copyFont(kDejaVuSans, source + "/a");
    qvtest::copyFont(kC059Roman, source + "/b");
    makeSuitcase(source + "/b/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    nimbusPair(source + "/c");
    organize();

    EXPECT_EQ(organizer->problemFontCount(), 0);
    const QStringList placed = filesBelow(library);
    // Whole files keep their names, the suitcase member is named by family,
    // and the outline followed its bitmap font.
    EXPECT_EQ(placed,
        QStringList({ "C059-Roman.otf", "DejaVu Serif", "DejaVuSans.ttf", "NimbuSanReg", "Nimbus Sans" }))
        << qPrintable(placed.join(", "));
    for (const QString &file : placed)
        EXPECT_FALSE(file.contains('/')) << qPrintable(file);
    EXPECT_TRUE(QDir(library).entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
    // Copies: the sources are all still there.
    EXPECT_TRUE(QFile::exists(source + "/a/DejaVuSans.ttf"));
    EXPECT_TRUE(QFile::exists(source + "/b/Serif Suitcase"));
    EXPECT_TRUE(QFile::exists(source + "/c/NimbuSanReg"));
}

TEST_F(LibraryLayoutTest, FoldersGoFoundryLetterFamilyWithGenericForABitmapFontWithoutSister)
{
    setLevels(true, true, true);
    qvtest::copyFont(kDejaVuSans, source + "/a");
    makeSuitcase(source + "/b/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    const BitmapWithOutline pair = nimbusPair(source + "/c");
    organize();
    EXPECT_EQ(organizer->problemFontCount(), 0);

    const QVStatusPtr sans = statusOf("DejaVuSans.ttf");
    ASSERT_TRUE(sans);
    const QString sansFolder = sans->fontFoundry + "/D/DejaVu Sans";
    EXPECT_TRUE(QFile::exists(library + "/" + sansFolder + "/DejaVuSans.ttf")) << qPrintable(sansFolder);

    // No PostScript sister beside it: "Generic".
    const QVStatusPtr serif = statusOf("Serif Suitcase");
    ASSERT_TRUE(serif);
    EXPECT_EQ(serif->fontType, 0);
    EXPECT_EQ(organizer->getSisterPostScriptFont(fileOf("Serif Suitcase"), serif), nullptr);
    EXPECT_TRUE(QFile::exists(library + "/Generic/D/DejaVu Serif/DejaVu Serif"))
        << qPrintable(filesBelow(library).join(", "));

    // With a sister: the sister's foundry, and the outline in the same folder.
    const QVStatusPtr bitmap = statusOf("Nimbus Sans", 10);
    ASSERT_TRUE(bitmap);
    const QVStatusPtr sister = organizer->getSisterPostScriptFont(fileOf("Nimbus Sans"), bitmap);
    ASSERT_TRUE(sister);
    EXPECT_EQ(sister->fontURL, pair.outline);
    ASSERT_FALSE(sister->fontFoundry.isEmpty());
    EXPECT_NE(sister->fontFoundry, "Generic");
    // The examiner gives a bitmap font no family name: the font name serves.
    EXPECT_TRUE(bitmap->familyName.isEmpty());
    const QString nimbusFolder = library + "/" + sister->fontFoundry + "/N/Nimbus Sans";
    EXPECT_TRUE(QFile::exists(nimbusFolder + "/Nimbus Sans")) << qPrintable(filesBelow(library).join(", "));
    EXPECT_TRUE(QFile::exists(nimbusFolder + "/NimbuSanReg")) << qPrintable(filesBelow(library).join(", "));
    EXPECT_TRUE(bitmap->copiedSisterToLibrary);
    // Both sizes left together in one suitcase: the second is not taken again.
    EXPECT_EQ(filesBelow(library).filter("Nimbus Sans/Nimbus Sans").size(), 1);
}

TEST_F(LibraryLayoutTest, TwoFilesOfOneNameGetNumbered)
{
    setLevels(false, false, true);
    qvtest::copyFont(kDejaVuSans, source + "/a", "Sans.ttf");
    qvtest::copyFont(kDejaVuSansBold, source + "/b", "Sans.ttf");
    organize();
    EXPECT_EQ(filesBelow(library), QStringList({ "DejaVu Sans/Sans 1.ttf", "DejaVu Sans/Sans.ttf" }));
    // Each file whole, in scan order.
    EXPECT_EQ(fileSha256(library + "/DejaVu Sans/Sans.ttf"), fileSha256(kDejaVuSans));
    EXPECT_EQ(fileSha256(library + "/DejaVu Sans/Sans 1.ttf"), fileSha256(kDejaVuSansBold));
    EXPECT_TRUE(fileOf("Sans.ttf")->fileCopiedToLibrary);
}

TEST_F(LibraryLayoutTest, AnOutlineAlreadyInTheLibraryIsLeftAndCountsAsDone)
{
    settings.setCopyFontFiles(false);
    const BitmapWithOutline pair = nimbusPair(source);
    // A different outline under the same file name is already there.
    QDir().mkpath(work + "/other");
    qvtest::runTool("t1mac",
        { "--appledouble", "-n", "NimbuSanReg", "-o", "._NimbuSanReg",
            "/usr/share/fonts/type1/urw-base35/NimbusSans-Bold.t1" },
        library);
    QFile(library + "/NimbuSanReg").open(QIODevice::WriteOnly);
    const QString before = forkHashes(library + "/NimbuSanReg");
    const QString sourceOutline = forkHashes(pair.outline);
    ASSERT_NE(before, sourceOutline);

    organize();
    const QVStatusPtr bitmap = statusOf("Nimbus Sans", 10);
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(organizer->problemFontCount(), 0);
    EXPECT_TRUE(bitmap->movedSisterToLibrary);
    EXPECT_EQ(forkHashes(library + "/NimbuSanReg"), before);
    EXPECT_EQ(forkHashes(pair.outline), sourceOutline);
    EXPECT_FALSE(QFile::exists(library + "/NimbuSanReg 1"));
    EXPECT_TRUE(statusOf("NimbuSanReg")->movedToLibraryErrorInfo.isNull());
}

TEST_F(LibraryLayoutTest, SuitcaseMembersAreNamedByPostScriptFamilyOrFileName)
{
    makePanicSuitcase(source + "/Panic");
    scan();
    const QVFontFilePtr file = fileOf("Panic");
    ASSERT_TRUE(file);
    QVStatusPtr boldItalic;
    for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
        if (status->fontStyle == "Bold, Italic")
            boldItalic = status;
    }
    ASSERT_TRUE(boldItalic);
    EXPECT_EQ(boldItalic->fontName, "Panic Sans");

    setNaming(false, true);
    EXPECT_EQ(organizer->suitcaseMemberFileName(file, boldItalic), "Panic Sans Bold Italic");
    setNaming(true, false);
    EXPECT_EQ(organizer->suitcaseMemberFileName(file, boldItalic), "PanicSans-BoldItalic");
    setNaming(false, false);
    EXPECT_EQ(organizer->suitcaseMemberFileName(file, boldItalic), "Panic");

    // Family naming: the four members become four one-font suitcases.
    setNaming(false, true);
    organizer->createLibrary();
    EXPECT_EQ(organizer->problemFontCount(), 0);
    EXPECT_EQ(filesBelow(library),
        QStringList({ "Panic Sans", "Panic Sans Bold", "Panic Sans Bold Italic", "Panic Sans Italic" }));
    const QString fork = extractFork(library + "/Panic Sans Bold Italic", work + "/out");
    // One family record with one entry: the outline (size 0) of style 3.
    EXPECT_TRUE(QRegularExpression("^Panic Sans \\d+ 0/3/\\d+$")
                    .match(fontToolsFONDEntries(fork).trimmed())
                    .hasMatch())
        << qPrintable(fontToolsFONDEntries(fork));
}

TEST_F(LibraryLayoutTest, ABitmapFontWhosePostScriptNameIsTheShortOneGetsSuit)
{
    makeSuitcase(source + "/Nimbus Sans", { { kNimbusRegular, 10 } }, "NimbuSanReg");
    scan();
    const QVFontFilePtr file = fileOf("Nimbus Sans");
    const QVStatusPtr bitmap = file->fontStatusArray.value(0);
    ASSERT_TRUE(bitmap);
    ASSERT_EQ(bitmap->PSname, "NimbuSanReg");
    ASSERT_EQ(bitmap->PS533name, bitmap->PSname);
    setNaming(true, false);
    EXPECT_EQ(organizer->suitcaseMemberFileName(file, bitmap), "NimbuSanReg.suit");
    organizer->createLibrary();
    EXPECT_EQ(filesBelow(library), QStringList({ "NimbuSanReg.suit" }));
}

TEST_F(LibraryLayoutTest, ATrueTypeMemberIsFiledUnderItsFullNameUnlessThatHoldsTheFamilyName)
{
    scan();
    auto file = std::make_shared<QVFontFile>(source + "/Suitcase");
    file->fontFileType = 0;
    auto status = qvtest::makeStatus(QVFontType::TrueType, "Foo-Bold", 0, "Plain", 0, "Foo");
    status->trueTypeFontName = "Bar Heavy";
    EXPECT_EQ(QVFontOrganizer::fontDisplayName(file, status), "Bar Heavy");
    status->trueTypeFontName = "Foo Bold";
    EXPECT_EQ(QVFontOrganizer::fontDisplayName(file, status), "Foo");
    status->trueTypeFontName = "Bar Heavy";
    file->fontFileType = 1;
    EXPECT_EQ(QVFontOrganizer::fontDisplayName(file, status), "Foo");

    // Family folder: the family name, else the name without extension, else
    // the file name; a name from the font never climbs out of the library.
    setLevels(false, true, true);
    status->familyName = "X";
    status->fontURL = source + "/Foo.ttf";
    EXPECT_EQ(organizer->libraryFolderFor(file, status), library + "/F/Foo/");
    status->fontName = "";
    EXPECT_EQ(organizer->libraryFolderFor(file, status), library + "/Foo/");
    status->fontName = "../../etc";
    status->familyName = "../..";
    EXPECT_EQ(organizer->libraryFolderFor(file, status), library + "/_/_.-../");
    // Nor does it hide, or pass for a sidecar that the next scan skips.
    status->fontName = "._Times";
    status->familyName = "._Times";
    EXPECT_EQ(organizer->libraryFolderFor(file, status), library + "/_/__Times/");
    EXPECT_EQ(organizer->suitcaseMemberFileName(file, status), "__Times");
}

TEST_F(LibraryLayoutTest, OnlyADuplicateMayBeOrganizedAndOneBadSizeKeepsTheFamilyBack)
{
    qvtest::copyFont(kDejaVuSans, source, "Duplicate.ttf");
    qvtest::copyFont(kDejaVuSans, source, "Damaged.ttf");
    qvtest::copyFont(kDejaVuSans, source, "Twice.ttf");
    makeSuitcase(
        source + "/Nimbus Sans", { { kNimbusRegular, 10 }, { kNimbusRegular, 12 } }, "NimbusSans-Regular");
    // ufond without a PostScript name: the examiner's own defect keeps it out.
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } });
    scan();
    statusOf("Duplicate.ttf")->setFontError(QVErrorClass::Duplicate);
    statusOf("Damaged.ttf")->setFontError(QVErrorClass::Defect);
    statusOf("Twice.ttf")->setFontError(QVErrorClass::Duplicate);
    statusOf("Twice.ttf")->setFontError(QVErrorClass::MissingPostScript);
    EXPECT_TRUE(statusOf("Serif Suitcase")->fontErrorsInfo.contains("Missing PostScript Name"));
    // The 12 point is damaged: the 10 point of that face stays too.
    const QVStatusPtr size12 = statusOf("Nimbus Sans", 12);
    const QVStatusPtr size10 = statusOf("Nimbus Sans", 10);
    ASSERT_TRUE(size12 && size10);
    EXPECT_FALSE(organizer->parentStatusHasErrors(size10));
    qvtest::withDefect(size12, "Bad Table Data");
    EXPECT_TRUE(organizer->parentStatusHasErrors(size10));
    EXPECT_FALSE(QVFontOrganizer::statusHasErrors(size10));

    organizer->createLibrary();
    EXPECT_EQ(filesBelow(library), QStringList({ "Duplicate.ttf" }));
    EXPECT_EQ(organizer->problemFontCount(), 0);
}

TEST_F(LibraryLayoutTest, MovingASuitcaseMemberLeavesTheSuitcaseWithoutItAndMakesAOneFontSuitcase)
{
    settings.setCopyFontFiles(false);
    const QString path = makePanicSuitcase(source + "/Panic");
    scan();
    // Only the bold face is healthy.
    QVStatusPtr bold;
    for (const QVStatusPtr &status : fileOf("Panic")->fontStatusArray) {
        if (status->fontStyle == "Bold")
            bold = status;
        else
            qvtest::withDefect(status, "Bad Table Data");
    }
    ASSERT_TRUE(bold);
    organizer->createLibrary();
    EXPECT_EQ(organizer->problemFontCount(), 0);
    EXPECT_TRUE(bold->movedToLibrary);

    const QString moved = library + "/Panic Sans Bold";
    ASSERT_EQ(filesBelow(library), QStringList({ "Panic Sans Bold" }));
    const QString movedFork = extractFork(moved, work + "/out");
    const QString entries = fontToolsFONDEntries(movedFork).trimmed();
    const QRegularExpressionMatch match = QRegularExpression("^Panic Sans \\d+ 0/1/(\\d+)$").match(entries);
    ASSERT_TRUE(match.hasMatch()) << qPrintable(entries);
    const QString boldEntry = "0/1/" + match.captured(1);
    // fontTools opens the outline in the new suitcase.
    EXPECT_EQ(python(R"(
import sys
from fontTools.ttLib import TTFont
f = TTFont(sys.argv[1], res_name_or_index=1)
print(f['name'].getDebugName(6))
)",
                  { movedFork })
                  .trimmed(),
        "PanicSans-Bold");
    int status = -1;
    EXPECT_TRUE(showfond(movedFork, &status).contains("Panic Sans"));
    EXPECT_EQ(status, 0);

    const QString left = fontToolsFONDEntries(extractFork(path, work + "/left"));
    EXPECT_FALSE(left.contains(boldEntry)) << qPrintable(left);
    EXPECT_EQ(left.count('/'), 6) << qPrintable(left);
    QByteArray info;
    QVForkStorage::readFinderInfo(moved, &info);
    EXPECT_EQ(info.left(8), "FFILDMOV");
}

TEST_F(LibraryLayoutTest, MovedAndCopiedFilesKeepTheirForkAndFinderInfo)
{
    const QString ttf = qvtest::copyFont(kDejaVuSans, source + "/a");
    QByteArray info(32, '\0');
    info.replace(0, 8, "sfntDMOV");
    ASSERT_EQ(QVForkStorage::writeFinderInfo(ttf, info), 0);
    const BitmapWithOutline pair = nimbusPair(source + "/b");
    const QString ttfHashes = forkHashes(ttf);
    const QString outlineHashes = forkHashes(pair.outline);
    ASSERT_FALSE(outlineHashes.contains("fork none"));

    organize();
    EXPECT_EQ(forkHashes(library + "/DejaVuSans.ttf"), ttfHashes);
    EXPECT_EQ(forkHashes(library + "/NimbuSanReg"), outlineHashes);
    EXPECT_EQ(forkHashes(ttf), ttfHashes);

    // Now moved out of a fresh source into a fresh library.
    settings.setCopyFontFiles(false);
    library = home.path() + "/Moved Library";
    QDir().mkpath(library);
    organize();
    EXPECT_EQ(forkHashes(library + "/DejaVuSans.ttf"), ttfHashes);
    EXPECT_EQ(forkHashes(library + "/NimbuSanReg"), outlineHashes);
    EXPECT_FALSE(QFile::exists(ttf));
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(ttf)));
    EXPECT_FALSE(QFile::exists(pair.outline));
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(pair.outline)));
    EXPECT_TRUE(fileOf("DejaVuSans.ttf")->fileMovedToLibrary);
}

TEST_F(LibraryLayoutTest, OrganizingOneSourceTwiceNeitherLosesNorOverwritesAFile)
{
    setLevels(true, true, true);
    qvtest::copyFont(kDejaVuSans, source + "/a", "Sans.ttf");
    qvtest::copyFont(kDejaVuSansBold, source + "/b", "Sans.ttf");
    makeSuitcase(source + "/c/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    nimbusPair(source + "/d");
    const QMap<QString, QString> sourceBefore = hashesBelow(source);

    organize();
    const QMap<QString, QString> first = hashesBelow(library);
    organize();
    const QMap<QString, QString> second = hashesBelow(library);
    EXPECT_EQ(hashesBelow(source), sourceBefore);
    // Every file of the first run is still there, unchanged.
    for (auto it = first.begin(); it != first.end(); ++it)
        EXPECT_EQ(second.value(it.key()), it.value()) << qPrintable(it.key());
    // The second run added numbered copies, except for the outline already there.
    EXPECT_EQ(second.size(), first.size() * 2 - 1) << qPrintable(QStringList(second.keys()).join(", "));

    // Then moved: every source font ends up in the library, nothing is lost.
    // A whole file arrives as it was; a suitcase member arrives in a new
    // suitcase holding the same strike.
    auto fontResources = [this](const QString &path) {
        QStringList lines = fontToolsResources(extractFork(path, work + "/listing"));
        // Type, ID and size: the new suitcase names its strikes by family.
        QStringList strikes;
        for (const QString &line : lines.filter(QRegularExpression("^(NFNT|sfnt) ")))
            strikes << line.section(' ', 0, 2);
        return strikes;
    };
    const QStringList serifStrikes = fontResources(source + "/c/Serif Suitcase");
    ASSERT_EQ(serifStrikes.size(), 1);
    settings.setCopyFontFiles(false);
    organize();
    const QMap<QString, QString> third = hashesBelow(library);
    for (auto it = second.begin(); it != second.end(); ++it)
        EXPECT_EQ(third.value(it.key()), it.value()) << qPrintable(it.key());
    const QList<QString> kept = third.values();
    for (const QString &file : QStringList { "a/Sans.ttf", "b/Sans.ttf" }) {
        EXPECT_FALSE(QFile::exists(source + "/" + file));
        EXPECT_TRUE(kept.contains(sourceBefore.value(file))) << qPrintable(file);
    }
    EXPECT_FALSE(QFile::exists(source + "/c/Serif Suitcase"));
    EXPECT_EQ(fontResources(library + "/Generic/D/DejaVu Serif/DejaVu Serif 2").join('\n').toStdString(),
        serifStrikes.join('\n').toStdString())
        << qPrintable(QStringList(third.keys()).join(", "));
    // The outline the library already had stays in the source.
    EXPECT_TRUE(QFile::exists(source + "/d/NimbuSanReg"));
}

TEST_F(LibraryLayoutTest, AFolderThatCannotBeMadeIsAnErrorOnTheFontAndTheRunGoesOn)
{
    setLevels(true, false, false);
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    qvtest::copyFont(kDejaVuSans, source);
    // A file where the foundry folder would go.
    QFile(library + "/Generic").open(QIODevice::WriteOnly);
    organize();
    EXPECT_EQ(organizer->problemFontCount(), 1);
    const QVStatusPtr serif = statusOf("Serif Suitcase");
    EXPECT_TRUE(serif->copiedToLibraryErrorInfo.startsWith("The folder \"" + library + "/Generic/\""))
        << qPrintable(serif->copiedToLibraryErrorInfo);
    EXPECT_TRUE(serif->copiedToLibraryErrorInfo.endsWith(")"));
    EXPECT_FALSE(serif->copiedOrMoved());
    const QVStatusPtr sans = statusOf("DejaVuSans.ttf");
    EXPECT_TRUE(QFile::exists(library + "/" + sans->fontFoundry + "/DejaVuSans.ttf"));
}

TEST_F(LibraryLayoutTest, APackageFileIsNeverMovedAndItsRefusedMoveLeavesNoFolder)
{
    settings.setCopyFontFiles(false);
    setLevels(true, true, true);
    const QString system = qvtest::copyFont(kDejaVuSans, source);
    home.writeFile("dpkg/fonts-dejavu-test.list", system.toUtf8() + '\n');
    const QVPackageLists lists(home.path() + "/dpkg");
    organize();
    EXPECT_TRUE(
        statusOf("DejaVuSans.ttf")->movedToLibraryErrorInfo.contains("belongs to an installed package"));
    EXPECT_EQ(fileSha256(system), fileSha256(kDejaVuSans));
    EXPECT_EQ(QDir(library).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    // Copying leaves the file where it is, so a copy is made as for any font.
    settings.setCopyFontFiles(true);
    organize();
    EXPECT_EQ(filesBelow(library).size(), 1);
}

TEST_F(LibraryLayoutTest, ACopyThatFailsIsStoredCountedAndLosesNothing)
{
    qvtest::copyFont(kDejaVuSans, source);
    scan();
    if (!lockFolder(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    organizer->createLibrary();
    lockFolder(library, false);
    const QVStatusPtr sans = statusOf("DejaVuSans.ttf");
    EXPECT_EQ(organizer->problemFontCount(), 1);
    // "reason (suggestion, code)"
    EXPECT_TRUE(sans->copiedToLibraryErrorInfo.endsWith(", 1)"))
        << qPrintable(sans->copiedToLibraryErrorInfo);
    EXPECT_FALSE(fileOf("DejaVuSans.ttf")->fileCopiedToLibrary);
    EXPECT_TRUE(filesBelow(library).isEmpty());
    EXPECT_EQ(fileSha256(source + "/DejaVuSans.ttf"), fileSha256(kDejaVuSans));
}

class OrganizeRunTest : public OrganizerTest
{
};

TEST_F(OrganizeRunTest, ARunWritesTheSettingsCallsTheHooksAndEndsAfterTheLastCopy)
{
    qvtest::copyFont(kDejaVuSans, source);
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    QFile(library + "/Generic").open(QIODevice::WriteOnly);
    settings.setCreateFoundryFolders(true);
    settings.setShowLibraryFolder(true);
    settings.setOrganizeFonts(true);
    scan();
    QStringList calls;
    QVFontOrganizer *o = organizer.get();
    QObject::connect(o, &QVFontOrganizer::progressSheetRequested, [&] { calls << "sheet"; });
    QObject::connect(o, &QVFontOrganizer::progressSheetClosed, [&] { calls << "close"; });
    QObject::connect(o, &QVFontOrganizer::alertRequested,
        [&](const QString &message, const QString &, const QString &button) {
            calls << message + "/" + button;
        });
    QObject::connect(o, &QVFontOrganizer::libraryFolderRevealRequested,
        [&](const QString &path) { calls << "reveal " + path; });
    QEventLoop loop;
    bool done = false;
    organizer->organizeFonts(library + "/", [&] {
        done = true;
        QMetaObject::invokeMethod(&loop, "quit", Qt::QueuedConnection);
    });
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    loop.exec();
    ASSERT_TRUE(done);
    organizer->organizeFontsQueue()->waitUntilAllOperationsAreFinished();

    EXPECT_EQ(settings.organizeFontsFolder(), library);
    EXPECT_FALSE(settings.organizeFonts());
    EXPECT_FALSE(organizer->isOrganizingFonts());
    EXPECT_TRUE(organizer->copiedOrMovedFonts());
    EXPECT_EQ(calls, QStringList({ "sheet", "close", "Organize Fonts Completed/OK", "reveal " + library }));
    // The suitcase could not get its "Generic" folder.
    EXPECT_EQ(organizer->problemFontCount(), 1);
    EXPECT_TRUE(dataMgr->foundProblemFonts);
    EXPECT_EQ(organizer->progressWindow()->value(), dataMgr->totalFonts);
    EXPECT_FALSE(organizer->progressWindow()->indeterminate());
    ASSERT_EQ(organizer->placements().size(), 1);
    EXPECT_EQ(organizer->placements().first().source, source + "/DejaVuSans.ttf");
}

TEST_F(OrganizeRunTest, ACancelledRunStopsBeforeTheNextFontAndClosesTheSheetLater)
{
    // The walk does not wait for this thread: enough files that a cancel
    // sent when the first is placed arrives well before the last.
    constexpr int kFiles = 30;
    for (int i = 0; i < kFiles; ++i)
        qvtest::copyFont(kDejaVuSans, source, QString("Sans%1.ttf").arg(i));
    scan();
    bool closed = false;
    QObject::connect(organizer.get(), &QVFontOrganizer::progressSheetClosed, [&] { closed = true; });
    // Cancelled once the first file is placed.
    int seen = 0;
    QObject::connect(organizer->progressWindow(), &QVProgress::changed, organizer.get(), [&] {
        if (!organizer->placements().isEmpty() && !organizer->doCancel() && ++seen == 1)
            organizer->cancelOrganizing();
    });
    QEventLoop loop;
    organizer->organizeFonts(
        library, [&] { QMetaObject::invokeMethod(&loop, "quit", Qt::QueuedConnection); });
    loop.exec();
    EXPECT_TRUE(organizer->doCancel());
    EXPECT_LT(filesBelow(library).size(), kFiles);
    EXPECT_GE(filesBelow(library).size(), 1);
    EXPECT_FALSE(closed);
    QTimer::singleShot(2500, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_TRUE(closed);
    EXPECT_EQ(organizer->progressWindow()->label().toStdString(),
        QVStringTable::text("organize.cancel.message").toStdString());
    EXPECT_EQ(organizer->progressWindow()->value(), dataMgr->totalFonts);
}

TEST_F(LibraryLayoutTest, ASuitcaseMemberThatCannotBeWrittenOutIsAnErrorAndItsOutlineStays)
{
    settings.setCopyFontFiles(false);
    const BitmapWithOutline pair = nimbusPair(source);
    const QString suitcaseBefore = forkHashes(pair.suitcase);
    const QString outlineBefore = forkHashes(pair.outline);
    scan();
    if (!lockFolder(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    organizer->createLibrary();
    lockFolder(library, false);

    const QVStatusPtr bitmap = statusOf("Nimbus Sans", 10);
    EXPECT_TRUE(bitmap->movedToLibraryErrorInfo.startsWith(
        "The font could not be saved as \"" + library + "/Nimbus Sans\" ("))
        << qPrintable(bitmap->movedToLibraryErrorInfo);
    EXPECT_FALSE(bitmap->copiedOrMoved());
    EXPECT_FALSE(bitmap->movedSisterToLibrary);
    // The outline could not follow: its own record says why, in short.
    const QVStatusPtr outline = statusOf("NimbuSanReg");
    EXPECT_FALSE(outline->movedToLibraryErrorInfo.isEmpty());
    EXPECT_FALSE(outline->movedToLibraryErrorInfo.contains(", 1)"))
        << qPrintable(outline->movedToLibraryErrorInfo);
    EXPECT_GE(organizer->problemFontCount(), 2);
    EXPECT_EQ(forkHashes(pair.suitcase), suitcaseBefore);
    EXPECT_EQ(forkHashes(pair.outline), outlineBefore);
    EXPECT_TRUE(filesBelow(library).isEmpty());
}

TEST(FileCopiedStatus, AFileCountsAsCopiedWhenEveryFontInItIs)
{
    auto file = std::make_shared<QVFontFile>("/nowhere/Two.ttc");
    QVFontOrganizer::updateFileCopiedStatus(file);
    EXPECT_TRUE(file->fileCopiedToLibrary);
    file->fileCopiedToLibrary = false;
    file->fontStatusArray = { std::make_shared<QVStatus>(), std::make_shared<QVStatus>() };
    file->fontStatusArray[0]->copiedToLibrary = true;
    QVFontOrganizer::updateFileCopiedStatus(file);
    EXPECT_FALSE(file->fileCopiedToLibrary);
    file->fontStatusArray[1]->copiedToLibrary = true;
    QVFontOrganizer::updateFileCopiedStatus(file);
    EXPECT_TRUE(file->fileCopiedToLibrary);
}

TEST_F(LibraryLayoutTest, AMoveMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    settings.setCopyFontFiles(false);
    // What the source holds at the start of every run.
    const QString original = home.path() + "/original";
    qvtest::copyFont(kDejaVuSans, original + "/a");
    makePanicSuitcase(original + "/b/Panic");
    nimbusPair(original + "/c");
    const QMap<QString, QString> before = hashesBelow(original);
    const QStringList suitcases { "b/Panic", "c/Nimbus Sans" };
    auto members = [&](const QString &folder, const QStringList &files) {
        QStringList forks;
        for (const QString &file : files) {
            if (QVForkStorage::resourceForkPlace(folder + "/" + file) != QVForkStorage::Place::None)
                forks << extractFork(folder + "/" + file, work + "/forks/" + QString::number(forks.size()));
        }
        return forks;
    };
    const QStringList membersBefore = fontToolsMembers(members(original, suitcases));
    ASSERT_EQ(membersBefore.size(), 6) << qPrintable(membersBefore.join('\n'));

    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        QDir(source).removeRecursively();
        QDir(library).removeRecursively();
        QDir().mkpath(library);
        ASSERT_EQ(QProcess::execute("cp", { "-a", original, source }), 0);
        QVWriteFault::failWrite(n);
        organize();
        const int writes = QVWriteFault::count();
        QVWriteFault::clear();
        QVResourceManager::closeAll();

        // A whole file: in the source or in the library, unchanged; a suitcase
        // member: in its suitcase or in one of the library, strike and all.
        const QMap<QString, QString> left = hashesBelow(source);
        const QStringList placed = hashesBelow(library).values();
        for (auto it = before.cbegin(); it != before.cend(); ++it) {
            if (!suitcases.contains(it.key())) {
                EXPECT_TRUE(left.value(it.key()) == it.value() || placed.contains(it.value()))
                    << qPrintable(it.key());
            }
        }
        EXPECT_EQ(fontToolsMembers(members(source, suitcases) + members(library, filesBelow(library))),
            membersBefore);
        if (writes < n)
            break; // the run ended before its nth write: every write has failed once
    }
}
