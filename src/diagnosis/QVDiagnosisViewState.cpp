#include "diagnosis/QVDiagnosisViewState.h"

#include "diagnosis/QVDiagnosis.h"
#include "engine/QVFontDataManager.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QTimer>

namespace
{

const QString kManualScan = QStringLiteral("Manual Scan");
const QString kAutoScan = QStringLiteral("AutoScan");
const QString kResponseScanFontsComplete = QStringLiteral("kResponse_ScanFonts_Complete");
const QString kPayloadOptions = QStringLiteral("kPayloadOptions");

} // namespace

QVDiagnosisViewState::QVDiagnosisViewState(QVDiagnosis *diagnosis, QObject *parent)
    : QObject(parent)
    , m_diagnosis(diagnosis)
{
    connect(m_diagnosis, &QVDiagnosis::diagnosisFinished, this, &QVDiagnosisViewState::passesEnded);
    connect(m_diagnosis, &QVDiagnosis::stateChanged, this, &QVDiagnosisViewState::stateChanged);
    connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kScanFolderComplete, this,
        &QVDiagnosisViewState::handleSearchComplete);
}

void QVDiagnosisViewState::setPacingEnabled(bool enabled)
{
    m_diagnosis->setPacingEnabled(enabled);
}

void QVDiagnosisViewState::diagnoseFonts()
{
    m_reportButtonEnabled = false;
    if (m_diagnosis->qvDataMgr()->fontFileItems.isEmpty()) {
        m_diagnosis->resetProgress();
        m_isShowingDoneButton = true;
        setButtons(QVStringTable::text("any.done.title"), true);
        m_alertContext = QStringLiteral("diagnoseFonts");
        Q_EMIT alertRequested(QStringLiteral("Fonts Not Found"),
            QStringLiteral("No font files were found or scanned in the selected folders."),
            { QVStringTable::text("any.ok.title") }, m_alertContext);
        Q_EMIT userInterfaceEnabled(true);
        return;
    }
    m_isShowingDoneButton = false;
    m_running = true;
    setButtons(QVStringTable::text("any.cancel.title"), true);
    m_diagnosis->setProgressText(QStringLiteral("Diagnosing Fonts..."));
    m_diagnosis->diagnoseFonts();
}

void QVDiagnosisViewState::passesEnded(bool cancelled)
{
    if (cancelled)
        m_diagnosis->setProgressText(QStringLiteral("Canceling Diagnosis..."));
    QTimer::singleShot(m_finishDelay, this, [this, cancelled] { showOutcome(cancelled); });
}

void QVDiagnosisViewState::showOutcome(bool cancelled)
{
    m_diagnosis->overallProgress()->setValue(0);
    m_diagnosis->setProgressText(QString(""));
    if (!m_alertContext.isEmpty()) {
        Q_EMIT alertDismissed();
        m_alertContext.clear();
    }
    m_isShowingDoneButton = true;
    m_running = false;
    setButtons(QVStringTable::text("any.done.title"), true);

    QVSettings *settings = m_diagnosis->settings();
    const qint32 total = m_diagnosis->totalFontProblems();
    const bool autoScan = settings->lastScanType() == kAutoScan;
    const QString prefix
        = settings->lastScanType() == kManualScan ? QStringLiteral("mac-icon") : QStringLiteral("autoscan");
    if (cancelled)
        setIcon(prefix + QStringLiteral("-cancel"));
    else
        setIcon(prefix + (total < 1 ? QStringLiteral("-ok") : QStringLiteral("-caution")));

    if (total < 1) {
        if (cancelled) {
            m_diagnosis->setProgressText(QStringLiteral("Diagnosis was canceled"));
        } else {
            m_diagnosis->setProgressText(QStringLiteral("No Problems Found!"));
            Q_EMIT scanViewTextChanged();
        }
        if (autoScan) {
            const QVariantMap options { { kPayloadOptions, settings->lastAutoScanDate() } };
            if (m_helperCommunications)
                m_helperCommunications->sendResponse(kResponseScanFontsComplete, QString(), options);
            else
                Q_EMIT helperResponse(kResponseScanFontsComplete, QString(), options);
        }
        if (m_autoScanLaunch && settings->autoScanQuitWhenDone())
            QTimer::singleShot(2000, this, [this] { Q_EMIT terminateRequested(); });
        m_autoScanLaunch = false;
    } else {
        m_diagnosis->setProgressText(cancelled ? QStringLiteral("Diagnosis was canceled")
                                               : QStringLiteral("Font Problems Were Found"));
        m_reportButtonEnabled = !cancelled;
        m_autoScanLaunch = false;
        if (!cancelled)
            presentDiagnosisActionWindow();
    }
    Q_EMIT stateChanged();
    Q_EMIT diagnosisFinished();
}

