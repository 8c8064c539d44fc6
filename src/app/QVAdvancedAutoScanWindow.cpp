#include "QVAdvancedAutoScanWindow.h"

#include "QVAlertSheet.h"
#include "platform/QVFileReveal.h"
#include "settings/QVDataFolder.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"

#include <QBoxLayout>
#include <QFile>
#include <QLabel>
#include <QPushButton>

QVAdvancedAutoScanWindow::QVAdvancedAutoScanWindow(
    QVSettings *settings, QVHelperCommunications *helperCommunications, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_helperCommunications(helperCommunications)
{
    setWindowTitle(QStringLiteral("Advanced AutoScan Settings"));
    setAccessibleName(windowTitle());
    const auto button
        = [this](const QString &title, const QString &tip, void (QVAdvancedAutoScanWindow::*action)()) {
              auto *b = new QPushButton(title, this);
              b->setAccessibleName(title);
              b->setToolTip(tip);
              b->setAutoDefault(false);
              connect(b, &QPushButton::clicked, this, action);
              return b;
          };
    m_quitHelpers = button(QStringLiteral("Quit Helpers"),
        QStringLiteral("Stop the AutoScan helper and the AutoScan menu"),
        &QVAdvancedAutoScanWindow::quitHelperAppsButtonAction);
    m_enableLogging = button(QStringLiteral("Enable Logging"),
        QStringLiteral("Log what Quorvel and its helpers do, and show the log"),
        &QVAdvancedAutoScanWindow::enableLoggingAction);
    m_disableLogging = button(QStringLiteral("Disable Logging"), QStringLiteral("Stop logging"),
        &QVAdvancedAutoScanWindow::disableLoggingAction);
    m_showQuarantine = button(QStringLiteral("Show Quarantine Folder"),
        QStringLiteral("Open the folder that holds quarantined fonts"),
        &QVAdvancedAutoScanWindow::showQuarantineFolderAction);
    m_showReports = button(QStringLiteral("Show Reports Folder"),
        QStringLiteral("Open the folder that holds saved reports"),
        &QVAdvancedAutoScanWindow::showReportsAction);
    m_reset = button(QStringLiteral("Reset Settings…"),
        QStringLiteral("Return every setting to its default and quit"),
        &QVAdvancedAutoScanWindow::resetAutoSacnSettingsAction);

    auto *note = new QLabel(QStringLiteral("These are for troubleshooting AutoScan. Logs are written to the "
                                           "Quorvel data folder, one for Quorvel and one for each helper."),
        this);
    note->setWordWrap(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->addWidget(note);
    const auto row = [layout](QPushButton *a, QPushButton *b) {
        auto *line = new QHBoxLayout;
        line->addWidget(a);
        line->addWidget(b);
        layout->addLayout(line);
    };
    row(m_enableLogging, m_disableLogging);
    row(m_showQuarantine, m_showReports);
    row(m_quitHelpers, m_reset);
    auto *close = new QPushButton(QVStringTable::text(QStringLiteral("any.done.title")), this);
    close->setAccessibleName(close->text());
    close->setDefault(true);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    layout->addWidget(close, 0, Qt::AlignRight);
    updateButtons();
}

void QVAdvancedAutoScanWindow::updateButtons()
{
    m_enableLogging->setEnabled(!m_settings->doLogging());
    m_disableLogging->setEnabled(m_settings->doLogging());
}

void QVAdvancedAutoScanWindow::quitHelperAppsButtonAction()
{
    Q_EMIT quitHelpersRequested();
    QVAlertSheet::show(
        this, QVStringTable::text("settings.helper.status.message"),
        QVStringTable::text("settings.helper.autoscan.message"), { QVStringTable::text("any.ok.title") },
        QStringLiteral("quitHelperApps"), [](int) {}, QMessageBox::Critical);
}

void QVAdvancedAutoScanWindow::setLogging(bool enabled)
{
    const QVariantMap options { { QStringLiteral("kPayloadOptions"),
        enabled ? QStringLiteral("loggingEnabledEnabled") : QStringLiteral("loggingDisabled") } };
    if (m_helperCommunications) {
        for (const char *helper :
            { QVSettings::kHandlerBundleIdentifier, QVSettings::kSchedulerBundleIdentifier })
            m_helperCommunications->sendCommand(
                QStringLiteral("kCommand_Set_Logging"), QString::fromLatin1(helper), options, false);
    }
    m_settings->setDoLogging(enabled);
    QVLog::setEnabled(enabled);
    updateButtons();
}

void QVAdvancedAutoScanWindow::enableLoggingAction()
{
    setLogging(true);
    const QString log = QVLog::logFilePath();
    if (!QVDataFolder::ensure().isEmpty()) {
        QFile file(log);
        // Made now, so there is something to open before the first line.
        if (file.open(QIODevice::Append))
            file.close();
    }
    Q_EMIT showLogRequested(log);
}

void QVAdvancedAutoScanWindow::disableLoggingAction()
{
    setLogging(false);
}

void QVAdvancedAutoScanWindow::showQuarantineFolderAction()
{
    QVFileReveal::revealInFinder(QVQuarantineStore().getQuarantineFolder().toLocalFile());
}

void QVAdvancedAutoScanWindow::showReportsAction()
{
    QVFileReveal::revealInFinder(QVReportStore().getReportFolder().toLocalFile());
}

void QVAdvancedAutoScanWindow::resetAutoSacnSettingsAction()
{
    // Quarantined fonts and saved reports stay: a reset of settings never
    // deletes a font.
    QVAlertSheet::show(
        this, QVStringTable::text("settings.reset.title"), QVStringTable::text("settings.reset.message"),
        { QVStringTable::text("any.cancel.title"), QStringLiteral("Reset and Quit") },
        QStringLiteral("resetAutoScanSettings"),
        [this](int returnCode) {
            if (returnCode != 1001)
                return;
            Q_EMIT quitHelpersRequested();
            for (const char *helper :
                { QVSettings::kHandlerBundleIdentifier, QVSettings::kSchedulerBundleIdentifier })
                QFile::remove(QVSettings(QString::fromLatin1(helper)).fileName());
            // The application's own store: back to the defaults, keeping who the user is.
            const QString userName = m_settings->userName();
            const QString companyName = m_settings->companyName();
            QFile::remove(m_settings->fileName());
            if (!userName.isEmpty())
                m_settings->setUserName(userName);
            if (!companyName.isEmpty())
                m_settings->setCompanyName(companyName);
            Q_EMIT terminateRequested();
        },
        QMessageBox::Critical);
}
