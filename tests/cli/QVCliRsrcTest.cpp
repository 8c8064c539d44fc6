// quorvel-cli rsrc against real files made by other tools; its listing must
// match what fontTools' macRes reads from the same forks.
#include "engine/QVResourceTestTools.h"
#include "platform/QVForkStorage.h"
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace QVResourceTestTools;

namespace
{

ToolResult runRsrc(const QVTestHome &home, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(cliEnvironment(home));
    process.start(QStringLiteral(QV_CLI_PATH), QStringList { QStringLiteral("rsrc") } + arguments);
    process.waitForFinished(60000);
    return { process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError() };
}

// The command's resources in macRes's form, without the data hashes.
QStringList cliListing(const QJsonObject &result)
{
    QStringList lines;
    for (const QJsonValue &v : result.value("resources").toArray()) {
        const QJsonObject o = v.toObject();
        lines.append(QStringLiteral("%1 %2 %3 %4")
                         .arg(o.value("type").toString())
                         .arg(o.value("id").toInt())
                         .arg(o.value("name").isNull() ? QStringLiteral("null") : o.value("name").toString())
                         .arg(o.value("size").toInt()));
    }
    lines.sort();
    return lines;
}

QStringList withoutHashes(QStringList lines)
{
    for (QString &line : lines)
        line = line.section(QLatin1Char(' '), 0, -2);
    lines.sort();
    return lines;
}

class QuorvelCliRsrc : public ::testing::Test
{
protected:
    QJsonObject json(const QString &file)
    {
        const ToolResult result = runRsrc(home, { QStringLiteral("--json"), file });
        EXPECT_EQ(result.exitCode, 0) << result.err.constData();
        return QJsonDocument::fromJson(result.out).object();
    }
    QVTestHome home;
    QTemporaryDir dir { QStringLiteral("/tmp/qv-cli-rsrc-XXXXXX") };
};

} // namespace

TEST_F(QuorvelCliRsrc, LwfnFromT1macMatchesMacRes)
{
    const QString lwfn = makeLwfn(dir.path(), QStringLiteral("NimbusRom"),
        QStringLiteral("/usr/share/fonts/X11/Type1/NimbusRoman-Regular.pfb"));
    ASSERT_FALSE(lwfn.isEmpty());
    const QString raw = dir.path() + QStringLiteral("/raw.rsrc");
    ASSERT_EQ(runTool(QStringLiteral("t1mac"),
                  { QStringLiteral("--raw"),
                      QStringLiteral("/usr/share/fonts/X11/Type1/NimbusRoman-Regular.pfb"), raw })
                  .exitCode,
        0);
    const ToolResult jsonText = runRsrc(home, { QStringLiteral("--json"), lwfn });
    // Keys come in reading order, as documented.
    EXPECT_TRUE(jsonText.out.startsWith(
        "{\"hasResourceFork\":true,\"storage\":\"appledouble\",\"finderInfo\":{\"type\":"
        "\"LWFN\",\"creator\":\"T1UT\",\"flags\":8448,"))
        << jsonText.out.left(200).constData();
    EXPECT_TRUE(
        jsonText.out.contains("\"resources\":[{\"type\":\"POST\",\"id\":501,\"name\":null,\"size\":"));
    const QJsonObject result = json(lwfn);
    EXPECT_TRUE(result.value("hasResourceFork").toBool());
    EXPECT_EQ(result.value("storage").toString(), QStringLiteral("appledouble"));
    const QJsonObject finder = result.value("finderInfo").toObject();
    EXPECT_EQ(finder.value("type").toString(), QStringLiteral("LWFN"));
    EXPECT_EQ(finder.value("creator").toString(), QStringLiteral("T1UT"));
    EXPECT_EQ(finder.value("flags").toInt(), 8448);
    const QStringList expected = withoutHashes(macResListing(raw));
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_EQ(cliListing(result), expected);
}

TEST_F(QuorvelCliRsrc, UfondSuitcaseAndDfontMatchMacRes)
{
    const QString raw = makeSuitcaseFork(dir.path());
    ASSERT_FALSE(raw.isEmpty());
    // The suitcase in netatalk's folder, as a Mac file server keeps it.
    const QString suitcase = dir.path() + QStringLiteral("/DejaVu Sans");
    ASSERT_TRUE(writeBytes(suitcase, {}));
    ASSERT_EQ(
        QVForkStorage::writeResourceFork(suitcase, readBytes(raw), QVForkStorage::Place::NetatalkFolder), 0);
    QJsonObject result = json(suitcase);
    EXPECT_EQ(result.value("storage").toString(), QStringLiteral("netatalk"));
    EXPECT_EQ(cliListing(result), withoutHashes(macResListing(raw)));

    const QString dfont = dfontPath();
    if (dfont.isEmpty())
        GTEST_SKIP() << "no .dfont installed";
    result = json(dfont);
    EXPECT_EQ(result.value("storage").toString(), QStringLiteral("datafork"));
    EXPECT_TRUE(result.value("finderInfo").toObject().value("type").isNull());
    EXPECT_EQ(cliListing(result), withoutHashes(macResListing(dfont)));
}

TEST_F(QuorvelCliRsrc, UnreadableFilesGiveAClearMessageAndStatusTwo)
{
    ToolResult result = runRsrc(home, { dir.path() + QStringLiteral("/nothing-here") });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("File not found")) << result.err.constData();

    const QString damaged = dir.path() + QStringLiteral("/damaged");
    ASSERT_TRUE(writeBytes(damaged, {}));
    QByteArray sidecar = QByteArray::fromHex("0005160700020000") + QByteArray(16, '\0')
        + QByteArray::fromHex("0001")
        + QByteArray::fromHex("00000002"
                              "00000026"
                              "00000020")
        + QByteArray(32, '\x55');
    ASSERT_TRUE(writeBytes(QVForkStorage::sidecarPath(damaged), sidecar));
    result = runRsrc(home, { damaged });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("Inconsistent resource map")) << result.err.constData();

    // A file without a fork is readable: it simply has none.
    const QString plain = dir.path() + QStringLiteral("/plain.otf");
    ASSERT_TRUE(writeBytes(plain, "OTTO"));
    result = runRsrc(home, { QStringLiteral("--json"), plain });
    EXPECT_EQ(result.exitCode, 0);
    const QJsonObject object = QJsonDocument::fromJson(result.out).object();
    EXPECT_FALSE(object.value("hasResourceFork").toBool());
    EXPECT_EQ(object.value("storage").toString(), QStringLiteral("none"));
    EXPECT_TRUE(object.value("resources").toArray().isEmpty());

    EXPECT_EQ(runRsrc(home, {}).exitCode, 2);
}
