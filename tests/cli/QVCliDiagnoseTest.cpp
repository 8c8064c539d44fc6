// quorvel-cli diagnose, run as a separate process over real folders.
#include "platform/QVForkStorage.h"
#include "store/QVPropertyList.h"
#include "store/QVStoreFixtures.h"
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>
#include <csignal>
#include <gtest/gtest.h>

namespace
{

QVCliRun runDiagnose(const QVTestHome &home, const QStringList &arguments)
{
    return runCli(home, arguments);
}

QString fontFolder(const QVTestHome &home)
{
    const QString folder = home.path() + QStringLiteral("/Fonts");
    QDir().mkpath(folder);
    for (const char *name : { "DejaVuSans.ttf", "DejaVuSerif.ttf" })
        QFile::copy(QStringLiteral("/usr/share/fonts/truetype/dejavu/") + QLatin1String(name),
            folder + QLatin1Char('/') + QLatin1String(name));
    return folder;
}

} // namespace

TEST(QuorvelCliDiagnose, HealthyFontsEndWithNoProblemsAndRecordTheScan)
{
    QVTestHome home;
    const QString folder = fontFolder(home);

    const QVCliRun text = runDiagnose(home, { "diagnose", folder });
    ASSERT_EQ(text.exitCode, 0) << qPrintable(text.err);
    EXPECT_TRUE(text.out.startsWith(QStringLiteral("2 font files, 2 fonts\nNo Problems Found!\n")))
        << qPrintable(text.out);
    EXPECT_TRUE(text.out.contains(QStringLiteral("Fonts with problems:       0\n"))) << qPrintable(text.out);

    const QVCliRun json = runDiagnose(home, { "diagnose", "--json", folder });
    ASSERT_EQ(json.exitCode, 0) << qPrintable(json.err);
    const QJsonObject object = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(object.value("folders").toArray(), QJsonArray { folder });
    EXPECT_EQ(object.value("fontFiles").toArray().size(), 2);
    EXPECT_EQ(object.value("totalFonts").toInt(), 2);
    EXPECT_EQ(object.value("problemFonts").toArray().size(), 0);
    EXPECT_EQ(object.value("outcome").toString(), QStringLiteral("No Problems Found!"));
    for (const char *counter : { "fileStructureProblemCount", "missingBitmapProblemCount",
             "missingPSProblemCount", "duplicateProblemCount", "totalFontProblems" }) {
        ASSERT_TRUE(object.contains(QLatin1String(counter))) << counter;
        EXPECT_EQ(object.value(QLatin1String(counter)).toInt(), 0) << counter;
    }

    const QVCliRun count = runDiagnose(home, { "settings", "get", "lastScanProblemCount" });
    EXPECT_EQ(count.out, QStringLiteral("0\n"));
    EXPECT_EQ(runDiagnose(home, { "settings", "get", "lastScanTotalCount" }).out, QStringLiteral("2\n"));
    EXPECT_EQ(runDiagnose(home, { "settings", "get", "lastScanType" }).out, QStringLiteral("Manual Scan\n"));
}

TEST(QuorvelCliDiagnose, FolderWithoutFontsSaysSo)
{
    QVTestHome home;
    const QString empty = home.path() + QStringLiteral("/Empty");
    QDir().mkpath(empty);
    const QVCliRun run = runDiagnose(home, { "diagnose", empty });
    EXPECT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(run.out,
        QStringLiteral("Fonts Not Found: No font files were found or scanned in the selected folders.\n"));
}

