// PC Type 1 fonts: Debian's outline and metrics files as fontTools reads them, and damaged copies.
#include "engine/QVFontConstants.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDirIterator>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

QStringList filesUnder(const QString &folder, const QStringList &patterns)
{
    QStringList found;
    QDirIterator it(folder, patterns, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next();
    found.sort();
    return found;
}

// "PostScript name|family|style|version|foundry|defects" of a file's only status.
QString examinedRow(const QString &path)
{
    const QVFontFilePtr file = examined(path);
    if (file->fontStatusArray.size() != 1)
        return QStringLiteral("%1 statuses").arg(file->fontStatusArray.size());
    const QVStatus &s = *file->fontStatusArray.first();
    return QStringList { QString::number(s.fontType), s.PSname, s.familyName, s.fontStyle, s.PSversion,
        s.fontFoundry, s.fontErrorsInfo.join(", ") }
        .join('|');
}

// A PFB's segments: each a marker, a type and a length (least significant byte first).
QByteArray segment(quint8 type, const QByteArray &content)
{
    QByteArray header(6, '\0');
    header[0] = char(0x80);
    header[1] = char(type);
    qToLittleEndian<quint32>(quint32(content.size()), header.data() + 2);
    return header + content;
}

} // namespace

TEST(QVType1Examine, DebianOutlinesAndMetricsAreSoundAndNamedAsFontToolsReadsThem)
{
    const QStringList outlines = filesUnder("/usr/share/fonts/type1", { "*.t1" })
        + filesUnder("/usr/share/fonts/X11/Type1", { "*.pfb" })
        + filesUnder("/usr/share/texmf/fonts/type1", { "*.pfb" });
    const QStringList metrics = filesUnder("/usr/share/fonts/type1", { "*.afm" })
        + filesUnder("/usr/share/texmf/fonts/afm", { "*.afm" });
    ASSERT_GE(outlines.size(), 35 + 35 + 33);
    ASSERT_GE(metrics.size(), 35 + 33);
    int status = 0;
    // fontTools decrypts each program: its names and a glyph count prove the encrypted part. A metrics
    // file names the font of its outline, with the weight its header gives.
    const QString expected = python(R"(
import sys, os, re
from fontTools import t1Lib
names = {}
for path in sys.argv[1:]:
    base = os.path.splitext(os.path.basename(path))[0]
    if path.endswith('.afm'):
        weight = re.search(rb'^Weight (.*?)\s*$', open(path, 'rb').read(), re.M).group(1).decode()
        print('1|%s|%s||' % (names[base], weight))
        continue
    f = t1Lib.T1Font(path); f.parse()
    assert len(f['CharStrings']) > 1
    i = f['FontInfo']
    names[base] = '%s|%s' % (f['FontName'], i['FamilyName'])
    print('1|%s|%s|%s|%s|' % (f['FontName'], i['FamilyName'], i.get('Weight'), i['version']))
)",
        outlines + metrics, &status);
    ASSERT_EQ(status, 0) << qPrintable(expected);
    const QStringList theirs = expected.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(theirs.size(), outlines.size() + metrics.size());
    for (qsizetype i = 0; i < theirs.size(); ++i) {
        const QString path = (outlines + metrics).at(i);
        const QStringList ours = examinedRow(path).split('|');
        ASSERT_EQ(ours.size(), 7) << qPrintable(path + ": " + ours.join('|'));
        const QStringList want = theirs.at(i).split('|');
        // Type, names and version as fontTools reads them; style as its weight says it; no defect.
        EXPECT_EQ(ours.mid(0, 3), want.mid(0, 3)) << qPrintable(path);
        if (!path.endsWith(".afm")) {
            EXPECT_EQ(ours.at(4), want.at(4)) << qPrintable(path);
        }
        const bool plainWeight
            = QStringList { "Regular", "Roman", "Book", "Medium", "Normal" }.contains(want.at(3));
        // A regular weight is plain unless the full name adds a slant ("Italic").
        EXPECT_TRUE(plainWeight ? !ours.at(3).contains("Bold") && !ours.at(3).isEmpty()
                                : ours.at(3).contains(want.at(3)))
            << qPrintable(path + " " + ours.at(3));
        EXPECT_EQ(ours.at(6), "") << qPrintable(path);
        // The notice of URW's fonts names their foundry.
        if (!want.at(2).startsWith("TeXGyre")) {
            EXPECT_TRUE(ours.at(5).startsWith("URW")) << qPrintable(path + " " + ours.at(5));
        }
    }
}

