#include "store/QVQuarantineRuns.h"

#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFilePair.h"
#include "platform/QVForkStorage.h"
#include "settings/QVProgress.h"
#include "store/QVQuarantineStore.h"
#include "store/QVStoreFixtures.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace QVStoreFixtures;

namespace
{

QVFontFilePtr oneFont(const QString &path, const QString &name, int fontType = 5, int fileType = 1)
{
    auto file = std::make_shared<QVFontFile>(path);
    file->fontFileType = fileType;
    auto status = std::make_shared<QVStatus>();
    status->fontURL = path;
    status->fontName = name;
    status->PSname = name;
    status->fontType = fontType;
    file->fontStatusArray.append(status);
    return file;
}

int rowNamed(const QVQuarantineRuns &runs, const QString &name)
{
    for (int i = 0; i < runs.rowArray.size(); ++i) {
        if (runs.rowArray.at(i).value("fontName").toString() == name)
            return i;
    }
    return -1;
}

} // namespace

TEST(QVQuarantineRuns, RowsAreSortedAndSearchIgnoresCaseAndAccents)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    for (const QString &name : { QStringLiteral("Zapf"), QStringLiteral("ARIAL Black"),
             QStringLiteral("Arial"), QStringLiteral("Ärial Narrow"), QStringLiteral("Times") }) {
        auto file = oneFont(home.writeFile("f/" + name + ".ttf", "x"), name);
        ASSERT_TRUE(store
                        .moveFileToQuarantine(
                            file, file->fontStatusArray.first(), "· Bad Table Data\n· Duplicate Font")
                        .isNull());
    }
    QVQuarantineRuns runs(&store, &surgery);
    QStringList names;
    for (const QVariantMap &row : std::as_const(runs.rowArray))
        names << row.value("fontName").toString();
    EXPECT_EQ(names, (QStringList { "ARIAL Black", "Arial", "Times", "Zapf", "Ärial Narrow" }));
    EXPECT_EQ(runs.rowArray.first().value("fileName").toString(), QStringLiteral("ARIAL Black.ttf"));
    EXPECT_DOUBLE_EQ(QVQuarantineRuns::rowHeight(runs.rowArray.first()), 25 * 2 * 0.9);

    runs.checkedRowsArray = { 0, 1 };
    runs.handleSearch("ari");
    names.clear();
    for (const QVariantMap &row : std::as_const(runs.rowArray))
        names << row.value("fontName").toString();
    EXPECT_EQ(names, (QStringList { "ARIAL Black", "Arial", "Ärial Narrow" }));
    EXPECT_TRUE(runs.checkedRowsArray.isEmpty());
    runs.handleSearch("");
    EXPECT_EQ(runs.rowArray.size(), 5);
}

TEST(QVQuarantineRuns, InfoTextsByFontType)
{
    QVariantMap row { { "fontType", 1 }, { "psName", "Times-Roman" }, { "fontStyle", "Plain" },
        { "fontFoundry", "URW" }, { "originalFilePath", "/fonts/TimesRom" } };
    EXPECT_EQ(QVQuarantineRuns::getInfoText(row),
        QStringLiteral("File Name: TimesRom\nFont Type: PostScript Type 1\nPostScript Name: "
                       "Times-Roman\nFoundry:URW\nQuarantined From: /fonts/TimesRom"));
    row.insert("fontType", 5);
    EXPECT_EQ(QVQuarantineRuns::getInfoText(row),
        QStringLiteral("File Name: TimesRom\nFont Type: OpenType\nStyle: Plain\nPostScript Name: "
                       "Times-Roman\nFoundry:URW\nQuarantined From: /fonts/TimesRom"));
    row.insert("fontFoundry", "-");
    EXPECT_EQ(QVQuarantineRuns::getInfoText(row),
        QStringLiteral("File Name: TimesRom\nFont Type: OpenType\nStyle: Plain\nPostScript Name: "
                       "Times-Roman\nQuarantined From: /fonts/TimesRom"));
}