void QVDiagnosisViewState::presentDiagnosisActionWindow()
{
    Q_EMIT actionWindowRequested(m_diagnosis->problemFontsArray());
}

void QVDiagnosisViewState::setButtons(const QString &cancelTitle, bool cancelEnabled)
{
    m_cancelButtonTitle = cancelTitle;
    m_cancelButtonEnabled = cancelEnabled;
    Q_EMIT stateChanged();
}

void QVDiagnosisViewState::setIcon(const QString &name)
{
    m_iconName = name;
    Q_EMIT stateChanged();
}

void QVDiagnosisViewState::setScanMode()
{
    setIcon(m_diagnosis->settings()->lastScanType() == kManualScan ? QStringLiteral("mac-icon")
                                                                   : QStringLiteral("AutoScan"));
    m_diagnosis->setStateFromUserPrefs();
}

void QVDiagnosisViewState::handleSearchComplete(const QVariantMap &userInfo)
{
    const QVariant status = userInfo.value(QStringLiteral("status"));
    if (status.isValid() && status.toString() != QLatin1String("success"))
        setIcon(m_diagnosis->settings()->lastScanType() == kManualScan ? QStringLiteral("mac-icon-cancel")
                                                                       : QStringLiteral("autoscan-cancel"));
}

void QVDiagnosisViewState::cancelButtonAction()
{
    if (m_running) {
        if (m_alertContext.isEmpty()) {
            m_alertContext = QStringLiteral("cancelButtonAction");
            Q_EMIT alertRequested(QVStringTable::text("diagnosis.cancel.message"),
                QVStringTable::text("diagnosis.cancel.info"),
                { QVStringTable::text("any.continue.title"), QVStringTable::text("any.cancel.title") },
                m_alertContext);
        }
        return;
    }
    if (m_findingFonts) {
        Q_EMIT scanCancelRequested();
        return;
    }
    m_isShowingDoneButton = false;
    m_diagnosis->resetAllProgressViews();
    Q_EMIT diagnosisViewClosed(1);
    Q_EMIT buttonSelected(0);
    m_diagnosis->setProgressText(QString(""));
    m_reportButtonEnabled = false;
    Q_EMIT stateChanged();
}

void QVDiagnosisViewState::modalEnded(int returnCode, const QString &context)
{
    if (returnCode == 1001 && context == QLatin1String("cancelButtonAction")) {
        m_diagnosis->setDoCancel(true);
        setButtons(m_cancelButtonTitle, false);
    }
    m_alertContext.clear();
}

QString QVDiagnosisViewState::getSettingsStartText() const
{
    const QVSettings *settings = m_diagnosis->settings();
    QString scanType = settings->lastScanType();
    if (scanType == kManualScan && settings->organizeFonts())
        scanType += QStringLiteral(" & Organize");

    QStringList diagnoses;
    if (settings->diagnoseFileStructure())
        diagnoses << QStringLiteral("Diagnose Corrupt Fonts");
    if (settings->findDuplicateFonts())
        diagnoses << QStringLiteral("Duplicate Fonts");
    if (settings->findOrpanedFonts())
        diagnoses << QStringLiteral("Orphaned Fonts");
    // A missing list prints as a missing object does.
    const QString diagnosisList
        = diagnoses.isEmpty() ? QStringLiteral("(null)") : diagnoses.join(QStringLiteral(", "));

    const QStringList folders
        = scanType.startsWith(kManualScan) ? m_diagnosis->manualScanFolders() : settings->fontFolderPaths();
    QString folderList;
    for (const QString &folder : folders)
        folderList += folder + QLatin1Char('\n');

    return QStringLiteral("Scan Type: %1\n\nCurrent Diagnosis Settings:\n%2\n\nScanned Folders:\n%3")
        .arg(scanType, diagnosisList, folderList);
}

QStringList QVDiagnosisViewState::settingsStartHeadings()
{
    return { QStringLiteral("Scan Type:"), QStringLiteral("Current Diagnosis Settings:"),
        QStringLiteral("Scanned Folders:") };
}
