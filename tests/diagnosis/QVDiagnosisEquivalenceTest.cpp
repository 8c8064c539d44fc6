// The indexed passes against a transcription of the linear searches they replace,
// over generated libraries: the same entries, messages, marks and counters.
#include "QVDiagnosisFixtures.h"
#include "diagnosis/QVCounterpartIndex.h"
#include "diagnosis/QVDiagnosis.h"
#include "engine/QVProblemCounts.h"
#include "settings/QVSettings.h"
#include "support/QVTestHome.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>

using namespace qvtest;

namespace
{

struct QVPassSettings {
    bool type3 = true;
    bool allStyles = true;
    bool matchVersions = true;
};

// Every search walks its whole list, as the passes first did; nothing is indexed.
struct QVLinearDiagnosis {
    QList<QVFontFilePtr> fontFiles;
    QVPassSettings settings;
    QList<QVProblemFontPtr> problems {};
    QList<QVFontFilePtr> bitmaps {}, postscripts {};
    int structureCount = 0, missingBitmapCount = 0, missingPSCount = 0, duplicateCount = 0;

    QList<int> counts() const
    {
        return { structureCount, missingBitmapCount, missingPSCount, duplicateCount };
    }

    void run()
    {
        populateArrays();
        diagnoseFileStructure();
        diagnoseMissingBitmaps();
        diagnoseMissingPostscripts();
        diagnoseDuplicateFonts();
    }

    static bool sameFolder(const QVStatus &a, const QVStatus &b)
    {
        return QVCounterpartIndex::folderOfPath(a.fontURL) == QVCounterpartIndex::folderOfPath(b.fontURL);
    }

    void addProblemFont(const QVFontFilePtr &file, const QVStatusPtr &status, int type,
        const std::optional<QList<QVFontRef>> &duplicates = std::nullopt)
    {
        auto found = std::find_if(problems.cbegin(), problems.cend(),
            [&](const QVProblemFontPtr &entry) { return entry->fontStatus->index == status->index; });
        QVProblemFontPtr entry = found == problems.cend() ? nullptr : *found;
        if (!entry) {
            entry = std::make_shared<QVProblemFont>();
            entry->fontFile = file;
            entry->fontStatus = status;
            entry->diagnosisType = type;
            problems.append(entry);
        }
        if (type == 3) {
            entry->duplicatesArray = duplicates.value_or(QList<QVFontRef>());
            entry->hasDuplicatesArray = duplicates.has_value();
        }
    }

    // The fonts of the files that are not in the quarantine and that keep() takes.
    static QList<QVStatusPtr> available(
        const QList<QVFontFilePtr> &files, const std::function<bool(const QVStatus &)> &keep)
    {
        QList<QVStatusPtr> found;
        for (const QVFontFilePtr &file : files) {
            for (const QVStatusPtr &s : file->fontStatusArray) {
                if (!file->fileMovedToQuarantine && !s->movedToQuarantine && keep(*s))
                    found.append(s);
            }
        }
        return found;
    }
    template <typename Condition> static bool any(const QList<QVStatusPtr> &list, Condition condition)
    {
        return std::any_of(list.cbegin(), list.cend(), condition);
    }

    void populateArrays()
    {
        bitmaps.clear();
        postscripts.clear();
        for (const QVFontFilePtr &file : std::as_const(fontFiles)) {
            for (const QVStatusPtr &s : std::as_const(file->fontStatusArray)) {
                if (s->fontName.isEmpty() || s->fontName.startsWith('.') || s->PSname.startsWith('.')
                    || s->fontName.startsWith('%') || s->PSname == "<none>")
                    continue;
                if (s->fontType == 0)
                    bitmaps.append(file);
                else if (s->fontType == 1 || (s->fontType == 2 && settings.type3))
                    postscripts.append(file);
            }
        }
    }

