// One subcommand of quorvel-cli.
#pragma once

#include "cli/QVCliHelp.h"

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
    // Synopsis, description, options and example; name and summary are
    // filled in from the two above.
    virtual QVCliHelp::Command help() const = 0;
    // arguments excludes the program and the command name.
    virtual int run(const QStringList &arguments) = 0;

    // Set once from --quiet or --verbose, before the command runs.
    enum class Verbosity { Quiet, Normal, Verbose };
    static void setVerbosity(Verbosity verbosity);
    static bool quiet();
    static bool verbose();
    // With --verbose, says on stderr what the command is doing.
    static void step(const QString &text);

protected:
    static QTextStream &out();
    static QTextStream &err();
    // Asks the question on stderr and reads the answer from stdin: true only
    // for "y" or "yes".
    static bool confirm(const QString &question);
    // Takes "--json" or "--format text|json|csv" out of the arguments into
    // *format ("text" when neither is given); false when they are wrong.
    static bool takeFormatOption(QStringList *arguments, QString *format);
    // Names on stderr every file and folder of the scan that could not be
    // read; true when there was one (the command then ends with UsageError).
    static bool reportUnreadable(const QVFontDataManager &dataManager);
};