TEST(QVType1Examine, DamagedCopiesNameEachDamage)
{
    QVTestHome home;
    const QString dir = home.path() + "/damaged/";
    const QByteArray pfb = readFile(kC059RomanPfb);
    ASSERT_EQ(quint8(pfb.at(0)), 0x80);
    // The segments of the real file: cleartext, encrypted part, trailer.
    QList<QByteArray> parts;
    for (qsizetype at = 0; at + 6 <= pfb.size() && pfb.at(at + 1) != 3;) {
        const quint32 length = qFromLittleEndian<quint32>(pfb.constData() + at + 2);
        parts << pfb.mid(at + 6, length);
        at += 6 + qsizetype(length);
    }
    ASSERT_EQ(parts.size(), 3);
    const QByteArray end = QByteArray::fromHex("8003");
    QByteArray nameless = parts[0];
    nameless.replace("/FontName", "/FontNome");

    // Lengths past the end: of the encrypted part, and one far beyond any file.
    QByteArray longer = segment(1, parts[0]) + segment(2, parts[1]);
    qToLittleEndian<quint32>(quint32(parts[1].size() + 100), longer.data() + 6 + parts[0].size() + 2);
    QByteArray huge = segment(1, parts[0]);
    qToLittleEndian<quint32>(0xFFFFFFF0u, huge.data() + 2);
    ASSERT_TRUE(writeFile(dir + "Longer.pfb", longer));
    ASSERT_TRUE(writeFile(dir + "Huge.pfb", huge));
    ASSERT_TRUE(writeFile(
        dir + "Nameless.pfb", segment(1, nameless) + segment(2, parts[1]) + segment(1, parts[2]) + end));
    ASSERT_TRUE(
        writeFile(dir + "Empty.pfb", segment(1, parts[0]) + segment(2, {}) + segment(1, parts[2]) + end));
    ASSERT_TRUE(writeFile(dir + "Marker.pfb", segment(1, parts[0]) + QByteArray("\x7f\x02", 2) + parts[1]));
    // The text forms t1ascii writes: sound, and without its first line.
    ASSERT_EQ(runTool("t1ascii", { kC059RomanPfb, dir + "Sound.pfa" }).exitCode, 0);
    QByteArray pfa = readFile(dir + "Sound.pfa");
    ASSERT_TRUE(writeFile(dir + "Headless.pfa", pfa.mid(pfa.indexOf('\n') + 1)));
    const QString cut = "/usr/share/fonts/type1/urw-base35/C059-Roman.t1";
    ASSERT_TRUE(writeFile(dir + "Cut.t1", readFile(cut).left(readFile(cut).indexOf("eexec") + 200)));
    ASSERT_TRUE(writeFile(dir + "Broken.afm", "FontName C059-Roman\nStartCharMetrics 1\n"));

    const QString prefix = "1|C059-Roman|C059|Plain|1.00|URW|";
    EXPECT_EQ(examinedRow(dir + "Sound.pfa"), prefix);
    EXPECT_EQ(examinedRow(dir + "Longer.pfb"), prefix + "Bad Table Data");
    EXPECT_EQ(examinedRow(dir + "Huge.pfb"), prefix + "Bad Table Data, Bad Encrypted Section");
    EXPECT_EQ(examinedRow(dir + "Nameless.pfb"), "1|<none>|C059|Plain|1.00|URW|Missing PostScript Name");
    EXPECT_EQ(examined(dir + "Nameless.pfb")->fontStatusArray.first()->fontName, "Nameless.pfb");
    EXPECT_EQ(examinedRow(dir + "Empty.pfb"), prefix + "Bad Encrypted Section");
    EXPECT_EQ(examinedRow(dir + "Marker.pfb"), prefix + "Bad Table Data, Bad Encrypted Section");
    EXPECT_EQ(examinedRow(dir + "Headless.pfa"), prefix + "Missing Font Header");
    EXPECT_EQ(examinedRow(dir + "Cut.t1"), prefix + "Bad Encrypted Section");
    EXPECT_EQ(examinedRow(dir + "Broken.afm"), "1|C059-Roman||Plain||Generic|Bad Table Data");
}
