// Taking fonts out of ufond's suitcases (and ruby-prawn's .dfont) and back, checked by fontTools and
// showfond.
#include "store/QVSuitcaseSurgery.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceManager.h"
#include "platform/QVFilePair.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>

using namespace QVFixtures;
using Entry = QVResourceFile::Entry;

namespace
{

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

// A family record of (size, style, id) entries, its style table after them (one PostScript name,
// "Times-Roman", for every style), a width table "after" it.
QByteArray handMadeFOND(const QList<std::array<qint16, 3>> &entries)
{
    QByteArray fond(54, '\0');
    qToBigEndian<qint16>(qint16(entries.size() - 1), fond.data() + 52);
    for (const auto &e : entries) {
        fond.append(6, '\0');
        for (int i = 0; i < 3; ++i)
            qToBigEndian<qint16>(e[i], fond.data() + fond.size() - 6 + 2 * i);
    }
    qToBigEndian<qint32>(qint32(fond.size()), fond.data() + 24);
    qToBigEndian<qint32>(qint32(fond.size() + 100), fond.data() + 16);
    return fond + QByteArray(58, '\0') + QByteArray("\0\1\x0bTimes-Roman", 14) + QByteArray(8, '\0');
}

// A suitcase of that family record as FOND 300 and the other resources.
QString suitcaseWith(const QString &path, const QList<std::array<qint16, 3>> &fond,
    const QList<Entry> &others = {}, const QByteArray &family = "Times")
{
    EXPECT_TRUE(
        makeSuitcase(path, forkOf(others + QList<Entry> { rsrc("FOND", 300, handMadeFOND(fond), family) })));
    return path;
}

// The scan's record of a hand-made suitcase: a plain "Times-Roman" member per size (0 for the outline).
QVFontFilePtr recordOf(const QString &path, const QList<int> &sizes, const QString &family = "Times")
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    for (int size : sizes) {
        auto status = std::make_shared<QVStatus>();
        status->fontName = family;
        status->PSname = "Times-Roman";
        status->fontSize = size;
        status->fontStyle = "Plain";
        status->fontType = size ? 0 : 3;
        status->fontURL = path;
        status->index = int(file->fontStatusArray.size());
        file->fontStatusArray.append(status);
    }
    return file;
}

class SuitcaseTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        work = home.path() + "/work";
        c059 = c059Fork(work);
        serif = dejaVuSerifFork(work);
        ASSERT_FALSE(c059.isEmpty() || serif.isEmpty());
    }
    void TearDown() override { QVResourceManager::closeAll(); }

    QString suitcase(const QString &relative, const QByteArray &fork)
    {
        EXPECT_TRUE(makeSuitcase(home.path() + "/" + relative, fork));
        return home.path() + "/" + relative;
    }
    QString bare(const QString &path) { return extractFork(path, work + "/" + QString::number(++forks)); }
    QString entries(const QString &path) { return fontToolsFONDEntries(bare(path)).trimmed(); }
    QString listing(const QString &path) { return fontToolsResources(bare(path)).join('\n'); }
    QString quarantined(const QString &name) const { return store.quarantineFolderPath() + "/" + name; }
    QString quarantine(const QVFontFilePtr &file, const QVStatusPtr &status)
    {
        return surgery.moveFontFromSuitcaseToQuarantine(file, status, "· Bad Table Data");
    }
    QStringList restoreAll(const QList<int> &rows = {})
    {
        QVQuarantineRuns runs(&store, &surgery);
        for (int i = 0; i < runs.rowArray.size(); ++i)
            runs.checkedRowsArray << (rows.isEmpty() ? i : rows.at(i));
        return runs.restoreQuarantinedFiles().errors;
    }
    // Nothing recorded, now or for a later load, and no copy left in the quarantine.
    void expectNothingQuarantined(const QString &name)
    {
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
        EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
        EXPECT_FALSE(QFileInfo::exists(quarantined(name)) || QFileInfo::exists(quarantined("._" + name)));
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
    ASSERT_TRUE(quarantine(file, serifStatus).isNull());

    // The new suitcase: DMOV/FFIL, one family with one entry and its strike, unnamed as ufond wrote it.
    const QString taken = quarantined("DejaVu Serif"), takenFork = bare(taken);
    QByteArray info;
    QVForkStorage::readFinderInfo(taken, &info);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    EXPECT_EQ(QVForkStorage::creationDate(taken), created);
    EXPECT_EQ(fontToolsFONDEntries(takenFork).trimmed(), "DejaVu Serif 2100 10/0/2100");
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
    EXPECT_FALSE(file->fileMovedToQuarantine || member(file, "C059")->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    const QVariantMap record = store.quarantinedFilesDataArray.first();
    EXPECT_EQ(
        record.value("quarantineFileName").toString() + "|" + record.value("originalFilePath").toString(),
        "DejaVu Serif|" + path);
}

TEST_F(SuitcaseTest, TheLastFamilyTakenOutDeletesTheSourceAndNamesAreNumbered)
{
    for (const QString &path : { suitcase("a/Serif", serif), suitcase("b/Serif", serif) }) {
        auto file = examined(path);
        ASSERT_EQ(file->fontStatusArray.size(), 1);
        ASSERT_TRUE(quarantine(file, file->fontStatusArray.first()).isNull());
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
    EXPECT_EQ(be32at(fond, 16), be32at(old, 16) + 12);
    int status = -1;
    showfond(merged, &status);
    EXPECT_EQ(status, 0);

    // A family the suitcase lacks comes with its strikes; a file that is no suitcase gets no fork.
    const QString other = suitcase("fonts/Other", c059), serifCopy = suitcase("q/Serif", serif);
    ASSERT_TRUE(surgery.moveFontFromQuarantineToSuitcase(serifCopy, other).isNull());
    EXPECT_TRUE(listing(other).contains(" DejaVu Serif") && listing(other).contains("NFNT 2100 "));
    const QString plain = home.writeFile("fonts/plain.otf", "OTTO");
    EXPECT_TRUE(
        surgery.moveFontFromQuarantineToSuitcase(serifCopy, plain).startsWith("File Resource Error ("));
    EXPECT_EQ(QVForkStorage::resourceForkPlace(plain), QVForkStorage::Place::None);
}

TEST_F(SuitcaseTest, ADamagedEntryCountCannotMakeRemovalsRunAway)
{
    const QString path = suitcaseWith(home.path() + "/Damaged", { { 10, 0, 301 } });
    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, path);
    ASSERT_GT(ref, 0);
    QVResourceHandle fond = fork.getIndexResource(ref, qvFourCC("FOND"), 1);
    qToBigEndian<qint16>(-5, fond->data.data() + 52); // an entry count below zero
    const QByteArray before = fond->data;
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Times-Roman", false), 0);
    surgery.removeFONDAssocTables(fond, "Other", false, nullptr);
    surgery.addAssocTables(newHandleFromBytes(handMadeFOND({ { 12, 0, 302 } })), fond);
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
    const QString times = suitcaseWith(work + "/Times", { { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } });
    const QString path = suitcase("q/Two", mergeForks(readFile(bare(times)), serif));
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", false), 0);
    EXPECT_TRUE(entries(path).contains("Times 300 0/0/302")) << qPrintable(entries(path));
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", true), 0);
    EXPECT_EQ(entries(path), "DejaVu Serif 2100 10/0/2100");
    // ufond writes no style table, so its strikes have no PostScript name.
    const QString psName = member(examined(path), "DejaVu Serif")->PSname;
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, psName, false), 0);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
}

