// Organizing from the application on real fixtures: the organize sheet keeps
// its choices and refuses locked folders and a missing library; after the
// scan and the resolution window, the organizer fills the library as the
// command line does with the same choices, behind its progress sheet, and
// gives the user interface back.
#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVDiagnosisViewController.h"
#include "app/QVMainWindow.h"
#include "app/QVOrganizeOptionsWindowController.h"
#include "app/QVOrganizeProgressWindow.h"
#include "app/QVScanRootViewController.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "organizer/QVFontOrganizer.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVReportStore.h"
#include "support/QVFakeFileManager.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDirIterator>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <array>
#include <gtest/gtest.h>
#include <memory>

using namespace QVFixtures;

namespace
{

// Two folders of TrueType fonts with a duplicate and a damaged font, a
// suitcase of four TrueType faces, and a bitmap suitcase beside its outline.
bool makeMixedFolder(const QString &folder, const QString &work)
{
    return !copyFont(kDejaVuSans, folder + QStringLiteral("/a")).isEmpty()
        && !copyFont(kDejaVuSerif, folder + QStringLiteral("/a")).isEmpty()
        && !copyFont(kDejaVuSans, folder + QStringLiteral("/b")).isEmpty()
        && writeFile(folder + QStringLiteral("/b/Broken.ttf"), readFile(kDejaVuSans).left(3000))
        && makeSuitcase(folder + QStringLiteral("/Panic Sans"), readFile(kPanicSansDfont))
        && !makeLwfn(folder + QStringLiteral("/Type1"), QStringLiteral("C059Rom"), kC059RomanPfb).isEmpty()
        && makeSuitcase(
            folder + QStringLiteral("/Type1/C059"), withPostScriptName(c059Fork(work), "C059-Roman"));
}

// Every file below the folder (sidecars left out) with its data, fork and
// Finder info hashes.
QStringList tree(const QString &folder)
{
    QStringList lines;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!QVForkStorage::isMetadataStore(path))
            lines << path.mid(folder.size()) + QLatin1Char(' ') + forkHashes(path);
    }
    lines.sort();
    return lines;
}

class OrganizeRunTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings::migratePreferences();
        QVSettings settings;
        settings.setShowReports(false);
        settings.setAutoScanEnabled(false);
        settings.setShowHelperMenu(false);
        settings.setShowLibraryFolder(false);
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        ASSERT_TRUE(app->launch());
    }
    void TearDown() override { app.reset(); }

    QVOrganizeOptionsWindowController *openSheet()
    {
        app->mainWindow()->organizeFontsMenuItem()->trigger();
        return app->organizeOptionsWindowController();
    }
    // Presses the only button of the alert of that context on the sheet; its text.
    static QString answer(QWidget *sheet, const QString &context)
    {
        QMessageBox *alert = QVAlertSheet::find(sheet, context);
        if (!alert)
            return QStringLiteral("no alert ") + context;
        const QString text = alert->text() + QLatin1Char('|') + alert->informativeText();
        alert->buttons().first()->click();
        return text;
    }
    static void setChecked(QAbstractButton *box, bool on)
    {
        if (box->isChecked() != on)
            box->click();
    }
    // Continue in the sheet with the choices the command line is given, and
    // the damaged font left as it is in the resolution window, as the command
    // line leaves it. naming: 0 PostScript name, 1 family name, 2 neither.
    bool organizeFromSheet(const QString &source, const QString &library, bool copy, int naming = 1,
        std::array<bool, 3> levels = { true, true, true }, bool showLibrary = false)
    {
        QVOrganizeOptionsWindowController *sheet = openSheet();
        if (!sheet)
            return false;
        sheet->chooseSourceFolder(source);
        sheet->chooseLibraryFolder(library);
        sheet->fileCopyMoveMatrix()->button(copy ? 0 : 1)->click();
        sheet->fileNameMatrix()->button(naming)->click();
        setChecked(sheet->foundryCheckbox(), levels[0]);
        setChecked(sheet->createAlphaFoldersButton(), levels[1]);
        setChecked(sheet->familyNameCheckbox(), levels[2]);
        setChecked(sheet->showLibraryCheckbox(), showLibrary);
        sheet->continueButton()->click();
        if (!waitFor([&] { return app->diagnosisActionWindow() && !app->isBusy(); }, 120000))
            return false;
        app->diagnosisActionWindow()->ignoreIssuesButton()->click();
        return true;
    }

    QVTestHome home;
    std::unique_ptr<QVAppDelegate> app;
};

