// The Settings view: the three diagnosis switches (at least one stays on),
// their option pop-ups, and what happens to the reports.
#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QMenu;
class QToolButton;
class QVSettings;

class QVSettingsTabItem : public QWidget
{
    Q_OBJECT

public:
    enum Switch { DiagnoseCorruptFonts = 0, FindDuplicateFonts = 1, FindOrphanedFonts = 2 };

    explicit QVSettingsTabItem(QVSettings *settings, QWidget *parent = nullptr);

    // Every control from its setting.
    void setStateFromUserPrefs();
    // False, with the alert, when all three diagnosis switches are off.
    bool validateSettings();
    void setControlsEnabled(bool enabled);

    QCheckBox *passSwitch(Switch which) const { return m_switches[which]; }
    QLabel *passDot(Switch which) const { return m_dots[which]; }
    QToolButton *optionsButton(Switch which) const { return m_optionButtons[which]; }
    QCheckBox *deepCheckCheckbox() const { return m_deepCheck; }
    QCheckBox *automaticallySaveReportsCheckbox() const { return m_saveReports; }
    QCheckBox *showReportsCheckbox() const { return m_showReports; }
    // Whether the scheduler helper shows its tray menu.
    QCheckBox *helperMenuCheckbox() const { return m_helperMenu; }

Q_SIGNALS:
    // An alert to show as a sheet (one button).
    void alertRequested(const QString &message, const QString &informativeText, const QString &context);
    // The tray menu check box was turned (the setting is stored).
    void helperMenuToggled(bool shown);

private:
    void passSwitchAction(Switch which);
    void updateDot(Switch which);
    QToolButton *makeOptions(const QString &passTitle, const QList<QPair<QString, QString>> &items);

    QVSettings *m_settings;
    QCheckBox *m_switches[3] {};
    QLabel *m_dots[3] {};
    QToolButton *m_optionButtons[3] {};
    QCheckBox *m_deepCheck = nullptr;
    QCheckBox *m_saveReports;
    QCheckBox *m_showReports;
    QCheckBox *m_helperMenu;
};
