// The main window driven as a person would: view buttons and menus, drops of
// folders and files, a whole scan of real fonts to its Done button, and the
// settings that must keep one diagnosis on.
#include "app/QVAppDelegate.h"

#include "app/QVAlertSheet.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVDiagnosisViewController.h"
#include "app/QVMainWindow.h"
#include "app/QVOverlayWindow.h"
#include "app/QVScanRootViewController.h"
#include "app/QVSettingsTabItem.h"
#include "app/QVViewButton.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "engine/QVFontDataManager.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "support/QVFixtures.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDBusConnection>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>
#include <gtest/gtest.h>
#include <memory>

using namespace QVFixtures;

namespace
{

class AppTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings::unregisterUserPreferences();
        // No helper is installed beside the tests: only the test of them starts them.
        QVSettings::migratePreferences();
        QVSettings settings;
        settings.setAutoScanEnabled(false);
        settings.setShowHelperMenu(false);
        relaunch();
    }
    void relaunch()
    {
        app.reset();
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        ASSERT_TRUE(app->launch());
        window = app->mainWindow();
    }
    void TearDown() override
    {
        EXPECT_TRUE(waitFor([this] { return !app->isBusy(); }));
        app.reset();
    }

    // A drop of the paths on the window; whether the window took it.
    bool drop(const QStringList &paths)
    {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString &path : paths)
            urls.append(QUrl::fromLocalFile(path));
        data.setUrls(urls);
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window, &enter);
        QDropEvent dropped(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window, &dropped);
        EXPECT_EQ(enter.isAccepted(), dropped.isAccepted());
        return dropped.isAccepted();
    }
    bool waitForDone()
    {
        return waitFor([this] { return app->isShowingDoneButton() && !app->isBusy(); }, 60000);
    }

    QVTestHome home;
    std::unique_ptr<QVAppDelegate> app;
    QVMainWindow *window = nullptr;
};

TEST_F(AppTest, ViewsSwitchByButtonAndMenuWithTitlesAndImages)
{
    const char *const titles[]
        = { "window.title.scan", "window.title.settings", "window.title.quarantine", "window.title.reports" };
    for (int i = 0; i < 4; ++i) {
        if (i % 2)
            window->viewButton(i)->click();
        else
            window->viewMenuItem(i)->trigger();
        EXPECT_EQ(window->windowTitle(), QVStringTable::text(QLatin1String(titles[i])));
        EXPECT_NE(window->windowTitle(), QLatin1String(titles[i])) << "the string table has no text for it";
        EXPECT_EQ(window->selectedIndex(), i);
        for (int j = 0; j < 4; ++j) {
            EXPECT_EQ(window->viewMenuItem(j)->isChecked(), i == j);
            EXPECT_EQ(window->viewButton(j)->mode(), i == j ? QVViewButton::Selected : QVViewButton::Normal);
        }
    }
    EXPECT_EQ(window->infoText(), QVStringTable::text(QStringLiteral("info.reports.default.message")));
    window->selectButton(QVMainWindow::ScanView);
    EXPECT_EQ(window->currentView(), app->defaultScanViewController());
    EXPECT_TRUE(
        app->defaultScanViewController()->scanText().contains(QStringLiteral("has not scanned any fonts")));

    // Dark palette: the normal and hover images end in "Dark", the selected one does not.
    const QPalette light = QApplication::palette();
    QPalette dark = light;
    dark.setColor(QPalette::Window, QColor(0x20, 0x24, 0x2a));
    QApplication::setPalette(dark);
    EXPECT_EQ(
        window->viewButton(1)->imageName(QVViewButton::Normal), QStringLiteral("ButtonSettingsNormalDark"));
    EXPECT_EQ(window->viewButton(1)->imageName(QVViewButton::Over), QStringLiteral("ButtonSettingsOverDark"));
    EXPECT_EQ(window->viewButton(0)->imageName(QVViewButton::Selected), QStringLiteral("ButtonScanSelected"));
    QApplication::setPalette(light);
    EXPECT_EQ(window->viewButton(1)->imageName(QVViewButton::Normal), QStringLiteral("ButtonSettingsNormal"));

    // Everything a person can press has a name a screen reader says.
    for (const QAbstractButton *button : window->findChildren<QAbstractButton *>())
        EXPECT_FALSE(button->accessibleName().isEmpty())
            << button->metaObject()->className() << ' ' << button->objectName().toStdString();
}