TEST_F(OrganizeRunTest, TheSheetKeepsItsChoicesAndRefusesLockedFoldersAndAMissingLibrary)
{
    const QString source = home.path() + QStringLiteral("/Locked Source"),
                  locked = home.path() + QStringLiteral("/Locked Library"),
                  library = home.path() + QStringLiteral("/Library");
    ASSERT_FALSE(copyFont(kDejaVuSans, source).isEmpty());
    QDir().mkpath(locked);
    QDir().mkpath(library);
    ASSERT_TRUE(lockFolder(source, true) && lockFolder(locked, true));
    QSignalSpy scans(app.get(), &QVAppDelegate::scanStarted);

    QVOrganizeOptionsWindowController *sheet = openSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->sourceFolderButton()->text(), QVStringTable::text("organize.selectSource.message"));
    EXPECT_FALSE(sheet->sourcePathRevealButton()->isEnabled());
    EXPECT_FALSE(sheet->continueButton()->isEnabled());
    sheet->continueButtonAction();
    EXPECT_EQ(answer(sheet, QStringLiteral("missingLocation")),
        QVStringTable::text("organize.missingLocation.title") + QLatin1Char('|')
            + QVStringTable::text("organize.missingLocation.message"));

    // A locked source may be copied from, not moved from.
    sheet->chooseSourceFolder(source);
    EXPECT_EQ(sheet->sourceFolderButton()->text(), QStringLiteral("  ") + source);
    EXPECT_TRUE(sheet->sourcePathRevealButton()->isEnabled());
    sheet->fileCopyMoveMatrix()->button(1)->click();
    EXPECT_EQ(answer(sheet, QStringLiteral("lockedSource")),
        QStringLiteral("Source Files Locked|The source folder \"%1\" is locked and the files cannot be "
                       "moved. Use the Copy option instead.")
            .arg(source));
    EXPECT_FALSE(QVSettings().copyFontFiles());
    sheet->chooseLibraryFolder(locked);
    EXPECT_TRUE(answer(sheet, QStringLiteral("lockedDestination")).startsWith("Destination Folder Locked|"));
    EXPECT_FALSE(sheet->continueButton()->isEnabled());
    sheet->chooseLibraryFolder(library);
    EXPECT_TRUE(sheet->continueButton()->isEnabled());
    EXPECT_TRUE(sheet->destinationPathRevealButton()->isEnabled());
    sheet->continueButton()->click();
    EXPECT_TRUE(answer(sheet, QStringLiteral("lockedSource")).startsWith("Source Files Locked|"));
    EXPECT_TRUE(sheet->isVisible());

    // Every choice is stored at once and outlives a cancel; organizing does not.
    sheet->fileNameMatrix()->button(0)->click();
    setChecked(sheet->foundryCheckbox(), true);
    setChecked(sheet->createAlphaFoldersButton(), false);
    setChecked(sheet->familyNameCheckbox(), true);
    setChecked(sheet->showLibraryCheckbox(), true);
    QVSettings().setOrganizeFonts(true);
    sheet->doneButton()->click();
    EXPECT_TRUE(waitFor([&] { return app->organizeOptionsWindowController() == nullptr; }));
    QVSettings settings;
    EXPECT_FALSE(settings.organizeFonts());
    EXPECT_TRUE(settings.usePostscriptNameForFonts() && !settings.useFamilyNameForFonts());
    EXPECT_TRUE(settings.createFoundryFolders() && !settings.createAlphabetFolders());
    EXPECT_TRUE(settings.createFamilyFolders() && settings.showLibraryFolder());
    EXPECT_TRUE(scans.isEmpty());

    // The scan view's button opens it again, as it was left, without a library.
    app->defaultScanViewController()->organizeButton()->click();
    sheet = app->organizeOptionsWindowController();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->fileCopyMoveMatrix()->checkedId(), 1);
    EXPECT_EQ(sheet->fileNameMatrix()->checkedId(), 0);
    EXPECT_FALSE(sheet->continueButton()->isEnabled());
    sheet->reject();
    EXPECT_TRUE(lockFolder(source, false) && lockFolder(locked, false));
}

