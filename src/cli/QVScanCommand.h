// quorvel-cli scan [--json] [FOLDER...]: finds the font files in the folders
// (by default the configured font folders), examines each as it is found, and
// prints every file with the statuses of its fonts.
#pragma once

#include "cli/QVCliCommand.h"

class QVScanCommand final : public QVCliCommand
{
public:
    // Exit status of a scan stopped by Ctrl-C, as a shell reports SIGINT.
    static constexpr int Cancelled = 130;

    QString name() const override { return QStringLiteral("scan"); }
    QString summary() const override { return QStringLiteral("find and examine the fonts in folders"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;
};
