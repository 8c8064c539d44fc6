// A stand-in helper: qv-helper-peer BUNDLE-ID owns BUNDLE-ID on the session bus, prints "ready", then
// prints each message addressed to it and answers. A command gets a response of its name ("hasPending":
// "YES" for kCommand_HasPendingCommands, else its own options); kCommand_Reset_Settings also sends
// kCommand_RemoveMenu to the scheduler, then kCommand_ShowAutoscanSettings back; a response comes back
// as kCommand_ScanFonts with its options, so that dates make the round trip.
#include "settings/QVHelperCommunications.h"
#include "settings/QVSettings.h"
#include "support/QVHelperListener.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <cstdio>

namespace
{

struct Peer final {
    QVHelperCommunications *channel;

    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
    {
        print("command", command, sender, options);
        if (command == QLatin1String("kCommand_HasPendingCommands")) {
            channel->sendResponse(command, sender,
                { { QStringLiteral("kPayloadOptions"),
                    QVariantMap { { QStringLiteral("hasPending"), "YES" } } } });
        } else if (command == QLatin1String("kCommand_Reset_Settings")) {
            channel->sendCommand(QStringLiteral("kCommand_RemoveMenu"),
                QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier), {}, false);
            channel->sendCommand(QStringLiteral("kCommand_ShowAutoscanSettings"), sender, {}, false);
        } else {
            channel->sendResponse(command, sender, options);
        }
    }
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        print("response", response, sender, options);
        channel->sendCommand(QStringLiteral("kCommand_ScanFonts"), sender, options, false);
    }
    static void print(
        const char *kind, const QString &name, const QString &sender, const QVariantMap &options)
    {
        std::printf("%s %s from %s with %s\n", kind, qPrintable(name), qPrintable(sender),
            qPrintable(QVHelperCommunications::describe(options)));
        std::fflush(stdout);
    }
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: qv-helper-peer BUNDLE-ID\n");
        return 2;
    }
    const QString identifier = QString::fromLocal8Bit(argv[1]);
    QVHelperCommunications channel(identifier);
    if (!channel.isAvailable())
        return 1;
    Peer peer { &channel };
    qvtest::listen(channel, peer);
    QDBusConnection::sessionBus().interface()->registerService(identifier);
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
