// The scheduler helper's tray icon and its menu: scan now, when the next
// scheduled scan comes, open Quorvel, the auto-scan preferences, and removing
// the menu. Where the desktop has no tray the helper keeps running without an
// icon, answering the application, and says so once in its log.
#pragma once

#include <QObject>
#include <QVariantMap>
#include <functional>
#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;
class QVApplicationLink;
class QVHelperCommunications;
class QVSettings;

class QVSchedulerMenu : public QObject
{
    Q_OBJECT

public:
    explicit QVSchedulerMenu(QVHelperCommunications *channel, QObject *parent = nullptr);
    ~QVSchedulerMenu() override;

    // Fills its settings (the application's, the first time) and shows the icon.
    void start();
    QMenu *menu() const { return m_menu.get(); }
    QAction *nextScanAction() const { return m_nextScan; }
    QVApplicationLink *applicationLink() const { return m_link; }
    QVSettings *settings() const { return m_settings.get(); }
    // Brings the next-scan line up to date.
    void updateMenu();
    // The tray icon, or none where the desktop has no tray.
    QSystemTrayIcon *trayIcon() const { return m_tray; }

Q_SIGNALS:
    // "Remove This Menu": the helper should quit.
    void quitRequested();

private:
    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options);
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options);
    void removeMenu();

    QVHelperCommunications *m_channel;
    std::unique_ptr<QVSettings> m_settings;
    QVApplicationLink *m_link;
    std::unique_ptr<QMenu> m_menu;
    QAction *m_nextScan = nullptr;
    QSystemTrayIcon *m_tray = nullptr;
};
