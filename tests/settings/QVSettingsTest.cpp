#include "settings/QVSettings.h"

#include "settings/QVStringTable.h"
#include "support/QVTestHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

TEST(QVSettings, RegisteredDefaultsAreInForceButNotWritten)
{
    QVTestHome home;
    QVSettings settings;
    EXPECT_FALSE(settings.diagnoseFileStructure()); // nothing registered yet: bools read NO
    settings.registerUserPreferences();
    EXPECT_TRUE(settings.diagnoseFileStructure());
    EXPECT_TRUE(settings.findOrpanedFonts());
    EXPECT_FALSE(settings.checkFontActivation());
    EXPECT_TRUE(settings.copyFontFiles());
    EXPECT_EQ(settings.autoScanFrequency(), QStringLiteral("kMonthly"));
    EXPECT_EQ(settings.organizeFontsFolder(), QStringLiteral(""));
    EXPECT_TRUE(settings.lastReportName().isNull());
    EXPECT_FALSE(QFile::exists(settings.fileName()));

    const QVariantMap defaults = settings.getDefaultsDictionary();
    int registered = 0;
    for (const QVSettings::Key &key : QVSettings::allKeys())
        registered += key.registered ? 1 : 0;
    EXPECT_EQ(defaults.size(), registered);
    EXPECT_EQ(defaults.size(), 31);
    EXPECT_EQ(defaults.value(QStringLiteral("dontShowWelcomeScreenAtStartup")), QVariant(false));
}

TEST(QVSettings, EveryRegisteredDefaultHasItsValueAndOrder)
{
    QVTestHome home;
    const QVariantMap defaults = QVSettings().getDefaultsDictionary();
    const QStringList yes { "isInitialRun", "diagnoseFileStructure", "ignoreSystemFonts",
        "ignoreApplicationFonts", "resolveFileAliases", "findDuplicateFonts", "findOrpanedFonts",
        "automaticallySaveReports", "showReports", "checkForUpdates", "showHelperMenu", "autoScanEnabled",
        "autoScanModifiedFolders", "autoScanQuitWhenDone", "allStylesRequirePostScript", "diagnoseType3fonts",
        "matchVersionNumbers", "createFoundryFolders", "createFamilyFolders", "copyFontFiles",
        "usePostscriptNameForFonts" };
    const QStringList no { "dontShowWelcomeScreenAtStartup", "checkFontActivation", "organizeFonts",
        "createAlphabetFolders", "useFamilyNameForFonts", "showLibraryFolder", "doLogging" };
    for (const QString &key : yes)
        EXPECT_EQ(defaults.value(key), QVariant(true)) << qPrintable(key);
    for (const QString &key : no)
        EXPECT_EQ(defaults.value(key), QVariant(false)) << qPrintable(key);
    EXPECT_EQ(defaults.value(QStringLiteral("organizeFontsFolder")), QVariant(QString("")));
    EXPECT_EQ(defaults.value(QStringLiteral("autoScanFrequency")), QVariant(QStringLiteral("kMonthly")));
    EXPECT_EQ(defaults.value(QStringLiteral("fontFolderPaths")).toStringList(),
        QVSettings::getSystemFontFolderPaths());
    EXPECT_EQ(defaults.size(), yes.size() + no.size() + 3);

    // The key list names them in the order of the defaults, then the keys
    // that are absent until first written.
    QStringList order;
    for (const QVSettings::Key &key : QVSettings::allKeys())
        order.append(QString::fromLatin1(key.name));
    EXPECT_EQ(order.mid(0, 10),
        (QStringList { "isInitialRun", "diagnoseFileStructure", "ignoreSystemFonts", "ignoreApplicationFonts",
            "resolveFileAliases", "findDuplicateFonts", "findOrpanedFonts", "automaticallySaveReports",
            "showReports", "dontShowWelcomeScreenAtStartup" }));
    EXPECT_EQ(order.mid(27, 4),
        (QStringList { "showLibraryFolder", "autoScanFrequency", "doLogging", "fontFolderPaths" }));
    EXPECT_EQ(order.mid(31),
        (QStringList { "scanAllDisks", "recentScanFolderPaths", "lastScanDate", "lastAutoScanDate",
            "lastScanType", "lastScanProblemCount", "lastScanTotalCount", "lastReportName",
            "lastReportFilePath", "userName", "companyName", "prefsVersion" }));
}

TEST(QVSettings, SettersWriteThroughAndAnotherInstanceSeesThem)
{
    QVTestHome home;
    QVSettings writer;
    writer.setDoLogging(true);
    writer.setOrganizeFontsFolder(QStringLiteral("/srv/library"));
    const QDateTime when = QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
    writer.setLastScanDate(when);
    EXPECT_TRUE(QFile::exists(writer.fileName()));

    QVSettings reader;
    EXPECT_TRUE(reader.doLogging());
    EXPECT_EQ(reader.organizeFontsFolder(), QStringLiteral("/srv/library"));
    EXPECT_EQ(reader.lastScanDate(), when);
}

