// The examiner on real fonts (Debian's, fontTools', t1mac's, ufond's, ruby-prawn's) and damaged copies.
#include "engine/QVFontDiagnose.h"

#include "engine/QVFontConstants.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceManager.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QProcess>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

const QString kBad = QString::fromUtf8(QVDefect::BadTableData);
// FreeType opens no face in this: one table, sound to the examiner.
const QByteArray kHollow = QByteArray::fromHex("000100000001001000000000") + QByteArray("zzzz")
    + QByteArray::fromHex("000000010000001c00000004") + QByteArray("abcd");

// "type size id|name|PostScript name|defects" of one status.
QString row(const QVStatusPtr &s)
{
    return QStringLiteral("%1 %2 %3|%4|%5|%6")
        .arg(s->fontType)
        .arg(s->fontSize)
        .arg(s->fontID)
        .arg(s->fontName, s->PSname, s->fontErrorsInfo.join(QStringLiteral(", ")));
}

class QVFontDiagnoseTest : public ::testing::Test
{
protected:
    void TearDown() override { QVResourceManager::closeAll(); }

    static void put16(QByteArray &b, qsizetype at, quint16 v) { qToBigEndian(v, b.data() + at); }
    static void put32(QByteArray &b, qsizetype at, quint32 v) { qToBigEndian(v, b.data() + at); }
    struct Result {
        qint32 result = 0;
        QList<QVStatusPtr> statuses;
        QStringList rows() const
        {
            QStringList list;
            for (const QVStatusPtr &s : statuses)
                list << row(s);
            return list;
        }
        QString styles() const
        {
            QStringList list;
            for (const QVStatusPtr &s : statuses)
                list << s->fontStyle;
            return list.join(',');
        }
        // The defects of the only status; "<n statuses>" otherwise.
        QString errors() const
        {
            return statuses.size() == 1 ? statuses.first()->fontErrorsInfo.join(", ")
                                        : QStringLiteral("<%1 statuses>").arg(statuses.size());
        }
    };
    Result examine(const QString &path, bool activation = false)
    {
        examiner.initialize();
        examiner.setDoActivation(activation);
        examiner.examineFont(path);
        Result r { examiner.examineResult(), examiner.fontStatusArray() };
        examiner.finalize();
        return r;
    }
    QString file(const QString &name, const QByteArray &bytes) { return home.writeFile(name, bytes); }
    QString typed(const QString &name, const QByteArray &type, quint16 flags = 0)
    {
        const QString path = copyFont(kDejaVuSans, home.path(), name);
        EXPECT_TRUE(setFinderInfo(path, type, flags));
        return path;
    }
    QString fontTools(const QString &name, const QString &script, const QStringList &inputs)
    {
        const QString out = home.path() + '/' + name;
        int status = 0;
        const QString log = python("import sys\nfrom fontTools.ttLib import TTFont\n" + script,
            inputs + QStringList { out }, &status);
        EXPECT_EQ(status, 0) << qPrintable(log);
        return out;
    }
    // DejaVu Sans without the naming records fontTools' filter drops.
    QString filteredNames(const QString &name, const QString &keep)
    {
        return fontTools(name,
            "f=TTFont(sys.argv[1])\nf['name'].names=[n for n in f['name'].names if " + keep
                + "]\nf.save(sys.argv[2])",
            { kDejaVuSans });
    }
    // The committed ufond suitcase (FOND 2861 "DejaVu Sans": 10 and 12 point plain, 12 bold as NFNT 2862,
    // 2861, 2863), by default with a style table naming every style "DejaVuSans".
    QString suitcase(const QString &name = "DejaVu Sans", bool withStyles = true)
    {
        const QString path = home.writeFile(name, QByteArray());
        EXPECT_EQ(
            QVForkStorage::writeResourceFork(path, readFile(testDataPath("fonts/DejaVuSans-suitcase.rsrc")),
                QVForkStorage::Place::AppleDouble),
            0);
        EXPECT_TRUE(setFinderInfo(path, "FFIL"));
        EXPECT_TRUE(!withStyles
            || edit(path, "FOND", 2861, [](QByteArray &fond) { return addStyleTable(fond, "DejaVuSans"); }));
        return path;
    }
    static bool addStyleTable(QByteArray &fond, const QByteArray &name)
    {
        const qsizetype at = fond.size();
        fond += QByteArray(58, '\0') + QByteArray("\0\1", 2) + char(name.size()) + name;
        put32(fond, 24, quint32(at));
        return true;
    }
    // Changes one resource in place through the resource layer; an edit answering false removes it.
    bool edit(
        const QString &path, const char *type, qint16 id, const std::function<bool(QByteArray &)> &change)
    {
        const std::lock_guard<std::recursive_mutex> guard(QVResourceManager::lock());
        const qint16 ref = QVResourceManager::openResFile(path, QVPermission::ReadWrite);
        const QVResourceHandle h
            = ref < 1 ? nullptr : QVResourceManager::get1Resource(qFromBigEndian<quint32>(type), id);
        bool ok = h != nullptr;
        if (ok && change(h->data))
            ok = QVResourceManager::changedResource(h) == 0 && QVResourceManager::writeResource(h) == 0;
        else if (ok)
            ok = QVResourceManager::removeResource(h) == 0;
        if (ref >= 1)
            QVResourceManager::closeResFile(ref);
        return ok;
    }
    QString lwfn(const QString &name, const QString &pfb = kC059RomanPfb)
    {
        const QString path = makeLwfn(home.path(), name, pfb);
        EXPECT_FALSE(path.isEmpty());
        return path;
    }

