#include "store/QVSuitcaseSurgery.h"

#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVResourceManager.h"
#include "platform/QVFilePair.h"
#include "platform/QVForkStorage.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVStoreFixtures.h"
#include "support/QVSmallDisk.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace QVStoreFixtures;

namespace
{

QVStatusPtr member(const QVFontFilePtr &file, const QString &family, int size, const QString &style)
{
    for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
        if (status->fontName == family && status->fontSize == size && status->fontStyle == style)
            return status;
    }
    return nullptr;
}

QByteArray fondOf(const QString &bareFork, const QString &family)
{
    QFile file(bareFork);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    qint16 error = 0;
    const auto parsed = QVResourceFile::parse(file.readAll(), &error);
    if (!parsed)
        return {};
    const int index = parsed->findNamed(qvFourCC("FOND"), family.toLatin1());
    return index < 0 ? QByteArray() : parsed->entries.at(index).data;
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
        EXPECT_TRUE(makeSuitcase(path, fork, QVForkStorage::Place::AppleDouble));
        return path;
    }

    QVTestHome home;
    QString work;
    QByteArray c059, serif;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery { &store };
};

} // namespace

TEST_F(SuitcaseTest, OneFamilyOfTwoLeavesInItsOwnSuitcase)
{
    const QString path = suitcase("fonts/Two Families", mergeForks(c059, serif));
    QVForkStorage::setCreationDate(path, QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC));
    const QByteArray c059Before = fondOf(extractFork(path, work + "/before"), "C059");
    ASSERT_FALSE(c059Before.isEmpty());
    const QString listingBefore = fontToolsListing(extractFork(path, work + "/before"));

    auto file = suitcaseRecord(path);
    ASSERT_EQ(file->fontStatusArray.size(), 4);
    auto serifStatus = member(file, "DejaVu Serif", 10, "Plain");
    ASSERT_TRUE(serifStatus);
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "· Bad Table Data").isNull());

    // The new suitcase: DMOV/FFIL, one family with one entry and its strike.
    const QString taken = store.quarantineFolderPath() + "/DejaVu Serif";
    QByteArray info;
    QVForkStorage::readFinderInfo(taken, &info);
    EXPECT_EQ(info.left(8), QByteArray("FFILDMOV"));
    EXPECT_EQ(QVForkStorage::creationDate(taken), QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC));
    const QString takenFork = extractFork(taken, work + "/taken");
    EXPECT_EQ(fontToolsFONDEntries(takenFork).trimmed(), QStringLiteral("DejaVu Serif 2100 10/0/2100"));
    const QString takenListing = fontToolsListing(takenFork);
    EXPECT_EQ(takenListing.count('\n'), 2) << qPrintable(takenListing);
    // The strike as it was, unnamed as ufond wrote it.
    EXPECT_TRUE(takenListing.contains("NFNT 2100 None")) << qPrintable(takenListing);
    int status = -1;
    const QString shown = showfond(takenFork, &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(shown.contains("FOND DejaVu Serif")) << qPrintable(shown);
    EXPECT_TRUE(shown.contains("size=10 style=0 id=2100")) << qPrintable(shown);

    // The source keeps the other family byte for byte, and loses this one's record.
    const QString after = extractFork(path, work + "/after");
    EXPECT_EQ(fondOf(after, "C059"), c059Before);
    EXPECT_TRUE(fondOf(after, "DejaVu Serif").isEmpty());
    EXPECT_EQ(fontToolsFONDEntries(after).count('\n'), 1);
    EXPECT_TRUE(QFileInfo::exists(path));

    EXPECT_TRUE(serifStatus->movedToQuarantine);
    EXPECT_FALSE(file->fileMovedToQuarantine);
    EXPECT_FALSE(member(file, "C059", 10, "Plain")->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString(),
        QStringLiteral("DejaVu Serif"));
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("originalFilePath").toString(), path);
    EXPECT_FALSE(listingBefore.isEmpty());
}

