// Suitcases: the ufond suitcase of DejaVu Sans strikes, the real .dfont, and
// damaged variants of both.
#include "QVDiagnoseFixtures.h"
#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVResouceFork.h"
#include "settings/QVLog.h"
#include "support/QVTestHome.h"

#include <QProcess>
#include <gtest/gtest.h>

using namespace QVDiagnoseFixtures;

namespace
{

void putBE16(QByteArray &bytes, qsizetype at, quint16 value)
{
    bytes[at] = char(value >> 8);
    bytes[at + 1] = char(value & 0xFF);
}

void putBE32(QByteArray &bytes, qsizetype at, quint32 value)
{
    putBE16(bytes, at, quint16(value >> 16));
    putBE16(bytes, at + 2, quint16(value & 0xFFFF));
}

// ufond writes no style-mapping table; this one names every style
// "DejaVuSans" (all index bytes 0 give the base name).
bool addStyleTable(QByteArray &fond)
{
    const qsizetype at = fond.size();
    QByteArray table(60, '\0');
    putBE16(table, 58, 1);
    table.append(char(10));
    table.append("DejaVuSans");
    fond.append(table);
    putBE32(fond, 24, quint32(at));
    return true;
}

// The same table naming a multiple-master instance.
bool addMultipleMasterStyleTable(QByteArray &fond)
{
    const qsizetype at = fond.size();
    QByteArray table(60, '\0');
    putBE16(table, 58, 1);
    table.append(char(18));
    table.append("DejaVuSansMM_400_");
    table.append('\0');
    fond.append(table);
    putBE32(fond, 24, quint32(at));
    return true;
}

class QVFontDiagnoseSuitcase : public ::testing::Test
{
protected:
    QString makeSuitcase(const QString &name = QStringLiteral("DejaVu Sans"), bool withStyles = true)
    {
        const QString path = home.path() + QLatin1Char('/') + name;
        EXPECT_TRUE(installForkFile(path, ufondSuitcaseFork(), "FFIL"));
        if (withStyles) {
            EXPECT_TRUE(editResource(path, "FOND", 2861, addStyleTable));
        }
        return path;
    }

    QByteArray fondBytes()
    {
        const QString path = makeSuitcase(QStringLiteral("Source"));
        QByteArray bytes;
        static QByteArray *out = nullptr;
        out = &bytes;
        editResource(path, "FOND", 2861, [](QByteArray &fond) {
            *out = fond;
            return true;
        });
        return bytes;
    }

    QString familyPart(const QByteArray &fond, const QString &name = QStringLiteral("DejaVu Sans"))
    {
        return examiner.checkFONDtables(newHandleFromBytes(fond), name);
    }

    QVTestHome home;
    QVFontDiagnose examiner;
};

} // namespace

TEST_F(QVFontDiagnoseSuitcase, UfondSuitcaseOneStatusPerMember)
{
    const QString path = makeSuitcase();
    EXPECT_TRUE(examiner.hasResourceFork(path));
    EXPECT_EQ(examiner.quotedTypeCode(path), "'FFIL'");
    Examination result = examine(examiner, path);
    EXPECT_EQ(result.result, 0);
    ASSERT_EQ(result.statuses.size(), 3);
    const int sizes[] = { 10, 12, 12 };
    const char *styles[] = { "Plain", "Plain", "Bold" };
    for (int i = 0; i < 3; ++i) {
        const QVStatus &status = *result.statuses[i];
        EXPECT_EQ(status.fontName, "DejaVu Sans");
        EXPECT_EQ(status.fontType, QVFontType::Bitmap);
        EXPECT_EQ(status.fontSize, sizes[i]);
        EXPECT_EQ(status.fontStyle, styles[i]);
        EXPECT_EQ(status.fontID, 2861);
        EXPECT_EQ(status.PSname, "DejaVuSans");
        EXPECT_EQ(status.PS533name, "DejaVuSan");
        EXPECT_EQ(status.fontURL, path);
        EXPECT_TRUE(status.fontErrorsInfo.isEmpty()) << qPrintable(status.fontErrorsInfo.join(", "));
    }

    // Exactly as ufond wrote it, the family names no PostScript font.
    Examination bare = examine(examiner, makeSuitcase(QStringLiteral("Bare"), false));
    ASSERT_EQ(bare.statuses.size(), 3);
    EXPECT_EQ(bare.result, 1);
    EXPECT_EQ(bare.statuses.first()->PSname, "<none>");
    EXPECT_EQ(bare.statuses.first()->fontErrorsInfo, QStringList { "Missing PostScript Name" });
}

