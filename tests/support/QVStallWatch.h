// How late the main thread gets: a timer busy a little at each tick, as a
// window painting, keeps the worst lateness it saw (ms).
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

struct QVStallWatch {
    static constexpr qint64 kTick = 10;
    QTimer timer;
    QElapsedTimer clock;
    qint64 last = 0, worst = 0;

    QVStallWatch()
    {
        clock.start();
        QObject::connect(&timer, &QTimer::timeout, [this] {
            const qint64 now = clock.elapsed();
            worst = qMax(worst, now - last - kTick);
            last = now;
            QElapsedTimer busy;
            busy.start();
            while (busy.elapsed() < 2) { }
        });
        timer.start(int(kTick));
    }
};