    void diagnoseFileStructure()
    {
        structureCount = 0;
        for (const QVFontFilePtr &file : std::as_const(fontFiles)) {
            QVStatusPtr last;
            for (const QVStatusPtr &s : std::as_const(file->fontStatusArray)) {
                for (int error : QList<int>(s->fontErrors)) {
                    if (error != 0)
                        continue;
                    if (last && last->fontURL == s->fontURL && last->fontType == s->fontType)
                        continue;
                    addProblemFont(file, s, 0);
                    ++structureCount;
                    last = s;
                }
            }
        }
    }

    void diagnoseMissingBitmaps()
    {
        missingBitmapCount = 0;
        const QList<QVStatusPtr> candidates
            = available(bitmaps, [](const QVStatus &s) { return s.fontSize > 0 && !s.PSname.isEmpty(); });
        for (const QVFontFilePtr &file : std::as_const(postscripts)) {
            for (const QVStatusPtr &s : std::as_const(file->fontStatusArray)) {
                if (s->movedToQuarantine || any(candidates, [&](const QVStatusPtr &c) {
                        return c->PSname == s->PSname && (sameFolder(*c, *s) || s->fontErrors.contains(1));
                    }))
                    continue;
                s->fontErrors.append(1);
                s->setFontErrorInfo("Couldn't Find Bitmap Font");
                ++missingBitmapCount;
                addProblemFont(file, s, 1);
            }
        }
    }

    void diagnoseMissingPostscripts()
    {
        missingPSCount = 0;
        const QList<QVStatusPtr> candidates
            = available(postscripts, [](const QVStatus &s) { return !s.PSname.isEmpty(); });
        for (const QVFontFilePtr &file : std::as_const(bitmaps)) {
            for (const QVStatusPtr &b : std::as_const(file->fontStatusArray)) {
                if (b->fontSize < 1 || b->movedToQuarantine
                    || (!settings.allStyles && b->fontStyle != "Plain") || b->fontErrors.contains(2))
                    continue;
                const bool matched = any(candidates,
                    [&](const QVStatusPtr &c) { return c->PSname == b->PSname && sameFolder(*c, *b); });
                // Another size of the same font already reported.
                const bool reported
                    = std::any_of(problems.cbegin(), problems.cend(), [&](const QVProblemFontPtr &entry) {
                          const QVStatusPtr &o = entry->fontStatus;
                          return o->fontSize > 0 && o->fontSize != b->fontSize && o->PSname == b->PSname
                              && o->fontURL == b->fontURL && o->fontType == b->fontType
                              && o->fontErrors.contains(2);
                      });
                if (matched || reported)
                    continue;
                b->fontErrors.append(2);
                b->setFontErrorInfo("Couldn't Find PostScript File");
                ++missingPSCount;
                addProblemFont(file, b, 2);
            }
        }
    }