TEST_F(QVFontDiagnoseSuitcase, RealDfont)
{
    const QString path = home.path() + QStringLiteral("/Panic Sans.dfont");
    ASSERT_TRUE(writeFile(path, readFile(kPanicSansDfont)));
    EXPECT_TRUE(examiner.hasResourceFork(path));
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 4);
    const char *styles[] = { "Plain", "Bold", "Italic", "Bold, Italic" };
    const char *fullNames[]
        = { "Panic Sans", "Panic Sans Bold", "Panic Sans Italic", "Panic Sans Bold Italic" };
    for (int i = 0; i < 4; ++i) {
        const QVStatus &status = *result.statuses[i];
        EXPECT_EQ(status.fontType, QVFontType::TrueType);
        EXPECT_EQ(status.fontName, "Panic Sans");
        EXPECT_EQ(status.fontStyle, styles[i]);
        EXPECT_EQ(status.fontID, 128);
        EXPECT_EQ(status.fontSize, 0);
        EXPECT_EQ(status.trueTypeFontName, fullNames[i]);
        EXPECT_FALSE(status.fontFoundry.isEmpty());
    }
}

TEST_F(QVFontDiagnoseSuitcase, WholeFileRecords)
{
    // A suitcase with an empty resource map.
    const QString empty = home.path() + QStringLiteral("/Empty Suitcase");
    ASSERT_TRUE(writeFile(empty, QByteArray()));
    QVResouceFork fork;
    ASSERT_EQ(fork.createNewResourceFileAtPath(empty, 0x444D4F56 /* DMOV */, 0x4646494C /* FFIL */), 0);
    ASSERT_TRUE(setFinderInfo(empty, "FFIL", 0));
    Examination none = examine(examiner, empty);
    ASSERT_EQ(none.statuses.size(), 1);
    EXPECT_EQ(none.result, 1);
    const QVStatus &status = *none.statuses.first();
    EXPECT_EQ(status.fontErrorsInfo, QStringList { "No Font Data (file is empty)" });
    EXPECT_EQ(status.fontName, "Empty Suitcase");
    EXPECT_EQ(status.PSname, "(unavailable)");
    EXPECT_EQ(status.fontStyle, "");
    EXPECT_EQ(status.fontID, -1);
    EXPECT_EQ(status.fontType, QVFontType::Bitmap);

    // A fork whose map does not parse.
    const QString broken = home.path() + QStringLiteral("/Broken Suitcase");
    QByteArray fork2 = ufondSuitcaseFork();
    putBE32(fork2, 4, 0x7FFFFFF0); // map offset beyond the fork
    ASSERT_TRUE(installForkFile(broken, fork2, "FFIL"));
    Examination unreadable = examine(examiner, broken);
    ASSERT_EQ(unreadable.statuses.size(), 1);
    ASSERT_EQ(unreadable.statuses.first()->fontErrorsInfo.size(), 1);
    EXPECT_TRUE(unreadable.statuses.first()->fontErrorsInfo.first().startsWith("File Resource Error ("))
        << qPrintable(unreadable.statuses.first()->fontErrorsInfo.first());
    EXPECT_EQ(unreadable.statuses.first()->fontID, -1);
}

TEST_F(QVFontDiagnoseSuitcase, MissingPlainStrikeVersusMissingBoldStrike)
{
    const QString plain = makeSuitcase(QStringLiteral("No Plain"));
    ASSERT_TRUE(editResource(plain, "NFNT", 2862, [](QByteArray &) { return false; }));
    Examination withoutPlain = examine(examiner, plain);
    ASSERT_EQ(withoutPlain.statuses.size(), 3);
    EXPECT_EQ(withoutPlain.result, 1);
    EXPECT_EQ(withoutPlain.statuses[0]->fontErrorsInfo, QStringList { "Missing Critical Resource" });
    EXPECT_EQ(withoutPlain.statuses[0]->parentIndex, 0);
    EXPECT_TRUE(withoutPlain.statuses[1]->fontErrorsInfo.isEmpty());

    const QString bold = makeSuitcase(QStringLiteral("No Bold"));
    ASSERT_TRUE(editResource(bold, "NFNT", 2863, [](QByteArray &) { return false; }));
    Examination withoutBold = examine(examiner, bold);
    ASSERT_EQ(withoutBold.statuses.size(), 3);
    EXPECT_EQ(withoutBold.result, 0);
    for (const QVStatusPtr &status : withoutBold.statuses)
        EXPECT_TRUE(status->fontErrorsInfo.isEmpty());
    EXPECT_EQ(withoutBold.statuses[2]->fontStyle, "Bold");
    EXPECT_EQ(withoutBold.statuses[2]->parentIndex, withoutBold.statuses[1]->parentIndex);
}

