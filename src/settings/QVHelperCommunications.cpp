#include "settings/QVHelperCommunications.h"

#include "settings/QVLog.h"
#include "settings/QVSettings.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>
#include <QTimer>
#include <atomic>

namespace
{

const QString kPayloadSender = QStringLiteral("kPayloadSender");
const QString kPayloadRecipient = QStringLiteral("kPayloadRecipient");
const QString kPayloadType = QStringLiteral("kPayloadType");
const QString kPayloadOptions = QStringLiteral("kPayloadOptions");
const QString kCommand = QStringLiteral("kCommand");
const QString kResponse = QStringLiteral("kResponse");

// Reported once per process: the application carries on without helpers.
std::atomic<bool> unavailableReported { false };

QVariant demarshall(const QDBusArgument &argument)
{
    switch (argument.currentType()) {
    case QDBusArgument::MapType: {
        QVariantMap map;
        argument.beginMap();
        while (!argument.atEnd()) {
            argument.beginMapEntry();
            QString key;
            QDBusVariant value;
            argument >> key >> value;
            argument.endMapEntry();
            map.insert(key, value.variant());
        }
        argument.endMap();
        return map;
    }
    case QDBusArgument::ArrayType: {
        QVariantList list;
        argument.beginArray();
        while (!argument.atEnd())
            list.append(argument.asVariant());
        argument.endArray();
        return list;
    }
    default:
        return argument.asVariant();
    }
}

} // namespace

QVHelperCommunications::QVHelperCommunications(
    const QString &ownIdentifier, const QDBusConnection &connection, QObject *parent)
    : QObject(parent)
    , m_ownIdentifier(ownIdentifier)
    , m_connection(connection)
    , m_settings(std::make_unique<QVSettings>())
{
    m_available = m_connection.isConnected()
        && m_connection.connect(QString(), QString::fromLatin1(kQVHelperCommunicationPath),
            QString::fromLatin1(kQVHelperCommunicationInterface),
            QString::fromLatin1(kQVHelperCommunicationNotification), this,
            SLOT(receivedCommunication(QVariantMap)));
    if (!m_available && !unavailableReported.exchange(true))
        qCWarning(lcHelpers).noquote()
            << "The helper channel is unavailable (no session bus):" << m_connection.lastError().message()
            << "- carrying on without helpers";
}

QVHelperCommunications::~QVHelperCommunications()
{
    if (m_available)
        m_connection.disconnect(QString(), QString::fromLatin1(kQVHelperCommunicationPath),
            QString::fromLatin1(kQVHelperCommunicationInterface),
            QString::fromLatin1(kQVHelperCommunicationNotification), this,
            SLOT(receivedCommunication(QVariantMap)));
}

QVariant QVHelperCommunications::toWire(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(Qt::ISODateWithMs);
    case QMetaType::QVariantMap: {
        QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            it.value() = toWire(it.value());
        return map;
    }
    case QMetaType::QVariantList: {
        QVariantList list = value.toList();
        for (QVariant &element : list)
            element = toWire(element);
        return list;
    }
    default:
        return value;
    }
}

