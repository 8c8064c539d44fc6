// Taking fonts out of suitcases made by ufond (and the .dfont ruby-prawn
// ships) and putting them back, checked by fontTools and showfond.
#include "store/QVSuitcaseSurgery.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVFilePair.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace QVFixtures;

namespace
{

using Entry = QVResourceFile::Entry;

QVStatusPtr member(const QVFontFilePtr &file, const QString &family, int size = 10)
{
    for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
        if (status->fontName == family && status->fontSize == size
            && status->fontStyle == QLatin1String("Plain"))
            return status;
    }
    return nullptr;
}

QByteArray fondOf(const QString &bareFork, const QString &family)
{
    qint16 error = 0;
    const auto parsed = QVResourceFile::parse(readFile(bareFork), &error);
    const int index = parsed ? parsed->findNamed(qvFourCC("FOND"), family.toLatin1()) : -1;
    return index < 0 ? QByteArray() : parsed->entries.at(index).data;
}

Entry resource(const char *type, qint16 id, const QByteArray &data, const QByteArray &name = {})
{
    Entry entry;
    entry.type = qvFourCC(*reinterpret_cast<const char(*)[5]>(type));
    entry.id = id;
    entry.data = data;
    entry.name = name;
    entry.hasName = !name.isEmpty();
    return entry;
}

// A family record of (size, style, id) entries, its style table after them
// (one PostScript name, "Times-Roman", for every style), a width table "after" it.
QByteArray handMadeFOND(const QList<std::array<qint16, 3>> &entries, qint16 countMinusOne)
{
    QByteArray fond(54, '\0');
    qToBigEndian<qint16>(countMinusOne, fond.data() + 52);
    for (const auto &e : entries) {
        fond.append(6, '\0');
        for (int i = 0; i < 3; ++i)
            qToBigEndian<qint16>(e[i], fond.data() + fond.size() - 6 + 2 * i);
    }
    qToBigEndian<qint32>(qint32(fond.size()), fond.data() + 24);
    qToBigEndian<qint32>(qint32(fond.size() + 100), fond.data() + 16);
    return fond + QByteArray(58, '\0') + QByteArray("\0\1\x0bTimes-Roman", 14) + QByteArray(8, '\0');
}

QString suitcaseWith(const QString &path, const QByteArray &fond, const QList<Entry> &others = {},
    const QByteArray &family = "Times")
{
    QVResourceFile file;
    file.entries = others;
    file.entries << resource("FOND", 300, fond, family);
    qint16 error = 0;
    EXPECT_TRUE(makeSuitcase(path, file.serialize(&error)));
    return path;
}

QVStatusPtr handMadeMember(const QVFontFilePtr &file, const QString &family, int size)
{
    auto status = std::make_shared<QVStatus>();
    status->fontName = family;
    status->PSname = "Times-Roman";
    status->fontSize = size;
    status->fontStyle = "Plain";
    status->fontType = size ? 0 : 3;
    status->fontURL = file->URL;
    status->index = int(file->fontStatusArray.size());
    file->fontStatusArray.append(status);
    return status;
}

class SuitcaseTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        work = home.path() + "/work";
        c059 = c059Fork(work);
        serif = dejaVuSerifFork(work);
        ASSERT_FALSE(c059.isEmpty());
        ASSERT_FALSE(serif.isEmpty());
    }
    void TearDown() override { QVResourceManager::closeAll(); }

    QString suitcase(const QString &relative, const QByteArray &fork)
    {
        const QString path = home.path() + "/" + relative;
        EXPECT_TRUE(makeSuitcase(path, fork));
        return path;
    }
    QString bare(const QString &path) { return extractFork(path, work + "/" + QString::number(++forks)); }
    QString entries(const QString &path) { return fontToolsFONDEntries(bare(path)).trimmed(); }
    QString quarantined(const QString &name) const { return store.quarantineFolderPath() + "/" + name; }
    QStringList restoreAll(const QList<int> &rows = {})
    {
        QVQuarantineRuns runs(&store, &surgery);
        for (int i = 0; i < runs.rowArray.size(); ++i)
            runs.checkedRowsArray << (rows.isEmpty() ? i : rows.at(i));
        return runs.restoreQuarantinedFiles().errors;
    }

    QVTestHome home;
    QString work;
    int forks = 0;
    QByteArray c059, serif;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery { &store };
};

} // namespace

