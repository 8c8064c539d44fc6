// The application's end of the channel to its helper programs: one signal on
// the session bus that every process of the user observes. Commands and
// responses are filtered by recipient, handed to a delegate, and a command may
// wait for an answer with a timeout.
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <memory>

class QTimer;
class QVSettings;

inline constexpr const char kQVHelperCommunicationNotification[] = "kQVHelperCommunicationNotification";
inline constexpr const char kQVHelperCommunicationPath[] = "/org/quorvel/HelperCommunication";
inline constexpr const char kQVHelperCommunicationInterface[] = "org.quorvel.HelperCommunication";

// Every method has an empty default: a delegate implements what it cares about.
class QVHelperCommunications : public QObject
{
    Q_OBJECT

public:
    static constexpr int kDefaultTimeoutMs = 5000;

    // ownIdentifier is the bundle identifier this process answers to.
    explicit QVHelperCommunications(const QString &ownIdentifier = QStringLiteral("org.quorvel.Quorvel"),
        const QDBusConnection &connection = QDBusConnection::sessionBus(), QObject *parent = nullptr);
    ~QVHelperCommunications() override;

    // False when there is no session bus; messages are then dropped.
    bool isAvailable() const { return m_available; }
    QString ownIdentifier() const { return m_ownIdentifier; }

    // How long a command waits for an answer.
    int timeoutInterval() const { return m_timeoutMs; }
    void setTimeoutInterval(int milliseconds) { m_timeoutMs = milliseconds; }
    // The command awaiting an answer, "" when none.
    QString awaitedCommand() const { return m_awaitedCommand; }

    // With no recipient, the command goes to the handler helper, then to the
    // scheduler helper.
    void sendCommand(
        const QString &command, const QString &recipient, const QVariantMap &options, bool withTimeout);
    void sendResponse(const QString &response, const QString &recipient, const QVariantMap &options);

    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options);
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options);
    void gotTimeout(const QString &command);

    // Dates become ISO 8601 UTC strings for the bus, and such strings dates again.
    static QVariant toWire(const QVariant &value);
    static QVariant fromWire(const QVariant &value);
    // How a message's options appear in the log.
    static QString describe(const QVariantMap &options);

public Q_SLOTS:
    void receivedCommunication(const QVariantMap &userInfo);

Q_SIGNALS:
    // A command or an answer from another of the three programs, and a
    // command that got no answer in time.
    void commandReceived(const QString &command, const QString &sender, const QVariantMap &options);
    void responseReceived(const QString &response, const QString &sender, const QVariantMap &options);
    void commandTimedOut(const QString &command);

private:
    void post(const QString &type, const QString &name, const QString &recipient, const QVariantMap &options);
    void doTimeout();
    void stopTimer();

    QString m_ownIdentifier;
    QDBusConnection m_connection;
    bool m_available = false;
    QTimer *m_timer = nullptr;
    QString m_awaitedCommand = QString("");
    int m_timeoutMs = kDefaultTimeoutMs;
    std::unique_ptr<QVSettings> m_settings;
};
