#include "cli/QVOrganizeCommand.h"

#include "cli/QVCliScanRun.h"
#include "cli/QVQuarantineCommand.h"
#include "diagnosis/QVDiagnosisSummary.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "organizer/QVFontOrganizer.h"
#include "platform/QVFileSystem.h"
#include "settings/QVSettings.h"
#include "store/QVOperationQueue.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryFile>
#include <QTimer>
#include <optional>

namespace
{

const char kUsage[]
    = "usage: quorvel-cli organize --library DIR [--copy|--move] [--name postscript|family|file]\n"
      "       [--foundry-folders|--no-foundry-folders] [--letter-folders|--no-letter-folders]\n"
      "       [--family-folders|--no-family-folders] [--jobs N] SOURCE\n";

bool isInside(const QString &path, const QString &folder)
{
    const QString inner = QDir(path).canonicalPath();
    const QString outer = QDir(folder).canonicalPath();
    return inner == outer || inner.startsWith(outer + QLatin1Char('/'));
}

} // namespace

bool QVOrganizeCommand::isWritableFolder(const QString &path)
{
    QTemporaryFile probe(path + QStringLiteral("/.quorvel-write-test-XXXXXX"));
    return probe.open();
}

int QVOrganizeCommand::run(const QStringList &givenArguments)
{
    QStringList arguments = givenArguments;
    if (const QString error = QVCliScanRun::takeJobsOption(&arguments); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    QString library, source;
    std::optional<bool> copy, foundry, letter, family;
    QString naming;
    // The first spelling of each choice, to name both sides of a conflict.
    QHash<QString, QString> given;
    QString conflict;
    auto choose = [&](auto &slot, const auto &value, const QString &key, const QString &argument) {
        if (given.contains(key) && slot != value && conflict.isEmpty())
            conflict = QStringLiteral("%1 and %2 cannot be used together").arg(given.value(key), argument);
        given.insert(key, argument);
        slot = value;
    };
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        bool ok = true;
        if (argument == QLatin1String("--library") && i + 1 < arguments.size()) {
            const QString value = arguments.at(++i);
            choose(library, value, QStringLiteral("library"), argument + QLatin1Char(' ') + value);
        } else if (argument == QLatin1String("--copy") || argument == QLatin1String("--move")) {
            choose(copy, std::optional<bool>(argument == QLatin1String("--copy")), QStringLiteral("copy"),
                argument);
        } else if (argument == QLatin1String("--name") && i + 1 < arguments.size()) {
            const QString value = arguments.at(++i);
            choose(naming, value, QStringLiteral("name"), argument + QLatin1Char(' ') + value);
        } else if (argument == QLatin1String("--foundry-folders")
            || argument == QLatin1String("--no-foundry-folders")) {
            choose(foundry, std::optional<bool>(argument == QLatin1String("--foundry-folders")),
                QStringLiteral("foundry"), argument);
        } else if (argument == QLatin1String("--letter-folders")
            || argument == QLatin1String("--no-letter-folders")) {
            choose(letter, std::optional<bool>(argument == QLatin1String("--letter-folders")),
                QStringLiteral("letter"), argument);
        } else if (argument == QLatin1String("--family-folders")
            || argument == QLatin1String("--no-family-folders")) {
            choose(family, std::optional<bool>(argument == QLatin1String("--family-folders")),
                QStringLiteral("family"), argument);
        } else if (!argument.startsWith(QLatin1Char('-')) && source.isEmpty()) {
            source = argument;
        } else {
            ok = false;
        }
        if (!ok
            || (!naming.isEmpty() && naming != QLatin1String("postscript")
                && naming != QLatin1String("family") && naming != QLatin1String("file"))) {
            err() << kUsage;
            err().flush();
            return UsageError;
        }
    }
    if (!conflict.isEmpty()) {
        err() << "quorvel-cli: " << conflict << '\n' << kUsage;
        err().flush();
        return UsageError;
    }
    if (library.isEmpty() || source.isEmpty()) {
        err() << kUsage;
        err().flush();
        return UsageError;
    }
    if (const QString error = QVCliScanRun::folderError({ source }); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    source = QFileInfo(source).absoluteFilePath();
    library = QFileInfo(library).absoluteFilePath();
    // A library not made yet is made, after saying so (and never inside the
    // source, where its fonts would be organized again).
    const QString cleanLibrary = QDir::cleanPath(library) + QLatin1Char('/');
    if (!QVFileSystem::exists(library) && !QFileInfo(library).isSymLink()
        && !cleanLibrary.startsWith(QDir::cleanPath(source) + QLatin1Char('/'))
        && !cleanLibrary.startsWith(QDir(source).canonicalPath() + QLatin1Char('/'))) {
        err() << "quorvel-cli: creating the library folder " << library << '\n';
        err().flush();
        if (!QDir().mkpath(library)) {
            err() << "quorvel-cli: " << library << ": cannot be created\n";
            err().flush();
            return UsageError;
        }
    }
    if (const QString error = QVCliScanRun::folderError({ library }); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    if (isInside(library, source)) {
        err() << "quorvel-cli: the library folder " << library << " is inside the source folder " << source
              << "; its fonts would be organized again\n";
        err().flush();
        return UsageError;
    }

    // The choices stay, as the organize sheet keeps them.
    QVSettings settings;
    if (copy)
        settings.setCopyFontFiles(*copy);
    if (!naming.isEmpty()) {
        settings.setUsePostscriptNameForFonts(naming == QLatin1String("postscript"));
        settings.setUseFamilyNameForFonts(naming == QLatin1String("family"));
    }
    if (foundry)
        settings.setCreateFoundryFolders(*foundry);
    if (letter)
        settings.setCreateAlphabetFolders(*letter);
    if (family)
        settings.setCreateFamilyFolders(*family);

    // Locked folders are refused before anything moves.
    if (!settings.copyFontFiles() && !isWritableFolder(source)) {
        err() << "Source Files Locked: "
              << QStringLiteral(
                     "The source folder \"%1\" is locked and the files cannot be moved. Use the Copy "
                     "option instead.")
                     .arg(source)
              << '\n';
        err().flush();
        return UsageError;
    }
    if (!isWritableFolder(library)) {
        err() << "Destination Folder Locked: "
              << QStringLiteral(
                     "The destination folder \"%1\" is locked and the files cannot be saved there. "
                     "Please choose a different folder.")
                     .arg(library)
              << '\n';
        err().flush();
        return UsageError;
    }
    if (const QString error = QVCliScanRun::passesError(settings); !error.isEmpty()) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    settings.setOrganizeFonts(true);

    QVFontDataManager dataManager;
    QVCliScanRun run(&dataManager);
    // Organizing moves fonts as a resolution does: one run at a time.
    QVQuarantineStore store(&dataManager);
    if (!QVQuarantineCommand::lockQuarantine(&store, false, &QVCliScanRun::interrupted)) {
        settings.setOrganizeFonts(false);
        return QVCliScanRun::interrupted() ? Cancelled : ProblemsFound;
    }
    const QStringList folders { source };
    if (!run.scanFolders(folders)) {
        settings.setOrganizeFonts(false);
        err() << "quorvel-cli: scan cancelled; nothing was organized\n";
        err().flush();
        return Cancelled;
    }
    QVDiagnosis &diagnosis = run.diagnose(folders);
    if (diagnosis.doCancel()) {
        settings.setOrganizeFonts(false);
        err() << "quorvel-cli: diagnosis cancelled; nothing was organized\n";
        err().flush();
        return Cancelled;
    }
    if (!quiet()) {
        out() << dataManager.fontFileItems.size() << " font files, " << dataManager.totalFonts << " fonts\n";
        if (!run.alert().isEmpty())
            out() << run.alert() << '\n';
        else
            out() << QVDiagnosisSummary::toText(diagnosis);
    } else if (diagnosis.totalFontProblems() > 0) {
        out() << QVDiagnosisSummary::toText(diagnosis).section(QStringLiteral("\n\n"), 2);
    }
    out().flush();

    step((settings.copyFontFiles() ? QStringLiteral("copying") : QStringLiteral("moving"))
        + QStringLiteral(" the healthy fonts into ") + library);
    // No resolution: fonts with problems stay where they are.
    QVSuitcaseSurgery surgery(&store);
    QVFontOrganizer organizer(&dataManager, &surgery, &settings);
    {
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (QVCliScanRun::interrupted() && !organizer.doCancel())
                organizer.cancelOrganizing();
        });
        poll.start(50);
        organizer.organizeFonts(
            library, [&] { QMetaObject::invokeMethod(&loop, "quit", Qt::QueuedConnection); });
        loop.exec();
        organizer.organizeFontsQueue()->waitUntilAllOperationsAreFinished();
    }

    const QList<QVFontOrganizer::Placement> placements = organizer.placements();
    if (!quiet()) {
        out() << '\n'
              << (settings.copyFontFiles() ? "Copied " : "Moved ") << placements.size()
              << (placements.size() == 1 ? " file" : " files") << " into " << library << ":\n";
        for (const QVFontOrganizer::Placement &placement : placements)
            out() << "  " << placement.source << " -> " << placement.destination << '\n';
    }
    QStringList failures;
    for (const QVFontFilePtr &file : std::as_const(dataManager.fontFileItems)) {
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            const QString error = !status->copiedToLibraryErrorInfo.isEmpty()
                ? status->copiedToLibraryErrorInfo
                : status->movedToLibraryErrorInfo;
            if (!error.isEmpty())
                failures << QStringLiteral("  %1 (%2): %3")
                                .arg(QVQuarantineStore::displayName(file, status), status->fontURL, error);
        }
    }
    if (!quiet() || !failures.isEmpty())
        out() << "Failures: " << failures.size() << '\n';
    for (const QString &failure : std::as_const(failures))
        out() << failure << '\n';
    out().flush();

    if (organizer.doCancel())
        return Cancelled;
    if (reportUnreadable(dataManager))
        return UsageError;
    return diagnosis.totalFontProblems() > 0 || organizer.problemFontCount() > 0 ? ProblemsFound : Success;
}

