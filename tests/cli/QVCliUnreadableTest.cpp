// What an ordinary user cannot read, quorvel-cli reports as unreadable and
// leaves alone, together with every font whose partner it may hide.
#include "diagnosis/QVDiagnosisFixtures.h"
#include "platform/QVForkStorage.h"
#include "store/QVStoreFixtures.h"
#include "support/QVCliRunner.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

namespace
{

void lock(const QString &path)
{
    ASSERT_TRUE(QFile::setPermissions(path, QFileDevice::Permissions()));
}

} // namespace

TEST(QuorvelCliUnreadable, UnreadableFilesSidecarsAndFoldersAreReportedAndNothingMoves)
{
    QVTestHome home;
    const QString fonts = home.path() + "/Fonts";
    // An outline whose sidecar (fork and type) cannot be read, beside the
    // bitmap suitcase that needs it.
    const QString hiddenOutline = qvtest::makeOutlineFile(fonts + "/Sidecar");
    const QString suitcase = fonts + "/Sidecar/Nimbus Sans";
    const QByteArray fork = QVStoreFixtures::ufondFork(home.path() + "/work",
        { { QStringLiteral("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf"), 10 } });
    ASSERT_TRUE(QVStoreFixtures::makeSuitcase(suitcase,
        QVStoreFixtures::withPostScriptName(fork, qvtest::kNimbusPSName.toLatin1()),
        QVForkStorage::Place::AppleDouble));
    lock(QVForkStorage::sidecarPath(hiddenOutline));
    // An outline whose data fork cannot be read, and a healthy font nobody may read.
    lock(qvtest::makeOutlineFile(fonts + "/Data"));
    lock(qvtest::copyFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", fonts + "/Mode"));
    // A folder that cannot be entered.
    qvtest::copyFont("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf", fonts + "/Closed");
    lock(fonts + "/Closed");

    const std::optional<QVCliRun> run = runCliAsOrdinaryUser(home, { "diagnose", "--resolve", fonts });
    if (!run)
        GTEST_SKIP() << "no way to run as an ordinary user here";
    EXPECT_EQ(run->exitCode, 2) << qPrintable(run->out + run->err);
    for (const QString &path : QStringList { hiddenOutline, fonts + "/Data/" + qvtest::kNimbusPS533Name,
             fonts + "/Mode/DejaVuSans.ttf", fonts + "/Closed" })
        EXPECT_TRUE(run->err.contains("quorvel-cli: " + path + ": ")) << qPrintable(path + "\n" + run->err);
    EXPECT_TRUE(run->err.contains("File Unreadable (._" + qvtest::kNimbusPS533Name + ": Permission denied)"))
        << qPrintable(run->err);
    // Neither damaged nor orphaned: nothing was guessed and nothing moved.
    EXPECT_TRUE(run->out.contains("Fonts with problems:       0\n")) << qPrintable(run->out);
    EXPECT_TRUE(run->out.contains("Quarantined: 0\n")) << qPrintable(run->out);
    for (const char *guess : { "Missing PostScript Name", "Couldn't Find", "File Error" })
        EXPECT_FALSE(run->out.contains(QLatin1String(guess))) << guess;
    EXPECT_TRUE(QFileInfo(suitcase).isFile());
    EXPECT_TRUE(QFileInfo(fonts + "/Mode/DejaVuSans.ttf").isFile());

    // Scanning or diagnosing the closed folder itself names it and exits with 2.
    for (const char *command : { "scan", "diagnose" }) {
        const std::optional<QVCliRun> closed = runCliAsOrdinaryUser(home, { command, fonts + "/Closed" });
        ASSERT_TRUE(closed);
        EXPECT_EQ(closed->exitCode, 2) << command;
        EXPECT_TRUE(closed->err.contains(fonts + "/Closed: cannot be read (Permission denied)"))
            << qPrintable(closed->err);
    }
}

TEST(QuorvelCliUnreadable, ASettingThatCannotBeStoredIsAFailure)
{
    QVTestHome home;
    const QString file = home.writeFile(".config/org.quorvel.Quorvel.conf", "[General]\ndoLogging=false\n");
    ASSERT_TRUE(QFile::setPermissions(
        file, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther));
    const std::optional<QVCliRun> run
        = runCliAsOrdinaryUser(home, { "settings", "set", "doLogging", "true" });
    if (!run)
        GTEST_SKIP() << "no way to run as an ordinary user here";
    EXPECT_EQ(run->exitCode, 2);
    EXPECT_TRUE(run->err.contains("cannot be written")) << qPrintable(run->err);
    EXPECT_EQ(runCliAsOrdinaryUser(home, { "settings", "get", "doLogging" })->out, "false\n");
}
