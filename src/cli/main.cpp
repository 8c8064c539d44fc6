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

void printHelp(const std::vector<std::unique_ptr<QVCliCommand>> &commands)
{
    QTextStream out(stdout);
    out << "Usage: quorvel-cli [--version] [--help] COMMAND [ARGS...]\n\n"
        << "Quorvel examines font files, diagnoses damaged, duplicated and orphaned fonts,\n"
        << "and reports what it finds.\n\nCommands:\n";
    for (const auto &command : commands)
        out << "  " << command->name().leftJustified(12) << ' ' << command->summary() << '\n';
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quorvel-cli"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quorvel.org"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QV_VERSION));

    QVSettings::migratePreferences();
    QVSettings().registerUserPreferences();
    QVLog::configure();

    const auto commands = makeCommands();
    // Paths on the command line are taken as the bytes they are, not as UTF-8.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QVFileName::decode(argv[i]));
    if (arguments.isEmpty() || arguments.first() == QLatin1String("--help")
        || arguments.first() == QLatin1String("-h")) {
        printHelp(commands);
        return arguments.isEmpty() ? QVCliCommand::UsageError : QVCliCommand::Success;
    }
    if (arguments.first() == QLatin1String("--version")) {
        QTextStream(stdout) << "quorvel-cli " << QV_VERSION << '\n';
        return QVCliCommand::Success;
    }
    const QString name = arguments.takeFirst();
    for (const auto &command : commands) {
        if (command->name() == name)
            return command->run(arguments);
    }
    QTextStream(stderr) << "quorvel-cli: unknown command \"" << name << "\" (see: quorvel-cli --help)\n";
    return QVCliCommand::UsageError;
}
