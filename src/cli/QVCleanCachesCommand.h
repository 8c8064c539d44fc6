// quorvel-cli clean-caches: clears the user's font cache and rebuilds the
// system's with administrator rights.
#pragma once

#include "cli/QVCliCommand.h"

class QVCleanCachesCommand : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("clean-caches"); }
    QString summary() const override { return QStringLiteral("clear the font caches (asks for a password)"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;
};
