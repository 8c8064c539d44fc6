// The auto-scan sheet over the main window: the on/off switch, how often the
// font folders are scanned, whether a change in them starts a scan, whether
// the application quits after an auto-scan that found nothing, and the
// folders themselves. Each control stores its setting at once; turning the
// switch and closing the sheet are the controller's to act on.
#pragma once

#include <QDialog>

class QButtonGroup;
class QCheckBox;
class QGroupBox;
class QListWidget;
class QPushButton;
class QRadioButton;
class QVSettings;

class QVAutoScanSheet : public QDialog
{
    Q_OBJECT

public:
    QVAutoScanSheet(QVSettings *settings, QWidget *parent);

    // Every control from the settings; the list reloaded with nothing selected.
    void setStateFromUserPrefs();

    // Folders after adding these: an entry inside a new folder goes, and a
    // new folder inside an entry is not added (the entry already covers it).
    static QStringList addFolders(const QStringList &existing, const QStringList &added);

    // The switch: segment 0 off, 1 on.
    QButtonGroup *autoScanSwitch() const { return m_switch; }
    QGroupBox *autoScanOptionsGroup() const { return m_optionsGroup; }
    QRadioButton *autoScanFreqDailyButton() const { return m_daily; }
    QRadioButton *autoScanFreqWeeklyButton() const { return m_weekly; }
    QRadioButton *autoScanFreqMonthlyButton() const { return m_monthly; }
    QRadioButton *autoScanFreqNeverButton() const { return m_never; }
    QCheckBox *autoScanModifiedFoldersCheckbox() const { return m_modifiedFolders; }
    QCheckBox *autoScanQuitCheckbox() const { return m_quit; }
    QListWidget *autoScanTableView() const { return m_folders; }
    QPushButton *autoScanActionButton() const { return m_actionButton; }
    QPushButton *autoScanAddFolderButton() const { return m_addButton; }
    QPushButton *autoScanRemoveFolderButton() const { return m_removeButton; }
    QPushButton *advancedSettingsButton() const { return m_advancedButton; }

    void autoScanSwitchAction(int segment);
    void autoScanFreqMatrix(QRadioButton *button);
    void autoScanAddFolderButtonHandler();
    // Adds a folder as the chooser would.
    void addFolder(const QString &folder);
    void autoScanRemoveFolderButtonHandler();

Q_SIGNALS:
    // The switch was turned (the setting is stored).
    void autoScanSwitched(bool enabled);
    void advancedSettingsRequested();

private:
    void reloadFolders();

    QVSettings *m_settings;
    QButtonGroup *m_switch;
    QGroupBox *m_optionsGroup;
    QRadioButton *m_daily;
    QRadioButton *m_weekly;
    QRadioButton *m_monthly;
    QRadioButton *m_never;
    QCheckBox *m_modifiedFolders;
    QCheckBox *m_quit;
    QListWidget *m_folders;
    QPushButton *m_addButton;
    QPushButton *m_removeButton;
    QPushButton *m_advancedButton;
    QPushButton *m_actionButton;
};
