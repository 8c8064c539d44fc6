// The auto-scan handler: its calendar, its look at a clock that tests move,
// folder watching that settles, the command held for a starting application,
// and a whole auto-scan by the real programs.
#include "helpers/QVAutoScanHandler.h"

#include "helpers/QVApplicationLink.h"
#include "helpers/QVFolderWatcher.h"
#include "platform/QVLoginItem.h"
#include "settings/QVAutoScanSchedule.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVSettings.h"
#include "store/QVUninstaller.h"
#include "support/QVFixtures.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QString kApp = QString::fromLatin1(QVSettings::kBundleIdentifier);
const QString kHandler = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
const QDateTime kLast(QDate(2027, 1, 31), QTime(9, 30));

TEST(AutoScanSchedule, AddsADayAWeekOrACalendarMonth)
{
    const QDateTime now = kLast.addSecs(60);
    EXPECT_EQ(
        QVAutoScanSchedule::nextScanDate(kLast, "kDaily", now), QDateTime(QDate(2027, 2, 1), QTime(9, 30)));
    EXPECT_EQ(
        QVAutoScanSchedule::nextScanDate(kLast, "kWeekly", now), QDateTime(QDate(2027, 2, 7), QTime(9, 30)));
    // A month from January 31 is the last day of February, in leap years too.
    EXPECT_EQ(QVAutoScanSchedule::nextScanDate(kLast, "kMonthly", now),
        QDateTime(QDate(2027, 2, 28), QTime(9, 30)));
    const QDateTime leap(QDate(2028, 1, 31), QTime(9, 30));
    EXPECT_EQ(QVAutoScanSchedule::nextScanDate(leap, "kMonthly", leap),
        QDateTime(QDate(2028, 2, 29), QTime(9, 30)));
    EXPECT_FALSE(QVAutoScanSchedule::nextScanDate(kLast, "kNever", now).isValid());
    EXPECT_FALSE(QVAutoScanSchedule::isDue(kLast, "kNever", now.addYears(3)));
    EXPECT_FALSE(QVAutoScanSchedule::isDue(kLast, "kMonthly", QDateTime(QDate(2027, 2, 28), QTime(9, 29))));
    EXPECT_TRUE(QVAutoScanSchedule::isDue(kLast, "kMonthly", QDateTime(QDate(2027, 2, 28), QTime(9, 30))));
    EXPECT_FALSE(QVAutoScanSchedule::isDue(QDateTime(), "kWeekly", now)) << "no count started";
    // A last scan dated in the future (the clock was set back) counts from now.
    EXPECT_EQ(QVAutoScanSchedule::nextScanDate(kLast.addYears(5), "kDaily", now), now.addDays(1));
}

// Stands in for the application: owns its name on the bus when running, and
// records the commands the helpers send it.
struct FakeApplication {
    QVHelperCommunications channel { kApp };
    QStringList commands;
    QList<QPair<QString, QVariantMap>> responses;
    FakeApplication() { qvtest::listen(channel, *this); }
    ~FakeApplication() { setRunning(false); }
    void gotCommand(const QString &c, const QString &, const QVariantMap &) { commands << c; }
    void gotResponse(const QString &r, const QString &, const QVariantMap &o) { responses.append({ r, o }); }
    static void setRunning(bool running)
    {
        if (running)
            ASSERT_TRUE(QDBusConnection::sessionBus().registerService(kApp)) << "run under dbus-run-session";
        else
            QDBusConnection::sessionBus().unregisterService(kApp);
    }
    int scans() const { return int(commands.count(QStringLiteral("kCommand_ScanFonts"))); }
    void send(const QString &response, const QVariant &value)
    {
        channel.sendResponse(response, kHandler, { { QStringLiteral("kPayloadOptions"), value } });
    }
};

class HandlerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
        handler.setClock([this] { return now; });
        handler.setStartupDelay(0);
    }
    void settle() { QTest::qWait(handler.folderWatcher()->settleDelay() * 3); }

    QVTestHome home;
    QDateTime now = kLast;
    FakeApplication app;
    QVHelperCommunications channel { kHandler };
    QVAutoScanHandler handler { &channel };
};