    QVTestHome home;
    QVFontDiagnose examiner;
};

} // namespace

TEST_F(QVFontDiagnoseTest, RealTrueTypeAndOpenTypeFonts)
{
    const Result sans = examine(kDejaVuSans);
    EXPECT_EQ(sans.result, 0);
    EXPECT_EQ(sans.rows(), QStringList { "3 0 0|DejaVu Sans|DejaVuSans|" });
    EXPECT_EQ(sans.styles(), "Plain");
    const QVStatus &s = *sans.statuses.value(0, std::make_shared<QVStatus>());
    EXPECT_EQ(s.familyName + '/' + s.PS533name + '/' + s.fontFoundry + '/' + s.fontURL,
        "DejaVu Sans/DejaVuSan/Bitstream/" + kDejaVuSans);
    EXPECT_GE(s.fontVersion, 0);
    // The OpenType font's Windows full name comes after its Mac one and wins.
    const Result roman = examine(kP052Roman);
    ASSERT_EQ(roman.statuses.size(), 1);
    const QVStatus &r = *roman.statuses[0];
    EXPECT_EQ(
        row(roman.statuses[0]) + r.familyName + '/' + r.fontFoundry, "5 0 0|P052-Roman|P052-Roman|P052/URW");
}

TEST_F(QVFontDiagnoseTest, OnlyTheKernChecksumDecides)
{
    // Sets the stored checksum of an SFNT table; false when the tag is absent.
    auto zeroChecksum = [](QByteArray &font, const char *tag) {
        for (qsizetype entry = 12; entry + 16 <= font.size() && entry < 12 + 16 * 40; entry += 16) {
            if (font.mid(entry, 4) == tag)
                return put32(font, entry + 4, 0), true;
        }
        return false;
    };
    QByteArray kern = readFile(kDejaVuSans), cmap = kern, noKern = readFile(kP052Roman);
    ASSERT_TRUE(zeroChecksum(kern, "kern") && zeroChecksum(cmap, "cmap") && zeroChecksum(cmap, "hmtx"));
    ASSERT_FALSE(zeroChecksum(noKern, "kern")); // the OpenType font has none
    const Result badKern = examine(file("Kern.ttf", kern));
    EXPECT_EQ(badKern.result, 1);
    EXPECT_EQ(badKern.rows(), QStringList { "3 0 0|DejaVu Sans|DejaVuSans|" + kBad });
    EXPECT_EQ(examine(file("Cmap.ttf", cmap)).rows(), QStringList { "3 0 0|DejaVu Sans|DejaVuSans|" });
    EXPECT_EQ(examine(file("NoKern.otf", noKern)).result, 0);
    // Never reported from inside a suitcase.
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(newHandleFromBytes(kern), "kern"), 1);
    EXPECT_EQ(examiner.examineSFNT(newHandleFromBytes(kern)), 0);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(newHandleFromBytes(readFile(kDejaVuSans)), "kern"), 0);
    EXPECT_EQ(examiner.qvlib_checkTTtableSum(newHandleFromBytes("abcd"), "cmap"), 1);
}

