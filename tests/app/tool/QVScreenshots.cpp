// qv-screenshots [OUTDIR]: pictures of every view of the main window, in a
// light and a dark palette: the welcome of a first start, idle, after a
// diagnosis of duplicated fonts, the resolution window with a row expanded
// and its explanation open, the organize sheet and its progress sheet, drawn
// off screen in a throw-away home
// (default OUTDIR: docs/screenshots). On a display (xvfb-run,
// QT_QPA_PLATFORM=xcb) also the report window, at 100% and 200%, and the
// first printed page of the report.
#include "app/QVAdvancedAutoScanWindow.h"
#include "app/QVAppDelegate.h"
#include "app/QVAutoScanSheet.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVDiagnosisViewController.h"
#include "app/QVHelpWindow.h"
#include "app/QVMainWindow.h"
#include "app/QVOrganizeOptionsWindowController.h"
#include "app/QVOrganizeProgressWindow.h"
#include "app/QVPopover.h"
#include "app/QVQuarantineTab.h"
#include "app/QVReportWindow.h"
#include "app/QVReportsTab.h"
#include "helpers/QVApplicationLink.h"
#include "helpers/QVSchedulerMenu.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QPrinter>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QTableView>
#include <QToolButton>
#include <QWebEngineView>
#include <cstdio>

namespace
{

QPalette darkPalette()
{
    QPalette palette;
    const QColor text(0xe6, 0xe9, 0xed);
    palette.setColor(QPalette::Window, QColor(0x1e, 0x23, 0x29));
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, QColor(0x16, 0x19, 0x1d));
    palette.setColor(QPalette::AlternateBase, QColor(0x22, 0x27, 0x2e));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x2a, 0x30, 0x38));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Light, QColor(0x3a, 0x42, 0x4c));
    palette.setColor(QPalette::Midlight, QColor(0x32, 0x39, 0x42));
    palette.setColor(QPalette::Mid, QColor(0x26, 0x2b, 0x32));
    palette.setColor(QPalette::Dark, QColor(0x12, 0x14, 0x17));
    palette.setColor(QPalette::Shadow, QColor(0x08, 0x09, 0x0a));
    palette.setColor(QPalette::Highlight, QColor(0x4f, 0x86, 0xc6));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x9c, 0xc3, 0xea));
    palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0xa5, 0xb1));
    palette.setColor(QPalette::ToolTipBase, QColor(0x2a, 0x30, 0x38));
    palette.setColor(QPalette::ToolTipText, text);
    for (const auto role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        palette.setColor(QPalette::Disabled, role, QColor(0x6b, 0x76, 0x83));
    return palette;
}

