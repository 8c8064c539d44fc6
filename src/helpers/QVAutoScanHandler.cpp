#include "helpers/QVAutoScanHandler.h"

#include "helpers/QVApplicationLink.h"
#include "helpers/QVFolderWatcher.h"
#include "settings/QVAutoScanSchedule.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <algorithm>

namespace
{

const QString kApplicationID = QString::fromLatin1(QVSettings::kBundleIdentifier);
const QString kPayloadOptions = QStringLiteral("kPayloadOptions");
const QString kFrequency = QStringLiteral("autoScanFrequency");
// A start that failed is not tried again for this long.
constexpr qint64 kRetrySecs = 60 * 60;

} // namespace

QVAutoScanHandler::QVAutoScanHandler(QVHelperCommunications *channel, QObject *parent)
    : QObject(parent)
    , m_channel(channel)
    , m_settings(std::make_unique<QVSettings>(QString::fromLatin1(QVSettings::kHandlerBundleIdentifier)))
    , m_link(new QVApplicationLink(channel, this))
    , m_watcher(new QVFolderWatcher(this))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, &QVAutoScanHandler::checkSchedule);
    connect(m_watcher, &QVFolderWatcher::foldersChanged, this,
        [this] { requestScan(QStringLiteral("an AutoScan folder was modified")); });
    connect(m_channel, &QVHelperCommunications::commandReceived, this, &QVAutoScanHandler::gotCommand);
    connect(m_channel, &QVHelperCommunications::responseReceived, this, &QVAutoScanHandler::gotResponse);
    connect(m_link, &QVApplicationLink::applicationReady, this, [this](bool enabled) {
        if (!enabled)
            Q_EMIT quitRequested();
    });
    connect(m_link, &QVApplicationLink::applicationQuit, this, [this] {
        // An auto-scan whose problems were left unresolved never answers: the
        // application's own record of its last auto-scan tells.
        const QDateTime recorded = QVSettings().lastAutoScanDate();
        if (recorded.isValid() && recorded > m_settings->lastAutoScanDate())
            m_settings->setLastAutoScanDate(recorded);
        m_scanInFlightSince = QDateTime();
        checkSchedule();
    });
}

QVAutoScanHandler::~QVAutoScanHandler() = default;

void QVAutoScanHandler::start()
{
    if (!m_settings->hasStoredValue(kFrequency))
        QVApplicationLink::copyApplicationSettings(*m_settings);
    QVLog::setEnabled(m_settings->doLogging());
    reload();
    scheduleCheck(m_startupDelayMs);
    if (m_link->isApplicationRunning())
        m_channel->sendCommand(QStringLiteral("kCommand_GetSettings"), kApplicationID, {}, false);
}

void QVAutoScanHandler::applySettings(const QVariantMap &settings)
{
    QVApplicationLink::storeSettings(*m_settings, settings);
    reload();
    checkSchedule();
}

void QVAutoScanHandler::reload()
{
    // The schedule counts from the moment the handler first had one.
    if (!m_settings->lastAutoScanDate().isValid())
        m_settings->setLastAutoScanDate(now());
    m_watcher->setFolders(
        m_settings->autoScanModifiedFolders() ? m_settings->fontFolderPaths() : QStringList());
    qCInfo(lcHelpers).noquote() << "AutoScan" << m_settings->autoScanFrequency() << "watching"
                                << m_watcher->watchedFolders().size() << "folders; next scheduled scan"
                                << nextScanDate().toString(Qt::ISODate);
}

QDateTime QVAutoScanHandler::nextScanDate() const
{
    return QVAutoScanSchedule::nextScanDate(
        m_settings->lastAutoScanDate(), m_settings->autoScanFrequency(), now());
}

void QVAutoScanHandler::checkSchedule()
{
    const QDateTime current = now();
    if (isScanInFlight() && m_scanInFlightSince.secsTo(current) > kScanAnswerTimeoutSecs)
        m_scanInFlightSince = QDateTime();
    if (QVAutoScanSchedule::isDue(m_settings->lastAutoScanDate(), m_settings->autoScanFrequency(), current)
        && !isScanInFlight() && !(m_retryAfter.isValid() && current < m_retryAfter))
        requestScan(QStringLiteral("the scheduled scan is due"));

    // Nothing scheduled and nothing awaited: no timer at all; inotify and the
    // bus wake the helper when there is something to do.
    QDateTime next = nextScanDate();
    if (m_retryAfter.isValid() && next.isValid() && next < m_retryAfter)
        next = m_retryAfter;
    if (isScanInFlight())
        scheduleCheck(kMaxCheckIntervalMs);
    else if (next.isValid())
        scheduleCheck(int(std::clamp<qint64>(current.msecsTo(next), 1000, kMaxCheckIntervalMs)));
    else
        m_timer.stop();
}

void QVAutoScanHandler::scheduleCheck(int milliseconds)
{
    m_timer.start(milliseconds);
}

void QVAutoScanHandler::requestScan(const QString &reason)
{
    if (isScanInFlight()) {
        qCInfo(lcHelpers).noquote() << "AutoScan: a scan is under way;" << reason << "- nothing more asked";
        return;
    }
    qCInfo(lcHelpers).noquote() << "AutoScan:" << reason << "- asking for a scan";
    const QDateTime current = now();
    if (!m_link->sendCommand(QStringLiteral("kCommand_ScanFonts"))) {
        m_retryAfter = current.addSecs(kRetrySecs);
        return;
    }
    m_retryAfter = QDateTime();
    m_scanInFlightSince = current;
    m_watcher->discardPendingChange();
    Q_EMIT scanRequested(reason);
}

void QVAutoScanHandler::scanEnded(const QDateTime &lastAutoScanDate)
{
    if (lastAutoScanDate.isValid())
        m_settings->setLastAutoScanDate(lastAutoScanDate);
    m_scanInFlightSince = QDateTime();
    // Fonts the resolution moved out of a watched folder are no reason to scan again.
    m_watcher->discardPendingChange();
    checkSchedule();
}

void QVAutoScanHandler::gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
{
    if (m_link->handleCommand(command, sender))
        return;
    if (command == QLatin1String("kCommand_Set_Logging")) {
        const bool enabled
            = options.value(kPayloadOptions).toString() == QLatin1String("loggingEnabledEnabled");
        m_settings->setDoLogging(enabled);
        QVLog::setEnabled(enabled);
    } else if (command == QLatin1String("kCommand_Reset_Settings")) {
        QVApplicationLink::copyApplicationSettings(*m_settings);
        QVLog::setEnabled(m_settings->doLogging());
        reload();
        checkSchedule();
    }
}

void QVAutoScanHandler::gotResponse(
    const QString &response, const QString &sender, const QVariantMap &options)
{
    if (m_link->handleResponse(response, sender, options))
        return;
    if (response == QLatin1String("kResponse_Settings"))
        applySettings(options.value(kPayloadOptions).toMap());
    else if (response == QLatin1String("kResponse_ScanFonts_Complete"))
        scanEnded(options.value(kPayloadOptions).toDateTime());
}
