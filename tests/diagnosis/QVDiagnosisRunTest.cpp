// The diagnosis run as the view drives it: what the end records, cancelling,
// the auto-scan answer.
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

// What the view state asked of a window, and the answers on the helper channel.
struct QVViewRecorder {
    bool interfaceEnabled = false;
    int terminations = 0;
    QList<QStringList> alerts;
    QList<QList<QVProblemFontPtr>> presented;
    QStringList responses, senders;
    QVariantMap lastOptions;

    void listen(QVDiagnosisViewState *view)
    {
        QObject::connect(
            view, &QVDiagnosisViewState::userInterfaceEnabled, [this](bool on) { interfaceEnabled = on; });
        QObject::connect(view, &QVDiagnosisViewState::terminateRequested, [this] { ++terminations; });
        QObject::connect(view, &QVDiagnosisViewState::alertRequested,
            [this](
                const QString &message, const QString &, const QStringList &buttons, const QString &context) {
                alerts << QStringList { message, buttons.join(QLatin1Char('|')), context };
            });
        QObject::connect(view, &QVDiagnosisViewState::actionWindowRequested,
            [this](const QList<QVProblemFontPtr> &fonts) { presented << fonts; });
        QObject::connect(
            view, &QVDiagnosisViewState::helperResponse, [this](auto... a) { gotResponse(a...); });
    }
    void gotResponse(const QString &response, const QString &sender, const QVariantMap &options)
    {
        responses << response;
        senders << sender;
        lastOptions = options;
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
        finished = std::make_unique<QSignalSpy>(view.get(), &QVDiagnosisViewState::diagnosisFinished);
        diagnosis->settings()->setLastScanType("Manual Scan");
        QVNotificationCenter *center = QVNotificationCenter::defaultCenter();
        QObject::connect(
            center, &QVNotificationCenter::kEndDiagnosis, &receiver, [this] { notifications << "end"; });
        QObject::connect(center, &QVNotificationCenter::kEndDiagnosisAction, &receiver,
            [this] { notifications << "action"; });
    }

    QString folder(const QString &name) const { return home.path() + QLatin1Char('/') + name; }

    void addDejaVu(const QString &folderName)
    {
        library.addFile(copyFont(QVFixtures::kDejaVuSans, folder(folderName)), 1, "",
            { makeStatus(QVFontType::TrueType, "DejaVuSans", 0, "Plain", 4) });
    }

    // One problem of each kind: two copies of a font, an outline without its
    // bitmap font, a bitmap font without its outline, a damaged font.
    void addOneProblemOfEachKind()
    {
        addDejaVu("A");
        addDejaVu("B");
        library.addFile(makeOutlineFile(folder("Outlines")), 0, "LWFN", { makeStatus(1, kNimbusPSName) });
        library.addFile(folder("Screen/Nimbus Sans.suit"), 0, "FFIL", { makeStatus(0, kNimbusPSName, 12) });
        library.addFile(copyFont(QVFixtures::kDejaVuSansBold, folder("Damaged")), 1, "",
            { withDefect(makeStatus(3, "DejaVuSans-Bold", 0, "Bold"), QVDefect::BadTableData) });
    }

    bool run(bool start = true)
    {
        if (start)
            view->diagnoseFonts();
        return QTest::qWaitFor([&] { return !finished->isEmpty() && diagnosis->passesInFlight() == 0; });
    }

    QVTestHome home;
    QVFontLibrary library;
    QVViewRecorder delegate;
    std::unique_ptr<QVDiagnosis> diagnosis;
    std::unique_ptr<QVDiagnosisViewState> view;
    std::unique_ptr<QSignalSpy> finished;
    QObject receiver;
    QStringList notifications;
};

} // namespace

TEST_F(QVDiagnosisRunTest, RunWithProblemsRecordsTheOutcomeAndOpensTheResolutionWindow)
{
    addOneProblemOfEachKind();
    diagnosis->settings()->setMatchVersionNumbers(true);
    diagnosis->settings()->setAllStylesRequirePostScript(true);
    diagnosis->settings()->setValue("lastReportName", "Old report");
    ASSERT_TRUE(run());
    QTest::qWait(20);

    EXPECT_EQ(finished->size(), 1);
    EXPECT_EQ((QList<int> { diagnosis->fileStructureProblemCount(), diagnosis->missingBitmapProblemCount(),
                  diagnosis->missingPSProblemCount(), diagnosis->duplicateProblemCount() }),
        (QList<int> { 1, 1, 1, 1 }));
    // The fonts listed, each once: both copies of the duplicate count.
    EXPECT_EQ(diagnosis->totalFontProblems(), 5);
    EXPECT_TRUE(view->isReportButtonEnabled() && library.dataMgr.foundProblemFonts);

    // The settings record the outcome and forget the previous report.
    QVSettings settings;
    EXPECT_EQ(settings.lastScanProblemCount(), "5");
    EXPECT_TRUE(settings.lastScanDate().isValid());
    EXPECT_FALSE(settings.lastAutoScanDate().isValid() || settings.hasStoredValue("lastReportName"));
    // The window ends the diagnosis later, and a manual scan answers no helper.
    EXPECT_EQ(notifications, QStringList { "end" });
    EXPECT_TRUE(delegate.responses.isEmpty());

    // Sorted for the window by diagnosis type, highest first.
    ASSERT_EQ(delegate.presented.size(), 1);
    QList<int> types;
    for (const QVProblemFontPtr &entry : delegate.presented[0])
        types << entry->diagnosisType;
    EXPECT_EQ(types, (QList<int> { 3, 2, 1, 0 }));
}

