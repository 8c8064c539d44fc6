// Looks for a newer release in a feed of releases (RSS 2.0: one item per
// release, its version in the item's enclosure attribute or child element
// named "version", in any namespace, and its page in the item's link or the
// enclosure's url). One check at a time; the answer comes as one signal.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

class QVUpdateChecker : public QObject
{
    Q_OBJECT

public:
    enum class Outcome { NewerVersion, UpToDate, Failed };
    struct Result {
        Outcome outcome = Outcome::Failed;
        // The newest version the feed lists, and where to get it.
        QString version;
        QUrl link;
        QString error;
    };

    explicit QVUpdateChecker(QObject *parent = nullptr);
    ~QVUpdateChecker() override;

    // Reads the feed; finished() follows once, also for an empty or bad
    // address. A check still running is abandoned.
    void check(const QUrl &feed, const QString &currentVersion);
    bool isChecking() const { return !m_reply.isNull(); }
    void setTimeout(int milliseconds) { m_timeout = milliseconds; }

    // The feed's newest release against the current version.
    static Result compare(const QByteArray &feed, const QString &currentVersion);

Q_SIGNALS:
    void finished(const QVUpdateChecker::Result &result);

private:
    QNetworkAccessManager *m_network;
    QPointer<QNetworkReply> m_reply;
    int m_timeout = 20000;
};