TEST_F(SuitcaseTest, ASuitcaseThatCannotBeRewrittenKeepsItsFontAndNothingIsMarked)
{
    const QString path = suitcase("locked/Two", mergeForks(c059, serif)), before = forkHashes(path);
    auto file = examined(path);
    const QVStatusPtr serifStatus = member(file, "DejaVu Serif");
    ASSERT_TRUE(serifStatus);
    if (!lockFolder(QFileInfo(path).absolutePath(), true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const QString error = quarantine(file, serifStatus);
    lockFolder(QFileInfo(path).absolutePath(), false);
    EXPECT_TRUE(error.startsWith("File Resource Error (")) << qPrintable(error);
    EXPECT_FALSE(serifStatus->movedToQuarantine);
    expectNothingQuarantined("DejaVu Serif");
    EXPECT_EQ(forkHashes(path), before);
}

TEST_F(SuitcaseTest, AFullDiskLeavesTheSourceForkByteIdenticalWhereverItLives)
{
    SmallDisk disk(home.path() + "/disk");
    if (!disk.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString sidecar = disk.path() + "/ad/Times", netatalk = disk.path() + "/nt/Times";
    ASSERT_TRUE(makeSuitcase(sidecar, mergeForks(c059, serif), QVForkStorage::Place::AppleDouble));
    ASSERT_TRUE(makeSuitcase(netatalk, mergeForks(c059, serif), QVForkStorage::Place::NetatalkFolder));
    auto hashes = [&]() -> QString {
        return fileSha256(disk.path() + "/ad/._Times") + fileSha256(disk.path() + "/nt/.AppleDouble/Times");
    };
    const QString before = hashes();
    ASSERT_TRUE(disk.fill());
    for (const QString &path : { sidecar, netatalk }) {
        auto file = examined(path);
        const QVStatusPtr serifStatus = member(file, "DejaVu Serif");
        ASSERT_TRUE(serifStatus);
        // The copy reaches the quarantine (another disk); rewriting the source cannot.
        EXPECT_EQ(quarantine(file, serifStatus), QStringLiteral("File Resource Error (Disk is full)"));
        EXPECT_FALSE(serifStatus->movedToQuarantine);
    }
    EXPECT_EQ(hashes(), before);
    EXPECT_EQ(QDir(disk.path() + "/ad").entryList(QDir::Files | QDir::Hidden).size(), 2);
    EXPECT_EQ(QDir(disk.path() + "/nt/.AppleDouble").entryList(QDir::Files | QDir::Hidden).size(), 1);
    expectNothingQuarantined("DejaVu Serif");
}

TEST_F(SuitcaseTest, AFamilyNameNeverLeadsOutOfTheQuarantine)
{
    // Mac family names may hold slashes; this one would climb out of the folder.
    const QString path = suitcaseWith(home.path() + "/fonts/Odd", { { 10, 0, 301 } },
        { rsrc("NFNT", 301, QByteArray(40, '\x11')) }, "../Out/Times");
    auto file = recordOf(path, { 10 }, "../Out/Times");
    ASSERT_TRUE(quarantine(file, file->fontStatusArray.first()).isNull());
    EXPECT_TRUE(listing(quarantined("_.:Out:Times")).contains("NFNT 301 "));
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(store.quarantineFolderPath()).absolutePath() + "/Out"));
    EXPECT_TRUE(file->fontStatusArray.first()->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString(), "_.:Out:Times");
    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily("._Sidecar\x01"), QStringLiteral("__Sidecar_"));
    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily(""), QStringLiteral("Untitled Font"));
    EXPECT_LE(QVSuitcaseSurgery::fileNameForFamily(QString(300, QChar(0x00e9))).toUtf8().size(), 240);
}

