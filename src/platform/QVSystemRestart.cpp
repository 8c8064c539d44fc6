#include "platform/QVSystemRestart.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace
{

std::function<QString()> &hook()
{
    static std::function<QString()> instance;
    return instance;
}

} // namespace

QString QVSystemRestart::restart()
{
    if (hook())
        return hook()();
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.login1"),
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("Reboot"));
    // Interactive: polkit may ask for a password rather than refuse.
    call << true;
    const QDBusMessage reply = QDBusConnection::systemBus().call(call, QDBus::Block, 30000);
    if (reply.type() == QDBusMessage::ErrorMessage)
        return reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
    return QString();
}

void QVSystemRestart::setHook(std::function<QString()> newHook)
{
    hook() = std::move(newHook);
}
