// The application's controller: starts everything in order, owns the
// long-lived collaborators and the main window, turns the user's requests
// (scan buttons, dropped folders, the recent scans, folders named on the
// command line) into scans, and moves the window between the scan view and
// the diagnosis view. Runs on the main thread; scans and diagnoses run on
// their own threads and report back through the notification centre.
#pragma once

#include "engine/QVProblemFont.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>
#include <memory>

class QAction;
class QDialog;
class QMessageBox;
class QVAdvancedAutoScanWindow;
class QVAutoScanSheet;
class QVDiagnosisActionWindow;
class QVDiagnosisViewController;
class QVFileManager;
class QVFontDataManager;
class QVFontOrganizer;
class QVHelperCommunications;
class QVMainWindow;
class QVQuarantineTab;
class QVReportsTab;
class QVOrganizeOptionsWindowController;
class QVOrganizeProgressWindow;
class QVOverlayWindow;
class QVQuarantineStore;
class QVScanRootViewController;
class QVSettings;
class QVSettingsTabItem;
class QVSuitcaseSurgery;
class QVUpdateChecker;

class QVAppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit QVAppDelegate(QObject *parent = nullptr);
    ~QVAppDelegate() override;

    // Starts up, shows the window, and scans the folders named on the command
    // line as if they were dropped. False when such a folder is refused.
    bool launch(const QStringList &folders = {});
    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();

    // The pause before showing the diagnosis view, scanning and diagnosing,
    // so that sheets and menus have gone (1000 ms).
    void setDelay(int milliseconds) { m_delay = milliseconds; }

    void startManualScan(const QStringList &paths, bool fromScanButton = false);
    void handleScanButton();
    void HandleManualScanMenuItem();
    void handleRecentScanMenu(int index);
    // A drop of folders; false (and nothing starts) for anything else, or
    // while a scan or diagnosis runs.
    bool performDragOperation(const QStringList &paths);
    // Folders named on the command line: every one must be a folder.
    bool openFolders(const QStringList &paths);

    void handleSearchResults(const QVariantMap &userInfo);
    void handleDiagnosisEndedNotification(const QVariantMap &userInfo);
    void handleDiagnosisActionEnded(const QVariantMap &userInfo);

    // The library folder the next organizing run fills (chosen in the
    // organize sheet).
    // The organize sheet over the main window, its source the first folder
    // given, if any; nothing while the user interface is busy.
    void presentOrganizeOptionsWindow(const QStringList &folders);
    void closeOrganizeoptionsWindow();
    QVOrganizeOptionsWindowController *organizeOptionsWindowController() const;
    void setOrganizeOutputFolderURL(const QString &path) { m_organizeOutputFolderURL = path; }
    QString organizeOutputFolderURL() const { return m_organizeOutputFolderURL; }
    // From the diagnosis's end until the organizer's run has ended and its
    // sheet has closed.
    bool isOrganizingFonts() const { return m_isOrganizingFonts; }
    QVFontOrganizer *fontOrganizer() const { return m_organizer; }
    QVOrganizeProgressWindow *organizeProgressWindow() const;

    // The issue resolution window over the main window, on the problem list.
    void presentDiagnosisActionWindow(const QList<QVProblemFontPtr> &problemFonts);
    QVDiagnosisActionWindow *diagnosisActionWindow() const;
    void presentScanView();
    void showDiagnosisView(bool fromScanButton);
    void closeDiagnosisView(int value);
    void selectButton(int index);
    void resetButtons();
    void setUserInterfaceEnabled(bool enabled);
    bool isUserInterfaceEnabled() const { return m_userInterfaceEnabled; }
    void populateScanRecentsMenu();
    void clearRecentsMenu();

    // The end of the controller's alert sheets: 1000 first button, 1001 second.
    void modalEnded(int returnCode, const QString &context);
    // Asks first while a scan or diagnosis runs.
    bool windowShouldClose();
    void cleanUpBeforeClosing();

    // The application-wide menu commands (QVAppDelegateMenus.cpp), put in
    // the window's menus at launch.
    void installMenuCommands();
    void cleanFontCachesAction();
    void uninstallMenuAction();
    void exportFontDataMneuAction();
    // What the export's save panel does with the chosen path.
    void exportFontData(const QString &path);
    // Page setup and printing of the report shown (the last report window).
    void pageSetupMenuAction();
    void printMenuAction();
    void showHelpMenuHandler();
    void checkForUpdatesMenuHandler();
    // A check at launch tells only of a newer version; one asked for tells all.
    void checkForUpdates(bool askedFor);
    void abountMenuAction();
    QDialog *aboutWindow() const;

    // The localized name of a font type code; empty for an unknown code.
    static QString getFontTypeName(int fontType);

    // Starts a helper unless it runs; either way it is then expected to answer
    // the pending-command question.
    void launchHandlerApp();
    void launchScheduler();
    // Removes a helper's autostart entry and stops it when it runs.
    void killHandlerApp();
    void killScheduler();
    // Where the helper programs are: beside the application unless told.
    void setHelperDirectory(const QString &folder) { m_helperDirectory = folder; }
    // "kResponse_Settings" to both helpers.
    void sendSettingsToHelper();
    // The auto-scan sheet over the main window (not while busy); its closing
    // turns auto-scanning off when nothing is left for it to do.
    void showAutoScanSheet();
    void endAutoScanSheet();
    QVAutoScanSheet *autoScanSheet() const;
    void showAdvancedSettings();
    QVAdvancedAutoScanWindow *advancedAutoScanWindow() const;
    // The scheduler has removed its menu.
    void removeSchedulerMenu();
    // The helpers' commands: scan now, show the auto-scan sheet, send the
    // settings, the menu removed.
    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options);
    // The helpers' answers to the pending-command question.
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options);
    bool hasPendingCommand() const { return m_hasPendingCommand; }
    int pendingCommandCount() const { return m_pendingCommandCount; }
    int pendingCommandTotal() const { return m_pendingCommandTotal; }
    // Whether updates are looked for automatically (the checkForUpdates setting).
    bool automaticallyChecksForUpdates() const { return m_automaticallyChecksForUpdates; }

    // A scan was asked for and has not yet ended, fonts are being found, or
    // a diagnosis runs.
    bool isBusy() const;
    bool isShowingDoneButton() const;

    QVMainWindow *mainWindow() const { return m_window.get(); }
    QVSettings *settings() const { return m_settings.get(); }
    QVFontDataManager *dataManager() const { return m_dataMgr.get(); }
    QVFileManager *fileMgr() const { return m_fileMgr; }
    QVDiagnosisViewController *diagnosisViewController() const { return m_diagnosisViewController; }
    QVScanRootViewController *defaultScanViewController() const { return m_defaultScanViewController; }
    QVSettingsTabItem *settingsTabItem() const { return m_settingsTabItem; }
    QVQuarantineTab *quarantineTab() const { return m_quarantineTab; }
    QVReportsTab *reportsTab() const { return m_reportsTab; }
    QVOverlayWindow *overlayWindow() const { return m_overlayWindow; }
    QVHelperCommunications *helperCommunications() const { return m_helperCommunications; }
    QString rootRepository() const { return m_rootRepository; }

