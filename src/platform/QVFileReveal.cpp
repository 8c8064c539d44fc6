#include "platform/QVFileReveal.h"

#include "platform/QVDefaultApplication.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QUrl>

void QVFileReveal::revealInFinder(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QVDefaultApplication::open(folder);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(kService),
        QString::fromLatin1(kPath), QString::fromLatin1(kService), QStringLiteral("ShowItems"));
    call << QStringList { QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded) } << QString();
    // Asynchronous: a file manager started on demand may take its time.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, watcher, [folder](QDBusPendingCallWatcher *w) {
            if (w->isError())
                QVDefaultApplication::open(folder);
            w->deleteLater();
        });
}
