// Organizing real fonts into a library: the trees copies and moves make, the
// names, which fonts may go, fonts that cannot or must not go, the run on its
// queue, and a full disk at any write.
#include "engine/QVFontConstants.h"
#include "organizer/QVOrganizerFixtures.h"
#include "platform/QVWriteFault.h"
#include "settings/QVProgress.h"
#include "store/QVOperationQueue.h"
#include "support/QVPackageLists.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

using namespace qvorg;
using namespace QVFixtures;

namespace
{

class LibraryLayoutTest : public OrganizerTest
{
protected:
    // Nimbus Sans strikes in a suitcase beside their outline (t1mac): its path.
    QString nimbusPair(const QString &folder)
    {
        makeSuitcase(folder + "/Nimbus Sans", { { kNimbusRegular, 10 }, { kNimbusRegular, 12 } },
            "NimbusSans-Regular");
        return qvtest::makeOutlineFile(folder);
    }
    QVStatusPtr memberWithStyle(const QString &fileName, const QString &style) const
    {
        for (const QVStatusPtr &status : fileOf(fileName)->fontStatusArray) {
            if (status->fontStyle == style)
                return status;
        }
        return nullptr;
    }
};

} // namespace

TEST_F(LibraryLayoutTest, CopiesGoByFoundryLetterAndFamilyWithTheirForksAndLeaveTheSources)
{
    setLevels(true, true, true);
    const QString ttf = copyFont(kDejaVuSans, source + "/a");
    ASSERT_TRUE(setFinderInfo(ttf, "sfntDMOV"));
    makeSuitcase(source + "/b/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    const QString outline = nimbusPair(source + "/c");
    const QMap<QString, QString> sources = hashesBelow(source);
    organize();
    EXPECT_EQ(organizer->problemFontCount(), 0);
    EXPECT_EQ(hashesBelow(source), sources);
    EXPECT_TRUE(fileOf("DejaVuSans.ttf")->fileCopiedToLibrary);

    // A bitmap font without a PostScript sister goes under "Generic", one with
    // a sister under the sister's foundry, with it; files keep forks and names.
    const QVStatusPtr bitmap = statusOf("Nimbus Sans", 10);
    const QVStatusPtr sister = organizer->getSisterPostScriptFont(fileOf("Nimbus Sans"), bitmap);
    ASSERT_TRUE(sister);
    EXPECT_EQ(sister->fontURL, outline);
    EXPECT_FALSE(sister->fontFoundry.isEmpty() || sister->fontFoundry == "Generic");
    EXPECT_EQ(
        organizer->getSisterPostScriptFont(fileOf("Serif Suitcase"), statusOf("Serif Suitcase")), nullptr);
    const QString sans = statusOf("DejaVuSans.ttf")->fontFoundry + "/D/DejaVu Sans/DejaVuSans.ttf";
    const QString nimbus = sister->fontFoundry + "/N/Nimbus Sans/";
    QStringList expected { sans, "Generic/D/DejaVu Serif/DejaVu Serif", nimbus + "Nimbus Sans",
        nimbus + "NimbuSanReg" };
    expected.sort();
    EXPECT_EQ(filesBelow(library), expected);
    EXPECT_EQ(forkHashes(library + "/" + sans), sources.value("a/DejaVuSans.ttf"));
    EXPECT_EQ(forkHashes(library + "/" + nimbus + "NimbuSanReg"), sources.value("c/NimbuSanReg"));
    EXPECT_TRUE(bitmap->copiedSisterToLibrary);
}

TEST_F(LibraryLayoutTest, ClashingNamesAreNumberedAndNothingIsOverwrittenOrLost)
{
    setLevels(false, false, true);
    copyFont(kDejaVuSans, source + "/a", "Sans.ttf");
    copyFont(kDejaVuSansBold, source + "/b", "Sans.ttf");
    makeSuitcase(source + "/c/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    nimbusPair(source + "/d");
    const QMap<QString, QString> sourceBefore = hashesBelow(source);

    organize();
    const QMap<QString, QString> first = hashesBelow(library);
    QStringList expected { "DejaVu Sans/Sans.ttf", "DejaVu Sans/Sans 1.ttf", "DejaVu Serif/DejaVu Serif",
        "Nimbus Sans/Nimbus Sans", "Nimbus Sans/NimbuSanReg" };
    expected.sort();
    EXPECT_EQ(first.keys(), expected);
    // Each file whole, in scan order.
    EXPECT_EQ(first.value("DejaVu Sans/Sans.ttf"), sourceBefore.value("a/Sans.ttf"));
    EXPECT_EQ(first.value("DejaVu Sans/Sans 1.ttf"), sourceBefore.value("b/Sans.ttf"));

    // Again: numbered copies beside the first, but for the outline already there.
    organize();
    const QMap<QString, QString> second = hashesBelow(library);
    EXPECT_EQ(hashesBelow(source), sourceBefore);
    for (auto it = first.begin(); it != first.end(); ++it)
        EXPECT_EQ(second.value(it.key()), it.value()) << qPrintable(it.key());
    EXPECT_EQ(second.size(), first.size() * 2 - 1) << qPrintable(QStringList(second.keys()).join(", "));

    // Moved in: four fonts arrive beside those, the outline stays in the source.
    settings.setCopyFontFiles(false);
    organize();
    const QMap<QString, QString> third = hashesBelow(library);
    for (auto it = second.begin(); it != second.end(); ++it)
        EXPECT_EQ(third.value(it.key()), it.value()) << qPrintable(it.key());
    EXPECT_EQ(third.size(), second.size() + 4) << qPrintable(QStringList(third.keys()).join(", "));
    EXPECT_EQ(filesBelow(source), QStringList { "d/NimbuSanReg" });
}

TEST_F(LibraryLayoutTest, MovingTakesFilesWithTheirForksAndMembersOutOfTheirSuitcase)
{
    settings.setCopyFontFiles(false);
    const QString ttf = copyFont(kDejaVuSans, source + "/a");
    ASSERT_TRUE(setFinderInfo(ttf, "sfntDMOV"));
    const QString ttfHashes = forkHashes(ttf);
    const QString panic = makePanicSuitcase(source + "/b/Panic");
    const QStringList members = fontToolsMembers({ extractFork(panic, work + "/before") });
    scan();
    // Only the bold face of the suitcase is healthy.
    const QVStatusPtr bold = memberWithStyle("Panic", "Bold");
    ASSERT_TRUE(bold);
    for (const QVStatusPtr &status : fileOf("Panic")->fontStatusArray) {
        if (status != bold)
            qvtest::withDefect(status, "Bad Table Data");
    }
    organizer->createLibrary();
    EXPECT_EQ(organizer->problemFontCount(), 0);
    ASSERT_EQ(filesBelow(library), QStringList({ "DejaVuSans.ttf", "Panic Sans Bold" }));
    EXPECT_EQ(forkHashes(library + "/DejaVuSans.ttf"), ttfHashes);
    EXPECT_FALSE(QFile::exists(ttf) || QFile::exists(QVForkStorage::sidecarPath(ttf)));
    EXPECT_TRUE(fileOf("DejaVuSans.ttf")->fileMovedToLibrary && bold->movedToLibrary);

    // A suitcase of the bold face that showfond reads, and one left with the
    // other three, every outline as it was.
    const QString moved = library + "/Panic Sans Bold";
    const QString movedFork = extractFork(moved, work + "/out");
    const QStringList boldFace = fontToolsMembers({ movedFork });
    ASSERT_EQ(boldFace.size(), 1);
    EXPECT_TRUE(boldFace[0].startsWith("Panic Sans 0 1 ")) << qPrintable(boldFace[0]);
    const QString leftFork = extractFork(panic, work + "/left");
    EXPECT_EQ(fontToolsMembers({ leftFork }).size(), 3);
    EXPECT_EQ(fontToolsMembers({ movedFork, leftFork }), members);
    int status = -1;
    EXPECT_TRUE(showfond(movedFork, &status).contains("Panic Sans"));
    EXPECT_EQ(status, 0);
    QByteArray info;
    QVForkStorage::readFinderInfo(moved, &info);
    EXPECT_EQ(info.left(8), "FFILDMOV");
}

TEST_F(LibraryLayoutTest, NamesFollowTheSettingsAndNeverLeaveNorHideInTheLibrary)
{
    makePanicSuitcase(source + "/Panic");
    makeSuitcase(source + "/Nimbus Sans", { { kNimbusRegular, 10 } }, "NimbuSanReg");
    scan();
    const QVFontFilePtr panic = fileOf("Panic"), nimbus = fileOf("Nimbus Sans");
    const QVStatusPtr boldItalic = memberWithStyle("Panic", "Bold, Italic");
    ASSERT_TRUE(boldItalic && nimbus);
    const QVStatusPtr shortName = nimbus->fontStatusArray.value(0);
    ASSERT_EQ(shortName->PSname, "NimbuSanReg");
    ASSERT_EQ(shortName->PS533name, shortName->PSname);
    using Case = std::tuple<QVFontFilePtr, QVStatusPtr, bool, bool, QString>;
    const QList<Case> cases { { panic, boldItalic, false, true, "Panic Sans Bold Italic" },
        { panic, boldItalic, true, false, "PanicSans-BoldItalic" },
        { panic, boldItalic, false, false, "Panic" },
        // A PostScript name that is the outline file's name gets a suffix.
        { nimbus, shortName, true, false, "NimbuSanReg.suit" } };
    for (const auto &[file, status, postScript, family, name] : cases) {
        setNaming(postScript, family);
        EXPECT_EQ(organizer->suitcaseMemberFileName(file, status), name);
    }

    // A font's name makes one level inside the library, never hidden, not too long.
    setLevels(false, true, true);
    setNaming(false, true);
    auto member = qvtest::makeStatus(QVFontType::TrueType, "Foo-Bold", 0, "Plain", 0, "Foo");
    for (const QString &name :
        { QString("../../etc"), QString("._Times"), QString(".."), QString(300, 'x') }) {
        member->fontName = member->familyName = member->trueTypeFontName = name;
        const QString folder = organizer->libraryFolderFor(panic, member);
        ASSERT_TRUE(folder.startsWith(library + "/")) << qPrintable(folder);
        const QStringList levels = folder.mid(library.size()).split('/', Qt::SkipEmptyParts);
        EXPECT_EQ(levels.size(), 2) << qPrintable(folder);
        for (const QString &part :
            levels + QStringList { organizer->suitcaseMemberFileName(panic, member) }) {
            EXPECT_FALSE(part.startsWith('.')) << qPrintable(folder);
            EXPECT_LE(part.toUtf8().size(), 255) << qPrintable(folder);
        }
    }
}

TEST_F(LibraryLayoutTest, OnlyADuplicateMayBeOrganizedAndOneBadSizeKeepsTheFamilyBack)
{
    for (const char *name : { "Duplicate.ttf", "Damaged.ttf", "Twice.ttf" })
        copyFont(kDejaVuSans, source, name);
    makeSuitcase(
        source + "/Nimbus Sans", { { kNimbusRegular, 10 }, { kNimbusRegular, 12 } }, "NimbusSans-Regular");
    // ufond without a PostScript name: the examiner's own defect keeps it out.
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } });
    scan();
    statusOf("Duplicate.ttf")->setFontError(QVErrorClass::Duplicate);
    statusOf("Damaged.ttf")->setFontError(QVErrorClass::Defect);
    for (int error : { QVErrorClass::Duplicate, QVErrorClass::MissingPostScript })
        statusOf("Twice.ttf")->setFontError(error);
    ASSERT_FALSE(statusOf("Serif Suitcase")->fontErrorsInfo.isEmpty());
    // The 12 point is damaged: the 10 point of that face stays too.
    EXPECT_FALSE(organizer->parentStatusHasErrors(statusOf("Nimbus Sans", 10)));
    qvtest::withDefect(statusOf("Nimbus Sans", 12), "Bad Table Data");
    EXPECT_TRUE(organizer->parentStatusHasErrors(statusOf("Nimbus Sans", 10)));
    organizer->createLibrary();
    EXPECT_EQ(filesBelow(library), QStringList({ "Duplicate.ttf" }));
    EXPECT_EQ(organizer->problemFontCount(), 0);
}

