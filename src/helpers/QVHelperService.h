// A helper program's presence on the session bus: it owns its bundle
// identifier as a bus name (which is how the application tells that it runs)
// and answers Quit, which the application calls to stop it.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

class QVHelperService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.quorvel.Helper")

public:
    explicit QVHelperService(const QString &bundleIdentifier, QObject *parent = nullptr);
    ~QVHelperService() override;

    // False when there is no session bus, or another copy of the helper
    // already owns the name.
    bool registerOnBus();
    // A helper whose session ended (its bus gone) asks to quit: nothing can
    // reach it any more. Looked at every interval (a minute by default).
    void setBusCheckInterval(int ms) { m_busCheck.setInterval(ms); }

public Q_SLOTS:
    Q_SCRIPTABLE void Quit();

Q_SIGNALS:
    void quitRequested();

private:
    QTimer m_busCheck;
    QString m_bundleIdentifier;
    bool m_registered = false;
};
