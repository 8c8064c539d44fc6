// Examines every SFNT font file under /usr/share/fonts (or the folders given)
// and prints fonts per second beside fc-scan over the same files, measured in
// the same run. Quorvel reads a few hundred bytes of each file; fc-scan loads
// every face.
#include "engine/QVFontDiagnose.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTextStream>
#include <cstdio>

namespace
{

QStringList fontFiles(const QStringList &folders)
{
    QStringList files;
    for (const QString &folder : folders) {
        QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString suffix = QFileInfo(path).suffix().toLower();
            if (suffix == QLatin1String("ttf") || suffix == QLatin1String("otf")
                || suffix == QLatin1String("ttc"))
                files.append(path);
        }
    }
    files.sort();
    return files;
}

struct Pass {
    qint64 nanoseconds = 0;
    qint64 fonts = 0;
};

Pass examineAll(QVFontDiagnose &examiner, const QStringList &files)
{
    Pass pass;
    QElapsedTimer timer;
    timer.start();
    for (const QString &path : files) {
        examiner.initialize();
        examiner.setDoActivation(false);
        examiner.examineFont(path);
        pass.fonts += examiner.fontStatusArray().size();
        examiner.finalize();
    }
    pass.nanoseconds = timer.nsecsElapsed();
    return pass;
}

Pass scanAll(const QString &fcScan, const QStringList &files)
{
    Pass pass;
    QElapsedTimer timer;
    timer.start();
    // In batches, to stay well inside the argument-length limit.
    for (qsizetype i = 0; i < files.size(); i += 200) {
        QProcess process;
        process.start(fcScan,
            QStringList { QStringLiteral("--format"), QStringLiteral("%{file}\\n") } + files.mid(i, 200));
        process.waitForFinished(-1);
        pass.fonts += process.readAllStandardOutput().count('\n');
    }
    pass.nanoseconds = timer.nsecsElapsed();
    return pass;
}

double perSecond(const Pass &pass)
{
    return pass.nanoseconds > 0 ? double(pass.fonts) * 1e9 / double(pass.nanoseconds) : 0.0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QStringList folders = app.arguments().mid(1);
    if (folders.isEmpty())
        folders.append(QStringLiteral("/usr/share/fonts"));
    const QStringList files = fontFiles(folders);
    const QString fcScan = QStandardPaths::findExecutable(QStringLiteral("fc-scan"));
    if (files.isEmpty() || fcScan.isEmpty()) {
        out << "bench_examine: no SFNT files under " << folders.join(QLatin1Char(' ')) << " or no fc-scan\n";
        return 1;
    }

    QVFontDiagnose examiner;
    // One untimed pass each, so both read from a warm page cache.
    examineAll(examiner, files);
    scanAll(fcScan, files);
    const Pass quorvel = examineAll(examiner, files);
    const Pass fontconfig = scanAll(fcScan, files);

    out << "files: " << files.size() << " SFNT files under " << folders.join(QLatin1Char(' ')) << '\n';
    out << QStringLiteral("quorvel examine: %1 fonts in %2 ms, %3 fonts/s\n")
               .arg(quorvel.fonts)
               .arg(double(quorvel.nanoseconds) / 1e6, 0, 'f', 1)
               .arg(perSecond(quorvel), 0, 'f', 0);
    out << QStringLiteral("fc-scan:         %1 fonts in %2 ms, %3 fonts/s\n")
               .arg(fontconfig.fonts)
               .arg(double(fontconfig.nanoseconds) / 1e6, 0, 'f', 1)
               .arg(perSecond(fontconfig), 0, 'f', 0);
    const double ratio = perSecond(fontconfig) > 0 ? perSecond(quorvel) / perSecond(fontconfig) : 0.0;
    out << QStringLiteral("ratio (quorvel / fc-scan, fonts per second): %1\n").arg(ratio, 0, 'f', 2);
    return 0;
}