TEST_F(AppTest, DroppedFilesAndMissingFoldersAreRefused)
{
    QSignalSpy started(app.get(), &QVAppDelegate::scanStarted);
    const QString font = copyFont(kDejaVuSans, home.path() + QStringLiteral("/loose"));
    EXPECT_FALSE(drop({ font }));
    EXPECT_FALSE(drop({ home.path(), home.path() + QStringLiteral("/gone") }));
    EXPECT_FALSE(app->openFolders({ font }));
    QApplication::processEvents();
    EXPECT_EQ(started.count(), 0);
    EXPECT_FALSE(app->settings()->recentScanFolderPaths().has_value());
    EXPECT_FALSE(window->scanRecentMenu()->isEnabled());
}

TEST_F(AppTest, DropOfTwoFoldersScansBothOnceAndRemembersThem)
{
    const QString a = home.path() + QStringLiteral("/a");
    const QString b = home.path() + QStringLiteral("/b");
    copyFont(kDejaVuSans, a);
    copyFont(kDejaVuSerif, b);
    QSignalSpy started(app.get(), &QVAppDelegate::scanStarted);
    ASSERT_TRUE(drop({ a, b }));
    EXPECT_FALSE(drop({ a })) << "a second drop while the first scan runs";
    ASSERT_TRUE(waitForDone());
    ASSERT_EQ(started.count(), 1);
    EXPECT_EQ(started.at(0).at(0).toStringList(), QStringList({ a, b }));
    EXPECT_EQ(app->dataManager()->fontFileItems.size(), 2);
    EXPECT_EQ(app->settings()->recentScanFolderPaths().value_or(QStringList()), QStringList({ a, b }));
    QStringList titles;
    for (const QAction *action : window->scanRecentMenu()->actions())
        titles << action->text();
    EXPECT_EQ(titles,
        QStringList({ QStringLiteral("a"), QStringLiteral("b"), QString(), QStringLiteral("Clear Menu") }));
    window->scanRecentMenu()->actions().last()->trigger();
    EXPECT_EQ(app->settings()->recentScanFolderPaths().value_or(QStringList({ a })), QStringList());
    EXPECT_FALSE(window->scanRecentMenu()->isEnabled());
}

TEST_F(AppTest, ADeletedRecentFolderLeavesTheMenuWithAnAlert)
{
    const QString gone = home.path() + QStringLiteral("/gone");
    const QString kept = home.path() + QStringLiteral("/kept");
    QDir().mkpath(gone);
    copyFont(kDejaVuSans, kept);
    app->settings()->setRecentScanFolderPaths({ gone, kept });
    app->populateScanRecentsMenu();
    ASSERT_TRUE(QDir(gone).removeRecursively());
    QSignalSpy started(app.get(), &QVAppDelegate::scanStarted);

    window->scanRecentMenu()->actions().first()->trigger();
    QMessageBox *alert = QVAlertSheet::find(window, QStringLiteral("handleRecentScanMenu"));
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->text(), QVStringTable::text(QStringLiteral("settings.missingFolder.title")));
    EXPECT_EQ(app->settings()->recentScanFolderPaths().value_or(QStringList()), QStringList({ kept }));
    QStringList titles;
    for (const QAction *action : window->scanRecentMenu()->actions())
        titles << action->text();
    EXPECT_EQ(titles, QStringList({ QStringLiteral("kept"), QString(), QStringLiteral("Clear Menu") }));
    alert->buttons().first()->click();
    QApplication::processEvents();
    EXPECT_EQ(started.count(), 0);
    EXPECT_TRUE(app->isUserInterfaceEnabled());

    // The folder still there is scanned.
    window->scanRecentMenu()->actions().first()->trigger();
    ASSERT_TRUE(waitForDone());
    ASSERT_EQ(started.count(), 1);
    EXPECT_EQ(started.at(0).at(0).toStringList(), QStringList({ kept }));
}

