#include "settings/QVHelperCommunications.h"

#include "settings/QVLog.h"
#include "settings/QVSettings.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>
#include <functional>
#include <gtest/gtest.h>

namespace
{

const QString kApp = QString::fromLatin1(QVSettings::kBundleIdentifier);
const QString kHandler = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
const QString kScheduler = QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier);

bool waitFor(const std::function<bool()> &condition, int timeoutMs = 10000)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

void spin(int milliseconds)
{
    waitFor([] { return false; }, milliseconds);
}

struct Message {
    QString kind; // "command", "response" or "timeout"
    QString name;
    QString sender;
    QVariantMap options;
};

class RecordingDelegate final
{
public:
    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
    {
        messages.append({ QStringLiteral("command"), command, sender, options });
    }
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        messages.append({ QStringLiteral("response"), response, sender, options });
    }
    void gotTimeout(const QString &command)
    {
        messages.append({ QStringLiteral("timeout"), command, QString(), {} });
    }

    int count(const QString &kind) const
    {
        return int(std::count_if(
            messages.begin(), messages.end(), [&](const Message &message) { return message.kind == kind; }));
    }

    QList<Message> messages;
};

} // namespace

// Sees every message on the bus, whoever it is addressed to.
class QVBusRecorder : public QObject
{
    Q_OBJECT

public:
    QVBusRecorder()
    {
        QDBusConnection::sessionBus().connect(QString(), QString::fromLatin1(kQVHelperCommunicationPath),
            QString::fromLatin1(kQVHelperCommunicationInterface),
            QString::fromLatin1(kQVHelperCommunicationNotification), this, SLOT(record(QVariantMap)));
    }

    QList<QVariantMap> seen;

public Q_SLOTS:
    void record(const QVariantMap &userInfo)
    {
        seen.append(QVHelperCommunications::fromWire(userInfo).toMap());
    }
};

namespace
{

class HelperChannelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!QDBusConnection::sessionBus().isConnected())
            GTEST_SKIP() << "no session bus: run under dbus-run-session (scripts/test.sh does)";
        channel = std::make_unique<QVHelperCommunications>(kApp);
        qvtest::listen(*channel, delegate);
    }

    void TearDown() override
    {
        if (peer.state() != QProcess::NotRunning) {
            peer.terminate();
            peer.waitForFinished(5000);
        }
    }

    // Starts the stand-in helper with the given identity and waits until it
    // owns its name on the bus.
    bool startPeer(const QString &identifier)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
        peer.setProcessEnvironment(env);
        peer.start(QStringLiteral(QV_HELPER_PEER_PATH), { identifier });
        if (!peer.waitForStarted(10000))
            return false;
        return waitFor([&] {
            peerOutput += QString::fromUtf8(peer.readAllStandardOutput());
            return peerOutput.startsWith(QStringLiteral("ready\n"))
                && QDBusConnection::sessionBus().interface()->isServiceRegistered(identifier).value();
        });
    }

    QStringList peerLines()
    {
        peerOutput += QString::fromUtf8(peer.readAllStandardOutput());
        QStringList lines = peerOutput.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        lines.removeAll(QStringLiteral("ready"));
        return lines;
    }

    QVTestHome home;
    RecordingDelegate delegate;
    std::unique_ptr<QVHelperCommunications> channel;
    QVBusRecorder recorder;
    QProcess peer;
    QString peerOutput;
};

TEST(QVHelperChannel, DefaultTimeoutAndNoBus)
{
    QVTestHome home;
    EXPECT_EQ(QVHelperCommunications::kDefaultTimeoutMs, 5000);

    int reports = 0;
    static int *counter = nullptr;
    counter = &reports;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext &context, const QString &message) {
            if (type == QtWarningMsg && qstrcmp(context.category, "quorvel.helpers") == 0
                && message.contains(QLatin1String("unavailable")))
                ++*counter;
        });
    const QDBusConnection nowhere = QDBusConnection::connectToBus(
        QStringLiteral("unix:path=/nonexistent/quorvel-test-bus"), QStringLiteral("quorvel-test-nowhere"));
    {
        QVHelperCommunications first(kApp, nowhere);
        QVHelperCommunications second(kApp, nowhere);
        EXPECT_FALSE(first.isAvailable());
        EXPECT_FALSE(second.isAvailable());
        EXPECT_EQ(first.timeoutInterval(), 5000);
        // Sending goes nowhere and does not fail; a timeout still ends the wait.
        RecordingDelegate delegate;
        qvtest::listen(first, delegate);
        first.setTimeoutInterval(50);
        first.sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);
        first.sendResponse(QStringLiteral("kResponse_Ready"), QString(),
            { { QStringLiteral("kPayloadOptions"), QStringLiteral("autoScanDisabled") } });
        EXPECT_TRUE(waitFor([&] { return delegate.count(QStringLiteral("timeout")) == 1; }));
    }
    qInstallMessageHandler(previous);
    QDBusConnection::disconnectFromBus(QStringLiteral("quorvel-test-nowhere"));
    // Reported once per process; only a process that had no bus before this
    // test could have reported it already.
    if (QDBusConnection::sessionBus().isConnected())
        EXPECT_EQ(reports, 1);
    else
        EXPECT_LE(reports, 1);
}

