#include "support/QVCliRunner.h"

#include "support/QVTestHome.h"

#include <QProcess>

QProcessEnvironment cliEnvironment(const QVTestHome &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
    return env;
}

QVCliRun runCli(const QVTestHome &home, const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    process.setProcessEnvironment(cliEnvironment(home));
    process.start(QStringLiteral(QV_CLI_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}
