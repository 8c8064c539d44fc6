// The quarantine: moves that keep forks and Finder info wherever they live,
// an index that plistlib reads, privileged moves that follow nothing planted,
// and moves cut short by a crash.
#include "store/QVQuarantineStore.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVPrivilegedRunner.h"
#include "platform/QVWriteFault.h"
#include "store/QVPropertyList.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVFixtures;
using Place = QVForkStorage::Place;

namespace
{

QVFontFilePtr oneFont(const QString &path, int fontType = 5, int fileType = 1)
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

QString quarantine(QVQuarantineStore &store, const QVFontFilePtr &file)
{
    return store.moveFileToQuarantine(
        file, file->fontStatusArray.first(), QStringLiteral("· Bad Table Data"));
}

QStringList names(const QList<QVariantMap> &records)
{
    QStringList list;
    for (const QVariantMap &record : records)
        list << record.value(QStringLiteral("quarantineFileName")).toString();
    return list;
}

// A privileged runner that records what it is asked, answers as told and, when
// told to perform, does the move itself (or one that drops the attributes).
class FakeRunner : public QVPrivilegedRunner
{
public:
    enum Perform { Nothing, Rename, CopyBytesOnly };
    FakeRunner(QString answer, Perform perform)
        : QVPrivilegedRunner(QStringLiteral("/bin/true"))
        , m_answer(std::move(answer))
        , m_perform(perform)
    {
    }
    QString runWithAdministratorRights(const QString &program, const QStringList &arguments) override
    {
        calls << (QStringList { program } + arguments).join(QLatin1Char(' '));
        const QString from = arguments.value(arguments.size() - 2), to = arguments.last();
        if (program == QLatin1String("/bin/mv") && m_perform == Rename)
            QFile::rename(from, to);
        if (program == QLatin1String("/bin/mv") && m_perform == CopyBytesOnly
            && !(writeFile(to, readFile(from)) && QFile::remove(from)))
            return QStringLiteral("Authorization Error: 1");
        return m_answer;
    }
    QStringList calls;

private:
    QString m_answer;
    Perform m_perform;
};

} // namespace

TEST(QVQuarantineStore, CollidingNamesAreNumberedAndTheIndexIsAPlistThatPlistlibReads)
{
    QVTestHome home;
    QVQuarantineStore store;
    QStringList sources;
    for (const char *folder : { "a", "b", "c" })
        sources << home.writeFile(
            QStringLiteral("fonts/%1/Foo.otf").arg(QLatin1String(folder)), "OTTO" + QByteArray(folder));
    sources << home.writeFile("fonts/a/Foo", "plain") << home.writeFile("fonts/b/Foo", "plain2");
    // Names are joined, never formatted: "%1" in a name stays.
    sources << home.writeFile("fonts/a/A%1B%2.ttf", "pct") << home.writeFile("fonts/b/A%1B%2.ttf", "pct2");
    for (const QString &source : sources)
        EXPECT_TRUE(quarantine(store, oneFont(source)).isNull());
    EXPECT_EQ(names(store.quarantinedFilesDataArray),
        (QStringList { "Foo.otf", "Foo 1.otf", "Foo 2.otf", "Foo", "Foo 1", "A%1B%2.ttf", "A%1B%2 1.ttf" }));
    EXPECT_EQ(fileSha256(store.quarantineFolderPath() + "/Foo 1.otf"), sha256("OTTOb"));
    for (const QString &source : sources)
        EXPECT_FALSE(QFileInfo::exists(source));
    ASSERT_TRUE(store.commitQuarantine().isNull());
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
    EXPECT_EQ(
        out.trimmed(), "7 Foo 1.otf True 1 1 · Bad Table Data ['Foo'] ['Foo-Regular'] ['Regular'] ['-'] [5]");
    auto xml = [](const QList<QVariantMap> &records) {
        QVariantList list;
        for (const QVariantMap &record : records)
            list.append(record);
        return QVPropertyList::toXml(list);
    };
    EXPECT_EQ(xml(QVQuarantineStore().quarantinedFilesDataArray), xml(store.quarantinedFilesDataArray));
}