// Quarantine, then restore: every file returns with data fork, resource fork
// and Finder info byte-identical, wherever its metadata lived.
TEST(QVQuarantineRuns, RoundTripKeepsEveryForkPlaceByteIdentical)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    const QByteArray fork = dejaVuSerifFork(home.path() + "/work");
    ASSERT_FALSE(fork.isEmpty());
    using Place = QVForkStorage::Place;
    QStringList paths;
    QStringList hashes;
    int n = 0;
    for (const Place place : { Place::ExtendedAttribute, Place::AppleDouble, Place::NetatalkFolder }) {
        const QString path = home.path() + QStringLiteral("/fonts/%1/Serif").arg(n++);
        ASSERT_TRUE(makeSuitcase(path, fork, place));
        ASSERT_EQ(QVForkStorage::resourceForkPlace(path), place);
        paths << path;
    }
    paths << home.writeFile("fonts/3/Serif.dfont", fork);
    QVForkStorage::writeFinderInfo(paths.last(), QByteArray("FFILDMOV").leftJustified(32, '\0'));
    paths << home.writeFile("fonts/4/Plain.otf", "OTTO data");
    // Finder info only, in the attribute netatalk 3 and Samba keep.
    paths << home.writeFile("fonts/5/Meta.ttf", "true data");
    QVAppleDouble metadata;
    metadata.setEntry(QVAppleDouble::FinderInfo, QByteArray("FFILDMOV").leftJustified(32, '\0'));
    ASSERT_EQ(
        QVExtendedAttributes::set(paths.last(), QVForkStorage::kNetatalkAttribute, metadata.serialize()), 0);
    ASSERT_EQ(QVForkStorage::finderInfoPlace(paths.last()), QVForkStorage::Place::NetatalkMetadata);
    for (const QString &path : std::as_const(paths)) {
        hashes << forkHashes(path);
        auto file = oneFont(path, QFileInfo(path).fileName(), 0, path.contains(".") ? 1 : 0);
        ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        ASSERT_FALSE(QFileInfo::exists(path));
    }
    ASSERT_TRUE(store.commitQuarantine().isNull());
    // The folders are gone too: restoring makes them again.
    QDir(home.path() + "/fonts").removeRecursively();

    QVQuarantineRuns runs(&store, &surgery);
    for (int i = 0; i < runs.rowArray.size(); ++i)
        runs.checkedRowsArray << i;
    const auto result = runs.restoreQuarantinedFiles();
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    EXPECT_EQ(result.handledRows.size(), paths.size());
    for (int i = 0; i < paths.size(); ++i)
        EXPECT_EQ(forkHashes(paths.at(i)), hashes.at(i)) << qPrintable(paths.at(i));
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_TRUE(QVQuarantineStore().quarantinedFilesDataArray.isEmpty());
    EXPECT_EQ(QDir(store.quarantineFolderPath()).entryList(QDir::Files | QDir::Hidden),
        QStringList { "dataSource" });
}

TEST(QVQuarantineRuns, ASuitcaseMemberGoesBackIntoItsSuitcaseOrWholeWhenItIsGone)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    const QString work = home.path() + "/work";
    const QByteArray both = mergeForks(c059Fork(work), dejaVuSerifFork(work));
    ASSERT_FALSE(both.isEmpty());
    const QString path = home.path() + "/fonts/Two";
    ASSERT_TRUE(makeSuitcase(path, both, QVForkStorage::Place::AppleDouble));
    const QString before = fontToolsFONDEntries(extractFork(path, work + "/0"));
    auto file = suitcaseRecord(path);
    for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
        if (status->fontName == "DejaVu Serif") {
            ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, status, "r").isNull());
        }
    }
    ASSERT_TRUE(store.commitQuarantine().isNull());
    QVQuarantineRuns runs(&store, &surgery);
    ASSERT_EQ(runs.rowArray.size(), 1);
    runs.checkedRowsArray = { 0 };
    auto result = runs.restoreQuarantinedFiles();
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    // Both families again; the quarantined copy is gone.
    const QString after = fontToolsFONDEntries(extractFork(path, work + "/1"));
    EXPECT_EQ(after.count('\n'), 2) << qPrintable(after);
    EXPECT_TRUE(after.contains("DejaVu Serif 2100 10/0/2100")) << qPrintable(after);
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/DejaVu Serif"));
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(before.isEmpty());

    // The last family out deletes the source; restoring brings the file back whole.
    file = suitcaseRecord(path);
    for (const QVStatusPtr &status : std::as_const(file->fontStatusArray))
        ASSERT_TRUE(surgery.moveFontFromSuitcaseToQuarantine(file, status, "r").isNull());
    ASSERT_FALSE(QFileInfo::exists(path));
    runs.updateRowArray();
    runs.checkedRowsArray.clear();
    for (int i = 0; i < runs.rowArray.size(); ++i)
        runs.checkedRowsArray << i;
    result = runs.restoreQuarantinedFiles();
    EXPECT_TRUE(result.errors.isEmpty()) << qPrintable(result.errors.join('\n'));
    const QString back = fontToolsFONDEntries(extractFork(path, work + "/2"));
    EXPECT_EQ(back.count('\n'), 2) << qPrintable(back);
    QVResourceManager::closeAll();
}