TEST_F(OrganizeRunTest, CopyAndMoveRunsFromTheSheetLeaveWhatTheCommandLineLeaves)
{
    const QString pristine = home.path() + QStringLiteral("/pristine");
    ASSERT_TRUE(makeMixedFolder(pristine, home.path() + QStringLiteral("/work")));
    // Each naming and each folder level once, against the same choices given
    // to the command line.
    struct Choice {
        bool copy;
        int naming;
        std::array<bool, 3> levels;
    };
    static const char *const names[] = { "postscript", "family", "file" };
    for (const Choice &choice : { Choice { true, 1, { true, true, true } },
             Choice { false, 0, { true, false, true } }, Choice { true, 2, { false, true, false } } }) {
        const bool copy = choice.copy;
        const QString run = home.path()
            + QStringLiteral("/%1-%2-%3%4%5")
                  .arg(copy ? "copy" : "move", names[choice.naming])
                  .arg(int(choice.levels[0]))
                  .arg(int(choice.levels[1]))
                  .arg(int(choice.levels[2]));
        SCOPED_TRACE(qPrintable(run));
        const QString cliSource = run + QStringLiteral("/CLI Source"),
                      cliLibrary = run + QStringLiteral("/CLI Library"),
                      appSource = run + QStringLiteral("/App Source"),
                      appLibrary = run + QStringLiteral("/App Library");
        QDir().mkpath(cliLibrary);
        QDir().mkpath(appLibrary);
        for (const QString &source : { cliSource, appSource })
            ASSERT_EQ(runTool(QStringLiteral("cp"), { QStringLiteral("-a"), pristine, source }).exitCode, 0);
        const QStringList sourceBefore = tree(appSource);
        const CliRun cli = runCli(home,
            { QStringLiteral("organize"), QStringLiteral("--library"), cliLibrary,
                copy ? QStringLiteral("--copy") : QStringLiteral("--move"), QStringLiteral("--name"),
                QLatin1String(names[choice.naming]),
                choice.levels[0] ? QStringLiteral("--foundry-folders")
                                 : QStringLiteral("--no-foundry-folders"),
                choice.levels[1] ? QStringLiteral("--letter-folders") : QStringLiteral("--no-letter-folders"),
                choice.levels[2] ? QStringLiteral("--family-folders") : QStringLiteral("--no-family-folders"),
                cliSource });
        ASSERT_EQ(cli.exitCode, 1) << qPrintable(cli.out + cli.err); // the damaged font
        const QStringList expected = tree(cliLibrary);
        ASSERT_GE(expected.size(), 9) << qPrintable(cli.out);

        // The last run also saves its report and shows the library at the end.
        const bool atEnd = choice.naming == 2;
        QVSettings().setAutomaticallySaveReports(atEnd);
        QVSettings().setShowLibraryFolder(atEnd);
        const auto reportCount = [] { return QVReportStore().reportFilesDataArray().size(); };
        const qsizetype reportsBefore = reportCount();
        QVFakeFileManager fileManager;
        QSignalSpy finished(app.get(), &QVAppDelegate::organizeFinished);
        ASSERT_TRUE(organizeFromSheet(appSource, appLibrary, copy, choice.naming, choice.levels, atEnd));
        EXPECT_EQ(app->organizeOutputFolderURL(), appLibrary);
        ASSERT_TRUE(waitFor([&] { return app->organizeProgressWindow() != nullptr; }, 60000));
        QVOrganizeProgressWindow *progress = app->organizeProgressWindow();
        EXPECT_TRUE(progress->isVisible());
        EXPECT_EQ(progress->parentWidget(), app->mainWindow());
        EXPECT_FALSE(app->isUserInterfaceEnabled());
        EXPECT_FALSE(app->mainWindow()->organizeFontsMenuItem()->isEnabled());
        // A late "controls back" from the diagnosis does not end the run's lock-out.
        Q_EMIT app->diagnosisViewController()->viewState()->userInterfaceEnabled(true);
        EXPECT_FALSE(app->isUserInterfaceEnabled());
        EXPECT_FALSE(app->mainWindow()->scanFontsNowMenuItem()->isEnabled());
        ASSERT_TRUE(waitFor([&] { return !finished.isEmpty(); }, 120000));

        EXPECT_EQ(app->organizeProgressWindow(), nullptr);
        EXPECT_TRUE(app->isUserInterfaceEnabled());
        EXPECT_FALSE(app->isOrganizingFonts());
        EXPECT_FALSE(QVSettings().organizeFonts());
        EXPECT_EQ(QVSettings().organizeFontsFolder(), appLibrary);
        EXPECT_EQ(answer(app->mainWindow(), QStringLiteral("organizeFonts")),
            QStringLiteral("Organize Fonts Completed|The fonts were successfully organized."));

        if (atEnd) {
            EXPECT_TRUE(waitFor([&] { return reportCount() > reportsBefore; }));
        }
        EXPECT_EQ(reportCount() - reportsBefore, atEnd ? 1 : 0);
        if (fileManager.isRegistered()) {
            if (atEnd) {
                EXPECT_TRUE(waitFor([&] { return !fileManager.shown.isEmpty(); }));
            }
            EXPECT_EQ(fileManager.shown,
                atEnd ? QStringList { QUrl::fromLocalFile(appLibrary).toString(QUrl::FullyEncoded) }
                      : QStringList());
        }

        const QStringList actual = tree(appLibrary);
        EXPECT_EQ(actual, expected) << qPrintable(actual.join('\n') + "\n---\n" + expected.join('\n'));
        EXPECT_EQ(tree(appSource), tree(cliSource));
        if (copy)
            EXPECT_EQ(tree(appSource), sourceBefore);
        else
            EXPECT_LT(tree(appSource).size(), sourceBefore.size());
    }
}