TEST_F(SuitcaseTest, AFontWhoseKindTheFamilyLacksIsNotTakenForMoved)
{
    // The family lists only a bitmap of that PostScript name; the record asks for an outline.
    const QString path = suitcaseWith(
        home.path() + "/fonts/Times", { { 10, 0, 301 } }, { rsrc("NFNT", 301, QByteArray(40, 'x')) });
    const QString before = forkHashes(path);
    auto file = recordOf(path, { 0 });
    EXPECT_FALSE(quarantine(file, file->fontStatusArray.first()).isNull());
    EXPECT_FALSE(file->fontStatusArray.first()->movedToQuarantine);
    expectNothingQuarantined("Times");
    EXPECT_EQ(forkHashes(path), before);
}

TEST_F(SuitcaseTest, ARestoreDeletesTheQuarantinedCopyOnlyWhenTheSuitcaseHoldsItsFonts)
{
    // The quarantined family: the 10 point strike, ID 301.
    const QString copy = quarantined("Times"), target = home.path() + "/fonts/Times";
    QDir().mkpath(store.quarantineFolderPath());
    auto quarantineCopy = [&] {
        suitcaseWith(copy, { { 10, 0, 301 } }, { rsrc("NFNT", 301, QByteArray(40, 'A')) });
        auto file = recordOf(target, { 10 });
        store.quarantinedFilesDataArray
            = { QVQuarantineStore::makeRecord("Times", file, file->fontStatusArray.first(), "r") };
    };
    quarantineCopy();
    const QString copyBefore = forkHashes(copy);
    // The suitcase still has the family, but ID 301 is another strike now: the merged entry would point
    // at the wrong font.
    const Entry strike12 = rsrc("NFNT", 303, QByteArray(40, 'B'));
    suitcaseWith(target, { { 12, 0, 303 } }, { strike12, rsrc("NFNT", 301, QByteArray(40, 'C')) });
    const QString targetBefore = forkHashes(target);
    QStringList errors = restoreAll();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains("the quarantined copy is kept")) << qPrintable(errors.first());
    EXPECT_EQ(forkHashes(copy) + forkHashes(target), copyBefore + targetBefore);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    // ID 301 free, or holding the very strike: merged (the strike brought along when missing), the copy gone.
    for (const QList<Entry> &held :
        { QList<Entry> { strike12 }, { strike12, rsrc("NFNT", 301, QByteArray(40, 'A')) } }) {
        QVFilePair::remove(target);
        suitcaseWith(target, { { 12, 0, 303 } }, held);
        if (!QFileInfo::exists(copy))
            quarantineCopy();
        EXPECT_EQ(restoreAll(), QStringList());
        EXPECT_EQ(entries(target), "Times 300 10/0/301 12/0/303");
        EXPECT_TRUE(listing(target).contains("NFNT 301 40 "));
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
    ASSERT_TRUE(quarantine(file, file->fontStatusArray.first()).isNull());
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
    // "Times": C059 10 point plain and bold as purgeable FONT resources, a style table naming C059-Roman
    // and C059-Bold, Finder flags 0x0100, dated 2001.
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
            return listing(path) + info.toHex() + " " + QFileInfo(path).lastModified().toString(Qt::ISODate)
                + " " + QFileInfo(sidecar).lastModified().toString(Qt::ISODate);
        };
        const QString before = state();
        ASSERT_TRUE(before.contains("FONT")) << qPrintable(before);
        auto file = examined(path);
        ASSERT_EQ(file->fontStatusArray.size(), 2);
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray))
            ASSERT_TRUE(quarantine(file, status).isNull());
        ASSERT_FALSE(QFileInfo::exists(path));
        ASSERT_TRUE(store.commitQuarantine().isNull());
        EXPECT_EQ(restoreAll(order), QStringList());
        EXPECT_EQ(state().toStdString(), before.toStdString());
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    }
}
