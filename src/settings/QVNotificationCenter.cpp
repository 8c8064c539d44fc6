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

void QVNotificationCenter::postScanFolderComplete(const QVariantMap &userInfo)
{
    QMetaObject::invokeMethod(
        this, [this, userInfo] { Q_EMIT kScanFolderComplete(userInfo); }, Qt::QueuedConnection);
}

void QVNotificationCenter::postEndDiagnosis(const QVariantMap &userInfo)
{
    QMetaObject::invokeMethod(
        this, [this, userInfo] { Q_EMIT kEndDiagnosis(userInfo); }, Qt::QueuedConnection);
}

void QVNotificationCenter::postEndDiagnosisAction(const QVariantMap &userInfo)
{
    QMetaObject::invokeMethod(
        this, [this, userInfo] { Q_EMIT kEndDiagnosisAction(userInfo); }, Qt::QueuedConnection);
}

// Compiled here, not with the rest of the core's meta-objects, so that a
// program using only the settings (the auto-scan handler) links no more.
#include "moc_QVNotificationCenter.cpp"
