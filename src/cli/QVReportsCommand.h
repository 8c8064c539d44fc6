// quorvel-cli reports: the saved reports, numbered oldest first as the
// Reports view lists them.
#pragma once

#include "cli/QVCliCommand.h"

class QVReportStore;

class QVReportsCommand : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("reports"); }
    QString summary() const override { return QStringLiteral("list, show, rename or remove saved reports"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

private:
    int list(QVReportStore &store, bool json);
    int show(QVReportStore &store, const QStringList &arguments);
    int rename(QVReportStore &store, const QStringList &arguments);
    int exportCopy(QVReportStore &store, const QStringList &arguments);
    int remove(QVReportStore &store, const QStringList &arguments);
    int usage();
    // The 1-based report number the text names, or 0 after saying it names none.
    int reportNumber(const QString &text, qsizetype count);
};
