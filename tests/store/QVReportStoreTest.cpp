// Stored reports and their index, a property list plistlib reads that a damaged or edited copy cannot turn
// against the user's files.
#include "store/QVReportStore.h"

#include "store/QVPropertyList.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

QVariantMap report(const QString &name, const QString &html, qint64 examined = 1, qint64 problems = 0)
{
    return { { "reportName", name }, { "reportData", html },
        { "date", QDateTime(QDate(2024, 1, 2), QTime(9, 30), Qt::UTC) }, { "qv_total_examined", examined },
        { "qv_total_problems", problems }, { "qv_total_quarantined", 0 } };
}

QStringList paths(const QList<QVariantMap> &records)
{
    QStringList list;
    for (const QVariantMap &record : records)
        list << QFileInfo(record.value("filePath").toString()).fileName();
    return list;
}

} // namespace

TEST(ReportStore, NamesDropSlashesAndSpacesAndCollisionsAreNumbered)
{
    QVTestHome home;
    QVReportStore store;
    const QString folder = home.dataHome() + "/Quorvel/Reports";
    const QString html = QStringLiteral("<p>Überprüfung – 字体</p>");
    // Percent signs are kept as they are; the index file's name is never a report's.
    for (const char *name : { "Scan 1/2/2024", "Scan 1/2/2024", "Scan 1/2/2024", "100%1 done", "100%1 done",
             "data Source", "dataSource" })
        EXPECT_TRUE(store.addFileToReports(report(QLatin1String(name), html)).isNull()) << name;
    EXPECT_EQ(paths(store.reportFilesDataArray()),
        (QStringList { "Scan122024", "Scan122024_1", "Scan122024_2", "100%1done", "100%1done_1",
            "dataSource_1", "dataSource_2" }));
    EXPECT_EQ(store.reportFilesDataArray().at(0).value("reportName").toString(), "Scan 1/2/2024");
    // UTF-8 on disk, and read back whole.
    EXPECT_EQ(readFile(folder + "/Scan122024"), html.toUtf8());
    EXPECT_EQ(store.getReportFileData(folder + "/Scan122024"), html);
    EXPECT_EQ(QVPropertyList::readFile(folder + "/dataSource").toList().size(), 7);
}

TEST(ReportStore, TheIndexIsAPropertyListThatPlistlibReads)
{
    QVTestHome home;
    {
        QVReportStore store;
        ASSERT_TRUE(store.addFileToReports(report("Morning <Scan> & \"Co\"", "a", 1234, 999)).isNull());
        ASSERT_TRUE(store.addFileToReports(report("Big", "b", 1234567, 1000)).isNull());
    }
    const QString index = home.dataHome() + "/Quorvel/Reports/dataSource";
    int status = -1;
    const QString out = python("import json, plistlib, sys\nwith open(sys.argv[1], 'rb') as f:\n"
                               "    print(json.dumps(plistlib.load(f), default=lambda d: d.isoformat()))\n",
        { index }, &status);
    ASSERT_EQ(status, 0) << qPrintable(out);
    const QJsonArray records = QJsonDocument::fromJson(out.toUtf8()).array();
    ASSERT_EQ(records.size(), 2);
    QStringList fields;
    for (const QJsonValue &r : records)
        fields << r["reportName"].toString() + "|" + r["qv_total_examined"].toString() + "|"
                + r["qv_total_problems"].toString() + "|" + r["date"].toString();
    EXPECT_EQ(fields,
        (QStringList { "Morning <Scan> & \"Co\"|1,234|999|2024-01-02T09:30:00",
            "Big|1,234,567|1,000|2024-01-02T09:30:00" }));
    // A new store (a new run of the program) reads the same index.
    QVReportStore reloaded;
    ASSERT_EQ(reloaded.reportFilesDataArray().size(), 2);
    const QVariantMap first = reloaded.reportFilesDataArray().at(0);
    EXPECT_EQ(first.value("date").toDateTime(), QDateTime(QDate(2024, 1, 2), QTime(9, 30), Qt::UTC));
    EXPECT_EQ(first.value("reportName").toString(), "Morning <Scan> & \"Co\"");
}

