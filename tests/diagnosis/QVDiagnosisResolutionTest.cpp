// The resolution on files: each repair, duplicate groups, the sweeps, and fonts it must not touch.
#include "diagnosis/QVDiagnosisResolution.h"

#include "QVDiagnosisFixtures.h"
#include "engine/QVFontConstants.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "platform/QVForkStorage.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVFixtures.h"
#include "support/QVPackageLists.h"
#include "support/QVTestHome.h"

#include <QFileInfo>
#include <gtest/gtest.h>

namespace
{

const QString kTable = QString::fromLatin1(QVDefect::BadTableData);
const QString kFlags = QString::fromLatin1(QVDefect::IncorrectFileFlags);
const QString kName = QString::fromLatin1(QVDefect::BadFileName);
const QString kFound = QString::fromLatin1(QVDefect::FoundDuplicateFonts);
const QString kDuplicate = QString::fromLatin1(QVDefect::DuplicateFont);

QVProblemFontPtr entryFor(
    const QString &path, const QList<int> &classes, const QStringList &defects, int fileType = 1)
{
    auto entry = std::make_shared<QVProblemFont>();
    entry->fontFile = std::make_shared<QVFontFile>(path);
    entry->fontFile->fontFileType = fileType;
    entry->fontStatus = qvtest::makeStatus(QVFontType::OpenType, QFileInfo(path).fileName());
    entry->fontStatus->fontURL = path;
    for (const int c : classes)
        entry->fontStatus->setFontError(c);
    for (const QString &d : defects)
        entry->fontStatus->setFontErrorInfo(d);
    entry->fontFile->fontStatusArray.append(entry->fontStatus);
    entry->diagnosisType = classes.value(0);
    return entry;
}

// Files whose only problem is their damage, to be quarantined.
QList<QVProblemFontPtr> damagedFonts(const QVTestHome &home, int count)
{
    QList<QVProblemFontPtr> entries;
    for (int i = 0; i < count; ++i)
        entries << entryFor(home.writeFile(QStringLiteral("f/F%1.otf").arg(i), "x"), { 0 }, { kTable });
    return entries;
}

class ResolutionTest : public ::testing::Test
{
protected:
    QVTestHome home;
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery { &store };
    QVDiagnosisResolution resolution { &store, &surgery };
};

} // namespace

TEST(QVDiagnosisResolutionActions, RepairableDefectsAreRepairedUnlessAnotherFontIsInvolved)
{
    struct Case {
        QList<int> classes;
        QStringList defects;
        const char *action;
    };
    const Case cases[] = { { { 0 }, { kName }, "Repair" },
        // Repairable with other structural damage: still repaired in place.
        { { 0 }, { kTable, kFlags }, "Repair" }, { { 0 }, { kTable }, "Quarantine" },
        { { 0, 3 }, { kFlags, "Duplicate Font" }, "Quarantine" }, { { 2 }, { kName }, "Quarantine" } };
    for (const Case &c : cases)
        EXPECT_EQ(
            QVDiagnosisResolution::getActionTitleForErrors(entryFor("x", c.classes, c.defects)->fontStatus),
            c.action)
            << qPrintable(c.defects.join(", "));
}

TEST_F(ResolutionTest, ABadFileNameRepairRenamesTheOutlineFileAndItsSidecar)
{
    const QString folder = home.path() + "/fonts";
    const QString wrong
        = QVFixtures::makeLwfn(folder, "C059 Roman copy", "/usr/share/fonts/type1/urw-base35/C059-Roman.t1");
    ASSERT_FALSE(wrong.isEmpty()) << "t1mac failed";
    const QString before = QVFixtures::forkHashes(wrong);

    auto entry = entryFor(wrong, { 0 }, { kName }, 0);
    entry->fontStatus->fontType = QVFontType::PostScriptType1;
    entry->fontStatus->PS533name = "C059Rom";
    resolution.setProblemFontsArray({ entry });
    EXPECT_EQ(resolution.resolveIssues().repairedRows, QList<int> { 0 });
    const QString right = folder + "/C059Rom";
    EXPECT_EQ(QVFixtures::forkHashes(right), before);
    EXPECT_TRUE(QFileInfo::exists(folder + "/._C059Rom"));
    EXPECT_FALSE(QFileInfo::exists(wrong) || QFileInfo::exists(folder + "/._C059 Roman copy"));
    EXPECT_EQ(entry->fontStatus->fixedErrors, QList<bool> { true });
    EXPECT_EQ(entry->fontFile->URL, right);

    // A second file cannot take a name in use: the defect stays, with its message.
    const QString other = home.writeFile("fonts/Another", "x");
    auto clash = entryFor(other, { 0 }, { kName });
    clash->fontStatus->PS533name = "C059Rom";
    EXPECT_FALSE(resolution.repairFile(clash).isNull());
    EXPECT_EQ(clash->fontStatus->fixedErrors, QList<bool> { false });
    EXPECT_TRUE(clash->fontStatus->fixedErrorMessages.first().startsWith("Couldn't Fix File: "));
    EXPECT_TRUE(QFileInfo::exists(other));
    EXPECT_EQ(QVFixtures::forkHashes(right), before);
}

