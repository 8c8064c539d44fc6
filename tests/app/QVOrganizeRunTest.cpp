// Organizing from the application on real fixtures: the organize sheet keeps
// its choices and refuses locked folders and a missing library; after the
// scan and the resolution window, the organizer fills the library as the
// command line does with the same choices, behind its progress sheet, and
// gives the user interface back.
#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVMainWindow.h"
#include "app/QVOrganizeOptionsWindowController.h"
#include "app/QVOrganizeProgressWindow.h"
#include "app/QVScanRootViewController.h"
#include "organizer/QVFontOrganizer.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
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
    // Continue in the sheet with the choices the command line is given
    // (family names, every folder level), and the damaged font left as it is
    // in the resolution window, as the command line leaves it.
    bool organizeFromSheet(const QString &source, const QString &library, bool copy)
    {
        QVOrganizeOptionsWindowController *sheet = openSheet();
        if (!sheet)
            return false;
        sheet->chooseSourceFolder(source);
        sheet->chooseLibraryFolder(library);
        sheet->fileCopyMoveMatrix()->button(copy ? 0 : 1)->click();
        sheet->fileNameMatrix()->button(1)->click();
        for (QCheckBox *box :
            { sheet->foundryCheckbox(), sheet->createAlphaFoldersButton(), sheet->familyNameCheckbox() })
            setChecked(box, true);
        setChecked(sheet->showLibraryCheckbox(), false);
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
    for (const bool copy : { true, false }) {
        SCOPED_TRACE(copy ? "copy" : "move");
        const QString run = home.path() + (copy ? QStringLiteral("/copy") : QStringLiteral("/move"));
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
                QStringLiteral("family"), QStringLiteral("--foundry-folders"),
                QStringLiteral("--letter-folders"), QStringLiteral("--family-folders"), cliSource });
        ASSERT_EQ(cli.exitCode, 1) << qPrintable(cli.out + cli.err); // the damaged font
        const QStringList expected = tree(cliLibrary);
        ASSERT_GE(expected.size(), 9) << qPrintable(cli.out);

        QSignalSpy finished(app.get(), &QVAppDelegate::organizeFinished);
        ASSERT_TRUE(organizeFromSheet(appSource, appLibrary, copy));
        EXPECT_EQ(app->organizeOutputFolderURL(), appLibrary);
        ASSERT_TRUE(waitFor([&] { return app->organizeProgressWindow() != nullptr; }, 60000));
        QVOrganizeProgressWindow *progress = app->organizeProgressWindow();
        EXPECT_TRUE(progress->isVisible());
        EXPECT_EQ(progress->parentWidget(), app->mainWindow());
        EXPECT_FALSE(app->isUserInterfaceEnabled());
        EXPECT_FALSE(app->mainWindow()->organizeFontsMenuItem()->isEnabled());
        ASSERT_TRUE(waitFor([&] { return !finished.isEmpty(); }, 120000));

        EXPECT_EQ(app->organizeProgressWindow(), nullptr);
        EXPECT_TRUE(app->isUserInterfaceEnabled());
        EXPECT_FALSE(app->isOrganizingFonts());
        EXPECT_FALSE(QVSettings().organizeFonts());
        EXPECT_EQ(QVSettings().organizeFontsFolder(), appLibrary);
        EXPECT_EQ(answer(app->mainWindow(), QStringLiteral("organizeFonts")),
            QStringLiteral("Organize Fonts Completed|The fonts were successfully organized."));

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