TEST_F(SuitcaseTest, OneFamilyOfTwoLeavesInItsOwnSuitcase)
{
    const QString path = suitcase("fonts/Two Families", mergeForks(c059, serif));
    const QDateTime created(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
    QVForkStorage::setCreationDate(path, created);
    const QByteArray c059Before = fondOf(bare(path), "C059");
    ASSERT_FALSE(c059Before.isEmpty());
    auto file = examined(path);
    ASSERT_EQ(file->fontStatusArray.size(), 4);
    const QVStatusPtr serifStatus = member(file, "DejaVu Serif");
    ASSERT_TRUE(serifStatus);
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "· Bad Table Data").isNull());

    // The new suitcase: DMOV/FFIL, one family with one entry and its strike, unnamed as ufond wrote it.
    const QString taken = quarantined("DejaVu Serif");
    QByteArray info;
    QVForkStorage::readFinderInfo(taken, &info);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    EXPECT_EQ(QVForkStorage::creationDate(taken), created);
    const QString takenFork = bare(taken);
    EXPECT_EQ(fontToolsFONDEntries(takenFork).trimmed(), QStringLiteral("DejaVu Serif 2100 10/0/2100"));
    const QStringList takenListing = fontToolsResources(takenFork);
    ASSERT_EQ(takenListing.size(), 2);
    EXPECT_TRUE(takenListing.at(1).startsWith("NFNT 2100 ") && takenListing.at(1).endsWith(" null"));
    int status = -1;
    const QString shown = showfond(takenFork, &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(shown.contains("FOND DejaVu Serif") && shown.contains("size=10 style=0 id=2100"))
        << qPrintable(shown);
    // The source keeps the other family byte for byte and loses this one.
    const QString after = bare(path);
    EXPECT_EQ(fondOf(after, "C059"), c059Before);
    EXPECT_TRUE(fondOf(after, "DejaVu Serif").isEmpty());
    EXPECT_TRUE(serifStatus->movedToQuarantine);
    EXPECT_FALSE(file->fileMovedToQuarantine);
    EXPECT_FALSE(member(file, "C059")->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString(), "DejaVu Serif");
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("originalFilePath").toString(), path);
}

