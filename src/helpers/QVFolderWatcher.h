// Watches folders and every folder inside them (inotify, through
// QFileSystemWatcher) and reports a change once the folders have been quiet
// for the settle delay, so that copying a thousand fonts in is one change,
// not a thousand. Folders made inside a watched folder are watched too.
#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>

class QVFolderWatcher : public QObject
{
    Q_OBJECT

public:
    static constexpr int kDefaultSettleMs = 15000;

    explicit QVFolderWatcher(QObject *parent = nullptr);

    // Replaces what is watched; an empty list watches nothing.
    void setFolders(const QStringList &roots);
    QStringList watchedFolders() const { return m_watcher.directories(); }
    int settleDelay() const { return m_settle.interval(); }
    void setSettleDelay(int milliseconds) { m_settle.setInterval(milliseconds); }
    // Drops a change that is settling (the changes were the helper's own doing).
    void discardPendingChange() { m_settle.stop(); }

Q_SIGNALS:
    void foldersChanged();

private:
    void addTree(const QString &folder);
    void directoryChanged(const QString &folder);

    QFileSystemWatcher m_watcher;
    QTimer m_settle;
    QStringList m_roots;
};
