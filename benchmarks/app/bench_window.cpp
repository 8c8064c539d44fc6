// How late the window's main thread runs while the window scans and
// diagnoses a folder tree (scripts/make-font-tree.sh TREE 10000 builds the
// 10,000-file one). A timer asks to run every 5 ms; the gap between two of its
// runs, less those 5 ms, is how long the main thread was kept from it. The
// worst gap is printed for the scan and diagnosis up to the Done button, and
// apart for the seconds after, when the resolution window opens on the
// problems found. Runs in a throw-away home.
//
// Usage: bench_window TREE
#include "app/QVAppDelegate.h"
#include "app/QVDiagnosisActionWindow.h"
#include "app/QVDiagnosisViewController.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "engine/QVFontDataManager.h"
#include "settings/QVSettings.h"
#include "store/QVFileManager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <time.h>

namespace
{

constexpr int kInterval = 5;

// The main thread's own processor time: a gap it spent working is the
// window's doing; one it spent waiting for a core is the machine's.
qint64 threadCpuMs()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// How long the main thread has waited, runnable, for a core (the kernel's
// scheduler statistics; 0 where they are not kept).
qint64 runQueueWaitMs()
{
    QFile file(QStringLiteral("/proc/thread-self/schedstat"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = file.readAll().simplified().split(' ');
    return fields.size() >= 2 ? fields.at(1).toLongLong() / 1000000 : 0;
}

struct Gap {
    qint64 at;
    qint64 lateness;
    qint64 busy;
    qint64 waiting;
    const char *during;
};

struct Lateness {
    QList<qint64> gaps;
    // The most processor time the main thread itself spent between two ticks.
    qint64 worstBusy = 0;
    QList<Gap> worstGaps;
    qint64 worst() const { return gaps.isEmpty() ? 0 : *std::max_element(gaps.cbegin(), gaps.cend()); }
    qint64 percentile(double p) const
    {
        if (gaps.isEmpty())
            return 0;
        QList<qint64> sorted = gaps;
        std::sort(sorted.begin(), sorted.end());
        return sorted.at(std::min(qsizetype(p * double(sorted.size())), sorted.size() - 1));
    }
};

bool runUntil(const std::function<bool()> &condition, const QElapsedTimer &clock, qint64 limitMs)
{
    while (!condition()) {
        if (clock.elapsed() > limitMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2 || !QFileInfo(QString::fromLocal8Bit(argv[1])).isDir()) {
        std::fprintf(stderr, "usage: bench_window TREE\n");
        return 2;
    }
    const QString tree = QFileInfo(QString::fromLocal8Bit(argv[1])).absoluteFilePath();
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/.local/share")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/.cache")).toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    // What a person who has used the program before sees: no welcome, no helpers.
    QVSettings::migratePreferences();
    {
        QVSettings settings;
        settings.setDontShowWelcomeScreenAtStartup(true);
        settings.setAutoScanEnabled(false);
        settings.setShowHelperMenu(false);
    }
    QVAppDelegate delegate;
    delegate.setDelay(0);
    delegate.launch();

    const auto diagnosing
        = [&] { return delegate.diagnosisViewController()->viewState()->isDiagnosingFonts(); };
    QElapsedTimer clock;
    qint64 last = 0;
    qint64 lastCpu = threadCpuMs();
    qint64 lastWait = runQueueWaitMs();
    Lateness *phase = nullptr;
    Lateness scanning;
    Lateness after;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(kInterval);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed();
        const qint64 cpu = threadCpuMs();
        const qint64 wait = runQueueWaitMs();
        const qint64 late = std::max<qint64>(0, now - last - kInterval);
        if (phase) {
            phase->gaps.append(late);
            phase->worstBusy = std::max(phase->worstBusy, cpu - lastCpu);
            if (late >= 50)
                phase->worstGaps.append({ now, late, cpu - lastCpu, wait - lastWait,
                    delegate.fileMgr()->isFindingFonts() ? "finding fonts"
                        : diagnosing()                   ? "diagnosing"
                                                         : "between the two" });
        }
        last = now;
        lastCpu = cpu;
        lastWait = wait;
    });

    clock.start();
    tick.start();
    phase = &scanning;
    if (!delegate.performDragOperation({ tree })) {
        std::fprintf(stderr, "bench_window: the window refused %s\n", qPrintable(tree));
        return 1;
    }
    if (!runUntil([&] { return delegate.isShowingDoneButton() && !delegate.isBusy(); }, clock, 3600 * 1000)) {
        std::fprintf(stderr, "bench_window: the diagnosis did not end within an hour\n");
        return 1;
    }
    const qint64 done = clock.elapsed();
    phase = &after;
    runUntil([] { return false; }, clock, done + 3000);
    tick.stop();

    const QVDiagnosisActionWindow *actions = delegate.diagnosisActionWindow();
    std::printf(
        "files scanned:                  %lld\n", qlonglong(delegate.dataManager()->fontFileItems.size()));
    std::printf("scan and diagnosis:             %.1f s\n", double(done) / 1000.0);
    std::printf("main thread, worst lateness:    %lld ms (99th percentile %lld ms, %lld ticks)\n",
        qlonglong(scanning.worst()), qlonglong(scanning.percentile(0.99)), qlonglong(scanning.gaps.size()));
    std::printf("main thread, most own work between two ticks: %lld ms\n", qlonglong(scanning.worstBusy));
    std::printf("next 3 s (resolution window %s): worst %lld ms\n",
        actions && actions->isVisible() ? "open" : "not open", qlonglong(after.worst()));
    for (const Gap &gap : scanning.worstGaps)
        std::printf("  late %lld ms at %.2f s while %s: the main thread worked %lld ms, waited %lld ms for a "
                    "core, was blocked or asleep %lld ms\n",
            qlonglong(gap.lateness), double(gap.at) / 1000.0, gap.during, qlonglong(gap.busy),
            qlonglong(gap.waiting),
            qlonglong(std::max<qint64>(0, gap.lateness + kInterval - gap.busy - gap.waiting)));
    return 0;
}