TEST(QVHelperChannel, DatesTravelAsIsoUtcStrings)
{
    const QDateTime date(QDate(2026, 3, 1), QTime(14, 5, 9, 120), Qt::UTC);
    const QVariantMap options { { QStringLiteral("kPayloadOptions"),
        QVariantMap { { QStringLiteral("kAutoScanLastDate"), date },
            { QStringLiteral("fontFolderPaths"), QStringList { QStringLiteral("/a/") } } } } };
    const QVariantMap wire = QVHelperCommunications::toWire(options).toMap();
    EXPECT_EQ(
        wire.value(QStringLiteral("kPayloadOptions")).toMap().value(QStringLiteral("kAutoScanLastDate")),
        QVariant(QStringLiteral("2026-03-01T14:05:09.120Z")));
    const QVariantMap back = QVHelperCommunications::fromWire(wire).toMap();
    EXPECT_EQ(back.value(QStringLiteral("kPayloadOptions"))
                  .toMap()
                  .value(QStringLiteral("kAutoScanLastDate"))
                  .toDateTime(),
        date);
    // Ordinary strings stay strings.
    EXPECT_EQ(
        QVHelperCommunications::fromWire(QStringLiteral("autoScanEnabled")).typeId(), QMetaType::QString);
}

TEST_F(HelperChannelTest, LogsWhatItSendsAndReceivesWhenLoggingIsOn)
{
    static QStringList *lines = nullptr;
    QStringList captured;
    lines = &captured;
    const QtMessageHandler previous
        = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &message) {
              if (qstrcmp(context.category, "quorvel.helpers") == 0)
                  lines->append(message);
          });
    QVSettings().setDoLogging(true);
    QVLog::setEnabled(true);
    QVHelperCommunications handler(kHandler);
    channel->sendResponse(QStringLiteral("kResponse_Ready"), QString(),
        { { QStringLiteral("kPayloadOptions"), QStringLiteral("autoScanEnabled") } });
    waitFor([&] { return captured.size() >= 3; });
    spin(100);
    QVLog::setEnabled(false);
    qInstallMessageHandler(previous);

    // One line for the send; the handler logs the copy addressed to it, the
    // scheduler's copy is not its business.
    ASSERT_EQ(captured.size(), 2) << qPrintable(captured.join(QLatin1Char('|')));
    EXPECT_EQ(captured.at(0),
        QStringLiteral("Sent Response: kResponse_Ready to Recipient: (null) with Options: "
                       "{\"kPayloadOptions\":\"autoScanEnabled\"}\n"));
    EXPECT_EQ(captured.at(1),
        QStringLiteral("Got Response: kResponse_Ready from Sender: ") + kApp
            + QStringLiteral(" with Options: {\"kPayloadOptions\":\"autoScanEnabled\"}\n"));
}

TEST_F(HelperChannelTest, ATimeoutFiresOnceWithTheLastCommandsName)
{
    channel->setTimeoutInterval(200);
    channel->sendCommand(QStringLiteral("kCommand_GetSettings"), kScheduler, {}, true);
    // A second command with a timeout replaces the first.
    channel->sendCommand(QStringLiteral("kCommand_HasPendingCommands"), kScheduler, {}, true);
    EXPECT_EQ(channel->awaitedCommand(), QStringLiteral("kCommand_HasPendingCommands"));
    ASSERT_TRUE(waitFor([&] { return delegate.count(QStringLiteral("timeout")) > 0; }));
    spin(600);
    ASSERT_EQ(delegate.count(QStringLiteral("timeout")), 1);
    EXPECT_EQ(delegate.messages.last().name, QStringLiteral("kCommand_HasPendingCommands"));
    EXPECT_EQ(channel->awaitedCommand(), QString(""));
    // Its own message to the scheduler was on the bus but is not acted on here.
    EXPECT_EQ(delegate.count(QStringLiteral("command")), 0);
    EXPECT_TRUE(waitFor([&] { return recorder.seen.size() == 2; }));
}

