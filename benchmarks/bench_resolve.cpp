// Times the resolution of many damaged font files, each quarantined whole
// (one in four with its fork in an AppleDouble sidecar), then the quarantine's
// list and the restore of every row, on real files in a temporary folder: the
// time per font must stay flat as the count grows. The files lie in folders of
// 200 that all use the same 200 names, as copies of one collection do, so the
// quarantine numbers most of them.
//
// With --cli PATH it also times `PATH diagnose --resolve` on a folder of as
// many damaged files (empty .otf files, named the same way), scan and
// diagnosis included.
//
// Usage: bench_resolve [--cli PATH] [FILES...]   (default 500 2000 20000)
#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVFontConstants.h"
#include "platform/QVForkStorage.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <functional>

namespace
{

double seconds(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e9;
}

void setHome(const QString &home)
{
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/.config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home + QStringLiteral("/.local/share")).toUtf8());
}

// count damaged files in folders of 200, as problem fonts to quarantine.
QList<QVProblemFontPtr> makeProblems(const QString &root, int count)
{
    QList<QVProblemFontPtr> problems;
    for (int i = 0; i < count; ++i) {
        const QString folder = QStringLiteral("%1/fonts/%2").arg(root).arg(i / 200);
        QDir().mkpath(folder);
        const QString path = QStringLiteral("%1/Font %2.otf").arg(folder).arg(i % 200);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray(2048, char(i))) != 2048)
            return {};
        file.close();
        auto fontFile = std::make_shared<QVFontFile>(path);
        fontFile->fontFileType = 1;
        if (i % 4 == 0) {
            QVForkStorage::writeResourceFork(path, QByteArray(512, 'r'), QVForkStorage::Place::AppleDouble);
            fontFile->fontFileType = 0;
        }
        auto status = std::make_shared<QVStatus>();
        status->fontURL = path;
        status->fontName = QStringLiteral("Font %1").arg(i);
        status->PSname = QStringLiteral("Font%1-Regular").arg(i);
        status->fontType = QVFontType::OpenType;
        status->setFontError(QVErrorClass::Defect);
        status->setFontErrorInfo(QString::fromLatin1(QVDefect::BadTableData));
        fontFile->fontStatusArray.append(status);
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile = fontFile;
        entry->fontStatus = status;
        problems.append(entry);
    }
    return problems;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QList<int> counts;
    QString cli;
    const QStringList arguments = app.arguments().mid(1);
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments.at(i) == QLatin1String("--cli") && i + 1 < arguments.size())
            cli = arguments.at(++i);
        else
            counts << arguments.at(i).toInt();
    }
    if (counts.isEmpty())
        counts = { 500, 2000, 20000 };

    QTextStream out(stdout);
    out << "files   resolve(s)  per-file(ms)  list(s)  restore(s)  per-file(ms)  quarantined  restored"
        << (cli.isEmpty() ? "" : "  cli-diagnose-resolve(s)") << '\n';
    for (const int count : std::as_const(counts)) {
        QTemporaryDir home;
        setHome(home.path());
        const QList<QVProblemFontPtr> problems = makeProblems(home.path(), count);
        if (problems.size() != count) {
            out << "could not make " << count << " files in " << home.path() << '\n';
            return 1;
        }
        QVQuarantineStore store;
        QVSuitcaseSurgery surgery(&store);
        QVDiagnosisResolution resolution(&store, &surgery);
        resolution.setProblemFontsArray(problems);
        store.lockForRun();
        const double resolve = seconds([&] { resolution.resolveIssues(); });
        const int quarantined = store.qv_total_quarantined;
        store.unlock();

        // A fresh look at the quarantine, as `quarantine list` takes it.
        std::unique_ptr<QVQuarantineStore> listed;
        std::unique_ptr<QVSuitcaseSurgery> listedSurgery;
        std::unique_ptr<QVQuarantineRuns> runs;
        const double list = seconds([&] {
            listed = std::make_unique<QVQuarantineStore>();
            listed->lockForRun();
            listedSurgery = std::make_unique<QVSuitcaseSurgery>(listed.get());
            runs = std::make_unique<QVQuarantineRuns>(listed.get(), listedSurgery.get());
        });
        for (int i = 0; i < runs->rowArray.size(); ++i)
            runs->checkedRowsArray << i;
        QVQuarantineRuns::RunResult restored;
        const double restore = seconds([&] { restored = runs->restoreQuarantinedFiles(); });
        out << QString::number(count).leftJustified(8) << QString::number(resolve, 'f', 2).leftJustified(12)
            << QString::number(1000 * resolve / count, 'f', 3).leftJustified(14)
            << QString::number(list, 'f', 2).leftJustified(9)
            << QString::number(restore, 'f', 2).leftJustified(12)
            << QString::number(1000 * restore / count, 'f', 3).leftJustified(14)
            << QString::number(quarantined).leftJustified(13) << restored.handledRows.size();
        runs.reset();
        listedSurgery.reset();
        listed.reset();

        if (!cli.isEmpty()) {
            QTemporaryDir cliHome;
            const QString folder = cliHome.path() + QStringLiteral("/Fonts");
            for (int i = 0; i < count; ++i) {
                const QString sub = QStringLiteral("%1/%2").arg(folder).arg(i / 200);
                QDir().mkpath(sub);
                QFile(QStringLiteral("%1/Broken %2.otf").arg(sub).arg(i % 200)).open(QIODevice::WriteOnly);
            }
            QProcess process;
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.insert(QStringLiteral("HOME"), cliHome.path());
            env.insert(QStringLiteral("XDG_CONFIG_HOME"), cliHome.path() + QStringLiteral("/.config"));
            env.insert(QStringLiteral("XDG_DATA_HOME"), cliHome.path() + QStringLiteral("/.local/share"));
            process.setProcessEnvironment(env);
            process.setStandardOutputFile(QProcess::nullDevice());
            process.setStandardErrorFile(QProcess::nullDevice());
            const double whole = seconds([&] {
                process.start(cli, { QStringLiteral("diagnose"), QStringLiteral("--resolve"), folder });
                process.waitForFinished(-1);
            });
            out << "  " << QString::number(whole, 'f', 2) << " (exit " << process.exitCode() << ')';
        }
        out << '\n';
        out.flush();
    }
    return 0;
}
