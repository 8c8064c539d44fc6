#include "settings/QVDataFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Makes the folder 0700, or takes the group and other rights off an existing
// one the user owns. False when it is not a folder afterwards.
bool makePrivateFolder(const QString &folder)
{
    const QByteArray path = QFile::encodeName(folder);
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST)
        return false;
    struct stat st;
    if (::stat(path.constData(), &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    if (st.st_uid == ::geteuid() && (st.st_mode & 077) != 0)
        ::chmod(path.constData(), st.st_mode & 0700);
    return true;
}

} // namespace

QString QVDataFolder::path()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Quorvel");
}

QString QVDataFolder::ensure()
{
    const QString folder = path();
    // The folders above are the user's own and keep the rights they get.
    QDir().mkpath(QFileInfo(folder).absolutePath());
    return makePrivateFolder(folder) ? folder : QString();
}

QString QVDataFolder::ensureSubfolder(const QString &name)
{
    const QString root = ensure();
    if (root.isEmpty())
        return QString();
    const QString folder = root + QLatin1Char('/') + name;
    return makePrivateFolder(folder) ? folder : QString();
}
