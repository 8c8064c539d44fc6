#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

TEST(QuorvelCliSettings, ListShowsEveryKeyWithDefaults)
{
    QVTestHome home;
    const QVCliRun result = runCli(home, { "settings", "list" });
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.err);
    EXPECT_TRUE(result.out.contains("diagnoseFileStructure = true\n"));
    EXPECT_TRUE(result.out.contains("checkFontActivation = false\n"));
    EXPECT_TRUE(result.out.contains("autoScanFrequency = kMonthly\n"));
    EXPECT_TRUE(result.out.contains("prefsVersion = 3\n"));
    EXPECT_TRUE(result.out.contains("lastReportName = (not set)\n"));
    EXPECT_EQ(result.out.count('\n'), 43);
}

TEST(QuorvelCliSettings, SetIsSeenByAFreshProcess)
{
    QVTestHome home;
    EXPECT_EQ(runCli(home, { "settings", "set", "matchVersionNumbers", "false" }).exitCode, 0);
    EXPECT_EQ(runCli(home, { "settings", "get", "matchVersionNumbers" }).out, QStringLiteral("false\n"));
    EXPECT_EQ(runCli(home, { "settings", "set", "fontFolderPaths", "/a/", "/b/" }).exitCode, 0);
    EXPECT_EQ(runCli(home, { "settings", "get", "fontFolderPaths" }).out, QStringLiteral("/a/ /b/\n"));
    EXPECT_EQ(runCli(home, { "settings", "set", "userName", "Ada" }).exitCode, 0);

    EXPECT_EQ(runCli(home, { "settings", "reset" }).exitCode, 0);
    EXPECT_EQ(runCli(home, { "settings", "get", "matchVersionNumbers" }).out, QStringLiteral("true\n"));
    EXPECT_EQ(runCli(home, { "settings", "get", "userName" }).out, QStringLiteral("Ada\n"));
}

TEST(QuorvelCliSettings, BadKeysAndValuesAreRefused)
{
    QVTestHome home;
    QVCliRun result = runCli(home, { "settings", "set", "noSuchKey", "1" });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("unknown setting \"noSuchKey\""));
    result = runCli(home, { "settings", "set", "doLogging", "perhaps" });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("true or false"));
    EXPECT_EQ(runCli(home, { "settings", "set", "autoScanFrequency", "kHourly" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "settings", "set", "lastScanDate", "yesterday" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "settings", "get", "nope" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "frobnicate" }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "--version" }).out, QStringLiteral("quorvel-cli " QV_VERSION "\n"));
}