TEST_F(SuitcaseTest, TheLastFamilyTakenOutDeletesTheSourceAndNamesAreNumbered)
{
    for (const QString &path : { suitcase("a/Serif", serif), suitcase("b/Serif", serif) }) {
        auto file = examined(path);
        ASSERT_EQ(file->fontStatusArray.size(), 1);
        ASSERT_TRUE(
            surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        EXPECT_FALSE(QFileInfo::exists(path));
        EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
        EXPECT_TRUE(file->fileMovedToQuarantine);
    }
    EXPECT_EQ(store.quarantinedFilesDataArray.at(1).value("quarantineFileName").toString(), "DejaVu Serif 1");
    for (const char *name : { "DejaVu Serif", "DejaVu Serif 1" })
        EXPECT_EQ(entries(quarantined(name)), "DejaVu Serif 2100 10/0/2100");
}

TEST_F(SuitcaseTest, RestoringIntoASuitcaseMergesTheFamilyInOrderOrAddsIt)
{
    const QByteArray kept = ufondFork(work + "/kept", { { kC059Roman, 10 }, { kC059Roman, 14 } });
    const QByteArray back
        = ufondFork(work + "/back", { { kC059Roman, 12 }, { kC059Bold, 10 }, { kC059Roman, 10 } });
    const QString target = suitcase("fonts/C059", kept);
    const QByteArray old = fondOf(bare(target), "C059");
    ASSERT_TRUE(surgery.moveFontFromQuarantineToSuitcase(suitcase("q/C059", back), target).isNull());
    // 10/0 was there already; 10/1 and 12/0 slot in by size, then style.
    const QString merged = bare(target);
    QStringList sizesStyles;
    for (const QString &e : fontToolsFONDEntries(merged).trimmed().section(' ', 2).split(' '))
        sizesStyles << e.section('/', 0, 1);
    EXPECT_EQ(sizesStyles, (QStringList { "10/0", "10/1", "12/0", "14/0" }));
    // The record grew by two entries; its table offsets moved with it.
    const QByteArray fond = fondOf(merged, "C059");
    EXPECT_EQ(fond.size(), old.size() + 12);
    EXPECT_EQ(
        qFromBigEndian<qint32>(fond.constData() + 16), qFromBigEndian<qint32>(old.constData() + 16) + 12);
    int status = -1;
    showfond(merged, &status);
    EXPECT_EQ(status, 0);

    // A family the suitcase lacks comes with its strikes; a file that is no
    // suitcase is not given a fork it never had.
    const QString other = suitcase("fonts/Other", c059), serifCopy = suitcase("q/Serif", serif);
    ASSERT_TRUE(surgery.moveFontFromQuarantineToSuitcase(serifCopy, other).isNull());
    const QString listing = fontToolsResources(bare(other)).join('\n');
    EXPECT_TRUE(listing.contains(" DejaVu Serif") && listing.contains("NFNT 2100 ")) << qPrintable(listing);
    const QString plain = home.writeFile("fonts/plain.otf", "OTTO");
    EXPECT_TRUE(
        surgery.moveFontFromQuarantineToSuitcase(serifCopy, plain).startsWith("File Resource Error ("));
    EXPECT_EQ(QVForkStorage::resourceForkPlace(plain), QVForkStorage::Place::None);
}

TEST_F(SuitcaseTest, CopyOnlyIntoAFolderLeavesTheSource)
{
    const QString path = suitcase("fonts/Two", mergeForks(c059, serif));
    const QString before = forkHashes(path);
    auto file = examined(path);
    const QString library = home.path() + "/library";
    QDir().mkpath(library);
    ASSERT_TRUE(
        surgery.moveFontFromSuitcaseToFolder(file, member(file, "DejaVu Serif"), library, "Serif", true)
            .isNull());
    EXPECT_EQ(forkHashes(path), before);
    EXPECT_EQ(entries(library + "/Serif"), "DejaVu Serif 2100 10/0/2100");
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
}

TEST_F(SuitcaseTest, ADamagedEntryCountCannotMakeRemovalsRunAway)
{
    const QString path = suitcaseWith(home.path() + "/Damaged", handMadeFOND({ { 10, 0, 301 } }, -5));
    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, path);
    ASSERT_GT(ref, 0);
    QVResourceHandle fond = fork.getIndexResource(ref, qvFourCC("FOND"), 1);
    const QByteArray before = fond->data;
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Times-Roman", false), 0);
    surgery.removeFONDAssocTables(fond, "Other", false, nullptr);
    surgery.addAssocTables(newHandleFromBytes(handMadeFOND({ { 12, 0, 302 } }, 0)), fond);
    EXPECT_EQ(fond->data, before);
    // A count larger than the record: only the entries that fit are read.
    qToBigEndian<qint16>(400, fond->data.data() + 52);
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Nothing", false), 0);
    fork.closeResourceFile(ref);
    EXPECT_EQ(surgery.remove1AssocTable(nullptr, 0), -1);
}

TEST_F(SuitcaseTest, DeletingFontsFromAQuarantinedSuitcaseOneKindAtATime)
{
    // Times (bitmap 10 and 12, an outline, all "Times-Roman") beside DejaVu Serif.
    const QString times
        = suitcaseWith(work + "/Times", handMadeFOND({ { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } }, 2));
    const QString path = suitcase("q/Two", mergeForks(readFile(bare(times)), serif));
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", false), 0);
    EXPECT_TRUE(entries(path).contains("Times 300 0/0/302")) << qPrintable(entries(path));
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", true), 0);
    EXPECT_EQ(entries(path), "DejaVu Serif 2100 10/0/2100");
    // ufond writes no style table, so its strikes have no PostScript name.
    ASSERT_EQ(
        surgery.removeSuitcaseFontFromQuarantine(path, member(examined(path), "DejaVu Serif")->PSname, false),
        0);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
}

