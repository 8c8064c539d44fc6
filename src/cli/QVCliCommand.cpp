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