    void diagnoseDuplicateFonts()
    {
        duplicateCount = 0;
        QList<std::pair<qsizetype, qsizetype>> index; // file and font
        QVStatusPtr last;
        for (qsizetype i = 0; i < fontFiles.size(); ++i) {
            for (qsizetype j = 0; j < fontFiles[i]->fontStatusArray.size(); ++j) {
                const QVStatusPtr &s = fontFiles[i]->fontStatusArray[j];
                if (s->PSname == "<none>" || s->fontType == 1 || s->fontType == 2 || s->fontStyle != "Plain")
                    continue;
                if (last && last->fontSize != s->fontSize && last->PSname == s->PSname
                    && last->fontURL == s->fontURL && last->fontType == s->fontType)
                    continue;
                index.append({ i, j });
                last = s;
            }
        }
        QVStatusPtr lastSearched;
        for (qsizetype i = 0; i < fontFiles.size(); ++i) {
            for (const QVStatusPtr &s : std::as_const(fontFiles[i]->fontStatusArray)) {
                if (!s->fontErrors.isEmpty()
                    && (s->fontErrors.contains(3) || s->fontType == 1 || s->fontType == 2
                        || s->fontStyle != "Plain"))
                    continue;
                if (lastSearched && lastSearched->fontSize != s->fontSize
                    && lastSearched->fontURL == s->fontURL && lastSearched->fontType == s->fontType
                    && s->PSname == s->PSname && !s->PSname.isEmpty())
                    continue;
                if (s->fontStyle == "Plain") {
                    QList<QVFontRef> group;
                    for (const auto &[a, b] : std::as_const(index)) {
                        const QVStatusPtr t = fontFiles[a]->fontStatusArray[b];
                        if (a == i || t->PSname != s->PSname || t->fontType != s->fontType
                            || (settings.matchVersions && t->fontVersion != s->fontVersion)
                            || t->fontErrors.contains(3))
                            continue;
                        t->fontErrors.append(3);
                        group.append({ fontFiles[a], t });
                    }
                    if (!group.isEmpty()) {
                        s->fontErrors.append(3);
                        group.append({ fontFiles[i], s });
                        std::stable_sort(
                            group.begin(), group.end(), [](const QVFontRef &x, const QVFontRef &y) {
                                return x.fontStatus->fontVersion < y.fontStatus->fontVersion;
                            });
                        const QVFontRef first = group.takeFirst();
                        for (const QVFontRef &member : std::as_const(group))
                            member.fontStatus->setFontErrorInfo("Duplicate Font");
                        first.fontStatus->setFontErrorInfo("Found Duplicate Fonts");
                        addProblemFont(first.fontFile, first.fontStatus, 3, group);
                        ++duplicateCount;
                    }
                }
                lastSearched = s;
            }
        }
    }
};

// A library with the mixes and collisions of a real font archive, small pools
// of names, folders, sizes and versions so that everything meets everything.
void generateLibrary(QVFontLibrary &library, quint32 seed, int fileCount, bool earlierMarks)
{
    QRandomGenerator random(seed);
    auto chance = [&](int percent) { return int(random.bounded(100)) < percent; };
    auto pick = [&](const QStringList &list) { return list.at(random.bounded(int(list.size()))); };
    const QStringList folders { "/srv/fonts/A", "/srv/fonts/B", "/srv/fonts/B/Sub", "/srv/fonts/C",
        "/Volumes/Old", "/Volumes/Old/Screen", "/home/ann/Fonts", "/home/ann/Fonts/", "/x" };
    QStringList names;
    for (int n = 0; n < 24; ++n)
        names << QStringLiteral("Family%1-%2").arg(n % 12).arg(n < 12 ? "Regular" : "Bold");
    names += { "<none>", "", ".Hidden" };
    const QStringList styles { "Plain", "Plain", "Plain", "Bold", "Italic", "Bold, Italic", "" };
    const QList<int> sizes { 9, 10, 12, 14, 18 };

    auto finish = [&](QVStatusPtr s) {
        s->fontVersion = int(random.bounded(4));
        if (chance(12))
            withDefect(s, chance(50) ? QVDefect::BadTableData : QVDefect::IncorrectFileFlags);
        if (chance(4))
            s->movedToQuarantine = true;
        if (chance(3))
            s->fontName = chance(50) ? QStringLiteral(".") + s->fontName : QStringLiteral("%") + s->fontName;
        if (chance(2))
            s->fontName.clear();
        // Marks left by an earlier run.
        if (earlierMarks && chance(5))
            s->fontErrors.append(1 + int(random.bounded(3)));
        return s;
    };

    for (int f = 0; f < fileCount; ++f) {
        const QString folder = pick(folders);
        QList<QVStatusPtr> statuses;
        QString path;
        const int kind = int(random.bounded(10));
        if (kind < 3) {
            // PostScript outline file
            const QString name = pick(names);
            path = folder + QStringLiteral("/PS%1").arg(f);
            statuses << finish(makeStatus(chance(80) ? 1 : 2, name, 0, pick(styles)));
        } else if (kind < 7) {
            // Bitmap suitcase: strikes of one family, now and then another.
            const QString name = pick(names);
            path = folder + QStringLiteral("/Suitcase%1").arg(f);
            const QString style = pick(styles);
            const int count = 1 + int(random.bounded(4));
            for (int k = 0; k < count; ++k) {
                if (chance(10))
                    statuses << finish(makeStatus(3, name, 0, QStringLiteral("Plain")));
                else
                    statuses << finish(makeStatus(0, chance(15) ? pick(names) : name,
                        chance(5) ? 0 : sizes.at(random.bounded(int(sizes.size()))),
                        chance(20) ? pick(styles) : style));
            }
        } else {
            // TrueType, OpenType or a collection
            path = folder + QStringLiteral("/Font%1.ttf").arg(f);
            const int count = chance(15) ? 2 + int(random.bounded(2)) : 1;
            for (int k = 0; k < count; ++k)
                statuses << finish(makeStatus(
                    chance(70) ? 3 : 5, pick(names), 0, chance(80) ? QStringLiteral("Plain") : pick(styles)));
        }
        // The same file listed twice, as a scan of overlapping folders can.
        if (chance(1) && !library.dataMgr.fontFileItems.isEmpty())
            path = library.dataMgr.fontFileItems.last()->URL;
        library.addFile(path, kind < 7 ? 0 : 1, QString(""), statuses)->fileMovedToQuarantine = chance(3);
    }
}

QList<QVFontFilePtr> deepCopy(const QList<QVFontFilePtr> &files)
{
    QList<QVFontFilePtr> copies;
    for (const QVFontFilePtr &file : files) {
        QVFontFilePtr copy = file->copy();
        for (QVStatusPtr &status : copy->fontStatusArray)
            status = status->copy();
        copies << copy;
    }
    return copies;
}

// The entries as plain values: font, diagnosis (unless left out), members.
QStringList describe(const QList<QVProblemFontPtr> &entries, bool withType = true)
{
    QStringList lines;
    for (const QVProblemFontPtr &entry : entries) {
        QString text = QStringLiteral("%1@%2").arg(entry->fontStatus->index).arg(entry->fontFile->URL);
        if (withType)
            text += QStringLiteral(" type %1").arg(entry->diagnosisType);
        if (entry->hasDuplicatesArray) {
            text += QStringLiteral(" dups");
            for (const QVFontRef &member : entry->duplicatesArray)
                text += QStringLiteral(" %1@%2").arg(member.fontStatus->index).arg(member.fontFile->URL);
        }
        lines << text;
    }
    return lines;
}

// Each font's marks and repairs alike; in order of value when `sorted`.
void expectSameMarks(const QList<QVFontFilePtr> &indexed, const QList<QVFontFilePtr> &linear, bool sorted)
{
    auto marks = [sorted](QVStatus s) {
        if (sorted) {
            std::sort(s.fontErrors.begin(), s.fontErrors.end());
            s.fontErrorsInfo.sort();
        }
        return std::tuple(s.fontErrors, s.fontErrorsInfo, s.fixedErrors, s.fixedErrorMessages);
    };
    ASSERT_EQ(indexed.size(), linear.size());
    for (qsizetype i = 0; i < indexed.size(); ++i) {
        for (qsizetype j = 0; j < indexed[i]->fontStatusArray.size(); ++j)
            EXPECT_EQ(marks(*indexed[i]->fontStatusArray[j]), marks(*linear[i]->fontStatusArray[j]))
                << "status " << indexed[i]->fontStatusArray[j]->index;
    }
}

class QVDiagnosisEquivalenceTest : public ::testing::TestWithParam<int>
{
    void SetUp() override { QVSettings().registerUserPreferences(); }
    QVTestHome home;
};

} // namespace

