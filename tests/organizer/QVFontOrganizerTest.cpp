// Organizing real fonts into a library: the trees copies and moves make, the
// names, which fonts may go, fonts that cannot or must not go, the run on its
// queue, and a full disk at any write.
#include "engine/QVFontConstants.h"
#include "organizer/QVOrganizerFixtures.h"
#include "platform/QVWriteFault.h"
#include "settings/QVProgress.h"
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

class LibraryLayoutTest : public OrganizerTest
{
protected:
    // The Nimbus Sans bitmap suitcase and its PostScript outline (t1mac, LWFN
    // in an AppleDouble sidecar) side by side in a folder; the outline's path.
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

    // A bitmap font without a PostScript sister beside it goes under
    // "Generic", one with a sister under the sister's foundry, with the
    // sister. Whole files keep their names, forks and Finder info; a suitcase
    // member is named by family.
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

    // Again: every file of the first run is still there, unchanged, beside
    // numbered copies, except for the outline that is there already.
    organize();
    const QMap<QString, QString> second = hashesBelow(library);
    EXPECT_EQ(hashesBelow(source), sourceBefore);
    for (auto it = first.begin(); it != first.end(); ++it)
        EXPECT_EQ(second.value(it.key()), it.value()) << qPrintable(it.key());
    EXPECT_EQ(second.size(), first.size() * 2 - 1) << qPrintable(QStringList(second.keys()).join(", "));

    // Moved in as well: the four fonts arrive beside what is there, and the
    // outline already there stays in the source.
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
    EXPECT_FALSE(QFile::exists(ttf));
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(ttf)));
    EXPECT_TRUE(fileOf("DejaVuSans.ttf")->fileMovedToLibrary);
    EXPECT_TRUE(bold->movedToLibrary);

    // A one-font suitcase that fontTools and showfond read, and a suitcase
    // left without it.
    const QString moved = library + "/Panic Sans Bold";
    const QString movedFork = extractFork(moved, work + "/out");
    const QString entries = fontToolsFONDEntries(movedFork).trimmed();
    const QRegularExpressionMatch match = QRegularExpression("^Panic Sans \\d+ 0/1/(\\d+)$").match(entries);
    ASSERT_TRUE(match.hasMatch()) << qPrintable(entries);
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
    const QString left = fontToolsFONDEntries(extractFork(panic, work + "/left"));
    EXPECT_FALSE(left.contains("0/1/" + match.captured(1))) << qPrintable(left);
    EXPECT_EQ(left.count('/'), 6) << qPrintable(left);
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
    struct Case {
        QVFontFilePtr file;
        QVStatusPtr status;
        bool postScript, family;
        QString name;
    };
    const QList<Case> cases { { panic, boldItalic, false, true, "Panic Sans Bold Italic" },
        { panic, boldItalic, true, false, "PanicSans-BoldItalic" },
        { panic, boldItalic, false, false, "Panic" },
        // A PostScript name that is the outline file's name gets a suffix.
        { nimbus, shortName, true, false, "NimbuSanReg.suit" } };
    for (const Case &c : cases) {
        setNaming(c.postScript, c.family);
        EXPECT_EQ(organizer->suitcaseMemberFileName(c.file, c.status), c.name);
    }

    // A TrueType member of a suitcase is filed under its full name, unless
    // that holds the family name.
    auto member = qvtest::makeStatus(QVFontType::TrueType, "Foo-Bold", 0, "Plain", 0, "Foo");
    for (const auto &[fileType, fullName, shown] : { std::tuple { 0, "Bar Heavy", "Bar Heavy" },
             std::tuple { 0, "Foo Bold", "Foo" }, std::tuple { 1, "Bar Heavy", "Foo" } }) {
        auto file = std::make_shared<QVFontFile>(source + "/Suitcase");
        file->fontFileType = fileType;
        member->trueTypeFontName = fullName;
        EXPECT_EQ(QVFontOrganizer::fontDisplayName(file, member), shown) << fullName;
    }

    // A name from a font makes one level, inside the library, never hidden nor
    // taken for a sidecar, and short enough for a file system.
    setLevels(false, true, true);
    setNaming(false, true);
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
    ASSERT_FALSE(statusOf("Serif Suitcase")->fontErrorsInfo.isEmpty());
    // The 12 point is damaged: the 10 point of that face stays too.
    EXPECT_FALSE(organizer->parentStatusHasErrors(statusOf("Nimbus Sans", 10)));
    qvtest::withDefect(statusOf("Nimbus Sans", 12), "Bad Table Data");
    EXPECT_TRUE(organizer->parentStatusHasErrors(statusOf("Nimbus Sans", 10)));
    organizer->createLibrary();
    EXPECT_EQ(filesBelow(library), QStringList({ "Duplicate.ttf" }));
    EXPECT_EQ(organizer->problemFontCount(), 0);
}

