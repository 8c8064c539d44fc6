// The diagnosis run as the view drives it: passes on their queues, the
// completion closure, the finishing sequence, cancellation, and the file
// structure pass.
#include "QVDiagnosisFixtures.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "settings/QVHelperCommunications.h"
#include "settings/QVNotificationCenter.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "support/QVHelperListener.h"
#include "support/QVTestHome.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace qvtest;

namespace
{

// What the view state asked of a window.
struct QVViewRecorder {
    bool interfaceEnabled = false;
    int scanViewUpdates = 0;
    int terminations = 0;
    QList<QStringList> alerts;
    QList<QList<QVProblemFontPtr>> presented;
    QStringList responses;
    QStringList responseRecipients;
    QList<QVariantMap> responseOptions;

    void listen(QVDiagnosisViewState *view)
    {
        QObject::connect(
            view, &QVDiagnosisViewState::userInterfaceEnabled, [this](bool on) { interfaceEnabled = on; });
        QObject::connect(view, &QVDiagnosisViewState::scanViewTextChanged, [this] { ++scanViewUpdates; });
        QObject::connect(view, &QVDiagnosisViewState::terminateRequested, [this] { ++terminations; });
        QObject::connect(view, &QVDiagnosisViewState::alertRequested,
            [this](const QString &message, const QString &info, const QStringList &buttons,
                const QString &context) {
                alerts << QStringList { message, info, buttons.join(QLatin1Char('|')), context };
            });
        QObject::connect(view, &QVDiagnosisViewState::actionWindowRequested,
            [this](const QList<QVProblemFontPtr> &fonts) { presented << fonts; });
        QObject::connect(view, &QVDiagnosisViewState::helperResponse,
            [this](const QString &response, const QString &recipient, const QVariantMap &options) {
                responses << response;
                responseRecipients << recipient;
                responseOptions << options;
            });
    }
};

class QVDiagnosisRunTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // Notifications still queued by an earlier test are not this one's.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QVSettings().registerUserPreferences();
        diagnosis = std::make_unique<QVDiagnosis>(&library.dataMgr);
        view = std::make_unique<QVDiagnosisViewState>(diagnosis.get());
        view->setPacingEnabled(false);
        view->setFinishDelay(0);
        delegate.listen(view.get());
        diagnosis->settings()->setLastScanType(QStringLiteral("Manual Scan"));
        QVNotificationCenter *center = QVNotificationCenter::defaultCenter();
        QObject::connect(center, &QVNotificationCenter::kEndDiagnosis, &receiver,
            [this] { notifications << QStringLiteral("kEndDiagnosis"); });
        QObject::connect(center, &QVNotificationCenter::kEndDiagnosisAction, &receiver,
            [this] { notifications << QStringLiteral("kEndDiagnosisAction"); });
    }

    QString folder(const QString &name) const { return home.path() + QLatin1Char('/') + name; }

    // A small library with one problem of each kind.
    void addOneProblemOfEachKind()
    {
        const QString dejaVu = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
        library.addFile(copyFont(dejaVu, folder(QStringLiteral("A"))), 1, QString(""),
            { makeStatus(3, QStringLiteral("DejaVuSans"), 0, QStringLiteral("Plain"), 4) });
        library.addFile(copyFont(dejaVu, folder(QStringLiteral("B"))), 1, QString(""),
            { makeStatus(3, QStringLiteral("DejaVuSans"), 0, QStringLiteral("Plain"), 4) });
        addOutline(library, makeOutlineFile(folder(QStringLiteral("Outlines"))));
        addSuitcase(library, makeBitmapSuitcase(folder(QStringLiteral("Screen")), { 12 }), { 12 });
        library.addFile(copyFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"),
                            folder(QStringLiteral("Damaged"))),
            1, QString(""),
            { withDefect(makeStatus(3, QStringLiteral("DejaVuSans-Bold"), 0, QStringLiteral("Bold")),
                QVDefect::BadTableData) });
    }

    bool waitForFinish(QSignalSpy &finished, int timeout = 20000)
    {
        return QTest::qWaitFor(
            [&] { return !finished.isEmpty() && diagnosis->passesInFlight() == 0; }, timeout);
    }

    QVTestHome home;
    QVFontLibrary library;
    QVViewRecorder delegate;
    std::unique_ptr<QVDiagnosis> diagnosis;
    std::unique_ptr<QVDiagnosisViewState> view;
    QObject receiver;
    QStringList notifications;
};

} // namespace

