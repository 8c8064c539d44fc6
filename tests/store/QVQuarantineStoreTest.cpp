#include "store/QVQuarantineStore.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "engine/QVFontFile.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFilePair.h"
#include "platform/QVForkStorage.h"
#include "platform/QVPrivilegedRunner.h"
#include "platform/QVWriteFault.h"
#include "store/QVPropertyList.h"
#include "store/QVStoreFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace QVStoreFixtures;

namespace
{

QVFontFilePtr fontFileWithOneFont(const QString &path, int fontType = 5, int fileType = 1)
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = fileType;
    auto status = std::make_shared<QVStatus>();
    status->fontURL = path;
    status->fontName = QFileInfo(path).completeBaseName();
    status->PSname = status->fontName + QStringLiteral("-Regular");
    status->fontType = fontType;
    status->fontStyle = QStringLiteral("Regular");
    file->fontStatusArray.append(status);
    return file;
}

QString quarantined(const QVQuarantineStore &store, const QString &name)
{
    return store.quarantineFolderPath() + QLatin1Char('/') + name;
}

// A runner that records what it was asked and answers as told, so refusals can
// be produced without a password prompt.
class FakeRunner : public QVPrivilegedRunner
{
public:
    explicit FakeRunner(QString answer, bool perform)
        : QVPrivilegedRunner(QStringLiteral("/bin/true"))
        , m_answer(std::move(answer))
        , m_perform(perform)
    {
    }
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override
    {
        calls << (QStringList { program } + arguments).join(QLatin1Char(' '));
        if (m_perform && program == QLatin1String("/bin/mv"))
            QFile::rename(arguments.at(arguments.size() - 2), arguments.last());
        return m_answer;
    }
    QStringList calls;

private:
    QString m_answer;
    bool m_perform;
};

// Makes a folder refuse changes: read-only for an ordinary user, immutable for
// root (who ignores permissions). False when neither can be had here.
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

TEST(QVQuarantineStore, CollidingNamesAreNumberedAndTheIndexIsAnApplePlist)
{
    QVTestHome home;
    QVQuarantineStore store;
    QStringList sources;
    for (const char *folder : { "a", "b", "c" })
        sources << home.writeFile(
            QStringLiteral("fonts/%1/Foo.otf").arg(QLatin1String(folder)), "OTTO" + QByteArray(folder));
    sources << home.writeFile(QStringLiteral("fonts/a/Foo"), "plain");
    sources << home.writeFile(QStringLiteral("fonts/b/Foo"), "plain2");
    // Names are joined, never formatted: "%1" in a name stays.
    sources << home.writeFile(QStringLiteral("fonts/a/A%1B%2.ttf"), "pct");
    sources << home.writeFile(QStringLiteral("fonts/b/A%1B%2.ttf"), "pct2");
    for (const QString &source : sources)
        EXPECT_TRUE(
            store
                .moveFileToQuarantine(fontFileWithOneFont(source),
                    fontFileWithOneFont(source)->fontStatusArray.first(), QStringLiteral("· Bad Table Data"))
                .isNull());

    QStringList names;
    for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray))
        names << record.value(QStringLiteral("quarantineFileName")).toString();
    EXPECT_EQ(names,
        (QStringList { "Foo.otf", "Foo 1.otf", "Foo 2.otf", "Foo", "Foo 1", "A%1B%2.ttf", "A%1B%2 1.ttf" }));
    EXPECT_EQ(fileSha256(quarantined(store, "Foo 1.otf")), sha256("OTTOb"));
    for (const QString &source : sources)
        EXPECT_FALSE(QFileInfo::exists(source));

    ASSERT_TRUE(store.commitQuarantine().isNull());
    // Read by an outside plist reader, exactly as written.
    int status = -1;
    const QString out = python(QStringLiteral(R"(
import plistlib, sys
with open(sys.argv[1], 'rb') as f:
    records = plistlib.load(f)
r = records[1]
print(len(records), r['quarantineFileName'], r['originalFilePath'].endswith('/b/Foo.otf'), r['fontCount'],
      r['fontFileType'], r['reason'], r['fontNames'], r['fontPSnames'], r['fontStyles'], r['fontFoundries'], r['fontTypes'])
)"),
        { store.indexPath() }, &status);
    EXPECT_EQ(status, 0) << qPrintable(out);
    EXPECT_EQ(out.trimmed(),
        QStringLiteral(
            "7 Foo 1.otf True 1 1 · Bad Table Data ['Foo'] ['Foo-Regular'] ['Regular'] ['-'] [5]"));

    // A second store reads the same index back.
    QVQuarantineStore again;
    auto xml = [](const QList<QVariantMap> &records) {
        QVariantList list;
        for (const QVariantMap &record : records)
            list.append(record);
        return QVPropertyList::toXml(list);
    };
    EXPECT_EQ(xml(again.quarantinedFilesDataArray), xml(store.quarantinedFilesDataArray));
}

