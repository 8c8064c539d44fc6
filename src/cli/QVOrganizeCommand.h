// quorvel-cli organize --library DIR [--copy|--move] [--name postscript|family|file]
// [--[no-]foundry-folders] [--[no-]letter-folders] [--[no-]family-folders] SOURCE:
// keeps the choices in the settings, scans and diagnoses SOURCE, then copies
// or moves its healthy fonts into the library (fonts with problems stay where
// they are) and prints where each went and what failed. Exits 0 when no
// problem was found and every font arrived, 1 otherwise, 2 for bad arguments
// or a folder that cannot be written, 130 when stopped by Ctrl-C.
#pragma once

#include "cli/QVCliCommand.h"

class QVOrganizeCommand final : public QVCliCommand
{
public:
    static constexpr int Cancelled = 130;

    QString name() const override { return QStringLiteral("organize"); }
    QString summary() const override
    {
        return QStringLiteral("copy or move the healthy fonts of a folder into a library");
    }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

    // Whether files can be created in the folder (tried, not guessed from
    // permission bits).
    static bool isWritableFolder(const QString &path);
};
