// quorvel-cli examine: the text table, the JSON records and the exit codes.
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

namespace
{

QVCliRun runExamine(const QVTestHome &home, const QStringList &arguments)
{
    // Relative file names are resolved in the home folder.
    QProcess process;
    process.setProcessEnvironment(cliEnvironment(home));
    process.setWorkingDirectory(home.path());
    process.start(QStringLiteral(QV_CLI_PATH), QStringList { QStringLiteral("examine") } + arguments);
    process.waitForFinished(120000);
    return { process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

const QString kDejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");

} // namespace

TEST(QuorvelCliExamine, JsonRecordsOfSoundAndDamagedFiles)
{
    QVTestHome home;
    QFile source(kDejaVu);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    QByteArray kern = source.readAll();
    // Zero the kern checksum: the one SFNT damage that is reported.
    for (int i = 0; i < 32; ++i) {
        if (kern.mid(12 + 16 * i, 4) == "kern") {
            kern.replace(12 + 16 * i + 4, 4, QByteArray(4, '\0'));
            break;
        }
    }
    home.writeFile(QStringLiteral("Kern.ttf"), kern);
    home.writeFile(QStringLiteral("Empty.otf"), QByteArray());

    const QVCliRun run = runExamine(home, { "--json", kDejaVu, "Kern.ttf", "Empty.otf" });
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
    QJsonParseError error;
    const QJsonObject root = QJsonDocument::fromJson(run.out.toUtf8(), &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << qPrintable(run.out);
    EXPECT_EQ(root.value("totalFonts").toInt(), 3);
    EXPECT_TRUE(root.value("foundProblemFonts").toBool());
    const QJsonArray files = root.value("fontFiles").toArray();
    ASSERT_EQ(files.size(), 3);

    const QJsonObject sound = files.at(0).toObject();
    EXPECT_EQ(sound.value("URL").toString(), kDejaVu);
    EXPECT_EQ(sound.value("fontFileType").toInt(), 1);
    EXPECT_EQ(sound.value("macTypeCode").toString(), "");
    const QJsonObject font = sound.value("fontStatusArray").toArray().at(0).toObject();
    EXPECT_EQ(font.value("index").toInt(), 0);
    EXPECT_EQ(font.value("fontName").toString(), "DejaVu Sans");
    EXPECT_EQ(font.value("PSname").toString(), "DejaVuSans");
    EXPECT_EQ(font.value("fontType").toInt(), 3);
    EXPECT_EQ(font.value("fontFoundry").toString(), "Bitstream");
    EXPECT_TRUE(font.value("trueTypeFontName").isNull());
    EXPECT_TRUE(font.value("fontErrorsInfo").toArray().isEmpty());
    for (const char *flag : { "movedToQuarantine", "movedSisterToQuarantine", "movedToLibrary",
             "movedSisterToLibrary", "copiedToLibrary", "copiedSisterToLibrary" })
        EXPECT_TRUE(font.value(flag).isBool()) << flag;

    const QJsonObject damaged = files.at(1).toObject();
    EXPECT_EQ(damaged.value("URL").toString(), home.path() + "/Kern.ttf");
    const QJsonObject kernFont = damaged.value("fontStatusArray").toArray().at(0).toObject();
    EXPECT_EQ(kernFont.value("index").toInt(), 1);
    EXPECT_EQ(kernFont.value("fontErrors").toArray(), QJsonArray { 0 });
    EXPECT_EQ(kernFont.value("fontErrorsInfo").toArray(), QJsonArray { "Bad Table Data" });
    EXPECT_EQ(kernFont.value("fixedErrors").toArray(), QJsonArray { false });
    EXPECT_EQ(kernFont.value("fixedErrorMessages").toArray(), QJsonArray { "" });

    const QJsonObject empty = files.at(2).toObject().value("fontStatusArray").toArray().at(0).toObject();
    EXPECT_EQ(empty.value("fontType").toInt(), 5);
    EXPECT_EQ(empty.value("fontName").toString(), "Empty.otf");
}

TEST(QuorvelCliExamine, TextTableAndExitCodes)
{
    QVTestHome home;
    const QVCliRun sound = runExamine(home, { kDejaVu });
    EXPECT_EQ(sound.exitCode, 0) << qPrintable(sound.err);
    EXPECT_TRUE(sound.out.contains(kDejaVu));
    EXPECT_TRUE(sound.out.contains("DejaVu Sans"));
    EXPECT_TRUE(sound.out.contains("TrueType"));
    EXPECT_TRUE(sound.out.contains("1 font in 1 file, no problems found"));

    const QVCliRun missing = runExamine(home, { kDejaVu, "/no/such/font.ttf" });
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(missing.err.contains("no such file: /no/such/font.ttf"));
    EXPECT_TRUE(missing.out.isEmpty());

    EXPECT_EQ(runExamine(home, {}).exitCode, 2);
    EXPECT_EQ(runExamine(home, { "--bogus", kDejaVu }).exitCode, 2);
}