TEST(QVQuarantineStore, RecordsUseDisplayNamesAndPlaceholders)
{
    QVTestHome home;
    auto file = fontFileWithOneFont(home.writeFile("s/Suit", ""), 0, 0);
    auto bitmap = file->fontStatusArray.first();
    bitmap->fontSize = 12;
    bitmap->fontStyle = QStringLiteral("Bold");
    bitmap->fontName = QStringLiteral("Times");
    EXPECT_EQ(QVQuarantineStore::displayName(file, bitmap), QStringLiteral("Times (Bold)"));
    bitmap->fontStyle = QStringLiteral("Plain");
    EXPECT_EQ(QVQuarantineStore::displayName(file, bitmap), QStringLiteral("Times"));

    auto outline = std::make_shared<QVStatus>();
    outline->fontName = QStringLiteral("Times");
    outline->trueTypeFontName = QStringLiteral("Times Roman");
    outline->fontType = 3;
    EXPECT_EQ(QVQuarantineStore::displayName(file, outline), QStringLiteral("Times Roman"));
    file->fontFileType = 1;
    EXPECT_EQ(QVQuarantineStore::displayName(file, outline), QStringLiteral("Times"));

    outline->fontStyle.clear();
    const QVariantMap record = QVQuarantineStore::makeRecord("Times", file, outline, "why");
    EXPECT_EQ(record.value("fontStyles").toStringList(), QStringList { "Plain" });
    EXPECT_EQ(record.value("fontFoundries").toStringList(), QStringList { "-" });

    // Only a status marked as moved is recorded.
    QVQuarantineStore store;
    store.addFileToQuarantineDataSource("Times", file, outline, "why");
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    outline->movedToQuarantine = true;
    store.addFileToQuarantineDataSource("Times", file, outline, "why");
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
}

TEST(QVQuarantineStore, CollectionsVanishedFilesAndAlreadyMovedFonts)
{
    QVTestHome home;
    QVQuarantineStore store;
    const QString ttc = home.writeFile("f/Set.ttc", "ttcf");
    auto collection = fontFileWithOneFont(ttc, 4);
    collection->fontStatusArray.append(std::make_shared<QVStatus>());
    ASSERT_TRUE(store.moveFileToQuarantine(collection, collection->fontStatusArray.first(), "r").isNull());
    EXPECT_TRUE(collection->fontStatusArray.at(1)->movedToQuarantine);
    EXPECT_TRUE(collection->fileMovedToQuarantine);

    // Asked again: nothing happens, nothing is recorded twice.
    EXPECT_TRUE(store.moveFileToQuarantine(collection, collection->fontStatusArray.first(), "r").isNull());
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);

    // A file gone before the move is recorded under the name it would have had.
    home.writeFile("f/Gone.otf", "x");
    auto gone = fontFileWithOneFont(home.path() + "/f/Gone.otf");
    QFile::remove(gone->URL);
    store.getQuarantineFolder();
    home.writeFile(".local/share/Quorvel/Quarantine/Gone.otf", "someone else");
    ASSERT_TRUE(store.moveFileToQuarantine(gone, gone->fontStatusArray.first(), "r").isNull());
    EXPECT_EQ(store.quarantinedFilesDataArray.last().value("quarantineFileName").toString(),
        QStringLiteral("Gone 1.otf"));
    EXPECT_TRUE(gone->fontStatusArray.first()->movedToQuarantine);
}

