// The issue resolution window on real fixtures: what it offers and explains,
// what it leaves alone, that resolving everything leaves the folder and the
// quarantine as the command line does, refusals, and a long list.
#include "app/QVDiagnosisActionWindow.h"

#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVMainWindow.h"
#include "app/QVPopover.h"
#include "app/QVProblemFontModel.h"
#include "settings/QVSettings.h"
#include "store/QVPropertyList.h"
#include "support/QVFakeFileManager.h"
#include "support/QVFixtures.h"
#include "support/QVStallWatch.h"
#include "support/QVTestHome.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStandardPaths>
#include <QTimer>
#include <QToolButton>
#include <QTreeView>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

using namespace QVFixtures;

namespace
{

const QString kNimbusOtf = QStringLiteral("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf");
const QString kNimbusT1 = QStringLiteral("/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1");

// A damaged font, a misnamed outline beside its invisible bitmap suitcase, an
// orphaned bitmap suitcase and a duplicate pair.
bool makeMixedFolder(const QString &folder, const QString &work)
{
    QByteArray damaged = readFile(kDejaVuSans);
    damaged.replace(damaged.indexOf("kern") + 4, 4, QByteArray(4, '\0'));
    const QString suitcase = folder + QStringLiteral("/Type1/Nimbus Sans");
    return writeFile(folder + QStringLiteral("/Damaged/Sans.ttf"), damaged)
        && !makeLwfn(folder + QStringLiteral("/Type1"), QStringLiteral("Nimbus Wrong"), kNimbusT1).isEmpty()
        && makeSuitcase(
            suitcase, withPostScriptName(ufondFork(work, { { kNimbusOtf, 10 } }), "NimbusSans-Regular"))
        && setFinderInfo(suitcase, "FFILDMOV", 0x4000)
        && makeSuitcase(
            folder + QStringLiteral("/Orphans/C059"), withPostScriptName(c059Fork(work), "C059-Roman"))
        && !copyFont(kDejaVuSerif, folder + QStringLiteral("/A")).isEmpty()
        && !copyFont(kDejaVuSerif, folder + QStringLiteral("/B")).isEmpty();
}

// Every file below the folder and in the quarantine with its forks, then the quarantine's records.
QStringList snapshot(const QString &fonts, const QString &dataHome)
{
    const QString quarantine = dataHome + QStringLiteral("/Quorvel/Quarantine");
    QStringList lines;
    for (const QString &root : { fonts, quarantine }) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const bool metadata = it.fileName().startsWith(QLatin1String("._"))
                || it.fileName().startsWith(QLatin1String("dataSource"));
            lines << (root == fonts ? QStringLiteral("folder") : QStringLiteral("quarantine"))
                    + path.mid(root.size()) + (metadata ? QString() : QLatin1Char(' ') + forkHashes(path));
        }
    }
    lines.sort();
    for (const QVariant &record :
        QVPropertyList::readFile(quarantine + QStringLiteral("/dataSource")).toList())
        lines << QString::fromUtf8(
            QJsonDocument(QJsonObject::fromVariantMap(record.toMap())).toJson(QJsonDocument::Compact));
    return lines;
}

class ActionWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings::unregisterUserPreferences();
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        ASSERT_TRUE(app->launch());
        // Reports of the runs are written but not shown (the report window's
        // own tests run on a display); after the launch, which may migrate
        // the preferences.
        QVSettings().setShowReports(false);
    }
    void TearDown() override
    {
        if (QVDiagnosisActionWindow *window = app->diagnosisActionWindow())
            window->ignoreIssuesButton()->click();
        app.reset();
    }
    QVDiagnosisActionWindow *diagnose(const QString &folder)
    {
        EXPECT_TRUE(app->performDragOperation({ folder }));
        EXPECT_TRUE(waitFor([this] { return app->diagnosisActionWindow() && !app->isBusy(); }, 120000));
        return app->diagnosisActionWindow();
    }
    // Font column and recommendation of every row.
    static QStringList rows(const QVDiagnosisActionWindow *window)
    {
        QStringList texts;
        const QVProblemFontModel *model = window->model();
        for (int row = 0; row < model->rowCount(); ++row)
            texts << model->index(row, 0).data().toString() + QStringLiteral(": ")
                    + model->index(row, 2).data().toString();
        return texts;
    }
    static int rowOf(const QVDiagnosisActionWindow *window, const QString &font)
    {
        for (int row = 0; row < window->model()->rowCount(); ++row) {
            if (window->model()->index(row, 0).data().toString() == font)
                return row;
        }
        return -1;
    }
    // Waits until the window has closed and gone.
    static bool closed(QPointer<QVDiagnosisActionWindow> window)
    {
        return waitFor(
            [&] {
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                return window.isNull();
            },
            300000);
    }

    QVTestHome home;
    std::unique_ptr<QVAppDelegate> app;
};

