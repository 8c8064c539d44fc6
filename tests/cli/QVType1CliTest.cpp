// PC Type 1 fonts through quorvel-cli: Debian's trees diagnosed sound, damaged and unpaired copies
// reported and quarantined with their metrics files, the same font as a Mac and a PC file a duplicate.
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QString kUrw = "/usr/share/fonts/type1/urw-base35/";

QJsonObject diagnose(const QVTestHome &home, const QStringList &arguments, int expectedExit)
{
    const CliRun run = runCli(home, QStringList { "diagnose", "--json" } + arguments);
    EXPECT_EQ(run.exitCode, expectedExit) << qPrintable(run.err + run.out.left(2000));
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

// "file name: defects" of every font with a defect, sorted.
QStringList defects(const QJsonObject &result)
{
    QStringList found;
    for (const QJsonValue &file : result["fontFiles"].toArray()) {
        for (const QJsonValue &status : file["fontStatusArray"].toArray()) {
            QStringList messages;
            for (const QJsonValue &message : status["fontErrorsInfo"].toArray())
                messages << message.toString();
            if (!messages.isEmpty())
                found << QFileInfo(file["URL"].toString()).fileName() + ": " + messages.join(", ");
        }
    }
    found.sort();
    return found;
}

} // namespace

TEST(QVType1Cli, DebianType1TreesHaveNoProblem)
{
    QVTestHome home;
    const QStringList trees { "/usr/share/fonts/X11/Type1", "/usr/share/fonts/type1",
        "/usr/share/texmf/fonts" };
    const QJsonObject all = diagnose(home, trees, 0);
    int outlines = 0, metrics = 0;
    for (const QJsonValue &file : all["fontFiles"].toArray()) {
        const QString suffix = QFileInfo(file["URL"].toString()).suffix();
        outlines += suffix == "pfb" || suffix == "t1";
        metrics += suffix == "afm";
        if (suffix == "pfb" || suffix == "t1" || suffix == "afm") {
            EXPECT_EQ(file["fontStatusArray"].toArray().size(), 1) << qPrintable(file["URL"].toString());
        }
    }
    EXPECT_GE(outlines, 35 + 35 + 33);
    EXPECT_GE(metrics, 35 + 33);
    EXPECT_EQ(all["totalFontProblems"].toInt(), 0) << qPrintable(defects(all).join('\n'));
    // A TeX tree's outlines find their metrics in its parallel folder, scanned or not.
    const QJsonObject tex = diagnose(home, { "/usr/share/texmf/fonts/type1" }, 0);
    EXPECT_GE(tex["fontFiles"].toArray().size(), 33);
    EXPECT_EQ(tex["totalFontProblems"].toInt(), 0) << qPrintable(defects(tex).join('\n'));
}

TEST(QVType1Cli, DamagedAndUnpairedFilesAreReportedAndQuarantinedWithTheirMetrics)
{
    QVTestHome home;
    const QString dir = home.path() + "/Fonts";
    // Damaged copies, each with its metrics file; an outline without one; metrics without an outline.
    QByteArray longer = readFile(kUrw + "C059-Roman.t1");
    longer.replace("/FontName", "/FontNome");
    ASSERT_TRUE(writeFile(dir + "/Nameless.t1", longer));
    // The cleartext segment, then an encrypted one of no bytes.
    const QByteArray italic = readFile(kC059ItalicPfb);
    const qsizetype clear = 6 + qsizetype(qFromLittleEndian<quint32>(italic.constData() + 2));
    ASSERT_TRUE(writeFile(dir + "/Empty.pfb", italic.left(clear) + QByteArray::fromHex("8002000000008003")));
    QByteArray pastEnd = readFile(kC059RomanPfb);
    pastEnd[5] = char(0x7f); // the first segment's length, far past the end
    ASSERT_TRUE(writeFile(dir + "/PastEnd.pfb", pastEnd));
    for (const char *name : { "Nameless", "Empty", "PastEnd" })
        copyFont(kUrw + "C059-Roman.afm", dir, QString(name) + ".afm");
    copyFont(kC059RomanPfb, dir, "Lonely.pfb");
    copyFont(kUrw + "NimbusSans-Bold.afm", dir, "Orphan.afm");
    copyFont(kUrw + "P052-Roman.t1", dir);
    copyFont(kUrw + "P052-Roman.afm", dir);

    const QJsonObject result = diagnose(home, { "--resolve", dir }, 1);
    EXPECT_EQ(defects(result),
        QStringList({ "Empty.pfb: Bad Encrypted Section", "Lonely.pfb: Couldn't Find Metrics File",
            "Nameless.t1: Missing PostScript Name", "Orphan.afm: Couldn't Find Outline File",
            "PastEnd.pfb: Bad Table Data, Bad Encrypted Section" }));
    EXPECT_EQ(result["missingBitmapProblemCount"].toInt(), 1);
    EXPECT_EQ(result["missingPSProblemCount"].toInt(), 1);
    EXPECT_EQ(result["totalFontProblems"].toInt(), 5);
    // Each quarantined outline took its metrics file along; the sound pair stays.
    QStringList left = QDir(dir).entryList(QDir::Files);
    EXPECT_EQ(left, QStringList({ "P052-Roman.afm", "P052-Roman.t1" }));
    const CliRun list = runCli(home, { "quarantine", "list", "--json" });
    QStringList quarantined;
    QHash<QString, QString> ids;
    for (const QJsonValue &record : QJsonDocument::fromJson(list.out.toUtf8()).array()) {
        quarantined << QFileInfo(record["originalFilePath"].toString()).fileName();
        ids.insert(quarantined.last(), record["id"].toString());
    }
    quarantined.sort();
    EXPECT_EQ(quarantined,
        QStringList({ "Empty.afm", "Empty.pfb", "Lonely.pfb", "Nameless.afm", "Nameless.t1", "Orphan.afm",
            "PastEnd.afm", "PastEnd.pfb" }));

    // Restored, an outline brings its metrics file back and a metrics file its
    // outline; a file with no partner in the quarantine comes back alone.
    const CliRun outline = runCli(home, { "quarantine", "restore", ids["Empty.pfb"] });
    EXPECT_EQ(outline.out, "Restored 2 of 2 fonts.\n") << qPrintable(outline.err);
    const CliRun metrics = runCli(home, { "quarantine", "restore", ids["Nameless.afm"], ids["Orphan.afm"] });
    EXPECT_EQ(metrics.out, "Restored 3 of 3 fonts.\n") << qPrintable(metrics.err);
    left = QDir(dir).entryList(QDir::Files);
    EXPECT_EQ(left,
        QStringList({ "Empty.afm", "Empty.pfb", "Nameless.afm", "Nameless.t1", "Orphan.afm", "P052-Roman.afm",
            "P052-Roman.t1" }));
}