TEST_F(AppTest, QuittingDuringAScanAsksFirst)
{
    const QString folder = home.path() + QStringLiteral("/fonts");
    copyFont(kDejaVuSans, folder);
    copyFont(kDejaVuSerif, folder);
    const auto askToQuit = [this] {
        EXPECT_FALSE(window->close());
        EXPECT_TRUE(window->isVisible());
        EXPECT_EQ(window->selectedIndex(), int(QVMainWindow::ScanView));
        return QVAlertSheet::find(window, QStringLiteral("windowShouldClose"));
    };

    // Continue: the scan and diagnosis carry on to their end.
    ASSERT_TRUE(drop({ folder }));
    QMessageBox *alert = askToQuit();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->text(), QVStringTable::text(QStringLiteral("search.cancel.message")));
    ASSERT_EQ(alert->buttons().size(), 2);
    EXPECT_EQ(alert->buttons().at(1)->text(), QVStringTable::text(QStringLiteral("any.quit.title")));
    askToQuit();
    EXPECT_EQ(window->findChildren<QMessageBox *>().size(), 1) << "a second close shows no second sheet";
    alert->buttons().first()->click();
    ASSERT_TRUE(waitForDone());
    EXPECT_EQ(app->dataManager()->fontFileItems.size(), 2);
    // Idle, the window closes at once.
    EXPECT_TRUE(window->close());
    window->show();

    // Quit: nothing further starts and the window goes.
    app->presentScanView();
    QSignalSpy started(app.get(), &QVAppDelegate::scanStarted);
    ASSERT_TRUE(drop({ folder }));
    alert = askToQuit();
    ASSERT_NE(alert, nullptr);
    alert->buttons().at(1)->click();
    EXPECT_FALSE(window->isVisible());
    EXPECT_TRUE(waitFor([this] { return !app->isBusy(); }));
    EXPECT_EQ(started.count(), 0);
}

TEST_F(AppTest, ScanToDoneMatchesTheCommandLine)
{
    // Two copies of two fonts: duplicates for the diagnosis to find.
    const QString folder = home.path() + QStringLiteral("/fonts");
    for (const QString &sub : { QStringLiteral("/one"), QStringLiteral("/two") }) {
        copyFont(kDejaVuSans, folder + sub);
        copyFont(kDejaVuSansBold, folder + sub);
    }
    const CliRun cli = runCli(home, { QStringLiteral("diagnose"), QStringLiteral("--json"), folder });
    const QJsonObject expected = QJsonDocument::fromJson(cli.out.toUtf8()).object();
    ASSERT_EQ(cli.exitCode, 1) << cli.err.toStdString();
    ASSERT_GT(expected.value(QStringLiteral("duplicateProblemCount")).toInt(), 0);

    QVDiagnosisViewController *view = app->diagnosisViewController();
    ASSERT_TRUE(drop({ folder }));
    EXPECT_TRUE(waitFor([&] { return window->currentView() == view; }));
    EXPECT_FALSE(window->viewButton(QVMainWindow::SettingsView)->isEnabled());
    ASSERT_TRUE(waitForDone());

    const QVDiagnosis *diagnosis = view->diagnosis();
    EXPECT_EQ(diagnosis->totalFontProblems(), expected.value(QStringLiteral("totalFontProblems")).toInt());
    EXPECT_EQ(
        diagnosis->duplicateProblemCount(), expected.value(QStringLiteral("duplicateProblemCount")).toInt());
    EXPECT_EQ(diagnosis->fileStructureProblemCount(),
        expected.value(QStringLiteral("fileStructureProblemCount")).toInt());
    EXPECT_EQ(view->overallLabel()->text(), expected.value(QStringLiteral("outcome")).toString());
    EXPECT_EQ(view->iconName(), QStringLiteral("mac-icon-caution"));
    EXPECT_EQ(view->passMark(QVDiagnosis::DuplicatesPass), QStringLiteral("done"));
    EXPECT_TRUE(view->settingsTextLabel()->text().contains(QStringLiteral("<b>Scanned Folders:</b>")));
    EXPECT_TRUE(window->viewButton(QVMainWindow::SettingsView)->isEnabled());
    EXPECT_EQ(view->cancelButton()->text(), QVStringTable::text(QStringLiteral("any.done.title")));

    view->cancelButton()->click();
    EXPECT_EQ(window->currentView(), app->defaultScanViewController());
    EXPECT_TRUE(app->defaultScanViewController()->scanText().contains(
        QStringLiteral("Total Font Problems Diagnosed: %1")
            .arg(expected.value(QStringLiteral("totalFontProblems")).toInt())));

    // While the problem fonts wait for an answer, a new scan asks first and does not start.
    QVDiagnosisActionWindow *actions = app->diagnosisActionWindow();
    ASSERT_NE(actions, nullptr);
    ASSERT_TRUE(waitFor([&] { return actions->isVisible(); }));
    app->startManualScan({ folder });
    EXPECT_NE(QVAlertSheet::find(actions, QStringLiteral("windowShouldClose")), nullptr);
    EXPECT_TRUE(actions->isVisible());
    EXPECT_FALSE(app->isBusy());
}