TEST_F(ActionWindowTest, ResolvingEveryRowLeavesWhatTheCommandLineLeaves)
{
    const QString pristine = home.path() + QStringLiteral("/pristine"),
                  fonts = home.path() + QStringLiteral("/Fonts");
    ASSERT_TRUE(makeMixedFolder(pristine, home.path() + QStringLiteral("/work")));
    auto fresh = [&] {
        runTool(QStringLiteral("rm"), { QStringLiteral("-rf"), fonts });
        return runTool(QStringLiteral("cp"), { QStringLiteral("-a"), pristine, fonts }).exitCode == 0;
    };
    // The command line in a home of its own.
    const QString cliHome = home.path() + QStringLiteral("/cli");
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), cliHome);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), cliHome + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), cliHome + QStringLiteral("/.local/share"));
    ASSERT_TRUE(fresh());
    const ToolRun cli = runTool(QStringLiteral(QV_CLI_PATH),
        { QStringLiteral("diagnose"), QStringLiteral("--resolve"), fonts }, QString(), QByteArray(), env);
    ASSERT_EQ(cli.exitCode, 1) << cli.err.constData();
    const QStringList expected = snapshot(fonts, cliHome + QStringLiteral("/.local/share"));
    ASSERT_TRUE(fresh());

    QPointer<QVDiagnosisActionWindow> window = diagnose(fonts);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->iconName(), QStringLiteral("mac-icon-caution"));
    // Duplicates first; the misnamed outline and the invisible suitcase are repaired in place.
    QStringList shown = rows(window);
    EXPECT_EQ(shown.first(), QStringLiteral("DejaVu Serif: Quarantine"));
    shown.sort();
    EXPECT_EQ(shown,
        QStringList({ QStringLiteral("C059 (Bold): Quarantine"), QStringLiteral("C059: Quarantine"),
            QStringLiteral("DejaVu Sans: Quarantine"), QStringLiteral("DejaVu Serif: Quarantine"),
            QStringLiteral("Nimbus Sans: Repair"), QStringLiteral("Nimbus Wrong: Repair") }))
        << qPrintable(shown.join('\n'));
    window->resolveIssuesButton()->click();
    EXPECT_FALSE(window->resolveIssuesButton()->isEnabled());
    ASSERT_TRUE(closed(window));

    const QStringList actual = snapshot(fonts, home.dataHome());
    EXPECT_EQ(actual, expected) << qPrintable(actual.join('\n') + "\n---\n" + expected.join('\n'));
    EXPECT_TRUE(QFileInfo::exists(fonts + QStringLiteral("/Type1/NimbuSanReg")));
    EXPECT_EQ(actual.filter(QStringLiteral("\"reason\"")).size(), 3) << qPrintable(actual.join('\n'));
}