TEST(QVQuarantineStore, CollectionsVanishedFilesAndFontsMovedAlready)
{
    QVTestHome home;
    QVQuarantineStore store;
    auto collection = oneFont(home.writeFile("f/Set.ttc", "ttcf"), 4);
    collection->fontStatusArray.append(std::make_shared<QVStatus>());
    ASSERT_TRUE(quarantine(store, collection).isNull());
    EXPECT_TRUE(collection->fontStatusArray.at(1)->movedToQuarantine);
    EXPECT_TRUE(collection->fileMovedToQuarantine);
    // Asked again: nothing happens, nothing is recorded twice.
    EXPECT_TRUE(quarantine(store, collection).isNull());
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    // A file gone before the move is recorded under the name it would have had.
    auto gone = oneFont(home.path() + "/f/Gone.otf");
    home.writeFile(".local/share/Quorvel/Quarantine/Gone.otf", "someone else");
    ASSERT_TRUE(quarantine(store, gone).isNull());
    EXPECT_EQ(names(store.quarantinedFilesDataArray).last(), "Gone 1.otf");
    EXPECT_TRUE(gone->fontStatusArray.first()->movedToQuarantine);
    // Only a status marked as moved is recorded.
    auto unmoved = oneFont(home.path() + "/f/Unmoved.otf");
    store.addFileToQuarantineDataSource("Unmoved.otf", unmoved, unmoved->fontStatusArray.first(), "r");
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 2);
}

TEST(QVQuarantineStore, SisterOutlinesFollowUnlessAnotherBitmapNeedsThem)
{
    QVTestHome home;
    QVFontDataManager dataMgr;
    QVQuarantineStore store(&dataMgr);
    auto make = [&](const QString &relative, int fontType) {
        auto file = oneFont(home.writeFile(relative, "x"), fontType, 0);
        file->fontStatusArray.first()->PSname = QStringLiteral("Times-Roman");
        file->fontStatusArray.first()->index = int(dataMgr.fontFileItems.size());
        dataMgr.fontFileItems.append(file);
        return file;
    };
    auto bitmapA = make("one/Times", 0), bitmapB = make("one/Times Suitcase", 0),
         outline = make("one/TimesRom", 1);
    make("two/TimesRom", 1); // same name, other folder: not a sister
    const QVStatusPtr a = bitmapA->fontStatusArray.first();
    // B still needs the outline: nothing moves. Once B is gone, it goes with A.
    EXPECT_FALSE(store.moveSisterPostScriptFontToQuarantine(bitmapA, a, "r"));
    EXPECT_TRUE(QFileInfo::exists(outline->URL));
    bitmapB->fileMovedToQuarantine = true;
    EXPECT_TRUE(store.moveSisterPostScriptFontToQuarantine(bitmapA, a, "r"));
    EXPECT_FALSE(QFileInfo::exists(outline->URL));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/two/TimesRom"));
    EXPECT_TRUE(a->movedSisterToQuarantine);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    EXPECT_FALSE(store.moveSisterPostScriptFontToQuarantine(outline, outline->fontStatusArray.first(), "r"));
}

