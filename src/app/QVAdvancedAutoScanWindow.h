// The advanced AutoScan window: stop the helpers, switch their logging, show
// the quarantine and reports folders, and reset the settings.
#pragma once

#include <QDialog>

class QPushButton;
class QVHelperCommunications;
class QVSettings;

class QVAdvancedAutoScanWindow : public QDialog
{
    Q_OBJECT

public:
    QVAdvancedAutoScanWindow(
        QVSettings *settings, QVHelperCommunications *helperCommunications, QWidget *parent);

    QVSettings *settings() const { return m_settings; }
    QVHelperCommunications *helperCommunications() const { return m_helperCommunications; }

    void quitHelperAppsButtonAction();
    void enableLoggingAction();
    void disableLoggingAction();
    void showQuarantineFolderAction();
    void showReportsAction();
    // Asks first; on "Reset" the helpers stop, every setting but the user's
    // name and company returns to its default, and the application quits.
    void resetAutoSacnSettingsAction();

    QPushButton *quitHelperAppsButton() const { return m_quitHelpers; }
    QPushButton *enableLoggingButton() const { return m_enableLogging; }
    QPushButton *disableLoggingButton() const { return m_disableLogging; }
    QPushButton *resetButton() const { return m_reset; }

Q_SIGNALS:
    // The controller stops the handler, then the scheduler.
    void quitHelpersRequested();
    // The settings were reset: the application should quit.
    void terminateRequested();
    // The log file to show (the stand-in for a console).
    void showLogRequested(const QString &path);

private:
    void setLogging(bool enabled);
    void updateButtons();

    QVSettings *m_settings;
    QVHelperCommunications *m_helperCommunications;
    QPushButton *m_quitHelpers;
    QPushButton *m_enableLogging;
    QPushButton *m_disableLogging;
    QPushButton *m_showQuarantine;
    QPushButton *m_showReports;
    QPushButton *m_reset;
};