TEST_F(HelperChannelTest, ACommandToBothHelpersGoesToTheHandlerFirstAndItsAnswerEndsTheWait)
{
    ASSERT_TRUE(startPeer(kHandler));
    channel->setTimeoutInterval(1000);
    channel->sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);

    ASSERT_TRUE(waitFor([&] { return delegate.count(QStringLiteral("response")) == 1; }));
    const Message answer = delegate.messages.first();
    EXPECT_EQ(answer.name, QStringLiteral("kCommand_HasPendingCommands"));
    EXPECT_EQ(answer.sender, kHandler);
    EXPECT_EQ(
        answer.options.value(QStringLiteral("kPayloadOptions")).toMap().value(QStringLiteral("hasPending")),
        QVariant(QStringLiteral("YES")));
    EXPECT_EQ(channel->awaitedCommand(), QString(""));
    // Well past the timeout: the answer cancelled it.
    spin(1500);
    EXPECT_EQ(delegate.count(QStringLiteral("timeout")), 0);

    // Two notifications, handler first, four keys each (no options); the
    // handler's answer carries its options as a fifth. The bus keeps each
    // sender's order, not the order between senders.
    QList<QVariantMap> fromApp, fromHandler;
    for (const QVariantMap &message : recorder.seen)
        (message.value(QStringLiteral("kPayloadSender")).toString() == kApp ? fromApp : fromHandler)
            .append(message);
    ASSERT_EQ(fromApp.size(), 2);
    EXPECT_EQ(fromApp.at(0).value(QStringLiteral("kPayloadRecipient")).toString(), kHandler);
    EXPECT_EQ(fromApp.at(1).value(QStringLiteral("kPayloadRecipient")).toString(), kScheduler);
    for (const QVariantMap &sent : fromApp) {
        EXPECT_EQ(sent.size(), 4);
        EXPECT_EQ(sent.value(QStringLiteral("kPayloadType")).toString(), QStringLiteral("kCommand"));
        EXPECT_EQ(
            sent.value(QStringLiteral("kCommand")).toString(), QStringLiteral("kCommand_HasPendingCommands"));
    }
    ASSERT_EQ(fromHandler.size(), 1);
    EXPECT_EQ(fromHandler.first().size(), 5);
    EXPECT_EQ(
        fromHandler.first().value(QStringLiteral("kPayloadType")).toString(), QStringLiteral("kResponse"));
    EXPECT_EQ(fromHandler.first().value(QStringLiteral("kPayloadRecipient")).toString(), kApp);

    // The handler acted on its own copy only, not on the scheduler's.
    EXPECT_EQ(peerLines(),
        QStringList { QStringLiteral("command kCommand_HasPendingCommands from ") + kApp
            + QStringLiteral(" with (null)") });
}

TEST_F(HelperChannelTest, MessagesForOtherProcessesAreIgnored)
{
    ASSERT_TRUE(startPeer(kHandler));
    channel->sendCommand(QStringLiteral("kCommand_Reset_Settings"), kHandler, {}, false);
    ASSERT_TRUE(waitFor([&] { return delegate.count(QStringLiteral("command")) == 1; }));
    spin(200);
    // The handler sent "kCommand_RemoveMenu" to the scheduler before this one;
    // the bus carried it here too, and it was dropped.
    ASSERT_EQ(delegate.messages.size(), 1);
    EXPECT_EQ(delegate.messages.first().name, QStringLiteral("kCommand_ShowAutoscanSettings"));
    EXPECT_EQ(delegate.messages.first().sender, kHandler);
    bool removeMenuSeen = false;
    for (const QVariantMap &message : recorder.seen) {
        if (message.value(QStringLiteral("kCommand")).toString() == QLatin1String("kCommand_RemoveMenu")) {
            removeMenuSeen = true;
            EXPECT_EQ(message.value(QStringLiteral("kPayloadRecipient")).toString(), kScheduler);
        }
    }
    EXPECT_TRUE(removeMenuSeen);
}

TEST_F(HelperChannelTest, DatesComeBackAsDatesFromAnotherProcess)
{
    ASSERT_TRUE(startPeer(kHandler));
    const QDateTime started = QDateTime::currentDateTimeUtc();
    channel->sendResponse(QStringLiteral("kResponse_ScanFonts_Start"), kHandler,
        { { QStringLiteral("kPayloadOptions"), started } });
    ASSERT_TRUE(waitFor([&] { return delegate.count(QStringLiteral("command")) == 1; }));
    const Message echo = delegate.messages.first();
    EXPECT_EQ(echo.name, QStringLiteral("kCommand_ScanFonts"));
    const QVariant date = echo.options.value(QStringLiteral("kPayloadOptions"));
    ASSERT_EQ(date.typeId(), QMetaType::QDateTime);
    // Milliseconds survive the trip.
    EXPECT_EQ(date.toDateTime(), started);
    EXPECT_TRUE(
        peerLines().value(0).startsWith(QStringLiteral("response kResponse_ScanFonts_Start from ") + kApp));
}

} // namespace

#include "QVHelperCommunicationsTest.moc"
