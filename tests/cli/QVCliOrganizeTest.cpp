// quorvel-cli organize, run as a separate process over real folders.
#include "store/QVStoreFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QProcessEnvironment>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace QVStoreFixtures;

namespace
{

const QString kDejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/");

struct QVCliRun {
    int exitCode = -1;
    QString out;
    QString err;
};

QVCliRun runCli(const QVTestHome &home, const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.configHome());
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.dataHome());
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(QV_CLI_PATH), arguments);
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

QString setting(const QVTestHome &home, const QString &key)
{
    return runCli(home, { "settings", "get", key }).out.trimmed();
}

void copyInto(const QString &source, const QString &folder, const QString &name = QString())
{
    QDir().mkpath(folder);
    ASSERT_TRUE(QFile::copy(source, folder + '/' + (name.isEmpty() ? QFileInfo(source).fileName() : name)));
}

// Hashes of data, fork and Finder info of every file below a folder.
QMap<QString, QString> hashesBelow(const QString &folder)
{
    QMap<QString, QString> hashes;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!QVForkStorage::isMetadataStore(path))
            hashes.insert(QDir(folder).relativeFilePath(path), forkHashes(path));
    }
    return hashes;
}

bool setImmutable(const QString &path, bool on)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY);
    if (fd < 0)
        return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

} // namespace

TEST(QuorvelCliOrganize, HealthyFontsAndDuplicatesGoProblemFontsStayAndTheChoicesAreKept)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    const QString library = home.path() + "/Library";
    QDir().mkpath(library);
    copyInto(kDejaVu + "DejaVuSans.ttf", source + "/a");
    copyInto(kDejaVu + "DejaVuSerif.ttf", source + "/a");
    copyInto(kDejaVu + "DejaVuSans.ttf", source + "/b");
    // Cut short: its tables run past the end.
    QFile mono(kDejaVu + "DejaVuSansMono.ttf");
    ASSERT_TRUE(mono.open(QIODevice::ReadOnly));
    QFile broken(source + "/b/Broken.ttf");
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write(mono.read(3000));
    broken.close();

    const QVCliRun run = runCli(home,
        { "organize", "--library", library, "--copy", "--name", "family", "--foundry-folders",
            "--letter-folders", "--family-folders", source });
    // A duplicate and a damaged font were found: exit status 1, as diagnose.
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
    EXPECT_TRUE(run.out.startsWith("4 font files, 4 fonts\n")) << qPrintable(run.out);
    const QString sans = library + "/Bitstream/D/DejaVu Sans/";
    EXPECT_TRUE(run.out.contains("Copied 3 files into " + library + ":\n")) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("  " + source + "/a/DejaVuSans.ttf -> " + sans + "DejaVuSans.ttf\n"))
        << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("  " + source + "/b/DejaVuSans.ttf -> " + sans + "DejaVuSans 1.ttf\n"))
        << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("Failures: 0\n")) << qPrintable(run.out);
    EXPECT_EQ(QStringList(hashesBelow(library).keys()),
        QStringList({ "Bitstream/D/DejaVu Sans/DejaVuSans 1.ttf", "Bitstream/D/DejaVu Sans/DejaVuSans.ttf",
            "Bitstream/D/DejaVu Serif/DejaVuSerif.ttf" }));
    EXPECT_TRUE(QFile::exists(source + "/b/Broken.ttf"));
    EXPECT_TRUE(QFile::exists(source + "/a/DejaVuSans.ttf"));

    EXPECT_EQ(setting(home, "copyFontFiles"), "true");
    EXPECT_EQ(setting(home, "useFamilyNameForFonts"), "true");
    EXPECT_EQ(setting(home, "usePostscriptNameForFonts"), "false");
    EXPECT_EQ(setting(home, "createFoundryFolders"), "true");
    EXPECT_EQ(setting(home, "createAlphabetFolders"), "true");
    EXPECT_EQ(setting(home, "createFamilyFolders"), "true");
    EXPECT_EQ(setting(home, "organizeFontsFolder"), library);
    EXPECT_EQ(setting(home, "organizeFonts"), "false");
    EXPECT_EQ(setting(home, "lastScanType"), "Manual Scan");
}

