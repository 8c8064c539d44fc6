#include "QVAppDelegate.h"

#include "QVAdvancedAutoScanWindow.h"
#include "QVAlertSheet.h"
#include "QVAutoScanSheet.h"
#include "QVDiagnosisActionWindow.h"
#include "QVDiagnosisViewController.h"
#include "QVFolderChooser.h"
#include "QVMainWindow.h"
#include "QVOrganizeOptionsWindowController.h"
#include "QVOrganizeProgressWindow.h"
#include "QVOverlayWindow.h"
#include "QVQuarantineTab.h"
#include "QVReportWindow.h"
#include "QVReportsTab.h"
#include "QVScanRootViewController.h"
#include "QVSettingsTabItem.h"
#include "QVViewButton.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisResolution.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "organizer/QVFontOrganizer.h"
#include "platform/QVDefaultApplication.h"
#include "platform/QVFileReveal.h"
#include "platform/QVLoginItem.h"
#include "reports/QVReportManager.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVFileManager.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QApplication>
#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QPushButton>
#include <QTimer>
#include <QtConcurrent>
#include <algorithm>
#include <cstdio>

namespace
{

const QString kManualScan = QStringLiteral("Manual Scan");
const QString kAutoScan = QStringLiteral("AutoScan");
// How long an organizing run waits for another run to let go of the
// quarantine before it gives up.
constexpr int kOrganizeLockWaitMs = 60 * 1000;

} // namespace

QVAppDelegate::QVAppDelegate(QObject *parent)
    : QObject(parent)
{
}

QVAppDelegate::~QVAppDelegate()
{
    cleanUpBeforeClosing();
    // Its walk may be inside a copy: that copy ends before the surgery goes.
    delete m_organizer;
    m_organizer = nullptr;
    m_organizeSurgery.reset();
    QVReportManager::setShowReportHook({});
    // The window's views refer to the data manager and file manager.
    m_window.reset();
    delete m_fileMgr;
    if (m_ownsBusName)
        QDBusConnection::sessionBus().unregisterService(QString::fromLatin1(QVSettings::kBundleIdentifier));
}

bool QVAppDelegate::launch(const QStringList &folders)
{
    applicationWillFinishLaunching();
    applicationDidFinishLaunching();
    m_window->show();
    // Folders named on the command line start a scan at once: no welcome then.
    if (folders.isEmpty() && !m_settings->dontShowWelcomeScreenAtStartup())
        m_overlayWindow->showOverWindow();
    return folders.isEmpty() || openFolders(folders);
}

void QVAppDelegate::applicationWillFinishLaunching()
{
    // No helper runs yet that a migration would have to restart.
    QVSettings::migratePreferences();
    m_settings = std::make_unique<QVSettings>();
    m_settings->registerUserPreferences();
    m_helperCommunications = new QVHelperCommunications(
        QString::fromLatin1(QVSettings::kBundleIdentifier), QDBusConnection::sessionBus(), this);
    // The helpers tell that the application runs by this name on the bus.
    if (QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface())
        m_ownsBusName = bus->registerService(QString::fromLatin1(QVSettings::kBundleIdentifier),
                               QDBusConnectionInterface::DontQueueService)
                            .value()
            == QDBusConnectionInterface::ServiceRegistered;
}