TEST_F(ResolutionTest, AnIncorrectFlagsRepairClearsInvisibleAndMatchesHasBundle)
{
    // Invisible: a ufond suitcase claiming a bundle it lacks, a file with one.
    const QString noBundle = home.path() + "/fonts/Suitcase";
    ASSERT_TRUE(QVFixtures::makeSuitcase(noBundle, QVFixtures::dejaVuSerifFork(home.path() + "/work")));
    ASSERT_TRUE(QVFixtures::setFinderInfo(noBundle, "FFILDMOV", 0x6000));
    qint16 error = 0;
    auto bundled = QVResourceFile::parse(QVResourceFile::emptyFork(), &error);
    QVResourceFile::Entry bundle;
    bundle.type = qvFourCC("BNDL");
    bundle.data = QByteArray(16, '\1');
    bundled->entries.append(bundle);
    const QString withBundle = home.writeFile("fonts/Bundled", "");
    ASSERT_EQ(QVForkStorage::writeResourceFork(
                  withBundle, bundled->serialize(&error), QVForkStorage::Place::ExtendedAttribute),
        0);
    ASSERT_TRUE(
        QVFixtures::setFinderInfo(withBundle, "FFILDMOV", 0x4000, QVForkStorage::Place::ExtendedAttribute));
    const QString fork = QVFixtures::forkHashes(noBundle).section('\n', 1, 1);

    for (const auto &[path, flags] : { std::pair { noBundle, 0 }, std::pair { withBundle, 0x2000 } }) {
        auto entry = entryFor(path, { 0 }, { kFlags }, 0);
        EXPECT_TRUE(resolution.repairFile(entry).isNull());
        EXPECT_EQ(entry->fontStatus->fixedErrors, QList<bool> { true });
        EXPECT_EQ(QVResouceFork().finderInfoFlags(path), flags);
    }
    // The type, creator and fork are left as they were.
    QByteArray after;
    QVForkStorage::readFinderInfo(noBundle, &after);
    EXPECT_EQ(after.left(8), QByteArray("FFILDMOV"));
    EXPECT_EQ(QVFixtures::forkHashes(noBundle).section('\n', 1, 1), fork);

    // A file that is gone: not fixed, with the message at the defect's place.
    auto gone = entryFor(home.path() + "/fonts/Gone", { 0, 3 }, { kTable, kFlags }, 0);
    EXPECT_FALSE(resolution.fixIncorrectFileFlags(gone->fontStatus).isNull());
    EXPECT_EQ(gone->fontStatus->fixedErrors, (QList<bool> { false, false }));
    EXPECT_EQ(gone->fontStatus->fixedErrorMessages.at(1), "Couldn't Fix File: File not found");
}

TEST_F(ResolutionTest, ADuplicateGroupKeepsItsMemberAndQuarantinesTheOthers)
{
    const QString kept = home.writeFile("a/Foo.otf", "kept");
    const QString copyA = home.writeFile("b/Foo.otf", "copy a");
    const QString copyB = home.writeFile("c/Foo.otf", "copy b");
    auto entry = entryFor(kept, { 3 }, { kFound });
    for (const QString &path : { copyA, copyB }) {
        auto member = entryFor(path, { 3 }, { kDuplicate });
        entry->duplicatesArray.append({ member->fontFile, member->fontStatus });
    }
    entry->hasDuplicatesArray = true;
    resolution.setProblemFontsArray({ entry });
    EXPECT_EQ(resolution.resolveIssues().quarantinedRows, QList<int> { 0 });
    EXPECT_TRUE(QFileInfo::exists(kept));
    EXPECT_FALSE(QFileInfo::exists(copyA) || QFileInfo::exists(copyB));
    // Committed: a new store reads both records, with the member's own reason.
    QVQuarantineStore reread;
    ASSERT_EQ(reread.quarantinedFilesDataArray.size(), 2);
    EXPECT_EQ(reread.quarantinedFilesDataArray.at(1).value("quarantineFileName").toString(), "Foo 1.otf");
    EXPECT_EQ(reread.quarantinedFilesDataArray.at(0).value("reason").toString(), "· Duplicate Font");
}

