#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

QString copyFont(const QString &source, const QString &destination)
{
    QDir().mkpath(QFileInfo(destination).absolutePath());
    QFile::copy(source, destination);
    return destination;
}

const QString kDejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
const QString kType1 = QStringLiteral("/usr/share/fonts/X11/Type1/C059-Italic.pfb");
const QString kPanicSans = QStringLiteral("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont");

// The file lines of the text output: every line that is not the heading, a
// font's line (both indented) nor the closing count, without the notes that
// follow the path.
QStringList printedFiles(const QString &out)
{
    static const QRegularExpression closing(QStringLiteral("^\\d+ fonts? in \\d+ files?, "));
    QStringList files;
    for (const QString &line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.startsWith(QLatin1Char(' ')) && !closing.match(line).hasMatch())
            files.append(line.section(QStringLiteral("  "), 0, 0));
    }
    return files;
}

class CliScanTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        one = home.path() + QStringLiteral("/one");
        two = home.path() + QStringLiteral("/two");
        copyFont(kDejaVu, one + QStringLiteral("/b.ttf"));
        copyFont(kType1, one + QStringLiteral("/a/Outline.pfb"));
        copyFont(kDejaVu, one + QStringLiteral("/.hidden.ttf"));
        home.writeFile(QStringLiteral("one/readme.txt"), "no font");
        copyFont(kDejaVu, two + QStringLiteral("/Font.TTF"));
    }

    QVTestHome home;
    QString one, two;
};

TEST_F(CliScanTest, PrintsEveryFontFileInScanOrderWithoutAProgressBarWhenPiped)
{
    const QVCliRun run = runCli(home, { QStringLiteral("scan"), two, one });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(printedFiles(run.out),
        (QStringList { two + QStringLiteral("/Font.TTF"), one + QStringLiteral("/a/Outline.pfb"),
            one + QStringLiteral("/b.ttf") }));
    // Each file is followed by its fonts, as examine prints them; a data-fork
    // Type 1 file on its own holds no font the examiner reads.
    EXPECT_TRUE(run.out.contains(two + QStringLiteral("/Font.TTF\n   0  TrueType")));
    EXPECT_TRUE(run.out.contains(one + QStringLiteral("/a/Outline.pfb  (no fonts examined)\n")));
    EXPECT_TRUE(run.out.endsWith(QStringLiteral("2 fonts in 3 files, no problems found\n")))
        << qPrintable(run.out);
    // Output that is not a terminal carries no bar.
    EXPECT_FALSE(run.out.contains(QLatin1Char('\r')));
    EXPECT_FALSE(run.out.contains(QLatin1String("Estimated time remaining")));
    EXPECT_FALSE(run.err.contains(QLatin1Char('\r')));
}

TEST_F(CliScanTest, JsonListsTheFilesAndTheirFonts)
{
    const QVCliRun run = runCli(home, { QStringLiteral("scan"), QStringLiteral("--json"), one });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    QJsonParseError error;
    const QJsonObject document = QJsonDocument::fromJson(run.out.toUtf8(), &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << qPrintable(run.out);
    const QJsonArray files = document.value(QStringLiteral("fontFiles")).toArray();
    ASSERT_EQ(files.size(), 2);
    EXPECT_EQ(files.at(0).toObject().value(QStringLiteral("URL")).toString(),
        one + QStringLiteral("/a/Outline.pfb"));
    EXPECT_EQ(files.at(1).toObject().value(QStringLiteral("URL")).toString(), one + QStringLiteral("/b.ttf"));
    EXPECT_EQ(files.at(1).toObject().value(QStringLiteral("fontStatusArray")).toArray().size(), 1);
    EXPECT_EQ(document.value(QStringLiteral("totalFonts")).toInt(), 1);
    EXPECT_EQ(document.value(QStringLiteral("folders")).toArray().size(), 1);
}

TEST_F(CliScanTest, AMissingFolderIsAClearErrorAndScansNothing)
{
    QVCliRun run = runCli(home, { QStringLiteral("scan"), one, home.path() + QStringLiteral("/gone") });
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains(home.path() + QStringLiteral("/gone: no such folder")))
        << qPrintable(run.err);
    EXPECT_TRUE(run.out.isEmpty());

    run = runCli(home, { QStringLiteral("scan"), one + QStringLiteral("/b.ttf") });
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains(QLatin1String("not a folder")));

    EXPECT_EQ(runCli(home, { QStringLiteral("scan"), QStringLiteral("--frobnicate") }).exitCode, 2);
}

