// The resource layer against forks made by other tools, read back by fontTools, showfond and FreeType.
#include "engine/QVMemoryHandler.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QRegularExpression>
#include <QtConcurrent>
#include <cstring>
#include <gtest/gtest.h>

using namespace QVFixtures;
using FS = QVForkStorage;
using RM = QVResourceManager;

namespace
{

const quint32 kFOND = qvFourCC("FOND"), kNFNT = qvFourCC("NFNT"), kSfnt = qvFourCC("sfnt");

class QVResourceForkTest : public ::testing::Test
{
protected:
    void TearDown() override { RM::closeAll(); }

    QString path(const QString &name) const { return home.path() + '/' + name; }
    // The committed ufond suitcase as a bare fork file.
    QString ufondRaw()
    {
        const QString raw = path("ufond.rsrc");
        EXPECT_TRUE(writeFile(raw, readFile(testDataPath("fonts/DejaVuSans-suitcase.rsrc"))));
        return raw;
    }
    // A data file whose fork (from a bare fork file) lives in the given place.
    QString install(const QString &raw, const QString &name, FS::Place place)
    {
        const QString file = path(name);
        EXPECT_TRUE(writeFile(file, "data fork"));
        EXPECT_EQ(FS::writeResourceFork(file, readFile(raw), place), 0);
        return file;
    }
    // Every loadable resource of an open file, type by type.
    QList<std::pair<quint32, QVResourceHandle>> all(qint16 ref)
    {
        QList<std::pair<quint32, QVResourceHandle>> list;
        fork.useResourceFile(ref);
        for (int t = 1, types = RM::count1Types(); t <= types; ++t) {
            fork.useResourceFile(ref);
            const quint32 type = RM::get1IndType(t);
            for (const QVResourceHandle &h : fork.getResourcesOfType(type, ref))
                list.append({ type, h });
        }
        return list;
    }
    static QString nameOf(const QVResourceHandle &h)
    {
        return h->hasName ? QVResouceFork::fromMacRoman(h->name) : QString();
    }
    // Our reading of an open file in fontTools' form.
    QStringList listing(qint16 ref)
    {
        QStringList lines;
        for (const auto &[type, h] : all(ref))
            lines << QStringLiteral("%1 %2 %3 %4 %5 %6")
                         .arg(qvFourCCString(type))
                         .arg(h->id)
                         .arg(h->data.size())
                         .arg(int(h->attributes))
                         .arg(QString::fromLatin1(
                                  QCryptographicHash::hash(h->data, QCryptographicHash::Sha1).toHex()),
                             h->hasName ? nameOf(h) : "null");
        lines.sort();
        return lines;
    }
    QStringList listing(const QString &file)
    {
        const qint16 ref = fork.openResourceFile(QVPermission::Read, file);
        EXPECT_GE(ref, 1) << fork.resourceError();
        const QStringList lines = ref < 1 ? QStringList() : listing(ref);
        fork.closeResourceFile(ref);
        return lines;
    }
    // Copies every resource of one file into a new one of the given kind.
    void copyAll(const QString &from, const QString &to, quint32 creator, quint32 type)
    {
        ASSERT_EQ(fork.createNewResourceFileAtPath(to, creator, type), 0);
        const qint16 src = fork.openResourceFile(QVPermission::Read, from);
        const qint16 dst = fork.openResourceFile(QVPermission::ReadWrite, to);
        ASSERT_TRUE(src >= 1 && dst >= 1);
        for (const auto &[resType, h] : all(src)) {
            fork.useResourceFile(dst);
            EXPECT_EQ(fork.addResource(h, resType, h->id, nameOf(h)), 0);
            EXPECT_EQ(fork.getHomeResourceRefWithHandle(h), dst);
        }
        fork.closeResourceFile(dst);
        EXPECT_EQ(fork.resourceError(), 0);
        fork.closeResourceFile(src);
    }
    // The error of opening the file, or 1 when it opens (it is closed again).
    qint16 openError(const QString &file, quint8 permission = QVPermission::Read)
    {
        const qint16 ref = fork.openResourceFile(permission, file);
        if (ref >= 1)
            fork.closeResourceFile(ref);
        return ref >= 1 ? 1 : fork.resourceError();
    }
    void expectOpenFails(const QString &file, qint16 error)
    {
        EXPECT_EQ(openError(file), error);
        EXPECT_EQ(openError(file, QVPermission::ReadWrite), error);
    }

