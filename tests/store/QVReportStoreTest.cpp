#include "store/QVReportStore.h"

#include "platform/QVPrivilegedRunner.h"
#include "settings/QVSettings.h"
#include "store/QVPropertyList.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

// Readable failure messages.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace
{

QVariantMap report(const QString &name, const QString &html, qint64 examined, qint64 problems,
    const QDateTime &date = QDateTime(QDate(2024, 1, 2), QTime(9, 30), Qt::UTC))
{
    return { { "reportName", name }, { "reportData", html }, { "date", date },
        { "qv_total_examined", examined }, { "qv_total_problems", problems }, { "qv_total_quarantined", 0 } };
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The index as /usr/bin/python3's plistlib reads it, dates as ISO text.
QJsonArray readWithPlistlib(const QString &path)
{
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"),
        { QStringLiteral("-c"),
            QStringLiteral("import json, plistlib, sys\n"
                           "with open(sys.argv[1], 'rb') as f:\n"
                           "    data = plistlib.load(f)\n"
                           "print(json.dumps(data, default=lambda d: d.isoformat()))\n"),
            path });
    EXPECT_TRUE(python.waitForFinished(30000));
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().constData();
    return QJsonDocument::fromJson(python.readAllStandardOutput()).array();
}

// A privileged runner that records what it was asked to run.
class RecordingRunner : public QVPrivilegedRunner
{
public:
    explicit RecordingRunner(QString answer)
        : m_answer(std::move(answer))
    {
    }
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override
    {
        calls.append(QStringList { program } + arguments);
        return m_answer;
    }
    QList<QStringList> calls;

private:
    QString m_answer;
};

} // namespace

TEST(ReportStore, NamesDropSlashesAndSpacesAndCollisionsAreNumbered)
{
    QVTestHome home;
    QVReportStore store;
    const QString folder = home.dataHome() + QStringLiteral("/Quorvel/Reports");
    EXPECT_EQ(store.getReportFolder(), QUrl::fromLocalFile(folder + QLatin1Char('/')));
    EXPECT_EQ(store.getReportFile(QStringLiteral("anything")), store.getReportFolder());

    const QString html = QStringLiteral("<p>Überprüfung – 字体</p>");
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("Scan 1/2/2024"), html, 3, 1)).isNull());
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("Scan 1/2/2024"), html, 3, 1)).isNull());
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("Scan 1/2/2024"), html, 3, 1)).isNull());
    ASSERT_EQ(store.reportFilesDataArray().size(), 3);
    EXPECT_EQ(store.reportFilesDataArray().at(0).value("filePath").toString(),
        folder + QStringLiteral("/Scan122024"));
    EXPECT_EQ(store.reportFilesDataArray().at(1).value("filePath").toString(),
        folder + QStringLiteral("/Scan122024_1"));
    EXPECT_EQ(store.reportFilesDataArray().at(2).value("filePath").toString(),
        folder + QStringLiteral("/Scan122024_2"));
    EXPECT_EQ(
        store.reportFilesDataArray().at(0).value("reportName").toString(), QStringLiteral("Scan 1/2/2024"));
    // UTF-8 on disk, and read back whole.
    EXPECT_EQ(readAll(folder + QStringLiteral("/Scan122024")), html.toUtf8());
    EXPECT_EQ(store.getReportFileData(folder + QStringLiteral("/Scan122024")), html);

    // Percent signs in a name are kept as they are, collisions too.
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("100%1 done"), html, 1, 0)).isNull());
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("100%1 done"), html, 1, 0)).isNull());
    EXPECT_EQ(store.reportFilesDataArray().last().value("filePath").toString(),
        folder + QStringLiteral("/100%1done_1"));
    store.removeReports({ folder + QStringLiteral("/100%1done"), folder + QStringLiteral("/100%1done_1") });

    // The index file's name is never given to a report.
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("data Source"), html, 1, 0)).isNull());
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("dataSource"), html, 1, 0)).isNull());
    EXPECT_EQ(store.reportFilesDataArray().at(3).value("filePath").toString(),
        folder + QStringLiteral("/dataSource_1"));
    EXPECT_EQ(store.reportFilesDataArray().at(4).value("filePath").toString(),
        folder + QStringLiteral("/dataSource_2"));
    EXPECT_EQ(QVPropertyList::readFile(folder + QStringLiteral("/dataSource")).toList().size(), 5);
}