TEST_F(QVFontDiagnoseSuitcase, StrikeWithWidthTableOffsetFive)
{
    const QString path = makeSuitcase(QStringLiteral("Bad Strike"));
    ASSERT_TRUE(editResource(path, "NFNT", 2861, [](QByteArray &nfnt) {
        nfnt[10] = 0;
        nfnt[11] = 0;
        nfnt[16] = 0;
        nfnt[17] = 5;
        return true;
    }));
    Examination result = examine(examiner, path);
    ASSERT_EQ(result.statuses.size(), 3);
    EXPECT_EQ(result.result, 1);
    EXPECT_TRUE(result.statuses[0]->fontErrorsInfo.isEmpty());
    EXPECT_EQ(result.statuses[1]->fontSize, 12);
    EXPECT_EQ(result.statuses[1]->fontErrorsInfo, QStringList { "Bad Table Data" });

    EXPECT_FALSE(examiner.checkNFNTtables(QVResourceHandle()));
    EXPECT_TRUE(examiner.checkNFNTtables(newHandleFromBytes(QByteArray(20, '\0'))));
    EXPECT_FALSE(examiner.checkNFNTtables(newHandleFromBytes(QByteArray(40, '\0'))));
    QByteArray beyond(40, '\0');
    beyond[17] = 41;
    EXPECT_TRUE(examiner.checkNFNTtables(newHandleFromBytes(beyond)));
    beyond[17] = 9;
    EXPECT_FALSE(examiner.checkNFNTtables(newHandleFromBytes(beyond)));
}

TEST_F(QVFontDiagnoseSuitcase, FamilyTableFindings)
{
    const QByteArray sound = fondBytes();
    ASSERT_GT(sound.size(), 200);
    const auto size = quint32(sound.size());
    EXPECT_EQ(familyPart(sound), "");
    EXPECT_EQ(examiner.checkFONDtables(QVResourceHandle(), QStringLiteral("X")), "Bad Table Data");
    EXPECT_EQ(familyPart(sound.left(20)), "missing data");

    QByteArray range = sound;
    putBE16(range, 4, 255);
    putBE16(range, 6, 0);
    EXPECT_EQ(familyPart(range), "character range");

    // Widths are checked when bit 0 of the flags is set; the width-table
    // offset is read from the high half of its field.
    QByteArray widths = sound;
    const quint32 widthTable
        = (quint8(sound[16]) << 24 | quint8(sound[17]) << 16 | quint8(sound[18]) << 8 | quint8(sound[19]));
    putBE16(widths, 0, 0x1001);
    putBE32(widths, 16, widthTable << 16);
    EXPECT_EQ(familyPart(widths), "");
    // The reading stops at the first width of 0, which ufond gives to
    // character 0; a wide first character is checked.
    QByteArray narrow = widths;
    putBE16(narrow, qsizetype(widthTable) + 4, 0x7000);
    EXPECT_EQ(familyPart(narrow), "maxWidth");
    EXPECT_EQ(familyPart(narrow, QStringLiteral("DejaVu MM")), "");
    QByteArray negative = widths;
    putBE16(negative, qsizetype(widthTable), 0xFFF0);
    EXPECT_EQ(familyPart(negative), "width table");
    QByteArray atEnd = widths;
    putBE32(atEnd, 16, (size - 1) << 16);
    EXPECT_EQ(familyPart(atEnd), "missing data");

    QByteArray kern = sound;
    putBE32(kern, 20, size + 10);
    EXPECT_EQ(familyPart(kern), "kern entires");
    putBE32(kern, 20, size - 1);
    EXPECT_EQ(familyPart(kern), "numEntries");
    kern.append(QByteArray::fromHex("000000000064"));
    putBE32(kern, 20, size);
    EXPECT_EQ(familyPart(kern), "numKernPairs");

    QByteArray styles = sound;
    putBE32(styles, 24, size + 5);
    EXPECT_EQ(familyPart(styles), "style table");
    putBE32(styles, 24, size - 30);
    EXPECT_EQ(familyPart(styles), "PostScript name");

    QByteArray bare = sound;
    putBE32(bare, 16, 0);
    putBE32(bare, 20, 0);
    putBE32(bare, 24, 0);
    EXPECT_EQ(familyPart(bare), "");
    putBE16(bare, 52, 250);
    EXPECT_EQ(familyPart(bare), "Bad Table Data");

    EXPECT_EQ(familyPart(sound, QStringLiteral("%ab")), "Bad Table Data");
    EXPECT_EQ(familyPart(sound, QStringLiteral("%MM")), "");
}

