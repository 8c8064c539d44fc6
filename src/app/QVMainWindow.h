// The main window: four view buttons along the top, the views in a stack
// without tabs (Scan, Settings, Quarantine, Reports; the Scan view gives way
// to the diagnosis view during a scan), the File and View menus, and the info
// label at the bottom. What the commands do is the application delegate's.
#pragma once

#include <QMainWindow>
#include <array>

class QAction;
class QLabel;
class QMenu;
class QMimeData;
class QStackedWidget;
class QVAppDelegate;
class QVViewButton;

class QVMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum View { ScanView = 0, SettingsView = 1, QuarantineView = 2, ReportsView = 3 };

    explicit QVMainWindow(QVAppDelegate *delegate, QWidget *parent = nullptr);

    // Places the views (made by the delegate) in the stack.
    void setViews(
        QWidget *scanRoot, QWidget *diagnosisView, QWidget *settings, QWidget *quarantine, QWidget *reports);

    // The button clicks: title, View menu check, selected image and view.
    void scanButtonClicked();
    void settingsButtonClicked();
    void quarantineButtonClicked();
    void reportsButtonClicked();
    void selectButton(int index);
    int selectedIndex() const;
    // Every button to its normal image (dark-aware) but the selected one.
    void resetButtons();
    // The Scan view shows the scan root (false) or the diagnosis view (true).
    void showDiagnosisView(bool show);
    bool isShowingDiagnosisView() const;
    // One line on what happened, with an icon; empty hides both.
    void setInfo(const QString &text, const QString &iconName = QString());
    QString infoText() const;

    QVViewButton *viewButton(int index) const { return m_buttons[size_t(index)]; }
    QAction *viewMenuItem(int index) const { return m_viewActions[size_t(index)]; }
    QAction *scanFontsNowMenuItem() const { return m_scanFontsNowMenuItem; }
    QAction *customScanMenuItem() const { return m_customScanMenuItem; }
    QAction *organizeFontsMenuItem() const { return m_organizeFontsMenuItem; }
    QMenu *scanRecentMenu() const { return m_scanRecentMenu; }
    QWidget *currentView() const;

    // The paths a drop carries, when every one is an existing folder.
    static QStringList droppedFolders(const QMimeData *data);

protected:
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void switchTo(int index, const QString &titleKey, const QString &infoKey, const QString &iconName);

    QVAppDelegate *m_delegate;
    std::array<QVViewButton *, 4> m_buttons {};
    std::array<QAction *, 4> m_viewActions {};
    QAction *m_scanFontsNowMenuItem = nullptr;
    QAction *m_customScanMenuItem = nullptr;
    QAction *m_organizeFontsMenuItem = nullptr;
    QMenu *m_scanRecentMenu = nullptr;
    QStackedWidget *m_tabs;
    QStackedWidget *m_scanStack;
    QLabel *m_infoIcon;
    QLabel *m_infoLabel;
    QString m_infoIconName;
};
