// Scans a tree of font files (make one with scripts/make-font-tree.sh) and
// prints the files found per second and the peak memory of the process.
//   bench_scan TREE [TREE...]
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVNotificationCenter.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <cstdio>
#include <sys/resource.h>

namespace
{

double peakMemoryMegabytes()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0; // kilobytes on Linux
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList folders = app.arguments().mid(1);
    if (folders.isEmpty()) {
        std::fprintf(
            stderr, "usage: bench_scan TREE [TREE...]  (make a tree with scripts/make-font-tree.sh)\n");
        return 2;
    }
    for (const QString &folder : folders) {
        if (!QFileInfo(folder).isDir()) {
            std::fprintf(stderr, "bench_scan: %s is not a folder\n", qPrintable(folder));
            return 2;
        }
    }

    const double baseline = peakMemoryMegabytes();
    QVFontDataManager dataManager;
    QVFileManager fileManager(&dataManager);
    QEventLoop loop;
    QString status;
    QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kScanFolderComplete, &loop,
        [&](const QVariantMap &userInfo) {
            status = userInfo.value(QStringLiteral("status")).toString();
            loop.quit();
        });

    QElapsedTimer timer;
    timer.start();
    fileManager.scanFolders(folders);
    loop.exec();
    fileManager.findFontsGlobalQueue()->waitUntilAllOperationsAreFinished();
    const double seconds = double(timer.nsecsElapsed()) / 1e9;

    const qsizetype files = dataManager.fontFileItems.size();
    const double peak = peakMemoryMegabytes();
    std::printf("scan status:         %s\n", qPrintable(status));
    std::printf("font files found:    %lld\n", static_cast<long long>(files));
    std::printf("fonts recorded:      %u\n", dataManager.totalFonts);
    std::printf("time:                %.2f s\n", seconds);
    std::printf("files per second:    %.0f\n", seconds > 0 ? double(files) / seconds : 0.0);
    std::printf("peak memory (maxrss): %.1f MB (%.1f MB before the scan)\n", peak, baseline);
    std::printf("under 500 MB:        %s\n", peak < 500.0 ? "yes" : "NO");
    return peak < 500.0 && status == QLatin1String("success") ? 0 : 1;
}