TEST_F(CliScanTest, AFileReachedSeveralWaysIsOneFileAndNeverItsOwnDuplicate)
{
    // A hard link and a link to a font, a link to the folder, the folder and
    // a folder inside it named again.
    ASSERT_EQ(
        ::link(QFile::encodeName(one + "/b.ttf").constData(), QFile::encodeName(one + "/c.ttf").constData()),
        0);
    ASSERT_TRUE(QFile::link(one + "/b.ttf", one + "/d.ttf"));
    ASSERT_TRUE(QFile::link(one, home.path() + "/alias"));
    const QStringList folders { one, one + "/a", home.path() + "/alias", one + "/" };
    const QVCliRun scan = runCli(home, QStringList { "scan" } + folders);
    ASSERT_EQ(scan.exitCode, 0) << qPrintable(scan.err);
    EXPECT_EQ(printedFiles(scan.out), (QStringList { one + "/a/Outline.pfb", one + "/b.ttf" }));

    const QVCliRun resolved = runCli(home, QStringList { "diagnose", "--resolve" } + folders);
    EXPECT_EQ(resolved.exitCode, 0) << qPrintable(resolved.out + resolved.err);
    EXPECT_TRUE(resolved.out.contains("Duplicate fonts:           0\n")) << qPrintable(resolved.out);
    EXPECT_TRUE(resolved.out.contains("Quarantined: 0\n")) << qPrintable(resolved.out);
    for (const char *name : { "/b.ttf", "/c.ttf", "/d.ttf", "/a/Outline.pfb" })
        EXPECT_TRUE(QFileInfo(one + name).isFile()) << name;
}

TEST_F(CliScanTest, EveryDotDfontIsAFontFileTypedOrNotAndDamagedOrNot)
{
    copyFont(kPanicSans, two + "/Panic.dfont");
    QFile whole(kPanicSans);
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    home.writeFile("two/Short.dfont", whole.read(700));
    const QVCliRun run = runCli(home, { "scan", two });
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
    EXPECT_EQ(printedFiles(run.out),
        (QStringList { two + "/Font.TTF", two + "/Panic.dfont", two + "/Short.dfont" }));
    EXPECT_TRUE(run.out.contains("Panic Sans                        PanicSans-BoldItalic"))
        << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains(QRegularExpression("Short.dfont\n.*File Resource Error")))
        << qPrintable(run.out);
}

TEST_F(CliScanTest, WithoutFoldersTheConfiguredFontFoldersAreScanned)
{
    ASSERT_EQ(runCli(home,
                  { QStringLiteral("settings"), QStringLiteral("set"), QStringLiteral("fontFolderPaths"),
                      two + QLatin1Char('/') })
                  .exitCode,
        0);
    const QVCliRun run = runCli(home, { QStringLiteral("scan") });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(printedFiles(run.out), QStringList { two + QStringLiteral("/Font.TTF") });
}

// On a terminal the scan draws its bar and time estimate, and Ctrl-C typed
// there stops it cleanly. The terminal is a pseudo-terminal made by script(1).
TEST_F(CliScanTest, OnATerminalItShowsProgressAndCtrlCCancels)
{
    const QString tree = home.path() + QStringLiteral("/tree");
    QProcess make;
    make.start(QStringLiteral("bash"),
        { QStringLiteral(QV_SCRIPTS_DIR "/make-font-tree.sh"), tree, QStringLiteral("20000") });
    ASSERT_TRUE(make.waitForFinished(300000));
    ASSERT_EQ(make.exitCode(), 0) << make.readAllStandardError().constData();

    QProcess terminal;
    terminal.setProcessEnvironment(cliEnvironment(home));
    const QString command = QStringLiteral("'") + QStringLiteral(QV_CLI_PATH) + QStringLiteral("' scan '")
        + tree + QStringLiteral("'");
    terminal.start(
        QStringLiteral("script"), { QStringLiteral("-qfec"), command, QStringLiteral("/dev/null") });
    ASSERT_TRUE(terminal.waitForStarted(10000));

    QString screen;
    QDeadlineTimer deadline(240000);
    while (!screen.contains(QLatin1String("Estimated time remaining: ")) && !deadline.hasExpired()
        && terminal.state() == QProcess::Running) {
        terminal.waitForReadyRead(200);
        screen += QString::fromUtf8(terminal.readAllStandardOutput());
    }
    ASSERT_TRUE(screen.contains(QLatin1String("Estimated time remaining: ")))
        << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains(QLatin1Char('\r')));
    EXPECT_TRUE(screen.contains(QLatin1String("%")));

    // Ctrl-C as the terminal sends it.
    terminal.write("\x03");
    ASSERT_TRUE(terminal.waitForFinished(60000));
    screen += QString::fromUtf8(terminal.readAllStandardOutput());
    EXPECT_EQ(terminal.exitCode(), 130) << qPrintable(screen.right(400));
    EXPECT_TRUE(screen.contains(QLatin1String("scan cancelled"))) << qPrintable(screen.right(400));
    // No font list after a cancelled scan.
    EXPECT_FALSE(screen.contains(QLatin1String(" font files, ")));
}

} // namespace