void QVAppDelegate::applicationDidFinishLaunching()
{
    m_dataMgr = std::make_unique<QVFontDataManager>();
    m_fileMgr = new QVFileManager(m_dataMgr.get());
    m_fileMgr->setSettings(m_settings.get());
    m_fileMgr->setHelperCommunications(m_helperCommunications);

    m_window = std::make_unique<QVMainWindow>(this);
    m_defaultScanViewController = new QVScanRootViewController(m_settings.get());
    m_diagnosisViewController = new QVDiagnosisViewController(m_dataMgr.get());
    m_diagnosisViewController->viewState()->setHelperCommunications(m_helperCommunications);
    m_diagnosisViewController->setFileMgr(m_fileMgr);
    m_settingsTabItem = new QVSettingsTabItem(m_settings.get());
    m_quarantineTab = new QVQuarantineTab;
    m_reportsTab = new QVReportsTab;
    m_window->setViews(m_defaultScanViewController, m_diagnosisViewController, m_settingsTabItem,
        m_quarantineTab, m_reportsTab);
    m_overlayWindow = new QVOverlayWindow(m_window.get());
    m_overlayWindow->setSettings(m_settings.get());
    connect(m_overlayWindow, &QVOverlayWindow::dismissed, this, &QVAppDelegate::resetButtons);
    connectDiagnosisView();
    QVReportManager::setShowReportHook([](const QVariantMap &record) { QVReportWindow::showReport(record); });
    connect(m_quarantineTab, &QVQuarantineTab::infoChanged, this,
        [this](const QString &text) { m_window->setInfo(text, QStringLiteral("quarantine")); });
    connect(m_reportsTab, &QVReportsTab::infoChanged, this,
        [this](const QString &text) { m_window->setInfo(text, QStringLiteral("reports")); });
    connect(m_reportsTab, &QVReportsTab::reportsChanged, m_defaultScanViewController,
        &QVScanRootViewController::updateScanViewText);
    connect(m_defaultScanViewController, &QVScanRootViewController::scanButtonClicked, this,
        &QVAppDelegate::handleScanButton);
    connect(m_defaultScanViewController, &QVScanRootViewController::scanFolderButtonClicked, this,
        &QVAppDelegate::HandleManualScanMenuItem);
    connect(m_defaultScanViewController, &QVScanRootViewController::organizeButtonClicked, this,
        [this] { presentOrganizeOptionsWindow({}); });
    connect(m_defaultScanViewController, &QVScanRootViewController::showReportRequested, this,
        [](const QString &filePath, const QString &reportName) {
            QVReportWindow::showReport(
                { { QStringLiteral("filePath"), filePath }, { QStringLiteral("reportName"), reportName } });
        });
    connect(m_settingsTabItem, &QVSettingsTabItem::alertRequested, this,
        [this](const QString &message, const QString &informativeText, const QString &context) {
            showAlert(message, informativeText, { QVStringTable::text("any.ok.title") }, context);
        });

    QVNotificationCenter *center = QVNotificationCenter::defaultCenter();
    connect(center, &QVNotificationCenter::kScanFolderComplete, this, &QVAppDelegate::handleSearchResults);
    connect(
        center, &QVNotificationCenter::kEndDiagnosis, this, &QVAppDelegate::handleDiagnosisEndedNotification);
    connect(
        center, &QVNotificationCenter::kEndDiagnosisAction, this, &QVAppDelegate::handleDiagnosisActionEnded);

    m_rootRepository = m_fileMgr->getRootRepository();
    selectButton(QVMainWindow::ScanView);
    m_settingsTabItem->setStateFromUserPrefs();

    installMenuCommands();
    // A feed address must be set for a check to look anywhere.
    m_automaticallyChecksForUpdates = m_settings->checkForUpdates();
    if (m_automaticallyChecksForUpdates && !m_settings->updateFeedURL().isEmpty())
        checkForUpdates(false);

    connect(
        m_helperCommunications, &QVHelperCommunications::responseReceived, this, &QVAppDelegate::gotResponse);
    connect(
        m_helperCommunications, &QVHelperCommunications::commandReceived, this, &QVAppDelegate::gotCommand);
    connect(m_defaultScanViewController, &QVScanRootViewController::autoScanSettingsRequested, this,
        &QVAppDelegate::showAutoScanSheet);
    connect(m_settingsTabItem, &QVSettingsTabItem::helperMenuToggled, this, [this](bool shown) {
        if (shown)
            launchScheduler();
        else
            killScheduler();
    });
    if (m_settings->autoScanEnabled())
        launchHandlerApp();
    if (m_settings->showHelperMenu())
        launchScheduler();
    if (m_settings->autoScanEnabled() || m_settings->showHelperMenu()) {
        // On the first run the helpers were only just started: give them a moment.
        if (m_settings->isInitialRun())
            QTimer::singleShot(m_delay, this, &QVAppDelegate::askForPendingCommands);
        else
            askForPendingCommands();
    }
    populateScanRecentsMenu();
    m_settings->setIsInitialRun(false);
    resetButtons();

    // There is no disk-access gate here; a home that cannot be read is the one
    // case worth stopping for.
    if (!QFileInfo(QDir::homePath()).isReadable())
        showAlert(QStringLiteral("Disk Access Required"),
            QStringLiteral("Quorvel cannot read your home folder (%1). Fonts there cannot be scanned.")
                .arg(QDir::homePath()),
            { QVStringTable::text("any.continue.title"), QVStringTable::text("any.quit.title") },
            QStringLiteral("askFileAccess"));
}

void QVAppDelegate::connectDiagnosisView()
{
    QVDiagnosisViewState *state = m_diagnosisViewController->viewState();
    connect(
        state, &QVDiagnosisViewState::userInterfaceEnabled, this, &QVAppDelegate::setUserInterfaceEnabled);
    connect(state, &QVDiagnosisViewState::scanViewTextChanged, m_defaultScanViewController,
        &QVScanRootViewController::updateScanViewText);
    connect(state, &QVDiagnosisViewState::scanCancelRequested, this, &QVAppDelegate::handleScanButton);
    connect(state, &QVDiagnosisViewState::diagnosisViewClosed, this, &QVAppDelegate::closeDiagnosisView);
    connect(state, &QVDiagnosisViewState::buttonSelected, this, &QVAppDelegate::selectButton);
    connect(state, &QVDiagnosisViewState::terminateRequested, this, [this] {
        m_quitting = true;
        m_window->close();
    });
    connect(state, &QVDiagnosisViewState::actionWindowRequested, this,
        &QVAppDelegate::presentDiagnosisActionWindow);
}

