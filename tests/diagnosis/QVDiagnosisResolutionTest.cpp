#include "diagnosis/QVDiagnosisResolution.h"

#include "engine/QVFontConstants.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "platform/QVFilePair.h"
#include "platform/QVForkStorage.h"
#include "platform/QVJournalFile.h"
#include "platform/QVWriteFault.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"
#include "support/QVPackageLists.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <gtest/gtest.h>

namespace
{

QVStatusPtr statusWith(const QString &path, const QList<int> &classes, const QStringList &defects)
{
    auto status = std::make_shared<QVStatus>();
    status->fontURL = path;
    status->fontName = QFileInfo(path).fileName();
    status->PSname = status->fontName;
    status->fontType = 5;
    for (const int c : classes)
        status->setFontError(c);
    for (const QString &d : defects)
        status->setFontErrorInfo(d);
    return status;
}

QVProblemFontPtr entryFor(
    const QString &path, const QList<int> &classes, const QStringList &defects, int fileType = 1)
{
    auto entry = std::make_shared<QVProblemFont>();
    entry->fontFile = std::make_shared<QVFontFile>(path);
    entry->fontFile->fontFileType = fileType;
    entry->fontStatus = statusWith(path, classes, defects);
    entry->fontFile->fontStatusArray.append(entry->fontStatus);
    entry->diagnosisType = classes.value(0);
    return entry;
}

QByteArray forkWith(quint32 type)
{
    qint16 error = 0;
    auto file = QVResourceFile::parse(QVResourceFile::emptyFork(), &error);
    QVResourceFile::Entry entry;
    entry.type = type;
    entry.id = 128;
    entry.data = QByteArray(16, '\1');
    file->entries.append(entry);
    return file->serialize(&error);
}

quint16 flagsOf(const QString &path)
{
    return QVResouceFork().finderInfoFlags(path);
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

TEST(QVDiagnosisResolutionTexts, ActionsFollowDefectsAndCrossFontProblems)
{
    const QString flags = QString::fromLatin1(QVDefect::IncorrectFileFlags);
    const QString name = QString::fromLatin1(QVDefect::BadFileName);
    const QString table = QString::fromLatin1(QVDefect::BadTableData);
    EXPECT_EQ(QVDiagnosisResolution::getActionTitleForErrors(statusWith("x", { 0 }, { name })), "Repair");
    // Repairable with other structural damage: still repaired in place.
    EXPECT_EQ(
        QVDiagnosisResolution::getActionTitleForErrors(statusWith("x", { 0 }, { table, flags })), "Repair");
    EXPECT_EQ(
        QVDiagnosisResolution::getActionTitleForErrors(statusWith("x", { 0 }, { table })), "Quarantine");
    EXPECT_EQ(QVDiagnosisResolution::getActionTitleForErrors(
                  statusWith("x", { 0, 3 }, { flags, "Duplicate Font" })),
        "Quarantine");
    EXPECT_EQ(QVDiagnosisResolution::getActionTitleForErrors(statusWith("x", { 2 }, { name })), "Quarantine");

    EXPECT_EQ(QVDiagnosisResolution::getDiagnosisDescription(2), "No Matching Postscript Font");
    EXPECT_EQ(QVDiagnosisResolution::getDiagnosisActionReason(1), "Has No Matched Bitmap Font");
    EXPECT_EQ(QVDiagnosisResolution::getDiagnosisActionReason(3), "Duplicate Font");
    EXPECT_EQ(QVDiagnosisResolution::getDiagnosisReasons({ table, flags }),
        "· Bad Table Data\n· Incorrect File Flags");
    EXPECT_EQ(
        QVDiagnosisResolution::getErrormessage("Gone", "Look again."), "Couldn't Fix File: Gone Look again.");
    EXPECT_EQ(QVDiagnosisResolution::getErrormessage("Gone"), "Couldn't Fix File: Gone");
    EXPECT_EQ(QVDiagnosisResolution::getErrormessage(QString()), "Couldn't Fix File");
    EXPECT_EQ(QVDiagnosisResolution::rowTitle(entryFor("x", { 0, 3 }, { table })), "Multiple Issues Found");
    EXPECT_EQ(QVDiagnosisResolution::rowTitle(entryFor("x", { 3 }, { table })), "Found Duplicate Fonts");
}

TEST_F(ResolutionTest, ABadFileNameRepairRenamesTheOutlineFileAndItsSidecar)
{
    const QString folder = home.path() + "/fonts";
    const QString wrong = home.writeFile("fonts/C059 Roman copy", "");
    QProcess t1mac;
    t1mac.start("t1mac",
        { "--appledouble", "-o", folder + "/._C059 Roman copy",
            "/usr/share/fonts/type1/urw-base35/C059-Roman.t1" });
    ASSERT_TRUE(t1mac.waitForFinished(60000));
    ASSERT_EQ(t1mac.exitCode(), 0);
    QByteArray fork;
    QVForkStorage::Place place;
    ASSERT_EQ(QVForkStorage::readResourceFork(wrong, &fork, &place), 0);
    ASSERT_EQ(place, QVForkStorage::Place::AppleDouble);

    auto entry = entryFor(wrong, { 0 }, { QString::fromLatin1(QVDefect::BadFileName) }, 0);
    entry->fontStatus->fontType = 1;
    entry->fontStatus->PS533name = "C059Rom";
    resolution.setProblemFontsArray({ entry });
    const auto outcome = resolution.resolveIssues();
    EXPECT_EQ(outcome.repairedRows, QList<int> { 0 });
    const QString right = folder + "/C059Rom";
    QByteArray moved;
    ASSERT_EQ(QVForkStorage::readResourceFork(right, &moved, &place), 0);
    EXPECT_EQ(moved, fork);
    EXPECT_TRUE(QFileInfo::exists(folder + "/._C059Rom"));
    EXPECT_FALSE(QFileInfo::exists(wrong));
    EXPECT_FALSE(QFileInfo::exists(folder + "/._C059 Roman copy"));
    EXPECT_EQ(entry->fontStatus->fixedErrors, QList<bool> { true });
    EXPECT_EQ(entry->fontFile->URL, right);
    EXPECT_FALSE(resolution.showCloseWarning);

    // A second file cannot take a name in use: the defect stays, with its message.
    const QString other = home.writeFile("fonts/Another", "x");
    auto clash = entryFor(other, { 0 }, { QString::fromLatin1(QVDefect::BadFileName) });
    clash->fontStatus->PS533name = "C059Rom";
    EXPECT_FALSE(resolution.repairFile(clash).isNull());
    EXPECT_EQ(clash->fontStatus->fixedErrors, QList<bool> { false });
    EXPECT_TRUE(clash->fontStatus->fixedErrorMessages.first().startsWith("Couldn't Fix File: "));
    EXPECT_TRUE(QFileInfo::exists(other));
}

TEST_F(ResolutionTest, AnIncorrectFlagsRepairClearsInvisibleAndMatchesHasBundle)
{
    QByteArray info(32, '\0');
    info.replace(0, 8, "FFILDMOV");
    info[8] = char(0x40 | 0x20); // invisible and has-bundle
    const QString noBundle = home.writeFile("fonts/Suitcase", "");
    ASSERT_EQ(QVForkStorage::writeResourceFork(
                  noBundle, forkWith(qvFourCC("FOND")), QVForkStorage::Place::AppleDouble),
        0);
    ASSERT_EQ(QVForkStorage::writeFinderInfo(noBundle, info), 0);
    info[8] = char(0x40);
    const QString withBundle = home.writeFile("fonts/Bundled", "");
    ASSERT_EQ(QVForkStorage::writeResourceFork(
                  withBundle, forkWith(qvFourCC("BNDL")), QVForkStorage::Place::ExtendedAttribute),
        0);
    ASSERT_EQ(QVForkStorage::writeFinderInfo(withBundle, info), 0);

    for (const QString &path : { noBundle, withBundle }) {
        auto entry = entryFor(path, { 0 }, { QString::fromLatin1(QVDefect::IncorrectFileFlags) }, 0);
        EXPECT_TRUE(resolution.repairFile(entry).isNull());
        EXPECT_EQ(entry->fontStatus->fixedErrors, QList<bool> { true });
    }
    EXPECT_EQ(flagsOf(noBundle), 0);
    EXPECT_EQ(flagsOf(withBundle), 0x2000);
    // The type and creator are left as they were.
    QByteArray after;
    QVForkStorage::readFinderInfo(noBundle, &after);
    EXPECT_EQ(after.left(8), QByteArray("FFILDMOV"));

    // A file that is gone: not fixed, with the message at the defect's place.
    auto gone = entryFor(home.path() + "/fonts/Gone", { 0 },
        { QString::fromLatin1(QVDefect::BadTableData), QString::fromLatin1(QVDefect::IncorrectFileFlags) },
        0);
    gone->fontStatus->setFontError(3);
    EXPECT_FALSE(resolution.fixIncorrectFileFlags(gone->fontStatus).isNull());
    EXPECT_EQ(gone->fontStatus->fixedErrors, (QList<bool> { false, false }));
    EXPECT_EQ(gone->fontStatus->fixedErrorMessages.at(1), "Couldn't Fix File: File not found");
}

TEST_F(ResolutionTest, ADuplicateGroupKeepsItsMemberAndQuarantinesTheOthers)
{
    const QString kept = home.writeFile("a/Foo.otf", "kept");
    const QString copyA = home.writeFile("b/Foo.otf", "copy a");
    const QString copyB = home.writeFile("c/Foo.otf", "copy b");
    auto entry = entryFor(kept, { 3 }, { QString::fromLatin1(QVDefect::FoundDuplicateFonts) });
    for (const QString &path : { copyA, copyB }) {
        auto member = entryFor(path, { 3 }, { QString::fromLatin1(QVDefect::DuplicateFont) });
        entry->duplicatesArray.append({ member->fontFile, member->fontStatus });
    }
    entry->hasDuplicatesArray = true;
    resolution.setProblemFontsArray({ entry });
    const auto outcome = resolution.resolveIssues();
    EXPECT_EQ(outcome.quarantinedRows, QList<int> { 0 });
    EXPECT_TRUE(QFileInfo::exists(kept));
    EXPECT_FALSE(QFileInfo::exists(copyA));
    EXPECT_FALSE(QFileInfo::exists(copyB));
    EXPECT_EQ(store.qv_total_quarantined, 2);
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

    const QString table = QString::fromLatin1(QVDefect::BadTableData);
    const QString ours = home.writeFile("user/Broken.otf", "broken");
    auto duplicate = entryFor(home.writeFile("user/Foo.otf", "kept"), { 3 },
        { QString::fromLatin1(QVDefect::FoundDuplicateFonts) });
    auto member = entryFor(copy, { 3 }, { QString::fromLatin1(QVDefect::DuplicateFont) });
    duplicate->duplicatesArray.append({ member->fontFile, member->fontStatus });
    auto rename = entryFor(misnamed, { 0 }, { QString::fromLatin1(QVDefect::BadFileName) });
    rename->fontStatus->PS533name = "Renamed";
    auto flags = entryFor(hidden, { 0 }, { QString::fromLatin1(QVDefect::IncorrectFileFlags) });
    const QList<QVProblemFontPtr> entries { entryFor(damaged, { 0 }, { table }),
        entryFor(ours, { 0 }, { table }), duplicate, rename, flags };
    resolution.setProblemFontsArray(entries);
    resolution.resolveIssues();

    // Only the user's own damaged font moved.
    EXPECT_FALSE(QFileInfo::exists(ours));
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 1);
    for (const QString &path : { damaged, copy, misnamed, hidden })
        EXPECT_TRUE(QFileInfo(path).isFile()) << qPrintable(path);
    EXPECT_TRUE(QVForkStorage::isHidden(hidden));
    const QString refusal = "belongs to an installed package";
    EXPECT_TRUE(entries.at(0)->fontStatus->movedToQuarantineErrorInfo.contains(refusal));
    EXPECT_TRUE(member->fontStatus->movedToQuarantineErrorInfo.contains(refusal));
    EXPECT_TRUE(rename->fontStatus->fixedErrorMessages.value(0).contains(refusal));
    EXPECT_TRUE(flags->fontStatus->fixedErrorMessages.value(0).contains(refusal));
}

TEST_F(ResolutionTest, SweepsRunInCheckedOrderAndLeaveUncheckedRowsAlone)
{
    QList<QVProblemFontPtr> entries;
    for (const char *name : { "A.otf", "B.otf", "C.otf" })
        entries << entryFor(home.writeFile(QString("f/") + name, name), { 0 },
            { QString::fromLatin1(QVDefect::BadTableData) });
    auto repairable = entryFor(
        home.writeFile("f/D.otf", "d"), { 0 }, { QString::fromLatin1(QVDefect::IncorrectFileFlags) });
    entries << repairable;
    resolution.setProblemFontsArray(entries);
    EXPECT_EQ(resolution.checkedRowsArray, (QList<int> { 0, 1, 2, 3 }));
    resolution.setRowChecked(1, false);
    resolution.setRowChecked(0, false);
    resolution.setRowChecked(0, true);
    const auto outcome = resolution.resolveIssues();
    EXPECT_EQ(outcome.repairedRows, QList<int> { 3 });
    EXPECT_EQ(outcome.quarantinedRows, (QList<int> { 2, 0 }));
    QStringList names;
    for (const QVariantMap &record : std::as_const(store.quarantinedFilesDataArray))
        names << record.value("quarantineFileName").toString();
    EXPECT_EQ(names, (QStringList { "C.otf", "A.otf" }));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/B.otf"));
    EXPECT_TRUE(QFileInfo::exists(home.path() + "/f/D.otf"));
    EXPECT_TRUE(resolution.checkedRowsArray.isEmpty());
    EXPECT_FALSE(resolution.canResolve());
}

TEST_F(ResolutionTest, CancellingKeepsWhatWasDoneAndTheRemainingRows)
{
    QList<QVProblemFontPtr> entries;
    for (int i = 0; i < 11; ++i)
        entries << entryFor(home.writeFile(QStringLiteral("f/F%1.otf").arg(i), "x"), { 0 },
            { QString::fromLatin1(QVDefect::BadTableData) });
    resolution.setProblemFontsArray(entries);
    QVProgress progress;
    resolution.progress = &progress;
    int steps = 0;
    QObject::connect(&progress, &QVProgress::changed, [&]() {
        // The step is 100 / (2 x 11); cancel once three quarantine rows began.
        if (progress.value() > 13.9 * 100.0 / 22 && progress.value() < 99 && ++steps)
            resolution.cancelRequested = true;
    });
    const auto outcome = resolution.resolveIssues();
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_TRUE(resolution.didCancel);
    EXPECT_TRUE(resolution.showCloseWarning);
    EXPECT_EQ(outcome.quarantinedRows.size(), 3);
    EXPECT_EQ(outcome.removedRows, (QList<int> { 0, 1, 2 }));
    EXPECT_EQ(resolution.rowArray.size(), 8);
    EXPECT_EQ(resolution.rowArray.first()->row, 0);
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 3);
    EXPECT_EQ(progress.label(), "Resolving Font Issues...");
    EXPECT_GT(steps, 0);
}