TEST_F(QVDiagnosisRunTest, NoFontFilesShowsTheFontsNotFoundSheetAndRunsNoPass)
{
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);
    view->diagnoseFonts();

    ASSERT_EQ(delegate.alerts.size(), 1);
    EXPECT_EQ(delegate.alerts[0],
        (QStringList { "Fonts Not Found", "No font files were found or scanned in the selected folders.",
            "OK", "diagnoseFonts" }));
    EXPECT_TRUE(delegate.interfaceEnabled);
    EXPECT_EQ(view->cancelButtonTitle(), QStringLiteral("Done"));
    EXPECT_TRUE(view->isCancelButtonEnabled());
    EXPECT_FALSE(view->isDiagnosingFonts());
    EXPECT_TRUE(view->isShowingDoneButton());
    EXPECT_EQ(diagnosis->passesInFlight(), 0);
    QTest::qWait(50);
    EXPECT_TRUE(finished.isEmpty());
}

TEST_F(QVDiagnosisRunTest, RunWithProblemsFinishesWithTheResolutionWindow)
{
    addOneProblemOfEachKind();
    diagnosis->settings()->setMatchVersionNumbers(true);
    diagnosis->settings()->setAllStylesRequirePostScript(true);
    diagnosis->settings()->setValue(QStringLiteral("lastReportName"), QStringLiteral("Old report"));
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);

    view->diagnoseFonts();
    EXPECT_TRUE(view->isDiagnosingFonts());
    EXPECT_EQ(view->cancelButtonTitle(), QStringLiteral("Cancel"));
    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("Diagnosing Fonts..."));
    ASSERT_TRUE(waitForFinish(finished));
    QTest::qWait(20);

    EXPECT_EQ(finished.size(), 1);
    EXPECT_EQ(diagnosis->fileStructureProblemCount(), 1);
    EXPECT_EQ(diagnosis->missingBitmapProblemCount(), 1);
    EXPECT_EQ(diagnosis->missingPSProblemCount(), 1);
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 1);
    // The fonts listed, each once: both copies of the duplicate count.
    EXPECT_EQ(diagnosis->totalFontProblems(), 5);
    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("Font Problems Were Found"));
    EXPECT_EQ(diagnosis->overallProgress()->value(), 0.0);
    EXPECT_EQ(view->iconName(), QStringLiteral("mac-icon-caution"));
    EXPECT_TRUE(view->isReportButtonEnabled());
    EXPECT_FALSE(view->isDiagnosingFonts());
    EXPECT_TRUE(view->isShowingDoneButton());
    EXPECT_EQ(view->cancelButtonTitle(), QStringLiteral("Done"));
    for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass)
        EXPECT_EQ(
            diagnosis->progressForPass(pass)->label(), diagnosis->titleForProgress(pass, " - Complete ✓"));

    // The settings record the outcome and forget the previous report.
    QVSettings settings;
    EXPECT_EQ(settings.lastScanProblemCount(), QStringLiteral("5"));
    EXPECT_EQ(settings.lastScanTotalCount(), QStringLiteral("5"));
    EXPECT_TRUE(settings.lastScanDate().isValid());
    EXPECT_FALSE(settings.lastAutoScanDate().isValid());
    EXPECT_FALSE(settings.hasStoredValue(QStringLiteral("lastReportName")));

    EXPECT_TRUE(notifications.contains(QStringLiteral("kEndDiagnosis")));
    EXPECT_FALSE(notifications.contains(QStringLiteral("kEndDiagnosisAction")));
    EXPECT_TRUE(delegate.responses.isEmpty());
    EXPECT_TRUE(library.dataMgr.foundProblemFonts);

    // Sorted for the window by diagnosis type, highest first.
    ASSERT_EQ(delegate.presented.size(), 1);
    QList<int> types;
    for (const QVProblemFontPtr &entry : delegate.presented[0])
        types << entry->diagnosisType;
    EXPECT_EQ(types, (QList<int> { 3, 2, 1, 0 }));
}