TEST(QVQuarantineStore, MovesKeepForksAndFinderInfoInEveryPlace)
{
    QVTestHome home;
    QVQuarantineStore store;
    using Place = QVForkStorage::Place;
    // Small enough for an extended attribute on ext4.
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty()) << "otf2bdf/ufond failed";
    struct Case {
        Place forkPlace;
        Place infoPlace;
        QString name;
    };
    const QList<Case> cases = { { Place::ExtendedAttribute, Place::ExtendedAttribute, "Serif" },
        { Place::AppleDouble, Place::AppleDouble, "Serif" },
        { Place::NetatalkFolder, Place::NetatalkFolder, "Serif" },
        { Place::None, Place::NetatalkMetadata, "Serif.ttf" },
        { Place::DataFork, Place::AppleDouble, "Serif.dfont" } };
    int n = 0;
    for (const Case &c : cases) {
        const QString path = home.path() + QStringLiteral("/fonts/%1/").arg(n++) + c.name;
        QByteArray info(32, '\0');
        info.replace(0, 8, "FFILDMOV");
        if (c.forkPlace == Place::DataFork) {
            home.writeFile(path.mid(home.path().size() + 1), fork);
        } else if (c.forkPlace == Place::None) {
            QFile ttf("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf");
            ASSERT_TRUE(ttf.open(QIODevice::ReadOnly));
            home.writeFile(path.mid(home.path().size() + 1), ttf.readAll());
        } else {
            home.writeFile(path.mid(home.path().size() + 1), "");
            ASSERT_EQ(QVForkStorage::writeResourceFork(path, fork, c.forkPlace), 0);
        }
        if (c.infoPlace == Place::NetatalkMetadata) {
            // What netatalk 3 writes: an AppleDouble blob in an attribute.
            QVAppleDouble metadata;
            metadata.setEntry(QVAppleDouble::FinderInfo, info);
            ASSERT_EQ(
                QVExtendedAttributes::set(path, QVForkStorage::kNetatalkAttribute, metadata.serialize()), 0);
        } else {
            ASSERT_EQ(QVForkStorage::writeFinderInfo(path, info, c.infoPlace), 0);
        }
        ASSERT_EQ(QVForkStorage::resourceForkPlace(path), c.forkPlace);
        ASSERT_EQ(QVForkStorage::finderInfoPlace(path), c.infoPlace);
        const QString before = forkHashes(path);
        auto file = fontFileWithOneFont(path, 0, 0);
        ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        const QString inQuarantine = quarantined(
            store, store.quarantinedFilesDataArray.last().value("quarantineFileName").toString());
        const QString label
            = QVForkStorage::placeName(c.forkPlace) + "/" + QVForkStorage::placeName(c.infoPlace);
        EXPECT_EQ(forkHashes(inQuarantine), before) << qPrintable(label);
        EXPECT_EQ(QVForkStorage::resourceForkPlace(inQuarantine), c.forkPlace) << qPrintable(label);
        EXPECT_TRUE(QVFilePair::companions(path).isEmpty());
        EXPECT_FALSE(QFileInfo::exists(path));
    }
}

