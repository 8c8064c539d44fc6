// quorvel-cli as a process: one real run per command, its arguments, exit codes and JSON; signals,
// a terminal, an ordinary user and runs sharing a data folder.
#include "platform/QVFileLock.h"
#include "store/QVPropertyList.h"
#include "store/QVReportStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVFixtures;
using FS = QVForkStorage;

namespace
{

const QString kNimbusOtf = "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf";

QJsonValue json(const CliRun &run)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << qPrintable(run.out.left(300));
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

QString keys(const QJsonValue &object)
{
    QStringList list = object.toObject().keys();
    list.sort();
    return list.join(' ');
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
    return font.replace(font.indexOf("kern") + 4, 4, QByteArray(4, '\0'));
}

// A damaged font, a misnamed outline beside its invisible bitmap suitcase (two
// repairs), an orphaned outline, an orphaned bitmap suitcase, a duplicate pair
// and a name with a comma.
bool makeMixedFolder(const QString &folder, const QString &work)
{
    const QString suitcase = folder + "/Type1/Nimbus Sans";
    return writeFile(folder + "/Damaged/Sans.ttf", damagedSans())
        && !makeLwfn(
            folder + "/Type1", "Nimbus Wrong", "/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1")
                .isEmpty()
        && makeSuitcase(
            suitcase, withPostScriptName(ufondFork(work, { { kNimbusOtf, 10 } }), "NimbusSans-Regular"))
        && setFinderInfo(suitcase, "FFILDMOV", 0x4000) && !makeLwfn(folder + "/Orphans", "C059Ita").isEmpty()
        && makeSuitcase(folder + "/Orphans/C059", withPostScriptName(c059Fork(work), "C059-Roman"))
        && !copyFont(kDejaVuSerif, folder + "/A").isEmpty()
        && !copyFont(kDejaVuSerif, folder + "/B", "Serif, Copy.ttf").isEmpty();
}

// The files below a folder, sidecars left out (they go with their files).
QSet<QString> filesBelow(const QString &folder)
{
    QSet<QString> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!it.fileName().startsWith("._"))
            files.insert(path);
    }
    return files;
}