TEST_F(QVDiagnosisRunTest, CleanAutoScanAnswersTheHelperAndQuitsWhenAsked)
{
    library.addFile(copyFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"), folder("A")),
        1, QString(""), { makeStatus(3, QStringLiteral("DejaVuSans")) });
    diagnosis->settings()->setLastScanType(QStringLiteral("AutoScan"));
    diagnosis->settings()->setAutoScanQuitWhenDone(true);
    view->setIsAutoScanLaunch(true);
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);

    view->diagnoseFonts();
    ASSERT_TRUE(waitForFinish(finished));

    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("No Problems Found!"));
    EXPECT_EQ(view->iconName(), QStringLiteral("autoscan-ok"));
    EXPECT_FALSE(view->isReportButtonEnabled());
    EXPECT_EQ(delegate.scanViewUpdates, 1);
    EXPECT_TRUE(delegate.presented.isEmpty());
    EXPECT_FALSE(view->isAutoScanLaunch());
    QTest::qWait(20);
    EXPECT_TRUE(notifications.contains(QStringLiteral("kEndDiagnosis")));
    EXPECT_TRUE(notifications.contains(QStringLiteral("kEndDiagnosisAction")));

    QVSettings settings;
    ASSERT_TRUE(settings.lastAutoScanDate().isValid());
    EXPECT_EQ(settings.lastScanProblemCount(), QStringLiteral("0"));
    ASSERT_EQ(delegate.responses, QStringList { "kResponse_ScanFonts_Complete" });
    EXPECT_TRUE(delegate.responseRecipients[0].isEmpty());
    EXPECT_EQ(delegate.responseOptions[0].value("kPayloadOptions").toDateTime(), settings.lastAutoScanDate());

    // The application quits two seconds later.
    EXPECT_EQ(delegate.terminations, 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.terminations == 1; }, 4000));
}

namespace
{
class QVResponseRecorder final
{
public:
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        responses << response;
        senders << sender;
        lastOptions = options;
    }
    QStringList responses;
    QStringList senders;
    QVariantMap lastOptions;
};
} // namespace

TEST_F(QVDiagnosisRunTest, AutoScanAnswerGoesToTheHandlerOverTheHelperChannel)
{
    if (!QDBusConnection::sessionBus().isConnected())
        GTEST_SKIP() << "no session bus: run under dbus-run-session";
    QVHelperCommunications application;
    QVHelperCommunications handler(QString::fromLatin1(QVSettings::kHandlerBundleIdentifier));
    QVResponseRecorder recorder;
    qvtest::listen(handler, recorder);
    view->setHelperCommunications(&application);

    library.addFile(copyFont(QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"), folder("A")),
        1, QString(""), { makeStatus(3, QStringLiteral("DejaVuSans")) });
    diagnosis->settings()->setLastScanType(QStringLiteral("AutoScan"));
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);
    view->diagnoseFonts();
    ASSERT_TRUE(waitForFinish(finished));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !recorder.responses.isEmpty(); }, 5000));

    EXPECT_EQ(recorder.responses, QStringList { "kResponse_ScanFonts_Complete" });
    EXPECT_EQ(recorder.senders, QStringList { application.ownIdentifier() });
    EXPECT_EQ(recorder.lastOptions.value("kPayloadOptions").toDateTime().toSecsSinceEpoch(),
        QVSettings().lastAutoScanDate().toSecsSinceEpoch());
    EXPECT_TRUE(delegate.responses.isEmpty());
}

TEST_F(QVDiagnosisRunTest, OverallBarAdvancesByTheStepOfEachPass)
{
    addOneProblemOfEachKind();
    diagnosis->settings()->setDiagnoseFileStructure(false);
    diagnosis->settings()->setFindDuplicateFonts(false);
    diagnosis->settings()->setFindOrpanedFonts(true);
    QList<double> values;
    QObject::connect(diagnosis->overallProgress(), &QVProgress::changed, &receiver,
        [&] { values << diagnosis->overallProgress()->value(); });
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);

    view->diagnoseFonts();
    ASSERT_TRUE(waitForFinish(finished));
    EXPECT_TRUE(values.contains(50.0));
    EXPECT_TRUE(values.contains(100.0));
    EXPECT_EQ(diagnosis->fileStructureProblemCount(), 0);
    EXPECT_EQ(diagnosis->duplicateProblemCount(), 0);
    EXPECT_EQ(diagnosis->totalFontProblems(), 2);
    // The passes that did not run keep their plain titles.
    EXPECT_EQ(diagnosis->progressForPass(0)->label(), QStringLiteral("Font File Structure"));
    EXPECT_TRUE(diagnosis->isProgressEnabled(1));
}

