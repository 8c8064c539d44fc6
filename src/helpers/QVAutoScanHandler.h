// The auto-scan handler's work: keeps its copy of the auto-scan settings (its
// own settings file, filled from the application's), asks the application
// for a scan when the schedule falls due or a watched folder has changed and
// settled, starting the application when it does not run, and answers the
// application's messages. Wakes at most once a minute while nothing is due;
// time comes from a clock that tests replace.
#pragma once

#include <QDateTime>
#include <QObject>
#include <QTimer>
#include <QVariantMap>
#include <functional>
#include <memory>

class QVApplicationLink;
class QVFolderWatcher;
class QVHelperCommunications;
class QVSettings;

class QVAutoScanHandler : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;
    // The longest sleep between two looks at the clock, so that a clock
    // changed by hand or a machine woken from sleep is noticed within it.
    static constexpr int kMaxCheckIntervalMs = 60 * 1000;
    // A scan asked for that has not answered by then no longer holds up others.
    static constexpr qint64 kScanAnswerTimeoutSecs = 60 * 60;

    explicit QVAutoScanHandler(QVHelperCommunications *channel, QObject *parent = nullptr);
    ~QVAutoScanHandler() override;

    void setClock(Clock clock) { m_clock = std::move(clock); }
    // The wait before the first look at the schedule, so a scan missed while
    // the machine was off runs shortly after login rather than during it.
    void setStartupDelay(int milliseconds) { m_startupDelayMs = milliseconds; }
    QVFolderWatcher *folderWatcher() const { return m_watcher; }
    QVApplicationLink *applicationLink() const { return m_link; }
    QVSettings *settings() const { return m_settings.get(); }

    // Reads the settings (the application's, the first time), watches the
    // folders and asks the application for fresh settings when it runs.
    void start();
    // Asks for a scan when one is due, and sets the next look.
    void checkSchedule();
    QDateTime nextScanDate() const;
    bool isScanInFlight() const { return m_scanInFlightSince.isValid(); }
    // When the next look at the clock comes, 0 when none is set.
    int checkInterval() const { return m_timer.isActive() ? m_timer.interval() : 0; }

Q_SIGNALS:
    // Each scan asked for, with why.
    void scanRequested(const QString &reason);
    // The application has turned auto-scanning off.
    void quitRequested();

private:
    QDateTime now() const { return m_clock(); }
    void gotCommand(const QString &command, const QString &sender, const QVariantMap &options);
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options);
    void applySettings(const QVariantMap &settings);
    void reload();
    void requestScan(const QString &reason);
    void scheduleCheck(int milliseconds);
    void scanEnded(const QDateTime &lastAutoScanDate);

    QVHelperCommunications *m_channel;
    std::unique_ptr<QVSettings> m_settings;
    QVApplicationLink *m_link;
    QVFolderWatcher *m_watcher;
    QTimer m_timer;
    Clock m_clock = [] { return QDateTime::currentDateTime(); };
    int m_startupDelayMs = 10 * 1000;
    QDateTime m_scanInFlightSince;
    QDateTime m_retryAfter;
};