TEST(QuorvelCliDiagnose, UsageAndRunErrorsExitWithTwo)
{
    QVTestHome home;
    const QString folder = fontFolder(home);
    const QVCliRun missing = runDiagnose(home, { "diagnose", home.path() + "/Nowhere" });
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(missing.err.contains(QStringLiteral("no such folder"))) << qPrintable(missing.err);
    EXPECT_EQ(runDiagnose(home, { "diagnose", "--fast", folder }).exitCode, 2);
    EXPECT_EQ(runDiagnose(home, { "diagnose", folder + "/DejaVuSans.ttf" }).exitCode, 2);

    for (const char *key : { "diagnoseFileStructure", "findOrpanedFonts", "findDuplicateFonts" })
        ASSERT_EQ(runDiagnose(home, { "settings", "set", key, "false" }).exitCode, 0);
    const QVCliRun none = runDiagnose(home, { "diagnose", folder });
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(none.err.contains(QStringLiteral("Choose at least one diagnosis"))) << qPrintable(none.err);
    EXPECT_TRUE(none.out.isEmpty());
}

TEST(QuorvelCliDiagnose, ReportIsWrittenAfterTheResolutionAndListed)
{
    QVTestHome home;
    const QString folder = fontFolder(home);
    // A damaged font and a second copy of a healthy one, in a folder of its own.
    home.writeFile(QStringLiteral("Fonts/Broken <b>&.otf"), QByteArray());
    QDir().mkpath(home.path() + QStringLiteral("/More"));
    QFile::copy(
        folder + QStringLiteral("/DejaVuSans.ttf"), home.path() + QStringLiteral("/More/DejaVuSans.ttf"));

    const QVCliRun run = runDiagnose(home,
        { "diagnose", "--json", "--resolve", "--report", folder, home.path() + QStringLiteral("/More") });
    ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
    const QJsonObject object = QJsonDocument::fromJson(run.out.toUtf8()).object();
    const QString reportPath = object.value(QStringLiteral("report")).toString();
    ASSERT_FALSE(reportPath.isEmpty()) << qPrintable(run.out);
    EXPECT_TRUE(reportPath.startsWith(home.dataHome() + QStringLiteral("/Quorvel/Reports/")));

    QFile report(reportPath);
    ASSERT_TRUE(report.open(QIODevice::ReadOnly));
    const QString html = QString::fromUtf8(report.readAll());
    // The damaged font was quarantined before the report was made, and its name
    // is printed as text.
    EXPECT_TRUE(html.contains(QStringLiteral("Broken &lt;b&gt;&amp;.otf")));
    EXPECT_FALSE(html.contains(QStringLiteral("Broken <b>")));
    EXPECT_TRUE(html.contains(QStringLiteral("Moved to<br>Quarantine")));
    EXPECT_TRUE(html.contains(QStringLiteral("Matched Font: DejaVu Sans")));
    EXPECT_FALSE(QFile::exists(folder + QStringLiteral("/Broken <b>&.otf")));

    // The report is in the list the reports command shows.
    const QVCliRun list = runCli(home, { "reports", "list", "--json" });
    ASSERT_EQ(list.exitCode, 0) << qPrintable(list.err);
    const QJsonArray reports = QJsonDocument::fromJson(list.out.toUtf8()).array();
    ASSERT_EQ(reports.size(), 1) << qPrintable(list.out);
    EXPECT_EQ(reports.at(0)[QStringLiteral("filePath")].toString(), reportPath);
    // The damaged font and both copies of DejaVu Sans.
    EXPECT_EQ(reports.at(0)[QStringLiteral("qv_total_problems")].toVariant().toString(), QStringLiteral("3"));
}