TEST_F(HandlerTest, AsksForOneScanWhenDueAndFollowsTheClock)
{
    QVSettings application;
    application.setAutoScanFrequency(QStringLiteral("kDaily"));
    application.setAutoScanModifiedFolders(false);
    application.setLastAutoScanDate(kLast);
    FakeApplication::setRunning(true);
    handler.start();
    // Its own copy of the settings, in its own file.
    EXPECT_EQ(QVSettings(kHandler).autoScanFrequency(), QStringLiteral("kDaily"));
    EXPECT_TRUE(waitFor([&] { return app.commands.contains(QStringLiteral("kCommand_GetSettings")); }));

    now = kLast.addSecs(23 * 3600);
    handler.checkSchedule();
    EXPECT_EQ(handler.checkInterval(), QVAutoScanHandler::kMaxCheckIntervalMs) << "a look a minute at most";
    now = kLast.addSecs(24 * 3600 - 10);
    handler.checkSchedule();
    EXPECT_EQ(handler.checkInterval(), 10000) << "woken when the scan falls due";
    now = now.addSecs(10);
    handler.checkSchedule();
    handler.checkSchedule();
    EXPECT_TRUE(waitFor([&] { return app.scans() == 1; }));
    QTest::qWait(100);
    EXPECT_EQ(app.scans(), 1) << "one scan while the first is under way";

    // The scan's answer restarts the count.
    const QDateTime scanned = now;
    app.send(QStringLiteral("kResponse_ScanFonts_Complete"), scanned);
    ASSERT_TRUE(waitFor([&] { return !handler.isScanInFlight(); }));
    EXPECT_EQ(handler.nextScanDate(), scanned.addDays(1));

    // The clock set back three days: no scan, and the next one a day from now.
    now = scanned.addDays(-3);
    handler.checkSchedule();
    EXPECT_EQ(handler.nextScanDate(), now.addDays(1));
    // Set forward past the next scan: it runs at the next look.
    now = now.addDays(5);
    handler.checkSchedule();
    EXPECT_TRUE(waitFor([&] { return app.scans() == 2; }));

    // Settings from the application: weekly from a new date; kNever sleeps until told.
    app.send(QStringLiteral("kResponse_ScanFonts_Complete"), now);
    app.send(QStringLiteral("kResponse_Settings"),
        QVariantMap { { "autoScanFrequency", "kWeekly" }, { "kAutoScanLastDate", now },
            { "autoScanModifiedFolders", false }, { "fontFolderPaths", QStringList { home.path() } } });
    ASSERT_TRUE(
        waitFor([&] { return QVSettings(kHandler).autoScanFrequency() == QLatin1String("kWeekly"); }));
    EXPECT_EQ(handler.nextScanDate(), now.addDays(7));
    app.send(QStringLiteral("kResponse_Settings"), QVariantMap { { "autoScanFrequency", "kNever" } });
    ASSERT_TRUE(waitFor([&] { return !handler.nextScanDate().isValid(); }));
    EXPECT_EQ(handler.checkInterval(), 0) << "nothing scheduled, no timer";
    EXPECT_EQ(app.scans(), 2);
}

TEST_F(HandlerTest, AThousandCopiedFilesStartOneScanAndNewFoldersAreWatched)
{
    const QString watched = home.path() + QStringLiteral("/fonts");
    const QString source = home.path() + QStringLiteral("/incoming");
    QDir().mkpath(watched);
    const QByteArray font = readFile(kDejaVuSans).left(4096);
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(writeFile(source + QStringLiteral("/Font%1.ttf").arg(i), font));
    QVSettings own(kHandler);
    own.setAutoScanFrequency(QStringLiteral("kNever"));
    own.setAutoScanModifiedFolders(true);
    own.setFontFolderPaths({ watched });
    FakeApplication::setRunning(true);
    // Long enough that a copy slowed by a busy machine does not pause for it.
    handler.folderWatcher()->setSettleDelay(1500);
    handler.start();
    ASSERT_EQ(handler.folderWatcher()->watchedFolders(), QStringList { watched });

    // Copied by another program while the helper's event loop runs; the scan
    // is asked for once the copy has settled, so it sees every file.
    QList<qsizetype> filesAtScan;
    QObject::connect(&app.channel, &QVHelperCommunications::commandReceived, [&](const QString &command) {
        if (command == QLatin1String("kCommand_ScanFonts"))
            filesAtScan.append(QDir(watched + QStringLiteral("/incoming")).entryList(QDir::Files).size());
    });
    QProcess copy;
    copy.start(QStringLiteral("cp"), { QStringLiteral("-r"), source, watched });
    ASSERT_TRUE(waitFor([&] { return copy.state() == QProcess::NotRunning; }));
    ASSERT_EQ(copy.exitCode(), 0);
    ASSERT_EQ(QDir(watched + QStringLiteral("/incoming")).entryList(QDir::Files).size(), 1000);
    EXPECT_TRUE(waitFor([&] { return app.scans() == 1; }));
    settle();
    EXPECT_EQ(app.scans(), 1);
    EXPECT_EQ(filesAtScan, QList<qsizetype> { 1000 });
    EXPECT_TRUE(handler.folderWatcher()->watchedFolders().contains(watched + QStringLiteral("/incoming")));

    // A change inside the new folder, once the first scan has answered.
    app.send(QStringLiteral("kResponse_ScanFonts_Complete"), now);
    ASSERT_TRUE(waitFor([&] { return !handler.isScanInFlight(); }));
    ASSERT_TRUE(QFile::remove(watched + QStringLiteral("/incoming/Font7.ttf")));
    EXPECT_TRUE(waitFor([&] { return app.scans() == 2; }));
    settle();
    EXPECT_EQ(app.scans(), 2);
}

