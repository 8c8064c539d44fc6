#include "store/QVReportStore.h"
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

namespace
{

// Three reports, stored newest first so that the list's date order shows.
QStringList seedReports()
{
    QVReportStore store;
    const QList<QPair<QString, QDate>> reports
        = { { QStringLiteral("Quorvel Report 3/1/2024"), QDate(2024, 3, 1) },
              { QStringLiteral("Quorvel Report 1/2/2024"), QDate(2024, 1, 2) },
              { QStringLiteral("Studio & <Co>"), QDate(2024, 2, 1) } };
    for (const auto &[name, date] : reports) {
        const QVariantMap report { { "reportName", name },
            { "reportData", QStringLiteral("<html>%1</html>").arg(name.toHtmlEscaped()) },
            { "date", QDateTime(date, QTime(12, 0), Qt::UTC) }, { "qv_total_examined", 1234 },
            { "qv_total_problems", 5 } };
        EXPECT_TRUE(store.addFileToReports(report).isNull());
    }
    QStringList paths;
    for (const QVariantMap &record : store.recordsByDate())
        paths.append(record.value("filePath").toString());
    return paths;
}

} // namespace

TEST(QuorvelCliReports, ListsReportsOldestFirstAsTextAndJson)
{
    QVTestHome home;
    EXPECT_EQ(runCli(home, { "reports", "list" }).out, QStringLiteral("No saved reports.\n"));
    const QStringList paths = seedReports();

    const QVCliRun text = runCli(home, { "reports", "list" });
    ASSERT_EQ(text.exitCode, 0) << qPrintable(text.err);
    const QStringList lines = text.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines[1].trimmed().startsWith(QStringLiteral("1  2024-01-02")));
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral("1,234          5  Quorvel Report 1/2/2024")));
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral("Studio & <Co>")));
    EXPECT_TRUE(lines[3].endsWith(QStringLiteral("Quorvel Report 3/1/2024")));

    const QVCliRun json = runCli(home, { "reports", "list", "--json" });
    ASSERT_EQ(json.exitCode, 0) << qPrintable(json.err);
    const QJsonArray array = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(array.size(), 3);
    EXPECT_EQ(array.at(0).toObject().value("number").toInt(), 1);
    EXPECT_EQ(array.at(0).toObject().value("date").toString(), QStringLiteral("2024-01-02T12:00:00Z"));
    EXPECT_EQ(array.at(1).toObject().value("reportName").toString(), QStringLiteral("Studio & <Co>"));
    EXPECT_EQ(array.at(2).toObject().value("filePath").toString(), paths.at(2));
    EXPECT_EQ(array.at(2).toObject().value("qv_total_examined").toString(), QStringLiteral("1,234"));
}

TEST(QuorvelCliReports, ShowPrintsThePathAndRefusesBadNumbers)
{
    QVTestHome home;
    const QStringList paths = seedReports();
    const QVCliRun shown = runCli(home, { "reports", "show", "2" });
    EXPECT_EQ(shown.exitCode, 0) << qPrintable(shown.err);
    EXPECT_EQ(shown.out, paths.at(1) + QLatin1Char('\n'));
    EXPECT_EQ(runCli(home, { "reports", "show", "4" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "reports", "show", "x" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "reports", "frobnicate" }).exitCode, 2);

    QFile::remove(paths.at(0));
    const QVCliRun missing = runCli(home, { "reports", "show", "1" });
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains(QStringLiteral("is missing")));
}

TEST(QuorvelCliReports, RenameChangesTheIndexOnly)
{
    QVTestHome home;
    const QStringList paths = seedReports();
    EXPECT_EQ(runCli(home, { "reports", "rename", "1", "January", "job" }).exitCode, 0);
    EXPECT_EQ(runCli(home, { "reports", "rename", "1", "" }).exitCode, 2);
    const QJsonArray array
        = QJsonDocument::fromJson(runCli(home, { "reports", "list", "--json" }).out.toUtf8()).array();
    EXPECT_EQ(array.at(0).toObject().value("reportName").toString(), QStringLiteral("January job"));
    EXPECT_EQ(array.at(0).toObject().value("filePath").toString(), paths.at(0));
}

TEST(QuorvelCliReports, RemoveAsksUnlessYesIsGiven)
{
    QVTestHome home;
    const QStringList paths = seedReports();

    // Declined, or no answer at all: nothing goes.
    EXPECT_EQ(runCli(home, { "reports", "remove", "1" }, "n\n").exitCode, 0);
    EXPECT_EQ(runCli(home, { "reports", "rm", "1" }).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(paths.at(0)));

    const QVCliRun confirmed = runCli(home, { "reports", "remove", "1", "3" }, "y\n");
    EXPECT_EQ(confirmed.exitCode, 0) << qPrintable(confirmed.err);
    EXPECT_TRUE(
        confirmed.err.contains(QStringLiteral("Are you sure you want to remove the selected reports?")));
    EXPECT_FALSE(QFileInfo::exists(paths.at(0)));
    EXPECT_TRUE(QFileInfo::exists(paths.at(1)));
    EXPECT_FALSE(QFileInfo::exists(paths.at(2)));

    EXPECT_EQ(runCli(home, { "reports", "rm", "1", "--yes" }).exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(paths.at(1)));
    EXPECT_EQ(runCli(home, { "reports", "list" }).out, QStringLiteral("No saved reports.\n"));
    EXPECT_EQ(runCli(home, { "reports", "remove", "1", "--yes" }).exitCode, 2);
}
