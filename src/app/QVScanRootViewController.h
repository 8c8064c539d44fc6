// The Scan view while no scan is shown: what the last scan found (or that
// there was none yet), the link to the last saved report, and the buttons
// that start a scan.
#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class QVSettings;

class QVScanRootViewController : public QWidget
{
    Q_OBJECT

public:
    explicit QVScanRootViewController(QVSettings *settings, QWidget *parent = nullptr);

    // The last-scan text once a scan has been recorded, else the default text.
    void updateScanViewText();
    // Until auto-scans can be scheduled, the status names the folders a
    // standard scan examines.
    void updateAutoScanStatus();
    static QString getDefaultText();
    // The last scan, as rich text with the report link when there is a report.
    QString getScanText() const;
    QString scanText() const;
    QPushButton *scanButton() const { return m_scanButton; }
    QPushButton *scanFolderButton() const { return m_scanFolderButton; }
    QPushButton *organizeButton() const { return m_organizeButton; }

Q_SIGNALS:
    void scanButtonClicked();
    void scanFolderButtonClicked();
    void organizeButtonClicked();
    // The "report" link: the last report's file and name.
    void showReportRequested(const QString &filePath, const QString &reportName);

private:
    void linkActivated(const QString &link);

    QVSettings *m_settings;
    QLabel *m_iconLabel;
    QLabel *m_textLabel;
    QLabel *m_autoScanLabel;
    QPushButton *m_scanButton;
    QPushButton *m_scanFolderButton;
    QPushButton *m_organizeButton;
};