// The linear passes compare folders as the index does, so that is checked here.
TEST(QVCounterpartIndex, FolderOfPathDropsTheLastComponent)
{
    const QList<std::pair<QString, QString>> cases { { "/Fonts/Sans/NimbuSanReg", "/Fonts/Sans" },
        { "/Fonts/Sans/", "/Fonts" }, { "/NimbuSanReg", "/" }, { "NimbuSanReg", "" }, { "/a//b", "/a" } };
    for (const auto &[path, folder] : cases)
        EXPECT_EQ(QVCounterpartIndex::folderOfPath(path), folder) << qPrintable(path);
}

TEST_P(QVDiagnosisEquivalenceTest, IndexedPassesFindWhatTheLinearSearchesFind)
{
    const int seed = GetParam();
    const QVPassSettings settings { seed % 2 == 0, seed % 3 != 0, seed % 4 < 2 };

    QVFontLibrary library;
    generateLibrary(library, quint32(seed), 1500, true);
    QVLinearDiagnosis linear { deepCopy(library.dataMgr.fontFileItems), settings };

    QVDiagnosis diagnosis(&library.dataMgr);
    diagnosis.setPacingEnabled(false);
    diagnosis.settings()->setDiagnoseType3fonts(settings.type3);
    diagnosis.settings()->setAllStylesRequirePostScript(settings.allStyles);
    diagnosis.settings()->setMatchVersionNumbers(settings.matchVersions);

    // Two rounds: the second meets the marks of the first.
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        diagnosis.setProblemFontsArray({});
        linear.problems.clear();
        diagnosis.populateArrays();
        diagnosis.diagnoseFileStructure();
        diagnosis.diagnoseMissingBitmaps();
        diagnosis.diagnoseMissingPostscripts();
        diagnosis.diagnoseDuplicateFonts();
        linear.run();

        EXPECT_EQ(diagnosis.bitmaps().size(), linear.bitmaps.size());
        EXPECT_EQ(diagnosis.postscripts().size(), linear.postscripts.size());
        EXPECT_EQ((QList<int> { diagnosis.fileStructureProblemCount(), diagnosis.missingBitmapProblemCount(),
                      diagnosis.missingPSProblemCount(), diagnosis.duplicateProblemCount() }),
            linear.counts());
        EXPECT_EQ(describe(diagnosis.problemFontsArray()), describe(linear.problems));
        expectSameMarks(library.dataMgr.fontFileItems, linear.fontFiles, false);
        // Every kind of finding occurs, so the comparison is not of empty lists.
        for (int count : round == 0 ? linear.counts() : QList<int>())
            EXPECT_GT(count, 5);
    }
}