TEST(QVType1Cli, TheSameFontAsAMacAndAPCFileIsADuplicate)
{
    QVTestHome home;
    const QString dir = home.path() + "/Mixed";
    ASSERT_FALSE(makeLwfn(dir + "/Mac", "C059Ita", kC059ItalicPfb).isEmpty());
    copyFont(kC059ItalicPfb, dir + "/PC");
    copyFont(kUrw + "C059-Italic.afm", dir + "/PC");
    // Another version of a font is not its duplicate.
    QByteArray newer = readFile(kUrw + "C059-Bold.t1");
    newer.replace("/version (1.00)", "/version (2.00)");
    ASSERT_TRUE(writeFile(dir + "/PC/C059-Bold.t1", newer));
    copyFont(kUrw + "C059-Bold.afm", dir + "/PC");
    ASSERT_FALSE(makeLwfn(dir + "/Mac", "C059Bol", kUrw + "C059-Bold.t1").isEmpty());
    // Metrics beside the Mac outline of their font are not orphans.
    copyFont(kUrw + "C059-Bold.afm", dir + "/Mac");

    const QJsonObject result = diagnose(home, { dir }, 1);
    EXPECT_EQ(result["duplicateProblemCount"].toInt(), 1);
    QStringList groups;
    for (const QJsonValue &entry : result["problemFonts"].toArray()) {
        // The Mac file, also missing its bitmap font, keeps that entry and gains the group.
        if (!entry.toObject().contains("duplicatesArray"))
            continue;
        QStringList members { QFileInfo(entry["fontFile"].toString()).fileName() };
        for (const QJsonValue &member : entry["duplicatesArray"].toArray())
            members << QFileInfo(member["fontFile"].toString()).fileName();
        members.sort();
        groups << members.join(' ');
    }
    EXPECT_EQ(groups, QStringList { "C059-Italic.pfb C059Ita" });
    EXPECT_EQ(result["missingPSProblemCount"].toInt(), 0);
}

TEST(QVType1Cli, OrganizedOutlinesKeepTheirMetricsUnderOneName)
{
    QVTestHome home;
    const QString incoming = home.path() + "/Incoming", library = home.path() + "/Library";
    copyFont(kUrw + "P052-Roman.t1", incoming);
    copyFont(kUrw + "P052-Roman.afm", incoming);
    copyFont(kC059RomanPfb, incoming);
    copyFont(kUrw + "C059-Roman.afm", incoming);
    // The library already has a P052-Roman outline: the pair comes in under the next name together.
    copyFont(kUrw + "P052-Roman.t1", library + "/URW/P052");
    const CliRun run = runCli(home, { "organize", "--library", library, "--move", incoming });
    EXPECT_EQ(run.exitCode, 0) << qPrintable(run.err + run.out);
    EXPECT_EQ(QDir(incoming).entryList(QDir::Files), QStringList());
    EXPECT_EQ(QDir(library + "/URW/P052").entryList(QDir::Files),
        QStringList({ "P052-Roman 1.afm", "P052-Roman 1.t1", "P052-Roman.t1" }));
    EXPECT_EQ(QDir(library + "/URW/C059").entryList(QDir::Files),
        QStringList({ "C059-Roman.afm", "C059-Roman.pfb" }));
    // Every outline that came in finds its metrics in the library.
    QFile::remove(library + "/URW/P052/P052-Roman.t1");
    const QJsonObject after = diagnose(home, { library }, 0);
    EXPECT_EQ(after["totalFontProblems"].toInt(), 0) << qPrintable(defects(after).join('\n'));
}
