// A helper's way of getting a command to the application: sent at once when
// the application runs; otherwise the application is started and the command
// held until the application, having asked whether a helper holds one, says
// it is ready.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

class QDBusServiceWatcher;
class QVHelperCommunications;
class QVSettings;

class QVApplicationLink : public QObject
{
    Q_OBJECT

public:
    explicit QVApplicationLink(QVHelperCommunications *channel, QObject *parent = nullptr);

    // The application program; by default `quorvel` beside the helper.
    QString applicationPath() const { return m_applicationPath; }
    void setApplicationPath(const QString &program) { m_applicationPath = program; }
    bool isApplicationRunning() const;

    // False when the application does not run and could not be started.
    bool sendCommand(const QString &command);
    // Starts the application unless it runs; nothing is held for it.
    bool openApplication();
    // The command held for an application that is starting, "" when none.
    QString pendingCommand() const { return m_pendingCommand; }

    // A helper's copy of the auto-scan settings, in its own settings file:
    // filled from what the application has stored (else its defaults), and
    // updated from the application's "kResponse_Settings" dictionary.
    static const QStringList &autoScanKeys();
    static void copyApplicationSettings(QVSettings &into);
    static void storeSettings(QVSettings &into, const QVariantMap &settings);

    // The application's side of the hand-over; true when the message was one
    // of them.
    bool handleCommand(const QString &command, const QString &sender);
    bool handleResponse(const QString &response, const QString &sender, const QVariantMap &options);

Q_SIGNALS:
    // "kResponse_Ready": whether auto-scanning is on.
    void applicationReady(bool autoScanEnabled);
    // The application's name left the bus: it quit or crashed.
    void applicationQuit();

private:
    QVHelperCommunications *m_channel;
    QDBusServiceWatcher *m_watcher;
    QString m_applicationPath;
    QString m_pendingCommand = QString("");
};