void QVAppDelegate::launchHandlerApp()
{
    launchHelper(QVSettings::kHandlerBundleIdentifier, QStringLiteral("quorvel-handler"),
        "Failed to start kQuorvelHandlerID");
}

void QVAppDelegate::launchScheduler()
{
    launchHelper(QVSettings::kSchedulerBundleIdentifier, QStringLiteral("quorvel-scheduler"),
        "Failed to start kQuorvelSchedulerID");
}

void QVAppDelegate::launchHelper(const char *bundleIdentifier, const QString &program, const char *failure)
{
    // The helpers are installed beside the application.
    const QString identifier = QString::fromLatin1(bundleIdentifier);
    const QString folder
        = m_helperDirectory.isEmpty() ? QCoreApplication::applicationDirPath() : m_helperDirectory;
    if (QVLoginItem::isRunning(identifier)
        || QVLoginItem::enable(identifier, folder + QLatin1Char('/') + program))
        ++m_pendingCommandTotal;
    else
        qCWarning(lcHelpers) << failure;
}

void QVAppDelegate::askForPendingCommands()
{
    // A short wait: an answer or a timeout arrives as an event, never blocking.
    const int timeout = m_helperCommunications->timeoutInterval();
    m_helperCommunications->setTimeoutInterval(1000);
    m_helperCommunications->sendCommand(QStringLiteral("kCommand_HasPendingCommands"), QString(), {}, true);
    m_helperCommunications->setTimeoutInterval(timeout);
}

void QVAppDelegate::gotResponse(const QString &response, const QString &, const QVariantMap &options)
{
    if (response != QLatin1String("kCommand_HasPendingCommands"))
        return;
    if (options.value(QStringLiteral("hasPending")).toString() == QLatin1String("YES"))
        m_hasPendingCommand = true;
    // Once every helper started has answered, they may send what they hold.
    if (++m_pendingCommandCount == m_pendingCommandTotal)
        sendReady();
}

void QVAppDelegate::sendReady()
{
    m_helperCommunications->sendResponse(QStringLiteral("kResponse_Ready"), QString(),
        { { QStringLiteral("kPayloadOptions"),
            m_settings->autoScanEnabled() ? QStringLiteral("autoScanEnabled")
                                          : QStringLiteral("autoScanDisabled") } });
}

void QVAppDelegate::killHandlerApp()
{
    killHelper(QVSettings::kHandlerBundleIdentifier, "Failed to stop kQuorvelHandlerID");
}

void QVAppDelegate::killScheduler()
{
    killHelper(QVSettings::kSchedulerBundleIdentifier, "Failed to stop kQuorvelSchedulerID");
}

void QVAppDelegate::killHelper(const char *bundleIdentifier, const char *failure)
{
    // The entry goes even when the helper is not running, or it would come back at the next login.
    if (!QVLoginItem::disable(QString::fromLatin1(bundleIdentifier)))
        qCWarning(lcHelpers) << failure;
}

void QVAppDelegate::sendSettingsToHelper()
{
    QVariantMap settings { { QStringLiteral("fontFolderPaths"), m_settings->fontFolderPaths() },
        { QStringLiteral("autoScanFrequency"), m_settings->autoScanFrequency() },
        { QStringLiteral("autoScanModifiedFolders"), m_settings->autoScanModifiedFolders() } };
    if (const QDateTime last = m_settings->lastAutoScanDate(); last.isValid())
        settings.insert(QStringLiteral("kAutoScanLastDate"), last);
    m_helperCommunications->sendResponse(
        QStringLiteral("kResponse_Settings"), QString(), { { QStringLiteral("kPayloadOptions"), settings } });
}

void QVAppDelegate::gotCommand(const QString &command, const QString &sender, const QVariantMap &)
{
    // Time for the welcome overlay to go first.
    const int delay = m_settings->dontShowWelcomeScreenAtStartup() ? 0 : std::min(500, m_delay);
    if (command == QLatin1String("kCommand_ScanFonts")) {
        if (isBusy())
            return;
        // Only the scan the handler started this application for may quit it
        // afterwards; one sent to an application already in use may not.
        if (sender == QLatin1String(QVSettings::kHandlerBundleIdentifier) && m_hasPendingCommand) {
            m_hasPendingCommand = false;
            m_diagnosisViewController->viewState()->setIsAutoScanLaunch(true);
        }
        QTimer::singleShot(delay, this, &QVAppDelegate::handleScanButton);
    } else if (command == QLatin1String("kCommand_ShowAutoscanSettings")) {
        QTimer::singleShot(delay, this, &QVAppDelegate::showAutoScanSheet);
    } else if (command == QLatin1String("kCommand_GetSettings")) {
        sendSettingsToHelper();
    } else if (command == QLatin1String("kCommand_RemoveMenu")) {
        removeSchedulerMenu();
    }
}

void QVAppDelegate::removeSchedulerMenu()
{
    killScheduler();
    m_settings->setShowHelperMenu(false);
    m_settingsTabItem->helperMenuCheckbox()->setChecked(false);
}