QVariant QVHelperCommunications::fromWire(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        return fromWire(demarshall(value.value<QDBusArgument>()));
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return fromWire(value.value<QDBusVariant>().variant());
    switch (value.typeId()) {
    case QMetaType::QString: {
        static const QRegularExpression isoUtc(
            QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d(\\.\\d{1,3})?Z$"));
        const QString text = value.toString();
        if (isoUtc.match(text).hasMatch()) {
            const QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
            if (date.isValid())
                return date;
        }
        return value;
    }
    case QMetaType::QVariantMap: {
        QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            it.value() = fromWire(it.value());
        return map;
    }
    case QMetaType::QVariantList: {
        QVariantList list = value.toList();
        for (QVariant &element : list)
            element = fromWire(element);
        return list;
    }
    default:
        return value;
    }
}

QString QVHelperCommunications::describe(const QVariantMap &options)
{
    if (options.isEmpty())
        return QStringLiteral("(null)");
    return QString::fromUtf8(
        QJsonDocument::fromVariant(toWire(options).toMap()).toJson(QJsonDocument::Compact));
}

void QVHelperCommunications::post(
    const QString &type, const QString &name, const QString &recipient, const QVariantMap &options)
{
    if (!m_available)
        return;
    QVariantMap userInfo { { kPayloadSender, m_ownIdentifier }, { kPayloadRecipient, recipient },
        { kPayloadType, type }, { type, name } };
    if (!options.isEmpty())
        userInfo.insert(kPayloadOptions, toWire(options).toMap());
    QDBusMessage message = QDBusMessage::createSignal(QString::fromLatin1(kQVHelperCommunicationPath),
        QString::fromLatin1(kQVHelperCommunicationInterface),
        QString::fromLatin1(kQVHelperCommunicationNotification));
    message << userInfo;
    if (!m_connection.send(message))
        qCWarning(lcHelpers).noquote()
            << "Could not send" << name << "to" << recipient << ":" << m_connection.lastError().message();
}

void QVHelperCommunications::sendCommand(
    const QString &command, const QString &recipient, const QVariantMap &options, bool withTimeout)
{
    if (withTimeout) {
        stopTimer();
        m_awaitedCommand = command;
        m_timer = new QTimer(this);
        m_timer->setSingleShot(true);
        connect(m_timer, &QTimer::timeout, this, &QVHelperCommunications::doTimeout);
        m_timer->start(m_timeoutMs);
    }
    if (!recipient.isEmpty()) {
        post(kCommand, command, recipient, options);
        return;
    }
    post(kCommand, command, QString::fromLatin1(QVSettings::kHandlerBundleIdentifier), options);
    post(kCommand, command, QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier), options);
}

void QVHelperCommunications::sendResponse(
    const QString &response, const QString &recipient, const QVariantMap &options)
{
    if (m_settings->doLogging())
        qCInfo(lcHelpers).noquote() << QStringLiteral("Sent Response: %1 to Recipient: %2 with Options: %3\n")
                                           .arg(response,
                                               recipient.isEmpty() ? QStringLiteral("(null)") : recipient,
                                               describe(options));
    if (!recipient.isEmpty()) {
        post(kResponse, response, recipient, options);
        return;
    }
    post(kResponse, response, QString::fromLatin1(QVSettings::kHandlerBundleIdentifier), options);
    post(kResponse, response, QString::fromLatin1(QVSettings::kSchedulerBundleIdentifier), options);
}

void QVHelperCommunications::receivedCommunication(const QVariantMap &wireInfo)
{
    const QVariantMap userInfo = fromWire(wireInfo).toMap();
    if (userInfo.value(kPayloadRecipient).toString() != m_ownIdentifier)
        return;
    const QString sender = userInfo.value(kPayloadSender).toString();
    const QString type = userInfo.value(kPayloadType).toString();
    const QString name = userInfo.value(type).toString();
    const QVariantMap options = userInfo.value(kPayloadOptions).toMap();
    if (type == kCommand)
        gotCommand(name, sender, options);
    else
        gotResponse(name, sender, options);
}

void QVHelperCommunications::gotCommand(
    const QString &command, const QString &sender, const QVariantMap &options)
{
    if (m_settings->doLogging())
        qCInfo(lcHelpers).noquote() << QStringLiteral("Got Command: %1 from Sender: %2 with Options: %3\n")
                                           .arg(command, sender, describe(options));
    Q_EMIT commandReceived(command, sender, options);
}

void QVHelperCommunications::gotResponse(
    const QString &response, const QString &sender, const QVariantMap &options)
{
    if (m_settings->doLogging())
        qCInfo(lcHelpers).noquote() << QStringLiteral("Got Response: %1 from Sender: %2 with Options: %3\n")
                                           .arg(response, sender, describe(options));
    // Any response ends the wait.
    if (m_timer) {
        m_awaitedCommand = QString("");
        stopTimer();
    }
    Q_EMIT responseReceived(response, sender, options);
}

void QVHelperCommunications::gotTimeout(const QString &command)
{
    Q_EMIT commandTimedOut(command);
}

void QVHelperCommunications::doTimeout()
{
    const QString command = m_awaitedCommand;
    m_awaitedCommand = QString("");
    stopTimer();
    gotTimeout(command);
}

void QVHelperCommunications::stopTimer()
{
    if (!m_timer)
        return;
    m_timer->stop();
    m_timer->deleteLater();
    m_timer = nullptr;
}

// Compiled here, not with the rest of the core's meta-objects, so that a
// program using only the settings (the auto-scan handler) links no more.
#include "moc_QVHelperCommunications.cpp"
