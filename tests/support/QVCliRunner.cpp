#include "support/QVCliRunner.h"

#include "support/QVTestHome.h"

#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <unistd.h>

QProcessEnvironment cliEnvironment(const QVTestHome &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
    return env;
}

namespace
{

QVCliRun run(const QVTestHome &home, const QString &program, const QStringList &arguments,
    const QByteArray &input = QByteArray())
{
    QProcess process;
    process.setProcessEnvironment(cliEnvironment(home));
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

} // namespace

QVCliRun runCli(const QVTestHome &home, const QStringList &arguments, const QByteArray &input)
{
    return run(home, QStringLiteral(QV_CLI_PATH), arguments, input);
}

std::optional<QVCliRun> runCliAsOrdinaryUser(const QVTestHome &home, const QStringList &arguments)
{
    if (::geteuid() != 0)
        return runCli(home, arguments);
    const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
    if (setpriv.isEmpty())
        return std::nullopt;
    constexpr uid_t kNobody = 65534;
    if (::chown(QFile::encodeName(home.path()).constData(), kNobody, kNobody) != 0)
        return std::nullopt;
    QDirIterator it(home.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (::lchown(QFile::encodeName(it.next()).constData(), kNobody, kNobody) != 0)
            return std::nullopt;
    }
    return run(home, setpriv,
        QStringList { QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
            QStringLiteral("--clear-groups"), QStringLiteral("--"), QStringLiteral(QV_CLI_PATH) }
            + arguments);
}