QVAutoScanSheet *QVAppDelegate::autoScanSheet() const
{
    return m_autoScanSheet;
}

QVAdvancedAutoScanWindow *QVAppDelegate::advancedAutoScanWindow() const
{
    return m_advancedAutoScanWindow;
}

void QVAppDelegate::showAutoScanSheet()
{
    m_overlayWindow->fadeOut();
    if (isBusy() || !m_userInterfaceEnabled)
        return;
    if (m_autoScanSheet) {
        m_autoScanSheet->raise();
        return;
    }
    auto *sheet = new QVAutoScanSheet(m_settings.get(), m_window.get());
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    m_autoScanSheet = sheet;
    connect(sheet, &QVAutoScanSheet::autoScanSwitched, this, [this](bool enabled) {
        if (enabled)
            launchHandlerApp();
        else
            killHandlerApp();
        sendReady();
    });
    connect(sheet, &QVAutoScanSheet::advancedSettingsRequested, this, &QVAppDelegate::showAdvancedSettings);
    connect(sheet, &QDialog::finished, this, &QVAppDelegate::endAutoScanSheet);
    sheet->open();
}

void QVAppDelegate::endAutoScanSheet()
{
    if (QVAutoScanSheet *sheet = m_autoScanSheet) {
        m_autoScanSheet.clear();
        sheet->hide();
    }
    // Neither a schedule nor folder watching: nothing left for auto-scanning to do.
    if (!m_settings->autoScanModifiedFolders() && m_settings->autoScanFrequency() == QLatin1String("kNever")
        && m_settings->autoScanEnabled()) {
        m_settings->setAutoScanEnabled(false);
        killHandlerApp();
        sendReady();
    }
    m_defaultScanViewController->updateAutoScanStatus();
    sendSettingsToHelper();
}

void QVAppDelegate::showAdvancedSettings()
{
    if (m_advancedAutoScanWindow) {
        m_advancedAutoScanWindow->raise();
        return;
    }
    auto *window = new QVAdvancedAutoScanWindow(m_settings.get(), m_helperCommunications, m_window.get());
    window->setAttribute(Qt::WA_DeleteOnClose);
    m_advancedAutoScanWindow = window;
    connect(window, &QVAdvancedAutoScanWindow::quitHelpersRequested, this, [this] {
        killHandlerApp();
        killScheduler();
    });
    connect(window, &QVAdvancedAutoScanWindow::showLogRequested, this,
        [](const QString &path) { QVDefaultApplication::open(path); });
    connect(window, &QVAdvancedAutoScanWindow::terminateRequested, this, [this] {
        m_quitting = true;
        m_window->close();
    });
    window->show();
}

QVDiagnosisActionWindow *QVAppDelegate::diagnosisActionWindow() const
{
    return m_diagnosisActionWindow;
}

void QVAppDelegate::presentDiagnosisActionWindow(const QList<QVProblemFontPtr> &problemFonts)
{
    if (m_diagnosisActionWindow)
        m_diagnosisActionWindow->close();
    auto *window = new QVDiagnosisActionWindow(m_dataMgr.get(), m_window.get());
    m_diagnosisActionWindow = window;
    const QVDiagnosisResolution *resolution = window->resolution();
    connect(window, &QVDiagnosisActionWindow::userInterfaceEnabled, this,
        &QVAppDelegate::setUserInterfaceEnabled);
    // The report of this diagnosis counts what its resolutions moved.
    m_fileMgr->qv_total_quarantined = 0;
    connect(window, &QVDiagnosisActionWindow::fontsQuarantined, this,
        [this](int count) { m_fileMgr->qv_total_quarantined += count; });
    connect(window, &QVDiagnosisActionWindow::quarantineChanged, this, [this] {
        // The quarantine view reloads, once it is one that lists.
        m_quarantineTab->refreshTableViewData();
    });
    connect(resolution, &QVDiagnosisResolution::scanViewTextChanged, m_defaultScanViewController,
        &QVScanRootViewController::updateScanViewText);
    // A run that saves its reports writes this one when the window is done.
    connect(resolution, &QVDiagnosisResolution::reportRequested, this,
        [this] { m_diagnosisViewController->generateReport(m_settings->showReports()); });
    connect(resolution, &QVDiagnosisResolution::helperResponse, this,
        [this](const QString &response, const QVariantMap &options) {
            if (m_helperCommunications)
                m_helperCommunications->sendResponse(response, QString(), options);
        });
    window->setProblemFontsArray(problemFonts);
    window->show();
    window->raise();
    window->activateWindow();
    QApplication::alert(window);
}

bool QVAppDelegate::isBusy() const
{
    return m_scanRequested || m_isOrganizingFonts || (m_fileMgr && m_fileMgr->isFindingFonts())
        || (m_diagnosisViewController && m_diagnosisViewController->viewState()->isDiagnosingFonts());
}

