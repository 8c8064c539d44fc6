#include "cli/QVCliHelp.h"

#include <QRegularExpression>

namespace
{

const QString kProgram = QStringLiteral("quorvel-cli");

QString wrapped(const QString &text, int indent, int width = 78)
{
    QString result;
    const QString margin(indent, QLatin1Char(' '));
    for (const QString &paragraph : text.split(QStringLiteral("\n\n"))) {
        if (!result.isEmpty())
            result += QLatin1Char('\n');
        QString line;
        for (const QString &word : paragraph.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            if (!line.isEmpty() && indent + line.size() + 1 + word.size() > width) {
                result += margin + line + QLatin1Char('\n');
                line.clear();
            }
            line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
        if (!line.isEmpty())
            result += margin + line + QLatin1Char('\n');
    }
    return result;
}

QString optionList(const QList<QPair<QString, QString>> &options)
{
    QString text;
    for (const auto &[option, meaning] : options) {
        if (option.size() <= 20)
            text += QStringLiteral("  ") + option.leftJustified(22) + wrapped(meaning, 24).mid(24);
        else
            text += QStringLiteral("  ") + option + QLatin1Char('\n') + wrapped(meaning, 24);
    }
    return text;
}

// Text as troff reads it: a backslash, and a dot or quote that starts a line,
// would be taken as requests.
QString roff(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\e"));
    escaped.replace(QLatin1Char('-'), QStringLiteral("\\-"));
    escaped.replace(QRegularExpression(QStringLiteral("^([.'])"), QRegularExpression::MultilineOption),
        QStringLiteral("\\&\\1"));
    return escaped;
}

QString roffParagraphs(const QString &text)
{
    QStringList paragraphs;
    for (const QString &paragraph : text.split(QStringLiteral("\n\n")))
        paragraphs << roff(paragraph.simplified());
    return paragraphs.join(QStringLiteral("\n.PP\n")) + QLatin1Char('\n');
}

QString roffOptions(const QList<QPair<QString, QString>> &options)
{
    QString text;
    for (const auto &[option, meaning] : options)
        text += QStringLiteral(".TP\n\\fB") + roff(option) + QStringLiteral("\\fR\n")
            + roff(meaning.simplified()) + QLatin1Char('\n');
    return text;
}

} // namespace

QList<QPair<QString, QString>> QVCliHelp::globalOptions()
{
    return {
        { QStringLiteral("-h, --help"),
            QStringLiteral("Show the help of the program or of the command, and exit.") },
        { QStringLiteral("-q, --quiet"),
            QStringLiteral("Print only the problems found and the errors met: no "
                           "summaries, no progress bar.") },
        { QStringLiteral("-v, --verbose"),
            QStringLiteral("Say what each step does, and let the program's internal log lines through to "
                           "standard error (they are kept off it otherwise).") },
        { QStringLiteral("--version"), QStringLiteral("Print the program's version and exit.") },
    };
}

QString QVCliHelp::exitStatus()
{
    return QStringLiteral("0 success; 1 problem fonts found, or an action that did not fully succeed; 2 bad "
                          "usage, or input that could not be read; 130 stopped by Ctrl-C or SIGTERM (a "
                          "resolution stops after the font in hand and keeps, and prints, what it did).");
}

QString QVCliHelp::text(const Command &command)
{
    QString text = QStringLiteral("Usage: ");
    for (int i = 0; i < command.synopsis.size(); ++i)
        text += (i == 0 ? QString() : QStringLiteral("       ")) + kProgram + QLatin1Char(' ')
            + command.synopsis.at(i) + QLatin1Char('\n');
    text += QLatin1Char('\n') + wrapped(command.description, 0);
    if (!command.options.isEmpty())
        text += QStringLiteral("\nOptions:\n") + optionList(command.options);
    text += QStringLiteral("\nEvery command also takes -h/--help, -q/--quiet and -v/--verbose.\n");
    if (!command.examples.isEmpty()) {
        text += command.examples.size() == 1 ? QStringLiteral("\nExample:\n")
                                             : QStringLiteral("\nExamples:\n");
        for (const QString &example : command.examples)
            text += QStringLiteral("  ") + kProgram + QLatin1Char(' ') + example + QLatin1Char('\n');
    }
    return text;
}

QString QVCliHelp::programText(const QList<Command> &commands)
{
    QString text
        = QStringLiteral("Usage: quorvel-cli [--version] [--help] [--quiet|--verbose] COMMAND [ARGS...]\n\n"
                         "Quorvel examines font files, diagnoses damaged, duplicated and orphaned fonts,\n"
                         "and reports what it finds.\n\nCommands:\n");
    for (const Command &command : commands)
        text += QStringLiteral("  ") + command.name.leftJustified(12) + QLatin1Char(' ') + command.summary
            + QLatin1Char('\n');
    text += QStringLiteral("\nOptions:\n") + optionList(globalOptions());
    text += QStringLiteral("\nExit status:\n") + wrapped(exitStatus(), 2);
    text += QStringLiteral("\nSee \"quorvel-cli COMMAND --help\" for a command's options and an example.\n");
    return text;
}

QString QVCliHelp::manPage(const QList<Command> &commands, const QString &version)
{
    QString page
        = QStringLiteral(".TH QUORVEL\\-CLI 1 \"\" \"quorvel-cli %1\" \"User Commands\"\n").arg(version);
    page += QStringLiteral(
        ".ad l\n.nh\n.SH NAME\nquorvel\\-cli \\- examine, diagnose, repair and organize font files\n");
    page += QStringLiteral(".SH SYNOPSIS\n");
    for (const Command &command : commands) {
        for (const QString &form : command.synopsis)
            page += QStringLiteral(".br\n\\fBquorvel\\-cli\\fR ") + roff(form) + QLatin1Char('\n');
    }
    page += QStringLiteral(".SH DESCRIPTION\n")
        + roffParagraphs(QStringLiteral(
            "quorvel-cli runs the Quorvel core without a screen, for servers, scripts and administrators. It "
            "examines the font files of folders (TrueType, OpenType and collections, PostScript outline "
            "files and classic Mac suitcases with their resource forks, wherever the fork is stored), "
            "finds damaged, duplicated and orphaned fonts, repairs or quarantines them, gathers healthy "
            "fonts into a library, and writes HTML reports."));
    page += QStringLiteral(".SH OPTIONS\n") + roffOptions(globalOptions());
    page += QStringLiteral(".SH COMMANDS\n");
    for (const Command &command : commands) {
        page += QStringLiteral(".SS %1\n").arg(roff(command.name));
        for (const QString &form : command.synopsis)
            page += QStringLiteral(".br\n\\fBquorvel\\-cli\\fR ") + roff(form) + QLatin1Char('\n');
        page += QStringLiteral(".PP\n") + roffParagraphs(command.description);
        page += roffOptions(command.options);
        for (const QString &example : command.examples)
            page += QStringLiteral(".PP\nExample:\n.RS\n.nf\nquorvel\\-cli ") + roff(example)
                + QStringLiteral("\n.fi\n.RE\n");
    }
    page += QStringLiteral(".SH EXIT STATUS\n") + roffParagraphs(exitStatus());
    page += QStringLiteral(".SH FILES\n")
        + roffParagraphs(QStringLiteral(
            "$XDG_CONFIG_HOME/org.quorvel.Quorvel.conf holds the settings. $XDG_DATA_HOME/Quorvel holds the "
            "quarantine, the reports and the log (Quorvel.log, written when the doLogging setting is on); it "
            "is private to its owner."));
    return page;
}
