// quorvel-cli diagnose, run as a separate process over real folders.
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

namespace
{

struct QVCliRun {
    int exitCode = -1;
    QString out;
    QString err;
};

QVCliRun runDiagnose(const QVTestHome &home, const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(QV_CLI_PATH), arguments);
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
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
    EXPECT_TRUE(text.out.contains(QStringLiteral("Total font problems:       0\n"))) << qPrintable(text.out);

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
