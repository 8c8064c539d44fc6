// Times the diagnosis passes over synthetic libraries of 10,000, 50,000 and
// 100,000 font files held in memory: each pass alone, then the whole run with
// its four passes at once. The mix is that of a prepress archive: mostly
// TrueType and OpenType files, some collections, bitmap suitcases with their
// PostScript outlines (most beside them, some not), copies of fonts in several
// folders, and a few damaged files.
//
// With --tree DIR it also times the whole scan and diagnosis of a folder tree
// (scripts/make-font-tree.sh DIR 100000 builds the 100,000-file one).
//
// Usage: bench_diagnose [--tree DIR] [FILES...]   (default 10000 50000 100000)
#include "diagnosis/QVDiagnosis.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVSettings.h"
#include "store/QVFileManager.h"
#include "store/QVOperationQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>

namespace
{

QVStatusPtr makeStatus(int type, const QString &psName, int size, const QString &style, int version,
    const QString &path, qint32 &index)
{
    auto status = std::make_shared<QVStatus>();
    status->fontType = type;
    status->PSname = psName;
    status->fontName = psName;
    status->fontSize = size;
    status->fontStyle = style;
    status->fontVersion = version;
    status->fontURL = path;
    status->index = index++;
    return status;
}

void addFile(
    QVFontDataManager &dataMgr, const QString &path, int fileType, const QList<QVStatusPtr> &statuses)
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = fileType;
    file->fontStatusArray = statuses;
    dataMgr.fontFileItems.append(file);
    dataMgr.totalFonts += quint32(statuses.size());
}

void fillLibrary(QVFontDataManager &dataMgr, int fileCount)
{
    dataMgr.removeAllFontFileItems();
    QRandomGenerator random(20261121);
    auto chance = [&](int percent) { return int(random.bounded(100)) < percent; };
    const int folderCount = qMax(1, fileCount / 40);
    // Families are reused so that copies turn up in other folders.
    const int familyCount = qMax(1, fileCount / 3);
    const QStringList styles { "Plain", "Plain", "Plain", "Bold", "Italic", "Bold, Italic" };
    const QList<int> sizes { 9, 10, 12, 14, 18, 24 };
    qint32 index = 0;
    int files = 0;
    while (files < fileCount) {
        const QString folder = QStringLiteral("/srv/archive/%1/fonts").arg(random.bounded(folderCount));
        const int family = int(random.bounded(familyCount));
        const QString style = styles.at(random.bounded(int(styles.size())));
        const QString psName = QStringLiteral("Family%1-%2").arg(family).arg(style);
        const int version = int(random.bounded(3000));
        const int kind = int(random.bounded(100));
        auto damage = [&](QVStatusPtr status) {
            if (chance(3)) {
                status->setFontError(QVErrorClass::Defect);
                status->setFontErrorInfo(QString::fromUtf8(QVDefect::BadTableData));
            }
            return status;
        };
        if (kind < 60) {
            const QString path = QStringLiteral("%1/%2.ttf").arg(folder, psName);
            addFile(dataMgr, path, 1,
                { damage(makeStatus(chance(70) ? 3 : 5, psName, 0, style, version, path, index)) });
            ++files;
        } else if (kind < 70) {
            const QString path = QStringLiteral("%1/%2.ttc").arg(folder, psName);
            QList<QVStatusPtr> members;
            for (int m = 0; m < 4; ++m)
                members << damage(
                    makeStatus(3, psName + QString::number(m), 0, styles.at(m % 4), version, path, index));
            addFile(dataMgr, path, 1, members);
            ++files;
        } else {
            // A suitcase of strikes and, most of the time, its outline beside it.
            const QString path = QStringLiteral("%1/%2 Suitcase").arg(folder, psName);
            QList<QVStatusPtr> strikes;
            const int count = 1 + int(random.bounded(4));
            for (int s = 0; s < count; ++s)
                strikes << damage(makeStatus(0, psName, sizes.at(s), style, version, path, index));
            addFile(dataMgr, path, 0, strikes);
            ++files;
            if (chance(85) && files < fileCount) {
                const QString outlineFolder = chance(90)
                    ? folder
                    : QStringLiteral("/srv/archive/%1/fonts").arg(random.bounded(folderCount));
                const QString outline = QStringLiteral("%1/%2").arg(outlineFolder, psName.left(13));
                addFile(dataMgr, outline, 0,
                    { damage(makeStatus(chance(95) ? 1 : 2, psName, 0, style, version, outline, index)) });
                ++files;
            }
        }
    }
}

