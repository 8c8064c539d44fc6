// Saved reports in the window a person reads them in: the list, its search
// and renaming, one window per report, the support link, scrolling, printing,
// and how long a report of 20,000 fonts takes to open.
#include "app/QVReportWindow.h"

#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVMainWindow.h"
#include "app/QVReportsTab.h"
#include "app/QVScanRootViewController.h"
#include "engine/QVFontConstants.h"
#include "reports/QVReportManager.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QApplication>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QPrinter>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineSettings>
#include <QWebEngineView>
#include <cstdio>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

// Takes the links a report hands to the desktop.
class Browser : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;
public Q_SLOTS:
    void openUrl(const QUrl &url) { opened << url; }
};

// A report of n damaged fonts, all moved to the quarantine, made and stored
// as a diagnosis makes and stores one. Its index record.
QVariantMap storeReport(int fonts, const QDateTime &date)
{
    QVReportInput input;
    input.scanType = QStringLiteral("Manual Scan");
    input.scanFolders = { QStringLiteral("/srv/Archive/Fonts/") };
    for (int i = 0; i < fonts; ++i) {
        const QString path = QStringLiteral("/srv/Archive/Fonts/Family %1/Font %1.ttf").arg(i);
        auto file = std::make_shared<QVFontFile>(path);
        auto status = std::make_shared<QVStatus>();
        file->fontFileType = 1;
        file->fileMovedToQuarantine = true;
        status->fontURL = path;
        status->fontName = QStringLiteral("Font %1").arg(i);
        status->fontStyle = QStringLiteral("Regular");
        status->fontType = QVFontType::TrueType;
        status->PSname = QStringLiteral("Font%1-Regular").arg(i);
        status->setFontError(QVErrorClass::Defect);
        status->setFontErrorInfo(QVDefect::BadTableData);
        file->fontStatusArray.append(status);
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile = file;
        entry->fontStatus = status;
        input.fontFileItems.append(file);
        input.problemFontsArray.append(entry);
    }
    input.totalFonts = quint32(fonts) * 2;
    input.totalFontProblems = fonts;
    input.qv_total_quarantined = fonts;
    QVReportStore store;
    QVReportManager manager;
    manager.setFileMgr(&store);
    manager.setReportInput(input);
    return manager.writeReport(date);
}

bool waitForLoad(QVReportWindow *window, int timeoutMs = 60000)
{
    return waitFor([window] { return !window->isLoading(); }, timeoutMs);
}

class ReportWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QVSettings::unregisterUserPreferences();
        QDesktopServices::setUrlHandler(QStringLiteral("https"), &browser, "openUrl");
    }
    void TearDown() override
    {
        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
        for (QVReportWindow *window : QVReportWindow::openWindows())
            window->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    QVTestHome home;
    Browser browser;
};

} // namespace

TEST_F(ReportWindowTest, AReportOf20000FontsOpensAndPrints)
{
    const QVariantMap record = storeReport(20000, QDateTime::currentDateTime());
    ASSERT_FALSE(record.value("filePath").toString().isEmpty());
    // Rows come in groups the page lays out only when they are in view.
    QFile saved(record.value("filePath").toString());
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_EQ(saved.readAll().count("<tbody"), 20000 / QVReportManager::kRowsPerGroup);
    // The engine starts once per program: that start is not the report's.
    ASSERT_TRUE(waitForLoad(QVReportWindow::showReport(storeReport(1, QDateTime::currentDateTime()))));

    QElapsedTimer clock;
    clock.start();
    QVReportWindow *window = QVReportWindow::showReport(record);
    EXPECT_TRUE(window->isLoading());
    ASSERT_TRUE(waitForLoad(window));
    std::printf("20,000-row report (%lld bytes) opened in %lld ms\n",
        static_cast<long long>(QFileInfo(record.value("filePath").toString()).size()),
        static_cast<long long>(clock.elapsed()));
    EXPECT_TRUE(window->webView()->title().startsWith("Quorvel Report"));

    // Printed, every font is on paper.
    const QString pdf = home.path() + "/report.pdf";
    window->printer()->setOutputFormat(QPrinter::PdfFormat);
    window->printer()->setOutputFileName(pdf);
    QSignalSpy printed(window, &QVReportWindow::printFinished);
    clock.restart();
    window->printReport();
    ASSERT_TRUE(waitFor([&] { return !printed.isEmpty(); }, 600000));
    std::printf("printed to PDF in %lld ms\n", static_cast<long long>(clock.elapsed()));
    EXPECT_TRUE(printed.first().first().toBool());
    const ToolRun text = runTool("pdftotext", { pdf, "-" });
    ASSERT_EQ(text.exitCode, 0) << text.err.toStdString();
    for (const char *expected : { "20000 fonts were diagnosed", "Font 0", "Font 19999", "Font19999-Regular" })
        EXPECT_TRUE(text.out.contains(expected)) << expected;
}

TEST_F(ReportWindowTest, OneWindowPerReportScrollsBackAndSendsLinksToTheBrowser)
{
    const QVariantMap first = storeReport(300, QDateTime::currentDateTime());
    QVReportWindow *window = QVReportWindow::showReport(first);
    ASSERT_TRUE(waitForLoad(window));
    EXPECT_EQ(window->windowTitle(), first.value("reportName").toString());
    EXPECT_FALSE(window->webView()->settings()->testAttribute(QWebEngineSettings::JavascriptEnabled));
    QVariantMap renamed = first;
    renamed.insert("reportName", "Spring Job");
    EXPECT_EQ(QVReportWindow::showReport(renamed), window);
    EXPECT_EQ(window->windowTitle(), "Spring Job");
    QVReportWindow *other = QVReportWindow::showReport(storeReport(2, QDateTime::currentDateTime()));
    EXPECT_NE(other, window);
    EXPECT_EQ(QVReportWindow::openWindows().size(), 2);
    ASSERT_TRUE(waitForLoad(other));

    // To the end with the keyboard, back with the button.
    QWidget *page = window->webView()->focusProxy();
    ASSERT_NE(page, nullptr);
    window->activateWindow();
    page->setFocus();
    QTest::keyClick(page, Qt::Key_End);
    ASSERT_TRUE(waitFor([&] { return window->webView()->page()->scrollPosition().y() > 1000; }));
    window->topButton()->click();
    EXPECT_TRUE(waitFor([&] { return window->webView()->page()->scrollPosition().y() == 0; }));

    // The support link (the report's only one) goes to the browser; the report stays.
    const QUrl shown = window->webView()->url();
    page->setFocus();
    QTest::keyClick(page, Qt::Key_Tab);
    QTest::qWait(500);
    QTest::keyClick(page, Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return !browser.opened.isEmpty(); }));
    EXPECT_EQ(browser.opened, QList<QUrl> { QUrl("https://quorvel.org/support") });
    QTest::qWait(500);
    EXPECT_EQ(window->webView()->url(), shown);
    EXPECT_FALSE(window->isLoading());
}

#include "QVReportWindowTest.moc"