TEST_F(HandlerTest, HoldsTheScanForAnApplicationItStarts)
{
    QVSettings own(kHandler);
    own.setAutoScanFrequency(QStringLiteral("kMonthly"));
    own.setAutoScanModifiedFolders(false);
    own.setLastAutoScanDate(kLast);
    // A program that starts and ends: the application as far as the handler can tell.
    handler.applicationLink()->setApplicationPath(QStringLiteral("/bin/true"));
    handler.start();
    now = QDateTime(QDate(2027, 2, 28), QTime(9, 30));
    handler.checkSchedule();
    EXPECT_EQ(handler.applicationLink()->pendingCommand(), QStringLiteral("kCommand_ScanFonts"));

    // The application, started, asks what is held, then says it is ready.
    FakeApplication::setRunning(true);
    app.channel.sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);
    ASSERT_TRUE(waitFor([&] { return !app.responses.isEmpty(); }));
    EXPECT_EQ(app.responses.first().first, QStringLiteral("kCommand_HasPendingCommands"));
    EXPECT_EQ(app.responses.first().second.value("hasPending").toString(), QStringLiteral("YES"));
    EXPECT_EQ(app.scans(), 0);
    app.channel.sendResponse(
        QStringLiteral("kResponse_Ready"), kHandler, { { "kPayloadOptions", "autoScanEnabled" } });
    EXPECT_TRUE(waitFor([&] { return app.scans() == 1; }));
    EXPECT_TRUE(handler.applicationLink()->pendingCommand().isEmpty());

    // Logging is switched by the application; auto-scanning off ends the helper.
    app.channel.sendCommand(QStringLiteral("kCommand_Set_Logging"), kHandler,
        { { "kPayloadOptions", "loggingEnabledEnabled" } }, false);
    EXPECT_TRUE(waitFor([&] { return own.doLogging(); }));
    QSignalSpy quit(&handler, &QVAutoScanHandler::quitRequested);
    app.channel.sendResponse(
        QStringLiteral("kResponse_Ready"), kHandler, { { "kPayloadOptions", "autoScanDisabled" } });
    EXPECT_TRUE(waitFor([&] { return quit.count() == 1; }));
}