TEST(QVQuarantineStore, SisterPostScriptFilesFollowUnlessAnotherBitmapNeedsThem)
{
    QVTestHome home;
    QVFontDataManager dataMgr;
    QVQuarantineStore store(&dataMgr);
    auto make = [&](const QString &relative, int fontType, int index) {
        auto file = fontFileWithOneFont(home.writeFile(relative, "x"), fontType, 0);
        file->fontStatusArray.first()->PSname = QStringLiteral("Times-Roman");
        file->fontStatusArray.first()->index = index;
        dataMgr.fontFileItems.append(file);
        return file;
    };
    auto bitmapA = make("one/Times", 0, 0);
    auto bitmapB = make("one/Times Suitcase", 0, 1);
    auto outline = make("one/TimesRom", 1, 2);
    make("two/TimesRom", 1, 3); // same name, other folder: not a sister

    // B still needs the outline: nothing moves.
    EXPECT_FALSE(store.moveSisterPostScriptFontToQuarantine(bitmapA, bitmapA->fontStatusArray.first(), "r"));
    EXPECT_TRUE(QFileInfo::exists(outline->URL));

    // Once B is gone too, the outline goes with A.
    bitmapB->fileMovedToQuarantine = true;
    EXPECT_TRUE(store.moveSisterPostScriptFontToQuarantine(bitmapA, bitmapA->fontStatusArray.first(), "r"));
    EXPECT_FALSE(QFileInfo::exists(outline->URL));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/two/TimesRom"));
    EXPECT_TRUE(bitmapA->fontStatusArray.first()->movedSisterToQuarantine);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);

    // Not a bitmap font: never.
    EXPECT_FALSE(store.moveSisterPostScriptFontToQuarantine(outline, outline->fontStatusArray.first(), "r"));
}

TEST(QVQuarantineStore, RefusedMovesGoToThePrivilegedRunnerAndMarkNothingUnmoved)
{
    QVTestHome home;
    QVQuarantineStore store;
    const QString path = home.writeFile("locked/Foo.otf", "OTTO");
    home.writeFile("locked/._Foo.otf", "sidecar");
    const QString folder = QFileInfo(path).absolutePath();
    if (!lockFolder(folder, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";

    auto refused = std::make_shared<FakeRunner>(QStringLiteral("Not Authorized"), false);
    QVPrivilegedRunner::setShared(refused);
    auto file = fontFileWithOneFont(path);
    const QString error = store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r");
    EXPECT_EQ(error, QStringLiteral("Not Authorized"));
    ASSERT_EQ(refused->calls.size(), 1);
    EXPECT_EQ(refused->calls.first(), "/bin/mv -f -T -- " + path + " " + quarantined(store, "Foo.otf"));
    EXPECT_FALSE(file->fontStatusArray.first()->movedToQuarantine);
    EXPECT_FALSE(file->fileMovedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_TRUE(QFileInfo::exists(path));

    // A runner that says yes but leaves the file: still not marked.
    auto liar = std::make_shared<FakeRunner>(QString(), false);
    QVPrivilegedRunner::setShared(liar);
    EXPECT_FALSE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    EXPECT_FALSE(file->fontStatusArray.first()->movedToQuarantine);

    // An authorization error is passed on with its status.
    QVPrivilegedRunner::setShared(
        std::make_shared<FakeRunner>(QStringLiteral("Authorization Error: 1"), false));
    EXPECT_EQ(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r"),
        QStringLiteral("Authorization Error: 1"));

    lockFolder(folder, false);
    // With rights granted, the runner moves file and sidecar alike.
    auto granted = std::make_shared<FakeRunner>(QString(), true);
    QVPrivilegedRunner::setShared(granted);
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, quarantined(store, "Foo.otf")).isNull());
    EXPECT_EQ(granted->calls.size(), 2);
    EXPECT_TRUE(QFileInfo::exists(quarantined(store, "._Foo.otf")));
    EXPECT_EQ(store.authorizedDeleteFile(quarantined(store, "Foo.otf")), QString());
    EXPECT_EQ(granted->calls.last(),
        "/bin/rm -f -- " + quarantined(store, "Foo.otf") + " " + quarantined(store, "._Foo.otf"));
    QVPrivilegedRunner::setShared(nullptr);
}

namespace
{

// The real tools, run as root with no launcher, after another user has put
// something in the place chosen for them.
class PlantingRunner : public QVPrivilegedRunner
{
public:
    std::function<void()> plant;
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override
    {
        if (plant)
            std::exchange(plant, nullptr)();
        return QVPrivilegedRunner::runWithAdministratorRights(program, arguments);
    }
};

} // namespace

TEST(QVQuarantineStore, PrivilegedToolsNeverFollowWhatIsPlantedInTheirWay)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "runs mv and rm as root, as CI does";
    QVTestHome home;
    QVQuarantineStore store;
    store.getQuarantineFolder();
    const QString elsewhere = home.path() + "/elsewhere";
    const QString kept = home.writeFile("elsewhere/keep.otf", "keep");
    const QString path = home.writeFile("fonts/Foo.otf", "OTTO");
    const QString destination = quarantined(store, "Foo.otf");
    auto runner = std::make_shared<PlantingRunner>();
    QVPrivilegedRunner::setShared(runner);
    // The chosen name turns into a link to a folder before root's mv runs.
    runner->plant = [&] { QFile::link(elsewhere, destination); };
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, destination).isNull());
    EXPECT_FALSE(QFileInfo(destination).isSymLink());
    EXPECT_EQ(fileSha256(destination), sha256("OTTO"));
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files), QStringList { "keep.otf" });
    // A folder where a quarantined file was is not emptied by the delete.
    ASSERT_TRUE(QFile::remove(destination));
    ASSERT_TRUE(QDir().mkpath(destination));
    QFile::copy(kept, destination + "/keep.otf");
    EXPECT_FALSE(store.authorizedDeleteFile(destination).isNull());
    EXPECT_TRUE(QFileInfo::exists(destination + "/keep.otf"));
    QVPrivilegedRunner::setShared(nullptr);
}

