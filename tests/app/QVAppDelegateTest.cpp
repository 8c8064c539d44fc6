// The main window driven as a person would: view buttons and menus, drops of
// folders and files, a whole scan of real fonts to its Done button, and the
// settings that must keep one diagnosis on.
#include "app/QVAppDelegate.h"

#include "app/QVAlertSheet.h"
#include "app/QVDiagnosisViewController.h"
#include "app/QVMainWindow.h"
#include "app/QVScanRootViewController.h"
#include "app/QVSettingsTabItem.h"
#include "app/QVViewButton.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "engine/QVFontDataManager.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
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
}

} // namespace
