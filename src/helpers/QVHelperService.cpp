#include "helpers/QVHelperService.h"

#include "platform/QVLoginItem.h"
#include "settings/QVLog.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

QVHelperService::QVHelperService(const QString &bundleIdentifier, QObject *parent)
    : QObject(parent)
    , m_bundleIdentifier(bundleIdentifier)
{
    m_busCheck.setInterval(60 * 1000);
    m_busCheck.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_busCheck, &QTimer::timeout, this, [this] {
        if (QDBusConnection::sessionBus().isConnected())
            return;
        qCInfo(lcHelpers) << "The session bus is gone: quitting";
        m_busCheck.stop();
        Q_EMIT quitRequested();
    });
}

QVHelperService::~QVHelperService()
{
    if (!m_registered)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterObject(QString::fromLatin1(QVLoginItem::kControlPath));
    bus.unregisterService(m_bundleIdentifier);
}

bool QVHelperService::registerOnBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    // Not queued: a second copy gives up at once rather than waiting its turn.
    const auto reply = bus.interface()->registerService(m_bundleIdentifier,
        QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered)
        return false;
    m_registered = bus.registerObject(
        QString::fromLatin1(QVLoginItem::kControlPath), this, QDBusConnection::ExportScriptableSlots);
    if (!m_registered) {
        bus.unregisterService(m_bundleIdentifier);
        return false;
    }
    m_busCheck.start();
    return true;
}

void QVHelperService::Quit()
{
    Q_EMIT quitRequested();
}