TEST_F(QVDiagnosisRunTest, WithEveryPassOffNothingRunsAndTheRunNeverFinishes)
{
    addOneProblemOfEachKind();
    diagnosis->settings()->setDiagnoseFileStructure(false);
    diagnosis->settings()->setFindDuplicateFonts(false);
    diagnosis->settings()->setFindOrpanedFonts(false);
    diagnosis->setStateFromUserPrefs();
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);

    view->diagnoseFonts();
    EXPECT_EQ(diagnosis->passesInFlight(), 0);
    QTest::qWait(100);
    EXPECT_TRUE(finished.isEmpty());
    EXPECT_TRUE(view->isDiagnosingFonts());
    for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass)
        EXPECT_FALSE(diagnosis->isProgressEnabled(pass));
}

TEST_F(QVDiagnosisRunTest, CancellingMidRunEndsWithoutTheResolutionWindow)
{
    // Enough damaged fonts that the structure pass is still walking when the
    // cancel arrives; one damaged suitcase per file.
    for (int i = 0; i < 3000; ++i) {
        library.addFile(QStringLiteral("/Volumes/Fonts/%1/Family %2.suit").arg(i % 40).arg(i), 0, "FFIL",
            { withDefect(makeStatus(0, QStringLiteral("Family%1").arg(i), 12), QVDefect::BadTableData) });
    }
    diagnosis->settings()->setFindOrpanedFonts(false);
    diagnosis->settings()->setFindDuplicateFonts(false);
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);

    // The user presses Cancel and confirms once a tenth of the fonts are done.
    QVProgress *bar = diagnosis->progressForPass(0);
    QObject::connect(
        bar, &QVProgress::changed, &receiver,
        [&] {
            if (bar->value() > 10.0 && !diagnosis->doCancel())
                diagnosis->setDoCancel(true);
        },
        Qt::DirectConnection);

    view->diagnoseFonts();
    ASSERT_TRUE(waitForFinish(finished));

    EXPECT_TRUE(diagnosis->doCancel());
    EXPECT_GT(diagnosis->fileStructureProblemCount(), 0);
    EXPECT_LT(diagnosis->fileStructureProblemCount(), 3000);
    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("Diagnosis was canceled"));
    EXPECT_EQ(view->iconName(), QStringLiteral("mac-icon-cancel"));
    EXPECT_FALSE(view->isReportButtonEnabled());
    EXPECT_TRUE(delegate.presented.isEmpty());
    EXPECT_EQ(diagnosis->progressForPass(0)->label(), QStringLiteral("Font File Structure"));
    EXPECT_EQ(QVSettings().lastScanProblemCount(), QString::number(diagnosis->fileStructureProblemCount()));
}

TEST_F(QVDiagnosisRunTest, AfterACancelEveryFinishingPassRunsTheFinishingSequenceAgain)
{
    addOneProblemOfEachKind();
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);
    view->diagnoseFonts();
    // Before any pass can report back: each of the four then finds the flag set.
    diagnosis->setDoCancel(true);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return finished.size() == 4 && diagnosis->passesInFlight() == 0; }, 20000));
    QTest::qWait(50);
    EXPECT_EQ(finished.size(), 4);
    EXPECT_EQ(notifications.count(QStringLiteral("kEndDiagnosis")), 4);
    EXPECT_FALSE(notifications.contains(QStringLiteral("kEndDiagnosisAction")));
    EXPECT_TRUE(delegate.presented.isEmpty());
    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("Diagnosis was canceled"));
}

