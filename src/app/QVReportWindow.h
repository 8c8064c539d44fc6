// A window showing one saved report in a web view: one window per report
// file (showing it again brings that window forward), a spinner while the
// page loads, printing with page setup, scrolling back to the top. Report
// pages run no scripts; a link out of the report opens in the default
// browser and the report stays. The page is read by the engine itself, from
// a copy made on a worker: the window's thread reads no report file.
#pragma once

#include <QPointer>
#include <QUrl>
#include <QVariantMap>
#include <QWidget>
#include <memory>

class QLabel;
class QPrinter;
class QProgressBar;
class QPushButton;
class QWebEngineNavigationRequest;
class QWebEngineView;

class QVReportWindow : public QWidget
{
    Q_OBJECT

public:
    // The record's "filePath" and "reportName". An open window of the same
    // file is retitled, scrolled to the top and raised; else a new one opens.
    static QVReportWindow *showReport(const QVariantMap &record);
    // The open window of the file, if any.
    static QVReportWindow *windowForFile(const QString &filePath);
    static QList<QVReportWindow *> openWindows();
    // Reports deleted or renamed elsewhere.
    static void closeReports(const QStringList &filePaths);
    static void retitleReport(const QString &filePath, const QString &reportName);
    // The engine runs without its sandbox when started as root (it refuses
    // to start otherwise); before the first web view.
    static void prepareEngine();

    ~QVReportWindow() override;

    QString filePath() const { return m_filePath; }
    QString reportName() const { return m_reportName; }
    bool isLoading() const { return m_loading; }
    QWebEngineView *webView() const { return m_webView; }
    QPrinter *printer() const { return m_printer.get(); }
    QPushButton *printButton() const { return m_printButton; }
    QPushButton *topButton() const { return m_topButton; }

    void scrollToTop();
    // The print and page setup dialogs, as window-modal sheets.
    void printButtonAction();
    void pageSetupButtonAction();
    // Prints to the printer as set up; printFinished() tells the outcome.
    void printReport();

Q_SIGNALS:
    void loadFinished(bool ok);
    void printFinished(bool ok);

private:
    QVReportWindow(const QString &filePath, const QString &reportName);
    void setReportName(const QString &reportName);
    void startLoading();
    void showPage(const QUrl &url);
    void navigationRequested(QWebEngineNavigationRequest &request);
    void webviewFinishedLoading(bool ok);

    QString m_filePath;
    QString m_reportName;
    QUrl m_pageUrl;
    bool m_loading = false;
    bool m_printing = false;
    std::unique_ptr<QPrinter> m_printer;
    QWebEngineView *m_webView;
    QProgressBar *m_spinner;
    QLabel *m_status;
    QPushButton *m_printButton;
    QPushButton *m_pageSetupButton;
    QPushButton *m_topButton;
    QPushButton *m_closeButton;
};
