// The Reports view: search by name, renaming in place, one window per report
// from the list, and removal that asks first.
#include "app/QVReportsTab.h"

#include "app/QVAlertSheet.h"
#include "app/QVAppDelegate.h"
#include "app/QVMainWindow.h"
#include "app/QVReportWindow.h"
#include "app/QVScanRootViewController.h"
#include "app/QVViewButton.h"
#include "settings/QVSettings.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTableView>
#include <gtest/gtest.h>

using namespace QVFixtures;

TEST(ReportsTab, SearchRenameShowAndRemove)
{
    QVTestHome home;
    QVSettings::unregisterUserPreferences();
    QVReportStore store;
    const QStringList names { "SCÂN three", "Other", "Morning Scan", "SCAN two" };
    for (int i = 0; i < names.size(); ++i) {
        const QVariantMap report { { "reportName", names.at(i) },
            { "reportData", QString("<p>" + names.at(i)) },
            { "date", QDateTime(QDate(2024, 3, 4 - i), QTime(9, 0)) }, { "qv_total_examined", 1200 + i },
            { "qv_total_problems", i } };
        ASSERT_TRUE(store.addFileToReports(report).isNull());
    }
    const QVariantMap newest = store.reportFilesDataArray().first();
    QVAppDelegate app;
    app.setDelay(0);
    ASSERT_TRUE(app.launch());
    // The newest report, as the last diagnosis left it.
    app.settings()->setLastReportFilePath(newest.value("filePath").toString());
    app.settings()->setLastReportName(newest.value("reportName").toString());
    app.settings()->setLastScanDate(QDateTime::currentDateTime());
    QVMainWindow *window = app.mainWindow();
    QVReportsTab *tab = app.reportsTab();
    auto shown = [&] {
        QStringList list;
        for (const QVariantMap &record : tab->rowArray())
            list << record.value("reportName").toString();
        return list;
    };
    window->viewButton(QVMainWindow::ReportsView)->click();
    ASSERT_TRUE(waitFor([&] { return !tab->isBusy() && tab->rowArray().size() == 4; }));
    EXPECT_EQ(shown(), QStringList({ "SCAN two", "Morning Scan", "Other", "SCÂN three" })) << "oldest first";
    EXPECT_EQ(tab->tableView()->model()->index(0, QVReportsTab::ExaminedColumn).data().toString(), "1,203");

    tab->searchField()->setText("scan");
    EXPECT_EQ(shown(), QStringList({ "SCÂN three", "Morning Scan", "SCAN two" })) << "index order";
    tab->searchField()->clear();
    EXPECT_EQ(shown().first(), "SCAN two");

    // Renamed in place: the index and the Scan view follow, the file stays.
    // As the name's editor leaves it when Return is pressed.
    auto rename = [&](int row, const QString &text) {
        tab->tableView()->model()->setData(
            tab->tableView()->model()->index(row, QVReportsTab::NameColumn), text);
        ASSERT_TRUE(waitFor([&] { return !tab->isBusy(); }));
    };
    const int last = int(shown().indexOf("SCÂN three"));
    rename(last, "  ");
    EXPECT_EQ(shown().at(last), "SCÂN three") << "an empty name changes nothing";
    QVReportWindow *open = QVReportWindow::showReport(newest);
    rename(last, "Spring Job");
    EXPECT_EQ(QVReportStore().reportFilesDataArray().first().value("reportName").toString(), "Spring Job");
    EXPECT_EQ(QVReportStore().reportFilesDataArray().first().value("filePath"), newest.value("filePath"));
    EXPECT_EQ(readFile(newest.value("filePath").toString()), "<p>SCÂN three");
    EXPECT_EQ(QVSettings().lastReportName(), "Spring Job");
    EXPECT_TRUE(app.defaultScanViewController()->scanText().contains("Spring Job"));
    EXPECT_EQ(open->windowTitle(), "Spring Job");

    // Show: one window per report, however often asked.
    tab->tableView()->selectRow(last);
    tab->showButton()->click();
    tab->tableView()->selectRow(0);
    tab->showButton()->click();
    tab->showButton()->click();
    EXPECT_EQ(QVReportWindow::openWindows().size(), 2);

    // Removal asks, then deletes the checked report alone and closes its window.
    tab->setRowChecked(last, true);
    tab->removeButton()->click();
    QMessageBox *ask = QVAlertSheet::find(window, "removeButtonaction");
    ASSERT_NE(ask, nullptr);
    ask->buttons().at(0)->click();
    ASSERT_TRUE(waitFor([&] { return !tab->isBusy() && tab->rowArray().size() == 3; }));
    EXPECT_FALSE(QFileInfo::exists(newest.value("filePath").toString()));
    EXPECT_FALSE(shown().contains("Spring Job"));
    EXPECT_EQ(QVReportStore().reportFilesDataArray().size(), 3);
    EXPECT_TRUE(waitFor([] { return QVReportWindow::openWindows().size() == 1; }));
    EXPECT_FALSE(app.defaultScanViewController()->scanText().contains("Show last saved report"));
    for (QVReportWindow *report : QVReportWindow::openWindows())
        report->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}