TEST_F(SuitcaseTest, TheLastFamilyTakenOutDeletesTheSourceSuitcase)
{
    const QString first = suitcase("a/Serif", serif);
    const QString second = suitcase("b/Serif", serif);
    for (const QString &path : { first, second }) {
        auto file = suitcaseRecord(path);
        ASSERT_EQ(file->fontStatusArray.size(), 1);
        ASSERT_TRUE(
            surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        EXPECT_FALSE(QFileInfo::exists(path));
        EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
        EXPECT_TRUE(file->fileMovedToQuarantine);
    }
    // Two fonts of one name: "DejaVu Serif" and "DejaVu Serif 1".
    EXPECT_EQ(store.quarantinedFilesDataArray.at(1).value("quarantineFileName").toString(),
        QStringLiteral("DejaVu Serif 1"));
    for (const QString &name : { QStringLiteral("DejaVu Serif"), QStringLiteral("DejaVu Serif 1") }) {
        const QString listing
            = fontToolsListing(extractFork(store.quarantineFolderPath() + "/" + name, work + "/q"));
        EXPECT_TRUE(listing.contains("FOND 2100 DejaVu Serif")) << qPrintable(listing);
    }
}

TEST_F(SuitcaseTest, RestoringIntoASuitcaseThatHoldsTheFamilyMergesInOrder)
{
    const QString roman = "/usr/share/fonts/opentype/urw-base35/C059-Roman.otf";
    const QString bold = "/usr/share/fonts/opentype/urw-base35/C059-Bold.otf";
    const QByteArray kept = ufondFork(work + "/kept", { { roman, 10 }, { roman, 14 } });
    const QByteArray back = ufondFork(work + "/back", { { roman, 12 }, { bold, 10 }, { roman, 10 } });
    ASSERT_FALSE(kept.isEmpty());
    ASSERT_FALSE(back.isEmpty());
    const QString target = suitcase("fonts/C059", kept);
    const QString quarantinedCopy = suitcase("q/C059", back);
    const QString before = fondOf(extractFork(target, work + "/t0"), "C059").toHex();
    ASSERT_TRUE(surgery.moveFontFromQuarantineToSuitcase(quarantinedCopy, target).isNull());
    const QString merged = extractFork(target, work + "/t1");
    const QString entries = fontToolsFONDEntries(merged).trimmed();
    // 10/0 was there already; 10/1 and 12/0 slot in by size, then style.
    EXPECT_TRUE(entries.startsWith("C059 ")) << qPrintable(entries);
    QStringList sizesStyles;
    for (const QString &entry : entries.section(' ', 2).split(' '))
        sizesStyles << entry.section('/', 0, 1);
    EXPECT_EQ(sizesStyles, (QStringList { "10/0", "10/1", "12/0", "14/0" }));
    // The family record grew by two entries; its table offsets moved with it.
    const QByteArray fond = fondOf(merged, "C059");
    const QByteArray old = QByteArray::fromHex(before.toLatin1());
    EXPECT_EQ(fond.size(), old.size() + 12);
    EXPECT_EQ(
        qFromBigEndian<qint32>(fond.constData() + 16), qFromBigEndian<qint32>(old.constData() + 16) + 12);
    int status = -1;
    showfond(merged, &status);
    EXPECT_EQ(status, 0);
}

TEST_F(SuitcaseTest, RestoringAFamilyTheSuitcaseLacksAddsItWithItsStrikes)
{
    const QString target = suitcase("fonts/C059", c059);
    const QString quarantinedCopy = suitcase("q/Serif", serif);
    ASSERT_TRUE(surgery.moveFontFromQuarantineToSuitcase(quarantinedCopy, target).isNull());
    const QString listing = fontToolsListing(extractFork(target, work + "/r"));
    EXPECT_TRUE(listing.contains("FOND 2100 DejaVu Serif")) << qPrintable(listing);
    EXPECT_TRUE(listing.contains("NFNT 2100 None")) << qPrintable(listing);
    EXPECT_TRUE(listing.contains("FOND 9673 C059") || listing.contains("C059")) << qPrintable(listing);

    // Not into a file that is no suitcase: it would get a fork it never had.
    const QString plain = home.writeFile("fonts/plain.otf", "OTTO");
    EXPECT_TRUE(
        surgery.moveFontFromQuarantineToSuitcase(quarantinedCopy, plain).startsWith("File Resource Error ("));
    EXPECT_EQ(QVForkStorage::resourceForkPlace(plain), QVForkStorage::Place::None);
}

TEST_F(SuitcaseTest, CopyOnlyIntoAFolderLeavesTheSource)
{
    const QString path = suitcase("fonts/Two", mergeForks(c059, serif));
    const QString before = forkHashes(path);
    auto file = suitcaseRecord(path);
    const QString library = home.path() + "/library";
    QDir().mkpath(library);
    ASSERT_TRUE(surgery
                    .moveFontFromSuitcaseToFolder(
                        file, member(file, "DejaVu Serif", 10, "Plain"), library, "Serif", true)
                    .isNull());
    EXPECT_EQ(forkHashes(path), before);
    EXPECT_TRUE(
        fontToolsListing(extractFork(library + "/Serif", work + "/l")).contains("FOND 2100 DejaVu Serif"));
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
}

// Hand-made family records: one PostScript name for every style, a style
// table after the entries, a bitmap and an outline member of the same name.
namespace
{

QByteArray handMadeFOND(const QList<std::array<qint16, 3>> &entries, qint16 countMinusOne)
{
    QByteArray fond(52, '\0');
    auto put16 = [](QByteArray &b, int at, qint16 v) { qToBigEndian<qint16>(v, b.data() + at); };
    auto put32 = [](QByteArray &b, int at, qint32 v) { qToBigEndian<qint32>(v, b.data() + at); };
    fond.append(2, '\0');
    put16(fond, 52, countMinusOne);
    for (const auto &e : entries) {
        fond.append(6, '\0');
        put16(fond, fond.size() - 6, e[0]);
        put16(fond, fond.size() - 4, e[1]);
        put16(fond, fond.size() - 2, e[2]);
    }
    const int styleTable = fond.size();
    put32(fond, 24, styleTable);
    put32(fond, 16, styleTable + 100); // a width table "after" the style table
    fond.append(58, '\0');
    fond.append(char(0));
    fond.append(char(1));
    fond.append(char(11));
    fond.append("Times-Roman");
    fond.append(8, '\0');
    return fond;
}

QString suitcaseWith(const QString &path, const QByteArray &fond,
    const QList<QVResourceFile::Entry> &others = {}, const QByteArray &family = "Times")
{
    qint16 error = 0;
    auto file = QVResourceFile::parse(QVResourceFile::emptyFork(), &error);
    for (const QVResourceFile::Entry &other : others)
        file->entries.append(other);
    QVResourceFile::Entry entry;
    entry.type = qvFourCC("FOND");
    entry.id = 300;
    entry.name = family;
    entry.hasName = true;
    entry.data = fond;
    file->entries.append(entry);
    makeSuitcase(path, file->serialize(&error), QVForkStorage::Place::AppleDouble);
    return path;
}

} // namespace

TEST_F(SuitcaseTest, EntriesInsertedAndRemovedMoveTheTableOffsets)
{
    const QString path = suitcaseWith(
        home.path() + "/Times", handMadeFOND({ { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } }, 2));
    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    const qint16 ref = fork.openResourceFile(QVPermission::ReadWrite, path);
    ASSERT_GT(ref, 0);
    QVResourceHandle fond = fork.getIndexResource(ref, qvFourCC("FOND"), 1);
    ASSERT_TRUE(fond);
    const qint32 styleTable = qFromBigEndian<qint32>(fond->data.constData() + 24);
    EXPECT_EQ(surgery.entryPostScriptName(fond, 1), QStringLiteral("Times-Roman"));

    // The outline of the same name stays when bitmaps are removed, and the
    // style table is still found after the move.
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Times-Roman", false), 0);
    EXPECT_EQ(qFromBigEndian<qint16>(fond->data.constData() + 52), 0);
    EXPECT_EQ(qFromBigEndian<qint16>(fond->data.constData() + 54), 0);
    EXPECT_EQ(qFromBigEndian<qint32>(fond->data.constData() + 24), styleTable - 12);
    EXPECT_EQ(qFromBigEndian<qint32>(fond->data.constData() + 16), styleTable + 100 - 12);
    EXPECT_EQ(qFromBigEndian<qint32>(fond->data.constData() + 20), 0);
    EXPECT_EQ(surgery.entryPostScriptName(fond, 0), QStringLiteral("Times-Roman"));

    // Merging entries back keeps size-then-style order and skips what is there.
    const QVResourceHandle source
        = newHandleFromBytes(handMadeFOND({ { 12, 1, 304 }, { 0, 0, 302 }, { 9, 0, 305 } }, 2));
    surgery.addAssocTables(source, fond);
    QStringList order;
    for (int i = 0; i <= qFromBigEndian<qint16>(fond->data.constData() + 52); ++i)
        order << QStringLiteral("%1/%2/%3")
                     .arg(qFromBigEndian<qint16>(fond->data.constData() + 54 + 6 * i))
                     .arg(qFromBigEndian<qint16>(fond->data.constData() + 56 + 6 * i))
                     .arg(qFromBigEndian<qint16>(fond->data.constData() + 58 + 6 * i));
    EXPECT_EQ(order, (QStringList { "0/0/302", "9/0/305", "12/1/304" }));
    EXPECT_EQ(qFromBigEndian<qint32>(fond->data.constData() + 24), styleTable);
    EXPECT_EQ(surgery.entryPostScriptName(fond, 2), QStringLiteral("Times-Roman"));

    // Removing the outline by kind, then the rest: the record goes (-1).
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Times-Roman", true), 0);
    EXPECT_EQ(surgery.removeFONDAssocTables(fond, "Times-Roman", false), -1);
    EXPECT_EQ(fork.countResourceTypes(ref, qvFourCC("FOND")), 0);
    fork.closeResourceFile(ref);
    EXPECT_EQ(surgery.remove1AssocTable(nullptr, 0), -1);
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
}

TEST_F(SuitcaseTest, DeletingOneFontFromAQuarantinedSuitcase)
{
    // Times (bitmap 10 and 12, an outline, all "Times-Roman") beside DejaVu Serif.
    const QString times = suitcaseWith(
        home.path() + "/work/Times", handMadeFOND({ { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } }, 2));
    QByteArray timesFork;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readResourceFork(times, &timesFork, &place), 0);
    const QString path = suitcase("q/Two", mergeForks(timesFork, serif));
    auto file = suitcaseRecord(path);
    ASSERT_EQ(file->fontStatusArray.size(), 4);

    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", false), 0);
    QString left = fontToolsFONDEntries(extractFork(path, work + "/d1"));
    EXPECT_TRUE(left.contains("Times 300 0/0/302")) << qPrintable(left);
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, "Times-Roman", true), 0);
    left = fontToolsFONDEntries(extractFork(path, work + "/d2"));
    EXPECT_EQ(left.trimmed(), QStringLiteral("DejaVu Serif 2100 10/0/2100"));
    // ufond writes no style table, so its strikes have no PostScript name.
    const QString serifPS = member(file, "DejaVu Serif", 10, "Plain")->PSname;
    ASSERT_EQ(surgery.removeSuitcaseFontFromQuarantine(path, serifPS, false), 0);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
}