    QVTestHome home;
    QVResouceFork fork;
};

} // namespace

TEST_F(QVResourceForkTest, LwfnFromT1macReadsLikeFontTools)
{
    const QString lwfn = makeLwfn(home.path(), "C059Ita"), raw = path("C059Ita.rsrc");
    ASSERT_FALSE(lwfn.isEmpty());
    // The fork inside t1mac's AppleDouble is byte for byte its raw output.
    ASSERT_EQ(runTool("t1mac", { "--raw", kC059ItalicPfb, raw }).exitCode, 0);
    QByteArray bytes;
    FS::Place place;
    ASSERT_EQ(FS::readResourceFork(lwfn, &bytes, &place), 0);
    EXPECT_EQ(place, FS::Place::AppleDouble);
    EXPECT_EQ(bytes, readFile(raw));
    EXPECT_TRUE(fork.hasResourceFork(lwfn));
    QString error;
    const QStringList expected = fontToolsResources(raw, &error);
    ASSERT_FALSE(expected.isEmpty()) << qPrintable(error);
    const qint16 ref = fork.openResourceFile(QVPermission::Read, lwfn);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    EXPECT_EQ(
        fork.countResourceTypes(ref, qvFourCC("POST")), expected.filter(QRegularExpression("^POST ")).size());
    const QVResourceHandle first = fork.getResourceOfID(501, qvFourCC("POST"), ref);
    ASSERT_TRUE(first);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), ref);
    EXPECT_EQ(fork.getResourceInfo(first).value("name").toString(), "<none>");
    EXPECT_EQ(fork.finderInfoFlags(lwfn), 0x2100);
    fork.closeResourceFile(ref);
    EXPECT_EQ(fork.getHomeResourceRefWithHandle(first), -1);
}

TEST_F(QVResourceForkTest, UfondSuitcaseReadsLikeFontToolsInEveryPlace)
{
    const QString raw = ufondRaw();
    const QStringList expected = fontToolsResources(raw);
    ASSERT_EQ(expected.size(), 4); // one FOND, three NFNT
    QList<FS::Place> places = { FS::Place::AppleDouble, FS::Place::NetatalkFolder };
    if (QVExtendedAttributes::supported(home.path()))
        places << FS::Place::ExtendedAttribute;
    for (FS::Place place : places) {
        SCOPED_TRACE(qPrintable(FS::placeName(place)));
        const QString file = install(raw, FS::placeName(place), place);
        // ext4 attributes hold about 4 KB: this fork goes to the sidecar instead.
        const FS::Place actual = FS::resourceForkPlace(file);
        EXPECT_TRUE(
            actual == place || (place == FS::Place::ExtendedAttribute && actual == FS::Place::AppleDouble));
        EXPECT_EQ(listing(file), expected);
    }
    // The fork file itself, read as a data-fork resource file, read only.
    const qint16 ref = fork.openDataForkAtResourceFile(nullptr, raw);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    EXPECT_FALSE(RM::isWritable(ref));
    fork.closeResourceFile(ref);
}

