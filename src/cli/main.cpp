// quorvel-cli: the Quorvel core without a screen, for servers, scripts and tests.
#include "cli/QVCleanCachesCommand.h"
#include "cli/QVCliCommand.h"
#include "cli/QVDiagnoseCommand.h"
#include "cli/QVExamineCommand.h"
#include "cli/QVOrganizeCommand.h"
#include "cli/QVQuarantineCommand.h"
#include "cli/QVReportsCommand.h"
#include "cli/QVRsrcCommand.h"
#include "cli/QVScanCommand.h"
#include "cli/QVSettingsCommand.h"
#include "platform/QVFileName.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

std::vector<std::unique_ptr<QVCliCommand>> makeCommands()
{
    std::vector<std::unique_ptr<QVCliCommand>> commands;
    commands.push_back(std::make_unique<QVExamineCommand>());
    commands.push_back(std::make_unique<QVSettingsCommand>());
    commands.push_back(std::make_unique<QVScanCommand>());
    commands.push_back(std::make_unique<QVDiagnoseCommand>());
    commands.push_back(std::make_unique<QVQuarantineCommand>());
    commands.push_back(std::make_unique<QVOrganizeCommand>());
    commands.push_back(std::make_unique<QVRsrcCommand>());
    commands.push_back(std::make_unique<QVReportsCommand>());
    commands.push_back(std::make_unique<QVCleanCachesCommand>());
    return commands;
}

QList<QVCliHelp::Command> helpOf(const std::vector<std::unique_ptr<QVCliCommand>> &commands)
{
    QList<QVCliHelp::Command> helps;
    for (const auto &command : commands) {
        QVCliHelp::Command help = command->help();
        help.name = command->name();
        help.summary = command->summary();
        helps.append(help);
    }
    return helps;
}

bool verboseRun = false;

// The core's log lines are for whoever asked for them: with --verbose they go
// to stderr, otherwise only to the log file (when logging is on).
void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (verboseRun || type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quorvel-cli"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quorvel.org"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QV_VERSION));

    const auto commands = makeCommands();
    // Paths on the command line are taken as the bytes they are, not as UTF-8.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QVFileName::decode(argv[i]));

    // The manual page, made at build time from the help texts; touches no
    // settings or data.
    if (arguments.value(0) == QLatin1String("help-man") && arguments.size() == 2) {
        QFile page(arguments.at(1));
        const QByteArray text = QVCliHelp::manPage(helpOf(commands), QStringLiteral(QV_VERSION)).toUtf8();
        if (!page.open(QIODevice::WriteOnly | QIODevice::Truncate) || page.write(text) != text.size()) {
            QTextStream(stderr) << "quorvel-cli: cannot write " << arguments.at(1) << '\n';
            return QVCliCommand::UsageError;
        }
        return QVCliCommand::Success;
    }

    const bool quiet
        = arguments.removeAll(QStringLiteral("--quiet")) + arguments.removeAll(QStringLiteral("-q")) > 0;
    verboseRun
        = arguments.removeAll(QStringLiteral("--verbose")) + arguments.removeAll(QStringLiteral("-v")) > 0;
    qInstallMessageHandler(messageHandler);
    if (quiet && verboseRun) {
        QTextStream(stderr) << "quorvel-cli: --quiet and --verbose cannot be used together\n";
        return QVCliCommand::UsageError;
    }
    QVCliCommand::setVerbosity(quiet ? QVCliCommand::Verbosity::Quiet
            : verboseRun             ? QVCliCommand::Verbosity::Verbose
                                     : QVCliCommand::Verbosity::Normal);

    if (arguments.isEmpty() || arguments.first() == QLatin1String("--help")
        || arguments.first() == QLatin1String("-h")) {
        QTextStream(stdout) << QVCliHelp::programText(helpOf(commands));
        return arguments.isEmpty() ? QVCliCommand::UsageError : QVCliCommand::Success;
    }
    if (arguments.first() == QLatin1String("--version")) {
        QTextStream(stdout) << "quorvel-cli " << QV_VERSION << '\n';
        return QVCliCommand::Success;
    }
    const QString name = arguments.takeFirst();
    for (const auto &command : commands) {
        if (command->name() != name)
            continue;
        if (arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h"))) {
            QVCliHelp::Command help = command->help();
            help.name = command->name();
            QTextStream(stdout) << QVCliHelp::text(help);
            return QVCliCommand::Success;
        }
        QVSettings::migratePreferences();
        QVSettings().registerUserPreferences();
        QVLog::configure();
        if (verboseRun)
            QLoggingCategory::setFilterRules(QStringLiteral("quorvel.*.debug=true\nquorvel.*.info=true"));
        return command->run(arguments);
    }
    QTextStream(stderr) << "quorvel-cli: unknown command \"" << name << "\" (see: quorvel-cli --help)\n";
    return QVCliCommand::UsageError;
}
