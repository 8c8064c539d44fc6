// SFNT files and collections: real Debian fonts, a collection built with
// fontTools, and damaged copies of them.
#include "QVDiagnoseFixtures.h"
#include "engine/QVFontConstants.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace QVDiagnoseFixtures;

namespace
{

const QString kBadTableData = QString::fromUtf8(QVDefect::BadTableData);

class QVFontDiagnoseSFNT : public ::testing::Test
{
protected:
    QString copyOf(const QString &source, const QString &name, const QByteArray &bytes = QByteArray())
    {
        const QString path = home.path() + QLatin1Char('/') + name;
        EXPECT_TRUE(writeFile(path, bytes.isNull() ? readFile(source) : bytes));
        return path;
    }

    QVTestHome home;
    QVFontDiagnose examiner;
};

} // namespace

TEST_F(QVFontDiagnoseSFNT, RealTrueTypeAndOpenTypeFonts)
{
    Examination sans = examine(examiner, kDejaVuSans);
    ASSERT_EQ(sans.statuses.size(), 1);
    const QVStatus &s = *sans.statuses.first();
    EXPECT_EQ(sans.result, 0);
    EXPECT_EQ(s.fontType, QVFontType::TrueType);
    EXPECT_EQ(s.fontName, "DejaVu Sans");
    EXPECT_EQ(s.familyName, "DejaVu Sans");
    EXPECT_EQ(s.PSname, "DejaVuSans");
    EXPECT_EQ(s.PS533name, "DejaVuSan");
    EXPECT_EQ(s.fontFoundry, "Bitstream");
    EXPECT_EQ(s.fontStyle, "Plain");
    EXPECT_EQ(s.fontURL, kDejaVuSans);
    EXPECT_EQ(s.fontSize, 0);
    EXPECT_EQ(s.fontID, 0);
    EXPECT_TRUE(s.fontErrorsInfo.isEmpty());
    EXPECT_GE(s.fontVersion, 0);

    // The OpenType font's Windows full name comes after its Mac one and wins.
    Examination roman = examine(examiner, kP052Roman);
    ASSERT_EQ(roman.statuses.size(), 1);
    const QVStatus &r = *roman.statuses.first();
    EXPECT_EQ(r.fontType, QVFontType::OpenType);
    EXPECT_EQ(r.fontName, "P052-Roman");
    EXPECT_EQ(r.PSname, "P052-Roman");
    EXPECT_EQ(r.familyName, "P052");
    EXPECT_EQ(r.fontFoundry, "URW");
    EXPECT_TRUE(r.fontErrorsInfo.isEmpty());
}

TEST_F(QVFontDiagnoseSFNT, EmptyAndTruncatedFiles)
{
    Examination empty = examine(examiner, copyOf(QString(), QStringLiteral("Empty.otf"), QByteArray("")));
    ASSERT_EQ(empty.statuses.size(), 1);
    EXPECT_EQ(empty.result, 1);
    EXPECT_EQ(empty.statuses.first()->fontType, QVFontType::OpenType);
    EXPECT_EQ(empty.statuses.first()->fontName, "Empty.otf");
    EXPECT_EQ(empty.statuses.first()->PSname, "<none>");
    EXPECT_EQ(empty.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });

    // Cut inside the table directory: the naming table cannot be reached.
    const QByteArray head = readFile(kDejaVuSans).left(100);
    Examination cut = examine(examiner, copyOf(QString(), QStringLiteral("Cut.ttf"), head));
    ASSERT_EQ(cut.statuses.size(), 1);
    EXPECT_EQ(cut.statuses.first()->fontType, QVFontType::TrueType);
    EXPECT_EQ(cut.statuses.first()->fontName, "Cut.ttf");
    EXPECT_EQ(cut.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });

    // An unreadable file is still represented, with the read error.
    const QString locked = copyOf(kDejaVuSans, QStringLiteral("Locked.ttf"));
    QFile::setPermissions(locked, QFileDevice::Permissions());
    QFile probe(locked);
    if (!probe.open(QIODevice::ReadOnly)) {
        Examination unreadable = examine(examiner, locked);
        ASSERT_EQ(unreadable.statuses.size(), 1);
        EXPECT_NE(unreadable.result, 0);
        EXPECT_TRUE(unreadable.statuses.first()->fontErrorsInfo.first().startsWith("File Error ("));
    }
}