TEST_F(QVFontDiagnoseSuitcase, FamilyFindingsInTheWalk)
{
    const QString kerned = makeSuitcase(QStringLiteral("Bad Kerning"));
    ASSERT_TRUE(editResource(kerned, "FOND", 2861, [](QByteArray &fond) {
        putBE32(fond, 20, quint32(fond.size() + 10));
        return true;
    }));
    Examination result = examine(examiner, kerned);
    ASSERT_EQ(result.statuses.size(), 3);
    for (const QVStatusPtr &status : result.statuses)
        EXPECT_EQ(status->fontErrorsInfo, QStringList { "Defective Table data (kern entires)" });

    const QString tiny = makeSuitcase(QStringLiteral("Tiny Family"));
    ASSERT_TRUE(editResource(tiny, "FOND", 2861, [](QByteArray &fond) {
        fond.truncate(40);
        return true;
    }));
    result = examine(examiner, tiny);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "File is Missing Critical Data" });
    EXPECT_EQ(result.statuses.first()->fontID, 2861);

    const QString noEntries = makeSuitcase(QStringLiteral("No Entries"));
    ASSERT_TRUE(editResource(noEntries, "FOND", 2861, [](QByteArray &fond) {
        fond.truncate(56);
        return true;
    }));
    result = examine(examiner, noEntries);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "Bad Font Entries Count" });

    // Entries promised beyond the resource: the first members are saved,
    // then the family is short.
    const QString shortFamily = makeSuitcase(QStringLiteral("Short Family"));
    ASSERT_TRUE(editResource(shortFamily, "FOND", 2861, [](QByteArray &fond) {
        fond.truncate(54 + 6 * 2);
        return true;
    }));
    result = examine(examiner, shortFamily);
    ASSERT_EQ(result.statuses.size(), 3);
    EXPECT_EQ(result.statuses[1]->fontSize, 12);
    EXPECT_EQ(result.statuses.last()->fontErrorsInfo, QStringList { "File is Missing Critical Data" });
}

TEST_F(QVFontDiagnoseSuitcase, WrongFinderFlagsMarkEveryMember)
{
    const QString path = makeSuitcase();
    ASSERT_TRUE(setFinderInfo(path, "FFIL", 0x2000));
    Examination result = examine(examiner, path);
    EXPECT_EQ(result.result, 1);
    ASSERT_EQ(result.statuses.size(), 3);
    for (const QVStatusPtr &status : result.statuses)
        EXPECT_EQ(status->fontErrorsInfo, QStringList { "Incorrect File Flags" });
}

TEST_F(QVFontDiagnoseSuitcase, SfntResourceProbes)
{
    const QVResourceHandle sfnt = newHandleFromBytes(readFile(kDejaVuSans));
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(sfnt, "name"), 0);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(sfnt, "zzzz"), 0);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(QVResourceHandle(), "name"), 1);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(QVResourceHandle(), "cmap"), 0);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(newHandleFromBytes("abcd"), "cmap"), 1);
    QByteArray zeroed = readFile(kDejaVuSans);
    ASSERT_TRUE(setTableChecksum(zeroed, "kern", 0));
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(newHandleFromBytes(zeroed), "kern"), 1);
    // Never reported from inside a suitcase.
    EXPECT_EQ(examiner.examineSFNT(newHandleFromBytes(zeroed)), 0);
    EXPECT_EQ(examiner.findSFNTFoundryName(sfnt), "Bitstream");
    EXPECT_EQ(QVFontDiagnose::styleName(3), "Bold, Italic");
    EXPECT_EQ(QVFontDiagnose::styleName(32), "Condensed");
    EXPECT_EQ(QVFontDiagnose::styleName(5), "5");
}