bool QVAppDelegate::isShowingDoneButton() const
{
    return m_diagnosisViewController && m_diagnosisViewController->viewState()->isShowingDoneButton();
}

void QVAppDelegate::startManualScan(const QStringList &paths, bool fromScanButton)
{
    m_overlayWindow->fadeOut();
    if (m_diagnosisActionWindow && m_diagnosisActionWindow->isVisible()) {
        // The last diagnosis's fonts still wait for an answer: the window asks
        // to be closed first, and no scan starts.
        m_diagnosisActionWindow->setShowCloseWarning(true);
        m_diagnosisActionWindow->close();
        return;
    }
    for (const QString &path : paths)
        m_settings->addRecentScan(path);
    populateScanRecentsMenu();
    selectButton(QVMainWindow::ScanView);
    setUserInterfaceEnabled(false);
    m_scanRequested = true;
    QTimer::singleShot(fromScanButton ? 0 : m_delay, this, [this, paths] {
        showDiagnosisView(false);
        m_settings->setLastScanType(kManualScan);
        m_diagnosisViewController->setCancelButton(QVStringTable::text("any.cancel.title"), true);
        m_diagnosisViewController->diagnosis()->setManualScanFolders(paths);
        m_diagnosisViewController->setScanMode();
        m_diagnosisViewController->resetAllProgressViews();
        QTimer::singleShot(m_delay, this, [this, paths] { scanFolders(paths); });
    });
}

void QVAppDelegate::scanFolders(const QStringList &paths)
{
    if (m_quitting) {
        // Quit was chosen before the scan began: nothing runs any more.
        m_scanRequested = false;
        return;
    }
    m_diagnosisViewController->diagnosis()->setDoCancel(false);
    m_fileMgr->setProgress(m_diagnosisViewController->diagnosis()->overallProgress());
    m_diagnosisViewController->viewState()->setFindingFonts(true);
    m_fileMgr->scanFolders(paths, [this](QVFileManager *) {
        // The walk's thread: the window is the main thread's.
        QMetaObject::invokeMethod(this, [this] {
            m_defaultScanViewController->scanButton()->setText(
                QVStringTable::text("scan.button.title.default"));
        });
    });
    Q_EMIT scanStarted(paths);
}

void QVAppDelegate::handleScanButton()
{
    m_overlayWindow->fadeOut();
    selectButton(QVMainWindow::ScanView);
    m_fileMgr->setProgress(m_diagnosisViewController->diagnosis()->overallProgress());
    if (m_fileMgr->isFindingFonts()) {
        m_fileMgr->pauseScan();
        showAlert(QVStringTable::text("search.cancel.message"), QVStringTable::text("search.cancel.info"),
            { QVStringTable::text("any.continue.title"), QVStringTable::text("any.cancel.title") },
            QStringLiteral("handleScanButton"));
        return;
    }
    if (isBusy())
        return;
    const QStringList folders = m_settings->fontFolderPaths();
    if (folders.isEmpty()) {
        showAlert(QStringLiteral("No font folders are chosen"),
            QStringLiteral("Choose the folders a standard scan examines in Settings."),
            { QVStringTable::text("any.ok.title") }, QStringLiteral("doAutoScanFoldersAlert"));
        return;
    }
    // A scan of the configured folders counts as an auto-scan, also when started by hand.
    m_settings->setLastScanType(kAutoScan);
    m_diagnosisViewController->setScanMode();
    m_diagnosisViewController->diagnosis()->setDoCancel(false);
    m_diagnosisViewController->setCancelButton(QVStringTable::text("any.cancel.title"), true);
    m_diagnosisViewController->resetAllProgressViews();
    showDiagnosisView(true);
    setUserInterfaceEnabled(false);
    m_scanRequested = true;
    QTimer::singleShot(m_delay, this, [this, folders] { scanFolders(folders); });
}

void QVAppDelegate::HandleManualScanMenuItem()
{
    m_overlayWindow->fadeOut();
    if (isBusy())
        return;
    QVFolderChooser::open(m_window.get(), QVStringTable::text("any.select.folder.title"), QDir::homePath(),
        QString(), [this](const QString &folder) { startManualScan({ folder }); });
}

void QVAppDelegate::handleRecentScanMenu(int index)
{
    m_overlayWindow->fadeOut();
    const QStringList recents = m_settings->recentScanFolderPaths().value_or(QStringList());
    if (index < 0 || index >= recents.size() || isBusy())
        return;
    const QString folder = recents.at(index);
    if (QFileInfo(folder).isDir()) {
        startManualScan({ folder });
        return;
    }
    m_settings->removeRecentScan(folder);
    populateScanRecentsMenu();
    showAlert(QVStringTable::text("settings.missingFolder.title"),
        QVStringTable::text("settings.missingFolder.message"), { QVStringTable::text("any.ok.title") },
        QStringLiteral("handleRecentScanMenu"));
}