TEST_F(AppTest, WelcomeShowsUntilToldNotToAndKeepsTheKeyboard)
{
    QVOverlayWindow *overlay = app->overlayWindow();
    ASSERT_TRUE(overlay->isVisible());
    EXPECT_EQ(overlay->geometry(), window->centralWidget()->geometry());
    EXPECT_FALSE(overlay->accessibleName().isEmpty());
    QCheckBox *dontShow = overlay->showWelcomeAtStartupButton();
    EXPECT_FALSE(dontShow->isChecked());
    EXPECT_EQ(window->focusWidget(), overlay->startButton());
    QTest::keyClick(overlay->startButton(), Qt::Key_Tab);
    EXPECT_EQ(window->focusWidget(), dontShow);
    QTest::keyClick(dontShow, Qt::Key_Tab);
    EXPECT_EQ(window->focusWidget(), overlay->startButton()) << "Tab stays on the overlay";
    QTest::keyClick(overlay->startButton(), Qt::Key_Backtab);
    EXPECT_EQ(window->focusWidget(), dontShow);

    QSignalSpy dismissed(overlay, &QVOverlayWindow::dismissed);
    dontShow->click();
    EXPECT_TRUE(app->settings()->dontShowWelcomeScreenAtStartup());
    EXPECT_TRUE(overlay->isVisible());
    QTest::keyClick(dontShow, Qt::Key_Escape);
    EXPECT_FALSE(overlay->isVisible());
    overlay->showOverWindow();
    QTest::mouseClick(overlay, Qt::LeftButton, {}, QPoint(4, 4));
    EXPECT_FALSE(overlay->isVisible());
    EXPECT_EQ(dismissed.count(), 2);
    overlay->showOverWindow();
    window->viewMenuItem(QVMainWindow::ReportsView)->trigger();
    EXPECT_FALSE(overlay->isVisible()) << "a command dismisses it";

    relaunch();
    EXPECT_FALSE(app->overlayWindow()->isVisible());
    EXPECT_TRUE(app->overlayWindow()->showWelcomeAtStartupButton()->isChecked());
}

// Stands in for the handler helper: records what the application sends it.
struct HelperRecorder {
    QStringList commands;
    QList<QPair<QString, QVariantMap>> responses;
    void gotCommand(const QString &c, const QString &, const QVariantMap &) { commands << c; }
    void gotResponse(const QString &r, const QString &, const QVariantMap &o) { responses.append({ r, o }); }
};