TEST(QVQuarantineStore, RefusedMovesGoToThePrivilegedRunnerAndMarkNothingUnmoved)
{
    QVTestHome home;
    QVQuarantineStore store;
    const QString path = home.writeFile("locked/Foo.otf", "OTTO");
    home.writeFile("locked/._Foo.otf", "sidecar");
    const QString folder = QFileInfo(path).absolutePath(), target = store.quarantineFolderPath() + "/Foo.otf";
    if (!lockFolder(folder, true))
        GTEST_SKIP() << "cannot make a folder refuse changes here";
    auto file = oneFont(path);
    auto refused = std::make_shared<FakeRunner>(QStringLiteral("Not Authorized"), FakeRunner::Nothing);
    QVPrivilegedRunner::setShared(refused);
    EXPECT_EQ(quarantine(store, file), QStringLiteral("Not Authorized"));
    EXPECT_EQ(refused->calls, QStringList { "/bin/mv -f -T -- " + path + " " + target });
    // A runner that says yes but leaves the file; an authorization error.
    QVPrivilegedRunner::setShared(std::make_shared<FakeRunner>(QString(), FakeRunner::Nothing));
    EXPECT_FALSE(quarantine(store, file).isNull());
    QVPrivilegedRunner::setShared(
        std::make_shared<FakeRunner>(QStringLiteral("Authorization Error: 1"), FakeRunner::Nothing));
    EXPECT_EQ(quarantine(store, file), QStringLiteral("Authorization Error: 1"));
    EXPECT_FALSE(file->fontStatusArray.first()->movedToQuarantine);
    EXPECT_FALSE(file->fileMovedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_TRUE(QFileInfo::exists(path));
    lockFolder(folder, false);
    // With rights granted, file and sidecar move alike, and are deleted alike.
    auto granted = std::make_shared<FakeRunner>(QString(), FakeRunner::Rename);
    QVPrivilegedRunner::setShared(granted);
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, target).isNull());
    EXPECT_EQ(granted->calls.size(), 2);
    EXPECT_TRUE(QFileInfo::exists(store.quarantineFolderPath() + "/._Foo.otf"));
    EXPECT_EQ(store.authorizedDeleteFile(target), QString());
    EXPECT_EQ(
        granted->calls.last(), "/bin/rm -f -- " + target + " " + store.quarantineFolderPath() + "/._Foo.otf");
    QVPrivilegedRunner::setShared(nullptr);
}

TEST(QVQuarantineStore, APrivilegedMoveThatDropsAttributesStillKeepsTheFork)
{
    QVTestHome home;
    QVQuarantineStore store;
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty()) << "otf2bdf/ufond failed";
    const QString path = home.writeFile("fonts/Serif", "");
    if (QVForkStorage::writeResourceFork(path, fork, Place::ExtendedAttribute) != 0
        || QVForkStorage::resourceForkPlace(path) != Place::ExtendedAttribute)
        GTEST_SKIP() << "no extended attributes here";
    ASSERT_TRUE(setFinderInfo(path, "FFILDMOV", 0, Place::ExtendedAttribute));
    const QString before = forkHashes(path);
    QVPrivilegedRunner::setShared(std::make_shared<FakeRunner>(QString(), FakeRunner::CopyBytesOnly));
    store.getQuarantineFolder();
    const QString destination = store.quarantineFolderPath() + "/Serif";
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, destination).isNull());
    QVPrivilegedRunner::setShared(nullptr);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(forkHashes(destination), before);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(destination), Place::AppleDouble);
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
    const QString elsewhere = home.path() + "/elsewhere", kept = home.writeFile("elsewhere/keep.otf", "keep");
    const QString path = home.writeFile("fonts/Foo.otf", "OTTO"),
                  destination = store.quarantineFolderPath() + "/Foo.otf";
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