TEST(ReportStore, IndexIsAPropertyListThatPlistlibReads)
{
    QVTestHome home;
    {
        QVReportStore store;
        ASSERT_TRUE(store.addFileToReports(report(QStringLiteral("Morning <Scan> & \"Co\""), "a", 1234, 999))
                        .isNull());
        ASSERT_TRUE(store.addFileToReports(report(QStringLiteral("Big"), "b", 1234567, 1000)).isNull());
    }
    const QString index = home.dataHome() + QStringLiteral("/Quorvel/Reports/dataSource");
    EXPECT_TRUE(readAll(index).startsWith("<?xml"));
    const QJsonArray records = readWithPlistlib(index);
    ASSERT_EQ(records.size(), 2);
    const QJsonObject first = records.at(0).toObject();
    EXPECT_EQ(first.value("reportName").toString(), QStringLiteral("Morning <Scan> & \"Co\""));
    EXPECT_EQ(first.value("qv_total_examined").toString(), QStringLiteral("1,234"));
    EXPECT_EQ(first.value("qv_total_problems").toString(), QStringLiteral("999"));
    EXPECT_EQ(first.value("date").toString(), QStringLiteral("2024-01-02T09:30:00"));
    EXPECT_EQ(records.at(1).toObject().value("qv_total_examined").toString(), QStringLiteral("1,234,567"));
    EXPECT_EQ(records.at(1).toObject().value("qv_total_problems").toString(), QStringLiteral("1,000"));

    // A new store (a new run of the program) reads the same index.
    QVReportStore reloaded;
    ASSERT_EQ(reloaded.reportFilesDataArray().size(), 2);
    EXPECT_EQ(reloaded.reportFilesDataArray().at(0).value("date").toDateTime(),
        QDateTime(QDate(2024, 1, 2), QTime(9, 30), Qt::UTC));
    EXPECT_EQ(reloaded.reportFilesDataArray().at(0).value("reportName").toString(),
        QStringLiteral("Morning <Scan> & \"Co\""));
}

TEST(ReportStore, DamagedIndexLoadsAsNoIndexAndIsNotOverwritten)
{
    QVTestHome home;
    const QString index = home.writeFile(QStringLiteral(".local/share/Quorvel/Reports/dataSource"),
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>"
        "<string>b</string></dict></plist>");
    QVReportStore store;
    EXPECT_FALSE(store.hasReportIndex());
    // The report is written; its record is lost and the damaged file stays.
    EXPECT_TRUE(store.addFileToReports(report(QStringLiteral("R"), "x", 1, 0)).isNull());
    EXPECT_TRUE(store.reportFilesDataArray().isEmpty());
    EXPECT_TRUE(readAll(index).contains("<key>a</key>"));
    EXPECT_TRUE(QFileInfo::exists(QFileInfo(index).absolutePath() + QStringLiteral("/R")));

    home.writeFile(QStringLiteral(".local/share/Quorvel/Reports/dataSource"), "not xml at all");
    store.loadReportDataSourceFromDisk();
    EXPECT_FALSE(store.hasReportIndex());
}

TEST(ReportStore, WriteFailureReturnsTheErrorAndLeavesTheIndex)
{
    QVTestHome home;
    // A file where the Reports folder should be: nothing can be written below it.
    home.writeFile(QStringLiteral(".local/share/Quorvel/Reports"), "in the way");
    QVReportStore store;
    const QString error = store.addFileToReports(report(QStringLiteral("R"), "x", 1, 0));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(store.reportFilesDataArray().isEmpty());
    EXPECT_TRUE(store.getReportFileData(home.dataHome() + QStringLiteral("/Quorvel/Reports/R")).isNull());
}