TEST_F(ResolutionTest, EndingTheDiagnosisAsksForTheReportAndAnswersTheHelper)
{
    QVSettings settings;
    settings.registerUserPreferences();
    settings.setAutomaticallySaveReports(true);
    settings.setOrganizeFonts(false);
    settings.setLastScanType("AutoScan");
    const QDateTime when(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC);
    settings.setLastAutoScanDate(when);
    int reports = 0, texts = 0;
    QString response;
    QVariantMap payload;
    QObject::connect(&resolution, &QVDiagnosisResolution::reportRequested, [&]() { ++reports; });
    QObject::connect(&resolution, &QVDiagnosisResolution::scanViewTextChanged, [&]() { ++texts; });
    QObject::connect(&resolution, &QVDiagnosisResolution::helperResponse,
        [&](const QString &name, const QVariantMap &info) {
            response = name;
            payload = info;
        });
    QStringList posted;
    // The receiver ends with the test, and the connection with it.
    QObject receiver;
    QObject::connect(QVNotificationCenter::defaultCenter(), &QVNotificationCenter::kEndDiagnosisAction,
        &receiver, [&posted](const QVariantMap &) { posted << QStringLiteral("kEndDiagnosisAction"); });
    resolution.endDiagnosis();
    QCoreApplication::processEvents();
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(texts, 0);
    EXPECT_EQ(response, "kResponse_ScanFonts_Complete");
    EXPECT_EQ(payload.value("kPayloadOptions").toDateTime(), when);
    EXPECT_EQ(posted, QStringList { "kEndDiagnosisAction" });

    settings.setOrganizeFonts(true);
    settings.setLastScanType("Manual Scan");
    response.clear();
    resolution.endDiagnosis();
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(texts, 1);
    EXPECT_TRUE(response.isEmpty());
}

