#include "helpers/QVSchedulerMenu.h"

#include "helpers/QVApplicationLink.h"
#include "platform/QVLoginItem.h"
#include "settings/QVAutoScanSchedule.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QFile>
#include <QIcon>
#include <QLocale>
#include <QMenu>
#include <QSystemTrayIcon>

namespace
{

const QString kApplicationID = QString::fromLatin1(QVSettings::kBundleIdentifier);

} // namespace

QVSchedulerMenu::QVSchedulerMenu(QVHelperCommunications *channel, QObject *parent)
    : QObject(parent)
    , m_channel(channel)
    , m_settings(std::make_unique<QVSettings>(QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier)))
    , m_link(new QVApplicationLink(channel, this))
    , m_menu(std::make_unique<QMenu>())
{
    m_menu->setAccessibleName(QStringLiteral("Quorvel AutoScan"));
    m_menu->addAction(QStringLiteral("Scan Fonts Now"), this,
        [this] { m_link->sendCommand(QStringLiteral("kCommand_ScanFonts")); });
    m_nextScan = m_menu->addAction(QString());
    m_nextScan->setEnabled(false);
    m_menu->addSeparator();
    // A running application is left as it is; one that is not is started.
    m_menu->addAction(QStringLiteral("Open Quorvel"), this, [this] { m_link->openApplication(); });
    m_menu->addAction(QStringLiteral("AutoScan Preferences…"), this,
        [this] { m_link->sendCommand(QStringLiteral("kCommand_ShowAutoscanSettings")); });
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Remove This Menu"), this, &QVSchedulerMenu::removeMenu);
    connect(m_menu.get(), &QMenu::aboutToShow, this, &QVSchedulerMenu::updateMenu);
    connect(m_channel, &QVHelperCommunications::commandReceived, this, &QVSchedulerMenu::gotCommand);
    connect(m_channel, &QVHelperCommunications::responseReceived, this, &QVSchedulerMenu::gotResponse);
    updateMenu();
}

QVSchedulerMenu::~QVSchedulerMenu() = default;

void QVSchedulerMenu::start()
{
    if (!m_settings->hasStoredValue(QStringLiteral("autoScanFrequency")))
        QVApplicationLink::copyApplicationSettings(*m_settings);
    QVLog::setEnabled(m_settings->doLogging());
    updateMenu();
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        qCWarning(lcHelpers) << "This desktop shows no tray icons: the AutoScan menu is not shown";
    m_tray = new QSystemTrayIcon(QIcon(QStringLiteral(":/quorvel/images/AutoScan.svg")), this);
    m_tray->setToolTip(QStringLiteral("Quorvel AutoScan"));
    m_tray->setContextMenu(m_menu.get());
    m_tray->show();
    if (m_link->isApplicationRunning())
        m_channel->sendCommand(QStringLiteral("kCommand_GetSettings"), kApplicationID, {}, false);
}

void QVSchedulerMenu::updateMenu()
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString frequency = m_settings->autoScanFrequency();
    const QDateTime last = m_settings->lastAutoScanDate();
    QString text = QStringLiteral("No Scheduled AutoScan");
    const QDateTime next = QVAutoScanSchedule::nextScanDate(last, frequency, now);
    if (next.isValid() && next <= now)
        text = QStringLiteral("Next AutoScan: Now");
    else if (next.isValid())
        text = QStringLiteral("Next AutoScan: %1 around %2")
                   .arg(QLocale().toString(next.date(), QLocale::LongFormat),
                       next.time().toString(QStringLiteral("h:mmAP")));
    m_nextScan->setText(text);
}

void QVSchedulerMenu::removeMenu()
{
    if (m_link->isApplicationRunning()) {
        m_channel->sendCommand(QStringLiteral("kCommand_RemoveMenu"), kApplicationID, {}, false);
    } else {
        // Nobody to tell: the application finds its setting off when it starts.
        QVSettings().setShowHelperMenu(false);
    }
    QFile::remove(QVLoginItem::entryPath(QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier)));
    if (m_tray)
        m_tray->hide();
    Q_EMIT quitRequested();
}

void QVSchedulerMenu::gotCommand(const QString &command, const QString &sender, const QVariantMap &options)
{
    if (m_link->handleCommand(command, sender))
        return;
    if (command == QLatin1String("kCommand_Set_Logging")) {
        const bool enabled = options.value(QStringLiteral("kPayloadOptions")).toString()
            == QLatin1String("loggingEnabledEnabled");
        m_settings->setDoLogging(enabled);
        QVLog::setEnabled(enabled);
    }
}

void QVSchedulerMenu::gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
{
    if (m_link->handleResponse(response, sender, options))
        return;
    const QVariant value = options.value(QStringLiteral("kPayloadOptions"));
    if (response == QLatin1String("kResponse_Settings"))
        QVApplicationLink::storeSettings(*m_settings, value.toMap());
    else if (response == QLatin1String("kResponse_ScanFonts_Complete") && value.toDateTime().isValid())
        m_settings->setLastAutoScanDate(value.toDateTime());
    updateMenu();
}
