// quorvel-cli as a separate process: for each command one real run over real
// files, its text and JSON, its arguments and exit codes; and what only a
// process shows: signals, a terminal, an ordinary user, runs that share a
// data folder.
#include "diagnosis/QVDiagnosisFixtures.h"
#include "platform/QVFileLock.h"
#include "store/QVPropertyList.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVFixtures;

namespace
{

QJsonValue json(const CliRun &run)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << qPrintable(run.out.left(300));
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

QStringList keys(const QJsonValue &object)
{
    QStringList list = object.toObject().keys();
    list.sort();
    return list;
}

// Writes a file under its raw name, which Qt's file classes cannot.
bool writeRaw(const QByteArray &path, const QByteArray &contents)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    const bool written
        = fd >= 0 && ::write(fd, contents.constData(), size_t(contents.size())) == contents.size();
    if (fd >= 0)
        ::close(fd);
    return written;
}

QByteArray readRaw(const QByteArray &path)
{
    QFile file;
    const int fd = ::open(path.constData(), O_RDONLY);
    return fd >= 0 && file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) ? file.readAll()
                                                                                       : "<missing>";
}

// DejaVu Sans with its kern checksum zeroed: the one SFNT damage reported.
QByteArray damagedSans()
{
    QByteArray font = readFile(kDejaVuSans);
    font.replace(font.indexOf("kern") + 4, 4, QByteArray(4, '\0'));
    return font;
}

class CliTest : public ::testing::Test
{
protected:
    CliRun cli(const QStringList &arguments, const QByteArray &input = QByteArray())
    {
        return runCli(home, arguments, input);
    }
    QVTestHome home;
};

} // namespace

TEST_F(CliTest, ScanListsEachFileOnceInScanOrderAsTextAndJson)
{
    const QString one = home.path() + "/one", two = home.path() + "/two";
    copyFont(kDejaVuSans, one, "b.ttf");
    copyFont(kC059ItalicPfb, one + "/a", "Outline.pfb");
    copyFont(kDejaVuSans, one, ".hidden.ttf");
    copyFont(kDejaVuSans, two, "Font.TTF");
    copyFont(kPanicSansDfont, two, "Panic.dfont");
    home.writeFile("two/Short.dfont", readFile(kPanicSansDfont).left(700));
    // A Mac Roman name, shown readably.
    ASSERT_TRUE(writeRaw(QFile::encodeName(two) + "/Caf\x8e.ttf", readFile(kDejaVuSans)));
    // A hard link, a link, and a folder reached through a link are each met once.
    ASSERT_EQ(
        ::link(QFile::encodeName(one + "/b.ttf").constData(), QFile::encodeName(one + "/c.ttf").constData()),
        0);
    ASSERT_TRUE(QFile::link(one + "/b.ttf", one + "/d.ttf"));
    ASSERT_TRUE(QFile::link(one, home.path() + "/alias"));

    const CliRun text = cli({ "scan", two, one, one + "/a", home.path() + "/alias" });
    EXPECT_EQ(text.exitCode, 1) << qPrintable(text.err); // Short.dfont is damaged
    QStringList files;
    for (const QString &line : text.out.split('\n', Qt::SkipEmptyParts)) {
        if (!line.startsWith(' ') && !line.contains(" in "))
            files << line.section("  ", 0, 0);
    }
    EXPECT_EQ(files,
        (QStringList { two + "/Caf\u00e9.ttf", two + "/Font.TTF", two + "/Panic.dfont", two + "/Short.dfont",
            one + "/a/Outline.pfb", one + "/b.ttf" }));
    EXPECT_TRUE(text.out.contains(two + "/Font.TTF\n   1  TrueType")) << qPrintable(text.out);
    EXPECT_TRUE(text.out.contains(one + "/a/Outline.pfb  (no fonts examined)\n"));
    EXPECT_TRUE(text.out.contains("Panic Sans                        PanicSans-BoldItalic"));
    EXPECT_TRUE(text.out.contains(QRegularExpression("Short.dfont\n.*File Resource Error")));
    EXPECT_TRUE(text.out.endsWith("\n8 fonts in 6 files, problems found\n"))
        << qPrintable(text.out.right(200));
    // Output that is not a terminal carries no bar.
    EXPECT_FALSE(text.out.contains('\r') || text.err.contains('\r'));

    const CliRun jsonRun = cli({ "scan", "--json", one });
    ASSERT_EQ(jsonRun.exitCode, 0) << qPrintable(jsonRun.err);
    const QJsonValue document = json(jsonRun);
    EXPECT_EQ(keys(document),
        (QStringList { "folders", "fontFiles", "foundProblemFonts", "totalFonts", "unreadable" }));
    const QJsonArray found = document["fontFiles"].toArray();
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(found[1]["URL"].toString(), one + "/b.ttf");
    EXPECT_EQ(found[1]["fontStatusArray"].toArray().size(), 1);

    // Without folders, the configured font folders.
    ASSERT_EQ(cli({ "settings", "set", "fontFolderPaths", one + "/a/" }).exitCode, 0);
    const QString configured = cli({ "scan" }).out;
    EXPECT_TRUE(configured.contains(one + "/a/Outline.pfb") && !configured.contains(one + "/b.ttf"))
        << qPrintable(configured);
    for (const QStringList &bad : { QStringList { "scan", one, home.path() + "/gone" },
             QStringList { "scan", one + "/b.ttf" }, QStringList { "scan", "--frobnicate" } }) {
        const CliRun refused = cli(bad);
        EXPECT_EQ(refused.exitCode, 2) << qPrintable(bad.join(' '));
        EXPECT_TRUE(refused.out.isEmpty()) << qPrintable(refused.out);
    }
    EXPECT_TRUE(cli({ "scan", home.path() + "/gone" }).err.contains(home.path() + "/gone: no such folder"));
}

