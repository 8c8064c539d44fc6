// Turns a finished diagnosis into an HTML report: first a report data record
// (plain values and escaped cell fragments), then the template filled on the
// manager's own serial queue. The finished report goes to the report store and
// becomes the settings' newest report. Showing it is the application's job:
// the GUI installs a show-report hook; without one nothing is shown.
#pragma once

#include "reports/QVReportData.h"
#include "reports/QVReportInput.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QVariantMap>
#include <atomic>
#include <functional>
#include <memory>

class QVProgress;
class QVReportStore;
class QVSettings;

class QVReportManager : public QObject
{
    Q_OBJECT

public:
    using ShowReportHook = std::function<void(const QVariantMap &record)>;

    static constexpr int kProgressThreshold = 1000;
    static constexpr int kRowsPerGroup = 200;

    explicit QVReportManager(QObject *parent = nullptr);
    // Abandons a report still being built and waits for the queue.
    ~QVReportManager() override;

    // Not owned; must outlive the manager's work.
    void setFileMgr(QVReportStore *fileMgr) { m_fileMgr = fileMgr; }
    QVReportStore *fileMgr() const { return m_fileMgr; }
    void setReportInput(const QVReportInput &input) { m_input = input; }
    const QVReportInput &reportInput() const { return m_input; }

    // Entry point: returns at once. Builds the data on the calling thread, fills
    // the template on the queue, then stores the report, records it in the
    // settings and shows it when asked (or when showReports is on).
    void createReport(const QDateTime &scanDate, bool showReport);
    // The same, waiting for the report: for the command line. Returns the
    // stored index record (with "filePath"), or an empty map when the report
    // was cancelled or the index holds nothing. Never shows the report.
    QVariantMap writeReport(const QDateTime &scanDate);

    QVReportData createReportDataDictionary(const QDateTime &date) const;
    // Fills the template on the queue and calls completion there with the HTML;
    // never calls it when the report is cancelled.
    void getReportHTML(const QVReportData &data, std::function<void(const QString &html)> completion);
    // The filling itself, on the calling thread. A null string when cancelled.
    QString fillTemplate(const QVReportData &data);

    // Hands the record ("filePath", "reportName") to the show-report hook on the
    // main thread; does nothing without a hook.
    void showReport(const QVariantMap &record);
    static void setShowReportHook(ShowReportHook hook);

    // The progress window's cancel button: the report being built is abandoned.
    void cancelReport() { m_cancel.store(true); }

    bool reportIsReady() const { return m_reportIsReady.load(); }
    bool reportIsProcessing() const { return m_reportIsProcessing.load(); }
    // Shown (progressShown) only for reports of more than 1,000 rows.
    QVProgress *progressWindow() const { return m_progress.get(); }

    // The template; a different one for tests. Missing or unreadable, the
    // report text is empty.
    void setTemplatePath(const QString &path) { m_templatePath = path; }
    QString templatePath() const { return m_templatePath; }

Q_SIGNALS:
    void progressShown();
    void progressClosed();
    // The report is stored: the scan view refreshes its text.
    void reportStored(const QVariantMap &record);
    void reportCancelled();

private:
    // Stores the HTML and records the newest report; returns its index record.
    QVariantMap storeReport(const QVReportData &data, const QString &html, bool show);

    QVReportStore *m_fileMgr = nullptr;
    QVReportInput m_input;
    std::unique_ptr<QVSettings> m_settings;
    std::unique_ptr<QVProgress> m_progress;
    QThreadPool m_generateHTMLqueue;
    QString m_templatePath;
    std::atomic<bool> m_cancel { false };
    std::atomic<bool> m_reportIsReady { false };
    std::atomic<bool> m_reportIsProcessing { false };
};