TEST_F(QVDiagnosisRunTest, CancelButtonAsksFirstAndCancelsOnTheSecondButton)
{
    addOneProblemOfEachKind();
    diagnosis->settings()->setFindDuplicateFonts(false);
    diagnosis->settings()->setFindOrpanedFonts(false);
    QSignalSpy finished(view.get(), &QVDiagnosisViewState::diagnosisFinished);
    view->diagnoseFonts();

    // The pass may well be done already; the answer is what counts.
    view->cancelButtonAction();
    ASSERT_EQ(delegate.alerts.size(), 1);
    EXPECT_EQ(delegate.alerts[0][2], QStringLiteral("Continue|Cancel"));
    EXPECT_EQ(delegate.alerts[0][3], QStringLiteral("cancelButtonAction"));
    view->cancelButtonAction();
    EXPECT_EQ(delegate.alerts.size(), 1);

    view->modalEnded(1000, QStringLiteral("cancelButtonAction"));
    EXPECT_FALSE(diagnosis->doCancel());
    view->cancelButtonAction();
    view->modalEnded(1001, QStringLiteral("cancelButtonAction"));
    EXPECT_TRUE(diagnosis->doCancel());
    EXPECT_FALSE(view->isCancelButtonEnabled());
    ASSERT_TRUE(waitForFinish(finished));
    EXPECT_EQ(diagnosis->overallProgress()->label(), QStringLiteral("Diagnosis was canceled"));
    EXPECT_EQ(view->cancelButtonTitle(), QStringLiteral("Done"));
    EXPECT_TRUE(view->isCancelButtonEnabled());
}

TEST_F(QVDiagnosisRunTest, StructurePassGivesOneEntryPerFileAndFontType)
{
    const QString suitcase = makeBitmapSuitcase(folder(QStringLiteral("Screen")), { 10, 12, 14 });
    QList<QVStatusPtr> strikes;
    for (int size : { 10, 12, 14 }) {
        QVStatusPtr strike = withDefect(makeStatus(0, kNimbusPSName, size), QVDefect::BadTableData);
        strike->setFontErrorInfo(QVDefect::withDetail(QVDefect::DefectiveTableData, QStringLiteral("NFNT")));
        strikes << strike;
    }
    const QVFontFilePtr three = library.addFile(suitcase, 0, QStringLiteral("FFIL"), strikes);

    // Bitmap, TrueType, bitmap: the third compares with the last one added.
    const QVFontFilePtr mixed
        = library.addFile(folder(QStringLiteral("Mixed/Mixed.suit")), 0, QStringLiteral("FFIL"),
            { withDefect(makeStatus(0, QStringLiteral("M"), 9), QVDefect::BadTableData),
                withDefect(makeStatus(3, QStringLiteral("M")), QVDefect::BadTableData),
                withDefect(makeStatus(0, QStringLiteral("M"), 10), QVDefect::BadTableData) });
    library.addFile(
        folder(QStringLiteral("Healthy.ttf")), 1, QString(""), { makeStatus(3, QStringLiteral("H")) });

    diagnosis->diagnoseFileStructure();

    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 4);
    EXPECT_EQ(problems[0]->fontStatus, three->fontStatusArray[0]);
    EXPECT_EQ(problems[1]->fontStatus, mixed->fontStatusArray[0]);
    EXPECT_EQ(problems[2]->fontStatus, mixed->fontStatusArray[1]);
    EXPECT_EQ(problems[3]->fontStatus, mixed->fontStatusArray[2]);
    for (const QVProblemFontPtr &entry : problems)
        EXPECT_EQ(entry->diagnosisType, 0);
    EXPECT_EQ(diagnosis->fileStructureProblemCount(), 4);
    EXPECT_EQ(diagnosis->progressForPass(0)->label(), QStringLiteral("Font File Structure - Complete ✓"));
    EXPECT_EQ(diagnosis->progressForPass(0)->value(), 0.0);
}

TEST_F(QVDiagnosisRunTest, ProblemEntriesAreFoundByStatusIndex)
{
    const QVFontFilePtr file = library.addFile(folder("a.ttf"), 1, QString(""), { makeStatus(3, "A") });
    const QVStatusPtr status = file->fontStatusArray[0];
    diagnosis->addProblemFont(file, status, 2);
    diagnosis->addProblemFont(file, status, 1);
    const QList<QVFontRef> group { QVFontRef { file, status } };
    diagnosis->addProblemFont(file, status, 3, group);
    diagnosis->addProblemFont(file, status, 3, QList<QVFontRef> {});

    const QList<QVProblemFontPtr> problems = diagnosis->problemFontsArray();
    ASSERT_EQ(problems.size(), 1);
    // The earlier pass in pass order names the entry, whichever came first.
    EXPECT_EQ(problems[0]->diagnosisType, 1);
    EXPECT_TRUE(problems[0]->hasDuplicatesArray);
    EXPECT_TRUE(problems[0]->duplicatesArray.isEmpty());
}