TEST_F(QVFontDiagnoseSFNT, OnlyTheKernChecksumDecides)
{
    QByteArray kern = readFile(kDejaVuSans);
    ASSERT_TRUE(setTableChecksum(kern, "kern", 0));
    Examination badKern = examine(examiner, copyOf(QString(), QStringLiteral("Kern.ttf"), kern));
    ASSERT_EQ(badKern.statuses.size(), 1);
    EXPECT_EQ(badKern.result, 1);
    EXPECT_EQ(badKern.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });
    EXPECT_EQ(badKern.statuses.first()->fontName, "DejaVu Sans");

    QByteArray cmap = readFile(kDejaVuSans);
    ASSERT_TRUE(setTableChecksum(cmap, "cmap", 0));
    ASSERT_TRUE(setTableChecksum(cmap, "hmtx", 0));
    Examination badCmap = examine(examiner, copyOf(QString(), QStringLiteral("Cmap.ttf"), cmap));
    ASSERT_EQ(badCmap.statuses.size(), 1);
    EXPECT_EQ(badCmap.result, 0);
    EXPECT_TRUE(badCmap.statuses.first()->fontErrorsInfo.isEmpty());

    // The OpenType font has no kern table: not reported.
    QByteArray noKern = readFile(kP052Roman);
    ASSERT_FALSE(setTableChecksum(noKern, "kern", 0));
    EXPECT_EQ(examine(examiner, copyOf(QString(), QStringLiteral("NoKern.otf"), noKern)).result, 0);
}

TEST_F(QVFontDiagnoseSFNT, TableProbes)
{
    QFile font(kDejaVuSans);
    ASSERT_TRUE(font.open(QIODevice::ReadOnly));
    EXPECT_EQ(examiner.checkOTFtable(nullptr, "cmap"), 1);
    EXPECT_EQ(examiner.checkOTFtable(&font, "cmap"), 0);
    EXPECT_EQ(examiner.checkOTFtable(&font, "kern"), 0);
    EXPECT_EQ(examiner.checkOTFtable(&font, "zzzz"), 0);

    // A cmap shorter than its header is the one cmap defect; an odd encoding
    // or an offset beyond the table is tolerated.
    EXPECT_EQ(examiner.examineCMAP(&font, QByteArray("\0\0", 2)), 1);
    EXPECT_EQ(examiner.examineCMAP(&font, QByteArray::fromHex("0000000100030200000000ff")), 0);
    EXPECT_EQ(examiner.examineHHEA(&font, QByteArray()), 0);
    EXPECT_EQ(examiner.examineMAXP(&font, QByteArray()), 0);

    // A table whose offset lies beyond the file is no defect of the probe.
    QByteArray moved = readFile(kDejaVuSans);
    for (int i = 0; i < 32; ++i) {
        const qsizetype entry = 12 + 16 * i;
        if (moved.mid(entry, 4) == "cmap") {
            moved.replace(entry + 8, 4, QByteArray::fromHex("7fffff00"));
            break;
        }
    }
    QFile movedFile(copyOf(QString(), QStringLiteral("Moved.ttf"), moved));
    ASSERT_TRUE(movedFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(examiner.checkOTFtable(&movedFile, "cmap"), 0);
}

TEST_F(QVFontDiagnoseSFNT, NamesAndFallbacks)
{
    // fontTools drops name ID 6: the file name becomes the PostScript name.
    const QString noPsName = home.path() + QStringLiteral("/NoPsName.ttf");
    QString log;
    ASSERT_TRUE(runTool(kFontToolsPython,
        { "-c",
            "import sys\nfrom fontTools.ttLib import TTFont\nf=TTFont(sys.argv[1])\n"
            "f['name'].names=[n for n in f['name'].names if n.nameID!=6]\nf.save(sys.argv[2])",
            kDejaVuSans, noPsName },
        &log))
        << qPrintable(log);
    Examination result = examine(examiner, noPsName);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->PSname, "NoPsName.ttf");
    EXPECT_EQ(result.statuses.first()->fontName, "DejaVu Sans");

    // Names are read as single bytes: a UTF-16-only name table still reads.
    const QString windowsOnly = home.path() + QStringLiteral("/WindowsOnly.ttf");
    ASSERT_TRUE(runTool(kFontToolsPython,
        { "-c",
            "import sys\nfrom fontTools.ttLib import TTFont\nf=TTFont(sys.argv[1])\n"
            "f['name'].names=[n for n in f['name'].names if n.platformID==3]\nf.save(sys.argv[2])",
            kDejaVuSans, windowsOnly },
        &log))
        << qPrintable(log);
    result = examine(examiner, windowsOnly);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->PSname, "DejaVuSans");
    EXPECT_EQ(result.statuses.first()->fontFoundry, "Bitstream");
}