TEST_F(ResolutionTest, PackageFilesAreReportedButNeverMovedRenamedOrRewritten)
{
    const QString damaged = home.writeFile("system/Broken.otf", "broken");
    const QString copy = home.writeFile("system/Foo.otf", "copy");
    const QString misnamed = home.writeFile("system/Misnamed", "outline");
    const QString hidden = home.writeFile("system/Hidden.otf", "hidden");
    ASSERT_EQ(QVForkStorage::setHidden(hidden, true), 0);
    // The package manager's list, as dpkg keeps it, names the files above.
    home.writeFile(
        "dpkg/fonts-test.list", QStringList { "/.", damaged, copy, misnamed, hidden }.join('\n').toUtf8());
    const QVPackageLists lists(home.path() + "/dpkg");

    const QString ours = home.writeFile("user/Broken.otf", "broken");
    auto duplicate = entryFor(home.writeFile("user/Foo.otf", "kept"), { 3 }, { kFound });
    auto member = entryFor(copy, { 3 }, { kDuplicate });
    duplicate->duplicatesArray.append({ member->fontFile, member->fontStatus });
    auto rename = entryFor(misnamed, { 0 }, { kName });
    rename->fontStatus->PS533name = "Renamed";
    auto flags = entryFor(hidden, { 0 }, { kFlags });
    const QList<QVProblemFontPtr> entries { entryFor(damaged, { 0 }, { kTable }),
        entryFor(ours, { 0 }, { kTable }), duplicate, rename, flags };
    resolution.setProblemFontsArray(entries);
    resolution.resolveIssues();

    // Only the user's own damaged font moved.
    EXPECT_FALSE(QFileInfo::exists(ours));
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 1);
    for (const QString &path : { damaged, copy, misnamed, hidden })
        EXPECT_TRUE(QFileInfo(path).isFile()) << qPrintable(path);
    EXPECT_TRUE(QVForkStorage::isHidden(hidden));
    for (const QString &error : { entries.at(0)->fontStatus->movedToQuarantineErrorInfo,
             member->fontStatus->movedToQuarantineErrorInfo, rename->fontStatus->fixedErrorMessages.value(0),
             flags->fontStatus->fixedErrorMessages.value(0) })
        EXPECT_TRUE(error.contains("belongs to an installed package")) << qPrintable(error);
}

TEST_F(ResolutionTest, SweepsRunInCheckedOrderAndLeaveUncheckedRowsAlone)
{
    QList<QVProblemFontPtr> entries = damagedFonts(home, 3);
    entries << entryFor(home.writeFile("f/D.otf", "d"), { 0 }, { kFlags });
    resolution.setProblemFontsArray(entries);
    resolution.setRowChecked(1, false);
    resolution.setRowChecked(0, false);
    resolution.setRowChecked(0, true);
    const auto outcome = resolution.resolveIssues();
    EXPECT_EQ(outcome.repairedRows, QList<int> { 3 });
    EXPECT_EQ(outcome.quarantinedRows, (QList<int> { 2, 0 }));
    QStringList names;
    for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray))
        names << record.value("quarantineFileName").toString();
    EXPECT_EQ(names, (QStringList { "F2.otf", "F0.otf" }));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/F1.otf") && QFileInfo::exists(home.path() + "/f/D.otf"));
    EXPECT_FALSE(resolution.canResolve());
}

TEST_F(ResolutionTest, AStopBetweenTheRowCheckAndTheMoveLeavesTheRowListedAndItsFontInPlace)
{
    resolution.setProblemFontsArray(damagedFonts(home, 3));
    // Three checks before the repair sweep's rows and one before the first
    // quarantine row pass; the stop arrives while that row is in hand.
    int calls = 0;
    resolution.stopRequested = [&calls] { return ++calls > 4; };
    QList<int> resolvedRows;
    QObject::connect(&resolution, &QVDiagnosisResolution::rowResolved,
        [&resolvedRows](int row, const QString &) { resolvedRows << row; });
    const auto outcome = resolution.resolveIssues();
    EXPECT_GT(calls, 4);
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_TRUE(outcome.quarantinedRows.isEmpty());
    EXPECT_TRUE(resolvedRows.isEmpty());
    EXPECT_EQ(resolution.rowArray.size(), 3);
    EXPECT_TRUE(store.quarantinedFilesDataArray.isEmpty());
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(QFileInfo::exists(home.path() + QStringLiteral("/f/F%1.otf").arg(i))) << i;
}

TEST_F(ResolutionTest, AFontWhoseOnlyFindingIsAChecksumStartsUncheckedAndStaysPut)
{
    const QString checksum = QStringLiteral("Table Checksum Mismatch (kern)");
    QList<QVProblemFontPtr> entries = damagedFonts(home, 1);
    entries << entryFor(home.writeFile("f/Sum.otf", "s"), { 0 }, { checksum })
            << entryFor(home.writeFile("f/Both.otf", "b"), { 0 }, { checksum, "Damaged Table Data (glyf)" });
    resolution.setProblemFontsArray(entries);
    EXPECT_EQ(resolution.checkedRowsArray, (QList<int> { 0, 2 }));
    EXPECT_EQ(resolution.resolveIssues().quarantinedRows, (QList<int> { 0, 2 }));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/Sum.otf"));
}
