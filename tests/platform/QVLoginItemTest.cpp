// A helper started with the session: its autostart entry, read back by GLib's
// launcher (not ours), starts the very program it names.
#include "platform/QVLoginItem.h"

#include "support/QVFixtures.h"
#include "support/QVTestHome.h"

#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

TEST(QVLoginItem, TheAutostartEntryStartsTheProgramItNamesAndNothingIsWrittenForAMissingOne)
{
    QVTestHome home;
    const QString id = QStringLiteral("org.quorvel.TestHelper");
    // Quotes, a dollar sign and spaces in the path: each needs its escape in the entry.
    const QString program
        = home.writeFile("Apps \"Quorvel\" $HOME/helper", "#!/bin/sh\necho ran >>\"$0.ran\"\n");
    ASSERT_TRUE(QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeOwner));
    const auto runs = [&] {
        QFile marker(program + QStringLiteral(".ran"));
        return marker.open(QIODevice::ReadOnly) ? marker.readAll().count('\n') : 0;
    };

    EXPECT_FALSE(QVLoginItem::enable(id, program + QStringLiteral("-missing")));
    EXPECT_FALSE(QFile::exists(QVLoginItem::entryPath(id)));

    ASSERT_TRUE(QVLoginItem::enable(id, program));
    EXPECT_TRUE(QVFixtures::waitFor([&] { return runs() == 1; })) << "started at once";
    EXPECT_TRUE(QVLoginItem::entryPath(id).startsWith(home.configHome() + QStringLiteral("/autostart/")));
    QProcess gio;
    gio.start(QStringLiteral("gio"), { QStringLiteral("launch"), QVLoginItem::entryPath(id) });
    ASSERT_TRUE(gio.waitForFinished(20000));
    EXPECT_EQ(gio.exitCode(), 0) << gio.readAllStandardError().toStdString();
    EXPECT_TRUE(QVFixtures::waitFor([&] { return runs() == 2; })) << "started again from its entry";
}