TEST(ReportStore, ClearingRemovesReportsAndIndexButKeepsFolderAndOutsideFiles)
{
    QVTestHome home;
    const QString outside = home.writeFile(QStringLiteral("Documents/keep.html"), "mine");
    QVReportStore store;
    ASSERT_TRUE(store.addFileToReports(report(QStringLiteral("One"), "1", 1, 0)).isNull());
    ASSERT_TRUE(store.addFileToReports(report(QStringLiteral("Two"), "2", 1, 0)).isNull());
    // An edited index naming a file outside the folder.
    store.addFileToReportsDataSource(outside, QStringLiteral("Sneaky"), {});
    ASSERT_TRUE(store.commitReport().isNull());

    const QString folder = store.reportFolderPath();
    store.clearReports();
    EXPECT_TRUE(QDir(folder).exists());
    EXPECT_TRUE(QDir(folder).entryList(QDir::Files | QDir::Hidden).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(outside));
    EXPECT_EQ(store.reportFilesDataArray().size(), 3); // the caller resets it

    // The Reports folder replaced by a link: nothing where it points is deleted.
    const QString elsewhere = QFileInfo(outside).absolutePath();
    home.writeFile(QStringLiteral("Documents/dataSource"), "theirs");
    ASSERT_TRUE(QDir().rename(folder, folder + QStringLiteral(".real")));
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    store.addFileToReportsDataSource(folder + QStringLiteral("/keep.html"), QStringLiteral("Linked"), {});
    store.clearReports();
    EXPECT_FALSE(store.removeReports({ folder + QStringLiteral("/keep.html") }).isEmpty());
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files), QStringList({ "dataSource", "keep.html" }));
}

TEST(ReportStore, RenameAndRemoveFollowTheNewestReportInTheSettings)
{
    QVTestHome home;
    QVReportStore store;
    ASSERT_TRUE(store
                    .addFileToReports(report(QStringLiteral("Later"), "l", 1, 0,
                        QDateTime(QDate(2024, 3, 1), QTime(8, 0), Qt::UTC)))
                    .isNull());
    ASSERT_TRUE(store
                    .addFileToReports(report(QStringLiteral("Earlier"), "e", 1, 0,
                        QDateTime(QDate(2024, 2, 1), QTime(8, 0), Qt::UTC)))
                    .isNull());
    const QList<QVariantMap> byDate = store.recordsByDate();
    EXPECT_EQ(byDate.at(0).value("reportName").toString(), QStringLiteral("Earlier"));
    const QString later = byDate.at(1).value("filePath").toString();
    QVSettings settings;
    settings.setLastReportFilePath(later);
    settings.setLastReportName(QStringLiteral("Later"));

    EXPECT_TRUE(store.renameReport(later, QStringLiteral("Spring job")).isNull());
    EXPECT_TRUE(store.renameReport(later, QString()).isNull()); // empty: unchanged
    EXPECT_EQ(settings.lastReportName(), QStringLiteral("Spring job"));
    EXPECT_TRUE(QFileInfo::exists(later)); // the file keeps its name
    EXPECT_EQ(
        QVReportStore().recordsByDate().at(1).value("reportName").toString(), QStringLiteral("Spring job"));
    EXPECT_FALSE(store.renameReport(QStringLiteral("/nowhere"), QStringLiteral("x")).isNull());

    EXPECT_TRUE(store.removeReports({ later }).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(later));
    EXPECT_EQ(store.reportFilesDataArray().size(), 1);
    EXPECT_FALSE(settings.hasStoredValue(QStringLiteral("lastReportFilePath")));
    EXPECT_FALSE(settings.hasStoredValue(QStringLiteral("lastReportName")));
    EXPECT_EQ(QVReportStore().reportFilesDataArray().size(), 1);
}

