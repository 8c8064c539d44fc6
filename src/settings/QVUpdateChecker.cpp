#include "settings/QVUpdateChecker.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QVersionNumber>
#include <QXmlStreamReader>

namespace
{

// A feed is a few kilobytes; anything far larger is not one.
constexpr qint64 kMaxFeedSize = 4 * 1024 * 1024;

QVUpdateChecker::Result failure(const QString &error)
{
    QVUpdateChecker::Result result;
    result.error = error;
    return result;
}

} // namespace

QVUpdateChecker::QVUpdateChecker(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
{
}

QVUpdateChecker::~QVUpdateChecker()
{
    if (m_reply)
        m_reply->abort();
}

void QVUpdateChecker::check(const QUrl &feed, const QString &currentVersion)
{
    if (m_reply) {
        QNetworkReply *old = m_reply;
        m_reply.clear();
        old->abort();
    }
    if (feed.isEmpty() || !feed.isValid()
        || (feed.scheme() != QLatin1String("https") && feed.scheme() != QLatin1String("http"))) {
        // Answered from the event loop, as a network answer would be.
        const QString why = feed.isEmpty()
            ? QStringLiteral("No update feed address is set (the setting updateFeedURL).")
            : QStringLiteral("The update feed address is not a web address: %1").arg(feed.toString());
        QTimer::singleShot(0, this, [this, why] { Q_EMIT finished(failure(why)); });
        return;
    }
    QNetworkRequest request(feed);
    request.setTransferTimeout(m_timeout);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Quorvel/%1").arg(currentVersion));
    QNetworkReply *reply = m_network->get(request);
    m_reply = reply;
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > kMaxFeedSize)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, currentVersion] {
        reply->deleteLater();
        if (m_reply != reply)
            return;
        m_reply.clear();
        if (reply->error() != QNetworkReply::NoError) {
            Q_EMIT finished(
                failure(QStringLiteral("The update feed could not be read: %1").arg(reply->errorString())));
            return;
        }
        Q_EMIT finished(compare(reply->readAll(), currentVersion));
    });
}

QVUpdateChecker::Result QVUpdateChecker::compare(const QByteArray &feed, const QString &currentVersion)
{
    QXmlStreamReader xml(feed);
    QVersionNumber newest;
    Result result;
    bool inItem = false;
    QString itemVersion;
    QUrl itemLink;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            const QStringView name = xml.name();
            if (name == QLatin1String("item")) {
                inItem = true;
                itemVersion.clear();
                itemLink.clear();
            } else if (inItem && name == QLatin1String("enclosure")) {
                for (const QXmlStreamAttribute &attribute : xml.attributes()) {
                    if (attribute.name() == QLatin1String("version") && itemVersion.isEmpty())
                        itemVersion = attribute.value().toString().trimmed();
                    else if (attribute.name() == QLatin1String("url") && itemLink.isEmpty())
                        itemLink = QUrl(attribute.value().toString().trimmed());
                }
            } else if (inItem && name == QLatin1String("version")) {
                itemVersion = xml.readElementText().trimmed();
            } else if (inItem && name == QLatin1String("link")) {
                // The release's page is worth more than the bare download.
                itemLink = QUrl(xml.readElementText().trimmed());
            }
        } else if (xml.isEndElement() && xml.name() == QLatin1String("item")) {
            inItem = false;
            const QVersionNumber version = QVersionNumber::fromString(itemVersion);
            if (!version.isNull() && version > newest) {
                newest = version;
                result.version = itemVersion;
                result.link = itemLink;
            }
        }
    }
    if (xml.hasError())
        return failure(QStringLiteral("The update feed is not a valid feed: %1 (line %2)")
                           .arg(xml.errorString())
                           .arg(xml.lineNumber()));
    if (newest.isNull())
        return failure(QStringLiteral("The update feed lists no release with a version."));
    result.outcome
        = newest > QVersionNumber::fromString(currentVersion) ? Outcome::NewerVersion : Outcome::UpToDate;
    return result;
}

// Compiled here, not with the rest of the core's meta-objects, so that a
// program using only the settings (the auto-scan handler) links no more.
#include "moc_QVUpdateChecker.cpp"
