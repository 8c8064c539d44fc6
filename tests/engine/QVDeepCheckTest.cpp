// The deep check on Debian's fonts, a collection and a suitcase made by outside tools, and on
// copies of them damaged the ways disks and transfers damage files.
#include "engine/QVDeepCheck.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QString kNotoSans = QStringLiteral("/usr/share/fonts/truetype/noto/NotoSans-Regular.ttf");

// Offset and length of a table of a single font.
std::pair<qsizetype, qsizetype> table(const QByteArray &font, const char *tag)
{
    for (int i = 0; i < qFromBigEndian<quint16>(font.constData() + 4); ++i) {
        if (font.mid(12 + 16 * i, 4) == tag)
            return { be32at(font, 12 + 16 * i + 8), be32at(font, 12 + 16 * i + 12) };
    }
    return { -1, -1 };
}

QStringList findings(const QByteArray &font)
{
    QStringList all;
    for (const QStringList &face : QVDeepCheck::checkFont(font))
        all += face;
    return all;
}

// The statuses of a file examined the ordinary way, then deep-checked.
QList<QVStatusPtr> examined(const QString &path, int *reported)
{
    QVFontDataManager manager;
    const QVFontFilePtr file = manager.addFontFileItem(path);
    *reported = QVDeepCheck::checkFontFile(*file);
    return file->fontStatusArray;
}

class DeepCheckTest : public ::testing::Test
{
protected:
    QVTestHome home;
};

} // namespace

TEST_F(DeepCheckTest, SoundFontsCollectionsAndSuitcasesHaveNoFindings)
{
    for (const QString &path : { kDejaVuSans, kDejaVuSerif, kP052Roman, kC059Bold, kNotoSans })
        EXPECT_EQ(findings(readFile(path)), QStringList()) << qPrintable(path);

    const QString ttc = home.path() + QStringLiteral("/Pair.ttc");
    python(QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont, TTCollection\nc = TTCollection()\n"
                          "c.fonts = [TTFont(sys.argv[1]), TTFont(sys.argv[2])]\nc.save(sys.argv[3])\n"),
        { kDejaVuSans, kDejaVuSerif, ttc });
    EXPECT_EQ(QVDeepCheck::checkFont(readFile(ttc)), (QList<QStringList> { {}, {} }));

    int reported = -1;
    for (const QString &path : { ttc, kPanicSansDfont }) {
        const QList<QVStatusPtr> statuses = examined(path, &reported);
        EXPECT_EQ(reported, 0) << qPrintable(path);
        EXPECT_FALSE(statuses.isEmpty());
        for (const QVStatusPtr &status : statuses)
            EXPECT_EQ(status->fontErrorsInfo, QStringList()) << qPrintable(path);
    }
}

TEST_F(DeepCheckTest, DamagedCopiesAreFoundAndNamed)
{
    const QByteArray sans = readFile(kDejaVuSans);
    const auto [glyf, glyfLength] = table(sans, "glyf");
    const auto [loca, locaLength] = table(sans, "loca");
    const auto [maxp, maxpLength] = table(sans, "maxp");
    const auto [cmap, cmapLength] = table(sans, "cmap");
    const auto [name, nameLength] = table(sans, "name");

    QByteArray flipped = sans;
    flipped[glyf + glyfLength / 2] = char(flipped[glyf + glyfLength / 2] ^ 0x5a);
    EXPECT_TRUE(findings(flipped).contains("Table Checksum Mismatch (glyf)"));

    // Cut short: the last tables end past the end of the file.
    const QStringList cut = findings(sans.left(sans.size() * 6 / 10));
    EXPECT_FALSE(cut.filter(QStringLiteral("Damaged Table Data (")).isEmpty()) << qPrintable(cut.join(", "));

    QByteArray zeroed = sans;
    zeroed.replace(loca + locaLength - 256, 256, QByteArray(256, '\0'));
    EXPECT_TRUE(findings(zeroed).contains("Damaged Table Data (loca)"));

    QByteArray noGlyphs = sans;
    noGlyphs.replace(maxp + 4, 2, QByteArray(2, '\0'));
    EXPECT_TRUE(findings(noGlyphs).contains("Damaged Table Data (maxp)"));

    QByteArray badCmap = sans;
    badCmap.replace(cmap + 2, 2, QByteArray(2, '\xff'));
    EXPECT_TRUE(findings(badCmap).contains("Damaged Table Data (cmap)"));

    // Glyph 36 ("A") claims 32767 contours: no loader can read it. DejaVu's
    // glyph offsets are 32-bit.
    QByteArray badGlyph = sans;
    ASSERT_EQ(qFromBigEndian<quint16>(sans.constData() + table(sans, "head").first + 50), 1);
    const qsizetype glyph36 = glyf + be32at(sans, loca + 4 * 36);
    badGlyph.replace(glyph36, 2, QByteArray::fromHex("7fff"));
    const QStringList glyphFindings = findings(badGlyph);
    EXPECT_TRUE(glyphFindings.contains("Damaged Table Data (glyf)")) << qPrintable(glyphFindings.join(", "));
    // The accented letters built on it fail with it.
    EXPECT_TRUE(glyphFindings.value(2).startsWith("Glyph Cannot Be Loaded (36 and "))
        << qPrintable(glyphFindings.join(", "));

    QByteArray cff = readFile(kP052Roman);
    cff[table(cff, "CFF ").first] = 9;
    EXPECT_TRUE(findings(cff).contains("Damaged Table Data (CFF)"));

    // One letter of a name changed: usable, and only the checksum tells.
    QByteArray renamed = sans;
    renamed[name + nameLength - 3] = char(renamed[name + nameLength - 3] ^ 0x01);
    EXPECT_EQ(findings(renamed), QStringList { "Table Checksum Mismatch (name)" });
}