TEST_F(QVFontDiagnoseTest, NamesAndFallbacksOfNamingTablesFromFontTools)
{
    // Without name ID 6 the file name is the PostScript name.
    EXPECT_EQ(examine(filteredNames("NoPsName.ttf", "n.nameID!=6")).rows(),
        QStringList { "3 0 0|DejaVu Sans|NoPsName.ttf|" });
    // Names are read as single bytes: a UTF-16-only name table still reads.
    const Result windows = examine(filteredNames("WindowsOnly.ttf", "n.platformID==3"));
    ASSERT_EQ(windows.statuses.size(), 1);
    EXPECT_EQ(windows.statuses[0]->PSname + '/' + windows.statuses[0]->fontFoundry, "DejaVuSans/Bitstream");
    // A family name of no bytes whose offset points past the end is no short read; four bytes to read is.
    auto font = [](const char *familyLength) -> QByteArray {
        return QByteArray::fromHex("000100000001000000000000") + "name"
            + QByteArray::fromHex("000000010000001c00000022")
            + QByteArray::fromHex("00000002001e0001000000000001") + QByteArray::fromHex(familyLength)
            + QByteArray::fromHex("fff0000100000000000400040000") + "Full";
    };
    EXPECT_EQ(
        examine(file("EmptyFamily.ttf", font("0000"))).rows(), QStringList { "3 0 0|Full|EmptyFamily.ttf|" });
    EXPECT_EQ(examine(file("CutFamily.ttf", font("0004"))).errors(), kBad);
}

TEST_F(QVFontDiagnoseTest, CollectionBuiltWithFontToolsAndItsDamage)
{
    const QString ttc = fontTools("DejaVu.ttc",
        "from fontTools.ttLib.ttCollection import TTCollection\nc=TTCollection()\n"
        "c.fonts=[TTFont(p) for p in sys.argv[1:4]]\nc.save(sys.argv[4])",
        { kDejaVuSans, kDejaVuSansBold, kP052Roman });
    const Result members = examine(ttc);
    EXPECT_EQ(members.result, 0);
    // The first full name wins in a collection: the Mac one.
    EXPECT_EQ(members.rows(),
        QStringList({ "3 0 0|DejaVu Sans|DejaVuSans|", "3 0 0|DejaVu Sans Bold|DejaVuSans-Bold|",
            "5 0 0|P052 Roman|P052-Roman|" }));
    for (const QVStatusPtr &status : members.statuses)
        EXPECT_EQ(status->fontURL, ttc);
    // A header claiming 1000 members is one damaged record; a member offset beyond the file damages that
    // member.
    QByteArray thousand = readFile(ttc), pastEnd = thousand;
    put32(thousand, 8, 1000);
    const Result claimed = examine(file("Thousand.ttc", thousand));
    EXPECT_EQ(claimed.result, 1);
    EXPECT_EQ(claimed.rows(), QStringList { "3 0 0|Thousand.ttc|<none>|" + kBad });
    put32(pastEnd, 16, 0x7ffffff0);
    const QStringList partly = examine(file("PastEnd.ttc", pastEnd)).rows();
    ASSERT_EQ(partly.size(), 3);
    EXPECT_TRUE(partly[0].endsWith("|DejaVuSans|")) << qPrintable(partly[0]);
    EXPECT_TRUE(partly[1].startsWith("3 0 0|PastEnd.ttc|") && partly[1].endsWith(kBad))
        << qPrintable(partly[1]);
    EXPECT_EQ(examine(copyFont(kDejaVuSans, home.path(), "NotACollection.ttc")).errors(), kBad);
}

