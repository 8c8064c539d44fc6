// What the diagnosis view shows of a run, apart from the run itself: the
// cancel/done button, the report button, the icon, the alert sheets and their
// answers, the settings text, the pause before the outcome is shown, and the
// answer to an auto-scan helper. The application's diagnosis view and the
// command line bind to it; everything it asks of a window goes out as
// signals, on the main thread.
#pragma once

#include "engine/QVProblemFont.h"
#include "settings/QVHelperCommunications.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QVDiagnosis;

class QVDiagnosisViewState : public QObject
{
    Q_OBJECT

public:
    explicit QVDiagnosisViewState(QVDiagnosis *diagnosis, QObject *parent = nullptr);

    QVDiagnosis *diagnosis() const { return m_diagnosis; }
    // The helper channel that an auto-scan answers on (not owned). Without
    // one, the answer goes out as helperResponse().
    void setHelperCommunications(QVHelperCommunications *helper) { m_helperCommunications = helper; }
    // The pause between the last pass and the outcome, in ms (1000).
    int finishDelay() const { return m_finishDelay; }
    void setFinishDelay(int milliseconds) { m_finishDelay = milliseconds; }
    // The 1 ms pause per font status of small scans, so their bars are seen
    // to move: on for the application, off for the command line.
    void setPacingEnabled(bool enabled);
    // Whether the application was started for an auto-scan.
    bool isAutoScanLaunch() const { return m_autoScanLaunch; }
    void setIsAutoScanLaunch(bool autoScanLaunch) { m_autoScanLaunch = autoScanLaunch; }
    // Whether the discovery scan is still looking for fonts (the button
    // then cancels it).
    void setFindingFonts(bool finding) { m_findingFonts = finding; }

    // Starts the run (main thread); "Fonts Not Found" when there is nothing.
    void diagnoseFonts();
    void setScanMode();
    // "kScanFolderComplete": a scan that did not succeed shows the cancel icon.
    void handleSearchComplete(const QVariantMap &userInfo);
    void cancelButtonAction();
    // The end of an alert sheet: 1000 for the first button, 1001 for the second.
    void modalEnded(int returnCode, const QString &context);
    void presentDiagnosisActionWindow();
    QString getSettingsStartText() const;
    // The headings of the settings text, shown in bold.
    static QStringList settingsStartHeadings();

    QString cancelButtonTitle() const { return m_cancelButtonTitle; }
    bool isCancelButtonEnabled() const { return m_cancelButtonEnabled; }
    bool isReportButtonEnabled() const { return m_reportButtonEnabled; }
    bool isShowingDoneButton() const { return m_isShowingDoneButton; }
    QString iconName() const { return m_iconName; }
    bool isShowingAlert() const { return !m_alertContext.isEmpty(); }
    bool isDiagnosingFonts() const { return m_running; }

Q_SIGNALS:
    // Buttons, icon, flags or the outcome changed.
    void stateChanged();
    // The outcome is shown (after a cancellation, possibly more than once).
    void diagnosisFinished();
    // An alert sheet; answer through modalEnded with the same context.
    void alertRequested(const QString &message, const QString &informativeText,
        const QStringList &buttonTitles, const QString &context);
    void alertDismissed();
    void userInterfaceEnabled(bool enabled);
    void scanViewTextChanged();
    // The button pressed while the discovery scan still runs: cancel it.
    void scanCancelRequested();
    void diagnosisViewClosed(int value);
    void buttonSelected(int index);
    // An auto-scan that quits when done.
    void terminateRequested();
    // Opens the issue resolution window on the sorted problem list.
    void actionWindowRequested(const QList<QVProblemFontPtr> &problemFonts);
    // The auto-scan answer when there is no helper channel; an empty
    // recipient means no particular one.
    void helperResponse(const QString &response, const QString &recipient, const QVariantMap &options);

private:
    void setButtons(const QString &cancelTitle, bool cancelEnabled);
    void setIcon(const QString &name);
    void passesEnded(bool cancelled);
    void showOutcome(bool cancelled);

    QVDiagnosis *m_diagnosis;
    QPointer<QVHelperCommunications> m_helperCommunications;
    int m_finishDelay = 1000;
    bool m_autoScanLaunch = false;
    bool m_findingFonts = false;
    bool m_isShowingDoneButton = false;
    // From the start of a run until its outcome is shown.
    bool m_running = false;
    QString m_cancelButtonTitle;
    bool m_cancelButtonEnabled = false;
    bool m_reportButtonEnabled = false;
    QString m_iconName;
    QString m_alertContext;
};
