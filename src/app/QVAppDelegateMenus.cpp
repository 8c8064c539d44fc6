// The application controller's menu commands: export of the scanned fonts'
// data, the font caches, page setup and printing of a report, help, About,
// update checks and uninstalling. The rest of the controller is in
// QVAppDelegate.cpp.
#include "QVAboutWindow.h"
#include "QVAlertSheet.h"
#include "QVAppDelegate.h"
#include "QVHelpWindow.h"
#include "QVMainWindow.h"
#include "QVOverlayWindow.h"
#include "QVReportWindow.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileReveal.h"
#include "platform/QVSystemRestart.h"
#include "reports/QVFontDataExport.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "settings/QVUpdateChecker.h"
#include "store/QVReportStore.h"
#include "store/QVUninstaller.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QtConcurrent>

namespace
{

// Escape and Enter answer Cancel: the first button of these alerts cannot be undone.
void makeCancelTheSafeAnswer(QMessageBox *box)
{
    for (QAbstractButton *button : box->buttons()) {
        if (box->buttonRole(button) == QMessageBox::RejectRole) {
            box->setEscapeButton(button);
            box->setDefaultButton(qobject_cast<QPushButton *>(button));
        }
    }
}

} // namespace

void QVAppDelegate::installMenuCommands()
{
    QMenuBar *bar = m_window->menuBar();
    QMenu *file = bar->actions().value(0) ? bar->actions().value(0)->menu() : nullptr;
    if (file && file->actions().size() >= 2) {
        // Before the separator above Quit.
        QAction *beforeQuit = file->actions().at(file->actions().size() - 2);
        file->insertSeparator(beforeQuit);
        m_exportFontDataMenu = new QAction(QStringLiteral("&Export Font Data…"), file);
        m_exportFontDataMenu->setShortcut(QKeySequence(QStringLiteral("Ctrl+E")));
        connect(m_exportFontDataMenu, &QAction::triggered, this, &QVAppDelegate::exportFontDataMneuAction);
        file->insertAction(beforeQuit, m_exportFontDataMenu);
        file->insertSeparator(beforeQuit);
        auto *pageSetup = new QAction(QStringLiteral("Page Set&up…"), file);
        connect(pageSetup, &QAction::triggered, this, &QVAppDelegate::pageSetupMenuAction);
        file->insertAction(beforeQuit, pageSetup);
        auto *print = new QAction(QStringLiteral("&Print Report…"), file);
        print->setShortcut(QKeySequence::Print);
        connect(print, &QAction::triggered, this, &QVAppDelegate::printMenuAction);
        file->insertAction(beforeQuit, print);
    }

    QMenu *tools = bar->addMenu(QStringLiteral("&Tools"));
    m_cleanFontCachesMenuItem = tools->addAction(
        QStringLiteral("Clean Font &Caches…"), this, &QVAppDelegate::cleanFontCachesAction);
    tools->addSeparator();
    m_uninstallmenu
        = tools->addAction(QStringLiteral("&Uninstall Quorvel…"), this, &QVAppDelegate::uninstallMenuAction);

    QMenu *help = bar->addMenu(QStringLiteral("&Help"));
    help->addAction(QStringLiteral("Quorvel &Help"), QKeySequence::HelpContents, this,
        &QVAppDelegate::showHelpMenuHandler);
    m_checkForUpdatesMenu = help->addAction(
        QStringLiteral("Check for &Updates…"), this, &QVAppDelegate::checkForUpdatesMenuHandler);
    help->addSeparator();
    help->addAction(QStringLiteral("&About Quorvel"), this, &QVAppDelegate::abountMenuAction);
}

