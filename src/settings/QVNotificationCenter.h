// In-process notifications ("kScanFolderComplete", "kEndDiagnosis",
// "kEndDiagnosisAction"). A post from any thread is delivered to observers on
// the main event loop.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

inline constexpr const char kScanFolderComplete[] = "kScanFolderComplete";
inline constexpr const char kEndDiagnosis[] = "kEndDiagnosis";
inline constexpr const char kEndDiagnosisAction[] = "kEndDiagnosisAction";

class QVNotificationCenter : public QObject
{
    Q_OBJECT

public:
    static QVNotificationCenter *defaultCenter();

    // Queues the notification for delivery on the main event loop.
    void postNotification(const QString &name, const QVariantMap &userInfo = {});

Q_SIGNALS:
    void notificationPosted(const QString &name, const QVariantMap &userInfo);

private:
    QVNotificationCenter();
};
