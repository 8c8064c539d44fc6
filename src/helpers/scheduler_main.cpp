// quorvel-scheduler: the AutoScan tray menu. Started by the application (and
// at login, through its autostart entry) while its menu is to be shown.
#include "helpers/QVHelperService.h"
#include "helpers/QVSchedulerMenu.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("QuorvelScheduler"));
    QApplication::setApplicationVersion(QStringLiteral(QV_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("org.quorvel.QuorvelScheduler"));
    // The menu is all there is: closing a window must not end the helper.
    QApplication::setQuitOnLastWindowClosed(false);
    QVLog::setLogFileName(QStringLiteral("QuorvelScheduler.log"));
    QVLog::configure();
    const QString identifier = QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier);
    // Listening before the name is taken: whoever sees the name may talk at once.
    QVHelperCommunications channel(identifier);
    QVHelperService service(identifier);
    if (!service.registerOnBus()) {
        std::fprintf(stderr, "quorvel-scheduler: no session bus, or another scheduler is running\n");
        return 1;
    }
    QVSchedulerMenu menu(&channel);
    QObject::connect(&service, &QVHelperService::quitRequested, &app, &QApplication::quit);
    QObject::connect(&menu, &QVSchedulerMenu::quitRequested, &app, &QApplication::quit);
    menu.start();
    return QApplication::exec();
}