TEST(QVQuarantineRuns, MissingFilesAreSkippedOnRestoreAndDroppedOnRemoval)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    for (const QString &name : { QStringLiteral("Alpha"), QStringLiteral("Beta"), QStringLiteral("Gamma") }) {
        auto file = oneFont(home.writeFile("f/" + name + ".otf", name.toUtf8()), name);
        ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    }
    ASSERT_TRUE(store.commitQuarantine().isNull());
    QFile::remove(store.quarantineFolderPath() + "/Beta.otf");
    QVQuarantineRuns runs(&store, &surgery);
    runs.checkedRowsArray = { rowNamed(runs, "Beta") };
    auto result = runs.restoreQuarantinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty());
    EXPECT_EQ(result.errors.size(), 1);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 3);

    // An existing file at the original place: the font comes back beside it.
    home.writeFile("f/Gamma.otf", "someone else");
    runs.checkedRowsArray = { rowNamed(runs, "Gamma") };
    result = runs.restoreQuarantinedFiles();
    EXPECT_EQ(fileSha256(home.path() + "/f/Gamma.otf"), sha256("someone else"));
    EXPECT_EQ(fileSha256(home.path() + "/f/Gamma 1.otf"), sha256("Gamma"));

    runs.checkedRowsArray = { rowNamed(runs, "Beta"), rowNamed(runs, "Alpha") };
    result = runs.removeQuaratinedFiles();
    EXPECT_EQ(result.handledRows.size(), 2);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(store.quarantineFolderPath() + "/Alpha.otf"));
    // Only what the user removed is gone.
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/Gamma 1.otf"));
}

TEST(QVQuarantineRuns, ElevenRowsShowProgressAndCanBeCancelled)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    for (int i = 0; i < 12; ++i) {
        auto file = oneFont(home.writeFile(QStringLiteral("f/F%1.otf").arg(i, 2, 10, QLatin1Char('0')), "x"),
            QStringLiteral("F%1").arg(i, 2, 10, QLatin1Char('0')));
        ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    }
    QVQuarantineRuns runs(&store, &surgery);
    QVProgress progress;
    runs.progress = &progress;
    int changes = 0;
    QObject::connect(&progress, &QVProgress::changed, [&changes]() { ++changes; });
    runs.checkedRowsArray = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    runs.restoreQuarantinedFiles();
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(progress.label(), QString());

    // Ten rows went back; ten more make twelve again, eleven of them checked.
    EXPECT_EQ(runs.rowArray.size(), 2);
    for (int i = 0; i < 10; ++i) {
        auto file
            = oneFont(home.writeFile(QStringLiteral("g/G%1.otf").arg(i), "x"), QStringLiteral("G%1").arg(i));
        ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
    }
    runs.updateRowArray();
    runs.checkedRowsArray.clear();
    for (int i = 0; i < 11; ++i)
        runs.checkedRowsArray << i;
    // Cancel is asked during the second row, and met as the third begins.
    QObject::connect(&progress, &QVProgress::changed, [&]() {
        if (progress.value() > 2 * 100.0 / 12 - 0.01 && progress.value() < 99)
            runs.cancelRequested = true;
    });
    const auto result = runs.restoreQuarantinedFiles();
    EXPECT_EQ(progress.label(), QStringLiteral("Restoring Font files..."));
    EXPECT_TRUE(result.cancelled);
    EXPECT_EQ(result.handledRows.size(), 2);
    EXPECT_DOUBLE_EQ(progress.value(), 100);
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 10);
}

TEST(QVQuarantineRuns, AFolderChosenAfterAnErrorServesOneRowUnlessAppliedToAll)
{
    for (const bool applyToAll : { false, true }) {
        SCOPED_TRACE(applyToAll);
        QVTestHome home;
        QVQuarantineStore store;
        QVSuitcaseSurgery surgery(&store);
        for (const QString &name : { QStringLiteral("Alpha"), QStringLiteral("Beta") }) {
            auto file = oneFont(home.writeFile("f/" + name + ".otf", name.toUtf8()), name);
            ASSERT_TRUE(store.moveFileToQuarantine(file, file->fontStatusArray.first(), "r").isNull());
        }
        const QString chosen = home.path() + "/chosen";
        QDir().mkpath(chosen);
        QVQuarantineRuns runs(&store, &surgery);
        runs.isHandlingError = true;
        runs.applyToAll = applyToAll;
        runs.checkedRowsArray = { 0, 1 };
        const auto result = runs.restoreQuarantinedFiles(chosen);
        EXPECT_TRUE(result.errors.isEmpty());
        EXPECT_TRUE(QFileInfo::exists(chosen + "/Alpha.otf"));
        EXPECT_EQ(QFileInfo::exists(chosen + "/Beta.otf"), applyToAll);
        EXPECT_EQ(QFileInfo::exists(home.path() + "/f/Beta.otf"), !applyToAll);
    }
}