class CliTest : public ::testing::Test
{
protected:
    CliRun cli(const QStringList &arguments, const QByteArray &input = {})
    {
        return runCli(home, arguments, input);
    }
    void expectRefused(const QList<QStringList> &runs)
    {
        for (const QStringList &arguments : runs) {
            const CliRun refused = cli(arguments);
            EXPECT_EQ(refused.exitCode, 2) << qPrintable(arguments.join(' '));
            EXPECT_TRUE(refused.out.isEmpty()) << qPrintable(refused.out);
        }
    }
    // The run's JSON checked against its schema in docs/schemas.
    void expectSchema(const CliRun &run, const QString &schema)
    {
        const QString document = home.writeFile("document.json", run.out.toUtf8());
        const ToolRun checked = runTool("/usr/bin/python3",
            { QStringLiteral(QV_SCRIPTS_DIR "/check-json-schema.py"),
                QStringLiteral(QV_SCRIPTS_DIR "/../docs/schemas/") + schema + ".schema.json", document });
        EXPECT_EQ(checked.exitCode, 0)
            << qPrintable(schema) << ": " << checked.out.constData() << checked.err.constData();
    }
    void start(QProcess &process, const QStringList &arguments, const QVTestHome &in)
    {
        process.setProcessEnvironment(cliEnvironment(in));
        process.start(QStringLiteral(QV_CLI_PATH), arguments);
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
    ASSERT_TRUE(writeRaw(QFile::encodeName(two) + "/Caf\x8e.ttf", readFile(kDejaVuSans))); // shown readably
    // A hard link, a link, and a folder reached through a link are each met once.
    ASSERT_EQ(
        ::link(QFile::encodeName(one + "/b.ttf").constData(), QFile::encodeName(one + "/c.ttf").constData()),
        0);
    ASSERT_TRUE(QFile::link(one + "/b.ttf", one + "/d.ttf") && QFile::link(one, home.path() + "/alias"));

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
    EXPECT_TRUE(text.out.contains(QRegularExpression("Short.dfont\n.*File Resource Error")));
    // The PC Type 1 outline is one font.
    EXPECT_TRUE(text.out.endsWith("\n9 fonts in 6 files, problems found\n"))
        << qPrintable(text.out.right(200));
    EXPECT_FALSE(text.out.contains('\r') || text.err.contains('\r')); // no bar off a terminal

    const CliRun jsonRun = cli({ "scan", "--json", one });
    ASSERT_EQ(jsonRun.exitCode, 0) << qPrintable(jsonRun.err);
    const QJsonValue document = json(jsonRun);
    EXPECT_EQ(keys(document), "folders fontFiles foundProblemFonts totalFonts unreadable");
    const QJsonArray found = document["fontFiles"].toArray();
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(found[1]["URL"].toString(), one + "/b.ttf");
    EXPECT_EQ(found[1]["fontStatusArray"].toArray().size(), 1);

    // Without folders, the configured font folders.
    ASSERT_EQ(cli({ "settings", "set", "fontFolderPaths", one + "/a/" }).exitCode, 0);
    const QString configured = cli({ "scan" }).out;
    EXPECT_TRUE(configured.contains(one + "/a/Outline.pfb") && !configured.contains(one + "/b.ttf"));
    expectRefused(
        { { "scan", one, home.path() + "/gone" }, { "scan", one + "/b.ttf" }, { "scan", "--frobnicate" } });
    EXPECT_TRUE(cli({ "scan", home.path() + "/gone" }).err.contains(home.path() + "/gone: no such folder"));
}

TEST_F(CliTest, ExamineGivesRecordsOfSoundAndDamagedFilesAndExitCodes)
{
    home.writeFile("Kern.ttf", damagedSans());
    home.writeFile("Empty.otf", QByteArray());
    QProcess process; // relative names are taken in the working folder
    process.setWorkingDirectory(home.path());
    start(process, { "examine", "--json", kDejaVuSans, "Kern.ttf", "Empty.otf" }, home);
    ASSERT_TRUE(process.waitForFinished(120000));
    EXPECT_EQ(process.exitCode(), 1);
    const QJsonObject root = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    EXPECT_EQ(root["totalFonts"].toInt(), 3);
    EXPECT_TRUE(root["foundProblemFonts"].toBool());
    const QJsonArray files = root["fontFiles"].toArray();
    ASSERT_EQ(files.size(), 3);
    EXPECT_EQ(files[0]["URL"].toString() + " " + files[1]["URL"].toString(),
        kDejaVuSans + " " + home.path() + "/Kern.ttf");
    const QJsonValue sound = files[0]["fontStatusArray"][0], kern = files[1]["fontStatusArray"][0];
    EXPECT_EQ(sound["fontName"].toString() + "/" + sound["PSname"].toString() + "/"
            + sound["fontFoundry"].toString(),
        "DejaVu Sans/DejaVuSans/Bitstream");
    EXPECT_EQ(sound["fontType"].toInt(), 3);
    EXPECT_TRUE(sound["trueTypeFontName"].isNull());
    EXPECT_EQ(kern["index"].toInt(), 1);
    EXPECT_EQ(QJsonArray({ kern["fontErrors"], kern["fontErrorsInfo"], kern["fixedErrors"] }),
        QJsonArray({ QJsonArray { 0 }, QJsonArray { "Bad Table Data" }, QJsonArray { false } }));
    EXPECT_EQ(files[2]["fontStatusArray"][0]["fontName"].toString(), "Empty.otf");

    const CliRun text = cli({ "examine", kDejaVuSans });
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(
        text.out.contains(kDejaVuSans) && text.out.contains("DejaVu Sans") && text.out.contains("TrueType"));
    EXPECT_TRUE(text.out.contains("1 font in 1 file, no problems found"));
    EXPECT_TRUE(
        cli({ "examine", kDejaVuSans, "/no/such/font.ttf" }).err.contains("no such file: /no/such/font.ttf"));
    expectRefused({ { "examine", kDejaVuSans, "/no/such/font.ttf" }, { "examine" },
        { "examine", "--bogus", kDejaVuSans } });
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
    EXPECT_EQ(object["resolution"]["quarantined"].toArray().size(), 4);
    EXPECT_EQ(object["resolution"]["qv_total_quarantined"].toInt(), 4);
    EXPECT_EQ(json(cli({ "quarantine", "list", "--json" })).toArray().size(), 4);
    EXPECT_EQ(QDir(fonts).entryList(QDir::Files), QStringList { "DejaVuSerif.ttf" });
    // The report is written after the resolution, with names as text, and listed.
    const QString reportPath = object["report"].toString();
    EXPECT_TRUE(reportPath.startsWith(home.dataHome() + "/Quorvel/Reports/")) << qPrintable(reportPath);
    const QString html = QString::fromUtf8(readFile(reportPath));
    EXPECT_TRUE(html.contains("Broken &lt;b&gt;&amp;.otf") && !html.contains("Broken <b>"));
    EXPECT_TRUE(html.contains("\"value\">4</span><span class=\"label\">Problem fonts")) << qPrintable(html);
    EXPECT_TRUE(html.contains("\"value\">4</span><span class=\"label\">Moved to quarantine"));
    const QJsonArray reports = json(cli({ "reports", "list", "--json" })).toArray();
    ASSERT_EQ(reports.size(), 1);
    EXPECT_EQ(reports[0]["filePath"].toString(), reportPath);
    // The scan is recorded; a healthy folder has no problems; usage errors exit with 2.
    EXPECT_EQ(cli({ "settings", "get", "lastScanProblemCount" }).out
            + cli({ "settings", "get", "lastScanType" }).out,
        "4\nManual Scan\n");
    const CliRun healthy = cli({ "diagnose", fonts });
    EXPECT_EQ(healthy.exitCode, 0) << qPrintable(healthy.err);
    EXPECT_TRUE(healthy.out.startsWith("1 font files, 1 fonts\nNo Problems Found!\n"))
        << qPrintable(healthy.out);
    QDir().mkpath(home.path() + "/Empty");
    EXPECT_EQ(cli({ "diagnose", home.path() + "/Empty" }).out,
        "Fonts Not Found: No font files were found or scanned in the selected folders.\n");
    EXPECT_TRUE(cli({ "diagnose", home.path() + "/Nowhere" }).err.contains("no such folder"));
    expectRefused({ { "diagnose", home.path() + "/Nowhere" }, { "diagnose", "--fast", fonts },
        { "diagnose", fonts + "/DejaVuSerif.ttf" } });
    for (const char *key : { "diagnoseFileStructure", "findOrpanedFonts", "findDuplicateFonts" })
        ASSERT_EQ(cli({ "settings", "set", key, "false" }).exitCode, 0);
    const CliRun none = cli({ "diagnose", fonts });
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(none.err.contains("Choose at least one diagnosis")) << qPrintable(none.err);
}

TEST_F(CliTest, ThePlanIsWhatTheResolutionDoesOnlyLimitsBothAndEveryJsonFitsItsSchema)
{
    const QString fonts = home.path() + "/Mixed";
    ASSERT_TRUE(makeMixedFolder(fonts, home.path() + "/work"));
    const QSet<QString> before = filesBelow(fonts);
    auto plan = [&](const QStringList &only) {
        const CliRun run = cli(QStringList { "diagnose", "--plan", "--json" } + only + QStringList { fonts });
        EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
        expectSchema(run, "diagnose");
        return json(run)["plan"].toArray();
    };
    QStringList actions;
    for (const QJsonValue &step : plan({}))
        actions << step["action"].toString();
    actions.removeDuplicates();
    actions.sort();
    EXPECT_EQ(actions, (QStringList { "keep", "quarantine", "repair", "takeOutOfSuitcase" }));
    for (const auto &[only, allowed] :
        { std::pair { "duplicates", "keep quarantine" }, std::pair { "repairs", "repair" },
            std::pair { "orphans,damaged", "quarantine takeOutOfSuitcase" } }) {
        for (const QJsonValue &step : plan({ "--only", only })) {
            EXPECT_TRUE(QString(allowed).split(' ').contains(step["action"].toString())) << only;
            EXPECT_EQ(step["action"].toString() == "keep" || step.toObject().contains("duplicateOf"),
                QLatin1String(only) == QLatin1String("duplicates"));
        }
    }
    EXPECT_EQ(filesBelow(fonts), before);

    // As CSV: a header and a line per font, the comma in a name quoted.
    const CliRun csv = cli({ "diagnose", "--format", "csv", fonts });
    const QString table = home.writeFile("table.csv", csv.out.toUtf8());
    EXPECT_EQ(python("import csv, sys\nrows = list(csv.reader(open(sys.argv[1], newline='')))\n"
                     "print(len(rows), sorted(set(map(len, rows))), rows[0][-2:], any('Serif, Copy' in r[0] "
                     "for r in rows))",
                  { table }),
        QStringLiteral("%1 [15] ['diagnosis', 'action'] True\n")
            .arg(json(cli({ "scan", "--json", fonts }))["totalFonts"].toInt() + 1));
    // Every other JSON output against its schema.
    expectSchema(cli({ "scan", "--json", fonts }), "scan");
    expectSchema(
        cli({ "examine", "--json", fonts + "/B/Serif, Copy.ttf", fonts + "/Damaged/Sans.ttf" }), "examine");
    expectSchema(cli({ "rsrc", "--json", fonts + "/Orphans/C059" }), "rsrc");
    // Quiet: the problems only; log lines reach stderr only when asked for.
    ASSERT_EQ(cli({ "settings", "set", "doLogging", "true" }).exitCode, 0);
    const CliRun quiet = cli({ "--quiet", "diagnose", fonts }), verbose = cli({ "diagnose", "-v", fonts });
    EXPECT_TRUE(quiet.out.startsWith("Found Duplicate Fonts:") && quiet.err.isEmpty())
        << qPrintable(quiet.out + quiet.err);
    EXPECT_EQ(verbose.out, cli({ "diagnose", fonts }).out);
    EXPECT_TRUE(
        verbose.err.contains("quorvel.diagnosis: ") && verbose.err.contains("quorvel-cli: diagnosing: "))
        << qPrintable(verbose.err);
    EXPECT_TRUE(QString::fromUtf8(readFile(home.dataHome() + "/Quorvel/Quorvel.log"))
                    .contains("quorvel.diagnosis: "));

    // A report of a run not resolved says so, instead of "Ignored".
    const QString unresolved = json(cli({ "diagnose", "--json", "--report", fonts }))["report"].toString();
    const QString html = QString::fromUtf8(readFile(unresolved));
    EXPECT_TRUE(html.contains("Not resolved") && !html.contains("Ignored")) << qPrintable(unresolved);

    // Only the repairs, then the rest: each resolution does what its plan said, nothing else.
    QSet<QString> expected = before;
    for (const QStringList &only : { QStringList { "--only", "repairs" }, QStringList {} }) {
        const QJsonArray steps = plan(only);
        QStringList planned, repairs;
        for (const QJsonValue &step : steps) {
            const QString action = step["action"].toString(), path = step["path"].toString();
            if (action == "repair") {
                repairs << step["fontName"].toString();
                if (step.toObject().contains("newPath")) {
                    expected.remove(path);
                    expected.insert(step["newPath"].toString());
                }
            } else if (action != "keep") {
                planned << step["fontName"].toString() + " " + path;
                if (action == "quarantine" || step["emptiesSuitcase"].toBool())
                    expected.remove(path);
            }
        }
        const CliRun run = cli(QStringList { "diagnose", "--resolve", "--yes", "--json", "--report" } + only
            + QStringList { fonts });
        ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
        expectSchema(run, "diagnose");
        QStringList quarantined, repaired;
        for (const QJsonValue &font : json(run)["resolution"]["quarantined"].toArray())
            quarantined << font["fontName"].toString() + " " + font["path"].toString();
        for (const QJsonValue &font : json(run)["resolution"]["repaired"].toArray())
            repaired << font["fontName"].toString();
        for (QStringList *list : { &planned, &quarantined, &repairs, &repaired })
            list->sort();
        EXPECT_EQ(quarantined, planned);
        EXPECT_EQ(repaired, repairs);
        EXPECT_EQ(filesBelow(fonts), expected);
        EXPECT_EQ(only.isEmpty(), !quarantined.isEmpty());
    }
    expectRefused(
        { { "diagnose", "--only", "repairs", fonts }, { "diagnose", "--plan", "--only", "broken", fonts },
            { "diagnose", "--dry-run", fonts }, { "diagnose", "--format", "xml", fonts } });

    expectSchema(cli({ "quarantine", "list", "--json" }), "quarantine-list");
    expectSchema(cli({ "reports", "list", "--json" }), "reports-list");
}

// On a terminal, a resolution shows its plan and asks first.
TEST_F(CliTest, OnATerminalAResolutionShowsItsPlanAndAsks)
{
    const QString fonts = home.path() + "/Fonts";
    copyFont(kDejaVuSerif, fonts + "/A");
    copyFont(kDejaVuSerif, fonts + "/B");
    for (const char *answer : { "n", "y" }) {
        QProcess terminal;
        terminal.setProcessEnvironment(cliEnvironment(home));
        terminal.start(
            "script", { "-qfec", "'" QV_CLI_PATH "' diagnose --resolve '" + fonts + "'", "/dev/null" });
        ASSERT_TRUE(terminal.waitForStarted(10000));
        QString screen;
        QDeadlineTimer deadline(120000);
        while (!screen.contains("[y/N]") && !deadline.hasExpired() && terminal.state() == QProcess::Running) {
            terminal.waitForReadyRead(200);
            screen += QString::fromUtf8(terminal.readAllStandardOutput());
        }
        EXPECT_TRUE(screen.contains("Quarantine DejaVu Serif: duplicate of DejaVu Serif"))
            << qPrintable(screen);
        terminal.write(answer + QByteArray("\n"));
        ASSERT_TRUE(terminal.waitForFinished(60000));
        screen += QString::fromUtf8(terminal.readAllStandardOutput());
        EXPECT_EQ(screen.contains("Nothing was changed."), *answer == 'n') << qPrintable(screen);
        EXPECT_EQ(filesBelow(fonts).size(), *answer == 'n' ? 2 : 1);
    }
}

TEST_F(CliTest, EveryCommandAnswersHelpWithAnExampleAndTheManualPageSaysTheSame)
{
    const CliRun program = cli({ "--help" });
    ASSERT_EQ(program.exitCode, 0);
    const QString page = home.path() + "/quorvel-cli.1";
    ASSERT_EQ(cli({ "help-man", page }).exitCode, 0);
    const QString man = QString::fromUtf8(readFile(page)).replace("\\-", "-");
    const QStringList commands = program.out.section("Commands:\n", 1).section("\n\n", 0, 0).split('\n');
    ASSERT_GE(commands.size(), 9);
    for (const QString &line : commands) {
        const QString name = line.simplified().section(' ', 0, 0);
        for (const QStringList &arguments :
            { QStringList { name, "--help" }, QStringList { name, "list", "-h" } }) {
            const CliRun help = cli(arguments);
            EXPECT_EQ(help.exitCode, 0) << qPrintable(name);
            EXPECT_TRUE(help.out.startsWith("Usage: quorvel-cli " + name) && help.err.isEmpty())
                << qPrintable(help.out);
            const QString example = help.out.section("Example", 1).section('\n', 1, 1).trimmed();
            EXPECT_TRUE(example.startsWith("quorvel-cli " + name)) << qPrintable(help.out);
            EXPECT_TRUE(man.contains(".SS " + name + '\n') && man.contains(example)) << qPrintable(example);
        }
    }
    EXPECT_EQ(cli({ "quarantine", "restore", "--help" }).out, cli({ "quarantine", "-h" }).out);
    expectRefused({ { "--quiet", "--verbose", "scan" }, { "help-man" } });
}

TEST_F(CliTest, EveryOutputIsTheSameWhateverTheNumberOfJobs)
{
    // Forks in each place, an outline file, damage, duplicates and an empty file.
    const QString fonts = home.path() + "/Mixed";
    const QString work = home.path() + "/work";
    QDir().mkpath(work);
    const QByteArray fork = dejaVuSerifFork(work);
    ASSERT_FALSE(fork.isEmpty());
    ASSERT_TRUE(makeSuitcase(fonts + "/Sidecar Serif", fork, FS::Place::AppleDouble));
    ASSERT_TRUE(makeSuitcase(fonts + "/Netatalk Serif", fork, FS::Place::NetatalkFolder));
    ASSERT_TRUE(makeSuitcase(fonts + "/a/Attribute Serif", fork, FS::Place::ExtendedAttribute));
    ASSERT_FALSE(makeLwfn(fonts, "C059Ita").isEmpty());
    copyFont(kDejaVuSans, fonts + "/a");
    copyFont(kDejaVuSans, fonts + "/b");
    home.writeFile("Mixed/b/Damaged.ttf", damagedSans());
    home.writeFile("Mixed/b/Short.dfont", readFile(kPanicSansDfont).left(700));
    home.writeFile("Mixed/b/Empty.otf", QByteArray());
    // Report times are masked: two runs may fall in different minutes.
    const QRegularExpression time("\\d{1,2}:\\d{2}(:\\d{2})?( ?[AP]M)?");
    for (const QString &folder : { fonts, QStringLiteral("/usr/share/fonts") }) {
        for (const QStringList &command :
            { QStringList { "scan", "--json" }, { "diagnose", "--json", "--report" } }) {
            QString outputs[2];
            int index = 0;
            for (const char *jobs : { "1", "4" }) {
                const CliRun run = cli(command + QStringList { "--jobs", jobs, folder });
                ASSERT_LE(run.exitCode, 1) << qPrintable(run.err);
                // The records are streamed, laid out as a whole document would be.
                EXPECT_EQ(QJsonDocument::fromJson(run.out.toUtf8()).toJson(QJsonDocument::Indented),
                    run.out.toUtf8());
                QString output = run.out;
                if (const QString report = json(run)["report"].toString(); !report.isEmpty())
                    output.replace(report, "REPORT")
                        += QString::fromUtf8(readFile(report)).replace(time, "TIME");
                outputs[index++] = output;
            }
            EXPECT_GT(outputs[0].size(), 1000);
            EXPECT_TRUE(outputs[0] == outputs[1]) << qPrintable(command.join(' ') + ' ' + folder);
        }
    }
    expectRefused({ { "scan", "--jobs", "0", fonts }, { "diagnose", "--jobs", fonts },
        { "scan", "--jobs", "2", "--jobs", "3", fonts } });
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
        start(process, { "diagnose", "--resolve", folder }, signalled);
        // Stopped as soon as the first damaged font reached the quarantine.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !QDir(quarantine).entryList({ "Broken*" }, QDir::Files).isEmpty(); }, 60000));
        ::kill(pid_t(process.processId()), signal);
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 130);
        const QString out = QString::fromUtf8(process.readAllStandardOutput());
        const int moved = out.section("Quarantined: ", 1).section('\n', 0, 0).toInt();
        EXPECT_TRUE(moved > 0 && moved < count && out.contains("Interrupted")) << qPrintable(out);
        // What it did is committed: each moved font listed, the others in place.
        EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), count - moved);
        EXPECT_EQ(QVPropertyList::readFile(quarantine + "/dataSource").toList().size(), moved);
        EXPECT_FALSE(QFile::exists(quarantine + "/dataSource.journal"));
    }
}

