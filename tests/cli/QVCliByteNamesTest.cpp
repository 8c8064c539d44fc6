// Names that are not UTF-8 (Mac Roman names of old collections) are found,
// examined, quarantined and restored under their own bytes, and shown readably.
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

// Writes the file under its raw name; Qt's file classes cannot.
bool writeRaw(const QByteArray &path, const QByteArray &contents)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, contents.constData(), size_t(contents.size())) == contents.size();
    ::close(fd);
    return written;
}

QByteArray readRaw(const QByteArray &path)
{
    QFile file;
    const int fd = ::open(path.constData(), O_RDONLY);
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return QByteArray("<missing>");
    return file.readAll();
}

QByteArray fontBytes()
{
    QFile file(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(QuorvelCliByteNames, MacRomanNamesGoThroughScanResolveAndRestore)
{
    QVTestHome home;
    const QByteArray folder = QFile::encodeName(home.path()) + "/fonts";
    ASSERT_TRUE(QDir().mkpath(home.path() + "/fonts"));
    const QByteArray healthy = fontBytes();
    ASSERT_FALSE(healthy.isEmpty());
    const QByteArray damaged = healthy.left(500);
    ASSERT_TRUE(writeRaw(folder + "/Caf\x8e.ttf", healthy));
    ASSERT_TRUE(writeRaw(folder + "/Br\x8ek.ttf", damaged));

    QVCliRun run = runCli(home, { "scan", "--json", home.path() + "/fonts" });
    ASSERT_EQ(run.exitCode, 1) << qPrintable(run.err);
    const QJsonArray files = QJsonDocument::fromJson(run.out.toUtf8())["fontFiles"].toArray();
    ASSERT_EQ(files.size(), 2) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains(QStringLiteral("Br\u00e9k.ttf"))) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains(QStringLiteral("Caf\u00e9.ttf"))) << qPrintable(run.out);

    // A raw name given on the command line reaches its file.
    QProcess examine;
    examine.setProcessEnvironment(cliEnvironment(home));
    examine.start(QStringLiteral("/bin/sh"),
        { "-c", QStringLiteral("exec \"$0\" examine \"$1/$(printf 'Caf\\216.ttf')\""),
            QStringLiteral(QV_CLI_PATH), home.path() + "/fonts" });
    ASSERT_TRUE(examine.waitForFinished(60000));
    EXPECT_EQ(examine.exitCode(), 0) << examine.readAllStandardError().constData();
    EXPECT_TRUE(examine.readAllStandardOutput().contains("DejaVu Sans"));

    run = runCli(home, { "diagnose", "--resolve", home.path() + "/fonts" });
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
    EXPECT_EQ(readRaw(folder + "/Br\x8ek.ttf"), QByteArray("<missing>"));
    EXPECT_EQ(readRaw(folder + "/Caf\x8e.ttf"), healthy);
    run = runCli(home, { "quarantine", "list" });
    EXPECT_TRUE(run.out.contains(QStringLiteral("Br\u00e9k.ttf"))) << qPrintable(run.out);

    run = runCli(home, { "quarantine", "restore", "1" });
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    EXPECT_EQ(readRaw(folder + "/Br\x8ek.ttf"), damaged);
    EXPECT_EQ(QDir(home.path() + "/fonts").entryList(QDir::Files | QDir::Hidden).size(), 0)
        << "no file under a mangled UTF-8 name";
}