TEST_F(QVResourceForkTest, RealDfontReadsLikeFontToolsAndACopyTakesChanges)
{
    const QStringList expected = fontToolsResources(kPanicSansDfont);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_TRUE(fork.hasResourceFork(kPanicSansDfont));
    const qint16 ref = fork.openResourceFile(QVPermission::Read, kPanicSansDfont);
    ASSERT_GE(ref, 1);
    EXPECT_EQ(listing(ref), expected);
    // The FOND's style table leads to the PostScript names naming the sfnt resources and their naming tables.
    const QVResourceHandle fond = fork.getIndexResource(ref, kFOND, 1);
    ASSERT_TRUE(fond);
    QVMemoryHandler &mem = *fork.memoryHandler;
    ASSERT_EQ(mem.Handle_ReadShort(fond, 52) + 1, 4);
    for (int i = 0; i < 4; ++i) {
        const QVResourceHandle sfnt
            = fork.getResourceOfID(qint16(mem.Handle_ReadShort(fond, 58 + 6 * i)), kSfnt, ref);
        ASSERT_TRUE(sfnt);
        const QString name = fork.getResourceInfo(sfnt).value("name").toString();
        EXPECT_EQ(fork.getBitmapPSname(fond, mem.Handle_ReadShort(fond, 56 + 6 * i)), name);
        EXPECT_EQ(fork.getSNFTResourceName(sfnt, 6), name);
    }
    // The full name agrees with fontTools' Mac-platform record.
    const QVResourceHandle plain = fork.getIndexResource(ref, kSfnt, 1);
    int status = 0;
    const QString fullName = python("import sys\nfrom fontTools.ttLib import TTFont\n"
                                    "f=TTFont(sys.argv[1], res_name_or_index=sys.argv[2])\n"
                                    "print(f['name'].getName(4,1,0,0).toUnicode())",
        { kPanicSansDfont, fork.getResourceInfo(plain).value("name").toString() }, &status);
    ASSERT_EQ(status, 0) << qPrintable(fullName);
    EXPECT_EQ(fork.getSNFTResourceName(plain, 4), fullName.trimmed());
    EXPECT_EQ(fork.getSNFTResourceName(plain, 999), QString());
    fork.closeResourceFile(ref);

    // A copy is rewritten whole, keeping its rights and attributes, and fontTools reads the change.
    const QString copy = copyFont(kPanicSansDfont, home.path(), "Copy.dfont");
    ASSERT_TRUE(QFile::setPermissions(
        copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther));
    const QFileDevice::Permissions rights = QFileInfo(copy).permissions();
    const bool xattrs = QVExtendedAttributes::set(copy, "user.quorvel.test", "kept") == 0;
    const qint16 writeRef = fork.openResourceFile(QVPermission::ReadWrite, copy);
    ASSERT_GE(writeRef, 1);
    ASSERT_EQ(fork.removeResource(fork.getResourceOfID(128, kFOND, writeRef)), 0);
    fork.closeResourceFile(writeRef);
    EXPECT_EQ(fork.resourceError(), 0);
    QStringList remaining = expected;
    ASSERT_EQ(remaining.removeIf([](const QString &line) { return line.startsWith("FOND 128 "); }), 1);
    EXPECT_EQ(fontToolsResources(copy), remaining);
    EXPECT_EQ(QFileInfo(copy).permissions(), rights);
    EXPECT_TRUE(!xattrs || QVExtendedAttributes::get(copy, "user.quorvel.test") == QByteArray("kept"));
    EXPECT_TRUE(QDir(home.path()).entryList(QDir::Hidden | QDir::Files).filter("quorvel").isEmpty());
}

