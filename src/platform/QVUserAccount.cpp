#include "platform/QVUserAccount.h"

#include <QFile>
#include <QSysInfo>

#include <pwd.h>
#include <unistd.h>

#include <vector>

QString QVUserAccount::fullUserName()
{
    struct passwd entry = {};
    struct passwd *found = nullptr;
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? size_t(size) : 16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return qEnvironmentVariable("USER");
    const QString gecos = QString::fromLocal8Bit(found->pw_gecos ? found->pw_gecos : "");
    const QString fullName = gecos.section(QLatin1Char(','), 0, 0).trimmed();
    return fullName.isEmpty() ? QString::fromLocal8Bit(found->pw_name) : fullName;
}

QString QVUserAccount::localizedHostName()
{
    QFile machineInfo(QStringLiteral("/etc/machine-info"));
    if (machineInfo.open(QIODevice::ReadOnly | QIODevice::Text)) {
        // A small key=value file; the value may be quoted.
        const QList<QByteArray> lines = machineInfo.read(64 * 1024).split('\n');
        for (const QByteArray &line : lines) {
            if (!line.startsWith("PRETTY_HOSTNAME="))
                continue;
            QString value = QString::fromUtf8(line.mid(16)).trimmed();
            if (value.size() >= 2 && (value.startsWith(QLatin1Char('"')) || value.startsWith(QLatin1Char('\'')))
                && value.endsWith(value.at(0)))
                value = value.mid(1, value.size() - 2);
            if (!value.isEmpty())
                return value;
        }
    }
    return QSysInfo::machineHostName();
}
