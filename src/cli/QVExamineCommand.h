// quorvel-cli examine [--json] FILE...: examines font files as a scan does
// and prints every font found in them with its defects.
#pragma once

#include "cli/QVCliCommand.h"

#include <QJsonObject>

class QVFontDataManager;

class QVExamineCommand final : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("examine"); }
    QString summary() const override { return QStringLiteral("examine font files and list their defects"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

    // The data manager's records as one JSON object, keyed by field name.
    static QJsonObject toJson(const QVFontDataManager &dataMgr);
    // The records as a readable table, one line a font, defects beside it.
    static void printTable(const QVFontDataManager &dataMgr);
};
