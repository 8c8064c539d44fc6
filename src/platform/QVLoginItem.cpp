#include "platform/QVLoginItem.h"

#include "platform/QVAtomicFile.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

bool QVLoginItem::isRunning(const QString &bundleIdentifier)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface()
        && bus.interface()->isServiceRegistered(bundleIdentifier).value();
}

QString QVLoginItem::entryPath(const QString &bundleIdentifier)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/") + bundleIdentifier + QStringLiteral(".desktop");
}

bool QVLoginItem::enable(const QString &bundleIdentifier, const QString &program)
{
    if (!QFileInfo(program).isExecutable() || !QProcess::startDetached(program, {}))
        return false;
    const QString path = entryPath(bundleIdentifier);
    QDir().mkpath(QFileInfo(path).absolutePath());
    // Exec takes a quoted path (the install prefix may hold spaces): quoting
    // escapes first, then the value's own backslash escape, then field codes.
    QString exec;
    for (const QChar c : program) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            exec += QLatin1Char('\\');
        exec += c;
    }
    exec.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('%'), QStringLiteral("%%"));
    const QString entry = QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=\"%2\"\n"
                                         "NoDisplay=true\nX-GNOME-Autostart-enabled=true\n")
                              .arg(QFileInfo(program).fileName(), exec);
    return QVAtomicFile::write(path, entry.toUtf8()) == 0;
}

bool QVLoginItem::disable(const QString &bundleIdentifier)
{
    const QString path = entryPath(bundleIdentifier);
    const bool removed = !QFileInfo::exists(path) || QFile::remove(path);
    if (isRunning(bundleIdentifier)) {
        // Not waited for: the helper goes once it has read the call.
        QDBusConnection::sessionBus().send(
            QDBusMessage::createMethodCall(bundleIdentifier, QString::fromLatin1(kControlPath),
                QString::fromLatin1(kControlInterface), QStringLiteral("Quit")));
    }
    return removed;
}
