// The Scan view while no scan is shown: what the last scan found (or that
// there was none yet), the link to the last saved report, and the buttons
// that start a scan.
#pragma once

#include <QDateTime>
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
    // What auto-scanning will do next, under the last-scan text.
    void updateAutoScanStatus();
    // The same as plain text, at a given moment.
    QString autoScanStatusText(const QDateTime &now) const;
    // "Today", "Tomorrow" or "N Days from now" (whole days, truncated).
    static QString relativeDateStringForDate(const QDateTime &date, const QDateTime &now);
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
    // The "AutoScan" link.
    void autoScanSettingsRequested();
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
