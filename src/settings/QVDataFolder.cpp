#include "settings/QVDataFolder.h"

#include <QDir>
#include <QStandardPaths>

QString QVDataFolder::path()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Quorvel");
}

QString QVDataFolder::ensure()
{
    const QString folder = path();
    return QDir().mkpath(folder) ? folder : QString();
}