bool QVAppDelegate::performDragOperation(const QStringList &paths)
{
    if (paths.isEmpty() || isBusy())
        return false;
    for (const QString &path : paths) {
        if (!QFileInfo(path).isDir())
            return false;
    }
    m_settings->setOrganizeFonts(false);
    startManualScan(paths);
    return true;
}

bool QVAppDelegate::openFolders(const QStringList &paths)
{
    QStringList folders;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.isDir()) {
            const QString why = info.exists() ? QStringLiteral("%1 is not a folder").arg(path)
                                              : QStringLiteral("%1: no such folder").arg(path);
            std::fprintf(stderr, "quorvel: %s\n", qPrintable(why));
            m_window->setInfo(why + QStringLiteral(". Nothing was scanned."), QStringLiteral("scan"));
            return false;
        }
        folders.append(info.absoluteFilePath());
    }
    return performDragOperation(folders);
}

void QVAppDelegate::handleSearchResults(const QVariantMap &userInfo)
{
    m_diagnosisViewController->viewState()->setFindingFonts(false);
    if (userInfo.value(QStringLiteral("status")).toString() == QLatin1String("success")) {
        m_diagnosisViewController->diagnosis()->setOverallProgressToIndeterminate();
        m_diagnosisViewController->setCancelButton(QVStringTable::text("any.cancel.title"), false);
        m_diagnosisViewController->setReportButtonEnabled(false);
        QTimer::singleShot(m_delay, this, [this] {
            m_scanRequested = false;
            if (!m_quitting)
                m_diagnosisViewController->diagnoseFonts();
        });
        return;
    }
    m_scanRequested = false;
    m_defaultScanViewController->scanButton()->setText(QVStringTable::text("scan.button.title.default"));
    m_diagnosisViewController->setCancelButton(QVStringTable::text("any.done.title"), true);
    m_diagnosisViewController->diagnosis()->resetProgress();
    m_diagnosisViewController->diagnosis()->setProgressText(QVStringTable::text("filemanager.scan.canceled"));
    setUserInterfaceEnabled(true);
}

void QVAppDelegate::handleDiagnosisEndedNotification(const QVariantMap &)
{
    m_defaultScanViewController->scanButton()->setText(QVStringTable::text("scan.button.title.default"));
    setUserInterfaceEnabled(true);
    m_defaultScanViewController->updateAutoScanStatus();
}

void QVAppDelegate::handleDiagnosisActionEnded(const QVariantMap &)
{
    // A resolution may have moved fonts into the quarantine.
    m_quarantineTab->refreshTableViewData();
    if (m_settings->organizeFonts() && !m_isOrganizingFonts
        && !m_diagnosisViewController->viewState()->isAutoScanLaunch()
        && m_settings->lastScanType() != kAutoScan) {
        startOrganizing();
        return;
    }
    m_defaultScanViewController->updateScanViewText();
}

QVOrganizeOptionsWindowController *QVAppDelegate::organizeOptionsWindowController() const
{
    return m_organizeOptionsWindowController;
}

QVOrganizeProgressWindow *QVAppDelegate::organizeProgressWindow() const
{
    return m_organizeProgressWindow;
}

void QVAppDelegate::presentOrganizeOptionsWindow(const QStringList &folders)
{
    m_overlayWindow->fadeOut();
    if (isBusy() || !m_userInterfaceEnabled)
        return;
    if (m_organizeOptionsWindowController) {
        m_organizeOptionsWindowController->raise();
        return;
    }
    auto *sheet = new QVOrganizeOptionsWindowController(this, m_settings.get(), m_window.get());
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    m_organizeOptionsWindowController = sheet;
    if (!folders.isEmpty())
        sheet->setInputFolderPath(folders.first());
    sheet->windowDidLoad();
    sheet->open();
}

void QVAppDelegate::closeOrganizeoptionsWindow()
{
    if (QVOrganizeOptionsWindowController *sheet = m_organizeOptionsWindowController) {
        m_organizeOptionsWindowController.clear();
        sheet->close();
    }
}

void QVAppDelegate::startOrganizing()
{
    if (m_organizeOutputFolderURL.isEmpty()) {
        // Only the organize sheet names a library; without one nothing moves.
        qCWarning(lcOrganizer) << "Organizing was asked for without a library folder: nothing organized";
        m_settings->setOrganizeFonts(false);
        m_defaultScanViewController->updateScanViewText();
        return;
    }
    setUserInterfaceEnabled(false);
    m_isOrganizingFonts = true;
    m_organizeRunEnded = false;
    // Reading the quarantine's index and waiting for another run are file work.
    QVFontDataManager *dataMgr = m_dataMgr.get();
    (void)QtConcurrent::run([dataMgr] {
        auto store = std::make_shared<QVQuarantineStore>(dataMgr);
        const QString error = store->lockForRun(kOrganizeLockWaitMs);
        return std::make_pair(store, error);
    }).then(this, [this](const std::pair<std::shared_ptr<QVQuarantineStore>, QString> &handle) {
        organizeFonts(handle.first, handle.second);
    });
}