TEST_F(QVFontDiagnoseTest, ActivationThroughFreeTypeSkipsOnlyFontsDirectlyInAFontFolder)
{
    EXPECT_TRUE(examiner.checkFontDoesActivate(kDejaVuSans));
    const QString copy = copyFont(kDejaVuSans, home.path(), "Copy.ttf");
    EXPECT_TRUE(examiner.checkFontDoesActivate(copy));
    EXPECT_FALSE(examiner.checkFontDoesActivate(copy + ".missing"));
    const QString hollow = file("Hollow.ttf", kHollow);
    EXPECT_EQ(examine(hollow, false).errors(), "");
    EXPECT_EQ(examine(hollow, true).errors(), "Couldn't Activate Font");
    EXPECT_EQ(examine(hollow, true).result, 1);
    EXPECT_EQ(examine(copy, true).errors(), "");
    EXPECT_EQ(examine(file(".local/share/fonts/Hollow.ttf", kHollow), true).errors(), "");
    EXPECT_EQ(examine(file(".local/share/fonts/Nested/Hollow.ttf", kHollow), true).errors(),
        "Couldn't Activate Font");
}

TEST_F(QVFontDiagnoseTest, OutlineFilesFromT1macTheirNamesAndFinderFlags)
{
    const QString path = lwfn("C059Rom");
    EXPECT_EQ(examiner.quotedTypeCode(path), "'LWFN'");
    EXPECT_TRUE(examiner.hasResourceFork(path));
    const Result sound = examine(path);
    EXPECT_EQ(sound.result, 0);
    EXPECT_EQ(sound.rows(), QStringList { "1 0 0|C059-Roman|C059-Roman|" });
    EXPECT_EQ(sound.statuses.value(0)->PS533name, "C059Rom");
    // The PostScript name is a right file name too; any other is not.
    EXPECT_EQ(examine(lwfn("C059-Roman")).errors(), "");
    const Result renamed = examine(lwfn("C059 Roman"));
    EXPECT_EQ(renamed.result, 1);
    EXPECT_EQ(renamed.rows(), QStringList { "1 0 0|C059 Roman|C059-Roman|Bad File Name" });
    EXPECT_TRUE(examine(lwfn("C059MMRom")).statuses.isEmpty()); // a multiple master file yields no status
    // t1mac gives the file a BNDL resource and sets the has-bundle flag; clearing the flag makes them
    // disagree.
    EXPECT_FALSE(examiner.validateFinderFlags(path));
    ASSERT_TRUE(setFinderInfo(path, "LWFN"));
    EXPECT_TRUE(examiner.validateFinderFlags(path));
    EXPECT_EQ(examine(path).rows(), QStringList { "1 0 0|C059-Roman|C059-Roman|Incorrect File Flags" });
    // Invisible and misnamed: both defects on the one status.
    const QString hidden = lwfn("Hidden C059");
    ASSERT_TRUE(setFinderInfo(hidden, "LWFN", 0x6100));
    EXPECT_EQ(examine(hidden).errors(), "Incorrect File Flags, Bad File Name");
    // A suitcase's flags mark every member.
    const QString bundled = suitcase();
    ASSERT_TRUE(setFinderInfo(bundled, "FFIL", 0x2000));
    const Result members = examine(bundled);
    EXPECT_EQ(members.result, 1);
    ASSERT_EQ(members.statuses.size(), 3);
    for (const QVStatusPtr &status : members.statuses)
        EXPECT_EQ(status->fontErrorsInfo, QStringList { "Incorrect File Flags" });
}

