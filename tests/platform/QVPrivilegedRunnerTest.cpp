// The runner for commands that need the administrator, with a stand-in for pkexec recording what reaches it.
#include "platform/QVPrivilegedRunner.h"

#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QFileInfo>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

// Records its arguments one per line, then exits with the status it was made with.
QString makeLauncher(const QVTestHome &home, int status)
{
    const QString path = home.writeFile(QStringLiteral("launcher-%1").arg(status),
        QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\nexit %1\n").arg(status).toUtf8());
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

} // namespace

TEST(PrivilegedRunner, ArgumentsReachTheLauncherVerbatimWithoutAShell)
{
    QVTestHome home;
    const QString launcher = makeLauncher(home, 0);
    QVPrivilegedRunner runner(launcher);
    const QStringList arguments { "-f", "/srv/Fonts & Co/it's \"here\" $(reboot);.ttf",
        "/tmp/Quarantine/a b`id`" };
    EXPECT_EQ(runner.commandLine("/bin/mv", arguments), (QStringList { launcher, "/bin/mv" } + arguments));
    EXPECT_TRUE(runner.runWithAdministratorRights("/bin/mv", arguments).isNull());
    EXPECT_EQ(QString::fromUtf8(readFile(launcher + ".args")),
        (QStringList { "/bin/mv" } + arguments).join('\n') + '\n');
}

TEST(PrivilegedRunner, RefusalsAndFailuresOfTheLauncherAreReported)
{
    QVTestHome home;
    for (const auto &[launcher, text] : { std::pair { makeLauncher(home, 126), "Not Authorized" },
             std::pair { makeLauncher(home, 127), "Not Authorized" },
             std::pair { makeLauncher(home, 4), "Authorization Error: 4" },
             std::pair { QString(home.path() + "/no-launcher"), "Authorization Error: -1" } })
        EXPECT_EQ(QVPrivilegedRunner(launcher).runWithAdministratorRights("/bin/rm", { "-fr", "/x" }), text);
    // A tool without its full path would be whatever PATH finds: never run.
    const QString launcher = makeLauncher(home, 0);
    EXPECT_EQ(QVPrivilegedRunner(launcher).runWithAdministratorRights("fc-cache", { "-r" }),
        QStringLiteral("Authorization Error: -1"));
    EXPECT_FALSE(QFileInfo::exists(launcher + ".args"));
}