void QVAppDelegate::organizeFonts(const std::shared_ptr<QVQuarantineStore> &store, const QString &error)
{
    if (!error.isNull() || m_quitting) {
        m_settings->setOrganizeFonts(false);
        m_isOrganizingFonts = false;
        setUserInterfaceEnabled(true);
        (void)QtConcurrent::run([store] {});
        if (!m_quitting)
            showAlert(QStringLiteral("Fonts Not Organized"), error, { QVStringTable::text("any.ok.title") },
                QStringLiteral("organizeFonts"));
        return;
    }
    m_organizeStore = store;
    m_organizeSurgery = std::make_unique<QVSuitcaseSurgery>(m_organizeStore.get());
    m_organizer = new QVFontOrganizer(m_dataMgr.get(), m_organizeSurgery.get(), m_settings.get());
    connect(m_organizer, &QVFontOrganizer::progressSheetRequested, this,
        &QVAppDelegate::showOrganizeProgressWindow);
    connect(m_organizer, &QVFontOrganizer::progressSheetClosed, this, [this] {
        if (QVOrganizeProgressWindow *window = m_organizeProgressWindow) {
            m_organizeProgressWindow.clear();
            window->refresh();
            window->hide();
            window->deleteLater();
        }
        finishOrganizing();
    });
    connect(m_organizer, &QVFontOrganizer::alertRequested, this,
        [this](const QString &message, const QString &informativeText, const QString &button) {
            // With nothing placed, the "no fonts added" alert says what happened instead.
            if (m_organizer && m_organizer->copiedOrMovedFonts())
                showAlert(message, informativeText, { button }, QStringLiteral("organizeFonts"));
        });
    connect(m_organizer, &QVFontOrganizer::libraryFolderRevealRequested, this,
        [](const QString &path) { QVFileReveal::revealInFinder(path); });
    // The completion runs on the organizer's queue: the rest is the main thread's.
    m_organizer->organizeFonts(m_organizeOutputFolderURL, [this] {
        QMetaObject::invokeMethod(this, [this] {
            m_organizeRunEnded = true;
            finishOrganizing();
        });
    });
}

void QVAppDelegate::showOrganizeProgressWindow()
{
    auto *window = new QVOrganizeProgressWindow(m_organizer->progressWindow(), m_window.get());
    m_organizeProgressWindow = window;
    QPointer<QVFontOrganizer> organizer = m_organizer;
    window->setCancelButtonBlock([organizer] {
        if (organizer)
            organizer->cancelOrganizing();
    });
    window->open();
}

void QVAppDelegate::finishOrganizing()
{
    // The run's end and its sheet's closing come in either order (a cancel
    // closes the sheet 2 seconds after the walk stops).
    if (!m_organizer || !m_organizeRunEnded || m_organizeProgressWindow)
        return;
    const bool placedFonts = m_organizer->copiedOrMovedFonts();
    m_organizer->deleteLater();
    m_organizer = nullptr;
    m_organizeSurgery.reset();
    // Letting go of the quarantine writes its index: off the main thread.
    (void)QtConcurrent::run([store = std::move(m_organizeStore)] {});
    m_isOrganizingFonts = false;
    setUserInterfaceEnabled(true);
    if (!placedFonts)
        showAlert(QVStringTable::text("organize.noFontsAdded.title"),
            QVStringTable::text("organize.noFontsAdded.message"), { QVStringTable::text("any.ok.title") },
            QStringLiteral("organizeFonts"));
    if (m_settings->automaticallySaveReports() && m_dataMgr->foundProblemFonts)
        m_diagnosisViewController->generateReport(m_settings->showReports());
    m_defaultScanViewController->updateScanViewText();
    Q_EMIT organizeFinished();
}

void QVAppDelegate::presentScanView()
{
    m_window->showDiagnosisView(false);
    m_defaultScanViewController->updateScanViewText();
}

void QVAppDelegate::showDiagnosisView(bool)
{
    m_window->showDiagnosisView(true);
}

void QVAppDelegate::closeDiagnosisView(int)
{
    m_diagnosisViewController->setCancelButton(QString(), false);
    presentScanView();
}

void QVAppDelegate::selectButton(int index)
{
    m_window->selectButton(index);
}

void QVAppDelegate::resetButtons()
{
    m_window->resetButtons();
}

