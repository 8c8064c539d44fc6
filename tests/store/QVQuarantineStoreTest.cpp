// The quarantine: moves keeping forks and Finder info, an index plistlib reads, privileged moves that follow
// nothing planted, and moves cut short by a crash.
#include "store/QVQuarantineStore.h"

#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "platform/QVWriteFault.h"
#include "store/QVPropertyList.h"
#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace QVFixtures;
using Place = QVForkStorage::Place;

namespace
{

QString quarantine(QVQuarantineStore &store, const QVFontFilePtr &file)
{
    return store.moveFileToQuarantine(
        file, file->fontStatusArray.first(), QStringLiteral("· Bad Table Data"));
}

QStringList names(const QList<QVariantMap> &records, const char *key = "quarantineFileName")
{
    QStringList list;
    for (const QVariantMap &record : records)
        list << record.value(QLatin1String(key)).toString();
    return list;
}

} // namespace

TEST(QVQuarantineStore, CollidingNamesAreNumberedAndTheIndexIsAPlistThatPlistlibReads)
{
    QVTestHome home;
    QVQuarantineStore store;
    QStringList sources;
    for (const char *folder : { "a", "b", "c" })
        sources << home.writeFile(
            QStringLiteral("fonts/%1/Foo.otf").arg(QLatin1String(folder)), "OTTO" + QByteArray(folder));
    // Names are joined, never formatted: "%1" in a name stays.
    sources << home.writeFile("fonts/a/Foo", "plain") << home.writeFile("fonts/b/Foo", "plain2")
            << home.writeFile("fonts/a/A%1B%2.ttf", "pct") << home.writeFile("fonts/b/A%1B%2.ttf", "pct2");
    for (const QString &source : sources) {
        EXPECT_TRUE(quarantine(store, oneFontFile(source)).isNull());
        EXPECT_FALSE(QFileInfo::exists(source));
    }
    EXPECT_EQ(names(store.quarantinedFilesDataArray),
        (QStringList { "Foo.otf", "Foo 1.otf", "Foo 2.otf", "Foo", "Foo 1", "A%1B%2.ttf", "A%1B%2 1.ttf" }));
    EXPECT_EQ(fileSha256(store.quarantineFolderPath() + "/Foo 1.otf"), sha256("OTTOb"));
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
        return QVPropertyList::toXml(QVariantList(records.begin(), records.end()));
    };
    EXPECT_EQ(xml(QVQuarantineStore().quarantinedFilesDataArray), xml(store.quarantinedFilesDataArray));
}

