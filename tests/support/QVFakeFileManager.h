// Stands in for the desktop's file manager on the session bus while it
// lives: the items it was asked to show, as URLs.
#pragma once

#include <QObject>
#include <QStringList>

class QVFakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QVFakeFileManager();
    ~QVFakeFileManager() override;
    // False without a session bus or when another file manager holds the name.
    bool isRegistered() const { return m_registered; }
    QStringList shown;

public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &startupId);

private:
    bool m_registered = false;
};