TEST_F(QVFontDiagnoseSFNT, ChoiceOfExamination)
{
    // No extension and no HFS type: nothing is examined.
    Examination none = examine(examiner, copyOf(kDejaVuSans, QStringLiteral("NoExtension")));
    EXPECT_TRUE(none.statuses.isEmpty());
    EXPECT_EQ(none.result, 0);

    // The HFS type "sfnt" makes a file without extension an SFNT file.
    const QString typed = copyOf(kDejaVuSans, QStringLiteral("Typed"));
    ASSERT_TRUE(setFinderInfo(typed, "sfnt", 0));
    EXPECT_EQ(examiner.quotedTypeCode(typed), "'sfnt'");
    Examination sfnt = examine(examiner, typed);
    ASSERT_EQ(sfnt.statuses.size(), 1);
    EXPECT_EQ(sfnt.statuses.first()->PSname, "DejaVuSans");

    // "ttf" with type FFIL but no resource fork is still an SFNT file.
    const QString ffil = copyOf(kDejaVuSans, QStringLiteral("Ffil.ttf"));
    ASSERT_TRUE(setFinderInfo(ffil, "FFIL", 0));
    EXPECT_FALSE(examiner.hasResourceFork(ffil));
    Examination asSfnt = examine(examiner, ffil);
    ASSERT_EQ(asSfnt.statuses.size(), 1);
    EXPECT_EQ(asSfnt.statuses.first()->fontType, QVFontType::TrueType);

    // Other HFS types examine nothing.
    const QString text = copyOf(kDejaVuSans, QStringLiteral("Text"));
    ASSERT_TRUE(setFinderInfo(text, "TEXT", 0));
    EXPECT_TRUE(examine(examiner, text).statuses.isEmpty());
}

TEST_F(QVFontDiagnoseSFNT, CollectionBuiltWithFontTools)
{
    const QString collection = home.path() + QStringLiteral("/DejaVu.ttc");
    QString log;
    ASSERT_TRUE(runTool(kFontToolsPython,
        { "-c",
            "import sys\nfrom fontTools.ttLib import TTFont\nfrom fontTools.ttLib.ttCollection import "
            "TTCollection\nc=TTCollection()\nc.fonts=[TTFont(sys.argv[1]),TTFont(sys.argv[2]),"
            "TTFont(sys.argv[3])]\nc.save(sys.argv[4])",
            kDejaVuSans, kDejaVuSansBold, kP052Roman, collection },
        &log))
        << qPrintable(log);
    Examination members = examine(examiner, collection);
    EXPECT_EQ(members.result, 0);
    ASSERT_EQ(members.statuses.size(), 3);
    EXPECT_EQ(members.statuses[0]->PSname, "DejaVuSans");
    EXPECT_EQ(members.statuses[0]->fontType, QVFontType::TrueType);
    EXPECT_EQ(members.statuses[1]->PSname, "DejaVuSans-Bold");
    EXPECT_EQ(members.statuses[1]->fontName, "DejaVu Sans Bold");
    // The first full name wins in a collection: the Mac one.
    EXPECT_EQ(members.statuses[2]->fontName, "P052 Roman");
    EXPECT_EQ(members.statuses[2]->fontType, QVFontType::OpenType);
    for (const QVStatusPtr &status : members.statuses) {
        EXPECT_TRUE(status->fontErrorsInfo.isEmpty());
        EXPECT_EQ(status->fontURL, collection);
    }

    // A header claiming 1000 members is one damaged record.
    QByteArray thousand = readFile(collection);
    thousand.replace(8, 4, QByteArray::fromHex("000003e8"));
    Examination claimed = examine(examiner, copyOf(QString(), QStringLiteral("Thousand.ttc"), thousand));
    ASSERT_EQ(claimed.statuses.size(), 1);
    EXPECT_EQ(claimed.result, 1);
    EXPECT_EQ(claimed.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });
    EXPECT_EQ(claimed.statuses.first()->fontType, QVFontType::TrueType);

    // A member offset beyond the file damages that member only.
    QByteArray pastEnd = readFile(collection);
    pastEnd.replace(16, 4, QByteArray::fromHex("7ffffff0"));
    Examination partly = examine(examiner, copyOf(QString(), QStringLiteral("PastEnd.ttc"), pastEnd));
    ASSERT_EQ(partly.statuses.size(), 3);
    EXPECT_TRUE(partly.statuses[0]->fontErrorsInfo.isEmpty());
    EXPECT_EQ(partly.statuses[1]->fontErrorsInfo, QStringList { kBadTableData });
    EXPECT_EQ(partly.statuses[1]->fontName, "PastEnd.ttc");

    // Not a collection at all.
    Examination plain = examine(examiner, copyOf(kDejaVuSans, QStringLiteral("NotACollection.ttc")));
    ASSERT_EQ(plain.statuses.size(), 1);
    EXPECT_EQ(plain.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });
}

