// The in-process notifications, one signal each: "kScanFolderComplete" (a
// discovery scan ended), "kEndDiagnosis" (the passes of a diagnosis ended) and
// "kEndDiagnosisAction" (the resolution, or a run with nothing to resolve,
// ended). A post from any thread is delivered on the main thread.
#pragma once

#include <QObject>
#include <QVariantMap>

class QVNotificationCenter : public QObject
{
    Q_OBJECT

public:
    static QVNotificationCenter *defaultCenter();

    // Queue the signal for delivery on the main thread.
    void postScanFolderComplete(const QVariantMap &userInfo);
    void postEndDiagnosis(const QVariantMap &userInfo = {});
    void postEndDiagnosisAction(const QVariantMap &userInfo = {});

Q_SIGNALS:
    // userInfo "status": "success" or "cancelled".
    void kScanFolderComplete(const QVariantMap &userInfo);
    // userInfo "object": the diagnosis that ended.
    void kEndDiagnosis(const QVariantMap &userInfo);
    void kEndDiagnosisAction(const QVariantMap &userInfo);

private:
    QVNotificationCenter();
};