TEST_P(QVDiagnosisEquivalenceTest, ConcurrentRunFindsTheSameAsTheLinearPassesInTurn)
{
    const int seed = GetParam() + 100;
    // Passes that run at once see one another's marks at any time. Two rules
    // read such marks (non-plain bitmap fonts when not all styles need an
    // outline, and earlier runs' marks): left out here, covered above.
    const QVPassSettings settings { true, false, seed % 2 == 0 };

    QVFontLibrary library;
    generateLibrary(library, quint32(seed), 2000, false);
    QVLinearDiagnosis linear { deepCopy(library.dataMgr.fontFileItems), settings };
    linear.run();

    QVDiagnosis diagnosis(&library.dataMgr);
    diagnosis.setPacingEnabled(false);
    diagnosis.settings()->setLastScanType(QStringLiteral("Manual Scan"));
    diagnosis.settings()->setMatchVersionNumbers(settings.matchVersions);
    diagnosis.settings()->setAllStylesRequirePostScript(settings.allStyles);
    QSignalSpy finished(&diagnosis, &QVDiagnosis::diagnosisFinished);
    diagnosis.diagnoseFonts();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !finished.isEmpty(); }, 60000));

    EXPECT_EQ(diagnosis.totalFontProblems(), QVProblemCounts::problemFonts(linear.problems));
    EXPECT_EQ(diagnosis.duplicateProblemCount(), linear.duplicateCount);
    EXPECT_EQ(diagnosis.missingPSProblemCount(), linear.missingPSCount);
    // Which pass reaches a font first decides its entry's type; the fonts
    // listed and the groups do not depend on it.
    QStringList indexed = describe(diagnosis.problemFontsArray(), false);
    QStringList expected = describe(linear.problems, false);
    indexed.sort();
    expected.sort();
    EXPECT_EQ(indexed, expected);
    expectSameMarks(library.dataMgr.fontFileItems, linear.fontFiles, true);
}

INSTANTIATE_TEST_SUITE_P(Seeds, QVDiagnosisEquivalenceTest, ::testing::Range(1, 9));
