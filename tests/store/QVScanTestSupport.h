// Shared pieces of the scan tests: an examiner that records the files it is
// given (and can hold the walk at one of them), real font trees built from the
// system's fonts, and waiting on the event loop.
#pragma once

#include "engine/QVFontExaminer.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QWaitCondition>
#include <functional>
#include <memory>
#include <ostream>

// Readable failures for texts and lists of texts.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

// Records every examined path, in order. When holdAt names a file, the walk
// stops inside its examination until release() is called.
class QVRecordingExaminer final : public QVFontExaminer
{
public:
    struct Shared {
        QMutex mutex;
        QWaitCondition changed;
        QStringList examined;
        QString holdAt;
        bool holding = false;
        bool released = false;

        QStringList paths()
        {
            QMutexLocker locker(&mutex);
            return examined;
        }
        bool waitUntilHolding(int timeoutMs);
        void release();
    };

    explicit QVRecordingExaminer(std::shared_ptr<Shared> shared)
        : m_shared(std::move(shared))
    {
    }

    void initialize() override { m_statuses.clear(); }
    void setDoActivation(bool) override { }
    void examineFont(const QString &path) override;
    QList<QVStatusPtr> fontStatusArray() const override { return m_statuses; }
    void finalize() override { }
    bool hasResourceFork(const QString &) override { return false; }
    QString quotedTypeCode(const QString &) override { return QString(""); }

private:
    std::shared_ptr<Shared> m_shared;
    QList<QVStatusPtr> m_statuses;
};

// Collects "kScanFolderComplete" posts as they reach the main event loop.
class QVScanNotifications
{
public:
    QVScanNotifications();
    ~QVScanNotifications();
    QVScanNotifications(const QVScanNotifications &) = delete;
    QVScanNotifications &operator=(const QVScanNotifications &) = delete;

    QStringList statuses; // the "status" value of each post, in order

private:
    QMetaObject::Connection m_connection;
};

// Runs the event loop until the condition holds or the time is up.
bool waitFor(const std::function<bool()> &condition, int timeoutMs = 20000);
// Runs the event loop for a while, for checks that something did not happen.
void spinEventLoop(int milliseconds);

// Copies a real font to the path (creating folders); returns the path.
QString copyRealFont(const QString &source, const QString &destination);
QString dejaVuSans();
QString type1Font();
// Sets the 32-byte Finder info of a file in its extended attribute.
bool setFinderInfo(const QString &path, const QByteArray &type, const QByteArray &creator, quint16 flags);
// A real suitcase made by ufond (from a bitmap font by otf2bdf) at path: no
// extension, empty data fork, its resource fork and Finder info (type FFIL) in
// an AppleDouble sidecar "._NAME", as macOS writes them on a file server.
// Empty on failure.
QString makeSuitcase(const QString &path, QString *error);
