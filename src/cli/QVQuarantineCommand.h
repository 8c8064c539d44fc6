// quorvel-cli quarantine: the fonts held in the quarantine, one row per font as
// the Quarantine view lists them (sorted by name, numbered from 1), and their
// restoring or removal. Also the resolution that `diagnose --resolve` runs.
#pragma once

#include "cli/QVCliCommand.h"
#include "diagnosis/QVProblemFont.h"

#include <QJsonObject>
#include <QList>

class QVFontDataManager;
class QVQuarantineRuns;

class QVQuarantineCommand final : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("quarantine"); }
    QString summary() const override
    {
        return QStringLiteral("list, restore or remove the fonts in the quarantine");
    }
    int run(const QStringList &arguments) override;

    // Resolves every problem font by its recommended action (every row
    // checked): repairs in place, quarantines the rest. Returns what was
    // repaired and quarantined, with the errors met.
    static QJsonObject resolve(QVFontDataManager *dataMgr, const QList<QVProblemFontPtr> &problemFonts);
    // The same as lines of text.
    static QString resolutionText(const QJsonObject &resolution);

private:
    int list(QVQuarantineRuns &runs, bool json);
    int restore(QVQuarantineRuns &runs, const QStringList &arguments);
    int remove(QVQuarantineRuns &runs, const QStringList &arguments);
    int usage();
    // Row numbers (1-based) to row indexes, in the order given; false after
    // reporting a bad one.
    bool parseRows(const QVQuarantineRuns &runs, const QStringList &arguments, QList<int> *rows);
};