TEST_F(SuitcaseTest, AnOldFONTStrikeTravelsAsFONTAndOutlinesAsSfnt)
{
    auto resource = [](const char *type, qint16 id, const QByteArray &data) {
        QVResourceFile::Entry entry;
        entry.type = qvFourCC(*reinterpret_cast<const char(*)[5]>(type));
        entry.id = id;
        entry.data = data;
        return entry;
    };
    const QString path = suitcaseWith(home.path() + "/fonts/Times",
        handMadeFOND({ { 10, 0, 301 }, { 0, 0, 302 }, { 12, 0, 303 } }, 2),
        { resource("FONT", 301, QByteArray(40, '\x11')), resource("sfnt", 302, QByteArray(64, '\x22')) });
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    for (const int size : { 10, 0 }) {
        auto status = std::make_shared<QVStatus>();
        status->fontName = "Times";
        status->PSname = "Times-Roman";
        status->fontSize = size;
        status->fontStyle = "Plain";
        status->fontType = size ? 0 : 3;
        status->fontURL = path;
        status->index = int(file->fontStatusArray.size());
        file->fontStatusArray.append(status);
    }
    // The bitmaps: both strike entries go, the outline entry stays behind.
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.at(0), "r").isNull());
    QString listing = fontToolsListing(extractFork(store.quarantineFolderPath() + "/Times", work + "/b"));
    EXPECT_TRUE(listing.contains("FONT 301 None 40")) << qPrintable(listing);
    EXPECT_FALSE(listing.contains("sfnt")) << qPrintable(listing);
    EXPECT_EQ(
        fontToolsFONDEntries(extractFork(store.quarantineFolderPath() + "/Times", work + "/b")).trimmed(),
        QStringLiteral("Times 300 10/0/301 12/0/303"));
    EXPECT_EQ(
        fontToolsFONDEntries(extractFork(path, work + "/s")).trimmed(), QStringLiteral("Times 300 0/0/302"));

    // The outline, told apart by its size of 0, leaves last and takes the file with it.
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, file->fontStatusArray.at(1), "r").isNull());
    listing = fontToolsListing(extractFork(store.quarantineFolderPath() + "/Times 1", work + "/o"));
    EXPECT_TRUE(listing.contains("sfnt 302 None 64")) << qPrintable(listing);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(file->fileMovedToQuarantine);
}