TEST_F(AppTest, RunningHelpersAreAskedForPendingCommandsWithoutWaiting)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.isConnected()) << "run under dbus-run-session";
    const QString handlerId = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
    QVHelperCommunications handler(handlerId, bus);
    HelperRecorder recorded;
    qvtest::listen(handler, recorded);
    app->settings()->setAutoScanEnabled(true);

    // No helper runs, and none is installed here: asked all the same, and the
    // question times out without holding up the start.
    QElapsedTimer started;
    started.start();
    relaunch();
    EXPECT_LT(started.elapsed(), 1000);
    EXPECT_EQ(app->pendingCommandTotal(), 0);
    EXPECT_TRUE(
        waitFor([&] { return recorded.commands.contains(QStringLiteral("kCommand_HasPendingCommands")); }));
    EXPECT_TRUE(waitFor([this] { return app->helperCommunications()->awaitedCommand().isEmpty(); }, 3000));
    EXPECT_TRUE(recorded.responses.isEmpty());

    // The handler runs: one answer saying it holds a command makes the application ready.
    ASSERT_TRUE(bus.registerService(handlerId));
    recorded.commands.clear();
    relaunch();
    EXPECT_EQ(app->pendingCommandTotal(), 1);
    ASSERT_TRUE(
        waitFor([&] { return recorded.commands.contains(QStringLiteral("kCommand_HasPendingCommands")); }));
    handler.sendResponse(QStringLiteral("kCommand_HasPendingCommands"),
        QString::fromLatin1(QVSettings::kBundleIdentifier),
        { { QStringLiteral("hasPending"), QStringLiteral("YES") } });
    EXPECT_TRUE(waitFor([&] { return !recorded.responses.isEmpty(); }));
    bus.unregisterService(handlerId);
    EXPECT_TRUE(app->hasPendingCommand());
    EXPECT_EQ(app->pendingCommandCount(), 1);
    ASSERT_EQ(recorded.responses.size(), 1);
    EXPECT_EQ(recorded.responses.first().first, QStringLiteral("kResponse_Ready"));
    EXPECT_EQ(recorded.responses.first().second.value(QStringLiteral("kPayloadOptions")).toString(),
        QStringLiteral("autoScanEnabled"));
}

TEST_F(AppTest, OneDiagnosisStaysOn)
{
    QVSettingsTabItem *tab = app->settingsTabItem();
    window->selectButton(QVMainWindow::SettingsView);
    tab->passSwitch(QVSettingsTabItem::DiagnoseCorruptFonts)->click();
    tab->passSwitch(QVSettingsTabItem::FindDuplicateFonts)->click();
    EXPECT_FALSE(app->settings()->diagnoseFileStructure());
    EXPECT_FALSE(app->settings()->findDuplicateFonts());
    EXPECT_EQ(tab->passDot(QVSettingsTabItem::FindDuplicateFonts)->accessibleName(), QStringLiteral("Off"));
    EXPECT_EQ(QVAlertSheet::find(window, QStringLiteral("validateSettings")), nullptr);

    tab->passSwitch(QVSettingsTabItem::FindOrphanedFonts)->click();
    EXPECT_TRUE(app->settings()->findOrpanedFonts());
    EXPECT_TRUE(tab->passSwitch(QVSettingsTabItem::FindOrphanedFonts)->isChecked());
    QMessageBox *alert = QVAlertSheet::find(window, QStringLiteral("validateSettings"));
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->text(), QVStringTable::text(QStringLiteral("settings.errorMessage.dignosisOptions")));
    alert->buttons().first()->click();

    tab->passSwitch(QVSettingsTabItem::DiagnoseCorruptFonts)->click();
    tab->passSwitch(QVSettingsTabItem::FindOrphanedFonts)->click();
    EXPECT_TRUE(app->settings()->diagnoseFileStructure());
    EXPECT_FALSE(app->settings()->findOrpanedFonts());

    // The deep check is off until asked for, and stands alone.
    EXPECT_FALSE(tab->deepCheckCheckbox()->isChecked());
    tab->deepCheckCheckbox()->click();
    EXPECT_TRUE(app->settings()->deepCheck());
    EXPECT_TRUE(app->settings()->diagnoseFileStructure());
}

} // namespace