TEST_F(DeepCheckTest, FindingsReachTheStatusOfTheDamagedFontOnly)
{
    const QString ttc = home.path() + QStringLiteral("/Pair.ttc");
    python(QStringLiteral("import sys\nfrom fontTools.ttLib import TTFont, TTCollection\nc = TTCollection()\n"
                          "c.fonts = [TTFont(sys.argv[1]), TTFont(sys.argv[2])]\nc.save(sys.argv[3])\n"),
        { kDejaVuSans, kDejaVuSerif, ttc });
    QByteArray pair = readFile(ttc);
    // The second member's glyf: its directory follows the header's second offset.
    const qsizetype second = be32at(pair, 16);
    const QByteArray directory = pair.mid(second);
    const auto [glyf, glyfLength] = table(directory, "glyf");
    pair[glyf + glyfLength / 3] = char(pair[glyf + glyfLength / 3] ^ 0x10);
    ASSERT_TRUE(writeFile(ttc, pair));
    int reported = 0;
    QList<QVStatusPtr> statuses = examined(ttc, &reported);
    ASSERT_EQ(statuses.size(), 2);
    EXPECT_EQ(reported, 1);
    EXPECT_EQ(statuses.at(0)->fontErrorsInfo, QStringList());
    EXPECT_TRUE(statuses.at(1)->fontErrorsInfo.contains("Table Checksum Mismatch (glyf)"));
    EXPECT_EQ(statuses.at(1)->fontErrors, QList<int> { 0 });
    EXPECT_EQ(QVDeepCheck::onlyUsableDefects(*statuses.at(1)), statuses.at(1)->fontErrorsInfo.size() == 1);

    // The suitcase's sfnt resource, found by its bytes in the data fork.
    QByteArray dfont = readFile(kPanicSansDfont);
    const qsizetype sfnt = dfont.indexOf(QByteArray::fromHex("00010000"), 256);
    ASSERT_GT(sfnt, 0);
    const auto [name, nameLength] = table(dfont.mid(sfnt), "name");
    dfont[sfnt + name + nameLength - 2] = char(dfont[sfnt + name + nameLength - 2] ^ 0x01);
    const QString copy = home.path() + QStringLiteral("/Panic.dfont");
    ASSERT_TRUE(writeFile(copy, dfont));
    statuses = examined(copy, &reported);
    EXPECT_EQ(reported, 1);
    QStringList all;
    for (const QVStatusPtr &status : statuses)
        all += status->fontErrorsInfo;
    EXPECT_EQ(all, QStringList { "Table Checksum Mismatch (name)" });
    EXPECT_FALSE(QVDeepCheck::cautionText(all.value(0)).isEmpty());
    EXPECT_TRUE(QVDeepCheck::cautionText(QStringLiteral("Bad Table Data")).isEmpty());
}
