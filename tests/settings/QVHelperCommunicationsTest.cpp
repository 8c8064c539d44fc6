// The helper channel on a real session bus with a stand-in helper process (qv-helper-peer), and without a
// bus.
#include "settings/QVHelperCommunications.h"

#include "settings/QVSettings.h"
#include "support/QVFixtures.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QRegularExpression>
#include <gtest/gtest.h>

using QVFixtures::waitFor;

namespace
{

const QString kApp = QString::fromLatin1(QVSettings::kBundleIdentifier);
const QString kHandler = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
const QString kScheduler = QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier);

// "kind name sender" of every message delivered, and the last options.
struct RecordingDelegate final {
    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
    {
        heard << "command " + command + " " + sender;
        lastOptions = options.value(QStringLiteral("kPayloadOptions"));
    }
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        heard << "response " + response + " " + sender;
        lastOptions = options.value(QStringLiteral("kPayloadOptions"));
    }
    void gotTimeout(const QString &command) { heard << "timeout " + command; }
    int count(const QString &kind) const
    {
        return int(heard.filter(QRegularExpression("^" + kind + " ")).size());
    }

    QStringList heard;
    QVariant lastOptions;
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
    QStringList seen; // "type command-or-response sender>recipient keys" of each message

public Q_SLOTS:
    void record(const QVariantMap &userInfo)
    {
        const QVariantMap m = QVHelperCommunications::fromWire(userInfo).toMap();
        const QString type = m.value("kPayloadType").toString();
        seen << QStringLiteral("%1 %2 %3>%4 %5")
                    .arg(type, m.value(type).toString(), m.value("kPayloadSender").toString(),
                        m.value("kPayloadRecipient").toString())
                    .arg(m.size());
    }
};

namespace
{

TEST(QVHelperChannel, WithoutABusNothingFailsAndATimeoutStillEndsTheWait)
{
    QVTestHome home;
    const QDBusConnection nowhere = QDBusConnection::connectToBus(
        QStringLiteral("unix:path=/nonexistent/quorvel-test-bus"), QStringLiteral("quorvel-test-nowhere"));
    {
        QVHelperCommunications first(kApp, nowhere), second(kApp, nowhere);
        EXPECT_FALSE(first.isAvailable() || second.isAvailable());
        RecordingDelegate delegate;
        qvtest::listen(first, delegate);
        first.setTimeoutInterval(50);
        first.sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);
        first.sendResponse(
            QStringLiteral("kResponse_Ready"), QString(), { { "kPayloadOptions", "autoScanDisabled" } });
        EXPECT_TRUE(waitFor([&] { return delegate.count("timeout") == 1; }));
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("quorvel-test-nowhere"));
}

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
        peer.terminate();
        peer.waitForFinished(5000);
    }
    // Starts the stand-in handler and waits until it owns its name on the bus.
    bool startHandler()
    {
        peer.setProcessEnvironment(QVFixtures::cliEnvironment(home));
        peer.start(QStringLiteral(QV_HELPER_PEER_PATH), { kHandler });
        return peer.waitForStarted(10000) && waitFor([&] {
            return peerLines().contains("ready")
                && QDBusConnection::sessionBus().interface()->isServiceRegistered(kHandler).value();
        });
    }
    QStringList peerLines()
    {
        peerOutput += QString::fromUtf8(peer.readAllStandardOutput());
        return peerOutput.split('\n', Qt::SkipEmptyParts);
    }
    // Waits for a message of the kind and a little more; what was heard meanwhile, taken.
    QStringList takeHeard(const QString &kind, int settleMs)
    {
        EXPECT_TRUE(waitFor([&] { return delegate.count(kind) > 0; })) << qPrintable(kind);
        waitFor([] { return false; }, settleMs);
        return std::exchange(delegate.heard, {});
    }

    QVTestHome home;
    RecordingDelegate delegate;
    std::unique_ptr<QVHelperCommunications> channel;
    QVBusRecorder recorder;
    QProcess peer;
    QString peerOutput;
};

TEST_F(HelperChannelTest, TheHandlerInAnotherProcessAnswersWhatIsAddressedToIt)
{
    ASSERT_TRUE(startHandler());
    // A command to both helpers goes to the handler first; its answer ends the wait, well before the timeout.
    channel->setTimeoutInterval(1000);
    channel->sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);
    EXPECT_EQ(
        takeHeard("response", 1500), QStringList { "response kCommand_HasPendingCommands " + kHandler });
    EXPECT_EQ(delegate.lastOptions.toMap().value("hasPending"), QVariant("YES"));
    EXPECT_EQ(channel->awaitedCommand(), QString(""));
    // Four keys to a message without options, five with; the bus keeps each sender's order only.
    const QString command = "kCommand kCommand_HasPendingCommands " + kApp;
    EXPECT_EQ(recorder.seen.filter(command),
        (QStringList { command + ">" + kHandler + " 4", command + ">" + kScheduler + " 4" }));
    EXPECT_EQ(recorder.seen.filter("kResponse"),
        QStringList { "kResponse kCommand_HasPendingCommands " + kHandler + ">" + kApp + " 5" });
    // The handler acted on its own copy only, not on the scheduler's.
    EXPECT_EQ(peerLines().mid(1),
        QStringList { "command kCommand_HasPendingCommands from " + kApp + " with (null)" });

    // The handler's message to the scheduler reaches this process too, and is dropped.
    channel->sendCommand(QStringLiteral("kCommand_Reset_Settings"), kHandler, {}, false);
    EXPECT_EQ(takeHeard("command", 200), QStringList { "command kCommand_ShowAutoscanSettings " + kHandler });
    EXPECT_EQ(recorder.seen.filter("kCommand_RemoveMenu"),
        QStringList { "kCommand kCommand_RemoveMenu " + kHandler + ">" + kScheduler + " 4" });

    // Dates come back as dates, to the millisecond.
    const QDateTime started = QDateTime::currentDateTimeUtc();
    channel->sendResponse(
        QStringLiteral("kResponse_ScanFonts_Start"), kHandler, { { "kPayloadOptions", started } });
    EXPECT_EQ(takeHeard("command", 0), QStringList { "command kCommand_ScanFonts " + kHandler });
    EXPECT_EQ(delegate.lastOptions, QVariant(started)); // a date, not its text
    EXPECT_TRUE(peerLines().last().startsWith("response kResponse_ScanFonts_Start from " + kApp));
}

} // namespace

#include "QVHelperCommunicationsTest.moc"