QVCliHelp::Command QVOrganizeCommand::help() const
{
    return { {}, {},
        { QStringLiteral(
            "organize --library DIR [--copy|--move] [--name postscript|family|file] "
            "[--[no-]foundry-folders] [--[no-]letter-folders] [--[no-]family-folders] [--jobs N] "
            "SOURCE") },
        QStringLiteral(
            "Scans and diagnoses SOURCE, then copies or moves its healthy fonts into a library tree "
            "(foundry / letter / family folders, as chosen); fonts with problems stay where they "
            "are. The choices are kept in the settings, as the organize sheet keeps them. Exits with "
            "1 when a problem was found or a font did not arrive."),
        { { QStringLiteral("--library DIR"), QStringLiteral("The library folder.") },
            { QStringLiteral("--copy, --move"), QStringLiteral("Copy the fonts, or move them.") },
            { QStringLiteral("--name HOW"),
                QStringLiteral("Name files by postscript name, family name, or keep "
                               "the file name.") },
            { QStringLiteral("--[no-]foundry-folders"), QStringLiteral("A folder per foundry, or not.") },
            { QStringLiteral("--[no-]letter-folders"), QStringLiteral("A folder per first letter, or not.") },
            { QStringLiteral("--[no-]family-folders"), QStringLiteral("A folder per family, or not.") },
            { QStringLiteral("--jobs N"), QStringLiteral("Files read at once, 1 to 64.") } },
        { QStringLiteral("organize --library /srv/library --copy --name family /srv/incoming") } };
}
