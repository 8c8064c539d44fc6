// A stand-in helper process for the two-process tests of the helper channel.
// Run as: qv-helper-peer BUNDLE-ID. It owns BUNDLE-ID on the session bus,
// prints "ready", then prints every message addressed to it and answers:
// - a command gets a response of the same name to its sender
//   ("kCommand_HasPendingCommands" with {"hasPending": "YES"}, others with
//   their own options);
// - "kCommand_Reset_Settings" also makes it send "kCommand_RemoveMenu" to the
//   scheduler and then "kCommand_ShowAutoscanSettings" to the sender;
// - a response is echoed back to its sender as "kCommand_ScanFonts" with the
//   same options, so that dates make the round trip.
#include "settings/QVHelperCommunications.h"
#include "settings/QVSettings.h"
#include "support/QVHelperListener.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDateTime>
#include <cstdio>

namespace
{

class Peer final
{
public:
    explicit Peer(QVHelperCommunications *channel)
        : m_channel(channel)
    {
    }

    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
    {
        print("command", command, sender, options);
        if (command == QLatin1String("kCommand_HasPendingCommands")) {
            m_channel->sendResponse(command, sender,
                { { QStringLiteral("kPayloadOptions"),
                    QVariantMap { { QStringLiteral("hasPending"), QStringLiteral("YES") } } } });
            return;
        }
        if (command == QLatin1String("kCommand_Reset_Settings")) {
            m_channel->sendCommand(QStringLiteral("kCommand_RemoveMenu"),
                QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier), {}, false);
            m_channel->sendCommand(QStringLiteral("kCommand_ShowAutoscanSettings"), sender, {}, false);
            return;
        }
        m_channel->sendResponse(command, sender, options);
    }

    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        print("response", response, sender, options);
        m_channel->sendCommand(QStringLiteral("kCommand_ScanFonts"), sender, options, false);
    }

private:
    static void print(
        const char *kind, const QString &name, const QString &sender, const QVariantMap &options)
    {
        std::printf("%s %s from %s with %s\n", kind, qPrintable(name), qPrintable(sender),
            qPrintable(QVHelperCommunications::describe(options)));
        std::fflush(stdout);
    }

    QVHelperCommunications *m_channel;
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
    Peer peer(&channel);
    qvtest::listen(channel, peer);
    QDBusConnection::sessionBus().interface()->registerService(identifier);
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
