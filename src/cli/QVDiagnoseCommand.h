// quorvel-cli diagnose [--json] [--resolve] [FOLDER...]: finds and examines the
// fonts in the folders (by default the configured font folders), runs the
// diagnosis with the settings in force, and prints the outcome, the counters
// and the problem fonts; --resolve then repairs or quarantines every problem
// font by its recommended action. Exits 0 when no problem was found, 1 when
// problems were found.
#pragma once

#include "cli/QVCliCommand.h"

class QVDiagnoseCommand final : public QVCliCommand
{
public:
    // Exit status of a run stopped by Ctrl-C, as a shell reports SIGINT.
    static constexpr int Cancelled = 130;

    QString name() const override { return QStringLiteral("diagnose"); }
    QString summary() const override
    {
        return QStringLiteral("find damaged, orphaned and duplicate fonts in folders");
    }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;
};
