// The main thread stays responsive while an organize run and a resolution do
// their file work: a timer on it logs its worst lateness. A window never takes
// the resource lock on its thread (a suitcase rewrite holds it for a while), so
// neither does this one; a run that waited for this thread would never end.
#include "diagnosis/QVDiagnosisResolution.h"
#include "organizer/QVOrganizerFixtures.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTimer>
#include <iostream>

using namespace qvorg;

namespace
{

class QVStallWatch
{
public:
    static constexpr qint64 kTick = 10;

    QVStallWatch()
    {
        m_clock.start();
        m_timer.setInterval(int(kTick));
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.elapsed();
            m_worst = qMax(m_worst, now - m_last - kTick);
            m_last = now;
            // What a window does between events: paints for a while.
            QElapsedTimer busy;
            busy.start();
            while (busy.elapsed() < 2) { }
        });
        m_timer.start();
    }
    qint64 worst() const { return m_worst; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_worst = 0;
};

// Runs the loop until done() or two minutes (a deadlock) have passed.
bool runUntil(const std::function<bool()> &done)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 120000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

} // namespace

TEST_F(OrganizerTest, MainThreadNeverStallsWhileOrganizingOrResolving)
{
    // Moving takes the suitcase apart: surgery as well as file moves.
    constexpr int kFonts = 60;
    for (int i = 0; i < kFonts; ++i)
        qvtest::copyFont(kDejaVuSans, source, QString("Sans%1.ttf").arg(i));
    qvtest::copyFont(kPanicSansDfont, source, "Panic.dfont");
    settings.setCopyFontFiles(false);
    scan();

    QVStallWatch organizing;
    bool organized = false;
    organizer->organizeFonts(library, [&] { organized = true; });
    ASSERT_TRUE(runUntil([&] { return organized; })) << "the organize run never ended";
    EXPECT_GE(filesBelow(library).size(), kFonts + 4);
    std::cout << "worst main-thread lateness while organizing: " << organizing.worst() << " ms\n";
    EXPECT_LE(organizing.worst(), 100);

    // Then every copy of the TrueType font, now in the library, quarantined as
    // damaged.
    QList<QVProblemFontPtr> damaged;
    for (const QString &file : filesBelow(library).filter(".ttf")) {
        auto entry = std::make_shared<QVProblemFont>();
        entry->fontFile = std::make_shared<QVFontFile>(library + '/' + file);
        entry->fontFile->fontFileType = 1; // a file of its own, moved whole
        entry->fontStatus = qvtest::withDefect(qvtest::makeStatus(3, file), "Bad Table Data");
        entry->fontStatus->fontURL = entry->fontFile->URL;
        entry->fontFile->fontStatusArray.append(entry->fontStatus);
        damaged << entry;
    }
    ASSERT_EQ(damaged.size(), kFonts);
    QVDiagnosisResolution resolution(store.get(), surgery.get());
    resolution.setProblemFontsArray(damaged);
    QSignalSpy resolved(&resolution, &QVDiagnosisResolution::resolved);

    QVStallWatch resolving;
    ASSERT_TRUE(resolution.startResolving());
    EXPECT_FALSE(resolution.startResolving());
    ASSERT_TRUE(runUntil([&] { return !resolved.isEmpty(); })) << "the resolution never ended";
    const auto outcome = resolved.first().first().value<QVDiagnosisResolution::Outcome>();
    EXPECT_EQ(outcome.quarantinedRows.size(), kFonts);
    EXPECT_TRUE(outcome.error.isNull()) << qPrintable(outcome.error);
    std::cout << "worst main-thread lateness while resolving: " << resolving.worst() << " ms\n";
    EXPECT_LE(resolving.worst(), 100);
}