TEST_F(QVFontDiagnoseSFNT, ActivationThroughTheFontManager)
{
    // Fonts in the font folders are active without a test.
    EXPECT_TRUE(examiner.checkFontDoesActivate(kDejaVuSans));
    // A copy elsewhere is registered for the process and unregistered again.
    const QString copy = copyOf(kDejaVuSans, QStringLiteral("Copy.ttf"));
    EXPECT_TRUE(examiner.checkFontDoesActivate(copy));
    EXPECT_FALSE(examiner.checkFontDoesActivate(copy + QStringLiteral(".missing")));

    // Sound to the examiner, but no face FreeType can open.
    QByteArray hollow = QByteArray::fromHex("000100000001001000000000") + QByteArray("zzzz")
        + QByteArray::fromHex("000000010000001c00000004") + QByteArray("abcd");
    const QString hollowPath = copyOf(QString(), QStringLiteral("Hollow.ttf"), hollow);
    Examination without = examine(examiner, hollowPath, false);
    ASSERT_EQ(without.statuses.size(), 1);
    EXPECT_TRUE(without.statuses.first()->fontErrorsInfo.isEmpty());
    Examination with = examine(examiner, hollowPath, true);
    ASSERT_EQ(with.statuses.size(), 1);
    EXPECT_EQ(with.result, 1);
    EXPECT_EQ(with.statuses.first()->fontErrorsInfo, QStringList { "Couldn't Activate Font" });
    // A sound copy passes the same test.
    EXPECT_TRUE(examine(examiner, copy, true).statuses.first()->fontErrorsInfo.isEmpty());
}

TEST_F(QVFontDiagnoseSFNT, ActivationSkipsOnlyFontsLyingDirectlyInAFontFolder)
{
    // FreeType opens no face in this file, so only a test can fail it.
    const QByteArray hollow = QByteArray::fromHex("000100000001001000000000") + QByteArray("zzzz")
        + QByteArray::fromHex("000000010000001c00000004") + QByteArray("abcd");
    const QString direct = home.writeFile(QStringLiteral(".local/share/fonts/Hollow.ttf"), hollow);
    const QString nested = home.writeFile(QStringLiteral(".local/share/fonts/Nested/Hollow.ttf"), hollow);
    EXPECT_TRUE(examiner.checkFontDoesActivate(direct));
    EXPECT_FALSE(examiner.checkFontDoesActivate(nested));
    Examination result = examine(examiner, nested, true);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "Couldn't Activate Font" });
    EXPECT_TRUE(examine(examiner, direct, true).statuses.first()->fontErrorsInfo.isEmpty());
}

TEST_F(QVFontDiagnoseSFNT, EmptyNameStringIsNoShortRead)
{
    // One table, "name", with a family name of no bytes whose offset points
    // past the end of the file, and a full name "Full".
    auto font = [](const char *familyLength) -> QByteArray {
        return QByteArray::fromHex("000100000001000000000000") + QByteArray("name")
            + QByteArray::fromHex("000000010000001c00000022") + QByteArray::fromHex("00000002001e")
            + QByteArray::fromHex("0001000000000001") + QByteArray::fromHex(familyLength)
            + QByteArray::fromHex("fff0") + QByteArray::fromHex("000100000000000400040000")
            + QByteArray("Full");
    };
    Examination empty = examine(examiner, copyOf(QString(), QStringLiteral("EmptyFamily.ttf"), font("0000")));
    ASSERT_EQ(empty.statuses.size(), 1);
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.statuses.first()->fontName, "Full");
    EXPECT_EQ(empty.statuses.first()->PSname, "EmptyFamily.ttf");
    EXPECT_TRUE(empty.statuses.first()->fontErrorsInfo.isEmpty());

    // The same record with four bytes to read is a short read.
    Examination cut = examine(examiner, copyOf(QString(), QStringLiteral("CutFamily.ttf"), font("0004")));
    ASSERT_EQ(cut.statuses.size(), 1);
    EXPECT_EQ(cut.result, 1);
    EXPECT_EQ(cut.statuses.first()->fontErrorsInfo, QStringList { kBadTableData });
}

TEST_F(QVFontDiagnoseSFNT, ExaminerLifecycleAndLogging)
{
    examiner.initialize();
    EXPECT_TRUE(examiner.isInitialized);
    EXPECT_TRUE(examiner.doFinderFlags);
    EXPECT_FALSE(examiner.doDiagnoseMM);
    EXPECT_TRUE(examiner.doTables);
    EXPECT_TRUE(examiner.doEmptySuitcase);
    EXPECT_FALSE(examiner.getLastStatus());
    examiner.currentStatus->fontName = QStringLiteral("A");
    examiner.saveCurrentStatus();
    ASSERT_TRUE(examiner.getLastStatus());
    EXPECT_EQ(examiner.getLastStatus()->fontName, "A");
    EXPECT_TRUE(examiner.currentStatus->fontName.isEmpty());
    examiner.finalize();
    EXPECT_FALSE(examiner.isInitialized);
    EXPECT_TRUE(examiner.statusArray.isEmpty());
}