TEST_F(QVDiagnosisRunTest, CleanAutoScanAnswersTheHelperWithOrWithoutItsChannelAndQuitsWhenAsked)
{
    addDejaVu("A");
    diagnosis->settings()->setLastScanType("AutoScan");
    diagnosis->settings()->setAutoScanQuitWhenDone(true);
    view->setIsAutoScanLaunch(true);
    ASSERT_TRUE(run());

    EXPECT_FALSE(view->isReportButtonEnabled() || view->isAutoScanLaunch());
    EXPECT_TRUE(delegate.presented.isEmpty());
    QTest::qWait(20);
    // With nothing to resolve the diagnosis ends at once.
    EXPECT_EQ(notifications, (QStringList { "end", "action" }));
    QVSettings settings;
    ASSERT_TRUE(settings.lastAutoScanDate().isValid());
    EXPECT_EQ(settings.lastScanProblemCount(), "0");
    // Without a helper channel the answer goes out to no one in particular.
    ASSERT_EQ(delegate.responses, QStringList { "kResponse_ScanFonts_Complete" });
    EXPECT_TRUE(delegate.senders[0].isEmpty());
    EXPECT_EQ(delegate.lastOptions.value("kPayloadOptions").toDateTime(), settings.lastAutoScanDate());
    // The application quits a little later.
    EXPECT_EQ(delegate.terminations, 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.terminations == 1; }, 4000));

    // Given the helper channel, the next answer goes over it to the handler.
    if (!QDBusConnection::sessionBus().isConnected())
        GTEST_SKIP() << "no session bus: run under dbus-run-session";
    QVHelperCommunications application;
    QVHelperCommunications handler(QString::fromLatin1(QVSettings::kHandlerBundleIdentifier));
    QVViewRecorder recorder;
    qvtest::listen(handler, recorder);
    view->setHelperCommunications(&application);
    finished->clear();
    ASSERT_TRUE(run());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !recorder.responses.isEmpty(); }, 5000));
    EXPECT_EQ(recorder.responses, QStringList { "kResponse_ScanFonts_Complete" });
    EXPECT_EQ(recorder.senders, QStringList { application.ownIdentifier() });
    EXPECT_EQ(recorder.lastOptions.value("kPayloadOptions").toDateTime().toSecsSinceEpoch(),
        QVSettings().lastAutoScanDate().toSecsSinceEpoch());
    EXPECT_EQ(delegate.responses.size(), 1);
}

TEST_F(QVDiagnosisRunTest, CancellingMidRunEndsWithoutTheResolutionWindow)
{
    // Enough damaged fonts that the structure pass still walks when cancelled.
    for (int i = 0; i < 3000; ++i) {
        library.addFile(QString("/Volumes/Fonts/%1/Family %2.suit").arg(i % 40).arg(i), 0, "FFIL",
            { withDefect(makeStatus(0, QString("Family%1").arg(i), 12), QVDefect::BadTableData) });
    }
    diagnosis->settings()->setFindOrpanedFonts(false);
    diagnosis->settings()->setFindDuplicateFonts(false);
    // The cancel is confirmed once a tenth of the fonts are done.
    QVProgress *bar = diagnosis->progressForPass(0);
    QObject::connect(
        bar, &QVProgress::changed, &receiver,
        [&] {
            if (bar->value() > 10.0 && !diagnosis->doCancel())
                diagnosis->setDoCancel(true);
        },
        Qt::DirectConnection);
    ASSERT_TRUE(run());

    EXPECT_GT(diagnosis->fileStructureProblemCount(), 0);
    EXPECT_LT(diagnosis->fileStructureProblemCount(), 3000);
    EXPECT_FALSE(view->isReportButtonEnabled() || !delegate.presented.isEmpty());
    EXPECT_EQ(QVSettings().lastScanProblemCount(), QString::number(diagnosis->fileStructureProblemCount()));
}

TEST_F(QVDiagnosisRunTest, ListIsTheSameWhicheverPassFindsAFontFirst)
{
    // Misnamed outlines without bitmaps: found by the structure and bitmap passes.
    auto run = [this](const QString &root, const QList<int> &order) {
        QVFontLibrary fonts;
        for (const QString &name : { QStringLiteral("A"), QStringLiteral("B") })
            fonts.addFile(makeOutlineFile(folder(root + QLatin1Char('/') + name), name), 0,
                QStringLiteral("LWFN"),
                { withDefect(
                    makeStatus(QVFontType::PostScriptType1, kNimbusPSName), QVDefect::BadFileName) });
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