TEST(QVQuarantineStore, AJournalledMoveCutShortIsRecordedOnLoad)
{
    QVTestHome home;
    const QString source = home.writeFile("fonts/Foo.otf", "OTTO");
    home.writeFile("fonts/._Foo.otf", "fork");
    const QString stays = home.writeFile("fonts/Bar.otf", "OTTO2");
    {
        QVQuarantineStore store;
        auto foo = fontFileWithOneFont(source);
        auto bar = fontFileWithOneFont(stays);
        ASSERT_TRUE(store.journalIntent("file", source,
            QVQuarantineStore::makeRecord("Foo.otf", foo, foo->fontStatusArray.first(), "r")));
        ASSERT_TRUE(store.journalIntent(
            "file", stays, QVQuarantineStore::makeRecord("Bar.otf", bar, bar->fontStatusArray.first(), "r")));
        // Killed after the file itself moved, before its sidecar and the index.
        ASSERT_TRUE(QFile::rename(source, quarantined(store, "Foo.otf")));
    }
    QVQuarantineStore reloaded;
    ASSERT_EQ(reloaded.quarantinedFilesDataArray.size(), 1);
    EXPECT_EQ(reloaded.quarantinedFilesDataArray.first().value("quarantineFileName").toString(),
        QStringLiteral("Foo.otf"));
    EXPECT_EQ(fileSha256(quarantined(reloaded, "._Foo.otf")), sha256("fork"));
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/fonts/._Foo.otf"));
    EXPECT_TRUE(QFileInfo::exists(stays));
    EXPECT_FALSE(QFileInfo::exists(reloaded.journalPath()));
    // Settled once: loading again adds nothing.
    QVQuarantineStore third;
    EXPECT_EQ(third.quarantinedFilesDataArray.size(), 1);
}