TEST(QVQuarantineStore, MovesCutShortByACrashAreSettledByTheNextStore)
{
    QVTestHome home;
    const QString source = home.writeFile("fonts/Foo.otf", "OTTO"),
                  stays = home.writeFile("fonts/Bar.otf", "OTTO2");
    home.writeFile("fonts/._Foo.otf", "fork");
    auto record = [](const QString &name, const QVFontFilePtr &file) {
        return QVQuarantineStore::makeRecord(name, file, file->fontStatusArray.first(), "r");
    };
    {
        QVQuarantineStore store;
        ASSERT_TRUE(store.journalIntent("file", source, record("Foo.otf", oneFont(source))));
        ASSERT_TRUE(store.journalIntent("file", stays, record("Bar.otf", oneFont(stays))));
        // Killed after the file itself moved, before its sidecar and the index.
        ASSERT_TRUE(QFile::rename(source, store.quarantineFolderPath() + "/Foo.otf"));
    }
    QVQuarantineStore reloaded;
    EXPECT_EQ(names(reloaded.quarantinedFilesDataArray), QStringList { "Foo.otf" });
    EXPECT_EQ(fileSha256(reloaded.quarantineFolderPath() + "/._Foo.otf"), sha256("fork"));
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/fonts/._Foo.otf"));
    EXPECT_TRUE(QFileInfo::exists(stays));
    EXPECT_FALSE(QFileInfo::exists(reloaded.journalPath()));
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 1); // settled once

    // A live store's journal is left to it; a dead one's is taken over by the
    // next store that changes the quarantine.
    int seen = -1;
    reloaded.movedHook
        = [&seen](const QString &) { seen = int(QVQuarantineStore().quarantinedFilesDataArray.size()); };
    ASSERT_TRUE(quarantine(reloaded, oneFont(stays)).isNull());
    EXPECT_EQ(seen, 1);
    EXPECT_TRUE(QFile::exists(reloaded.journalPath()));
    ASSERT_TRUE(reloaded.commitQuarantine().isNull());
    EXPECT_FALSE(QFile::exists(reloaded.journalPath()));
    {
        QVQuarantineStore dead;
        ASSERT_TRUE(
            dead.journalIntent("file", home.path() + "/fonts/Baz.otf", record("Baz.otf", oneFont(stays))));
    }
    home.writeFile(".local/share/Quorvel/Quarantine/Baz.otf", "moved before the crash");
    ASSERT_TRUE(quarantine(reloaded, oneFont(home.writeFile("fonts/Qux.otf", "q"))).isNull());
    ASSERT_TRUE(reloaded.commitQuarantine().isNull());
    EXPECT_EQ(names(QVQuarantineStore().quarantinedFilesDataArray),
        (QStringList { "Foo.otf", "Bar.otf", "Baz.otf", "Qux.otf" }));
}

TEST(QVQuarantineStore, ADamagedIndexIsKeptAsideAndRebuiltAndUntilThenNothingGoesIn)
{
    QVTestHome home;
    QStringList sources;
    {
        QVQuarantineStore store;
        for (const char *name : { "Alpha.otf", "Beta.otf", "Gamma.otf" }) {
            sources << home.writeFile(QStringLiteral("fonts/") + name, name);
            ASSERT_TRUE(quarantine(store, oneFont(sources.last())).isNull());
        }
        ASSERT_TRUE(store.commitQuarantine().isNull());
    }
    // Cut short inside the third record; and a file nobody recorded.
    const QString folder = home.dataHome() + "/Quorvel/Quarantine", index = folder + "/dataSource";
    const QByteArray damaged = readFile(index).chopped(300);
    ASSERT_TRUE(writeFile(index, damaged));
    home.writeFile(".local/share/Quorvel/Quarantine/Stray.ttf", "stray");
    // While the rebuilt index cannot be written, nothing is quarantined and the damaged one stays.
    const QString delta = home.writeFile("fonts/Delta.otf", "delta");
    QVWriteFault::failWrite(1);
    {
        QVQuarantineStore store;
        EXPECT_FALSE(store.quarantineError().isNull());
        EXPECT_FALSE(quarantine(store, oneFont(delta)).isNull());
    }
    QVWriteFault::clear();
    EXPECT_TRUE(QFileInfo::exists(delta));
    EXPECT_EQ(fileSha256(index), sha256(damaged));
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
    EXPECT_TRUE(quarantine(store, oneFont(delta)).isNull());
}

TEST(QVQuarantineStore, ClearRemovesOnlyIndexedFilesInsideTheQuarantine)
{
    QVTestHome home;
    QVQuarantineStore store;
    home.writeFile("fonts/._Foo.otf", "fork");
    ASSERT_TRUE(quarantine(store, oneFont(home.writeFile("fonts/Foo.otf", "OTTO"))).isNull());
    const QString outside = home.writeFile("elsewhere/keep.otf", "keep");
    QVariantMap bad = store.quarantinedFilesDataArray.first();
    bad.insert("quarantineFileName", "../../../../elsewhere/keep.otf");
    store.quarantinedFilesDataArray.append(bad);
    ASSERT_TRUE(store.commitQuarantine().isNull());
    store.clearQuarantine();
    EXPECT_EQ(QDir(store.quarantineFolderPath()).entryList(QDir::Files | QDir::Hidden), QStringList());
    EXPECT_TRUE(QFileInfo::exists(outside));
}
