// The main thread stays responsive while an organize run and a resolution do
// their file work. Like a window's, it never takes the resource lock (a
// suitcase rewrite holds it a while); a run waiting for it would never end.
#include "diagnosis/QVDiagnosisResolution.h"
#include "organizer/QVOrganizerFixtures.h"
#include "support/QVStallWatch.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTimer>
#include <cstdio>

using namespace qvorg;

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
    ASSERT_TRUE(QVFixtures::waitFor([&] { return organized; }, 120000)) << "the organize run never ended";
    EXPECT_GE(filesBelow(library).size(), kFonts + 4);
    EXPECT_LE(organizing.worst, 100) << "ms late while organizing";

    // Then every TrueType copy, now in the library, quarantined as damaged.
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
    ASSERT_TRUE(QVFixtures::waitFor([&] { return !resolved.isEmpty(); }, 120000))
        << "the resolution never ended";
    const auto outcome = resolved.first().first().value<QVDiagnosisResolution::Outcome>();
    EXPECT_EQ(outcome.quarantinedRows.size(), kFonts);
    EXPECT_TRUE(outcome.error.isNull()) << qPrintable(outcome.error);
    EXPECT_LE(resolving.worst, 100) << "ms late while resolving";
    std::printf("worst main-thread lateness: %lld ms organizing, %lld ms resolving\n",
        static_cast<long long>(organizing.worst), static_cast<long long>(resolving.worst));
}
