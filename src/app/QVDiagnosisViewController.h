// The diagnosis view that takes the Scan view's place during a scan: the
// overall bar and label, one bar, label and mark per pass, the scan's icon,
// the settings it runs with, and the Cancel/Done and report buttons. It shows
// a QVDiagnosis through its QVDiagnosisViewState and answers their alerts.
#pragma once

#include <QPointer>
#include <QWidget>
#include <array>
#include <memory>

class QLabel;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QVDiagnosis;
class QVDiagnosisViewState;
class QVFileManager;
class QVFontDataManager;
class QVProgress;
class QVReportManager;
class QVReportStore;

class QVDiagnosisViewController : public QWidget
{
    Q_OBJECT

public:
    explicit QVDiagnosisViewController(QVFontDataManager *dataMgr, QWidget *parent = nullptr);
    ~QVDiagnosisViewController() override;

    QVDiagnosis *diagnosis() const { return m_diagnosis; }
    QVDiagnosisViewState *viewState() const { return m_viewState; }

    void diagnoseFonts();
    // The icon and the settings text of a new scan.
    void setScanMode();
    void resetAllProgressViews();
    // While fonts are being found the view state does not own the button:
    // the scan sets its title and whether it answers. A run takes it back.
    void setCancelButton(const QString &title, bool enabled);
    void setReportButtonEnabled(bool enabled);
    // Where the quarantined count of a report comes from (not owned).
    void setFileMgr(QVFileManager *fileMgr) { m_fileMgr = fileMgr; }

    // The report of this diagnosis: made on first use, shown when made.
    QVReportManager *reportManager();
    // Writes the run's report (shown when show is set, or by the settings);
    // does nothing while one is being written.
    void generateReport(bool show);
    // Shows this run's report when it is written, else writes and shows it.
    void reportButtonAction();

    QPushButton *cancelButton() const { return m_cancelButton; }
    QPushButton *reportButton() const { return m_reportButton; }
    QProgressBar *overallBar() const { return m_overallBar; }
    QLabel *overallLabel() const { return m_overallLabel; }
    QProgressBar *passBar(int pass) const { return m_passBars[size_t(pass)]; }
    QLabel *passLabel(int pass) const { return m_passLabels[size_t(pass)]; }
    // "off", "idle", "running", "done" or "cancelled".
    QString passMark(int pass) const;
    QLabel *settingsTextLabel() const { return m_settingsText; }
    QString iconName() const;

protected:
    void changeEvent(QEvent *event) override;

private:
    void showAlert(const QString &message, const QString &informativeText, const QStringList &buttonTitles,
        const QString &context);
    void refreshButtons();
    void refreshIcon();
    void refreshOverall();
    void refreshPass(int pass);
    static void showProgress(QProgressBar *bar, const QVProgress *progress);

    QVDiagnosis *m_diagnosis;
    QVDiagnosisViewState *m_viewState;
    QPointer<QMessageBox> m_alert;
    QString m_overrideTitle;
    bool m_overrideEnabled = false;
    bool m_reportEnabled = false;
    // This run's report has been written (it is the settings' last report).
    bool m_reportWritten = false;
    QVFileManager *m_fileMgr = nullptr;
    std::unique_ptr<QVReportStore> m_reportStore;
    std::unique_ptr<QVReportManager> m_reportManager;

    QLabel *m_icon;
    QLabel *m_overallLabel;
    QProgressBar *m_overallBar;
    std::array<QLabel *, 4> m_passMarks {};
    std::array<QLabel *, 4> m_passLabels {};
    std::array<QProgressBar *, 4> m_passBars {};
    std::array<QString, 4> m_passMarkNames {};
    QLabel *m_settingsText;
    QPushButton *m_reportButton;
    QPushButton *m_cancelButton;
};