TEST(QVQuarantineStore, ADamagedIndexIsKeptAsideAndRebuiltAndUntilThenNothingGoesIn)
{
    QVTestHome home;
    QStringList sources;
    {
        QVQuarantineStore store;
        for (const char *name : { "Alpha.otf", "Beta.otf", "Gamma.otf" }) {
            sources << home.writeFile(QStringLiteral("fonts/") + name, name);
            auto file = fontFileWithOneFont(sources.last());
            ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        }
        ASSERT_TRUE(store.commitQuarantine().isNull());
    }
    // Cut short inside the third record; and a file nobody recorded.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine";
    QFile index(folder + "/dataSource");
    ASSERT_TRUE(index.open(QIODevice::ReadWrite));
    const QByteArray damaged = index.readAll().left(index.size() - 300);
    index.resize(damaged.size());
    index.close();
    home.writeFile(".local/share/Quorvel/Quarantine/Stray.ttf", "stray");

    // While the rebuilt index cannot be written, nothing is quarantined and
    // the damaged one stays as it was.
    const QString delta = home.writeFile("fonts/Delta.otf", "delta");
    auto file = fontFileWithOneFont(delta);
    QVWriteFault::failWrite(1);
    {
        QVQuarantineStore store;
        EXPECT_FALSE(store.quarantineError().isNull());
        EXPECT_FALSE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    }
    QVWriteFault::clear();
    EXPECT_TRUE(QFileInfo::exists(delta));
    EXPECT_EQ(fileSha256(index.fileName()), sha256(damaged));

    // Then: the damaged index kept aside, and every file of the quarantine listed.
    QVQuarantineStore store;
    ASSERT_TRUE(store.quarantineError().isNull()) << qPrintable(store.quarantineError());
    EXPECT_EQ(QDir(folder).entryList({ "dataSource.damaged-*" }).size(), 1);
    EXPECT_EQ(fileSha256(store.damagedIndexPath), sha256(damaged));
    QStringList listed;
    for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray))
        listed << record.value("quarantineFileName").toString() + " "
                + record.value("originalFilePath").toString();
    listed.sort();
    EXPECT_EQ(listed,
        (QStringList {
            "Alpha.otf " + sources.at(0), "Beta.otf " + sources.at(1), "Gamma.otf ", "Stray.ttf " }));
    EXPECT_EQ(store.unrecordedFiles, (QStringList { "Gamma.otf", "Stray.ttf" }));
    EXPECT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
}

TEST(QVQuarantineStore, ClearRemovesOnlyIndexedFilesInsideTheQuarantine)
{
    QVTestHome home;
    QVQuarantineStore store;
    const QString path = home.writeFile("fonts/Foo.otf", "OTTO");
    home.writeFile("fonts/._Foo.otf", "fork");
    auto file = fontFileWithOneFont(path);
    ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    const QString outside = home.writeFile("elsewhere/keep.otf", "keep");
    QVariantMap bad = store.quarantinedFilesDataArray.first();
    bad.insert("quarantineFileName", "../../../../elsewhere/keep.otf");
    store.quarantinedFilesDataArray.append(bad);
    ASSERT_TRUE(store.commitQuarantine().isNull());
    store.clearQuarantine();
    EXPECT_FALSE(QFileInfo::exists(quarantined(store, "Foo.otf")));
    EXPECT_FALSE(QFileInfo::exists(quarantined(store, "._Foo.otf")));
    EXPECT_FALSE(QFileInfo::exists(store.indexPath()));
    EXPECT_TRUE(QFileInfo::exists(outside));
}

