// Preferences and their migration.
#include "settings/QVSettings.h"

#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

TEST(QVSettings, MigrationKeepsNameAndCompanyAndResetsEverythingElseOnce)
{
    QVTestHome home;
    {
        QVSettings old;
        old.setUserName(QStringLiteral("Ada"));
        old.setCompanyName(QStringLiteral("Prepress"));
        old.setDiagnoseFileStructure(false);
        old.setPrefsVersion(2);
    }
    int quitCalls = 0;
    QVSettings::migratePreferences([&] { ++quitCalls; });
    QVSettings settings;
    settings.registerUserPreferences();
    EXPECT_EQ(quitCalls, 1);
    EXPECT_EQ(QStringLiteral("%1 %2 %3")
                  .arg(settings.prefsVersion())
                  .arg(settings.userName(), settings.companyName()),
        "3 Ada Prepress");
    EXPECT_TRUE(settings.diagnoseFileStructure());
    // At the current version nothing happens; a first launch ends there too.
    settings.setDiagnoseFileStructure(false);
    QVSettings::migratePreferences([&] { ++quitCalls; });
    EXPECT_EQ(quitCalls, 1);
    EXPECT_FALSE(settings.diagnoseFileStructure());
    QVTestHome fresh;
    QVSettings::migratePreferences();
    EXPECT_EQ(QVSettings().prefsVersion(), 3);
    EXPECT_FALSE(QVSettings().hasStoredValue(QStringLiteral("userName")));
}

TEST(QVSettings, FontFolderPathsFallBackToTheFoldersThatExist)
{
    QVTestHome home;
    QVSettings settings;
    // Home folders first, each with a trailing slash.
    QStringList expected { home.dataHome() + "/fonts/", home.path() + "/.fonts/" };
    for (const QString &folder : expected)
        QDir().mkpath(folder);
    for (const QString system : { "/usr/local/share/fonts/", "/usr/share/fonts/" }) {
        if (QDir(system).exists())
            expected.append(system);
    }
    EXPECT_EQ(settings.fontFolderPaths(), expected);
    settings.setFontFolderPaths({ QStringLiteral("/srv/fonts/") });
    EXPECT_EQ(settings.fontFolderPaths(), QStringList { QStringLiteral("/srv/fonts/") });
    settings.setValue(QStringLiteral("fontFolderPaths"), 42); // not a list: the fallback again
    EXPECT_EQ(settings.fontFolderPaths(), expected);
}