double timed(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // Keep the run's settings writes away from the user's own.
    QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/.local/share")).toUtf8());
    QVSettings settings;
    settings.registerUserPreferences();
    settings.setLastScanType(QStringLiteral("Manual Scan"));
    settings.setMatchVersionNumbers(false);

    QList<int> counts;
    QString tree;
    const QStringList arguments = app.arguments().mid(1);
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments.at(i) == QLatin1String("--tree") && i + 1 < arguments.size())
            tree = arguments.at(++i);
        else
            counts << arguments.at(i).toInt();
    }
    if (counts.isEmpty())
        counts = { 10000, 50000, 100000 };

    QTextStream out(stdout);
    out << "files    fonts   populate  structure  missingBm  missingPS  duplicates  passes-sum  whole-run  "
           "problems\n";
    for (int count : std::as_const(counts)) {
        QVFontDataManager dataMgr;
        fillLibrary(dataMgr, count);
        QVDiagnosis diagnosis(&dataMgr);
        diagnosis.setPacingEnabled(false);

        const double populate = timed([&] { diagnosis.populateArrays(); });
        const double structure = timed([&] { diagnosis.diagnoseFileStructure(); });
        const double missingBitmaps = timed([&] { diagnosis.diagnoseMissingBitmaps(); });
        const double missingPostscripts = timed([&] { diagnosis.diagnoseMissingPostscripts(); });
        const double duplicates = timed([&] { diagnosis.diagnoseDuplicateFonts(); });

        // The whole run on fresh records, the passes at once on their queues.
        fillLibrary(dataMgr, count);
        QEventLoop loop;
        QObject::connect(&diagnosis, &QVDiagnosis::diagnosisFinished, &loop, &QEventLoop::quit);
        const double whole = timed([&] {
            diagnosis.diagnoseFonts();
            loop.exec();
        });

        out << QString::number(count).rightJustified(6)
            << QString::number(dataMgr.totalFonts).rightJustified(9)
            << QString::number(populate, 'f', 1).rightJustified(10)
            << QString::number(structure, 'f', 1).rightJustified(11)
            << QString::number(missingBitmaps, 'f', 1).rightJustified(11)
            << QString::number(missingPostscripts, 'f', 1).rightJustified(11)
            << QString::number(duplicates, 'f', 1).rightJustified(12)
            << QString::number(
                   populate + structure + missingBitmaps + missingPostscripts + duplicates, 'f', 1)
                   .rightJustified(12)
            << QString::number(whole, 'f', 1).rightJustified(11)
            << QString::number(diagnosis.totalFontProblems()).rightJustified(10) << '\n';
        out.flush();
    }
    out << "(times in ms)\n";

    if (!tree.isEmpty()) {
        // The scan walks and examines on its own queue, then the run diagnoses.
        QVFontDataManager dataMgr;
        QVFileManager fileManager(&dataMgr);
        QEventLoop scanLoop;
        QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kScanFolderComplete,
            &scanLoop, &QEventLoop::quit);
        const double scan = timed([&] {
            fileManager.scanFolders({ tree });
            scanLoop.exec();
            fileManager.findFontsGlobalQueue()->waitUntilAllOperationsAreFinished();
        });
        QVDiagnosis diagnosis(&dataMgr);
        diagnosis.setPacingEnabled(false);
        QEventLoop loop;
        QObject::connect(&diagnosis, &QVDiagnosis::diagnosisFinished, &loop, &QEventLoop::quit);
        const double diagnose = timed([&] {
            diagnosis.diagnoseFonts();
            loop.exec();
        });
        out << "tree " << tree << ": " << dataMgr.fontFileItems.size() << " files, " << dataMgr.totalFonts
            << " fonts; scan " << QString::number(scan, 'f', 0) << " ms, diagnose "
            << QString::number(diagnose, 'f', 0) << " ms, total " << QString::number(scan + diagnose, 'f', 0)
            << " ms, " << diagnosis.totalFontProblems() << " problems\n";
    }
    return 0;
}
