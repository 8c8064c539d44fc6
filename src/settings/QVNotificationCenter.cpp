#include "settings/QVNotificationCenter.h"

#include <QCoreApplication>
#include <QMetaObject>

QVNotificationCenter *QVNotificationCenter::defaultCenter()
{
    static QVNotificationCenter *center = [] {
        auto *created = new QVNotificationCenter;
        // Lives on the main thread so that posts are delivered there.
        if (QCoreApplication::instance())
            created->moveToThread(QCoreApplication::instance()->thread());
        return created;
    }();
    return center;
}

QVNotificationCenter::QVNotificationCenter() = default;

void QVNotificationCenter::postNotification(const QString &name, const QVariantMap &userInfo)
{
    QMetaObject::invokeMethod(
        this, [this, name, userInfo] { Q_EMIT notificationPosted(name, userInfo); }, Qt::QueuedConnection);
}
