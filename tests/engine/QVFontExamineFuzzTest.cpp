// Mutated copies of real font files never crash the examiner (run under the
// asan build) and every file that must be represented still is.
#include "QVDiagnoseFixtures.h"
#include "support/QVTestHome.h"

#include <gtest/gtest.h>
#include <random>

using namespace QVDiagnoseFixtures;

namespace
{

class Mutator
{
public:
    explicit Mutator(quint32 seed)
        : m_random(seed)
    {
    }

    // Damages the bytes the examiner reads first (headers, directories,
    // resource maps at the end of a fork): flipped bytes, extreme numbers,
    // truncation.
    QByteArray mutate(QByteArray bytes)
    {
        if (bytes.isEmpty())
            return bytes;
        const int edits = 1 + int(next(8));
        for (int e = 0; e < edits; ++e) {
            const qsizetype at = pick(bytes.size());
            switch (next(4)) {
            case 0:
                bytes[at] = char(next(256));
                break;
            case 1:
            case 2: {
                static const quint32 extremes[]
                    = { 0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, 999, 1000 };
                const quint32 value = extremes[next(std::size(extremes))];
                for (int k = 0; k < 4 && at + k < bytes.size(); ++k)
                    bytes[at + k] = char((value >> (24 - 8 * k)) & 0xFF);
                break;
            }
            default:
                if (next(4) == 0)
                    bytes.truncate(at);
                break;
            }
            if (bytes.isEmpty())
                break;
        }
        return bytes;
    }

private:
    quint32 next(quint32 bound) { return quint32(m_random() % bound); }
    qsizetype pick(qsizetype size)
    {
        // Mostly the first 2 KB and the last 2 KB, where the structure is.
        const qsizetype window = qMin<qsizetype>(size, 2048);
        switch (next(3)) {
        case 0:
            return qsizetype(next(quint32(window)));
        case 1:
            return size - 1 - qsizetype(next(quint32(window)));
        default:
            return qsizetype(next(quint32(qMin<qsizetype>(size, 0x7FFFFFFF))));
        }
    }

    std::mt19937 m_random;
};

void expectWellFormed(const Examination &examination, const QString &path)
{
    for (const QVStatusPtr &status : examination.statuses) {
        EXPECT_EQ(status->fontURL, path);
        EXPECT_EQ(status->fontErrorsInfo.size(), status->fixedErrors.size());
        EXPECT_EQ(status->fontErrorsInfo.size(), status->fixedErrorMessages.size());
        EXPECT_EQ(status->fontErrors.isEmpty(), status->fontErrorsInfo.isEmpty());
    }
}

// A longer run by hand: QV_FUZZ_ROUNDS=5000 test_engine --gtest_filter='*Fuzz*'
int rounds()
{
    bool ok = false;
    const int wanted = qEnvironmentVariableIntValue("QV_FUZZ_ROUNDS", &ok);
    return ok && wanted > 0 ? wanted : 150;
}

const int kRounds = rounds();

} // namespace

TEST(QVFontExamineFuzz, MutatedSFNTFilesAreAlwaysRepresented)
{
    QVTestHome home;
    QVFontDiagnose examiner;
    Mutator mutator(20261121);
    const QString collection = home.path() + QStringLiteral("/Source.ttc");
    QString log;
    ASSERT_TRUE(runTool(kFontToolsPython,
        { "-c",
            "import sys\nfrom fontTools.ttLib import TTFont\nfrom fontTools.ttLib.ttCollection import "
            "TTCollection\nc=TTCollection()\nc.fonts=[TTFont(sys.argv[1]),TTFont(sys.argv[2])]\n"
            "c.save(sys.argv[3])",
            kDejaVuSansBold, kP052Roman, collection },
        &log))
        << qPrintable(log);
    const struct {
        QByteArray bytes;
        QString extension;
    } sources[] = { { readFile(kDejaVuSans), "ttf" }, { readFile(kP052Roman), "otf" },
        { readFile(collection), "ttc" } };
    for (const auto &source : sources) {
        ASSERT_FALSE(source.bytes.isEmpty());
        for (int round = 0; round < kRounds; ++round) {
            const QString path = home.path() + QStringLiteral("/Mutant.") + source.extension;
            ASSERT_TRUE(writeFile(path, mutator.mutate(source.bytes)));
            const Examination examination = examine(examiner, path, round % 10 == 0);
            ASSERT_GE(examination.statuses.size(), 1) << qPrintable(source.extension) << " round " << round;
            expectWellFormed(examination, path);
        }
    }
}

TEST(QVFontExamineFuzz, MutatedForksNeverCrash)
{
    QVTestHome home;
    QVFontDiagnose examiner;
    Mutator mutator(4);
    const QString raw = home.path() + QStringLiteral("/C059.rsrc");
    QString log;
    ASSERT_TRUE(runTool(QStringLiteral("t1mac"), { "--raw", kC059RomanPfb, raw }, &log)) << qPrintable(log);
    const QByteArray lwfn = readFile(raw);
    const QByteArray suitcase = ufondSuitcaseFork();
    const QByteArray dfont = readFile(kPanicSansDfont);
    ASSERT_FALSE(lwfn.isEmpty());
    ASSERT_FALSE(suitcase.isEmpty());
    ASSERT_FALSE(dfont.isEmpty());

    for (int round = 0; round < kRounds; ++round) {
        const QString path = home.path() + QStringLiteral("/Suitcase %1").arg(round);
        ASSERT_TRUE(installForkFile(path, mutator.mutate(suitcase), "FFIL"));
        const bool readable = examiner.hasResourceFork(path);
        const Examination examination = examine(examiner, path);
        expectWellFormed(examination, path);
        if (!readable) {
            ASSERT_EQ(examination.statuses.size(), 1);
            EXPECT_EQ(examination.statuses.first()->fontID, -1);
        }
    }
    for (int round = 0; round < kRounds; ++round) {
        const QString path = home.path() + QStringLiteral("/C059Rom%1").arg(round);
        ASSERT_TRUE(installForkFile(path, mutator.mutate(lwfn), "LWFN"));
        const Examination examination = examine(examiner, path);
        ASSERT_EQ(examination.statuses.size(), 1);
        expectWellFormed(examination, path);
    }
    for (int round = 0; round < kRounds / 3; ++round) {
        const QString path = home.path() + QStringLiteral("/Mutant %1.dfont").arg(round);
        ASSERT_TRUE(writeFile(path, mutator.mutate(dfont)));
        const Examination examination = examine(examiner, path);
        expectWellFormed(examination, path);
        if (!examiner.hasResourceFork(path)) {
            ASSERT_EQ(examination.statuses.size(), 1);
        }
    }
}
