#include "cli/QVCliCommand.h"

#include <cstdio>

QTextStream &QVCliCommand::out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &QVCliCommand::err()
{
    static QTextStream stream(stderr);
    return stream;
}

bool QVCliCommand::confirm(const QString &question)
{
    err() << question << " [y/N] ";
    err().flush();
    char answer[16] = {};
    if (!std::fgets(answer, sizeof answer, stdin))
        return false;
    const QString reply = QString::fromLocal8Bit(answer).trimmed().toLower();
    return reply == QLatin1String("y") || reply == QLatin1String("yes");
}