TEST_F(ActionWindowTest, RowsExpandExplainAndRevealAndAnUncheckedFontStays)
{
    const QString fonts = home.path() + QStringLiteral("/Fonts");
    ASSERT_TRUE(makeMixedFolder(fonts, home.path() + QStringLiteral("/work")));
    QVDiagnosisActionWindow *window = diagnose(fonts);
    ASSERT_TRUE(window);
    QTreeView *table = window->tableView();

    // A duplicate row: its defect, "Duplicates:" with the other copy, the texts of both buttons.
    const int duplicate = rowOf(window, QStringLiteral("DejaVu Serif"));
    ASSERT_GE(duplicate, 0);
    EXPECT_EQ(
        window->model()->index(duplicate, 1).data().toString(), QStringLiteral("Found Duplicate Fonts"));
    window->disclosureAction(duplicate, true);
    EXPECT_EQ(window->model()->lines(duplicate),
        QStringList({ QStringLiteral("Found Duplicate Fonts"), QStringLiteral("Duplicates:") }));
    QWidget *line = window->expandedLine(duplicate, 1);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->findChild<QLabel *>(QStringLiteral("label1"))->text(), QStringLiteral("Duplicates:"));
    const QList<QAction *> copies
        = line->findChild<QToolButton *>(QStringLiteral("popup"))->menu()->actions();
    ASSERT_EQ(copies.size(), 1);
    EXPECT_TRUE(copies.first()->text().startsWith(QStringLiteral("DejaVu Serif   ") + fonts));
    auto *caution = line->findChild<QToolButton *>(QStringLiteral("iconView1"));
    caution->click();
    ASSERT_TRUE(window->popover()->isVisible());
    EXPECT_EQ(window->popover()->popoverTitleLabel()->text(), QStringLiteral("Duplicates:"));
    const QString explanation = window->popover()->popoverInfoLabel()->text();
    EXPECT_TRUE(
        explanation.contains(QStringLiteral("<b>Diagnosis:</b> A duplicate font matches another font's "
                                            "name, type, and style.")));
    EXPECT_TRUE(explanation.contains(
        QStringLiteral("<b>Recommendation:</b> The duplicate fonts should be Quaratined.")));
    caution->click();
    EXPECT_FALSE(window->popover()->isVisible()) << "its own button closes it";
    window->expandedLine(duplicate, 0)->findChild<QToolButton *>(QStringLiteral("info"))->click();
    EXPECT_TRUE(window->popover()->popoverInfoLabel()->text().contains(
        QStringLiteral("<b>Style:</b> Plain</p>"))); // a TrueType font has a style line
    window->disclosureAction(duplicate, false);
    EXPECT_FALSE(window->popover()->isVisible());
    EXPECT_TRUE(window->expandedRowsArray().isEmpty());

    // The outline's one line is its bad name, to be repaired.
    const int outline = rowOf(window, QStringLiteral("Nimbus Wrong"));
    window->disclosureAction(outline, true);
    EXPECT_EQ(window->model()->lines(outline), QStringList { QStringLiteral("Bad File Name") });
    window->expandedLine(outline, 0)->findChild<QToolButton *>(QStringLiteral("iconView0"))->click();
    EXPECT_TRUE(window->popover()->popoverInfoLabel()->text().endsWith(
        QStringLiteral("<b>Recommendation:</b> Quorvel will repair this.</p></div>")));
    window->expandedLine(outline, 0)->findChild<QToolButton *>(QStringLiteral("info"))->click();
    EXPECT_FALSE(window->popover()->popoverInfoLabel()->text().contains(QStringLiteral("Style:")));

    // A double click shows the row's file in the file manager.
    if (QVFakeFileManager fileManager; fileManager.isRegistered()) {
        table->setCurrentIndex(window->model()->index(outline, 1));
        Q_EMIT table->doubleClicked(table->currentIndex());
        EXPECT_TRUE(waitFor([&] { return !fileManager.shown.isEmpty(); }));
        EXPECT_EQ(fileManager.shown,
            QStringList { QUrl::fromLocalFile(fonts + "/Type1/Nimbus Wrong").toString(QUrl::FullyEncoded) });
    }

    // Two rows selected: one box click sets both; space turns them back; the last box alone.
    const int damaged = rowOf(window, QStringLiteral("DejaVu Sans"));
    table->setCurrentIndex(window->model()->index(damaged, 0));
    table->selectionModel()->select(
        window->model()->index(outline, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    window->model()->setData(window->model()->index(damaged, 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_FALSE(window->model()->isChecked(damaged) || window->model()->isChecked(outline));
    QKeyEvent space(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
    QApplication::sendEvent(table, &space);
    EXPECT_TRUE(window->model()->isChecked(damaged) && window->model()->isChecked(outline));
    table->selectionModel()->clearSelection();
    window->model()->setData(window->model()->index(damaged, 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_TRUE(window->model()->isChecked(outline));
    EXPECT_EQ(window->model()->index(damaged, 0).data(Qt::AccessibleTextRole).toString(),
        QStringLiteral("DejaVu Sans, File Structure Problems, Quarantine, not checked"));

    const QByteArray before = readFile(fonts + QStringLiteral("/Damaged/Sans.ttf"));
    QPointer<QVDiagnosisActionWindow> open = window;
    window->resolveIssuesButton()->click();
    ASSERT_TRUE(closed(open));
    EXPECT_EQ(readFile(fonts + QStringLiteral("/Damaged/Sans.ttf")), before);
    EXPECT_FALSE(QFileInfo::exists(fonts + QStringLiteral("/Orphans/C059"))
        && QFileInfo::exists(fonts + "/B/DejaVuSerif.ttf")
        && QFileInfo::exists(fonts + "/A/DejaVuSerif.ttf"));
    EXPECT_TRUE(QFileInfo::exists(fonts + QStringLiteral("/Type1/NimbuSanReg")));
}

TEST(ActionWindowTexts, ResourceErrorsUnknownDefectsAndHeadings)
{
    const QString resource
        = QVDiagnosisActionWindow::getCautionText(QStringLiteral("File Resource Error (-193)"));
    EXPECT_TRUE(
        resource.startsWith(QStringLiteral("Error Desciption: Resource file not found\n\nDiagnosis: ")))
        << qPrintable(resource);
    EXPECT_TRUE(QVDiagnosisActionWindow::getCautionText(QStringLiteral("File Error (-36)"))
                    .endsWith(QStringLiteral("because it could not be opened for examination.")));
    EXPECT_TRUE(QVDiagnosisActionWindow::getCautionText(QStringLiteral("Something New")).isEmpty());
    EXPECT_TRUE(
        QVDiagnosisActionWindow::getCautionText(QStringLiteral("Glyph Cannot Be Loaded (12 and 3 more)"))
            .endsWith(QStringLiteral("since some of its glyphs cannot be drawn.")));
    // Each heading bold once, at its first occurrence.
    const QString styled = QVDiagnosisActionWindow::styledText(
        QStringLiteral("Location: a <b>\nLocation: b"), QVDiagnosisActionWindow::infoHeadings());
    EXPECT_EQ(styled.count(QStringLiteral("<b>")), 1);
    EXPECT_TRUE(styled.contains(QStringLiteral("<b>Location:</b> a &lt;b&gt;")));
}

// A damaged font in a folder the user may not change: the move is refused, the error dialog says so and the
// font stays. As root the scenario runs again as nobody, in a process of its own.
TEST_F(ActionWindowTest, ARefusedMoveShowsTheErrorDialogAndLeavesTheFont)
{
    if (QStandardPaths::findExecutable(QStringLiteral("pkexec")).isEmpty())
        GTEST_SKIP() << "no pkexec here";
    const QString given = qEnvironmentVariable("QV_REFUSAL_FONTS");
    if (::geteuid() == 0 && given.isEmpty()) {
        const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
        if (setpriv.isEmpty())
            GTEST_SKIP() << "no setpriv to run as an ordinary user";
        QFile::setPermissions(home.path(), QFileDevice::Permissions(0x7755));
        const QString fonts = home.path() + QStringLiteral("/fonts");
        ASSERT_TRUE(writeFile(fonts + QStringLiteral("/Broken.otf"), "not a font"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QV_REFUSAL_FONTS"), fonts);
        env.insert(QStringLiteral("TMPDIR"), QStringLiteral("/tmp"));
        const ToolRun child = runTool(setpriv,
            { QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                QStringLiteral("--clear-groups"), QCoreApplication::applicationFilePath(),
                QStringLiteral(
                    "--gtest_filter=ActionWindowTest.ARefusedMoveShowsTheErrorDialogAndLeavesTheFont") },
            QString(), QByteArray(), env);
        EXPECT_EQ(child.exitCode, 0) << child.out.constData() << child.err.constData();
        EXPECT_TRUE(child.out.contains("[  PASSED  ] 1 test")) << child.out.constData();
        EXPECT_EQ(readFile(fonts + QStringLiteral("/Broken.otf")), QByteArray("not a font"));
        return;
    }
    QString fonts = given;
    if (fonts.isEmpty()) {
        fonts = home.path() + QStringLiteral("/fonts");
        ASSERT_TRUE(writeFile(fonts + QStringLiteral("/Broken.otf"), "not a font"));
        QFile::setPermissions(fonts, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    }
    QPointer<QVDiagnosisActionWindow> window = diagnose(fonts);
    ASSERT_TRUE(window);
    ASSERT_EQ(rows(window), QStringList { QStringLiteral("Broken.otf: Quarantine") });
    window->resolveIssuesButton()->click();
    QMessageBox *dialog = nullptr;
    ASSERT_TRUE(waitFor(
        [&] { return window && (dialog = QVAlertSheet::find(window, QStringLiteral("presentErrorDialog"))); },
        120000));
    EXPECT_EQ(dialog->text(), QStringLiteral("A font could not be moved to the quarantine"));
    EXPECT_TRUE(dialog->informativeText().contains(QStringLiteral("Not Authorized"))
        || dialog->informativeText().contains(QStringLiteral("Authorization Error")))
        << qPrintable(dialog->informativeText());
    EXPECT_EQ(window->model()->index(0, 2).data().toString(), QStringLiteral("Quarantine failed"));
    EXPECT_TRUE(window->isVisible()) << "the window waits for the dialog";
    dialog->checkBox()->setChecked(true);
    dialog->buttons().first()->click();
    EXPECT_TRUE(window->dontShowAgain());
    ASSERT_TRUE(closed(window));
    if (given.isEmpty())
        QFile::setPermissions(
            fonts, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    EXPECT_EQ(readFile(fonts + QStringLiteral("/Broken.otf")), QByteArray("not a font"));
    EXPECT_TRUE(QVPropertyList::readFile(home.dataHome() + QStringLiteral("/Quorvel/Quarantine/dataSource"))
                    .toList()
                    .isEmpty());
}

TEST_F(ActionWindowTest, FiveThousandRowsOpenScrollCancelAndResolveWithoutStalling)
{
    constexpr int kRows = 5000;
    QList<QVProblemFontPtr> entries;
    for (int i = 0; i < kRows; ++i) {
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile
            = std::make_shared<QVFontFile>(home.writeFile(QStringLiteral("many/F%1.otf").arg(i), "x"));
        entry->fontFile->fontFileType = 1;
        entry->fontStatus = std::make_shared<QVStatus>();
        entry->fontStatus->fontType = 5;
        entry->fontStatus->fontName = QFileInfo(entry->fontFile->URL).fileName();
        entry->fontStatus->fontURL = entry->fontFile->URL;
        entry->fontStatus->setFontError(0);
        entry->fontStatus->setFontErrorInfo(QStringLiteral("Bad Table Data"));
        entry->fontFile->fontStatusArray.append(entry->fontStatus);
        entries << entry;
    }
    const QString quarantine = home.dataHome() + QStringLiteral("/Quorvel/Quarantine");
    auto inQuarantine
        = [&] { return QDir(quarantine).entryList({ QStringLiteral("F*") }, QDir::Files).size(); };

    QElapsedTimer opening;
    opening.start();
    QPointer<QVDiagnosisActionWindow> window
        = new QVDiagnosisActionWindow(app->dataManager(), app->mainWindow());
    window->setProblemFontsArray(entries);
    window->show();
    QApplication::processEvents();
    const qint64 openMs = opening.elapsed();
    qint64 scrollMs = 0;
    QScrollBar *bar = window->tableView()->verticalScrollBar();
    for (int value = 0; value <= bar->maximum(); value += bar->pageStep() * 8) {
        QElapsedTimer step;
        step.start();
        bar->setValue(value);
        window->tableView()->viewport()->repaint();
        scrollMs = qMax(scrollMs, step.elapsed());
    }

    // Cancelled through its sheet once the first font has moved: the rest stay, listed and checked.
    QVStallWatch cancelling;
    window->resolveIssuesButton()->click();
    ASSERT_NE(window->progressWindow(), nullptr);
    ASSERT_TRUE(waitFor([&] { return inQuarantine() > 0; }, 120000));
    window->progressWindow()->findChild<QPushButton *>()->click();
    ASSERT_TRUE(waitFor([&] { return !window->isResolving(); }, 120000));
    const int moved = int(inQuarantine());
    EXPECT_TRUE(moved > 0 && moved < kRows) << moved;
    EXPECT_EQ(window->model()->rowCount(), kRows - moved);
    EXPECT_EQ(window->statusLabel()->text(),
        QStringLiteral(
            "Stopped after the font in hand: 0 repaired, %1 moved to the quarantine. The fonts still "
            "listed were left as they are.")
            .arg(moved));
    EXPECT_TRUE(window->resolveIssuesButton()->isEnabled());

    // The rest; closing meanwhile warns and, refused, changes nothing.
    QVStallWatch resolving;
    window->resolveIssuesButton()->click();
    window->close();
    QMessageBox *warning = QVAlertSheet::find(window, QStringLiteral("windowShouldClose"));
    ASSERT_NE(warning, nullptr);
    EXPECT_EQ(warning->text(), QStringLiteral("There are unresolved issues remaining."));
    warning->buttons().at(1)->click();
    EXPECT_TRUE(window->isVisible());
    ASSERT_TRUE(closed(window));
    EXPECT_EQ(inQuarantine(), kRows);
    EXPECT_EQ(QVPropertyList::readFile(quarantine + QStringLiteral("/dataSource")).toList().size(), kRows);
    std::printf("%d rows: opened in %lld ms, worst scroll step %lld ms, worst main-thread lateness %lld ms "
                "resolving until cancelled, %lld ms resolving the rest\n",
        kRows, static_cast<long long>(openMs), static_cast<long long>(scrollMs),
        static_cast<long long>(cancelling.worst), static_cast<long long>(resolving.worst));
    // The figures above are what counts; the bounds catch a main thread that
    // waits for file work (seconds for this list), not a busy machine.
    EXPECT_LE(openMs, 500);
    EXPECT_LE(scrollMs, 500);
    EXPECT_LE(cancelling.worst, 500);
    EXPECT_LE(resolving.worst, 500);
}

} // namespace