TEST_F(CliTest, ExamineGivesRecordsOfSoundAndDamagedFilesAndExitCodes)
{
    home.writeFile("Kern.ttf", damagedSans());
    home.writeFile("Empty.otf", QByteArray());
    QProcess process; // relative names are taken in the working folder
    process.setProcessEnvironment(cliEnvironment(home));
    process.setWorkingDirectory(home.path());
    process.start(QStringLiteral(QV_CLI_PATH), { "examine", "--json", kDejaVuSans, "Kern.ttf", "Empty.otf" });
    ASSERT_TRUE(process.waitForFinished(120000));
    EXPECT_EQ(process.exitCode(), 1);
    const QJsonObject root = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    EXPECT_EQ(root["totalFonts"].toInt(), 3);
    EXPECT_TRUE(root["foundProblemFonts"].toBool());
    const QJsonArray files = root["fontFiles"].toArray();
    ASSERT_EQ(files.size(), 3);
    EXPECT_EQ(keys(files[0]), (QStringList { "URL", "fontFileType", "fontStatusArray", "macTypeCode" }));
    EXPECT_EQ(files[0]["URL"].toString() + " " + files[1]["URL"].toString(),
        kDejaVuSans + " " + home.path() + "/Kern.ttf");
    const QJsonValue sound = files[0]["fontStatusArray"][0], kern = files[1]["fontStatusArray"][0];
    EXPECT_EQ(sound["fontName"].toString() + "/" + sound["PSname"].toString() + "/"
            + sound["fontFoundry"].toString(),
        "DejaVu Sans/DejaVuSans/Bitstream");
    EXPECT_EQ(sound["fontType"].toInt(), 3);
    EXPECT_TRUE(sound["trueTypeFontName"].isNull());
    for (const char *flag : { "movedToQuarantine", "movedSisterToQuarantine", "movedToLibrary",
             "movedSisterToLibrary", "copiedToLibrary", "copiedSisterToLibrary" })
        EXPECT_TRUE(sound[QLatin1String(flag)].isBool()) << flag;
    EXPECT_EQ(kern["index"].toInt(), 1);
    EXPECT_EQ(kern["fontErrors"].toArray(), QJsonArray { 0 });
    EXPECT_EQ(kern["fontErrorsInfo"].toArray(), QJsonArray { "Bad Table Data" });
    EXPECT_EQ(kern["fixedErrors"].toArray(), QJsonArray { false });
    EXPECT_EQ(files[2]["fontStatusArray"][0]["fontName"].toString(), "Empty.otf");

    const CliRun text = cli({ "examine", kDejaVuSans });
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(
        text.out.contains(kDejaVuSans) && text.out.contains("DejaVu Sans") && text.out.contains("TrueType"));
    EXPECT_TRUE(text.out.contains("1 font in 1 file, no problems found"));
    const CliRun missing = cli({ "examine", kDejaVuSans, "/no/such/font.ttf" });
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(missing.err.contains("no such file: /no/such/font.ttf"));
    EXPECT_TRUE(missing.out.isEmpty());
    EXPECT_EQ(cli({ "examine" }).exitCode, 2);
    EXPECT_EQ(cli({ "examine", "--bogus", kDejaVuSans }).exitCode, 2);
    // A raw name given on the command line reaches its file.
    ASSERT_TRUE(writeRaw(QFile::encodeName(home.path()) + "/Caf\x8e.ttf", readFile(kDejaVuSans)));
    const ToolRun raw = runTool("/bin/sh",
        { "-c", "exec \"$0\" examine \"$1/$(printf 'Caf\\216.ttf')\"", QStringLiteral(QV_CLI_PATH),
            home.path() });
    EXPECT_EQ(raw.exitCode, 0) << raw.err.constData();
    EXPECT_TRUE(raw.out.contains("DejaVu Sans"));
}