// The real programs, with nobody at the keyboard: the handler finds a daily
// scan two days overdue, starts the application, which scans and diagnoses
// the configured folder, records the scan, answers, and quits.
TEST(AutoScanEndToEnd, ADueScanRunsThroughTheApplicationWhichQuitsWhenDone)
{
    QVTestHome home;
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
    const QString folder = home.path() + QStringLiteral("/fonts");
    copyFont(kDejaVuSans, folder);
    copyFont(kDejaVuSerif, folder);
    QVSettings application;
    application.setPrefsVersion(QVSettings::kCurrentPrefsVersion);
    application.setIsInitialRun(false);
    application.setDontShowWelcomeScreenAtStartup(true);
    application.setShowReports(false);
    application.setShowHelperMenu(false);
    application.setAutoScanEnabled(true);
    application.setAutoScanQuitWhenDone(true);
    application.setAutoScanModifiedFolders(false);
    application.setAutoScanFrequency(QStringLiteral("kDaily"));
    application.setFontFolderPaths({ folder });
    const QDateTime started = QDateTime::currentDateTime();
    application.setLastAutoScanDate(started.addDays(-2));
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QProcess handler;
    handler.setProcessChannelMode(QProcess::ForwardedChannels);
    handler.start(QStringLiteral(QV_BIN_DIR "/quorvel-handler"), { QStringLiteral("--startup-delay"), "0" });
    ASSERT_TRUE(handler.waitForStarted());
    ASSERT_TRUE(waitFor([] { return QVLoginItem::isRunning(kApp); }, 120000))
        << "the application was not started";
    ASSERT_TRUE(waitFor([] { return !QVLoginItem::isRunning(kApp); }, 300000))
        << "the application did not quit";
    const QDateTime scanned = application.lastAutoScanDate();
    EXPECT_GT(scanned, started);
    EXPECT_EQ(application.lastScanTotalCount(), QStringLiteral("2"));
    EXPECT_EQ(application.lastScanProblemCount(), QStringLiteral("0"));
    // The handler heard the answer, and counts the next scan from it.
    EXPECT_TRUE(waitFor([&] { return QVSettings(kHandler).lastAutoScanDate() == scanned; }));
    EXPECT_EQ(handler.state(), QProcess::Running);

    // Stopped as the application stops it.
    EXPECT_TRUE(QVLoginItem::disable(kHandler));
    EXPECT_TRUE(handler.waitForFinished(20000));
    EXPECT_EQ(handler.exitCode(), 0);
}

// Where the desktop has no tray the scheduler still runs and answers.
TEST(SchedulerHelper, RunsWithoutATrayAnswersAndQuitsWhenAsked)
{
    QVTestHome home;
    FakeApplication app;
    QProcess scheduler;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    scheduler.setProcessEnvironment(environment);
    scheduler.start(QStringLiteral(QV_BIN_DIR "/quorvel-scheduler"), {});
    const QString id = QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier);
    ASSERT_TRUE(waitFor([&] { return QVLoginItem::isRunning(id); }, 60000));
    app.channel.sendCommand(QStringLiteral("kCommand_HasPendingCommands"), id, {}, true);
    ASSERT_TRUE(waitFor([&] { return !app.responses.isEmpty(); }));
    EXPECT_EQ(app.responses.first().second.value("hasPending").toString(), QStringLiteral("NO"));
    EXPECT_TRUE(QVLoginItem::disable(id));
    EXPECT_TRUE(scheduler.waitForFinished(20000));
    EXPECT_EQ(scheduler.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(scheduler.exitCode(), 0);
}

// The uninstall stops the running handler, not just its autostart entry.
TEST(HandlerHelper, TheUninstallStopsIt)
{
    QVTestHome home;
    QProcess handler;
    handler.start(QStringLiteral(QV_BIN_DIR "/quorvel-handler"), {});
    const QString id = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
    ASSERT_TRUE(waitFor([&] { return QVLoginItem::isRunning(id); }, 60000));
    QVUninstaller uninstaller;
    const QVUninstaller::Result result = uninstaller.removeUserData();
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    EXPECT_TRUE(handler.waitForFinished(20000)) << "the handler still runs";
    EXPECT_FALSE(QVLoginItem::isRunning(id));
    if (handler.state() != QProcess::NotRunning)
        handler.kill();
}

TEST(HandlerHelper, QuitsWhenItsSessionBusIsGone)
{
    // A session of its own, ended under the handler as a logout ends one.
    QVTestHome home;
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address") });
    ASSERT_TRUE(bus.waitForReadyRead(20000));
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    QProcess handler;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    handler.setProcessEnvironment(environment);
    handler.start(QStringLiteral(QV_BIN_DIR "/quorvel-handler"),
        { QStringLiteral("--bus-check"), QStringLiteral("100") });
    QDBusConnection session = QDBusConnection::connectToBus(address, QStringLiteral("handler-session"));
    const QString id = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
    ASSERT_TRUE(waitFor([&] { return session.interface()->isServiceRegistered(id).value(); }, 60000));
    QDBusConnection::disconnectFromBus(QStringLiteral("handler-session"));
    bus.kill();
    bus.waitForFinished();
    EXPECT_TRUE(handler.waitForFinished(20000));
    EXPECT_EQ(handler.exitStatus(), QProcess::NormalExit);
    if (handler.state() != QProcess::NotRunning)
        handler.kill();
}

} // namespace
