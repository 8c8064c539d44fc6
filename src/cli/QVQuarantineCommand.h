// quorvel-cli quarantine: the fonts held in the quarantine, one row per font as
// the Quarantine view lists them (sorted by name, each with a stable id), and
// their restoring or removal. Also the resolution that `diagnose --resolve` runs.
#pragma once

#include "cli/QVCliCommand.h"
#include "engine/QVProblemFont.h"

#include <QJsonObject>
#include <QList>
#include <functional>

class QVQuarantineRuns;
class QVQuarantineStore;

class QVQuarantineCommand final : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("quarantine"); }
    QString summary() const override
    {
        return QStringLiteral("list, restore or remove the fonts in the quarantine");
    }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

    // Takes the quarantine's lock for the command's run, waiting for another
    // run (with a message) until interrupted says to give up. False, after
    // saying why, when the run cannot go on: also when it would move fonts
    // into a quarantine whose index cannot be written.
    static bool lockQuarantine(
        QVQuarantineStore *store, bool movingIn, const std::function<bool()> &interrupted = {});
    // Resolves every problem font by its recommended action (every row
    // checked): repairs in place, quarantines the rest, until stopRequested.
    // Returns what was repaired and quarantined (each font once), the errors
    // met, whether it stopped early, and why the quarantine stopped taking
    // fonts ("error") when it did.
    // Only the problem fonts include accepts are resolved (all without it).
    static QJsonObject resolve(QVQuarantineStore *store, const QList<QVProblemFontPtr> &problemFonts,
        const std::function<bool()> &stopRequested = {},
        const std::function<bool(const QVProblemFontPtr &)> &include = {});
    // The same as lines of text.
    static QString resolutionText(const QJsonObject &resolution);
    // A row's id: the same for as long as its font is in the quarantine.
    static QString rowId(const QVariantMap &row);

private:
    int list(QVQuarantineRuns &runs, bool json);
    int restore(QVQuarantineRuns &runs, const QStringList &arguments);
    int remove(QVQuarantineRuns &runs, const QStringList &arguments);
    int usage();
    // The rows named by ids (or unique beginnings of at least four
    // characters), --all or --match TEXT, in the order given; false after
    // saying what is wrong.
    bool selectRows(QVQuarantineRuns &runs, QStringList arguments, QList<int> *rows);
};