bool save(QWidget *window, const QString &folder, const QString &name)
{
    // Views are switched here without a click, so the keyboard focus would
    // still ring the first button: draw them as a mouse user sees them.
    if (QWidget *focused = QApplication::focusWidget())
        focused->clearFocus();
    QApplication::processEvents();
    const QString path = folder + QLatin1Char('/') + name + QStringLiteral(".png");
    if (!window->grab().save(path)) {
        std::fprintf(stderr, "qv-screenshots: cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

// What a working library leaves behind: fonts set aside by earlier
// diagnoses, and their reports.
void populate(const QVTestHome &home)
{
    using namespace QVFixtures;
    QVQuarantineStore quarantine;
    const QList<QPair<QString, QString>> fonts { { kDejaVuSans, "· Bad Table Data" },
        { kDejaVuSerif, "· Duplicate Font\n· Bad Table Data" }, { kP052Roman, "· Missing Bitmap Font" },
        { kC059Roman, "· Bad File Name" } };
    for (const auto &[font, reason] : fonts) {
        const QString copy = copyFont(font, home.path() + QStringLiteral("/Jobs/Spring Catalogue/Fonts"));
        const QVFontFilePtr file = examined(copy);
        quarantine.moveFileToQuarantine(file, file->fontStatusArray.first(), reason);
    }
    quarantine.commitQuarantine();
    QVReportStore reports;
    const char *const names[]
        = { "Quorvel Report 3/2/2025", "Spring Catalogue fonts", "Studio server, weekly scan" };
    for (int i = 0; i < 3; ++i)
        reports.addFileToReports({ { QStringLiteral("reportName"), QLatin1String(names[i]) },
            { QStringLiteral("reportData"), QStringLiteral("<p>") },
            { QStringLiteral("date"), QDateTime(QDate(2025, 3, 2 + 7 * i), QTime(9 + i, 15)) },
            { QStringLiteral("qv_total_examined"), 1840 + 911 * i },
            { QStringLiteral("qv_total_problems"), 3 + 5 * i } });
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    const bool onDisplay = QGuiApplication::platformName() != QLatin1String("offscreen");
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QString out = QDir(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("docs/screenshots"))
                            .absolutePath();
    QDir().mkpath(out);
    const QPalette light = QApplication::style()->standardPalette();

    bool ok = true;
    for (const bool dark : { false, true }) {
        QApplication::setPalette(dark ? darkPalette() : light);
        const QString scheme = dark ? QStringLiteral("dark") : QStringLiteral("light");
        QVTestHome home;
        QVSettings::unregisterUserPreferences();
        populate(home);
        QVAppDelegate delegate;
        delegate.launch();
        QVMainWindow *window = delegate.mainWindow();
        window->resize(880, 680);
        // A first start: the welcome over the Scan view.
        ok = save(window, out, QStringLiteral("welcome-%1").arg(scheme)) && ok;
        const char *const names[] = { "scan", "settings", "quarantine", "reports" };
        for (int i = 3; i >= 0; --i) {
            window->selectButton(i);
            QVFixtures::waitFor(
                [&] { return !delegate.quarantineTab()->isLoading() && !delegate.reportsTab()->isBusy(); });
            if (i == QVMainWindow::QuarantineView)
                delegate.quarantineTab()->tableView()->selectRow(1);
            ok = save(window, out, QStringLiteral("%1-%2").arg(QLatin1String(names[i]), scheme)) && ok;
        }
        // Two copies of two fonts and a damaged one: duplicates and damage to show.
        const QString folder = home.path() + QStringLiteral("/Fonts");
        for (const QString &sub : { QStringLiteral("/Studio"), QStringLiteral("/Archive") }) {
            QVFixtures::copyFont(QVFixtures::kDejaVuSans, folder + sub);
            QVFixtures::copyFont(QVFixtures::kDejaVuSansBold, folder + sub);
        }
        QByteArray damaged = QVFixtures::readFile(QVFixtures::kDejaVuSerif);
        damaged.replace(damaged.indexOf("kern") + 4, 4, QByteArray(4, '\0'));
        QVFixtures::writeFile(folder + QStringLiteral("/Studio/Serif.ttf"), damaged);
        delegate.setDelay(0);
        delegate.performDragOperation({ folder });
        if (!QVFixtures::waitFor(
                [&] { return delegate.isShowingDoneButton() && !delegate.isBusy(); }, 60000)) {
            std::fprintf(stderr, "qv-screenshots: the diagnosis did not finish\n");
            return 1;
        }
        ok = save(window, out, QStringLiteral("diagnosis-%1").arg(scheme)) && ok;
        if (QVDiagnosisActionWindow *actions = delegate.diagnosisActionWindow()) {
            // The first row expanded, the explanation of its duplicates line open.
            actions->resize(780, 460);
            actions->disclosureAction(0, true);
            QApplication::processEvents();
            if (QWidget *line = actions->expandedLine(0, 1)) {
                line->findChild<QToolButton *>(QStringLiteral("iconView1"))->click();
            }
            QApplication::processEvents();
            QPixmap shot = actions->grab();
            QPainter painter(&shot);
            if (actions->popover()->isVisible())
                painter.drawPixmap(
                    actions->mapFromGlobal(actions->popover()->pos()), actions->popover()->grab());
            painter.end();
            const QString path = out + QStringLiteral("/resolution-%1.png").arg(scheme);
            ok = shot.save(path) && ok;
            std::printf("%s\n", qPrintable(path));
            actions->popover()->close();
        }
        if (onDisplay) {
            // The report button writes the report and opens it.
            delegate.diagnosisViewController()->reportButton()->click();
            QVReportWindow *report = nullptr;
            QVFixtures::waitFor([&] {
                const QList<QVReportWindow *> windows = QVReportWindow::openWindows();
                report = windows.isEmpty() ? nullptr : windows.first();
                return report && !report->isLoading();
            });
            if (!report) {
                std::fprintf(stderr, "qv-screenshots: the report did not open\n");
                return 1;
            }
            report->resize(1000, 760);
            QVFixtures::waitFor([] { return false; }, 1500);
            ok = save(report, out, QStringLiteral("report-%1").arg(scheme)) && ok;
            if (!dark) {
                report->webView()->setZoomFactor(2.0);
                QVFixtures::waitFor([] { return false; }, 1500);
                ok = save(report, out, QStringLiteral("report-200")) && ok;
                report->webView()->setZoomFactor(1.0);
                const QString pdf = home.path() + QStringLiteral("/report.pdf");
                report->printer()->setOutputFormat(QPrinter::PdfFormat);
                report->printer()->setOutputFileName(pdf);
                bool printed = false;
                QObject::connect(report, &QVReportWindow::printFinished, [&printed] { printed = true; });
                report->printReport();
                QVFixtures::waitFor([&] { return printed; }, 60000);
                const QVFixtures::ToolRun page = QVFixtures::runTool(QStringLiteral("pdftoppm"),
                    { QStringLiteral("-png"), QStringLiteral("-r"), QStringLiteral("80"),
                        QStringLiteral("-singlefile"), QStringLiteral("-f"), QStringLiteral("1"),
                        QStringLiteral("-l"), QStringLiteral("1"), pdf,
                        out + QStringLiteral("/report-printed") });
                ok = page.exitCode == 0 && ok;
            }
            report->close();
        }
        delegate.diagnosisViewController()->cancelButton()->click();
        ok = save(window, out, QStringLiteral("scan-after-%1").arg(scheme)) && ok;

        // The organize sheet with both folders chosen, and its progress sheet
        // as it looks part way through a run.
        const QString library = home.path() + QStringLiteral("/Font Library");
        QDir().mkpath(library);
        delegate.presentOrganizeOptionsWindow({ folder });
        if (QVOrganizeOptionsWindowController *sheet = delegate.organizeOptionsWindowController()) {
            sheet->chooseLibraryFolder(library);
            ok = save(sheet, out, QStringLiteral("organize-%1").arg(scheme)) && ok;
            sheet->doneButton()->click();
        }
        QVProgress progress;
        progress.setTitle(QVStringTable::text("organize.organizing.message"));
        progress.setLabel(QStringLiteral("Copying font file \"DejaVuSans-Bold.ttf\""));
        progress.setMaximum(40);
        progress.setValue(14);
        QVOrganizeProgressWindow organizing(&progress, window);
        organizing.show();
        ok = save(&organizing, out, QStringLiteral("organize-progress-%1").arg(scheme)) && ok;
        organizing.hide();

        // The About window and the help window on a diagnosis page.
        delegate.abountMenuAction();
        if (QDialog *about = delegate.aboutWindow()) {
            ok = save(about, out, QStringLiteral("about-%1").arg(scheme)) && ok;
            about->close();
        }
        QVHelpWindow *help = QVHelpWindow::showHelp(QStringLiteral("diagnoses.html"));
        ok = save(help, out, QStringLiteral("help-%1").arg(scheme)) && ok;
        help->close();
        // The auto-scan sheet (weekly, and on folder changes), its advanced
        // window, and the scheduler helper's tray menu.
        QVSettings *settings = delegate.settings();
        settings->setAutoScanFrequency(QStringLiteral("kWeekly"));
        settings->setAutoScanModifiedFolders(true);
        settings->setLastAutoScanDate(QDateTime::currentDateTime().addDays(-2));
        settings->setFontFolderPaths({ home.path() + QStringLiteral("/Jobs/"), folder + QLatin1Char('/') });
        delegate.showAutoScanSheet();
        if (QVAutoScanSheet *sheet = delegate.autoScanSheet()) {
            ok = save(sheet, out, QStringLiteral("autoscan-%1").arg(scheme)) && ok;
            sheet->advancedSettingsButton()->click();
            if (QVAdvancedAutoScanWindow *advanced = delegate.advancedAutoScanWindow()) {
                ok = save(advanced, out, QStringLiteral("autoscan-advanced-%1").arg(scheme)) && ok;
                advanced->close();
            }
            sheet->autoScanActionButton()->click();
        }
        QVHelperCommunications schedulerChannel(QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier));
        QVSchedulerMenu tray(&schedulerChannel);
        QVApplicationLink::copyApplicationSettings(*tray.settings());
        tray.updateMenu();
        tray.menu()->adjustSize();
        ok = save(tray.menu(), out, QStringLiteral("autoscan-menu-%1").arg(scheme)) && ok;
    }
    return ok ? 0 : 1;
}