TEST_F(CliTest, DiagnoseResolvesReportsAndCountsOneThingEverywhere)
{
    const QString fonts = home.path() + "/Fonts";
    copyFont(kDejaVuSerif, fonts);
    // Three copies of one damaged font: each a structure problem and a duplicate.
    for (const char *copy : { "a", "b", "c" })
        home.writeFile(QStringLiteral("Fonts/%1/Sans.ttf").arg(QLatin1String(copy)), damagedSans());
    home.writeFile("Fonts/Broken <b>&.otf", QByteArray());
    const CliRun run = cli({ "diagnose", "--json", "--resolve", "--report", fonts });
    ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
    const QJsonValue object = json(run);
    EXPECT_EQ(object["folders"].toArray(), QJsonArray { fonts });
    EXPECT_EQ(object["totalFonts"].toInt(), 5);
    EXPECT_EQ(object["totalFontProblems"].toInt(), 4) << qPrintable(run.out);
    for (const char *counter : { "fileStructureProblemCount", "missingBitmapProblemCount",
             "missingPSProblemCount", "duplicateProblemCount", "problemFonts", "outcome", "fontFiles" })
        EXPECT_TRUE(object.toObject().contains(QLatin1String(counter))) << counter;
    const QJsonValue resolution = object["resolution"];
    EXPECT_EQ(resolution["quarantined"].toArray().size(), 4);
    EXPECT_EQ(resolution["qv_total_quarantined"].toInt(), 4);
    EXPECT_EQ(json(cli({ "quarantine", "list", "--json" })).toArray().size(), 4);
    EXPECT_EQ(QDir(fonts).entryList(QDir::Files), QStringList { "DejaVuSerif.ttf" });
    // The report is written after the resolution, with names as text, and listed.
    const QString reportPath = object["report"].toString();
    EXPECT_TRUE(reportPath.startsWith(home.dataHome() + "/Quorvel/Reports/")) << qPrintable(reportPath);
    const QString html = QString::fromUtf8(readFile(reportPath));
    EXPECT_TRUE(html.contains("Broken &lt;b&gt;&amp;.otf"));
    EXPECT_FALSE(html.contains("Broken <b>"));
    EXPECT_TRUE(html.contains("Moved to<br>Quarantine"));
    EXPECT_TRUE(html.contains("\"value\">4</span><span class=\"label\">Problem fonts")) << qPrintable(html);
    EXPECT_TRUE(html.contains("\"value\">4</span><span class=\"label\">Moved to quarantine"));
    const QJsonArray reports = json(cli({ "reports", "list", "--json" })).toArray();
    ASSERT_EQ(reports.size(), 1);
    EXPECT_EQ(reports[0]["filePath"].toString(), reportPath);
    // The scan is recorded; a healthy folder has no problems; usage errors exit with 2.
    EXPECT_EQ(cli({ "settings", "get", "lastScanProblemCount" }).out, "4\n");
    EXPECT_EQ(cli({ "settings", "get", "lastScanType" }).out, "Manual Scan\n");
    const CliRun healthy = cli({ "diagnose", fonts });
    EXPECT_EQ(healthy.exitCode, 0) << qPrintable(healthy.err);
    EXPECT_TRUE(healthy.out.startsWith("1 font files, 1 fonts\nNo Problems Found!\n"))
        << qPrintable(healthy.out);
    QDir().mkpath(home.path() + "/Empty");
    EXPECT_EQ(cli({ "diagnose", home.path() + "/Empty" }).out,
        "Fonts Not Found: No font files were found or scanned in the selected folders.\n");
    EXPECT_TRUE(cli({ "diagnose", home.path() + "/Nowhere" }).err.contains("no such folder"));
    for (const QStringList &bad :
        { QStringList { "diagnose", home.path() + "/Nowhere" }, QStringList { "diagnose", "--fast", fonts },
            QStringList { "diagnose", fonts + "/DejaVuSerif.ttf" } })
        EXPECT_EQ(cli(bad).exitCode, 2) << qPrintable(bad.join(' '));
    for (const char *key : { "diagnoseFileStructure", "findOrpanedFonts", "findDuplicateFonts" })
        ASSERT_EQ(cli({ "settings", "set", key, "false" }).exitCode, 0);
    const CliRun none = cli({ "diagnose", fonts });
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(none.err.contains("Choose at least one diagnosis")) << qPrintable(none.err);
}

TEST_F(CliTest, ASignalStopsAResolutionAfterTheFontInHandAndKeepsWhatItDid)
{
    for (const int signal : { SIGINT, SIGTERM }) {
        SCOPED_TRACE(signal);
        QVTestHome signalled;
        const QString folder = signalled.path() + "/Fonts",
                      quarantine = signalled.dataHome() + "/Quorvel/Quarantine";
        const int count = 1500;
        for (int i = 0; i < count; ++i)
            signalled.writeFile(QStringLiteral("Fonts/Broken%1.otf").arg(i), QByteArray());
        QProcess process;
        process.setProcessEnvironment(cliEnvironment(signalled));
        process.start(QStringLiteral(QV_CLI_PATH), { "diagnose", "--resolve", folder });
        // Stopped as soon as the first damaged font reached the quarantine.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !QDir(quarantine).entryList({ "Broken*" }, QDir::Files).isEmpty(); }, 60000));
        ::kill(pid_t(process.processId()), signal);
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 130);
        const QString out = QString::fromUtf8(process.readAllStandardOutput());
        const int moved = out.section("Quarantined: ", 1).section('\n', 0, 0).toInt();
        EXPECT_GT(moved, 0) << qPrintable(out);
        EXPECT_LT(moved, count) << qPrintable(out);
        EXPECT_TRUE(out.contains("Interrupted")) << qPrintable(out);
        // What it did is committed: each moved font listed, the others in place.
        EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), count - moved);
        EXPECT_EQ(QVPropertyList::readFile(quarantine + "/dataSource").toList().size(), moved);
        EXPECT_FALSE(QFile::exists(quarantine + "/dataSource.journal"));
    }
}