TEST_F(QVDiagnosisRunTest, SettingsStartTextAndTitles)
{
    diagnosis->setManualScanFolders({ QStringLiteral("/srv/fonts"), QStringLiteral("/home/ann/Fonts") });
    diagnosis->settings()->setOrganizeFonts(true);
    EXPECT_EQ(view->getSettingsStartText(),
        QStringLiteral("Scan Type: Manual Scan & Organize\n\nCurrent Diagnosis Settings:\n"
                       "Diagnose Corrupt Fonts, Duplicate Fonts, Orphaned Fonts\n\n"
                       "Scanned Folders:\n/srv/fonts\n/home/ann/Fonts\n"));

    diagnosis->settings()->setLastScanType(QStringLiteral("AutoScan"));
    diagnosis->settings()->setFontFolderPaths({ QStringLiteral("/usr/share/fonts/") });
    diagnosis->settings()->setDiagnoseFileStructure(false);
    diagnosis->settings()->setFindDuplicateFonts(false);
    diagnosis->settings()->setFindOrpanedFonts(false);
    EXPECT_EQ(view->getSettingsStartText(),
        QStringLiteral("Scan Type: AutoScan\n\nCurrent Diagnosis Settings:\n(null)\n\n"
                       "Scanned Folders:\n/usr/share/fonts/\n"));

    EXPECT_EQ(diagnosis->titleForProgress(2), QStringLiteral("Missing Postscript Fonts"));
    EXPECT_EQ(
        diagnosis->titleForProgress(0, " - Complete ✓"), QStringLiteral("Font File Structure - Complete ✓"));
    EXPECT_TRUE(diagnosis->titleForProgress(4).isNull());
    EXPECT_EQ(diagnosis->progressForPass(4), nullptr);

    view->setScanMode();
    EXPECT_EQ(view->iconName(), QStringLiteral("AutoScan"));
    view->handleSearchComplete({ { QStringLiteral("status"), QStringLiteral("cancelled") } });
    EXPECT_EQ(view->iconName(), QStringLiteral("autoscan-cancel"));
}

TEST_F(QVDiagnosisRunTest, ListIsTheSameWhicheverPassFindsAFontFirst)
{
    // Two outlines without bitmaps whose file names are wrong: each is found
    // by the structure pass and by the missing-bitmap pass.
    auto run = [this](const QString &root, const QList<int> &order) {
        QVFontLibrary fonts;
        for (const QString &name : { QStringLiteral("A"), QStringLiteral("B") }) {
            const QVFontFilePtr outline
                = addOutline(fonts, makeOutlineFile(folder(root + QLatin1Char('/') + name), name));
            outline->fontStatusArray[0]->setFontError(QVErrorClass::Defect);
            outline->fontStatusArray[0]->setFontErrorInfo(QString::fromUtf8(QVDefect::BadFileName));
        }
        QVDiagnosis passes(&fonts.dataMgr);
        passes.populateArrays();
        const std::array<void (QVDiagnosis::*)(), 4> bodies { &QVDiagnosis::diagnoseFileStructure,
            &QVDiagnosis::diagnoseMissingBitmaps, &QVDiagnosis::diagnoseMissingPostscripts,
            &QVDiagnosis::diagnoseDuplicateFonts };
        for (int pass : order)
            (passes.*bodies[size_t(pass)])();
        passes.sortProblemFonts();
        QStringList list;
        for (const QVProblemFontPtr &entry : passes.problemFontsArray())
            list << QStringLiteral("%1 %2")
                        .arg(QFileInfo(entry->fontFile->URL).fileName())
                        .arg(entry->diagnosisType);
        return list;
    };
    const QStringList inOrder = run(QStringLiteral("one"), { 0, 1, 2, 3 });
    EXPECT_EQ(inOrder, (QStringList { QStringLiteral("A 0"), QStringLiteral("B 0") }));
    EXPECT_EQ(run(QStringLiteral("two"), { 3, 2, 1, 0 }), inOrder);
}