TEST(QuorvelCliOrganize, TheSameSourceTwiceAddsNumberedCopiesAndOverwritesNothing)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    const QString library = home.path() + "/Library";
    QDir().mkpath(library);
    copyInto(kDejaVu + "DejaVuSans.ttf", source, "Sans.ttf");
    copyInto(kDejaVu + "DejaVuSerif.ttf", source);
    const QStringList arguments { "organize", "--library", library, "--copy", "--no-foundry-folders",
        "--no-letter-folders", "--no-family-folders", source };

    const QVCliRun first = runCli(home, arguments);
    ASSERT_EQ(first.exitCode, 0) << qPrintable(first.err + first.out);
    const QMap<QString, QString> before = hashesBelow(library);
    EXPECT_EQ(QStringList(before.keys()), QStringList({ "DejaVuSerif.ttf", "Sans.ttf" }));

    const QVCliRun second = runCli(home, arguments);
    ASSERT_EQ(second.exitCode, 0) << qPrintable(second.err + second.out);
    const QMap<QString, QString> after = hashesBelow(library);
    EXPECT_EQ(QStringList(after.keys()),
        QStringList({ "DejaVuSerif 1.ttf", "DejaVuSerif.ttf", "Sans 1.ttf", "Sans.ttf" }));
    for (auto it = before.begin(); it != before.end(); ++it)
        EXPECT_EQ(after.value(it.key()), it.value()) << qPrintable(it.key());
    EXPECT_EQ(after.value("Sans 1.ttf"), before.value("Sans.ttf"));
}

TEST(QuorvelCliOrganize, MovingSuitcaseMembersMakesOneFontSuitcasesNamedByPostScriptName)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    const QString library = home.path() + "/Library";
    QDir().mkpath(library);
    QFile dfont("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont");
    ASSERT_TRUE(dfont.open(QIODevice::ReadOnly));
    const QString suitcase = source + "/Panic Sans";
    ASSERT_TRUE(makeSuitcase(suitcase, dfont.readAll(), QVForkStorage::Place::AppleDouble));
    copyInto(kDejaVu + "DejaVuSans.ttf", source);
    QByteArray info(32, '\0');
    info.replace(0, 8, "sfntDMOV");
    ASSERT_EQ(QVForkStorage::writeFinderInfo(source + "/DejaVuSans.ttf", info), 0);
    const QString ttfHashes = forkHashes(source + "/DejaVuSans.ttf");

    const QVCliRun run = runCli(home,
        { "organize", "--library", library, "--move", "--name", "postscript", "--no-foundry-folders",
            "--no-letter-folders", "--family-folders", source });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err + run.out);
    EXPECT_TRUE(run.out.contains("Moved 5 files into " + library + ":\n")) << qPrintable(run.out);
    EXPECT_EQ(QStringList(hashesBelow(library).keys()),
        QStringList({ "DejaVu Sans/DejaVuSans.ttf", "Panic Sans/PanicSans", "Panic Sans/PanicSans-Bold",
            "Panic Sans/PanicSans-BoldItalic", "Panic Sans/PanicSans-Italic" }));
    // The whole file kept its Finder info; the emptied suitcase is gone.
    EXPECT_EQ(forkHashes(library + "/DejaVu Sans/DejaVuSans.ttf"), ttfHashes);
    EXPECT_FALSE(QFile::exists(source + "/DejaVuSans.ttf"));
    EXPECT_FALSE(QFile::exists(suitcase));
    EXPECT_FALSE(QFile::exists(QVForkStorage::sidecarPath(suitcase)));
    for (const char *name : { "PanicSans", "PanicSans-Bold", "PanicSans-BoldItalic", "PanicSans-Italic" }) {
        const QString fork = extractFork(library + "/Panic Sans/" + name, home.path() + "/out");
        EXPECT_EQ(python(R"(
import sys
from fontTools.ttLib import TTFont
print(TTFont(sys.argv[1], res_name_or_index=1)['name'].getDebugName(6))
)",
                      { fork })
                      .trimmed(),
            QLatin1String(name));
        EXPECT_EQ(fontToolsFONDEntries(fork).count('/'), 2) << name;
    }
}