void QVAppDelegate::exportFontDataMneuAction()
{
    m_overlayWindow->fadeOut();
    // A scan adds to the list while it runs.
    if (isBusy())
        return;
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    auto *panel = new QFileDialog(m_window.get(), QStringLiteral("Save font data file"),
        documents + QLatin1Char('/') + QLatin1String(QVFontDataExport::kDefaultFileName),
        QStringLiteral("Comma-separated values (*.csv)"));
    panel->setObjectName(QStringLiteral("exportFontDataPanel"));
    panel->setAcceptMode(QFileDialog::AcceptSave);
    panel->setLabelText(QFileDialog::Accept, QStringLiteral("Save"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    connect(panel, &QFileDialog::fileSelected, this, [this](const QString &path) {
        if (!path.isEmpty())
            exportFontData(path);
    });
    panel->open();
}

void QVAppDelegate::exportFontData(const QString &path)
{
    const QString error = QVFontDataExport::write(m_dataMgr->fontFileItems, path);
    if (!error.isNull()) {
        qCWarning(lcStore).noquote() << "Error: exportFontData" << error;
        QVAlertSheet::show(m_window.get(), QStringLiteral("The font data could not be saved."), error,
            { QVStringTable::text("any.ok.title") }, QStringLiteral("exportFontData"), {});
        return;
    }
    QVFileReveal::revealInFinder(path);
}

void QVAppDelegate::cleanFontCachesAction()
{
    m_overlayWindow->fadeOut();
    if (isBusy())
        return;
    QMessageBox *box = QVAlertSheet::show(m_window.get(),
        QStringLiteral("Are you sure you want to clean your font caches?"),
        QStringLiteral("This will require you to restart your computer."),
        { QStringLiteral("Clean Font Caches Now"), QVStringTable::text("any.cancel.title") },
        QStringLiteral("cleanFontCachesAction"), [this](int returnCode) {
            if (returnCode != 1000)
                return;
            m_cleanFontCachesMenuItem->setEnabled(false);
            // The system's caches are rebuilt behind a password prompt.
            (void)QtConcurrent::run([] {
                return QVReportStore().cleanFontCaches();
            }).then(this, [this](const QString &error) {
                m_cleanFontCachesMenuItem->setEnabled(m_userInterfaceEnabled);
                if (!error.isNull()) {
                    // No alert: the line below the views says what happened.
                    qCWarning(lcStore).noquote() << "Error: cleanFontCaches" << error;
                    m_window->setInfo(QStringLiteral("The font caches were not cleaned: %1").arg(error));
                    return;
                }
                QMessageBox *restart = QVAlertSheet::show(m_window.get(),
                    QStringLiteral("You should restart your computer now."),
                    QStringLiteral("After cleaning font caches you should restart you computer to avoid "
                                   "strange font behavior."),
                    { QStringLiteral("Restart"), QVStringTable::text("any.cancel.title") },
                    QStringLiteral("restartAfterCleaningCaches"), [this](int answer) {
                        if (answer != 1000)
                            return;
                        (void)QtConcurrent::run([] {
                            return QVSystemRestart::restart();
                        }).then(this, [this](const QString &failure) {
                            if (!failure.isNull())
                                QVAlertSheet::show(m_window.get(),
                                    QStringLiteral("The computer could not be restarted."), failure,
                                    { QVStringTable::text("any.ok.title") }, QStringLiteral("restartFailed"),
                                    {});
                        });
                    });
                makeCancelTheSafeAnswer(restart);
            });
        });
    makeCancelTheSafeAnswer(box);
}

namespace
{

// The report the print commands act on: the one in front, else the last opened.
QVReportWindow *shownReport()
{
    if (auto *window = qobject_cast<QVReportWindow *>(QApplication::activeWindow()))
        return window;
    const QList<QVReportWindow *> windows = QVReportWindow::openWindows();
    return windows.isEmpty() ? nullptr : windows.last();
}

} // namespace

void QVAppDelegate::pageSetupMenuAction()
{
    if (QVReportWindow *report = shownReport()) {
        report->raise();
        report->pageSetupButtonAction();
        return;
    }
    QVAlertSheet::show(m_window.get(), QStringLiteral("No report is shown."),
        QStringLiteral("Open a report from the Reports view, then set up its pages or print it."),
        { QVStringTable::text("any.ok.title") }, QStringLiteral("noReportShown"), {},
        QMessageBox::Information);
}

void QVAppDelegate::printMenuAction()
{
    if (QVReportWindow *report = shownReport()) {
        report->raise();
        report->printButtonAction();
        return;
    }
    pageSetupMenuAction();
}

void QVAppDelegate::showHelpMenuHandler()
{
    m_overlayWindow->fadeOut();
    QVHelpWindow::showHelp();
}

void QVAppDelegate::abountMenuAction()
{
    m_overlayWindow->fadeOut();
    if (!m_aboutWindow)
        m_aboutWindow = new QVAboutWindow(m_window.get());
    m_aboutWindow->show();
    m_aboutWindow->raise();
    m_aboutWindow->activateWindow();
}

QDialog *QVAppDelegate::aboutWindow() const
{
    return m_aboutWindow;
}

void QVAppDelegate::checkForUpdatesMenuHandler()
{
    m_overlayWindow->fadeOut();
    checkForUpdates(true);
}

void QVAppDelegate::checkForUpdates(bool askedFor)
{
    if (!m_updateChecker) {
        m_updateChecker = new QVUpdateChecker(this);
        connect(
            m_updateChecker, &QVUpdateChecker::finished, this, [this](const QVUpdateChecker::Result &result) {
                const QString ok = QVStringTable::text("any.ok.title");
                if (result.outcome == QVUpdateChecker::Outcome::NewerVersion) {
                    const QUrl link = result.link;
                    const bool canOpen
                        = link.scheme() == QLatin1String("https") || link.scheme() == QLatin1String("http");
                    QVAlertSheet::show(
                        m_window.get(), QStringLiteral("A new version of Quorvel is available."),
                        QStringLiteral("Quorvel %1 is available; you have %2.")
                            .arg(result.version, QStringLiteral(QV_VERSION)),
                        canOpen ? QStringList { QStringLiteral("Download…"), QStringLiteral("Later") }
                                : QStringList { ok },
                        QStringLiteral("checkForUpdates"),
                        [link, canOpen](int answer) {
                            if (canOpen && answer == 1000)
                                QDesktopServices::openUrl(link);
                        },
                        QMessageBox::Information);
                } else if (!m_updateCheckAskedFor) {
                    // A check at launch keeps quiet unless there is something new.
                    if (result.outcome == QVUpdateChecker::Outcome::Failed)
                        qCInfo(lcHelpers).noquote() << "Update check:" << result.error;
                } else if (result.outcome == QVUpdateChecker::Outcome::UpToDate) {
                    QVAlertSheet::show(m_window.get(), QStringLiteral("Quorvel is up to date."),
                        QStringLiteral("Quorvel %1 is the newest version (the newest listed is %2).")
                            .arg(QStringLiteral(QV_VERSION), result.version),
                        { ok }, QStringLiteral("checkForUpdates"), {}, QMessageBox::Information);
                } else {
                    QVAlertSheet::show(m_window.get(), QStringLiteral("Updates could not be checked."),
                        result.error, { ok }, QStringLiteral("checkForUpdates"), {});
                }
            });
    }
    m_updateCheckAskedFor = askedFor;
    m_updateChecker->check(QUrl(m_settings->updateFeedURL()), QStringLiteral(QV_VERSION));
}

void QVAppDelegate::uninstallMenuAction()
{
    m_overlayWindow->fadeOut();
    if (isBusy())
        return;
    QMessageBox *box = QVAlertSheet::show(
        m_window.get(), QStringLiteral("Are you sure you want to permanently remove Quorvel?"),
        QStringLiteral("Uninstall will remove the Quorvel application and will permanently delete all "
                       "Quarantined fonts and Report files.\n\nClick the Uninstall button to continue, or "
                       "click Cancel"),
        { QStringLiteral("Uninstall"), QVStringTable::text("any.cancel.title") },
        QStringLiteral("uninstallMenuAction"),
        [this](int returnCode) {
            if (returnCode != 1000)
                return;
            setUserInterfaceEnabled(false);
            // Nothing of this process may write the settings back once they are gone.
            m_quitting = true;
            (void)QtConcurrent::run([] {
                QVUninstaller uninstaller;
                QVUninstaller::Result result = uninstaller.removeUserData();
                if (!result.removed.isEmpty())
                    uninstaller.removeProgram(result);
                return result;
            }).then(this, [this](const QVUninstaller::Result &result) {
                if (result.removed.isEmpty()) {
                    m_quitting = false;
                    setUserInterfaceEnabled(true);
                    QVAlertSheet::show(m_window.get(), QStringLiteral("Quorvel was not uninstalled."),
                        result.errors.join(QLatin1Char('\n')), { QVStringTable::text("any.ok.title") },
                        QStringLiteral("uninstallFailed"), {});
                    return;
                }
                QString text = result.programNote;
                if (!result.errors.isEmpty())
                    text += QStringLiteral("\n\nNot removed:\n") + result.errors.join(QLatin1Char('\n'));
                QVAlertSheet::show(
                    m_window.get(), QStringLiteral("Quorvel has been uninstalled."), text,
                    { QVStringTable::text("any.quit.title") }, QStringLiteral("uninstalled"),
                    [this](int) { m_window->close(); }, QMessageBox::Information);
            });
        },
        QMessageBox::Critical);
    makeCancelTheSafeAnswer(box);
}
