// Uninstalling: nothing is touched while another run holds the quarantine,
// and the program goes through the package manager only when a package owns it.
#include "store/QVUninstaller.h"

#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "support/QVFixtures.h"
#include "support/QVPackageLists.h"
#include "support/QVTestHome.h"

#include <QFileInfo>
#include <gtest/gtest.h>

using namespace QVFixtures;

TEST(Uninstaller, WaitsForNoRunAndRemovesTheProgramOnlyThroughItsPackage)
{
    QVTestHome home;
    QVSettings().setDoLogging(false);
    const QString settings = QVSettings().fileName();
    QVUninstaller uninstaller;
    uninstaller.setHelperStopper({});
    {
        // Another run (a resolution, say) holds the quarantine: nothing goes.
        QVQuarantineStore other;
        ASSERT_TRUE(other.lockForRun(0).isNull());
        const QVUninstaller::Result refused = uninstaller.removeUserData();
        EXPECT_TRUE(refused.removed.isEmpty());
        EXPECT_FALSE(refused.errors.isEmpty());
        EXPECT_TRUE(QFileInfo::exists(settings));
    }
    QVUninstaller::Result result = uninstaller.removeUserData();
    EXPECT_TRUE(result.errors.isEmpty()) << result.errors.join('\n').toStdString();
    EXPECT_FALSE(QFileInfo::exists(settings));

    // A program no package owns is left where it is, and said so.
    const QString program = home.writeFile(QStringLiteral("opt/quorvel/bin/quorvel"), "#!/bin/sh\n");
    const QVPackageLists lists(home.path() + QStringLiteral("/dpkg"));
    const auto runner = RecordingRunner::install();
    uninstaller.setProgramPath(program);
    uninstaller.removeProgram(result);
    EXPECT_TRUE(runner->calls.isEmpty());
    EXPECT_TRUE(result.programNote.contains(home.path() + QStringLiteral("/opt/quorvel/bin")));
    EXPECT_TRUE(QFileInfo::exists(program));
    // Owned by a package: the package manager removes that package, with rights.
    home.writeFile(QStringLiteral("dpkg/quorvel.list"), program.toUtf8() + '\n');
    QVPackageFiles::setListFolder(home.path() + QStringLiteral("/dpkg"));
    uninstaller.removeProgram(result);
    EXPECT_EQ(runner->calls, QStringList { QStringLiteral("/usr/bin/apt-get remove --yes quorvel") });
    EXPECT_EQ(result.programNote, QStringLiteral("The package quorvel was removed."));
    RecordingRunner::install(QStringLiteral("Not Authorized"));
    uninstaller.removeProgram(result);
    EXPECT_TRUE(result.programNote.contains(QStringLiteral("sudo apt-get remove quorvel")));
    QVPrivilegedRunner::setShared(nullptr);
}
