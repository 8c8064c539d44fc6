#include "support/QVTestHome.h"

#include "settings/QVSettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{
const char *const kVariables[] = { "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME" };
}

QVTestHome::QVTestHome()
{
    const QString values[] = { path(), dataHome(), configHome(), path() + QStringLiteral("/.cache") };
    for (int i = 0; i < 4; ++i) {
        m_saved[i] = qgetenv(kVariables[i]);
        QDir().mkpath(values[i]);
        qputenv(kVariables[i], values[i].toUtf8());
    }
    QVSettings::unregisterUserPreferences();
}

QVTestHome::~QVTestHome()
{
    QVSettings::unregisterUserPreferences();
    for (int i = 0; i < 4; ++i) {
        if (m_saved[i].isNull())
            qunsetenv(kVariables[i]);
        else
            qputenv(kVariables[i], m_saved[i]);
    }
}

QString QVTestHome::writeFile(const QString &relativePath, const QByteArray &contents) const
{
    const QString full = path() + QLatin1Char('/') + relativePath;
    QDir().mkpath(QFileInfo(full).absolutePath());
    QFile file(full);
    if (file.open(QIODevice::WriteOnly))
        file.write(contents);
    return full;
}

QString testDataPath(const QString &relativePath)
{
    return QStringLiteral(QV_TEST_DATA_DIR) + QLatin1Char('/') + relativePath;
}
