#include "QVFakeFileManager.h"

#include "platform/QVFileReveal.h"

#include <QDBusConnection>

QVFakeFileManager::QVFakeFileManager()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    m_registered = bus.isConnected()
        && bus.registerObject(QString::fromLatin1(QVFileReveal::kPath), this, QDBusConnection::ExportAllSlots)
        && bus.registerService(QString::fromLatin1(QVFileReveal::kService));
}

QVFakeFileManager::~QVFakeFileManager()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(QString::fromLatin1(QVFileReveal::kService));
    bus.unregisterObject(QString::fromLatin1(QVFileReveal::kPath));
}

void QVFakeFileManager::ShowItems(const QStringList &uris, const QString &)
{
    shown += uris;
}