TEST_F(QVResourceForkTest, ANewSuitcaseWeFillReadsBackInFontToolsShowfondAndFreeType)
{
    const QString raw = ufondRaw(), source = install(raw, "Source", FS::Place::AppleDouble);
    const QString target = path("DejaVu Sans");
    ASSERT_EQ(fork.createNewResourceFileAtPath(target, qvFourCC("DMOV"), qvFourCC("FFIL")), 0);
    QByteArray info, empty;
    FS::Place place;
    ASSERT_EQ(FS::readFinderInfo(target, &info), 0);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    // A new suitcase has an empty map, whose type count is stored as 0xFFFF.
    ASSERT_EQ(FS::readResourceFork(target, &empty, &place), 0);
    EXPECT_EQ(empty.mid(be32at(empty, 4) + 28, 2), QByteArray::fromHex("ffff"));
    EXPECT_TRUE(fork.hasResourceFork(target));

    copyAll(source, target, qvFourCC("DMOV"), qvFourCC("FFIL"));
    EXPECT_EQ(readFile(extractFork(source, path("out"))), readFile(raw));
    const QString written = extractFork(target, path("out"));
    EXPECT_EQ(fontToolsResources(written), fontToolsResources(raw));
    auto shown = [](const QString &bare) {
        int status = -1;
        const QStringList lines = sortedLines(showfond(bare, &status));
        EXPECT_EQ(status, 0);
        return lines;
    };
    EXPECT_EQ(shown(written), shown(raw));

    // One strike out, a renamed copy of the FOND in under a new ID.
    const qint16 again = fork.openResourceFile(QVPermission::ReadWrite, target);
    ASSERT_GE(again, 1);
    const QVResourceHandle strike = fork.getIndexResource(again, kNFNT, 1),
                           family = fork.getIndexResource(again, kFOND, 1);
    ASSERT_TRUE(strike && family);
    const qint16 removedId = strike->id;
    EXPECT_EQ(RM::removeResource(strike), 0);
    fork.useResourceFile(again);
    EXPECT_EQ(fork.addResource(newHandleFromBytes(family->data), kFOND, 300, "Déjà Copy"), 0);
    fork.closeResourceFile(again);
    const QString after = fontToolsResources(extractFork(target, path("out"))).join('\n');
    EXPECT_EQ(after.count('\n'), 3);
    EXPECT_FALSE(after.contains(QStringLiteral("NFNT %1 ").arg(removedId)));
    EXPECT_TRUE(
        after.contains(QRegularExpression("^FOND 300 .* Déjà Copy$", QRegularExpression::MultilineOption)));
    // FreeType opens the outline file and the suitcase we wrote.
    auto faces = [](const QString &file) {
        return sortedLines(
            runTool("fc-scan", { "--format", "%{family} %{style} %{fontformat}\\n", file }).out);
    };
    const QString lwfnCopy = path("C059Copy"), panic = path("Panic Suitcase");
    copyAll(makeLwfn(home.path(), "C059Ita"), lwfnCopy, qvFourCC("T1UT"), qvFourCC("LWFN"));
    EXPECT_EQ(faces(lwfnCopy), QStringList { "C059 Italic Type 1" });
    copyAll(kPanicSansDfont, panic, qvFourCC("DMOV"), qvFourCC("FFIL"));
    EXPECT_EQ(faces(panic).size(), 4);
    EXPECT_EQ(faces(panic), faces(kPanicSansDfont));
}

TEST_F(QVResourceForkTest, MissingPlainAndDamagedForksAreErrorsAndNeverReplaced)
{
    expectOpenFails(path("missing"), QVResourceError::FileNotFound);
    const QString plain = home.writeFile("plain.ttf", "not a fork");
    EXPECT_FALSE(fork.hasResourceFork(plain));
    EXPECT_EQ(openError(plain), QVResourceError::ResFileNotFound);
    EXPECT_FALSE(QFile::exists(FS::sidecarPath(plain))); // reading creates nothing

    const QString damaged = home.writeFile("damaged", {});
    QVAppleDouble sidecar;
    sidecar.entries.append({ QVAppleDouble::ResourceFork, QByteArray(300, '\x7f'), 0 });
    ASSERT_TRUE(writeFile(FS::sidecarPath(damaged), sidecar.serialize()));
    const QByteArray before = readFile(FS::sidecarPath(damaged));
    EXPECT_FALSE(fork.hasResourceFork(damaged));
    expectOpenFails(damaged, QVResourceError::MapRead);
    EXPECT_EQ(fork.createNewResourceFileAtPath(damaged, 0, 0), QVResourceError::MapRead);
    EXPECT_EQ(readFile(FS::sidecarPath(damaged)), before);
    // A name of 1025 characters is refused before anything is tried.
    EXPECT_EQ(fork.openResourceFile(QVPermission::ReadWrite, path(QString(1025, 'n'))), 0);
}

