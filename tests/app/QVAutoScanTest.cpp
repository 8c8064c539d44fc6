// Auto-scanning from the application's side: the sheet with the real handler
// program behind it, the scan view's status, an auto-scan sent by a handler
// that finds problems, and the advanced window.
#include "app/QVAdvancedAutoScanWindow.h"
#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVAutoScanSheet.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVMainWindow.h"
#include "app/QVScanRootViewController.h"
#include "platform/QVLoginItem.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"
#include "support/QVFixtures.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QCheckBox>
#include <QDBusConnection>
#include <QFile>
#include <QGroupBox>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>

using namespace QVFixtures;

namespace
{

const QString kApp = QString::fromLatin1(QVSettings::kBundleIdentifier);
const QString kHandler = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
const QString kScheduler = QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier);

// Stands in for a helper: records what the application sends it.
struct Helper {
    explicit Helper(const QString &id)
        : channel(id)
    {
        qvtest::listen(channel, *this);
    }
    QVHelperCommunications channel;
    QList<QPair<QString, QVariantMap>> commands;
    QList<QPair<QString, QVariantMap>> responses;
    void gotCommand(const QString &c, const QString &, const QVariantMap &o) { commands.append({ c, o }); }
    void gotResponse(const QString &r, const QString &, const QVariantMap &o) { responses.append({ r, o }); }
    QVariant option(const QList<QPair<QString, QVariantMap>> &list, const QString &name) const
    {
        for (const auto &[n, options] : list) {
            if (n == name)
                return options.value(QStringLiteral("kPayloadOptions"));
        }
        return QVariant();
    }
};

class AutoScanTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
        QVSettings::unregisterUserPreferences();
        QVSettings::migratePreferences();
        QVSettings settings;
        settings.setAutoScanEnabled(false);
        settings.setShowHelperMenu(false);
        // Not due: a handler started here must not start a scan of its own.
        settings.setLastAutoScanDate(QDateTime::currentDateTime());
        app = std::make_unique<QVAppDelegate>();
        app->setDelay(0);
        app->setHelperDirectory(QStringLiteral(QV_BIN_DIR));
        ASSERT_TRUE(app->launch());
        QVSettings().setShowReports(false);
        window = app->mainWindow();
    }
    void TearDown() override
    {
        if (QVDiagnosisActionWindow *actions = app->diagnosisActionWindow())
            actions->ignoreIssuesButton()->click();
        EXPECT_TRUE(waitFor([this] { return !app->isBusy(); }));
        QVLoginItem::disable(kHandler);
        EXPECT_TRUE(waitFor([] { return !QVLoginItem::isRunning(kHandler); }));
        app.reset();
    }

    QVTestHome home;
    std::unique_ptr<QVAppDelegate> app;
    QVMainWindow *window = nullptr;
};

TEST_F(AutoScanTest, TheSheetStoresEachControlAndStopsTheHandlerWhenNothingIsLeft)
{
    QVSettings *settings = app->settings();
    app->showAutoScanSheet();
    QVAutoScanSheet *sheet = app->autoScanSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    EXPECT_EQ(sheet->autoScanSwitch()->checkedId(), 0);
    EXPECT_FALSE(sheet->autoScanOptionsGroup()->isEnabled());
    EXPECT_TRUE(sheet->autoScanFreqMonthlyButton()->isChecked()) << "the default frequency";

    // On: the autostart entry is written and the real handler runs.
    sheet->autoScanSwitch()->button(1)->click();
    EXPECT_TRUE(settings->autoScanEnabled());
    EXPECT_TRUE(sheet->autoScanOptionsGroup()->isEnabled());
    EXPECT_TRUE(waitFor([] { return QVLoginItem::isRunning(kHandler); }));
    EXPECT_TRUE(readFile(QVLoginItem::entryPath(kHandler)).contains("quorvel-handler\""));

    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    sheet->autoScanFreqWeeklyButton()->click();
    EXPECT_EQ(settings->autoScanFrequency(), QStringLiteral("kWeekly"));
    EXPECT_GE(settings->lastAutoScanDate(), before) << "the count restarts at the change";
    sheet->autoScanQuitCheckbox()->setChecked(!settings->autoScanQuitWhenDone());
    EXPECT_EQ(settings->autoScanQuitWhenDone(), sheet->autoScanQuitCheckbox()->isChecked());

    // Folders: a folder covers those inside it, by whole path components.
    const QStringList system = settings->fontFolderPaths();
    const QString a = home.path() + QStringLiteral("/a");
    sheet->addFolder(a + QStringLiteral("/inner"));
    sheet->addFolder(home.path() + QStringLiteral("/ab"));
    sheet->addFolder(a);
    sheet->addFolder(a + QStringLiteral("/other/"));
    EXPECT_EQ(settings->fontFolderPaths(), system + QStringList({ home.path() + "/ab/", a + "/" }));
    QListWidget *list = sheet->autoScanTableView();
    ASSERT_EQ(list->count(), system.size() + 2);
    EXPECT_FALSE(sheet->autoScanRemoveFolderButton()->isEnabled());
    list->item(list->count() - 2)->setSelected(true);
    sheet->autoScanRemoveFolderButton()->click();
    EXPECT_EQ(settings->fontFolderPaths(), system + QStringList({ a + "/" }));
    EXPECT_EQ(list->count(), system.size() + 1);

    // Never, and no folder watching: closing the sheet turns auto-scanning off.
    sheet->autoScanFreqNeverButton()->click();
    sheet->autoScanModifiedFoldersCheckbox()->setChecked(false);
    EXPECT_FALSE(settings->autoScanModifiedFolders());
    sheet->autoScanActionButton()->click();
    EXPECT_EQ(app->autoScanSheet(), nullptr);
    EXPECT_FALSE(settings->autoScanEnabled());
    EXPECT_FALSE(QFile::exists(QVLoginItem::entryPath(kHandler)));
    EXPECT_TRUE(waitFor([] { return !QVLoginItem::isRunning(kHandler); }));
    EXPECT_TRUE(app->defaultScanViewController()
                    ->autoScanStatusText(QDateTime::currentDateTime())
                    .startsWith(QStringLiteral("\nAutoScan is turned off")));
}

