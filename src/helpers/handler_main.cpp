// quorvel-handler [--startup-delay MS] [--settle-delay MS]: the auto-scan
// helper. No window; started by the application (and at login, through its
// autostart entry) while auto-scanning is on.
#include "helpers/QVAutoScanHandler.h"
#include "helpers/QVFolderWatcher.h"
#include "helpers/QVHelperService.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("QuorvelHandler"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QV_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Runs Quorvel's scheduled and folder-change scans."));
    parser.addHelpOption();
    const QCommandLineOption startupDelay(QStringLiteral("startup-delay"),
        QStringLiteral("Wait before the first look at the schedule (default 10000)."), QStringLiteral("ms"));
    const QCommandLineOption settleDelay(QStringLiteral("settle-delay"),
        QStringLiteral("Quiet time after a folder change before a scan (default %1).")
            .arg(QVFolderWatcher::kDefaultSettleMs),
        QStringLiteral("ms"));
    const QCommandLineOption busCheck(QStringLiteral("bus-check"),
        QStringLiteral("How often to check that the session bus is still there (default 60000)."),
        QStringLiteral("ms"));
    parser.addOptions({ startupDelay, settleDelay, busCheck });
    parser.process(app);

    QVLog::setLogFileName(QStringLiteral("QuorvelHandler.log"));
    QVLog::configure();
    const QString identifier = QString::fromLatin1(QVSettings::kHandlerBundleIdentifier);
    // Listening before the name is taken: whoever sees the name may talk at once.
    QVHelperCommunications channel(identifier);
    QVHelperService service(identifier);
    if (parser.isSet(busCheck))
        service.setBusCheckInterval(parser.value(busCheck).toInt());
    if (!service.registerOnBus()) {
        std::fprintf(stderr, "quorvel-handler: no session bus, or another handler is running\n");
        return 1;
    }
    QVAutoScanHandler handler(&channel);
    if (parser.isSet(startupDelay))
        handler.setStartupDelay(parser.value(startupDelay).toInt());
    if (parser.isSet(settleDelay))
        handler.folderWatcher()->setSettleDelay(parser.value(settleDelay).toInt());
    QObject::connect(&service, &QVHelperService::quitRequested, &app, &QCoreApplication::quit);
    QObject::connect(&handler, &QVAutoScanHandler::quitRequested, &app, &QCoreApplication::quit);
    handler.start();
    return QCoreApplication::exec();
}