// On a terminal the scan draws its bar and estimate, and Ctrl-C typed there
// stops it. The terminal is a pseudo-terminal made by script(1).
TEST_F(CliTest, OnATerminalAScanShowsProgressAndCtrlCCancels)
{
    const QString tree = home.path() + "/tree";
    const ToolRun made
        = runTool("bash", { QStringLiteral(QV_SCRIPTS_DIR "/make-font-tree.sh"), tree, "20000" });
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    QProcess terminal;
    terminal.setProcessEnvironment(cliEnvironment(home));
    terminal.start("script", { "-qfec", "'" QV_CLI_PATH "' scan '" + tree + "'", "/dev/null" });
    ASSERT_TRUE(terminal.waitForStarted(10000));
    QString screen;
    QDeadlineTimer deadline(240000);
    while (!screen.contains("Estimated time remaining: ") && !deadline.hasExpired()
        && terminal.state() == QProcess::Running) {
        terminal.waitForReadyRead(200);
        screen += QString::fromUtf8(terminal.readAllStandardOutput());
    }
    ASSERT_TRUE(screen.contains("Estimated time remaining: ")) << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains('\r') && screen.contains('%'));
    terminal.write("\x03"); // Ctrl-C as the terminal sends it
    ASSERT_TRUE(terminal.waitForFinished(60000));
    screen += QString::fromUtf8(terminal.readAllStandardOutput());
    EXPECT_EQ(terminal.exitCode(), 130) << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains("scan cancelled")) << qPrintable(screen.right(400));
    EXPECT_FALSE(screen.contains(" font files, ")); // no font list after a cancelled scan
}

TEST_F(CliTest, ASidecarThatIsALinkIsNeitherFollowedNorMoved)
{
    // An unpacked archive may hold "._Times" pointing at someone else's file.
    const QString elsewhere = home.path() + "/elsewhere/Times", victim = home.path() + "/elsewhere/._Times";
    ASSERT_TRUE(makeSuitcase(elsewhere, dejaVuSerifFork(home.path() + "/work")));
    const QString before = fileSha256(victim), font = home.writeFile("scan/Times", {});
    ASSERT_TRUE(QFile::link(victim, home.path() + "/scan/._Times"));
    cli({ "diagnose", "--resolve", home.path() + "/scan" });
    EXPECT_EQ(fileSha256(victim), before);
    EXPECT_TRUE(QFileInfo(font).isFile());
    EXPECT_TRUE(QFileInfo(home.path() + "/scan/._Times").isSymLink());
}

TEST_F(CliTest, WhatAnOrdinaryUserCannotReadIsReportedAndLeftAlone)
{
    const QString fonts = home.path() + "/Fonts";
    // An outline whose sidecar cannot be read, beside the bitmap suitcase that needs it.
    const QString hiddenOutline = qvtest::makeOutlineFile(fonts + "/Sidecar"),
                  suitcase = fonts + "/Sidecar/Nimbus Sans";
    const QByteArray fork = ufondFork(home.path() + "/work",
        { { QStringLiteral("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf"), 10 } });
    ASSERT_TRUE(makeSuitcase(suitcase, withPostScriptName(fork, qvtest::kNimbusPSName.toLatin1())));
    // An outline whose data fork cannot be read, a font nobody may read, a closed folder.
    const QStringList locked = { QVForkStorage::sidecarPath(hiddenOutline),
        qvtest::makeOutlineFile(fonts + "/Data"), copyFont(kDejaVuSans, fonts + "/Mode"),
        QFileInfo(copyFont(kDejaVuSerif, fonts + "/Closed")).path() };
    for (const QString &path : locked)
        ASSERT_TRUE(QFile::setPermissions(path, QFileDevice::Permissions()));
    const std::optional<CliRun> run = runCliAsOrdinaryUser(home, { "diagnose", "--resolve", fonts });
    if (!run)
        GTEST_SKIP() << "no way to run as an ordinary user here";
    EXPECT_EQ(run->exitCode, 2) << qPrintable(run->out + run->err);
    for (const QString &path : QStringList { hiddenOutline, locked.at(1), locked.at(2), locked.at(3) })
        EXPECT_TRUE(run->err.contains("quorvel-cli: " + path + ": ")) << qPrintable(path + "\n" + run->err);
    EXPECT_TRUE(run->err.contains("File Unreadable (._" + qvtest::kNimbusPS533Name + ": Permission denied)"));
    // Neither damaged nor orphaned: nothing was guessed and nothing moved.
    EXPECT_TRUE(run->out.contains("Fonts with problems:       0\n")) << qPrintable(run->out);
    EXPECT_TRUE(run->out.contains("Quarantined: 0\n")) << qPrintable(run->out);
    for (const char *guess : { "Missing PostScript Name", "Couldn't Find", "File Error" })
        EXPECT_FALSE(run->out.contains(QLatin1String(guess))) << guess;
    EXPECT_TRUE(QFileInfo(suitcase).isFile());
    EXPECT_TRUE(QFileInfo(locked.at(2)).isFile());
    for (const char *command : { "scan", "diagnose" }) {
        const std::optional<CliRun> closed = runCliAsOrdinaryUser(home, { command, locked.at(3) });
        ASSERT_TRUE(closed);
        EXPECT_EQ(closed->exitCode, 2) << command;
        EXPECT_TRUE(closed->err.contains(locked.at(3) + ": cannot be read (Permission denied)"))
            << qPrintable(closed->err);
    }
    // A setting that cannot be stored is a failure.
    ASSERT_EQ(cli({ "settings", "set", "doLogging", "false" }).exitCode, 0);
    const QString conf = home.configHome() + "/org.quorvel.Quorvel.conf";
    ASSERT_TRUE(QFile::setPermissions(
        conf, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther));
    const std::optional<CliRun> set = runCliAsOrdinaryUser(home, { "settings", "set", "doLogging", "true" });
    ASSERT_TRUE(set);
    EXPECT_EQ(set->exitCode, 2);
    EXPECT_TRUE(set->err.contains("cannot be written")) << qPrintable(set->err);
    EXPECT_EQ(runCliAsOrdinaryUser(home, { "settings", "get", "doLogging" })->out, "false\n");
}