TEST_F(QVResourceForkTest, NamesFromStyleTables)
{
    // A style table (at 60) naming plain by the base name, bold by suffix 4, italic by 5 and 4.
    QByteArray fond(120, '\0');
    fond[27] = 60;
    fond[70] = 1, fond[71] = 2, fond[72] = 3, fond[73] = 9;
    fond[119] = 5;
    for (const QByteArray s : { "Times", "\x04", "\x05\x04", "-Bold", "-Italic" })
        fond += char(s.size()) + s;
    // No base name, a table beyond the data, a suffix beyond the list: "<none>".
    QByteArray noBase = fond, farTable = fond, badSuffix = fond;
    noBase[120] = 0;
    farTable[25] = char(0x7F);
    badSuffix[127] = char(200);
    const struct {
        QByteArray fond;
        int style;
        const char *name;
    } cases[] = { { fond, 0, "Times" }, { fond, 1, "Times-Bold" }, { fond, 2, "Times-Italic-Bold" },
        { fond, 3, "Times" }, // an index beyond the list is the base
        { noBase, 0, "<none>" }, { farTable, 0, "<none>" }, { QByteArray(20, '\0'), 0, "<none>" },
        { badSuffix, 1, "<none>" } };
    for (const auto &c : cases)
        EXPECT_EQ(fork.getBitmapPSname(newHandleFromBytes(c.fond), c.style), c.name) << c.style;
}

TEST(QVResourceFile, WriterKeepsOrderNamesAttributesAndDuplicatesAsFontToolsReads)
{
    QVTestHome home;
    QVResourceFile file;
    file.entries = { rsrc("FOND", 128, "family", "Times", 0x20), rsrc("NFNT", 1, "strike-a"),
        rsrc("FOND", 129, "other", "Caf\x8e"), rsrc("NFNT", 1, "duplicate id") };
    file.mapAttributes = QVResourceFile::kMapReadOnly;
    qint16 error = 0;
    const QByteArray bytes = file.serialize(&error);
    const auto back = QVResourceFile::parse(bytes, &error);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->types(), (QList<quint32> { kFOND, kNFNT }));
    EXPECT_EQ(back->mapAttributes, QVResourceFile::kMapReadOnly);
    const auto &times = back->entries.at(back->find(kFOND, 128));
    EXPECT_EQ(times.name + times.data + char(times.attributes), QByteArray("Timesfamily\x20"));
    // The first of two equal IDs is found; both are kept.
    EXPECT_EQ(back->entries.at(back->find(kNFNT, 1)).data, QByteArray("strike-a"));
    EXPECT_EQ(back->entries.at(back->indexOf(kNFNT, 2)).data, QByteArray("duplicate id"));
    EXPECT_EQ(back->findNamed(kFOND, "caf\x8e"), back->find(kFOND, 129));
    const QString raw = home.path() + "/f.rsrc";
    ASSERT_TRUE(writeFile(raw, bytes));
    const QStringList listing = fontToolsResources(raw);
    ASSERT_EQ(listing.size(), 4);
    EXPECT_TRUE(listing.at(0).startsWith("FOND 128 6 32 ") && listing.at(0).endsWith(" Times"))
        << qPrintable(listing.at(0));
    EXPECT_TRUE(listing.at(1).endsWith(" Café")) << qPrintable(listing.at(1));
    // Mac Roman round-trips every byte.
    for (int b = 0; b < 256; ++b) {
        QByteArray out;
        ASSERT_TRUE(QVResouceFork::toMacRoman(QVResouceFork::fromMacRoman(QByteArray(1, char(b))), &out))
            << b;
        EXPECT_EQ(quint8(out.at(0)), b);
    }
}