TEST(ReportStore, CleanFontCachesClearsTheUserCacheAndRunsFcCacheWithRights)
{
    QVTestHome home;
    const QByteArray savedCache = qgetenv("XDG_CACHE_HOME");
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/.cache")).toUtf8());
    const QString cache = home.writeFile(QStringLiteral(".cache/fontconfig/1f2e3d-le64.cache-8"), "cache");
    const QString tag = home.writeFile(QStringLiteral(".cache/fontconfig/CACHEDIR.TAG"), "tag");
    const QString other = home.writeFile(QStringLiteral(".cache/other/x.cache-8"), "other");

    // A tool of that name first in PATH is not what root runs.
    const QString decoy = home.writeFile(QStringLiteral("bin/fc-cache"), "#!/bin/sh\n");
    QFile::setPermissions(decoy, QFile::permissions(decoy) | QFileDevice::ExeOwner);
    const QByteArray savedPath = qgetenv("PATH");
    qputenv("PATH", QFileInfo(decoy).absolutePath().toUtf8() + ":" + savedPath);
    auto runner = std::make_shared<RecordingRunner>(QString());
    QVPrivilegedRunner::setShared(runner);
    QVReportStore store;
    EXPECT_EQ(QVReportStore::userFontCacheFolder(), home.path() + QStringLiteral("/.cache/fontconfig"));
    EXPECT_TRUE(store.cleanFontCaches().isNull());
    EXPECT_FALSE(QFileInfo::exists(cache));
    EXPECT_TRUE(QFileInfo::exists(tag));
    EXPECT_TRUE(QFileInfo::exists(other));
    qputenv("PATH", savedPath);
    ASSERT_EQ(runner->calls.size(), 1);
    EXPECT_EQ(runner->calls.first(), QStringList({ "/usr/bin/fc-cache", "-r" }));

    QVPrivilegedRunner::setShared(std::make_shared<RecordingRunner>(QStringLiteral("Not Authorized")));
    EXPECT_EQ(store.cleanFontCaches(), QStringLiteral("Not Authorized"));

    QVPrivilegedRunner::setShared(nullptr);
    if (savedCache.isNull())
        qunsetenv("XDG_CACHE_HOME");
    else
        qputenv("XDG_CACHE_HOME", savedCache);
}

TEST(ReportStore, BrowsersGetAnHtmlCopyInTheCache)
{
    QVTestHome home;
    const QByteArray savedCache = qgetenv("XDG_CACHE_HOME");
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/.cache")).toUtf8());
    QVReportStore store;
    ASSERT_TRUE(
        store.addFileToReports(report(QStringLiteral("Scan 1/2/2024"), "<html>one</html>", 1, 0)).isNull());
    const QString path = store.reportFilesDataArray().last().value("filePath").toString();
    QString error;
    const QString copy = store.browserCopyOfReport(path, &error);
    EXPECT_EQ(copy, home.path() + QStringLiteral("/.cache/Quorvel/Reports/Scan122024.html"));
    EXPECT_EQ(readAll(copy), QByteArray("<html>one</html>"));
    // A second look at a changed report is not served the old copy.
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("<html>two</html>");
    file.close();
    EXPECT_EQ(readAll(store.browserCopyOfReport(path, &error)), QByteArray("<html>two</html>"));
    EXPECT_TRUE(store.browserCopyOfReport(path + QStringLiteral("-gone"), &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
    if (savedCache.isNull())
        qunsetenv("XDG_CACHE_HOME");
    else
        qputenv("XDG_CACHE_HOME", savedCache);
}

TEST(ReportStore, CountsAreGroupedByThrees)
{
    EXPECT_EQ(QVReportStore::formatCount(0), QStringLiteral("0"));
    EXPECT_EQ(QVReportStore::formatCount(999), QStringLiteral("999"));
    EXPECT_EQ(QVReportStore::formatCount(1234), QStringLiteral("1,234"));
    EXPECT_EQ(QVReportStore::formatCount(20000), QStringLiteral("20,000"));
    EXPECT_EQ(QVReportStore::formatCount(1234567890), QStringLiteral("1,234,567,890"));
    EXPECT_EQ(QVReportStore::formatCount(-1234), QStringLiteral("-1,234"));
}