TEST_F(OrganizeRunTest, ACancelledMoveLeavesEveryFontWholeInItsSourceOrInTheLibrary)
{
    const QString source = home.path() + QStringLiteral("/Source"),
                  library = home.path() + QStringLiteral("/Library");
    QDir().mkpath(library);
    QStringList fonts;
    for (const QString &folder : { QStringLiteral("/usr/share/fonts/truetype/dejavu"),
             QStringLiteral("/usr/share/fonts/opentype/urw-base35") }) {
        for (const QString &name :
            QDir(folder).entryList({ QStringLiteral("*.ttf"), QStringLiteral("*.otf") }))
            fonts << folder + QLatin1Char('/') + name;
    }
    ASSERT_GE(fonts.size(), 50);
    for (int set = 0; set < 3; ++set) {
        for (const QString &font : std::as_const(fonts))
            ASSERT_FALSE(copyFont(font, source + QStringLiteral("/Set %1").arg(set)).isEmpty());
    }
    // What each file holds, wherever it is.
    auto contents = [](const QStringList &lines) {
        QStringList hashes;
        for (const QString &line : lines)
            hashes << line.mid(line.lastIndexOf(QStringLiteral(" data ")));
        hashes.sort();
        return hashes;
    };
    const QStringList before = contents(tree(source));

    QVOrganizeOptionsWindowController *sheet = openSheet();
    ASSERT_NE(sheet, nullptr);
    sheet->chooseSourceFolder(source);
    sheet->chooseLibraryFolder(library);
    sheet->fileCopyMoveMatrix()->button(1)->click();
    setChecked(sheet->showLibraryCheckbox(), false);
    QSignalSpy finished(app.get(), &QVAppDelegate::organizeFinished);
    sheet->continueButton()->click();
    ASSERT_TRUE(waitFor([&] { return app->diagnosisActionWindow() && !app->isBusy(); }, 300000));
    app->diagnosisActionWindow()->ignoreIssuesButton()->click();
    ASSERT_TRUE(waitFor([&] { return app->organizeProgressWindow() != nullptr; }, 60000));
    app->organizeProgressWindow()->cancelButton()->click();
    ASSERT_NE(app->fontOrganizer(), nullptr);
    EXPECT_TRUE(app->fontOrganizer()->doCancel());
    EXPECT_FALSE(app->organizeProgressWindow()->cancelButton()->isEnabled());
    EXPECT_TRUE(waitFor([&] {
        return app->organizeProgressWindow()
            && app->organizeProgressWindow()->progressLabel()->text()
            == QVStringTable::text("organize.cancel.message");
    }));
    ASSERT_TRUE(waitFor([&] { return !finished.isEmpty(); }, 120000));
    EXPECT_TRUE(app->isUserInterfaceEnabled());
    EXPECT_EQ(QVAlertSheet::find(app->mainWindow(), QStringLiteral("organizeFonts")) == nullptr,
        !QDir(library).isEmpty()); // "no fonts added" only when none was

    const QStringList left = tree(source), placed = tree(library);
    EXPECT_GT(left.size(), 0) << "the walk ended before the cancel";
    EXPECT_EQ(contents(left + placed), before);
}

TEST_F(OrganizeRunTest, OrganizingTheSameSourceTwiceIntoOneLibraryLosesAndOverwritesNothing)
{
    const QString source = home.path() + QStringLiteral("/Source"),
                  library = home.path() + QStringLiteral("/Library");
    ASSERT_TRUE(makeMixedFolder(source, home.path() + QStringLiteral("/work")));
    QDir().mkpath(library);
    QStringList runs[2];
    for (QStringList &placed : runs) {
        QSignalSpy finished(app.get(), &QVAppDelegate::organizeFinished);
        ASSERT_TRUE(organizeFromSheet(source, library, true));
        ASSERT_TRUE(waitFor([&] { return !finished.isEmpty(); }, 120000));
        answer(app->mainWindow(), QStringLiteral("organizeFonts"));
        placed = tree(library);
    }
    for (const QString &line : std::as_const(runs[0]))
        EXPECT_TRUE(runs[1].contains(line)) << qPrintable(line);
    // Every font arrives again under a numbered name, except the PostScript
    // outline: the one already there serves both copies of its bitmap suitcase.
    EXPECT_EQ(runs[1].size(), 2 * runs[0].size() - 1) << qPrintable(runs[1].join('\n'));
    EXPECT_EQ(runs[1].filter(QStringLiteral("/C059Rom ")).size(), 1);
}

} // namespace