TEST_F(QVFontDiagnoseSuitcase, DataManagerRunsTheExaminer)
{
    QVFontDataManager dataMgr;
    const QString suitcase = makeSuitcase();
    const QVFontFilePtr sfnt = dataMgr.addFontFileItem(kDejaVuSans);
    const QVFontFilePtr withFork = dataMgr.addFontFileItem(suitcase);
    EXPECT_EQ(sfnt->fontFileType, 1);
    EXPECT_EQ(sfnt->macTypeCode, "");
    EXPECT_EQ(withFork->fontFileType, 0);
    EXPECT_EQ(withFork->macTypeCode, "FFIL");
    ASSERT_EQ(withFork->fontStatusArray.size(), 3);
    EXPECT_EQ(dataMgr.totalFonts, 4u);
    EXPECT_EQ(withFork->fontStatusArray.last()->index, 3);
    EXPECT_FALSE(dataMgr.foundProblemFonts);
}

TEST_F(QVFontDiagnoseSuitcase, LoggingWritesOnlyStatusesWithErrors)
{
    static QStringList *lines = nullptr;
    QStringList captured;
    lines = &captured;
    const QtMessageHandler previous
        = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &message) {
              if (lines && context.category && QByteArray(context.category) == "quorvel.engine")
                  lines->append(message);
          });
    QVLog::setEnabled(true);
    examiner.initialize();
    examiner.doLogging = true;
    examiner.currentStatus->fontName = QStringLiteral("Sound");
    examiner.saveCurrentStatus();
    EXPECT_TRUE(captured.isEmpty());
    examiner.currentStatus->fontName = QStringLiteral("Damaged");
    examiner.currentStatus->setFontError(0);
    examiner.currentStatus->setFontErrorInfo(QStringLiteral("Bad Table Data"));
    examiner.saveCurrentStatus();
    qInstallMessageHandler(previous);
    QVLog::setEnabled(false);
    lines = nullptr;
    EXPECT_TRUE(captured.contains("fontName = Damaged"));
    EXPECT_TRUE(captured.contains("Errors Info: (Bad Table Data)"));
    EXPECT_FALSE(captured.join('\n').contains("familyName"));
}

TEST_F(QVFontDiagnoseSuitcase, TtfNamedSuitcaseWithAForkIsASuitcase)
{
    Examination result = examine(examiner, makeSuitcase(QStringLiteral("Suitcase.ttf")));
    ASSERT_EQ(result.statuses.size(), 3);
    EXPECT_EQ(result.statuses.first()->fontType, QVFontType::Bitmap);
    EXPECT_EQ(result.statuses.first()->fontID, 2861);
}

TEST_F(QVFontDiagnoseSuitcase, SuitcaseOpenForWritingElsewhere)
{
    // Another process holds the write lock that an open-for-writing fork
    // takes on its file.
    const QString path = makeSuitcase(QStringLiteral("Busy Suitcase"));
    QProcess holder;
    holder.start(QStringLiteral("flock"), { "-x", path, "-c", "echo locked; sleep 30" });
    ASSERT_TRUE(holder.waitForReadyRead(10000));
    Examination result = examine(examiner, path);
    holder.kill();
    holder.waitForFinished(10000);
    ASSERT_EQ(result.statuses.size(), 1);
    EXPECT_EQ(result.result, 1);
    EXPECT_EQ(result.statuses.first()->fontErrorsInfo, QStringList { "File Locked or in Use" });
    EXPECT_EQ(result.statuses.first()->fontName, "Busy Suitcase");
    EXPECT_EQ(result.statuses.first()->fontID, -1);
}

TEST_F(QVFontDiagnoseSuitcase, MultipleMasterFamilySkippedUnlessAsked)
{
    const QString path = makeSuitcase(QStringLiteral("MM Family"), false);
    ASSERT_TRUE(editResource(path, "FOND", 2861, addMultipleMasterStyleTable));
    EXPECT_TRUE(examine(examiner, path).statuses.isEmpty());

    examiner.initialize();
    examiner.setDoActivation(false);
    examiner.doDiagnoseMM = true;
    examiner.examineFont(path);
    const QList<QVStatusPtr> statuses = examiner.fontStatusArray();
    examiner.finalize();
    ASSERT_EQ(statuses.size(), 3);
    EXPECT_EQ(statuses.first()->PSname, "DejaVuSansMM");
}