TEST_F(SuitcaseTest, AnOldFONTStrikeTravelsAsFONTAndOutlinesAsSfnt)
{
    const QString path = suitcaseWith(home.path() + "/fonts/Times",
        handMadeFOND({ { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } }, 2),
        { resource("FONT", 301, QByteArray(40, '\x11')), resource("sfnt", 302, QByteArray(64, '\x22')) });
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    handMadeMember(file, "Times", 10);
    handMadeMember(file, "Times", 0);
    // The bitmaps: both strike entries go, the outline entry stays behind.
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.at(0), "r").isNull());
    QString listing = fontToolsResources(bare(quarantined("Times"))).join('\n');
    EXPECT_TRUE(listing.contains("FONT 301 40 ")) << qPrintable(listing);
    EXPECT_FALSE(listing.contains("sfnt")) << qPrintable(listing);
    EXPECT_EQ(entries(quarantined("Times")), "Times 300 10/0/301 12/0/303");
    EXPECT_EQ(entries(path), "Times 300 0/0/302");
    // The outline, told apart by its size of 0, leaves last and takes the file with it.
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.at(1), "r").isNull());
    EXPECT_TRUE(fontToolsResources(bare(quarantined("Times 1"))).join('\n').contains("sfnt 302 64 "));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(file->fileMovedToQuarantine);
}

TEST_F(SuitcaseTest, ASuitcaseThatCannotBeRewrittenKeepsItsFontAndNothingIsMarked)
{
    const QString path = suitcase("locked/Two", mergeForks(c059, serif));
    const QString before = forkHashes(path);
    auto file = examined(path);
    const QVStatusPtr serifStatus = member(file, "DejaVu Serif");
    ASSERT_TRUE(serifStatus);
    if (!lockFolder(QFileInfo(path).absolutePath(), true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const QString error = surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "r");
    lockFolder(QFileInfo(path).absolutePath(), false);
    EXPECT_TRUE(error.startsWith("File Resource Error (")) << qPrintable(error);
    EXPECT_FALSE(serifStatus->movedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(quarantined("DejaVu Serif")));
    EXPECT_FALSE(QFileInfo::exists(quarantined("._DejaVu Serif")));
    EXPECT_EQ(forkHashes(path), before);
    // Nothing half-done is left for a later load to record.
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
}

TEST_F(SuitcaseTest, AFullDiskLeavesTheSourceForkByteIdenticalWhereverItLives)
{
    SmallDisk disk(home.path() + "/disk");
    if (!disk.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString sidecar = disk.path() + "/ad/Times", netatalk = disk.path() + "/nt/Times";
    ASSERT_TRUE(makeSuitcase(sidecar, mergeForks(c059, serif), QVForkStorage::Place::AppleDouble));
    ASSERT_TRUE(makeSuitcase(netatalk, mergeForks(c059, serif), QVForkStorage::Place::NetatalkFolder));
    const QStringList companions = { disk.path() + "/ad/._Times", disk.path() + "/nt/.AppleDouble/Times" };
    const QStringList before = { fileSha256(companions.at(0)), fileSha256(companions.at(1)) };
    ASSERT_TRUE(disk.fill());
    for (const QString &path : { sidecar, netatalk }) {
        auto file = examined(path);
        const QVStatusPtr serifStatus = member(file, "DejaVu Serif");
        ASSERT_TRUE(serifStatus);
        // The copy reaches the quarantine (another disk); rewriting the source cannot.
        EXPECT_EQ(surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "r"),
            QStringLiteral("File Resource Error (Disk is full)"));
        EXPECT_FALSE(serifStatus->movedToQuarantine);
    }
    EXPECT_EQ(QStringList({ fileSha256(companions.at(0)), fileSha256(companions.at(1)) }), before);
    EXPECT_EQ(QDir(disk.path() + "/ad").entryList(QDir::Files | QDir::Hidden).size(), 2);
    EXPECT_EQ(QDir(disk.path() + "/nt/.AppleDouble").entryList(QDir::Files | QDir::Hidden).size(), 1);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(quarantined("DejaVu Serif")));
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
}

