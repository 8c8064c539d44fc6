#include "support/QVTestHome.h"

#include "settings/QVSettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

QVTestHome::QVTestHome()
    : m_savedHome(qgetenv("HOME"))
    , m_savedData(qgetenv("XDG_DATA_HOME"))
    , m_savedConfig(qgetenv("XDG_CONFIG_HOME"))
{
    QDir().mkpath(configHome());
    QDir().mkpath(dataHome());
    qputenv("HOME", path().toUtf8());
    qputenv("XDG_DATA_HOME", dataHome().toUtf8());
    qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
    QVSettings::unregisterUserPreferences();
}

QVTestHome::~QVTestHome()
{
    QVSettings::unregisterUserPreferences();
    auto restore = [](const char *name, const QByteArray &value) {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    };
    restore("HOME", m_savedHome);
    restore("XDG_DATA_HOME", m_savedData);
    restore("XDG_CONFIG_HOME", m_savedConfig);
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
