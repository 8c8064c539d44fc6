#include "platform/QVPrivilegedRunner.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

// A stand-in for pkexec: records its arguments one per line, then exits with
// the status given when it was made.
QString makeLauncher(const QTemporaryDir &dir, int status)
{
    const QString path = dir.path() + QStringLiteral("/launcher-%1").arg(status);
    QFile script(path);
    EXPECT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(
        QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\nexit %1\n").arg(status).toUtf8());
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

QStringList recordedArguments(const QString &launcher)
{
    QFile file(launcher + QStringLiteral(".args"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

TEST(PrivilegedRunner, ArgumentsReachTheLauncherVerbatimWithoutAShell)
{
    QTemporaryDir dir;
    const QString launcher = makeLauncher(dir, 0);
    QVPrivilegedRunner runner(launcher);
    const QStringList arguments { QStringLiteral("-f"),
        QStringLiteral("/srv/Fonts & Co/it's \"here\" $(reboot);.ttf"),
        QStringLiteral("/tmp/Quarantine/a b`id`") };
    EXPECT_EQ(runner.commandLine(QStringLiteral("/bin/mv"), arguments),
        QStringList { launcher } + QStringList { QStringLiteral("/bin/mv") } + arguments);
    EXPECT_TRUE(runner.runWithAdministratorRights(QStringLiteral("/bin/mv"), arguments).isNull());
    EXPECT_EQ(recordedArguments(launcher), QStringList { QStringLiteral("/bin/mv") } + arguments);
}

TEST(PrivilegedRunner, RefusalsAndFailuresOfTheLauncherAreReported)
{
    QTemporaryDir dir;
    EXPECT_EQ(
        QVPrivilegedRunner(makeLauncher(dir, 126)).runWithAdministratorRights("/bin/rm", { "-fr", "/x" }),
        QStringLiteral("Not Authorized"));
    EXPECT_EQ(
        QVPrivilegedRunner(makeLauncher(dir, 127)).runWithAdministratorRights("/bin/rm", { "-fr", "/x" }),
        QStringLiteral("Not Authorized"));
    EXPECT_EQ(QVPrivilegedRunner(makeLauncher(dir, 4)).runWithAdministratorRights("/bin/rm", { "-fr", "/x" }),
        QStringLiteral("Authorization Error: 4"));
    EXPECT_EQ(QVPrivilegedRunner(dir.path() + QStringLiteral("/no-launcher"))
                  .runWithAdministratorRights("/bin/rm", { "-fr", "/x" }),
        QStringLiteral("Authorization Error: -1"));
    // A tool without its full path would be whatever PATH finds: never run.
    const QString launcher = makeLauncher(dir, 0);
    EXPECT_EQ(QVPrivilegedRunner(launcher).runWithAdministratorRights("fc-cache", { "-r" }),
        QStringLiteral("Authorization Error: -1"));
    EXPECT_FALSE(QFileInfo::exists(launcher + QStringLiteral(".args")));
}

TEST(PrivilegedRunner, AsRootTheToolRunsDirectly)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root: an ordinary user goes through pkexec";
    QTemporaryDir dir;
    const QString source = dir.path() + QStringLiteral("/Font & Co.ttf");
    const QString destination = dir.path() + QStringLiteral("/moved.ttf");
    QFile file(source);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    QVPrivilegedRunner runner;
    EXPECT_EQ(runner.commandLine(QStringLiteral("/bin/mv"), { "-f", source, destination }),
        QStringList({ "/bin/mv", "-f", source, destination }));
    EXPECT_TRUE(
        runner.runWithAdministratorRights(QStringLiteral("/bin/mv"), { "-f", source, destination }).isNull());
    EXPECT_FALSE(QFileInfo::exists(source));
    EXPECT_TRUE(QFileInfo::exists(destination));
    // The tool's own failure comes back as an authorization error with its status.
    EXPECT_EQ(runner.runWithAdministratorRights(QStringLiteral("/bin/mv"), { "-f", source, destination }),
        QStringLiteral("Authorization Error: 1"));
}