Q_SIGNALS:
    // A scan of these folders began (the file manager was handed them).
    void scanStarted(const QStringList &folders);
    // An organizing run has ended and the user interface is back.
    void organizeFinished();

private:
    void scanFolders(const QStringList &paths);
    void showAlert(const QString &message, const QString &informativeText, const QStringList &buttonTitles,
        const QString &context);
    void connectDiagnosisView();
    void launchHelper(const char *bundleIdentifier, const QString &program, const char *failure);
    void killHelper(const char *bundleIdentifier, const char *failure);
    void sendReady();
    void askForPendingCommands();
    // The organizer's run, once the quarantine (whose suitcase surgery it
    // uses) is this process's; the end waits for the run and its sheet.
    void startOrganizing();
    void organizeFonts(const std::shared_ptr<QVQuarantineStore> &store, const QString &error);
    void showOrganizeProgressWindow();
    void finishOrganizing();

    std::unique_ptr<QVSettings> m_settings;
    std::unique_ptr<QVFontDataManager> m_dataMgr;
    QVHelperCommunications *m_helperCommunications = nullptr;
    QVFileManager *m_fileMgr = nullptr;
    std::unique_ptr<QVMainWindow> m_window;
    QVDiagnosisViewController *m_diagnosisViewController = nullptr;
    QVScanRootViewController *m_defaultScanViewController = nullptr;
    QVSettingsTabItem *m_settingsTabItem = nullptr;
    QVQuarantineTab *m_quarantineTab = nullptr;
    QVReportsTab *m_reportsTab = nullptr;
    QPointer<QVDiagnosisActionWindow> m_diagnosisActionWindow;
    QPointer<QMessageBox> m_alertDialog;
    QVOverlayWindow *m_overlayWindow = nullptr;
    QString m_rootRepository;
    int m_delay = 1000;
    bool m_scanRequested = false;
    bool m_userInterfaceEnabled = true;
    bool m_quitting = false;
    bool m_hasPendingCommand = false;
    int m_pendingCommandCount = 0;
    int m_pendingCommandTotal = 0;
    QString m_organizeOutputFolderURL;
    bool m_isOrganizingFonts = false;
    bool m_organizeRunEnded = false;
    std::shared_ptr<QVQuarantineStore> m_organizeStore;
    std::unique_ptr<QVSuitcaseSurgery> m_organizeSurgery;
    // Deleted before the surgery it uses.
    QVFontOrganizer *m_organizer = nullptr;
    QPointer<QVOrganizeProgressWindow> m_organizeProgressWindow;
    QPointer<QVOrganizeOptionsWindowController> m_organizeOptionsWindowController;
    bool m_automaticallyChecksForUpdates = false;
    // The menu commands' state.
    QAction *m_exportFontDataMenu = nullptr;
    QAction *m_cleanFontCachesMenuItem = nullptr;
    QAction *m_uninstallmenu = nullptr;
    QAction *m_checkForUpdatesMenu = nullptr;
    QVUpdateChecker *m_updateChecker = nullptr;
    bool m_updateCheckAskedFor = false;
    QPointer<QDialog> m_aboutWindow;
    QString m_helperDirectory;
    bool m_ownsBusName = false;
    QPointer<QVAutoScanSheet> m_autoScanSheet;
    QPointer<QVAdvancedAutoScanWindow> m_advancedAutoScanWindow;
};