TEST_F(LibraryLayoutTest, APackageFileIsNeverMovedAndItsRefusedMoveLeavesNoFolder)
{
    settings.setCopyFontFiles(false);
    setLevels(true, true, true);
    const QString system = copyFont(kDejaVuSans, source);
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

TEST_F(OrganizerTest, ARunGoesOnPastAFolderItCannotMakeAndEndsAfterTheLastCopy)
{
    copyFont(kDejaVuSans, source);
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    QFile(library + "/Generic").open(QIODevice::WriteOnly); // where the foundry folder would go
    setLevels(true, false, false);
    settings.setShowLibraryFolder(true);
    settings.setOrganizeFonts(true);
    scan();
    QStringList calls;
    QVFontOrganizer *o = organizer.get();
    // What a window is asked to do, in order.
    QObject::connect(o, &QVFontOrganizer::progressSheetRequested, [&] { calls << "sheet"; });
    QObject::connect(o, &QVFontOrganizer::progressSheetClosed, [&] { calls << "close"; });
    QObject::connect(o, &QVFontOrganizer::alertRequested, [&] { calls << "alert"; });
    QObject::connect(o, &QVFontOrganizer::libraryFolderRevealRequested,
        [&](const QString &path) { calls << "reveal " + path; });
    bool done = false;
    organizer->organizeFonts(library + "/", [&] { done = true; });
    ASSERT_TRUE(waitFor([&] { return done; }, 60000));
    EXPECT_TRUE(waitFor([&] { return calls.size() == 4; }, 5000)); // the end follows
    organizer->organizeFontsQueue()->waitUntilAllOperationsAreFinished();

    EXPECT_EQ(settings.organizeFontsFolder(), library);
    EXPECT_FALSE(settings.organizeFonts() || organizer->isOrganizingFonts());
    EXPECT_EQ(calls, QStringList({ "sheet", "close", "alert", "reveal " + library }));
    EXPECT_EQ(organizer->progressWindow()->value(), dataMgr->totalFonts);
    // The suitcase could not get its "Generic" folder; the file went on.
    EXPECT_EQ(organizer->problemFontCount(), 1);
    EXPECT_TRUE(dataMgr->foundProblemFonts);
    EXPECT_TRUE(statusOf("Serif Suitcase")->copiedToLibraryErrorInfo.contains(library + "/Generic/"));
    ASSERT_EQ(organizer->placements().size(), 1);
    EXPECT_EQ(organizer->placements().first().source, source + "/DejaVuSans.ttf");
    EXPECT_TRUE(QFile::exists(library + "/" + statusOf("DejaVuSans.ttf")->fontFoundry + "/DejaVuSans.ttf"));
}

TEST_F(LibraryLayoutTest, AMoveMeetingAFullDiskAtAnyWriteLosesNoFont)
{
    settings.setCopyFontFiles(false);
    // What the source holds at the start of every run.
    const QString original = home.path() + "/original";
    copyFont(kDejaVuSans, original + "/a");
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

        // Each file and suitcase member unchanged in the source or the library.
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