// On a terminal (a pseudo-terminal made by script(1)) the scan draws its bar, phase and estimate on stderr;
// Ctrl-C stops it.
TEST_F(CliTest, OnATerminalAScanShowsProgressAndCtrlCCancels)
{
    const QString tree = home.path() + "/tree";
    const ToolRun made
        = runTool("bash", { QStringLiteral(QV_SCRIPTS_DIR "/make-font-tree.sh"), tree, "20000" });
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    QProcess terminal;
    terminal.setProcessEnvironment(cliEnvironment(home));
    // Standard output goes to a file: the bar stays on the terminal, on stderr.
    const QString output = home.path() + "/out.txt";
    terminal.start(
        "script", { "-qfec", "'" QV_CLI_PATH "' scan '" + tree + "' >'" + output + "'", "/dev/null" });
    ASSERT_TRUE(terminal.waitForStarted(10000));
    QString screen;
    QDeadlineTimer deadline(240000);
    while (!screen.contains("Estimated time remaining: ") && !deadline.hasExpired()
        && terminal.state() == QProcess::Running) {
        terminal.waitForReadyRead(200);
        screen += QString::fromUtf8(terminal.readAllStandardOutput());
    }
    ASSERT_TRUE(screen.contains("Estimated time remaining: ")) << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains('\r') && screen.contains('%') && screen.contains("Examining - "));
    terminal.write("\x03"); // Ctrl-C as the terminal sends it
    ASSERT_TRUE(terminal.waitForFinished(60000));
    screen += QString::fromUtf8(terminal.readAllStandardOutput());
    EXPECT_EQ(terminal.exitCode(), 130) << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains("scan cancelled")) << qPrintable(screen.right(400));
    EXPECT_TRUE(readFile(output).isEmpty()); // no font list after a cancelled scan, no bar
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
    const QString fonts = home.path() + "/Fonts",
                  type1 = "/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1";
    // An outline whose sidecar cannot be read, beside the bitmap suitcase that needs it.
    const QString hiddenOutline = makeLwfn(fonts + "/Sidecar", "NimbuSanReg", type1),
                  suitcase = fonts + "/Sidecar/Nimbus Sans";
    ASSERT_TRUE(makeSuitcase(suitcase,
        withPostScriptName(ufondFork(home.path() + "/work", { { kNimbusOtf, 10 } }), "NimbusSans-Regular")));
    // An outline whose data fork cannot be read, a font nobody may read, a closed folder.
    const QStringList locked = { FS::sidecarPath(hiddenOutline),
        makeLwfn(fonts + "/Data", "NimbuSanReg", type1), copyFont(kDejaVuSans, fonts + "/Mode"),
        QFileInfo(copyFont(kDejaVuSerif, fonts + "/Closed")).path() };
    for (const QString &path : locked)
        ASSERT_TRUE(QFile::setPermissions(path, QFileDevice::Permissions()));
    const std::optional<CliRun> run = runCliAsOrdinaryUser(home, { "diagnose", "--resolve", fonts });
    if (!run)
        GTEST_SKIP() << "no way to run as an ordinary user here";
    EXPECT_EQ(run->exitCode, 2) << qPrintable(run->out + run->err);
    for (const QString &path : QStringList { hiddenOutline, locked.at(1), locked.at(2), locked.at(3) })
        EXPECT_TRUE(run->err.contains("quorvel-cli: " + path + ": ")) << qPrintable(path + "\n" + run->err);
    EXPECT_TRUE(run->err.contains("File Unreadable (._NimbuSanReg: Permission denied)"));
    // Neither damaged nor orphaned: nothing was guessed and nothing moved.
    EXPECT_TRUE(run->out.contains("Fonts with problems:       0\n") && run->out.contains("Quarantined: 0\n"))
        << qPrintable(run->out);
    for (const char *guess : { "Missing PostScript Name", "Couldn't Find", "File Error" })
        EXPECT_FALSE(run->out.contains(QLatin1String(guess))) << guess;
    EXPECT_TRUE(QFileInfo(suitcase).isFile() && QFileInfo(locked.at(2)).isFile());
    for (const char *command : { "scan", "diagnose" }) {
        const std::optional<CliRun> closed = runCliAsOrdinaryUser(home, { command, locked.at(3) });
        ASSERT_TRUE(closed);
        EXPECT_EQ(closed->exitCode, 2) << command;
        EXPECT_TRUE(closed->err.contains(locked.at(3) + ": cannot be read (Permission denied)"))
            << qPrintable(closed->err);
    }
    // A setting that cannot be stored is a failure.
    ASSERT_EQ(cli({ "settings", "set", "doLogging", "false" }).exitCode, 0);
    ASSERT_TRUE(QFile::setPermissions(home.configHome() + "/org.quorvel.Quorvel.conf",
        QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther));
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
    EXPECT_EQ(QDir(library + "/Bitstream/D").entryList(QDir::AllDirs | QDir::NoDotAndDotDot),
        (QStringList { "DejaVu Sans", "DejaVu Serif" }));
    EXPECT_EQ(fileSha256(sans + "DejaVuSans 1.ttf"), fileSha256(kDejaVuSans));
    EXPECT_TRUE(QFile::exists(source + "/b/Broken.ttf") && QFile::exists(source + "/a/DejaVuSans.ttf"));
    QStringList settings;
    for (const char *key : { "copyFontFiles", "useFamilyNameForFonts", "usePostscriptNameForFonts",
             "createFoundryFolders", "createAlphabetFolders", "createFamilyFolders", "organizeFontsFolder" })
        settings << cli({ "settings", "get", key }).out.trimmed();
    EXPECT_EQ(settings.join(' '), "true true false true true true " + library);

    const QString fresh = home.path() + "/Fresh", lib = "--library";
    QDir().mkpath(fresh + "/Library");
    expectRefused({ { "organize", fresh }, { "organize", lib, library, "--name", "style", fresh },
        { "organize", lib, fresh + "/Library/sub", fresh }, { "organize", lib, fresh + "/Library", fresh },
        { "organize", lib, home.writeFile("file", "x") + "/Library", fresh },
        { "organize", lib, library, "--copy", "--move", fresh },
        { "organize", lib, library, "--no-family-folders", "--family-folders", fresh },
        { "organize", lib, library, "--name", "family", "--name", "file", fresh } });
    EXPECT_EQ(cli({ "settings", "get", "organizeFontsFolder" }).out.trimmed(), library);
    // Locked folders are refused before anything moves; a locked source may be copied from.
    copyFont(kDejaVuSans, fresh);
    if (!lockFolder(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const CliRun lockedLibrary = cli({ "organize", lib, library, "--move", fresh });
    lockFolder(library, false);
    EXPECT_EQ(lockedLibrary.exitCode, 2);
    EXPECT_TRUE(lockedLibrary.err.startsWith("Destination Folder Locked: ")) << qPrintable(lockedLibrary.err);
    ASSERT_TRUE(lockFolder(fresh, true));
    const CliRun move = cli({ "organize", lib, library, "--move", fresh });
    const CliRun copy = cli({ "organize", lib, library, "--copy", "--no-foundry-folders",
        "--no-letter-folders", "--no-family-folders", fresh });
    lockFolder(fresh, false);
    EXPECT_EQ(move.exitCode, 2);
    EXPECT_TRUE(move.err.startsWith("Source Files Locked: ")) << qPrintable(move.err);
    EXPECT_EQ(copy.exitCode, 0) << qPrintable(copy.err);
    EXPECT_TRUE(QFile::exists(library + "/DejaVuSans.ttf") && QFile::exists(fresh + "/DejaVuSans.ttf"));
    // A library not there yet is made, after saying so.
    const CliRun made = cli({ "organize", lib, home.path() + "/New/Library", "--copy", fresh });
    EXPECT_EQ(made.exitCode, 0) << qPrintable(made.err);
    EXPECT_TRUE(made.err.contains("creating the library folder")
        && QFile::exists(home.path() + "/New/Library/DejaVuSans.ttf"));
}

TEST_F(CliTest, QuarantineListsRestoresAndRemovesUnderTheFilesOwnBytes)
{
    EXPECT_EQ(cli({ "quarantine", "list" }).out, "The quarantine is empty.\n");
    const QByteArray fonts = QFile::encodeName(home.path()) + "/fonts";
    ASSERT_TRUE(QDir().mkpath(home.path() + "/fonts"));
    for (const QByteArray name : { "Alpha.otf", "Br\x8ek.otf", "Zeta.otf" })
        ASSERT_TRUE(writeRaw(fonts + "/" + name, "damaged " + name));
    ASSERT_TRUE(setFinderInfo(home.path() + "/fonts/Zeta.otf", "OTTOmovr"));
    ASSERT_EQ(cli({ "diagnose", "--resolve", home.path() + "/fonts" }).exitCode, 1);
    auto ids = [&] {
        QStringList list;
        for (const QJsonValue &row : json(cli({ "quarantine", "list", "--json" })).toArray())
            list << row["id"].toString();
        return list;
    };
    const CliRun listed = cli({ "quarantine", "list", "--json" });
    ASSERT_EQ(listed.exitCode, 0) << qPrintable(listed.err);
    const QJsonArray rows = json(listed).toArray();
    ASSERT_EQ(rows.size(), 3);
    EXPECT_EQ(rows[1]["quarantineFileName"].toString(), "Br\u00e9k.otf");
    EXPECT_EQ(rows[2]["reasons"].toArray().size(), 1) << qPrintable(listed.out);
    const QStringList before = ids();
    EXPECT_TRUE(cli({ "quarantine", "list" })
                    .out.startsWith(before[0] + "  Alpha.otf  (Alpha.otf)\n          from " + home.path()
                        + "/fonts/Alpha.otf\n"));
    EXPECT_EQ(readRaw(fonts + "/Br\x8ek.otf"), "<missing>");

    // By id: the others keep theirs.
    CliRun run = cli({ "quarantine", "restore", before[1] });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(run.out, "Restored 1 of 1 font.\n");
    EXPECT_EQ(readRaw(fonts + "/Br\x8ek.otf"), "damaged Br\x8ek.otf");
    EXPECT_EQ(ids(), (QStringList { before[0], before[2] }));
    const QString elsewhere = home.path() + "/elsewhere";
    QDir().mkpath(elsewhere);
    ASSERT_EQ(cli({ "quarantine", "restore", "--to", elsewhere, before[2].left(4) }).exitCode, 0);
    EXPECT_EQ(
        QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), (QStringList { "._Zeta.otf", "Zeta.otf" }));
    expectRefused({ { "quarantine", "restore", "--to", home.path() + "/none", before[0] },
        { "quarantine", "list", "extra" }, { "quarantine", "restore", "1" },
        { "quarantine", "restore", "--all", before[0] }, { "quarantine", "remove", "--match", "zzz" } });

    run = cli({ "quarantine", "remove", "--match", "ALP" }, "n\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.contains(before[0] + "  Alpha.otf") && run.err.contains("Nothing was removed."))
        << qPrintable(run.err);
    EXPECT_EQ(cli({ "quarantine", "list", "--match", "zeta" }).out, "No font matches.\n");
    ASSERT_EQ(cli({ "quarantine", "remove", "--all" }, "y\n").exitCode, 0);
    EXPECT_EQ(cli({ "quarantine", "list" }).out, "The quarantine is empty.\n");
    EXPECT_EQ(QDir(home.dataHome() + "/Quorvel/Quarantine").entryList(QDir::Files | QDir::Hidden),
        QStringList { "dataSource" });
    EXPECT_EQ(cli({ "quarantine", "remove", "--yes", before[0] }).exitCode, 2);
}

TEST_F(CliTest, ResolutionsSharingADataFolderTakeTurnsAndLoseNoRecord)
{
    // A command waits for the run holding the data folder, and says so.
    QVFileLock other(home.dataHome() + "/Quorvel/.lock");
    QDir().mkpath(home.dataHome() + "/Quorvel");
    ASSERT_TRUE(other.lock(0));
    QProcess list;
    start(list, { "quarantine", "list" }, home);
    list.setReadChannel(QProcess::StandardError);
    ASSERT_TRUE(list.waitForReadyRead(30000));
    EXPECT_TRUE(QString::fromUtf8(list.readAllStandardError())
                    .contains(QStringLiteral("waiting for another Quorvel run (process %1)")
                                  .arg(QCoreApplication::applicationPid())));
    EXPECT_EQ(list.state(), QProcess::Running);
    other.unlock();
    ASSERT_TRUE(list.waitForFinished(30000));
    EXPECT_EQ(list.readAllStandardOutput(), "The quarantine is empty.\n");

    const int count = 150;
    QProcess runs[2];
    for (int r = 0; r < 2; ++r) {
        for (int i = 0; i < count; ++i)
            home.writeFile(QStringLiteral("%1/Broken%2.otf").arg(r).arg(i), QByteArray());
        start(runs[r], { "diagnose", "--resolve", home.path() + "/" + QString::number(r) }, home);
    }
    for (QProcess &process : runs) {
        ASSERT_TRUE(process.waitForFinished(120000));
        EXPECT_EQ(process.exitCode(), 1) << process.readAllStandardError().constData();
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
        for (const auto &[name, month] : { std::pair { "Quorvel Report 3/1/2024", 3 },
                 std::pair { "Quorvel Report 1/2/2024", 1 }, std::pair { "Studio & <Co>", 2 } })
            ASSERT_TRUE(store
                            .addFileToReports({ { "reportName", name }, { "reportData", "<html></html>" },
                                { "date", QDateTime(QDate(2024, month, 2), QTime(12, 0), Qt::UTC) },
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
    EXPECT_EQ(keys(list[0]), "date filePath number qv_total_examined qv_total_problems reportName");
    EXPECT_EQ(list[0]["date"].toString() + " " + list[0]["qv_total_examined"].toString(),
        "2024-01-02T12:00:00Z 1,234");
    QStringList paths;
    for (const QJsonValue &report : list)
        paths << report["filePath"].toString();
    EXPECT_EQ(cli({ "reports", "show", "2" }).out, paths.at(1) + '\n');
    EXPECT_EQ(cli({ "reports", "show", "--path", "2" }).out, paths.at(1) + '\n');
    // A copy a browser opens: ".html" added when missing, nothing overwritten.
    const QString copy = home.path() + "/studio";
    EXPECT_EQ(cli({ "reports", "export", "2", copy }).out, copy + ".html\n");
    EXPECT_EQ(readFile(copy + ".html"), readFile(paths.at(1)));
    expectRefused({ { "reports", "show", "4" }, { "reports", "show", "x" }, { "reports", "frobnicate" },
        { "reports", "rename", "1", "" }, { "reports", "export", "2", copy + ".html" },
        { "reports", "show", "--path", "--open", "1" } });
    EXPECT_EQ(cli({ "reports", "rename", "1", "January", "job" }).exitCode, 0);
    EXPECT_EQ(json(cli({ "reports", "list", "--json" }))[0]["reportName"].toString(), "January job");
    // Declined, or no answer at all: nothing goes.
    EXPECT_EQ(cli({ "reports", "remove", "1" }, "n\n").exitCode, 0);
    EXPECT_EQ(cli({ "reports", "rm", "1" }).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(paths.at(0)));
    const CliRun confirmed = cli({ "reports", "remove", "1", "3" }, "y\n");
    EXPECT_TRUE(confirmed.err.contains("Are you sure you want to remove the selected reports?"));
    EXPECT_EQ(QList<bool>(
                  { QFileInfo::exists(paths[0]), QFileInfo::exists(paths[1]), QFileInfo::exists(paths[2]) }),
        QList<bool>({ false, true, false }));
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
    QStringList listed, expected;
    for (const QJsonValue &r : json(run)["resources"].toArray())
        listed << QStringLiteral("%1 %2 %3 ")
                      .arg(r["type"].toString())
                      .arg(r["id"].toInt())
                      .arg(r["size"].toInt())
                + (r["name"].isNull() ? "null" : r["name"].toString());
    for (const QString &line : fontToolsResources(extractFork(lwfn, home.path() + "/raw")))
        expected << line.section(' ', 0, 2) + ' ' + line.section(' ', 5);
    listed.sort();
    expected.sort();
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_EQ(listed, expected);

    const QString damaged = home.writeFile("damaged", {});
    ASSERT_TRUE(writeFile(FS::sidecarPath(damaged),
        QByteArray::fromHex("0005160700020000") + QByteArray(16, '\0')
            + QByteArray::fromHex("0001000000020000002600000020") + QByteArray(32, '\x55')));
    const CliRun bad = cli({ "rsrc", damaged });
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_TRUE(bad.err.contains("Inconsistent resource map")) << qPrintable(bad.err);
    EXPECT_TRUE(cli({ "rsrc", home.path() + "/nothing-here" }).err.contains("File not found"));
    expectRefused({ { "rsrc" } });
    const QJsonValue none = json(cli({ "rsrc", "--json", home.writeFile("plain.otf", "OTTO") }));
    EXPECT_FALSE(none["hasResourceFork"].toBool());
    EXPECT_EQ(none["storage"].toString(), "none");
    EXPECT_TRUE(none["resources"].toArray().isEmpty());
}

TEST_F(CliTest, SettingsAreListedSetForTheNextProcessResetAndChecked)
{
    const CliRun list = cli({ "settings", "list" });
    ASSERT_EQ(list.exitCode, 0) << qPrintable(list.err);
    for (const char *line : { "diagnoseFileStructure = true\n", "autoScanFrequency = kMonthly\n",
             "lastReportName = (not set)\n" })
        EXPECT_TRUE(list.out.contains(QLatin1String(line))) << line;
    for (const QStringList &set : { QStringList { "matchVersionNumbers", "false" },
             QStringList { "fontFolderPaths", "/a/", "/b/" }, QStringList { "userName", "Ada" } })
        EXPECT_EQ(cli(QStringList { "settings", "set" } + set).exitCode, 0) << qPrintable(set.join(' '));
    EXPECT_EQ(cli({ "settings", "get", "fontFolderPaths" }).out
            + cli({ "settings", "get", "matchVersionNumbers" }).out,
        "/a/ /b/\nfalse\n");
    EXPECT_EQ(cli({ "settings", "reset" }).exitCode, 0);
    EXPECT_EQ(
        cli({ "settings", "get", "matchVersionNumbers" }).out + cli({ "settings", "get", "userName" }).out,
        "true\nAda\n");
    expectRefused({ { "settings", "set", "noSuchKey", "1" }, { "settings", "set", "doLogging", "perhaps" },
        { "settings", "set", "autoScanFrequency", "kHourly" },
        { "settings", "set", "lastScanDate", "yesterday" }, { "settings", "get", "nope" },
        { "frobnicate" } });
    EXPECT_EQ(cli({ "--version" }).out, QStringLiteral("quorvel-cli " QV_VERSION "\n"));
}

TEST_F(CliTest, DeepFindsWhatTheQuickLookCannotSeeOnScanDiagnoseAndBySetting)
{
    QByteArray font = readFile(kDejaVuSans);
    const qsizetype glyf = be32at(font, font.indexOf("glyf") + 8);
    font[glyf + 1000] = char(font[glyf + 1000] ^ 0x22);
    home.writeFile("deep/Flipped.ttf", font);
    copyFont(kDejaVuSerif, home.path() + "/deep", "Sound.ttf");
    const QString folder = home.path() + "/deep";

    EXPECT_EQ(cli({ "scan", folder }).exitCode, 0);
    const CliRun deep = cli({ "scan", "--deep", "--jobs", "2", folder });
    EXPECT_EQ(deep.exitCode, 1) << qPrintable(deep.err);
    EXPECT_TRUE(deep.out.contains(QRegularExpression("Flipped.ttf\n.*Table Checksum Mismatch \\(glyf\\)")))
        << qPrintable(deep.out);
    EXPECT_FALSE(deep.out.contains(QRegularExpression("Sound.ttf\n.*Mismatch")));
    EXPECT_TRUE(
        cli({ "diagnose", "--json", "--deep", folder }).out.contains("Table Checksum Mismatch (glyf)"));
    ASSERT_EQ(cli({ "settings", "set", "deepCheck", "true" }).exitCode, 0);
    EXPECT_EQ(cli({ "scan", "--jobs", "1", folder }).exitCode, 1);
}