TEST(QVResourceFile, DamagedMapsAreRefusedAndBadDataIsMarked)
{
    const QByteArray good
        = forkOf({ rsrc("sfnt", 1, QByteArray(100, 's'), "A"), rsrc("sfnt", 2, QByteArray(50, 't')) });
    const qsizetype map = be32at(good, 4);
    qint16 error = 0;
    QByteArray typeCount = good, refCount = good, nameOffset = good;
    typeCount[map + 28] = char(0x40); // thousands of types
    refCount[map + 30 + 4] = char(0x7F);
    nameOffset[map + 28 + 2 + 8 + 2] = char(0x70);
    for (const QByteArray &bad :
        { good.left(15), good.left(good.size() - 1), typeCount, refCount, nameOffset }) {
        EXPECT_FALSE(QVResourceFile::parse(bad, &error));
        EXPECT_EQ(error, QVResourceError::MapRead);
    }
    // A reference whose data lies outside the data area parses, but cannot load.
    QByteArray dataOffset = good, dataLength = good;
    dataOffset[map + 28 + 2 + 8 + 5] = char(0x7F);
    const auto parsed = QVResourceFile::parse(dataOffset, &error);
    ASSERT_TRUE(parsed);
    EXPECT_FALSE(parsed->entries.at(0).dataValid);
    EXPECT_TRUE(parsed->entries.at(1).dataValid);
    dataLength[256] = char(0x7F); // first resource's length word
    EXPECT_FALSE(QVResourceFile::parse(dataLength, &error)->entries.at(0).dataValid);

    // References at one place share its bytes, one inside another's data is unreadable:
    // a small fork never becomes many copies of itself in memory.
    QList<QVResourceFile::Entry> many
        = { rsrc("TEST", 0, QByteArray::fromHex("00000300") + QByteArray(996, 'a')) };
    for (int i = 1; i <= 100; ++i)
        many << rsrc("TEST", qint16(i), "b");
    QByteArray bomb = forkOf(many);
    const qsizetype refs = be32at(bomb, 4) + 28 + 2 + 8;
    for (int i = 1; i <= 100; ++i)
        bomb.replace(refs + 12 * i + 5, 3, QByteArray::fromHex(i % 2 ? "000000" : "000004"));
    const auto shared = QVResourceFile::parse(bomb, &error);
    ASSERT_TRUE(shared);
    for (int i = 1; i <= 100; ++i) {
        EXPECT_EQ(shared->entries.at(i).dataValid, i % 2 == 1) << i;
        EXPECT_EQ(shared->entries.at(i).data.isSharedWith(shared->entries.at(0).data), i % 2 == 1) << i;
    }
    // Types sharing one reference list would make a 40 KB map name four
    // million resources: more references than the map can hold is damage.
    constexpr int kTypes = 2000, kRefs = 2000;
    QByteArray types, refList, shareMap(22, '\0');
    QDataStream typeOut(&types, QIODevice::WriteOnly), refOut(&refList, QIODevice::WriteOnly);
    typeOut << quint16(kTypes - 1);
    for (int t = 0; t < kTypes; ++t)
        typeOut << quint32(t) << quint16(kRefs - 1) << quint16(2 + 8 * kTypes);
    for (int r = 0; r < kRefs; ++r)
        refOut << qint16(r) << quint16(0xFFFF) << quint32(0) << quint32(0);
    QDataStream mapOut(&shareMap, QIODevice::Append);
    mapOut << quint16(0) << quint16(28) << quint16(28 + types.size() + refList.size());
    shareMap += types + refList;
    QByteArray shareFork;
    QDataStream forkOut(&shareFork, QIODevice::WriteOnly);
    forkOut << quint32(16) << quint32(20) << quint32(4) << quint32(shareMap.size()) << quint32(0);
    EXPECT_FALSE(QVResourceFile::parse(shareFork + shareMap, &error));
    EXPECT_EQ(error, QVResourceError::MapRead);

    // The 24-bit data offsets reach 16 MB: a resource starting beyond cannot be written.
    QVResourceFile huge;
    huge.entries
        = { rsrc("sfnt", 1, QByteArray(QVResourceFile::kMaxDataArea, 'x')), rsrc("sfnt", 2, "tail") };
    EXPECT_TRUE(huge.serialize(&error).isEmpty());
    EXPECT_EQ(error, QVResourceError::WritingPastEnd);
}

