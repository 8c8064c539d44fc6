// A font the user may not move, resolved by an ordinary user: the move goes to
// the privileged runner (pkexec), which refuses without a password agent, and
// nothing moves or is recorded. Run as root, the resolution runs as nobody.
#include "store/QVPropertyList.h"
#include "support/QVFixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

TEST(QVResolutionRefusal, AFontInAFolderTheUserMayNotWriteStaysAndIsNotRecorded)
{
    if (QStandardPaths::findExecutable("pkexec").isEmpty())
        GTEST_SKIP() << "no pkexec here";
    const bool root = ::geteuid() == 0;
    const QString setpriv = QStandardPaths::findExecutable("setpriv");
    if (root && setpriv.isEmpty())
        GTEST_SKIP() << "no setpriv to run as an ordinary user";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QFile::setPermissions(dir.path(), QFileDevice::Permissions(0x7755));
    const QString fonts = dir.path() + "/fonts";
    const QString home = dir.path() + "/home";
    QDir().mkpath(home);
    for (const char *name : { "Foo.otf", "._Foo.otf" })
        ASSERT_TRUE(QVFixtures::writeFile(fonts + "/" + name, name));
    if (root)
        ASSERT_EQ(::chown(QFile::encodeName(home).constData(), 65534, 65534), 0);
    else
        QFile::setPermissions(fonts, QFileDevice::ReadOwner | QFileDevice::ExeOwner);

    QProcess peer;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const auto &[name, value] : { std::pair { "HOME", home },
             { "XDG_DATA_HOME", home + "/.local/share" }, { "XDG_CONFIG_HOME", home + "/.config" } })
        env.insert(name, value);
    peer.setProcessEnvironment(env);
    peer.setStandardInputFile(QProcess::nullDevice());
    const QStringList arguments { QStringLiteral(QV_RESOLUTION_PEER_PATH), "0", fonts + "/Foo.otf" };
    if (root)
        peer.start(setpriv, QStringList { "--reuid=65534", "--regid=65534", "--clear-groups" } + arguments);
    else
        peer.start(arguments.first(), arguments.mid(1));
    ASSERT_TRUE(peer.waitForFinished(60000));
    if (!root)
        QFile::setPermissions(
            fonts, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const QString out = QString::fromUtf8(peer.readAllStandardOutput());
    ASSERT_EQ(peer.exitCode(), 0) << qPrintable(QString::fromUtf8(peer.readAllStandardError()));
    // Dismissed or refused: "Not Authorized"; pkexec unable to ask at all: its status.
    EXPECT_TRUE(out.startsWith("kept " + fonts + "/Foo.otf: Not Authorized")
        || out.startsWith("kept " + fonts + "/Foo.otf: Authorization Error: "))
        << qPrintable(out);
    EXPECT_TRUE(QFile::exists(fonts + "/Foo.otf") && QFile::exists(fonts + "/._Foo.otf"));
    const QString quarantine = home + "/.local/share/Quorvel/Quarantine";
    EXPECT_EQ(QVPropertyList::readFile(quarantine + "/dataSource").toList().size(), 0);
    EXPECT_FALSE(QFile::exists(quarantine + "/dataSource.journal"));
    EXPECT_EQ(QDir(quarantine).entryList(QDir::Files | QDir::Hidden), QStringList { "dataSource" });
}