TEST(QuorvelCliDiagnose, EachCountMeansOneThingInTheSummaryTheJsonAndTheReport)
{
    QVTestHome home;
    const QString folder = home.path() + QStringLiteral("/Fonts");
    QDir().mkpath(folder);
    QFile::copy(
        QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"), folder + "/DejaVuSerif.ttf");
    // Three copies of one damaged font: each is a structure problem and a duplicate.
    QFile source(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    QByteArray damaged = source.readAll();
    const qsizetype kern = damaged.indexOf("kern");
    ASSERT_GT(kern, 0);
    damaged.replace(kern + 4, 4, QByteArray(4, '\0'));
    for (const char *copy : { "a", "b", "c" })
        home.writeFile(QStringLiteral("Fonts/%1/Sans.ttf").arg(QLatin1String(copy)), damaged);

    const QVCliRun run = runDiagnose(home, { "diagnose", "--json", "--resolve", "--report", folder });
    ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
    const QJsonObject object = QJsonDocument::fromJson(run.out.toUtf8()).object();
    EXPECT_EQ(object.value("totalFontProblems").toInt(), 3) << qPrintable(run.out);
    const QJsonObject resolution = object.value("resolution").toObject();
    EXPECT_EQ(resolution.value("quarantined").toArray().size(), 3);
    EXPECT_EQ(resolution.value("qv_total_quarantined").toInt(), 3);
    EXPECT_EQ(
        QJsonDocument::fromJson(runCli(home, { "quarantine", "list", "--json" }).out.toUtf8()).array().size(),
        3);
    QFile report(object.value("report").toString());
    ASSERT_TRUE(report.open(QIODevice::ReadOnly));
    const QString html = QString::fromUtf8(report.readAll());
    EXPECT_TRUE(html.contains("\"value\">3</span><span class=\"label\">Problem fonts")) << qPrintable(html);
    EXPECT_TRUE(html.contains("\"value\">3</span><span class=\"label\">Moved to quarantine"));
}

TEST(QuorvelCliDiagnose, ASignalStopsAResolutionAfterTheFontInHandAndKeepsWhatItDid)
{
    for (const int signal : { SIGINT, SIGTERM }) {
        SCOPED_TRACE(signal);
        QVTestHome home;
        const QString folder = home.path() + QStringLiteral("/Fonts");
        const int count = 1500;
        for (int i = 0; i < count; ++i)
            home.writeFile(QStringLiteral("Fonts/Broken%1.otf").arg(i), QByteArray());
        QProcess process;
        process.setProcessEnvironment(cliEnvironment(home));
        process.start(QStringLiteral(QV_CLI_PATH), { "diagnose", "--resolve", folder });
        // Stopped as soon as the first damaged font reached the quarantine.
        const QString quarantine = home.dataHome() + QStringLiteral("/Quorvel/Quarantine");
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return QDir(quarantine).entryList({ "Broken*" }, QDir::Files).size() > 0; }, 60000));
        ::kill(pid_t(process.processId()), signal);
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 130);
        const QString out = QString::fromUtf8(process.readAllStandardOutput());
        const int moved = out.section("Quarantined: ", 1).section('\n', 0, 0).toInt();
        EXPECT_GT(moved, 0) << qPrintable(out);
        EXPECT_LT(moved, count) << qPrintable(out);
        EXPECT_TRUE(out.contains("Interrupted")) << qPrintable(out);
        // What it did is committed: each moved font listed, the others in place.
        EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), count - moved);
        EXPECT_EQ(QVPropertyList::readFile(quarantine + "/dataSource").toList().size(), moved);
        EXPECT_FALSE(QFile::exists(quarantine + "/dataSource.journal"));
    }
}

TEST(QuorvelCliDiagnose, ASidecarThatIsALinkIsNeitherFollowedNorMoved)
{
    // An unpacked archive may hold "._Times" pointing at someone else's file.
    QVTestHome home;
    const QString elsewhere = home.path() + "/elsewhere/Times";
    ASSERT_TRUE(QVStoreFixtures::makeSuitcase(elsewhere,
        QVStoreFixtures::dejaVuSerifFork(home.path() + "/work"), QVForkStorage::Place::AppleDouble));
    const QString victim = home.path() + "/elsewhere/._Times";
    const QString before = QVStoreFixtures::fileSha256(victim);
    const QString font = home.writeFile("scan/Times", {});
    ASSERT_TRUE(QFile::link(victim, home.path() + "/scan/._Times"));
    runDiagnose(home, { "diagnose", "--resolve", home.path() + "/scan" });
    EXPECT_EQ(QVStoreFixtures::fileSha256(victim), before);
    EXPECT_TRUE(QFileInfo::exists(font));
    EXPECT_TRUE(QFileInfo(home.path() + "/scan/._Times").isSymLink());
}