TEST(QVResourceFile, TheLayerIsSafeFromSeveralThreads)
{
    QVTestHome home;
    QStringList files;
    for (int i = 0; i < 4; ++i) {
        QList<QVResourceFile::Entry> entries;
        for (int r = 0; r < 20; ++r)
            entries << rsrc("POST", qint16(501 + r), QByteArray(100 + r, char('A' + i)));
        files << home.writeFile(QStringLiteral("f%1").arg(i), {});
        ASSERT_EQ(FS::writeResourceFork(files.last(), forkOf(entries), FS::Place::AppleDouble), 0);
    }
    // Scans, organizing and resolutions use the layer from worker threads at
    // once; each holds the lock across a whole examination, as the examiner does.
    const QList<int> sums = QtConcurrent::blockingMapped(files, [](const QString &path) {
        int total = 0;
        for (int round = 0; round < 25; ++round) {
            std::lock_guard guard(QVResouceFork::lock());
            QVResouceFork fork;
            const qint16 ref = fork.openResourceFile(QVPermission::Read, path);
            if (ref < 1)
                return -1;
            for (const QVResourceHandle &h : fork.getResourcesOfType(qvFourCC("POST"), ref))
                total += int(h->data.size()) + fork.memoryHandler->Handle_ReadPString(h, 0)[0];
            fork.closeResourceFile(ref);
        }
        return total;
    });
    // 25 rounds of 20 resources of 100..119 bytes whose first byte is 'A' + i.
    for (int i = 0; i < sums.size(); ++i)
        EXPECT_EQ(sums.at(i), 25 * (2190 + 20 * (65 + i))) << i;
    EXPECT_TRUE(RM::openFiles().isEmpty());
}

TEST(QVMemoryHandler, ReadsAndWritesStayInsideTheData)
{
    QVMemoryHandler mem;
    const QByteArray bytes = QByteArray::fromHex("036162630978797affff");
    const QVResourceHandle h = newHandleFromBytes(bytes);
    EXPECT_EQ(mem.Handle_ReadShort(h, 8), -1);
    for (qint64 at : { -4, -1, 9, 10, 1000000 })
        EXPECT_EQ(mem.Handle_ReadShort(h, at), 0) << at;
    EXPECT_EQ(mem.Handle_ReadChar(h, 9), -1);
    EXPECT_EQ(mem.Handle_ReadChar(h, 10) | mem.Handle_ReadChar(h, -1) | mem.Handle_ReadLong(h, -2), 0);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(mem.Handle_ReadPString(h, 0).data()), 4),
        "\x03"
        "abc");
    EXPECT_EQ(mem.Handle_ReadPString(h, 4)[0], 0); // nine bytes from offset 4 run past the end
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(mem.Handle_ReadString(h, 0, 1000).data()), 11),
        bytes + '\0');
    const auto full
        = mem.Handle_ReadString(newHandleFromBytes(QByteArray(4000, 'A').prepend(char(1))), 0, 5000);
    EXPECT_EQ(full[1022], 'A');
    EXPECT_EQ(full[1023], 0);
    mem.Handle_WriteShort(h, 9, 0x1234);
    mem.Handle_WriteLong(h, -4, 1);
    mem.Handle_WriteShort(nullptr, 0, 1);
    EXPECT_EQ(h->data, bytes);
    unsigned char dest[8];
    std::memset(dest, 'x', sizeof dest);
    const unsigned char wide[] = { 0, 'A', 0, 'b', 0, 'C' };
    mem.doubleToSingleConversion(wide, 6, dest, 3, 6);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(dest), 4), QByteArray("A\0\0x", 4));
}