TEST_F(ResolutionTest, AMoveIsRecordedFirstAndARecordThatFailsStopsTheRun)
{
    QList<QVProblemFontPtr> entries;
    for (int i = 0; i < 3; ++i)
        entries << entryFor(home.writeFile(QStringLiteral("f/F%1.otf").arg(i), "x"), { 0 },
            { QString::fromLatin1(QVDefect::BadTableData) });
    resolution.setProblemFontsArray(entries);
    // One row's moves recorded at a time. The journal already holds the
    // first move when it happens.
    resolution.planBatch = 1;
    int journalled = -1;
    store.movedHook
        = [&](const QString &) { journalled = int(QVJournalFile::readLines(store.journalPath()).size()); };
    // Moves within one file system write nothing: the second write is the
    // second font's record, and the disk is full from there on.
    QVWriteFault::failWrite(2);
    const auto outcome = resolution.resolveIssues();
    QVWriteFault::clear();
    EXPECT_EQ(journalled, 1);
    EXPECT_TRUE(outcome.error.contains("No space left on device")) << qPrintable(outcome.error);
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_TRUE(entries.at(0)->fontStatus->movedToQuarantine);
    EXPECT_TRUE(QFileInfo::exists(entries.at(1)->fontFile->URL));
    EXPECT_TRUE(QFileInfo::exists(entries.at(2)->fontFile->URL));
    EXPECT_TRUE(entries.at(2)->fontStatus->movedToQuarantineErrorInfo.isEmpty()); // never tried
    EXPECT_EQ(store.qv_total_quarantined, 1);
    // The index could not be written either; the journal keeps the move.
    EXPECT_EQ(QVQuarantineStore().quarantinedFilesDataArray.size(), 1);
}