void QVAppDelegate::setUserInterfaceEnabled(bool enabled)
{
    // The resolution window and the diagnosis view give the controls back
    // when they end, which can come after an organize run has begun: only the
    // run's own end gives them back then, or a second scan could start over it.
    if (enabled && m_isOrganizingFonts)
        return;
    m_userInterfaceEnabled = enabled;
    if (enabled)
        m_scanRequested = false;
    const bool hasRecents = !m_settings->recentScanFolderPaths().value_or(QStringList()).isEmpty();
    m_window->scanFontsNowMenuItem()->setEnabled(enabled);
    m_window->customScanMenuItem()->setEnabled(enabled);
    m_window->scanRecentMenu()->setEnabled(enabled && hasRecents);
    m_defaultScanViewController->scanButton()->setEnabled(enabled);
    m_defaultScanViewController->scanFolderButton()->setEnabled(enabled);
    m_defaultScanViewController->organizeButton()->setEnabled(enabled);
    m_window->organizeFontsMenuItem()->setEnabled(enabled);
    for (QAction *item :
        { m_exportFontDataMenu, m_cleanFontCachesMenuItem, m_uninstallmenu, m_checkForUpdatesMenu })
        if (item)
            item->setEnabled(enabled);
    for (int i = QVMainWindow::SettingsView; i <= QVMainWindow::ReportsView; ++i) {
        m_window->viewButton(i)->setEnabled(enabled);
        m_window->viewMenuItem(i)->setEnabled(enabled);
    }
    m_settingsTabItem->setControlsEnabled(enabled);
    resetButtons();
}

void QVAppDelegate::populateScanRecentsMenu()
{
    QMenu *menu = m_window->scanRecentMenu();
    menu->clear();
    const QStringList recents = m_settings->recentScanFolderPaths().value_or(QStringList());
    for (int i = 0; i < recents.size(); ++i) {
        QString name = QFileInfo(QDir::cleanPath(recents.at(i))).fileName();
        if (name.isEmpty())
            name = recents.at(i);
        QAction *action = menu->addAction(name, this, [this, i] { handleRecentScanMenu(i); });
        action->setToolTip(recents.at(i));
        action->setStatusTip(recents.at(i));
    }
    menu->addSeparator();
    menu->addAction(QStringLiteral("Clear Menu"), this, &QVAppDelegate::clearRecentsMenu);
    menu->setEnabled(!recents.isEmpty() && m_userInterfaceEnabled);
}

void QVAppDelegate::clearRecentsMenu()
{
    m_settings->setRecentScanFolderPaths({});
    populateScanRecentsMenu();
}

void QVAppDelegate::showAlert(const QString &message, const QString &informativeText,
    const QStringList &buttonTitles, const QString &context)
{
    m_alertDialog = QVAlertSheet::show(
        m_window.get(), message, informativeText, buttonTitles, context,
        [this, context](int returnCode) { modalEnded(returnCode, context); },
        buttonTitles.size() > 1 ? QMessageBox::Warning : QMessageBox::Information);
}

void QVAppDelegate::modalEnded(int returnCode, const QString &context)
{
    m_alertDialog.clear();
    if (context == QLatin1String("windowShouldClose")) {
        if (returnCode == 1001) {
            cleanUpBeforeClosing();
            m_quitting = true;
            m_window->close();
        }
    } else if (context == QLatin1String("askFileAccess")) {
        if (returnCode == 1001) {
            m_quitting = true;
            m_window->close();
        }
    } else if (context == QLatin1String("doAutoScanFoldersAlert")) {
        showAutoScanSheet();
    } else if (context == QLatin1String("handleScanButton")) {
        if (returnCode == 1000) {
            m_fileMgr->resumeScan();
            return;
        }
        m_fileMgr->cancelScan();
        m_fileMgr->resumeScan();
        m_diagnosisViewController->diagnosis()->setDoCancel(true);
        m_diagnosisViewController->setCancelButton(QVStringTable::text("any.done.title"), true);
        m_defaultScanViewController->scanButton()->setText(QVStringTable::text("scan.button.title.default"));
        setUserInterfaceEnabled(true);
    }
}

bool QVAppDelegate::windowShouldClose()
{
    m_overlayWindow->fadeOut();
    if (m_quitting || !isBusy()) {
        cleanUpBeforeClosing();
        return true;
    }
    selectButton(QVMainWindow::ScanView);
    if (!QVAlertSheet::find(m_window.get(), QStringLiteral("windowShouldClose")))
        showAlert(QVStringTable::text("search.cancel.message"), QVStringTable::text("search.cancel.info"),
            { QVStringTable::text("any.continue.title"), QVStringTable::text("any.quit.title") },
            QStringLiteral("windowShouldClose"));
    return false;
}

void QVAppDelegate::cleanUpBeforeClosing()
{
    if (m_fileMgr && m_fileMgr->isFindingFonts()) {
        m_fileMgr->cancelScan();
        m_fileMgr->resumeScan();
    }
    if (m_diagnosisViewController)
        m_diagnosisViewController->diagnosis()->setDoCancel(true);
    if (m_organizer && !m_organizer->doCancel())
        m_organizer->cancelOrganizing();
}

QString QVAppDelegate::getFontTypeName(int fontType)
{
    static const char *const keys[] = { "font.type.bitmap", "font.type.ps1", "font.type.ps3",
        "font.type.truetype", "font.type.truetypeCollection", "font.type.opentype" };
    if (fontType < 0 || fontType > 5)
        return QString();
    return QVStringTable::text(keys[fontType]);
}