TEST(QVQuarantineRuns, ARestoreTakesNoPathFromTheIndexOnTrust)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    auto alpha = oneFont(home.writeFile("f/Alpha.otf", "Alpha"), "Alpha");
    ASSERT_TRUE(store.moveFileToQuarantine(alpha, alpha->fontStatusArray.first(), "r").isNull());
    const QString evil = home.writeFile("att/a/evil", "[Desktop Entry]");
    const QString secret = home.writeFile("docs/id_rsa", "secret");
    QFile::link(evil, store.quarantineFolderPath() + "/Link.otf");
    // Records another user wrote into the index.
    auto forged = [&](const QString &name, const QString &original, const QString &font) {
        QVariantMap record = store.quarantinedFilesDataArray.first();
        record.insert("quarantineFileName", name);
        record.insert("originalFilePath", original);
        record.insert("fontNames", QStringList { font });
        store.quarantinedFilesDataArray.append(record);
    };
    forged("../../../../att/a/evil", home.path() + "/.config/autostart/evil.desktop", "Evil");
    forged("../../../../docs/id_rsa", home.path() + "/att/stolen", "Steal");
    forged("Dots.otf", home.path() + "/att/../f/Other.otf", "Dots");
    forged("Link.otf", home.path() + "/.config/autostart/link.desktop", "Link");
    ASSERT_TRUE(store.commitQuarantine().isNull());
    QDir(home.path() + "/f").removeRecursively();

    QVQuarantineStore reloaded;
    QVQuarantineRuns runs(&reloaded, &surgery);
    for (int i = 0; i < runs.rowArray.size(); ++i)
        runs.checkedRowsArray << i;
    const int alphaRow = rowNamed(runs, "Alpha");
    const auto result = runs.restoreQuarantinedFiles();
    EXPECT_EQ(result.handledRows, QList<int> { alphaRow }) << qPrintable(result.errors.join('\n'));
    EXPECT_EQ(result.errors.size(), 4);
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/.config/autostart"));
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/att/stolen"));
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/f/Other.otf"));
    EXPECT_EQ(fileSha256(secret), sha256("secret"));
    EXPECT_EQ(fileSha256(evil), sha256("[Desktop Entry]"));
    EXPECT_EQ(reloaded.quarantinedFilesDataArray.size(), 4);
    // The folder a restore makes again has the user's default permissions.
    EXPECT_EQ(fileSha256(home.path() + "/f/Alpha.otf"), sha256("Alpha"));
    const mode_t mask = ::umask(0);
    ::umask(mask);
    struct stat st;
    ASSERT_EQ(::stat(QFile::encodeName(home.path() + "/f").constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777 & ~mask);
}

TEST(QVQuarantineRuns, LinksInOrInPlaceOfTheQuarantineAreNeverFollowed)
{
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    auto font = oneFont(home.writeFile("f/Truncated.ttf", "font"), "Truncated");
    ASSERT_TRUE(store.moveFileToQuarantine(font, font->fontStatusArray.first(), "r").isNull());
    ASSERT_TRUE(store.commitQuarantine().isNull());
    const QString quarantine = store.quarantineFolderPath();
    const QString victim = home.writeFile("elsewhere/Truncated.ttf", "victim");
    const QString elsewhere = QFileInfo(victim).absolutePath();

    // A companion folder that is a link: the remove is refused, the font stays listed.
    ASSERT_TRUE(QFile::link(elsewhere, quarantine + "/.AppleDouble"));
    QVQuarantineRuns runs(&store, &surgery);
    runs.checkedRowsArray = { 0 };
    auto result = runs.removeQuaratinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty());
    EXPECT_EQ(result.errors.size(), 1);
    EXPECT_TRUE(QFileInfo::exists(quarantine + "/Truncated.ttf"));
    EXPECT_EQ(store.quarantinedFilesDataArray.size(), 1);
    ASSERT_TRUE(QFile::remove(quarantine + "/.AppleDouble"));

    // The quarantine folder itself replaced by a link: nothing goes in or out.
    ASSERT_TRUE(QDir().rename(quarantine, quarantine + ".real"));
    ASSERT_TRUE(QFile::link(elsewhere, quarantine));
    runs.checkedRowsArray = { 0 };
    result = runs.removeQuaratinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty());
    EXPECT_EQ(result.errors.size(), 1);
    runs.checkedRowsArray = { 0 };
    result = runs.restoreQuarantinedFiles();
    EXPECT_TRUE(result.handledRows.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(home.path() + "/f/Truncated.ttf"));
    auto other = oneFont(home.writeFile("f/Other.ttf", "other"), "Other");
    EXPECT_FALSE(store.moveFileToQuarantine(other, other->fontStatusArray.first(), "r").isNull());
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/Other.ttf"));
    store.clearQuarantine();
    EXPECT_EQ(fileSha256(victim), sha256("victim"));
    EXPECT_EQ(QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), QStringList { "Truncated.ttf" });
}
