#include "platform/QVDefaultApplication.h"

#include <QProcess>
#include <QStandardPaths>

QString QVDefaultApplication::open(const QString &path)
{
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (opener.isEmpty())
        return QStringLiteral("xdg-open is not installed");
    if (!QProcess::startDetached(opener, {path}))
        return QStringLiteral("could not start %1").arg(opener);
    return QString();
}