TEST_F(QVFontDiagnoseTest, PostScriptNamesOfOutlineFiles)
{
    // A fork with no POST resources: no PostScript name at all.
    const QString nothing = file("Nothing", "");
    ASSERT_EQ(QVResouceFork().createNewResourceFileAtPath(nothing, qvFourCC("ASPC"), qvFourCC("LWFN")), 0);
    ASSERT_TRUE(setFinderInfo(nothing, "LWFN"));
    EXPECT_EQ(examine(nothing).rows(), QStringList { "1 0 0|Nothing|<none>|Missing PostScript Name" });
    // A Type 3 program in the data fork is found there.
    ASSERT_TRUE(writeFile(nothing, "%!PS-AdobeFont-1.0\n/FontType 3 def\n/FontName /Ornaments def\n"));
    EXPECT_EQ(examine(nothing).rows(), QStringList { "2 0 0|Ornaments|Ornaments|" });
    // The first POST resource holding the key ends the search, even when empty.
    const QString path = lwfn("C059Rom");
    auto post = [&](qint16 id, const QByteArray &text) {
        return edit(path, "POST", id, [&](QByteArray &p) { return !(p = p.left(2) + text).isEmpty(); });
    };
    ASSERT_TRUE(post(502, "/FontName /Elsewhere def ") && post(501, "no name here "));
    EXPECT_EQ(examiner.getType1PSname(path), "Elsewhere");
    ASSERT_TRUE(post(501, "/FontName() def "));
    EXPECT_EQ(examine(path).errors(), "Missing PostScript Name");
    // The value after the key, to its own end, at most 255 bytes, searched from the third byte.
    for (const auto &[text, value] : { std::pair { "xx/FontName(Times Roman) def", "Times Roman" },
             std::pair { "xx/FontName (Times) /FontName /Other ", "Other" },
             std::pair { "/FontName /Early def", "" } })
        EXPECT_EQ(QVFontDiagnose::findPostScriptValue(text, "/FontName"), value) << text;
    EXPECT_EQ(
        QVFontDiagnose::findPostScriptValue("xx/FontName /" + QByteArray(400, 'A'), "/FontName").size(), 255);
    for (const auto &[name, short533] : { std::pair { "HelveticaNeue-BoldItalic", "HelveNeuBolIta" },
             std::pair { "Univers_55-Roman", "UniveRom" }, std::pair { "ITC-Garamond", "ITCGar" } })
        EXPECT_EQ(QVFontDiagnose::get533postScriptName(name), short533);
}

TEST_F(QVFontDiagnoseTest, UfondSuitcaseAndTheRealDfont)
{
    const QString path = suitcase();
    EXPECT_EQ(examiner.quotedTypeCode(path), "'FFIL'");
    const Result members = examine(path);
    EXPECT_EQ(members.result, 0);
    EXPECT_EQ(members.rows(),
        QStringList({ "0 10 2861|DejaVu Sans|DejaVuSans|", "0 12 2861|DejaVu Sans|DejaVuSans|",
            "0 12 2861|DejaVu Sans|DejaVuSans|" }));
    EXPECT_EQ(members.styles(), "Plain,Plain,Bold");
    EXPECT_EQ(members.statuses.value(0)->PS533name, "DejaVuSan");
    // As ufond wrote it, the family names no PostScript font.
    const Result bare = examine(suitcase("Bare", false));
    EXPECT_EQ(bare.result, 1);
    EXPECT_EQ(bare.rows().value(0), "0 10 2861|DejaVu Sans|<none>|Missing PostScript Name");

    const Result dfont = examine(copyFont(kPanicSansDfont, home.path(), "Panic Sans.dfont"));
    EXPECT_EQ(dfont.styles(), "Plain,Bold,Italic,Bold, Italic");
    QStringList fullNames;
    for (const QVStatusPtr &status : dfont.statuses) {
        EXPECT_TRUE(row(status).startsWith("3 0 128|Panic Sans|")) << qPrintable(row(status));
        EXPECT_FALSE(status->fontFoundry.isEmpty());
        fullNames << status->trueTypeFontName;
    }
    EXPECT_EQ(fullNames.join(','), "Panic Sans,Panic Sans Bold,Panic Sans Italic,Panic Sans Bold Italic");
}

