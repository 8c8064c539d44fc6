#include "cli/QVCleanCachesCommand.h"

#include "store/QVReportStore.h"

int QVCleanCachesCommand::run(const QStringList &arguments)
{
    if (!arguments.isEmpty()) {
        err() << "usage: quorvel-cli clean-caches\n";
        err().flush();
        return UsageError;
    }
    QVReportStore store;
    const QString error = store.cleanFontCaches();
    if (!error.isNull()) {
        err() << "quorvel-cli: could not clean the font caches: " << error << '\n';
        err().flush();
        return ProblemsFound;
    }
    out() << "Font caches cleaned.\n";
    out().flush();
    return Success;
}

QVCliHelp::Command QVCleanCachesCommand::help() const
{
    return { {}, {}, { QStringLiteral("clean-caches") },
        QStringLiteral("Clears your fontconfig cache and rebuilds the system's, with administrator rights "
                       "(asked for through pkexec)."),
        {}, { QStringLiteral("clean-caches") } };
}