TEST(QVQuarantineStore, ALiveRunsJournalIsLeftToItAndADeadOnesIsTakenOver)
{
    QVTestHome home;
    const QString foo = home.writeFile("fonts/Foo.otf", "OTTO");
    const QString bar = home.writeFile("fonts/Bar.otf", "OTTO2");
    QVQuarantineStore running;
    auto fooFile = fontFileWithOneFont(foo);
    // The hook runs after the move and before the commit: look from outside then.
    int seen = -1;
    running.movedHook
        = [&seen](const QString &) { seen = int(QVQuarantineStore().quarantinedFilesDataArray.size()); };
    ASSERT_TRUE(running.moveFileToQuarantine(fooFile, fooFile->fontStatusArray.first(), "r").isNull());
    EXPECT_EQ(seen, 0);
    // Still pending in the live store's journal, which no other store settled.
    EXPECT_TRUE(QFile::exists(running.journalPath()));
    ASSERT_TRUE(running.commitQuarantine().isNull());
    EXPECT_FALSE(QFile::exists(running.journalPath()));
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 1);

    // A store that dies (its lock goes with it) after journalling a move that
    // happened: the next store to change the quarantine settles it.
    auto barFile = fontFileWithOneFont(bar);
    {
        QVQuarantineStore dead;
        ASSERT_TRUE(dead.journalIntent("file", home.path() + "/fonts/Baz.otf",
            QVQuarantineStore::makeRecord("Baz.otf", barFile, barFile->fontStatusArray.first(), "r")));
    }
    home.writeFile(".local/share/Quorvel/Quarantine/Baz.otf", "moved before the crash");
    ASSERT_TRUE(running.moveFileToQuarantine(barFile, barFile->fontStatusArray.first(), "r").isNull());
    ASSERT_TRUE(running.commitQuarantine().isNull());
    QStringList names;
    for (const QVariantMap &record : QVQuarantineStore().quarantinedFilesDataArray)
        names << record.value("quarantineFileName").toString();
    EXPECT_EQ(names, (QStringList { "Foo.otf", "Baz.otf", "Bar.otf" }));
}

namespace
{

// A privileged mv onto a file system without extended attributes: the bytes
// arrive, the attributes do not, and nobody is told.
class AttributeDroppingRunner : public QVPrivilegedRunner
{
public:
    AttributeDroppingRunner()
        : QVPrivilegedRunner(QStringLiteral("/bin/true"))
    {
    }
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override
    {
        if (program != QLatin1String("/bin/mv"))
            return QStringLiteral("Authorization Error: 1");
        QFile in(arguments.at(arguments.size() - 2));
        QFile out(arguments.last());
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            return QStringLiteral("Authorization Error: 1");
        out.write(in.readAll());
        out.close();
        in.close();
        QFile::remove(in.fileName());
        return QString();
    }
};

} // namespace

TEST(QVQuarantineStore, APrivilegedMoveThatDropsAttributesStillKeepsTheFork)
{
    QVTestHome home;
    QVQuarantineStore store;
    using Place = QVForkStorage::Place;
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty()) << "otf2bdf/ufond failed";
    const QString path = home.writeFile("fonts/Serif", "");
    QByteArray info(32, '\0');
    info.replace(0, 8, "FFILDMOV");
    if (QVForkStorage::writeResourceFork(path, fork, Place::ExtendedAttribute) != 0
        || QVForkStorage::resourceForkPlace(path) != Place::ExtendedAttribute)
        GTEST_SKIP() << "no extended attributes here";
    ASSERT_EQ(QVForkStorage::writeFinderInfo(path, info, Place::ExtendedAttribute), 0);
    ASSERT_EQ(QVForkStorage::finderInfoPlace(path), Place::ExtendedAttribute);

    QVPrivilegedRunner::setShared(std::make_shared<AttributeDroppingRunner>());
    store.getQuarantineFolder();
    const QString destination = quarantined(store, "Serif");
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, destination).isNull());
    QVPrivilegedRunner::setShared(nullptr);
    EXPECT_FALSE(QFileInfo::exists(path));
    QByteArray forkAfter;
    Place place = Place::None;
    ASSERT_EQ(QVForkStorage::readResourceFork(destination, &forkAfter, &place), 0);
    EXPECT_EQ(forkAfter, fork);
    EXPECT_EQ(place, Place::AppleDouble);
    QByteArray infoAfter;
    ASSERT_EQ(QVForkStorage::readFinderInfo(destination, &infoAfter), 0);
    EXPECT_EQ(infoAfter, info);
}
