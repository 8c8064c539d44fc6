// quorvel-cli rsrc [--json] FILE: where a file's fork and Finder info live, its
// type, creator and flags, and every resource in the fork.
#pragma once

#include "cli/QVCliCommand.h"

#include <QJsonObject>

class QVRsrcCommand final : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("rsrc"); }
    QString summary() const override { return QStringLiteral("list a file's resource fork and Finder info"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

    // The listing as JSON; *error gets a message when the file cannot be read.
    static QJsonObject describe(const QString &path, QString *error);
};