TEST_F(SuitcaseTest, AFamilyNameNeverLeadsOutOfTheQuarantine)
{
    // Mac family names may hold slashes; this one would climb out of the folder.
    const QString path = suitcaseWith(home.path() + "/fonts/Odd", handMadeFOND({ { 10, 0, 301 } }, 0),
        { resource("NFNT", 301, QByteArray(40, '\x11')) }, "../Out/Times");
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    const QVStatusPtr status = handMadeMember(file, "../Out/Times", 10);
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, status, "r").isNull());
    EXPECT_TRUE(fontToolsResources(bare(quarantined("_.:Out:Times"))).join('\n').contains("NFNT 301 "));
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(store.quarantineFolderPath()).absolutePath() + "/Out"));
    EXPECT_TRUE(status->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString(), "_.:Out:Times");
    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily("._Sidecar\x01"), QStringLiteral("__Sidecar_"));
    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily(""), QStringLiteral("Untitled Font"));
    EXPECT_LE(QVSuitcaseSurgery::fileNameForFamily(QString(300, QChar(0x00e9))).toUtf8().size(), 240);
}

TEST_F(SuitcaseTest, AFontWhoseKindTheFamilyLacksIsNotTakenForMoved)
{
    // The family lists only a bitmap of that PostScript name; the record asks for an outline.
    const QString path = suitcaseWith(home.path() + "/fonts/Times", handMadeFOND({ { 10, 0, 301 } }, 0),
        { resource("NFNT", 301, QByteArray(40, 'x')) });
    const QString before = forkHashes(path);
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    const QVStatusPtr outline = handMadeMember(file, "Times", 0);
    EXPECT_FALSE(surgery.moveFontFromSuitcaseToQuarantine(file, outline, "r").isNull());
    EXPECT_FALSE(outline->movedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(quarantined("Times")));
    EXPECT_EQ(forkHashes(path), before);
}

TEST_F(SuitcaseTest, ARestoreDeletesTheQuarantinedCopyOnlyWhenTheSuitcaseHoldsItsFonts)
{
    // The quarantined family: the 10 point strike, ID 301.
    const QString copy = quarantined("Times");
    QDir().mkpath(store.quarantineFolderPath());
    auto quarantine = [&] {
        suitcaseWith(
            copy, handMadeFOND({ { 10, 0, 301 } }, 0), { resource("NFNT", 301, QByteArray(40, 'A')) });
        auto file = std::make_shared<QVFontFile>(home.path() + "/fonts/Times");
        file->fontFileType = 0;
        store.quarantinedFilesDataArray
            = { QVQuarantineStore::makeRecord("Times", file, handMadeMember(file, "Times", 10), "r") };
    };
    quarantine();
    const QString copyBefore = forkHashes(copy);
    // The suitcase still has the family, but ID 301 is another strike now: the
    // merged entry would point at the wrong font.
    const QString target = suitcaseWith(home.path() + "/fonts/Times", handMadeFOND({ { 12, 0, 303 } }, 0),
        { resource("NFNT", 303, QByteArray(40, 'B')), resource("NFNT", 301, QByteArray(40, 'C')) });
    const QString targetBefore = forkHashes(target);
    QStringList errors = restoreAll();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains("the quarantined copy is kept")) << qPrintable(errors.first());
    EXPECT_EQ(forkHashes(copy), copyBefore);
    EXPECT_EQ(forkHashes(target), targetBefore);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    // ID 301 free, or holding the very strike: merged (the strike brought
    // along when missing), and the copy may go.
    for (const QList<Entry> &held : { QList<Entry> { resource("NFNT", 303, QByteArray(40, 'B')) },
             QList<Entry> {
                 resource("NFNT", 303, QByteArray(40, 'B')), resource("NFNT", 301, QByteArray(40, 'A')) } }) {
        QVFilePair::remove(target);
        suitcaseWith(target, handMadeFOND({ { 12, 0, 303 } }, 0), held);
        if (!QFileInfo::exists(copy))
            quarantine();
        EXPECT_EQ(restoreAll(), QStringList());
        EXPECT_EQ(entries(target), "Times 300 10/0/301 12/0/303");
        EXPECT_TRUE(fontToolsResources(bare(target)).join('\n').contains("NFNT 301 40 "));
        EXPECT_FALSE(QFileInfo::exists(copy));
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    }
}

