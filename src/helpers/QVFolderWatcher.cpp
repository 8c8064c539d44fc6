#include "helpers/QVFolderWatcher.h"

#include "settings/QVLog.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

QVFolderWatcher::QVFolderWatcher(QObject *parent)
    : QObject(parent)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(kDefaultSettleMs);
    connect(&m_settle, &QTimer::timeout, this, &QVFolderWatcher::foldersChanged);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &QVFolderWatcher::directoryChanged);
}

void QVFolderWatcher::setFolders(const QStringList &roots)
{
    m_settle.stop();
    if (const QStringList watched = m_watcher.directories(); !watched.isEmpty())
        m_watcher.removePaths(watched);
    m_roots = roots;
    for (const QString &root : roots)
        addTree(QDir::cleanPath(root));
}

void QVFolderWatcher::addTree(const QString &folder)
{
    if (!QFileInfo(folder).isDir())
        return;
    // Symbolic links are not followed: a link back up the tree would never end.
    QStringList folders { folder };
    QDirIterator it(
        folder, QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (it.hasNext())
        folders.append(it.next());
    const QStringList current = m_watcher.directories();
    const QSet<QString> watched(current.cbegin(), current.cend());
    QStringList added;
    for (const QString &path : folders) {
        if (!watched.contains(path))
            added.append(path);
    }
    if (added.isEmpty())
        return;
    const QStringList failed = m_watcher.addPaths(added);
    if (!failed.isEmpty())
        qCWarning(lcHelpers).noquote() << "Cannot watch" << failed.size() << "folders, for instance"
                                       << failed.first() << "(the inotify watch limit may be reached)";
}

void QVFolderWatcher::directoryChanged(const QString &folder)
{
    // A folder made inside (or moved in) is watched from now on; a removed one
    // has left the watcher by itself.
    addTree(folder);
    m_settle.start();
}
