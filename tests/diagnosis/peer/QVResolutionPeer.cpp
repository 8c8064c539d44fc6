// A resolution in a process of its own, for the tests that kill one midway:
//   qv-resolution-peer KILL_AFTER FILE...
// Every file is a problem font ("Bad Table Data") to be quarantined; the
// process kills itself with SIGKILL as soon as KILL_AFTER files reached the
// quarantine (0: never), leaving whatever a real crash would leave.
#include "diagnosis/QVDiagnosisResolution.h"
#include "engine/QVFontConstants.h"
#include "platform/QVForkStorage.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <csignal>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: qv-resolution-peer KILL_AFTER FILE...\n");
        return 2;
    }
    const int killAfter = arguments.first().toInt();
    QList<QVProblemFontPtr> problems;
    for (const QString &path : arguments.mid(1)) {
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile = std::make_shared<QVFontFile>(QFileInfo(path).absoluteFilePath());
        entry->fontFile->fontFileType
            = QVForkStorage::resourceForkPlace(path) == QVForkStorage::Place::None ? 1 : 0;
        entry->fontStatus = std::make_shared<QVStatus>();
        entry->fontStatus->fontURL = entry->fontFile->URL;
        entry->fontStatus->fontName = QFileInfo(path).fileName();
        entry->fontStatus->PSname = entry->fontStatus->fontName;
        entry->fontStatus->fontType = QVFontType::PostScriptType1;
        entry->fontStatus->setFontError(QVErrorClass::Defect);
        entry->fontStatus->setFontErrorInfo(QString::fromLatin1(QVDefect::BadTableData));
        entry->fontFile->fontStatusArray.append(entry->fontStatus);
        problems.append(entry);
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
    return 0;
}