TEST(QVQuarantineStore, SisterOutlinesFollowUnlessAnotherBitmapNeedsThem)
{
    QVTestHome home;
    QVFontDataManager dataMgr;
    QVQuarantineStore store(&dataMgr);
    auto make = [&](const QString &relative, int fontType) {
        auto file = oneFontFile(home.writeFile(relative, "x"), fontType, 0);
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
    auto file = oneFontFile(path);
    // Refused; a runner that says yes but leaves the file; an authorization error.
    const auto refused = RecordingRunner::install("Not Authorized");
    EXPECT_EQ(quarantine(store, file), QStringLiteral("Not Authorized"));
    EXPECT_EQ(refused->calls, QStringList { "/bin/mv -f -T -- " + path + " " + target });
    RecordingRunner::install();
    EXPECT_FALSE(quarantine(store, file).isNull());
    RecordingRunner::install("Authorization Error: 1");
    EXPECT_EQ(quarantine(store, file), QStringLiteral("Authorization Error: 1"));
    EXPECT_FALSE(file->fontStatusArray.first()->movedToQuarantine || file->fileMovedToQuarantine);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_TRUE(QFileInfo::exists(path));
    lockFolder(folder, false);
    // With rights granted, file and sidecar move alike, and are deleted alike.
    const auto granted = RecordingRunner::install({}, RecordingRunner::Rename);
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
    const QString path = home.writeFile("fonts/Serif", ""),
                  destination = store.quarantineFolderPath() + "/Serif";
    if (QVForkStorage::writeResourceFork(path, fork, Place::ExtendedAttribute) != 0
        || QVForkStorage::resourceForkPlace(path) != Place::ExtendedAttribute)
        GTEST_SKIP() << "no extended attributes here";
    ASSERT_TRUE(setFinderInfo(path, "FFILDMOV", 0, Place::ExtendedAttribute));
    const QString before = forkHashes(path);
    RecordingRunner::install({}, RecordingRunner::CopyBytesOnly);
    store.getQuarantineFolder();
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, destination).isNull());
    QVPrivilegedRunner::setShared(nullptr);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(forkHashes(destination), before);
    EXPECT_EQ(QVForkStorage::resourceForkPlace(destination), Place::AppleDouble);
}

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
    // The real tools, run as root, after another user has turned the chosen name into a link to a folder.
    const auto runner = RecordingRunner::install({}, RecordingRunner::Real);
    runner->before = [&] { QFile::link(elsewhere, destination); };
    EXPECT_TRUE(store.authorizedMoveFileToQuarantine(path, destination).isNull());
    EXPECT_FALSE(QFileInfo(destination).isSymLink());
    EXPECT_EQ(fileSha256(destination), sha256("OTTO"));
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files), QStringList { "keep.otf" });
    // A folder where a quarantined file was is not emptied by the delete.
    ASSERT_TRUE(QFile::remove(destination) && QDir().mkpath(destination));
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
    auto record = [](const QString &name, const QString &path) {
        const QVFontFilePtr file = oneFontFile(path);
        return QVQuarantineStore::makeRecord(name, file, file->fontStatusArray.first(), "r");
    };
    {
        QVQuarantineStore store;
        ASSERT_TRUE(store.journalIntent("file", source, record("Foo.otf", source)));
        ASSERT_TRUE(store.journalIntent("file", stays, record("Bar.otf", stays)));
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

    // A live store's journal is left to it; a dead one's is taken over by the next store changing the
    // quarantine.
    int seen = -1;
    reloaded.movedHook
        = [&seen](const QString &) { seen = int(QVQuarantineStore().quarantinedFilesDataArray.size()); };
    ASSERT_TRUE(quarantine(reloaded, oneFontFile(stays)).isNull());
    EXPECT_EQ(seen, 1);
    EXPECT_TRUE(QFile::exists(reloaded.journalPath()));
    ASSERT_TRUE(reloaded.commitQuarantine().isNull());
    EXPECT_FALSE(QFile::exists(reloaded.journalPath()));
    ASSERT_TRUE(
        QVQuarantineStore().journalIntent("file", home.path() + "/fonts/Baz.otf", record("Baz.otf", stays)));
    home.writeFile(".local/share/Quorvel/Quarantine/Baz.otf", "moved before the crash");
    ASSERT_TRUE(quarantine(reloaded, oneFontFile(home.writeFile("fonts/Qux.otf", "q"))).isNull());
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
            ASSERT_TRUE(quarantine(store, oneFontFile(sources.last())).isNull());
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
        EXPECT_FALSE(quarantine(store, oneFontFile(delta)).isNull());
    }
    QVWriteFault::clear();
    EXPECT_TRUE(QFileInfo::exists(delta));
    EXPECT_EQ(fileSha256(index), sha256(damaged));
    // Then: the damaged index kept aside, and every file of the quarantine listed.
    QVQuarantineStore store;
    ASSERT_TRUE(store.quarantineError().isNull()) << qPrintable(store.quarantineError());
    EXPECT_EQ(QDir(folder).entryList({ "dataSource.damaged-*" }).size(), 1);
    EXPECT_EQ(fileSha256(store.damagedIndexPath), sha256(damaged));
    QStringList listed = names(store.quarantinedFilesDataArray),
                from = names(store.quarantinedFilesDataArray, "originalFilePath");
    for (int i = 0; i < listed.size(); ++i)
        listed[i] += " " + from.at(i);
    listed.sort();
    EXPECT_EQ(listed,
        (QStringList {
            "Alpha.otf " + sources.at(0), "Beta.otf " + sources.at(1), "Gamma.otf ", "Stray.ttf " }));
    EXPECT_EQ(store.unrecordedFiles, (QStringList { "Gamma.otf", "Stray.ttf" }));
    EXPECT_TRUE(quarantine(store, oneFontFile(delta)).isNull());
}

TEST(QVQuarantineStore, ClearRemovesOnlyIndexedFilesInsideTheQuarantine)
{
    QVTestHome home;
    QVQuarantineStore store;
    home.writeFile("fonts/._Foo.otf", "fork");
    ASSERT_TRUE(quarantine(store, oneFontFile(home.writeFile("fonts/Foo.otf", "OTTO"))).isNull());
    const QString outside = home.writeFile("elsewhere/keep.otf", "keep");
    QVariantMap bad = store.quarantinedFilesDataArray.first();
    bad.insert("quarantineFileName", "../../../../elsewhere/keep.otf");
    store.quarantinedFilesDataArray.append(bad);
    ASSERT_TRUE(store.commitQuarantine().isNull());
    store.clearQuarantine();
    EXPECT_EQ(QDir(store.quarantineFolderPath()).entryList(QDir::Files | QDir::Hidden), QStringList());
    EXPECT_TRUE(QFileInfo::exists(outside));
}
