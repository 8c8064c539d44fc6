// Runs quorvel-cli as a separate process inside a test's temporary home.
#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <optional>

class QVTestHome;

struct QVCliRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// The environment of a process that lives in the test's home.
QProcessEnvironment cliEnvironment(const QVTestHome &home);
// Runs the command line with the arguments, feeding it input on stdin, and
// waits for it (two minutes at most).
QVCliRun runCli(const QVTestHome &home, const QStringList &arguments, const QByteArray &input = QByteArray());
// Runs the command line as an ordinary user, for whom file permissions hold:
// as root, the home is given to the user "nobody" (65534) and the run goes
// through setpriv; std::nullopt when that cannot be done here.
std::optional<QVCliRun> runCliAsOrdinaryUser(const QVTestHome &home, const QStringList &arguments);