TEST(QuorvelCliOrganize, ATypedDfontIsMovedFontByFont)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    const QString library = home.path() + "/Library";
    QDir().mkpath(library);
    copyInto("/usr/share/ruby-prawn/fonts/Panic+Sans.dfont", source, "Panic.dfont");
    ASSERT_EQ(QVForkStorage::writeFinderInfo(
                  source + "/Panic.dfont", QByteArray("FFILDMOV").leftJustified(32, '\0')),
        0);
    const QVCliRun run = runCli(home,
        { "organize", "--library", library, "--move", "--name", "postscript", "--foundry-folders",
            "--no-letter-folders", "--no-family-folders", source });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err + run.out);
    EXPECT_TRUE(run.out.contains("Moved 4 files into " + library + ":\n")) << qPrintable(run.out);
    EXPECT_TRUE(run.out.endsWith("Failures: 0\n")) << qPrintable(run.out);
    EXPECT_EQ(QStringList(hashesBelow(library).keys()),
        QStringList({ "Bitstream/PanicSans", "Bitstream/PanicSans-Bold", "Bitstream/PanicSans-BoldItalic",
            "Bitstream/PanicSans-Italic" }));
    EXPECT_EQ(QDir(source).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

TEST(QuorvelCliOrganize, LockedFoldersAreRefusedBeforeAnythingMoves)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    const QString library = home.path() + "/Library";
    QDir().mkpath(library);
    copyInto(kDejaVu + "DejaVuSans.ttf", source);
    if (!setImmutable(library, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const QVCliRun locked = runCli(home, { "organize", "--library", library, "--move", source });
    setImmutable(library, false);
    EXPECT_EQ(locked.exitCode, 2);
    EXPECT_EQ(locked.err,
        "Destination Folder Locked: The destination folder \"" + library
            + "\" is locked and the files cannot be saved there. Please choose a different folder.\n");
    EXPECT_TRUE(locked.out.isEmpty()) << qPrintable(locked.out);
    EXPECT_TRUE(QFile::exists(source + "/DejaVuSans.ttf"));

    // A locked source may be copied from, not moved from.
    ASSERT_TRUE(setImmutable(source, true));
    const QVCliRun move = runCli(home, { "organize", "--library", library, "--move", source });
    const QVCliRun copy = runCli(home,
        { "organize", "--library", library, "--copy", "--no-foundry-folders", "--no-letter-folders",
            "--no-family-folders", source });
    setImmutable(source, false);
    EXPECT_EQ(move.exitCode, 2);
    EXPECT_EQ(move.err,
        "Source Files Locked: The source folder \"" + source
            + "\" is locked and the files cannot be moved. Use the Copy option instead.\n");
    EXPECT_EQ(copy.exitCode, 0) << qPrintable(copy.err);
    EXPECT_TRUE(QFile::exists(library + "/DejaVuSans.ttf"));
    EXPECT_TRUE(QFile::exists(source + "/DejaVuSans.ttf"));
}

TEST(QuorvelCliOrganize, BadArgumentsAreUsageErrors)
{
    QVTestHome home;
    const QString source = home.path() + "/Source";
    QDir().mkpath(source);
    EXPECT_EQ(runCli(home, { "organize", source }).exitCode, 2);
    EXPECT_EQ(runCli(home, { "organize", "--library", home.path(), "--name", "style", source }).exitCode, 2);
    const QVCliRun missing = runCli(home, { "organize", "--library", home.path() + "/nowhere", source });
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(missing.err.contains("no such folder")) << qPrintable(missing.err);
    // A library inside the source would be organized into itself.
    QDir().mkpath(source + "/Library");
    EXPECT_EQ(runCli(home, { "organize", "--library", source + "/Library", source }).exitCode, 2);
    // Choices that contradict each other are refused, not settled by their order.
    copyInto(kDejaVu + "DejaVuSans.ttf", source);
    for (const QStringList &conflict :
        { QStringList { "--copy", "--move" }, QStringList { "--no-family-folders", "--family-folders" },
            QStringList { "--name", "family", "--name", "file" } }) {
        const QVCliRun refused = runCli(
            home, QStringList { "organize", "--library", home.path() } + conflict + QStringList { source });
        EXPECT_EQ(refused.exitCode, 2) << qPrintable(conflict.join(' '));
        EXPECT_TRUE(refused.err.contains("cannot be used together")) << qPrintable(refused.err);
    }
    EXPECT_TRUE(QFile::exists(source + "/DejaVuSans.ttf"));
    // Nothing was stored from a refused command line.
    EXPECT_EQ(setting(home, "organizeFontsFolder"), "");
}
