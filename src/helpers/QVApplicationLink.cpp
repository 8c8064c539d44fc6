#include "helpers/QVApplicationLink.h"

#include "platform/QVLoginItem.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QCoreApplication>
#include <QDBusServiceWatcher>
#include <QProcess>

namespace
{

const QString kApplicationID = QString::fromLatin1(QVSettings::kBundleIdentifier);

} // namespace

QVApplicationLink::QVApplicationLink(QVHelperCommunications *channel, QObject *parent)
    : QObject(parent)
    , m_channel(channel)
    , m_watcher(new QDBusServiceWatcher(
          kApplicationID, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForUnregistration, this))
    , m_applicationPath(QCoreApplication::applicationDirPath() + QStringLiteral("/quorvel"))
{
    connect(m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        // An application that goes before it asked takes the command with it.
        m_pendingCommand = QString("");
        Q_EMIT applicationQuit();
    });
}

bool QVApplicationLink::isApplicationRunning() const
{
    return QVLoginItem::isRunning(kApplicationID);
}

bool QVApplicationLink::sendCommand(const QString &command)
{
    if (isApplicationRunning()) {
        m_channel->sendCommand(command, kApplicationID, {}, false);
        return true;
    }
    if (!m_pendingCommand.isEmpty()) {
        // Already starting: the newer command replaces the held one.
        m_pendingCommand = command;
        return true;
    }
    if (!QProcess::startDetached(m_applicationPath, {})) {
        qCWarning(lcHelpers).noquote() << "Could not start" << m_applicationPath << "for" << command;
        return false;
    }
    qCInfo(lcHelpers).noquote() << "Started" << m_applicationPath << "holding" << command;
    m_pendingCommand = command;
    return true;
}

bool QVApplicationLink::openApplication()
{
    if (isApplicationRunning())
        return true;
    const bool started = QProcess::startDetached(m_applicationPath, {});
    if (!started)
        qCWarning(lcHelpers).noquote() << "Could not start" << m_applicationPath;
    return started;
}

bool QVApplicationLink::handleCommand(const QString &command, const QString &sender)
{
    if (command != QLatin1String("kCommand_HasPendingCommands") || sender != kApplicationID)
        return false;
    m_channel->sendResponse(command, sender,
        { { QStringLiteral("hasPending"),
            m_pendingCommand.isEmpty() ? QStringLiteral("NO") : QStringLiteral("YES") } });
    return true;
}

bool QVApplicationLink::handleResponse(
    const QString &response, const QString &sender, const QVariantMap &options)
{
    if (response != QLatin1String("kResponse_Ready") || sender != kApplicationID)
        return false;
    if (!m_pendingCommand.isEmpty()) {
        const QString command = m_pendingCommand;
        m_pendingCommand = QString("");
        m_channel->sendCommand(command, kApplicationID, {}, false);
    }
    Q_EMIT applicationReady(
        options.value(QStringLiteral("kPayloadOptions")).toString() == QLatin1String("autoScanEnabled"));
    return true;
}

const QStringList &QVApplicationLink::autoScanKeys()
{
    static const QStringList keys { QStringLiteral("fontFolderPaths"), QStringLiteral("autoScanFrequency"),
        QStringLiteral("autoScanModifiedFolders"), QStringLiteral("lastAutoScanDate"),
        QStringLiteral("doLogging") };
    return keys;
}

void QVApplicationLink::copyApplicationSettings(QVSettings &into)
{
    const QVSettings application;
    const QVariantMap defaults = application.getDefaultsDictionary();
    for (const QString &key : autoScanKeys()) {
        const QVariant value = application.hasStoredValue(key) ? application.value(key) : defaults.value(key);
        if (value.isValid())
            into.setValue(key, value);
        else
            into.removeValue(key);
    }
    into.setFontFolderPaths(application.fontFolderPaths());
}

void QVApplicationLink::storeSettings(QVSettings &into, const QVariantMap &settings)
{
    if (settings.contains(QStringLiteral("fontFolderPaths")))
        into.setFontFolderPaths(settings.value(QStringLiteral("fontFolderPaths")).toStringList());
    if (settings.contains(QStringLiteral("autoScanFrequency")))
        into.setAutoScanFrequency(settings.value(QStringLiteral("autoScanFrequency")).toString());
    if (settings.contains(QStringLiteral("autoScanModifiedFolders")))
        into.setAutoScanModifiedFolders(settings.value(QStringLiteral("autoScanModifiedFolders")).toBool());
    if (const QDateTime last = settings.value(QStringLiteral("kAutoScanLastDate")).toDateTime();
        last.isValid())
        into.setLastAutoScanDate(last);
}
