// A resolution in a process of its own, for the tests that kill one midway or
// fill its disk:
//   qv-resolution-peer [--full-disk-at N | --write-fails-at N | --kill-at-write N] KILL_AFTER
//                      FILE... [suitcase:FILE]...
// Every file is a problem font ("Bad Table Data") to be quarantined whole; each
// member of a "suitcase:" file is one to be taken out singly. The process kills
// itself with SIGKILL as soon as KILL_AFTER fonts reached the quarantine (0:
// never), leaving whatever a real crash would leave. --full-disk-at N makes
// its Nth write and every later one fail with ENOSPC; --write-fails-at N only
// the Nth; --kill-at-write N kills it just before its Nth write. At the end it
// prints "moved PATH" or "kept PATH: ERROR" for each font, then "writes COUNT".
#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVForkStorage.h"
#include "platform/QVWriteFault.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <csignal>
#include <cstdio>

namespace
{

// The font as a problem entry whose only problem is its damage, whatever the
// examiner found.
QVProblemFontPtr problem(const QVFontFilePtr &file, const QVStatusPtr &status)
{
    auto entry = std::make_shared<QVProblemFont>();
    entry->fontFile = file;
    entry->fontStatus = status;
    status->fontErrors = { QVErrorClass::Defect };
    status->fontErrorsInfo = { QString::fromLatin1(QVDefect::BadTableData) };
    return entry;
}

int killAtWrite = 0;

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    if (arguments.size() > 2 && arguments.first() == QLatin1String("--kill-at-write")) {
        killAtWrite = arguments.at(1).toInt();
        QVWriteFault::setObserver([](int write) {
            if (write == killAtWrite)
                std::raise(SIGKILL);
        });
        arguments = arguments.mid(2);
    } else if (arguments.size() > 2 && arguments.first().startsWith(QLatin1String("--"))) {
        QVWriteFault::failWrite(
            arguments.at(1).toInt(), arguments.first() == QLatin1String("--full-disk-at"));
        arguments = arguments.mid(2);
    }
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: qv-resolution-peer KILL_AFTER FILE... [suitcase:FILE]...\n");
        return 2;
    }
    const int killAfter = arguments.first().toInt();
    QList<QVProblemFontPtr> problems;
    QVFontDataManager scan;
    for (const QString &argument : arguments.mid(1)) {
        if (argument.startsWith(QLatin1String("suitcase:"))) {
            // Every font of the suitcase as a scan records it.
            const QVFontFilePtr file = scan.addFontFileItem(QFileInfo(argument.mid(9)).absoluteFilePath());
            for (const QVStatusPtr &status : std::as_const(file->fontStatusArray))
                problems << problem(file, status);
            continue;
        }
        auto file = std::make_shared<QVFontFile>(QFileInfo(argument).absoluteFilePath());
        file->fontFileType = QVForkStorage::resourceForkPlace(argument) == QVForkStorage::Place::None ? 1 : 0;
        auto status = std::make_shared<QVStatus>();
        status->fontURL = file->URL;
        status->fontName = status->PSname = QFileInfo(argument).fileName();
        status->fontType = QVFontType::PostScriptType1;
        file->fontStatusArray.append(status);
        problems.append(problem(file, status));
    }
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    QVDiagnosisResolution resolution(&store, &surgery);
    int moves = 0;
    store.movedHook = [&moves, killAfter](const QString &) {
        if (killAfter > 0 && ++moves >= killAfter)
            std::raise(SIGKILL);
    };
    resolution.setProblemFontsArray(problems);
    resolution.resolveIssues();
    // What became of each font, for the test to read.
    for (const QVProblemFontPtr &entry : std::as_const(problems)) {
        const QVStatusPtr &status = entry->fontStatus;
        const QString line = status->movedToQuarantine
            ? QStringLiteral("moved %1\n").arg(status->fontURL)
            : QStringLiteral("kept %1: %2\n").arg(status->fontURL, status->movedToQuarantineErrorInfo);
        std::fputs(line.toUtf8().constData(), stdout);
    }
    std::printf("writes %d\n", QVWriteFault::count());
    return 0;
}