namespace
{

// Read-only for an ordinary user, immutable for root; false when neither works.
bool lockFolder(const QString &folder, bool lock)
{
    if (::geteuid() != 0)
        return QFile::setPermissions(folder,
            lock ? QFileDevice::ReadOwner | QFileDevice::ExeOwner
                 : QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    if (fd < 0)
        return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = lock ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

} // namespace

TEST_F(SuitcaseTest, ASuitcaseThatCannotBeRewrittenKeepsItsFontAndNothingIsMarked)
{
    const QString path = suitcase("locked/Two", mergeForks(c059, serif));
    const QString before = forkHashes(path);
    auto file = suitcaseRecord(path);
    auto serifStatus = member(file, "DejaVu Serif", 10, "Plain");
    ASSERT_TRUE(serifStatus);
    if (!lockFolder(QFileInfo(path).absolutePath(), true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    const QString error = surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "r");
    lockFolder(QFileInfo(path).absolutePath(), false);
    EXPECT_TRUE(error.startsWith("File Resource Error (")) << qPrintable(error);
    EXPECT_FALSE(serifStatus->movedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/DejaVu Serif"));
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/._DejaVu Serif"));
    EXPECT_EQ(forkHashes(path), before);
    // Nothing half-done is left for a later load to record.
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
}

TEST_F(SuitcaseTest, AFullDiskLeavesTheSourceForkByteIdenticalWhereverItLives)
{
    QVSmallDisk disk(home.path() + "/disk");
    if (!disk.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString sidecar = disk.path() + "/ad/Times", netatalk = disk.path() + "/nt/Times";
    ASSERT_TRUE(makeSuitcase(sidecar, mergeForks(c059, serif), QVForkStorage::Place::AppleDouble));
    ASSERT_TRUE(makeSuitcase(netatalk, mergeForks(c059, serif), QVForkStorage::Place::NetatalkFolder));
    const QStringList companions = { disk.path() + "/ad/._Times", disk.path() + "/nt/.AppleDouble/Times" };
    const QStringList before = { fileSha256(companions.at(0)), fileSha256(companions.at(1)) };
    ASSERT_TRUE(disk.fill());
    for (const QString &path : { sidecar, netatalk }) {
        auto file = suitcaseRecord(path);
        auto serifStatus = member(file, "DejaVu Serif", 10, "Plain");
        ASSERT_TRUE(serifStatus);
        // The copy reaches the quarantine (another disk); rewriting the source cannot.
        const QString error = surgery.moveFontFromSuitcaseToQuarantine(file, serifStatus, "r");
        EXPECT_EQ(error, QStringLiteral("File Resource Error (Disk is full)")) << qPrintable(path);
        EXPECT_FALSE(serifStatus->movedToQuarantine);
    }
    EXPECT_EQ(fileSha256(companions.at(0)), before.at(0));
    EXPECT_EQ(fileSha256(companions.at(1)), before.at(1));
    EXPECT_EQ(QDir(disk.path() + "/ad").entryList(QDir::Files | QDir::Hidden).size(), 2);
    EXPECT_EQ(QDir(disk.path() + "/nt/.AppleDouble").entryList(QDir::Files | QDir::Hidden).size(), 1);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/DejaVu Serif"));
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
}

namespace
{

QVResourceFile::Entry strike(qint16 id, char fill)
{
    QVResourceFile::Entry entry;
    entry.type = qvFourCC("NFNT");
    entry.id = id;
    entry.data = QByteArray(40, fill);
    return entry;
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

} // namespace

TEST_F(SuitcaseTest, AFamilyNameNeverLeadsOutOfTheQuarantine)
{
    // Mac family names may hold slashes; this one would climb out of the folder.
    const QString path = suitcaseWith(home.path() + "/fonts/Odd", handMadeFOND({ { 10, 0, 301 } }, 0),
        { strike(301, '\x11') }, "../Out/Times");
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    auto status = handMadeMember(file, "../Out/Times", 10);
    ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, status, "r").isNull());
    const QString taken = store.quarantineFolderPath() + "/_.:Out:Times";
    EXPECT_TRUE(QFileInfo(taken).isFile());
    EXPECT_TRUE(fontToolsListing(extractFork(taken, work + "/odd")).contains("NFNT 301"))
        << qPrintable(taken);
    EXPECT_FALSE(QFileInfo::exists(QFileInfo(store.quarantineFolderPath()).absolutePath() + "/Out"));
    EXPECT_TRUE(status->movedToQuarantine);
    ASSERT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.first().value("quarantineFileName").toString(),
        QStringLiteral("_.:Out:Times"));

    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily("._Sidecar\x01"), QStringLiteral("__Sidecar_"));
    EXPECT_EQ(QVSuitcaseSurgery::fileNameForFamily(""), QStringLiteral("Untitled Font"));
    EXPECT_LE(QVSuitcaseSurgery::fileNameForFamily(QString(300, QChar(0x00e9))).toUtf8().size(), 240);
}

TEST_F(SuitcaseTest, ARestoreDeletesTheQuarantinedCopyOnlyWhenTheSuitcaseHoldsItsFonts)
{
    // The quarantined family: the 10 point strike, ID 301.
    const QString quarantined = store.quarantineFolderPath() + "/Times";
    QDir().mkpath(store.quarantineFolderPath());
    suitcaseWith(quarantined, handMadeFOND({ { 10, 0, 301 } }, 0), { strike(301, 'A') });
    QVariantMap record;
    record.insert("fontFileType", 0);
    record.insert("quarantineFileName", "Times");
    record.insert("fontCount", 1);
    record.insert("reason", "r");
    record.insert("fontNames", QStringList { "Times" });
    record.insert("fontPSnames", QStringList { "Times-Roman" });
    record.insert("fontStyles", QStringList { "Plain" });
    record.insert("fontFoundries", QStringList { "-" });
    record.insert("fontTypes", QVariantList { 0 });
    const QString target = home.path() + "/fonts/Times";
    record.insert("originalFilePath", target);
    store.quarantinedFilesDataArray.append(record);
    const QString quarantinedBefore = forkHashes(quarantined);

    // The suitcase still has the family, but ID 301 is now another strike: the
    // merged entry would point at the wrong font.
    suitcaseWith(target, handMadeFOND({ { 12, 0, 303 } }, 0), { strike(303, 'B'), strike(301, 'C') });
    const QString targetBefore = forkHashes(target);
    {
        QVQuarantineRuns runs(&store, &surgery);
        runs.checkedRowsArray = { 0 };
        const auto result = runs.restoreQuarantinedFiles();
        EXPECT_TRUE(result.handledRows.isEmpty());
        ASSERT_EQ(result.errors.size(), 1);
        EXPECT_TRUE(result.errors.first().contains("the quarantined copy is kept"))
            << qPrintable(result.errors.first());
        EXPECT_EQ(forkHashes(quarantined), quarantinedBefore);
        EXPECT_EQ(forkHashes(target), targetBefore);
        EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    }

    // ID 301 is free, or holds the very strike: merged (the strike brought
    // along when missing), and the copy may go.
    for (const QList<QVResourceFile::Entry> &held : { QList<QVResourceFile::Entry> { strike(303, 'B') },
             QList<QVResourceFile::Entry> { strike(303, 'B'), strike(301, 'A') } }) {
        QFile::remove(target);
        QFile::remove(QVForkStorage::sidecarPath(target));
        suitcaseWith(target, handMadeFOND({ { 12, 0, 303 } }, 0), held);
        if (!QFileInfo::exists(quarantined))
            suitcaseWith(quarantined, handMadeFOND({ { 10, 0, 301 } }, 0), { strike(301, 'A') });
        store.quarantinedFilesDataArray = { record };
        QVQuarantineRuns runs(&store, &surgery);
        runs.checkedRowsArray = { 0 };
        const auto result = runs.restoreQuarantinedFiles();
        EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
        const QString merged = extractFork(target, work + "/merged");
        EXPECT_EQ(fontToolsFONDEntries(merged).trimmed(), QStringLiteral("Times 300 10/0/301 12/0/303"));
        EXPECT_TRUE(fontToolsListing(merged).contains("NFNT 301")) << qPrintable(fontToolsListing(merged));
        EXPECT_FALSE(QFileInfo::exists(quarantined));
        EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    }
}

TEST_F(SuitcaseTest, AFontWhoseKindTheFamilyLacksIsNotTakenForMoved)
{
    // The family lists only a bitmap of that PostScript name; the record asks
    // for an outline of it.
    const QString path = suitcaseWith(
        home.path() + "/fonts/Times", handMadeFOND({ { 10, 0, 301 } }, 0), { strike(301, '\x11') });
    const QString before = forkHashes(path);
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = 0;
    auto outline = handMadeMember(file, "Times", 0);
    EXPECT_FALSE(surgery.moveFontFromSuitcaseToQuarantine(file, outline, "r").isNull());
    EXPECT_FALSE(outline->movedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/Times"));
    EXPECT_EQ(forkHashes(path), before);
}