TEST_F(LibraryLayoutTest, ALockedLibraryLeavesEveryFontInPlaceWithItsReason)
{
    settings.setCopyFontFiles(false);
    qvtest::copyFont(kDejaVuSans, source);
    nimbusPair(source);
    const QMap<QString, QString> before = hashesBelow(source);
    scan();
    if (!lockFolder(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    organizer->createLibrary();
    lockFolder(library, false);

    EXPECT_EQ(hashesBelow(source), before);
    EXPECT_TRUE(filesBelow(library).isEmpty());
    EXPECT_GE(organizer->problemFontCount(), 3);
    // "reason (suggestion, code)"
    const QString sans = statusOf("DejaVuSans.ttf")->movedToLibraryErrorInfo;
    EXPECT_TRUE(sans.endsWith(", 1)")) << qPrintable(sans);
    EXPECT_FALSE(fileOf("DejaVuSans.ttf")->fileMovedToLibrary);
    const QVStatusPtr bitmap = statusOf("Nimbus Sans", 10);
    EXPECT_TRUE(bitmap->movedToLibraryErrorInfo.startsWith(
        "The font could not be saved as \"" + library + "/Nimbus Sans\" ("))
        << qPrintable(bitmap->movedToLibraryErrorInfo);
    EXPECT_FALSE(bitmap->copiedOrMoved() || bitmap->movedSisterToLibrary);
    // The outline could not follow: its own record says why, in short.
    const QString outline = statusOf("NimbuSanReg")->movedToLibraryErrorInfo;
    EXPECT_FALSE(outline.isEmpty() || outline.contains(", 1)")) << qPrintable(outline);
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

TEST_F(OrganizerTest, ARunGoesOnPastAFolderItCannotMakeAndEndsAfterTheLastCopy)
{
    qvtest::copyFont(kDejaVuSans, source);
    makeSuitcase(source + "/Serif Suitcase", { { kDejaVuSerif, 10 } }, "DejaVuSerif");
    QFile(library + "/Generic").open(QIODevice::WriteOnly); // where the foundry folder would go
    setLevels(true, false, false);
    settings.setShowLibraryFolder(true);
    settings.setOrganizeFonts(true);
    scan();
    QStringList calls;
    QVFontOrganizer *o = organizer.get();
    QObject::connect(o, &QVFontOrganizer::progressSheetRequested, [&] { calls << "sheet"; });
    QObject::connect(o, &QVFontOrganizer::progressSheetClosed, [&] { calls << "close"; });
    QObject::connect(o, &QVFontOrganizer::alertRequested, [&] { calls << "alert"; });
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
    EXPECT_EQ(calls, QStringList({ "sheet", "close", "alert", "reveal " + library }));
    EXPECT_EQ(organizer->progressWindow()->value(), dataMgr->totalFonts);
    // The suitcase could not get its "Generic" folder; the file went on.
    EXPECT_EQ(organizer->problemFontCount(), 1);
    EXPECT_TRUE(dataMgr->foundProblemFonts);
    const QString error = statusOf("Serif Suitcase")->copiedToLibraryErrorInfo;
    EXPECT_TRUE(error.startsWith("The folder \"" + library + "/Generic/\"")) << qPrintable(error);
    EXPECT_FALSE(statusOf("Serif Suitcase")->copiedOrMoved());
    ASSERT_EQ(organizer->placements().size(), 1);
    EXPECT_EQ(organizer->placements().first().source, source + "/DejaVuSans.ttf");
    EXPECT_TRUE(QFile::exists(library + "/" + statusOf("DejaVuSans.ttf")->fontFoundry + "/DejaVuSans.ttf"));
}

TEST_F(OrganizerTest, ACancelledRunStopsBeforeTheNextFontAndClosesTheSheetLater)
{
    // The walk does not wait for this thread: enough files that a cancel
    // sent when the first is placed arrives well before the last.
    constexpr int kFiles = 30;
    for (int i = 0; i < kFiles; ++i)
        qvtest::copyFont(kDejaVuSans, source, QString("Sans%1.ttf").arg(i));
    scan();
    bool closed = false;
    QObject::connect(organizer.get(), &QVFontOrganizer::progressSheetClosed, [&] { closed = true; });
    QObject::connect(organizer->progressWindow(), &QVProgress::changed, organizer.get(), [&] {
        if (!organizer->placements().isEmpty() && !organizer->doCancel())
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