TEST_F(CliTest, OrganizeCopiesHealthyFontsKeepsItsChoicesAndRefusesBadArguments)
{
    const QString source = home.path() + "/Source", library = home.path() + "/Library";
    QDir().mkpath(library);
    copyFont(kDejaVuSans, source + "/a");
    copyFont(kDejaVuSerif, source + "/a");
    copyFont(kDejaVuSans, source + "/b");
    home.writeFile("Source/b/Broken.ttf", readFile(kDejaVuSans).left(3000));
    const CliRun run = cli({ "organize", "--library", library, "--copy", "--name", "family",
        "--foundry-folders", "--letter-folders", "--family-folders", source });
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err); // a duplicate and a damaged font, as diagnose
    const QString sans = library + "/Bitstream/D/DejaVu Sans/";
    EXPECT_TRUE(run.out.startsWith("4 font files, 4 fonts\n")) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("Copied 3 files into " + library + ":\n")) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("  " + source + "/b/DejaVuSans.ttf -> " + sans + "DejaVuSans 1.ttf\n"));
    EXPECT_TRUE(run.out.contains("Failures: 0\n"));
    EXPECT_EQ(QDir(library + "/Bitstream/D").entryList(QDir::AllDirs | QDir::NoDotAndDotDot),
        (QStringList { "DejaVu Sans", "DejaVu Serif" }));
    EXPECT_EQ(fileSha256(sans + "DejaVuSans 1.ttf"), fileSha256(kDejaVuSans));
    EXPECT_TRUE(QFile::exists(source + "/b/Broken.ttf") && QFile::exists(source + "/a/DejaVuSans.ttf"));
    QStringList settings;
    for (const char *key :
        { "copyFontFiles", "useFamilyNameForFonts", "usePostscriptNameForFonts", "createFoundryFolders",
            "createAlphabetFolders", "createFamilyFolders", "organizeFontsFolder", "lastScanType" })
        settings << cli({ "settings", "get", key }).out.trimmed();
    EXPECT_EQ(
        settings, (QStringList { "true", "true", "false", "true", "true", "true", library, "Manual Scan" }));

    const QString fresh = home.path() + "/Fresh";
    QDir().mkpath(fresh + "/Library");
    for (const QStringList &bad : { QStringList { "organize", fresh }, QStringList { "--name", "style" },
             QStringList { "--library", home.path() + "/nowhere" },
             QStringList { "--library", fresh + "/Library" }, QStringList { "--copy", "--move" },
             QStringList { "--no-family-folders", "--family-folders" },
             QStringList { "--name", "family", "--name", "file" } }) {
        const QStringList arguments = bad.first() == "organize" ? bad
            : bad.first() == "--library"
            ? QStringList { "organize" } + bad + QStringList { fresh }
            : QStringList { "organize", "--library", library } + bad + QStringList { fresh };
        EXPECT_EQ(cli(arguments).exitCode, 2) << qPrintable(arguments.join(' '));
    }
    EXPECT_TRUE(cli({ "organize", "--library", library, "--copy", "--move", fresh })
                    .err.contains("cannot be used together"));
    EXPECT_EQ(cli({ "settings", "get", "organizeFontsFolder" }).out.trimmed(), library);
    // Locked folders are refused before anything moves; a locked source may be copied from.
    copyFont(kDejaVuSans, fresh);
    if (!lockFolder(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const CliRun lockedLibrary = cli({ "organize", "--library", library, "--move", fresh });
    lockFolder(library, false);
    EXPECT_EQ(lockedLibrary.exitCode, 2);
    EXPECT_EQ(lockedLibrary.err,
        "Destination Folder Locked: The destination folder \"" + library
            + "\" is locked and the files cannot be saved there. Please choose a different folder.\n");
    ASSERT_TRUE(lockFolder(fresh, true));
    const CliRun move = cli({ "organize", "--library", library, "--move", fresh });
    const CliRun copy = cli({ "organize", "--library", library, "--copy", "--no-foundry-folders",
        "--no-letter-folders", "--no-family-folders", fresh });
    lockFolder(fresh, false);
    EXPECT_EQ(move.exitCode, 2);
    EXPECT_EQ(move.err,
        "Source Files Locked: The source folder \"" + fresh
            + "\" is locked and the files cannot be moved. Use the Copy option instead.\n");
    EXPECT_EQ(copy.exitCode, 0) << qPrintable(copy.err);
    EXPECT_TRUE(QFile::exists(library + "/DejaVuSans.ttf") && QFile::exists(fresh + "/DejaVuSans.ttf"));
}

TEST_F(CliTest, QuarantineListsRestoresAndRemovesUnderTheFilesOwnBytes)
{
    EXPECT_EQ(cli({ "quarantine", "list" }).out, "The quarantine is empty.\n");
    const QByteArray fonts = QFile::encodeName(home.path()) + "/fonts";
    ASSERT_TRUE(QDir().mkpath(home.path() + "/fonts"));
    for (const QByteArray &name :
        { QByteArray("Alpha.otf"), QByteArray("Br\x8ek.otf"), QByteArray("Zeta.otf") })
        ASSERT_TRUE(writeRaw(fonts + "/" + name, "damaged " + name));
    ASSERT_TRUE(setFinderInfo(home.path() + "/fonts/Zeta.otf", "OTTOmovr"));
    ASSERT_EQ(cli({ "diagnose", "--resolve", home.path() + "/fonts" }).exitCode, 1);
    const CliRun listed = cli({ "quarantine", "list", "--json" });
    ASSERT_EQ(listed.exitCode, 0) << qPrintable(listed.err);
    const QJsonArray rows = json(listed).toArray();
    ASSERT_EQ(rows.size(), 3);
    EXPECT_EQ(rows[0]["number"].toInt(), 1);
    EXPECT_EQ(rows[1]["quarantineFileName"].toString(), QStringLiteral("Br\u00e9k.otf"));
    EXPECT_FALSE(rows[2]["reason"].toString().isEmpty());
    EXPECT_TRUE(cli({ "quarantine", "list" })
                    .out.startsWith(
                        "   1  Alpha.otf  (Alpha.otf)\n      from " + home.path() + "/fonts/Alpha.otf\n"));
    EXPECT_EQ(readRaw(fonts + "/Br\x8ek.otf"), "<missing>");

    CliRun run = cli({ "quarantine", "restore", "2" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(run.out, "Restored 1 of 1 font.\n");
    EXPECT_EQ(readRaw(fonts + "/Br\x8ek.otf"), "damaged Br\x8ek.otf");
    const QString elsewhere = home.path() + "/elsewhere";
    QDir().mkpath(elsewhere);
    ASSERT_EQ(cli({ "quarantine", "restore", "--to", elsewhere, "2" }).exitCode, 0);
    EXPECT_EQ(
        QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), (QStringList { "._Zeta.otf", "Zeta.otf" }));
    EXPECT_EQ(cli({ "quarantine", "restore", "--to", home.path() + "/none", "1" }).exitCode, 2);
    EXPECT_EQ(cli({ "quarantine", "list", "extra" }).exitCode, 2);

    run = cli({ "quarantine", "remove", "1" }, "n\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.contains("Nothing was removed.")) << qPrintable(run.err);
    ASSERT_EQ(cli({ "quarantine", "remove", "1" }, "y\n").exitCode, 0);
    EXPECT_EQ(cli({ "quarantine", "list" }).out, "The quarantine is empty.\n");
    EXPECT_EQ(QDir(home.dataHome() + "/Quorvel/Quarantine").entryList(QDir::Files | QDir::Hidden),
        QStringList { "dataSource" });
    EXPECT_EQ(cli({ "quarantine", "remove", "--yes", "1" }).exitCode, 2);
}

TEST_F(CliTest, ResolutionsSharingADataFolderTakeTurnsAndLoseNoRecord)
{
    // A command waits for the run holding the data folder, and says so.
    QVFileLock other(home.dataHome() + "/Quorvel/.lock");
    QDir().mkpath(home.dataHome() + "/Quorvel");
    ASSERT_TRUE(other.lock(0));
    QProcess list;
    list.setProcessEnvironment(cliEnvironment(home));
    list.start(QStringLiteral(QV_CLI_PATH), { "quarantine", "list" });
    list.setReadChannel(QProcess::StandardError);
    ASSERT_TRUE(list.waitForReadyRead(30000));
    EXPECT_TRUE(
        list.readAllStandardError().contains(QStringLiteral("waiting for another Quorvel run (process %1)")
                                                 .arg(QCoreApplication::applicationPid())
                                                 .toUtf8()));
    EXPECT_EQ(list.state(), QProcess::Running);
    other.unlock();
    ASSERT_TRUE(list.waitForFinished(30000));
    EXPECT_EQ(list.readAllStandardOutput(), "The quarantine is empty.\n");

    const int count = 150;
    for (const char *folder : { "A", "B" }) {
        for (int i = 0; i < count; ++i)
            home.writeFile(QStringLiteral("%1/Broken%2.otf").arg(QLatin1String(folder)).arg(i), QByteArray());
    }
    QProcess first, second;
    for (QProcess *process : { &first, &second }) {
        process->setProcessEnvironment(cliEnvironment(home));
        process->start(QStringLiteral(QV_CLI_PATH),
            { "diagnose", "--resolve", home.path() + (process == &first ? "/A" : "/B") });
    }
    for (QProcess *process : { &first, &second }) {
        ASSERT_TRUE(process->waitForFinished(120000));
        EXPECT_EQ(process->exitCode(), 1) << process->readAllStandardError().constData();
    }
    // Every file of the quarantine has its own record, and every record its file.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    QStringList recorded;
    for (const QVariant &record : QVPropertyList::readFile(folder + "/dataSource").toList()) {
        EXPECT_FALSE(QFileInfo::exists(record.toMap().value("originalFilePath").toString()));
        recorded << record.toMap().value("quarantineFileName").toString();
    }
    recorded.sort();
    EXPECT_EQ(recorded.size(), 2 * count);
    EXPECT_EQ(recorded, QDir(folder).entryList({ "Broken*" }, QDir::Files, QDir::Name));
}

TEST_F(CliTest, ReportsAreListedOldestFirstShownRenamedAndRemovedAfterAsking)
{
    EXPECT_EQ(cli({ "reports", "list" }).out, "No saved reports.\n");
    {
        QVReportStore store;
        for (const auto &[name, date] : { std::pair { "Quorvel Report 3/1/2024", QDate(2024, 3, 1) },
                 std::pair { "Quorvel Report 1/2/2024", QDate(2024, 1, 2) },
                 std::pair { "Studio & <Co>", QDate(2024, 2, 1) } })
            ASSERT_TRUE(store
                            .addFileToReports({ { "reportName", name }, { "reportData", "<html></html>" },
                                { "date", QDateTime(date, QTime(12, 0), Qt::UTC) },
                                { "qv_total_examined", 1234 }, { "qv_total_problems", 5 } })
                            .isNull());
    }
    const QStringList lines = cli({ "reports", "list" }).out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines[1].trimmed().startsWith("1  2024-01-02")) << qPrintable(lines[1]);
    EXPECT_TRUE(lines[1].endsWith("1,234          5  Quorvel Report 1/2/2024")) << qPrintable(lines[1]);
    EXPECT_TRUE(lines[2].endsWith("Studio & <Co>"));
    const QJsonArray list = json(cli({ "reports", "list", "--json" })).toArray();
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(keys(list[0]),
        (QStringList {
            "date", "filePath", "number", "qv_total_examined", "qv_total_problems", "reportName" }));
    EXPECT_EQ(list[0]["date"].toString() + " " + list[0]["qv_total_examined"].toString(),
        "2024-01-02T12:00:00Z 1,234");
    QStringList paths;
    for (const QJsonValue &report : list)
        paths << report["filePath"].toString();
    EXPECT_EQ(cli({ "reports", "show", "2" }).out, paths.at(1) + '\n');
    for (const QStringList &bad : { QStringList { "show", "4" }, QStringList { "show", "x" },
             QStringList { "frobnicate" }, QStringList { "rename", "1", "" } })
        EXPECT_EQ(cli(QStringList { "reports" } + bad).exitCode, 2) << qPrintable(bad.join(' '));
    EXPECT_EQ(cli({ "reports", "rename", "1", "January", "job" }).exitCode, 0);
    EXPECT_EQ(json(cli({ "reports", "list", "--json" }))[0]["reportName"].toString(), "January job");
    // Declined, or no answer at all: nothing goes.
    EXPECT_EQ(cli({ "reports", "remove", "1" }, "n\n").exitCode, 0);
    EXPECT_EQ(cli({ "reports", "rm", "1" }).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(paths.at(0)));
    const CliRun confirmed = cli({ "reports", "remove", "1", "3" }, "y\n");
    EXPECT_TRUE(confirmed.err.contains("Are you sure you want to remove the selected reports?"));
    EXPECT_EQ(QStringList({ QString::number(QFileInfo::exists(paths.at(0))),
                  QString::number(QFileInfo::exists(paths.at(1))),
                  QString::number(QFileInfo::exists(paths.at(2))) }),
        (QStringList { "0", "1", "0" }));
    QFile::remove(paths.at(1));
    const CliRun missing = cli({ "reports", "show", "1" });
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains("is missing"));
    EXPECT_EQ(cli({ "reports", "rm", "1", "--yes" }).exitCode, 0);
    EXPECT_EQ(cli({ "reports", "list" }).out, "No saved reports.\n");
}

TEST_F(CliTest, RsrcListsAForkAsFontToolsReadsItAndSaysWhyItCannot)
{
    const QString lwfn
        = makeLwfn(home.path(), "NimbusRom", "/usr/share/fonts/X11/Type1/NimbusRoman-Regular.pfb");
    ASSERT_FALSE(lwfn.isEmpty());
    const CliRun run = cli({ "rsrc", "--json", lwfn });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    // Keys come in reading order, as documented.
    EXPECT_TRUE(
        run.out.startsWith("{\"hasResourceFork\":true,\"storage\":\"appledouble\",\"finderInfo\":{\"type\":"
                           "\"LWFN\",\"creator\":\"T1UT\",\"flags\":8448,"))
        << qPrintable(run.out.left(200));
    QStringList listed;
    for (const QJsonValue &resource : json(run)["resources"].toArray())
        listed << QStringLiteral("%1 %2 %3")
                      .arg(resource["type"].toString())
                      .arg(resource["id"].toInt())
                      .arg(resource["size"].toInt())
                + " " + (resource["name"].isNull() ? QStringLiteral("null") : resource["name"].toString());
    listed.sort();
    QStringList expected = fontToolsResources(extractFork(lwfn, home.path() + "/raw"));
    ASSERT_FALSE(expected.isEmpty());
    for (QString &line : expected)
        line = line.section(' ', 0, 2) + ' ' + line.section(' ', 5);
    expected.sort();
    EXPECT_EQ(listed, expected);

    const QString damaged = home.writeFile("damaged", {});
    ASSERT_TRUE(writeFile(QVForkStorage::sidecarPath(damaged),
        QByteArray::fromHex("0005160700020000") + QByteArray(16, '\0')
            + QByteArray::fromHex("0001000000020000002600000020") + QByteArray(32, '\x55')));
    const CliRun bad = cli({ "rsrc", damaged });
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_TRUE(bad.err.contains("Inconsistent resource map")) << qPrintable(bad.err);
    EXPECT_TRUE(cli({ "rsrc", home.path() + "/nothing-here" }).err.contains("File not found"));
    EXPECT_EQ(cli({ "rsrc" }).exitCode, 2);
    const QJsonValue none = json(cli({ "rsrc", "--json", home.writeFile("plain.otf", "OTTO") }));
    EXPECT_FALSE(none["hasResourceFork"].toBool());
    EXPECT_EQ(none["storage"].toString(), "none");
    EXPECT_TRUE(none["resources"].toArray().isEmpty());
}

TEST_F(CliTest, SettingsAreListedSetForTheNextProcessResetAndChecked)
{
    const CliRun list = cli({ "settings", "list" });
    ASSERT_EQ(list.exitCode, 0) << qPrintable(list.err);
    for (const char *line : { "diagnoseFileStructure = true\n", "checkFontActivation = false\n",
             "autoScanFrequency = kMonthly\n", "prefsVersion = 3\n", "lastReportName = (not set)\n" })
        EXPECT_TRUE(list.out.contains(QLatin1String(line))) << line;
    EXPECT_EQ(list.out.count('\n'), 43);
    for (const QStringList &set : { QStringList { "matchVersionNumbers", "false" },
             QStringList { "fontFolderPaths", "/a/", "/b/" }, QStringList { "userName", "Ada" } })
        EXPECT_EQ(cli(QStringList { "settings", "set" } + set).exitCode, 0) << qPrintable(set.join(' '));
    EXPECT_EQ(cli({ "settings", "get", "fontFolderPaths" }).out, "/a/ /b/\n");
    EXPECT_EQ(cli({ "settings", "get", "matchVersionNumbers" }).out, "false\n");
    EXPECT_EQ(cli({ "settings", "reset" }).exitCode, 0);
    EXPECT_EQ(
        cli({ "settings", "get", "matchVersionNumbers" }).out + cli({ "settings", "get", "userName" }).out,
        "true\nAda\n");
    EXPECT_TRUE(cli({ "settings", "set", "noSuchKey", "1" }).err.contains("unknown setting \"noSuchKey\""));
    EXPECT_TRUE(cli({ "settings", "set", "doLogging", "perhaps" }).err.contains("true or false"));
    for (const QStringList &bad : { QStringList { "settings", "set", "noSuchKey", "1" },
             QStringList { "settings", "set", "autoScanFrequency", "kHourly" },
             QStringList { "settings", "set", "lastScanDate", "yesterday" },
             QStringList { "settings", "get", "nope" }, QStringList { "frobnicate" } })
        EXPECT_EQ(cli(bad).exitCode, 2) << qPrintable(bad.join(' '));
    EXPECT_EQ(cli({ "--version" }).out, QStringLiteral("quorvel-cli " QV_VERSION "\n"));
}