TEST(QVSettings, MigrationKeepsUserNameAndResetsEverythingElse)
{
    QVTestHome home;
    {
        QVSettings old;
        old.setUserName(QStringLiteral("Ada"));
        old.setDiagnoseFileStructure(false);
        old.setPrefsVersion(2);
    }
    int quitCalls = 0;
    QVSettings::migratePreferences([&] { ++quitCalls; });
    QVSettings settings;
    settings.registerUserPreferences();
    EXPECT_EQ(quitCalls, 1);
    EXPECT_EQ(settings.prefsVersion(), 3);
    EXPECT_EQ(settings.userName(), QStringLiteral("Ada"));
    EXPECT_FALSE(settings.hasStoredValue(QStringLiteral("companyName")));
    EXPECT_TRUE(settings.diagnoseFileStructure());

    // At the current version nothing happens.
    settings.setDiagnoseFileStructure(false);
    QVSettings::migratePreferences([&] { ++quitCalls; });
    EXPECT_EQ(quitCalls, 1);
    EXPECT_FALSE(settings.diagnoseFileStructure());
}

TEST(QVSettings, FirstLaunchEndsAtVersionThree)
{
    QVTestHome home;
    QVSettings::migratePreferences();
    QVSettings settings;
    EXPECT_EQ(settings.prefsVersion(), 3);
    EXPECT_FALSE(settings.hasStoredValue(QStringLiteral("userName")));
}

TEST(QVSettings, FontFolderPathsFallBackToExistingSystemFolders)
{
    QVTestHome home;
    QVSettings settings;
    // Only the folders that exist, home folders first, each with a trailing slash.
    QDir().mkpath(home.dataHome() + QStringLiteral("/fonts"));
    QStringList expected { home.dataHome() + QStringLiteral("/fonts/") };
    for (const char *system : { "/usr/local/share/fonts/", "/usr/share/fonts/" }) {
        if (QDir(QString::fromLatin1(system)).exists())
            expected.append(QString::fromLatin1(system));
    }
    EXPECT_EQ(QVSettings::getSystemFontFolderPaths(), expected);
    EXPECT_EQ(settings.fontFolderPaths(), expected);

    QDir().mkpath(home.path() + QStringLiteral("/.fonts"));
    EXPECT_EQ(QVSettings::getSystemFontFolderPaths().value(1), home.path() + QStringLiteral("/.fonts/"));

    settings.setFontFolderPaths({ QStringLiteral("/srv/fonts/") });
    EXPECT_EQ(settings.fontFolderPaths(), QStringList { QStringLiteral("/srv/fonts/") });
    settings.setValue(QStringLiteral("fontFolderPaths"), 42);
    EXPECT_EQ(settings.fontFolderPaths(), QVSettings::getSystemFontFolderPaths());
}

TEST(QVSettings, RecentScansKeepTheirQuirks)
{
    QVTestHome home;
    QVSettings settings;
    EXPECT_FALSE(settings.recentScanFolderPaths().has_value());
    for (int i = 1; i <= 5; ++i)
        settings.addRecentScan(QStringLiteral("/f%1").arg(i));
    EXPECT_EQ(settings.recentScanFolderPaths()->size(), 5);

    // A sixth new folder drops the oldest.
    settings.addRecentScan(QStringLiteral("/f6"));
    EXPECT_EQ(*settings.recentScanFolderPaths(), (QStringList { "/f2", "/f3", "/f4", "/f5", "/f6" }));

    // A folder already in a full list leaves the stored list unchanged.
    settings.addRecentScan(QStringLiteral("/f4"));
    EXPECT_EQ(*settings.recentScanFolderPaths(), (QStringList { "/f2", "/f3", "/f4", "/f5", "/f6" }));

    // Re-adding the oldest entry of a full list moves it to the end.
    settings.addRecentScan(QStringLiteral("/f2"));
    EXPECT_EQ(*settings.recentScanFolderPaths(), (QStringList { "/f3", "/f4", "/f5", "/f6", "/f2" }));

    settings.removeRecentScan(QStringLiteral("/nowhere"));
    EXPECT_EQ(settings.recentScanFolderPaths()->size(), 5);
    settings.removeRecentScan(QStringLiteral("/f5"));
    EXPECT_EQ(*settings.recentScanFolderPaths(), (QStringList { "/f3", "/f4", "/f6", "/f2" }));

    // A one-folder list survives the round trip through the store.
    QVTestHome other;
    QVSettings single;
    single.addRecentScan(QStringLiteral("/only"));
    EXPECT_EQ(*single.recentScanFolderPaths(), QStringList { QStringLiteral("/only") });
}

TEST(QVStringTable, EveryKeyInUseHasAText)
{
    const QStringList used = {
        "any.cancel.title",
        "any.continue.title",
        "any.done.title",
        "any.ok.title",
        "any.quit.title",
        "any.select.folder.title",
        "any.select.title",
        "diagnosis.cancel.info",
        "diagnosis.cancel.message",
        "filemanager.filename.archive",
        "filemanager.scan.canceled",
        "organize.finish.message",
        "scan.label.title",
        "search.cancel.info",
        "search.cancel.message",
        "window.title.scan",
    };
    for (const QString &key : used) {
        EXPECT_TRUE(QVStringTable::contains(key)) << qPrintable(key);
        EXPECT_FALSE(QVStringTable::text(key).isEmpty());
    }
    EXPECT_EQ(QVStringTable::text(QStringLiteral("no.such.key")), QStringLiteral("no.such.key"));
}
