// One subcommand of quorvel-cli.
#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>

class QVFontDataManager;

class QVCliCommand
{
public:
    enum ExitCode { Success = 0, ProblemsFound = 1, UsageError = 2 };

    virtual ~QVCliCommand() = default;
    virtual QString name() const = 0;
    virtual QString summary() const = 0;
    // arguments excludes the program and the command name.
    virtual int run(const QStringList &arguments) = 0;

protected:
    static QTextStream &out();
    static QTextStream &err();
    // Asks the question on stderr and reads the answer from stdin: true only
    // for "y" or "yes".
    static bool confirm(const QString &question);
    // Names on stderr every file and folder of the scan that could not be
    // read; true when there was one (the command then ends with UsageError).
    static bool reportUnreadable(const QVFontDataManager &dataManager);
};