TEST_F(SuitcaseTest, AFaceOfATypedDfontLeavesItsDataForkAndComesBack)
{
    const QString path = copyFont(kPanicSansDfont, home.path() + "/fonts", "Panic.dfont");
    ASSERT_TRUE(setFinderInfo(path, "FFILDMOV"));
    const QStringList before = fontToolsMembers({ path });
    ASSERT_EQ(before.size(), 4);
    auto file = examined(path);
    ASSERT_EQ(file->fontStatusArray.size(), 4);
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    const QString taken
        = quarantined(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString());
    EXPECT_EQ(fontToolsMembers({ path }).size(), 3);
    EXPECT_EQ(fontToolsMembers({ path, bare(taken) }), before);
    ASSERT_TRUE(store.commitQuarantine().isNull());
    EXPECT_EQ(restoreAll(), QStringList());
    EXPECT_EQ(fontToolsMembers({ path }), before);
}

TEST_F(SuitcaseTest, ASuitcaseOfOldFONTStrikesTakenApartComesBackWholeInEitherOrder)
{
    // "Times": C059 10 point plain and bold as purgeable FONT resources, a style
    // table naming C059-Roman and C059-Bold, Finder flags 0x0100, dated 2001.
    qint16 error = 0;
    auto fork = QVResourceFile::parse(
        ufondFork(work + "/times", { { kC059Roman, 10 }, { kC059Bold, 10 } }), &error);
    ASSERT_TRUE(fork);
    for (Entry &entry : fork->entries) {
        if (entry.type == qvFourCC("NFNT")) {
            entry.type = qvFourCC("FONT");
            entry.attributes = 0x20;
        } else if (entry.type == qvFourCC("FOND")) {
            qToBigEndian<qint32>(qint32(entry.data.size()), entry.data.data() + 24);
            QByteArray styles(58, '\0');
            styles[10] = 2;
            styles[11] = 3;
            entry.data += styles + QByteArray("\0\5\4C059\1\4\1\5\6-Roman\5-Bold", 24);
        }
    }
    const QDateTime then(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
    for (const QList<int> &order : { QList<int> { 0, 1 }, QList<int> { 1, 0 } }) {
        const QString path = home.path() + "/fonts/Times", sidecar = QVForkStorage::sidecarPath(path);
        ASSERT_TRUE(makeSuitcase(path, fork->serialize(&error)));
        ASSERT_TRUE(setFinderInfo(path, "FFILDMOV", 0x0100));
        for (const QString &f : { path, sidecar }) {
            QFile file(f);
            ASSERT_TRUE(
                file.open(QIODevice::ReadWrite) && file.setFileTime(then, QFileDevice::FileModificationTime));
        }
        auto state = [&]() -> QString {
            QByteArray info;
            QVForkStorage::readFinderInfo(path, &info);
            return fontToolsResources(bare(path)).join('\n') + info.toHex() + " "
                + QFileInfo(path).lastModified().toString(Qt::ISODate) + " "
                + QFileInfo(sidecar).lastModified().toString(Qt::ISODate);
        };
        const QString before = state();
        ASSERT_TRUE(before.contains("FONT")) << qPrintable(before);
        auto file = examined(path);
        ASSERT_EQ(file->fontStatusArray.size(), 2);
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray))
            ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, status, "r").isNull());
        ASSERT_FALSE(QFileInfo::exists(path));
        ASSERT_TRUE(store.commitQuarantine().isNull());
        EXPECT_EQ(restoreAll(order), QStringList());
        EXPECT_EQ(state().toStdString(), before.toStdString());
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    }
}