TEST_F(QVFontDiagnoseTest, WholeSuitcaseRecords)
{
    const QString empty = file("Empty Suitcase", "");
    ASSERT_EQ(QVResouceFork().createNewResourceFileAtPath(empty, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    ASSERT_TRUE(setFinderInfo(empty, "FFIL"));
    const Result none = examine(empty);
    EXPECT_EQ(
        none.rows(), QStringList { "0 0 -1|Empty Suitcase|(unavailable)|No Font Data (file is empty)" });
    EXPECT_EQ(none.styles(), "");
    // A map offset beyond the fork.
    const QString broken = suitcase("Broken Suitcase", false);
    QByteArray fork = readFile(testDataPath("fonts/DejaVuSans-suitcase.rsrc"));
    put32(fork, 4, 0x7FFFFFF0);
    ASSERT_EQ(QVForkStorage::writeResourceFork(broken, fork, QVForkStorage::Place::AppleDouble), 0);
    const Result unreadable = examine(broken);
    EXPECT_TRUE(unreadable.errors().startsWith("File Resource Error (")) << qPrintable(unreadable.errors());
    EXPECT_EQ(unreadable.statuses.value(0)->fontID, -1);
    // Another process holds the write lock an open-for-writing fork takes.
    const QString busy = suitcase("Busy Suitcase");
    QProcess holder;
    holder.start("flock", { "-x", busy, "-c", "echo locked; sleep 30" });
    ASSERT_TRUE(holder.waitForReadyRead(10000));
    const Result locked = examine(busy);
    holder.kill();
    holder.waitForFinished(10000);
    EXPECT_EQ(locked.result, 1);
    EXPECT_EQ(locked.rows(), QStringList { "0 0 -1|Busy Suitcase|(unavailable)|File Locked or in Use" });
}

TEST_F(QVFontDiagnoseTest, DamagedStrikesAndFamilyRecordsInTheWalk)
{
    const QString noPlain = suitcase("No Plain"), noBold = suitcase("No Bold"),
                  strike = suitcase("Bad Strike");
    ASSERT_TRUE(edit(noPlain, "NFNT", 2862, [](QByteArray &) { return false; }));
    ASSERT_TRUE(edit(noBold, "NFNT", 2863, [](QByteArray &) { return false; }));
    // A width table offset of five in the 12 point strike.
    ASSERT_TRUE(
        edit(strike, "NFNT", 2861, [](QByteArray &n) { return put16(n, 10, 0), put16(n, 16, 5), true; }));
    const Result plain = examine(noPlain), bold = examine(noBold), bad = examine(strike);
    EXPECT_EQ(plain.result, 1);
    EXPECT_EQ(plain.rows().mid(0, 2),
        QStringList({ "0 10 2861|DejaVu Sans|DejaVuSans|Missing Critical Resource",
            "0 12 2861|DejaVu Sans|DejaVuSans|" }));
    EXPECT_EQ(plain.statuses.value(0)->parentIndex, 0);
    // A missing bold strike is drawn from the plain one.
    EXPECT_EQ(bold.result, 0);
    EXPECT_EQ(bold.rows().value(2), "0 12 2861|DejaVu Sans|DejaVuSans|");
    EXPECT_EQ(bold.styles(), "Plain,Plain,Bold");
    EXPECT_EQ(bold.statuses.value(2)->parentIndex, bold.statuses.value(1)->parentIndex);
    EXPECT_EQ(bad.rows().mid(0, 2),
        QStringList(
            { "0 10 2861|DejaVu Sans|DejaVuSans|", "0 12 2861|DejaVu Sans|DejaVuSans|Bad Table Data" }));

    // Family records: a bad character range, kerning beyond the record, cut short, without entries,
    // entries promised beyond the record.
    const struct {
        const char *name;
        std::function<void(QByteArray &)> damage;
        int statuses;
        const char *lastErrors;
    } families[] = {
        { "Bad Kerning", [](QByteArray &f) { put32(f, 20, quint32(f.size() + 10)); }, 3,
            "Defective Table data (kern entires)" },
        { "Range", [](QByteArray &f) { put16(f, 4, 255), put16(f, 6, 0); }, 3,
            "Defective Table data (character range)" },
        { "Tiny Family", [](QByteArray &f) { f.truncate(40); }, 1, "File is Missing Critical Data" },
        { "No Entries", [](QByteArray &f) { f.truncate(56); }, 1, "Bad Font Entries Count" },
        { "Short Family", [](QByteArray &f) { f.truncate(54 + 6 * 2); }, 3, "File is Missing Critical Data" },
    };
    for (const auto &family : families) {
        const QString path = suitcase(QLatin1String(family.name));
        ASSERT_TRUE(edit(path, "FOND", 2861, [&](QByteArray &f) { return family.damage(f), true; }));
        const Result result = examine(path);
        ASSERT_EQ(result.statuses.size(), family.statuses) << family.name;
        EXPECT_EQ(result.statuses.last()->fontErrorsInfo, QStringList { family.lastErrors }) << family.name;
        EXPECT_EQ(result.statuses.last()->fontID, 2861) << family.name;
    }
}