TEST_F(AutoScanTest, TheStatusTellsWhatAutoScanDoesAndWhenItScansNext)
{
    using Scan = QVScanRootViewController;
    const QDateTime noon(QDate(2027, 3, 10), QTime(12, 0));
    const QDateTime late(QDate(2027, 3, 10), QTime(23, 0));
    EXPECT_EQ(
        Scan::relativeDateStringForDate(noon.addSecs(30 * 3600), noon), QStringLiteral("1 Days from now"));
    EXPECT_EQ(Scan::relativeDateStringForDate(noon.addSecs(3 * 3600), noon), QStringLiteral("Today"));
    EXPECT_EQ(Scan::relativeDateStringForDate(late.addSecs(3 * 3600), late), QStringLiteral("Tomorrow"));

    QVSettings *settings = app->settings();
    const Scan *view = app->defaultScanViewController();
    EXPECT_EQ(view->autoScanStatusText(noon),
        QStringLiteral("\nAutoScan is turned off\nUse AutoScan settings to turn on AutoScan"));
    settings->setAutoScanEnabled(true);
    settings->setAutoScanFrequency(QStringLiteral("kDaily"));
    settings->setAutoScanModifiedFolders(true);
    settings->setLastAutoScanDate(noon.addSecs(-21 * 3600));
    EXPECT_EQ(view->autoScanStatusText(noon),
        QStringLiteral("AutoScan is active with these settings:\n• Scan font folders once per day\n"
                       "• Scan if an AutoScan folder is modified\n• Next Scheduled AutoScan:\n"
                       "   Today around 3:00PM"));
    settings->setAutoScanFrequency(QStringLiteral("kMonthly"));
    settings->setAutoScanModifiedFolders(false);
    EXPECT_EQ(view->autoScanStatusText(noon),
        QStringLiteral("AutoScan is active with these settings:\n• Scan font folders once a month\n"
                       "• Next Scheduled AutoScan:\n   %1 around 3:00PM")
            .arg(QLocale().toString(QDate(2027, 4, 9), QLocale::LongFormat)));
    settings->setAutoScanFrequency(QStringLiteral("kNever"));
    settings->setAutoScanModifiedFolders(true);
    EXPECT_EQ(view->autoScanStatusText(noon),
        QStringLiteral(
            "AutoScan is active with these settings:\n\n• Scan only if an AutoScan folder is modified"));
}