TEST(ReportStore, ADamagedIndexIsNoIndexAndIsNotOverwritten)
{
    QVTestHome home;
    const QString index = home.writeFile(".local/share/Quorvel/Reports/dataSource",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key><string>b</string></dict></plist>");
    QVReportStore store;
    EXPECT_FALSE(store.hasReportIndex());
    // The report is written; its record is lost and the damaged file stays.
    EXPECT_TRUE(store.addFileToReports(report("R", "x")).isNull());
    EXPECT_TRUE(store.reportFilesDataArray().isEmpty() && readFile(index).contains("<key>a</key>"));
    EXPECT_TRUE(QFileInfo::exists(QFileInfo(index).absolutePath() + "/R"));
    home.writeFile(".local/share/Quorvel/Reports/dataSource", "not xml at all");
    store.loadReportDataSourceFromDisk();
    EXPECT_FALSE(store.hasReportIndex());
    // A file where the Reports folder should be: nothing can be written below it.
    QVTestHome blocked;
    blocked.writeFile(".local/share/Quorvel/Reports", "in the way");
    QVReportStore nowhere;
    EXPECT_FALSE(
        nowhere.addFileToReports(report("R", "x")).isEmpty() || !nowhere.reportFilesDataArray().isEmpty());
}

TEST(ReportStore, ClearingRemovesReportsAndIndexButNothingOutsideOrBehindALink)
{
    QVTestHome home;
    const QString outside = home.writeFile("Documents/keep.html", "mine");
    QVReportStore store;
    ASSERT_TRUE(store.addFileToReports(report("One", "1")).isNull());
    ASSERT_TRUE(store.addFileToReports(report("Two", "2")).isNull());
    // An edited index naming a file outside the folder.
    store.addFileToReportsDataSource(outside, "Sneaky", {});
    ASSERT_TRUE(store.commitReport().isNull());
    const QString folder = store.reportFolderPath();
    store.clearReports();
    EXPECT_TRUE(QDir(folder).exists() && QDir(folder).entryList(QDir::Files | QDir::Hidden).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(outside));
    // The Reports folder replaced by a link: nothing where it points is deleted.
    const QString elsewhere = QFileInfo(outside).absolutePath();
    home.writeFile("Documents/dataSource", "theirs");
    ASSERT_TRUE(QDir().rename(folder, folder + ".real"));
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    store.addFileToReportsDataSource(folder + "/keep.html", "Linked", {});
    store.clearReports();
    EXPECT_FALSE(store.removeReports({ folder + "/keep.html" }).isEmpty());
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files), QStringList({ "dataSource", "keep.html" }));
}

TEST(ReportStore, CleanFontCachesClearsTheUserCacheAndRunsTheRealFcCacheWithRights)
{
    QVTestHome home;
    const QString cache = home.writeFile(".cache/fontconfig/1f2e3d-le64.cache-8", "cache");
    const QString tag = home.writeFile(".cache/fontconfig/CACHEDIR.TAG", "tag");
    const QString other = home.writeFile(".cache/other/x.cache-8", "other");
    // A tool of that name first in PATH is not what root runs.
    const QString decoy = home.writeFile("bin/fc-cache", "#!/bin/sh\n");
    QFile::setPermissions(decoy, QFile::permissions(decoy) | QFileDevice::ExeOwner);
    const QByteArray savedPath = qgetenv("PATH");
    qputenv("PATH", QFileInfo(decoy).absolutePath().toUtf8() + ":" + savedPath);
    const auto runner = RecordingRunner::install();
    QVReportStore store;
    EXPECT_EQ(QVReportStore::userFontCacheFolder(), home.path() + "/.cache/fontconfig");
    EXPECT_TRUE(store.cleanFontCaches().isNull());
    qputenv("PATH", savedPath);
    EXPECT_FALSE(QFileInfo::exists(cache));
    EXPECT_TRUE(QFileInfo::exists(tag) && QFileInfo::exists(other));
    EXPECT_EQ(runner->calls, QStringList { "/usr/bin/fc-cache -r" });
    RecordingRunner::install("Not Authorized");
    EXPECT_EQ(store.cleanFontCaches(), QStringLiteral("Not Authorized"));
    QVPrivilegedRunner::setShared(nullptr);
}

TEST(ReportIndexPlist, BadInputIsRefusedAndNestingIsBounded)
{
    // Nesting is bounded, so a hostile index cannot exhaust the stack.
    QByteArray deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 100000; ++i)
        deep += "<array>";
    for (const QByteArray &xml : { QByteArray(), QByteArray("<html></html>"),
             QByteArray("<plist version=\"1.0\"><dict><string>no key</string></dict></plist>"),
             QByteArray("<plist version=\"1.0\"><dict><key>k</key></dict></plist>"),
             QByteArray("<plist version=\"1.0\"><integer>12x</integer></plist>"),
             QByteArray("<plist version=\"1.0\"><date>yesterday</date></plist>"),
             QByteArray("<plist version=\"1.0\"><array><widget/></array></plist>"),
             QByteArray("<plist version=\"1.0\"><array><string>unclosed</array></plist>"), deep }) {
        QString error;
        EXPECT_FALSE(QVPropertyList::fromXml(xml, &error).isValid() || error.isEmpty())
            << xml.left(80).constData();
    }
}
