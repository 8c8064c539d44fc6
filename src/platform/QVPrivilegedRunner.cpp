#include "platform/QVPrivilegedRunner.h"

#include "settings/QVLog.h"

#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QProcess>
#include <unistd.h>

namespace
{

QMutex sharedMutex;
std::shared_ptr<QVPrivilegedRunner> sharedRunner;

QString defaultLauncher()
{
    if (::geteuid() == 0)
        return QString();
    // Where the package puts it, never what PATH finds first (named even when
    // missing, so that starting it fails with a status).
    return QStringLiteral("/usr/bin/pkexec");
}

} // namespace

QVPrivilegedRunner::QVPrivilegedRunner(const QString &launcher)
    : m_launcher(launcher.isEmpty() ? defaultLauncher() : launcher)
{
}

QVPrivilegedRunner::~QVPrivilegedRunner() = default;

QStringList QVPrivilegedRunner::commandLine(const QString &program, const QStringList &arguments) const
{
    QStringList line;
    if (!m_launcher.isEmpty())
        line << m_launcher;
    line << program << arguments;
    return line;
}

QString QVPrivilegedRunner::errorTextForExitStatus(int status)
{
    if (status == 0)
        return QString();
    // pkexec: 126 the prompt was dismissed, 127 the user was not authorized.
    if (status == 126 || status == 127)
        return QString::fromLatin1(kNotAuthorized);
    return QStringLiteral("Authorization Error: %1").arg(status);
}

QString QVPrivilegedRunner::runWithAdministratorRights(const QString &program, const QStringList &arguments)
{
    // A tool found through PATH could be anyone's program run as root.
    if (!QFileInfo(program).isAbsolute()) {
        qCWarning(lcStore) << "Refused to run a tool without its full path:" << program;
        return errorTextForExitStatus(-1);
    }
    QStringList line = commandLine(program, arguments);
    const QString executable = line.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // A terminal password agent reads the answer from our input.
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(executable, line);
    if (!process.waitForStarted(-1)) {
        qCWarning(lcStore) << "Could not start" << executable << process.errorString();
        return errorTextForExitStatus(-1);
    }
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit)
        return errorTextForExitStatus(-1);
    return errorTextForExitStatus(process.exitCode());
}

std::shared_ptr<QVPrivilegedRunner> QVPrivilegedRunner::shared()
{
    QMutexLocker locker(&sharedMutex);
    if (!sharedRunner)
        sharedRunner = std::make_shared<QVPrivilegedRunner>();
    return sharedRunner;
}

void QVPrivilegedRunner::setShared(std::shared_ptr<QVPrivilegedRunner> runner)
{
    QMutexLocker locker(&sharedMutex);
    sharedRunner = std::move(runner);
}