TEST_F(AutoScanTest, AnAutoScanWithProblemsWaitsForTheResolutionThenAnswers)
{
    const QString folder = home.path() + QStringLiteral("/fonts");
    for (const QString &sub : { QStringLiteral("/one"), QStringLiteral("/two") })
        copyFont(kDejaVuSans, folder + sub);
    QVSettings *settings = app->settings();
    settings->setFontFolderPaths({ folder });
    settings->setAutoScanQuitWhenDone(true);
    const QDateTime before = settings->lastAutoScanDate();
    Helper handler(kHandler);

    handler.channel.sendCommand(QStringLiteral("kCommand_GetSettings"), kApp, {}, false);
    ASSERT_TRUE(waitFor([&] { return handler.option(handler.responses, "kResponse_Settings").isValid(); }));
    const QVariantMap sent = handler.option(handler.responses, "kResponse_Settings").toMap();
    EXPECT_EQ(sent.value("fontFolderPaths").toStringList(), QStringList { folder });
    EXPECT_EQ(sent.value("autoScanFrequency").toString(), settings->autoScanFrequency());
    EXPECT_EQ(sent.value("kAutoScanLastDate").toDateTime(), before);

    // As from a handler that started this launch for the scan and held it.
    handler.channel.sendResponse(
        QStringLiteral("kCommand_HasPendingCommands"), kApp, { { QStringLiteral("hasPending"), "YES" } });
    ASSERT_TRUE(waitFor([&] { return app->hasPendingCommand(); }));
    handler.channel.sendCommand(QStringLiteral("kCommand_ScanFonts"), kApp, {}, false);
    ASSERT_TRUE(waitFor([&] { return app->diagnosisActionWindow() && !app->isBusy(); }, 120000));
    EXPECT_EQ(settings->lastScanType(), QStringLiteral("AutoScan"));
    EXPECT_GT(settings->lastAutoScanDate(), before);
    EXPECT_TRUE(handler.option(handler.responses, "kResponse_ScanFonts_Start").isValid());
    EXPECT_FALSE(handler.option(handler.responses, "kResponse_ScanFonts_Complete").isValid())
        << "no answer while the problems wait";

    app->diagnosisActionWindow()->ignoreIssuesButton()->click();
    ASSERT_TRUE(
        waitFor([&] { return handler.option(handler.responses, "kResponse_ScanFonts_Complete").isValid(); }));
    EXPECT_EQ(handler.option(handler.responses, "kResponse_ScanFonts_Complete").toDateTime(),
        settings->lastAutoScanDate());
    EXPECT_TRUE(window->isVisible()) << "problems found: the application stays";
}

TEST_F(AutoScanTest, TheAdvancedWindowSwitchesLoggingAndAsksBeforeAReset)
{
    Helper handler(kHandler);
    Helper scheduler(kScheduler);
    app->showAutoScanSheet();
    app->autoScanSheet()->advancedSettingsButton()->click();
    QVAdvancedAutoScanWindow *advanced = app->advancedAutoScanWindow();
    ASSERT_NE(advanced, nullptr);
    // What would open the log in a viewer is only recorded here.
    QObject::disconnect(advanced, &QVAdvancedAutoScanWindow::showLogRequested, nullptr, nullptr);
    QSignalSpy shown(advanced, &QVAdvancedAutoScanWindow::showLogRequested);

    advanced->enableLoggingButton()->click();
    EXPECT_TRUE(app->settings()->doLogging());
    EXPECT_FALSE(advanced->enableLoggingButton()->isEnabled());
    ASSERT_EQ(shown.count(), 1);
    EXPECT_TRUE(QFile::exists(shown.at(0).at(0).toString()));
    for (const Helper *helper : { &handler, &scheduler })
        EXPECT_TRUE(waitFor([&] {
            return helper->option(helper->commands, "kCommand_Set_Logging").toString()
                == QLatin1String("loggingEnabledEnabled");
        }));
    advanced->disableLoggingButton()->click();
    EXPECT_FALSE(app->settings()->doLogging());
    QVLog::setEnabled(false);
    EXPECT_TRUE(waitFor([&] { return scheduler.commands.size() == 2; }));
    EXPECT_EQ(scheduler.commands.last().second.value("kPayloadOptions").toString(),
        QStringLiteral("loggingDisabled"));

    // Reset asks first; cancelling keeps everything.
    app->settings()->setUserName(QStringLiteral("Ada"));
    advanced->resetButton()->click();
    QMessageBox *ask = QVAlertSheet::find(advanced, QStringLiteral("resetAutoScanSettings"));
    ASSERT_NE(ask, nullptr);
    ask->buttons().first()->click();
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(QFile::exists(app->settings()->fileName()));

    advanced->quitHelperAppsButton()->click();
    QMessageBox *told = QVAlertSheet::find(advanced, QStringLiteral("quitHelperApps"));
    ASSERT_NE(told, nullptr);
    EXPECT_EQ(told->icon(), QMessageBox::Critical);
    told->buttons().first()->click();
}

} // namespace
