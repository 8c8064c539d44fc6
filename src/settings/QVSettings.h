// The preferences: every key with its default, read and written through the
// per-user settings store of the application's bundle identifier. Holds no
// state of its own, so any number of instances see the same values.
#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

class QSettings;

class QVSettings
{
public:
    enum class Type { Bool, String, StringList, Date, Integer };

    struct Key {
        const char *name;
        Type type;
        bool registered; // has a registered default
    };

    static constexpr const char *kBundleIdentifier = "org.quorvel.Quorvel";
    static constexpr const char *kHandlerBundleIdentifier = "org.quorvel.QuorvelHandler";
    static constexpr const char *kSchedulerBundleIdentifier = "org.quorvel.QuorvelScheduler";
    static constexpr int kCurrentPrefsVersion = 3;

    explicit QVSettings(const QString &bundleIdentifier = QString::fromLatin1(kBundleIdentifier));
    ~QVSettings();

    // Every key the application knows: the registered ones first, in the order
    // of the defaults, then those that are absent until first written.
    static const QList<Key> &allKeys();
    static std::optional<Key> keyNamed(const QString &name);

    // The registered defaults, fresh each call.
    QVariantMap getDefaultsDictionary() const;
    // Puts the defaults in force for this process; nothing is written to disk.
    void registerUserPreferences();
    // Clears the process's registered defaults (for tests that start afresh).
    static void unregisterUserPreferences();

    // Brings an older store to the current layout: everything but the user's
    // name and company returns to its default. quitHelpers runs after a reset so
    // that running helpers restart with the fresh values.
    static void migratePreferences(const std::function<void()> &quitHelpers = {},
        const QString &bundleIdentifier = QString::fromLatin1(kBundleIdentifier));

    // The Linux font folders that exist, in search order, each with a trailing slash.
    static QStringList getSystemFontFolderPaths();

    // Where the settings file lives.
    QString fileName() const;

    // Generic access, used by the accessors and the command line.
    QVariant value(const QString &key) const;
    bool hasStoredValue(const QString &key) const;
    // False when the settings file could not be written (the value is lost).
    bool setValue(const QString &key, const QVariant &value);
    void removeValue(const QString &key);

#define QV_BOOL_SETTING(getter, setter)                                                                      \
    bool getter() const                                                                                      \
    {                                                                                                        \
        return boolValue(QStringLiteral(#getter));                                                           \
    }                                                                                                        \
    void setter(bool value)                                                                                  \
    {                                                                                                        \
        setValue(QStringLiteral(#getter), value);                                                            \
    }
#define QV_STRING_SETTING(getter, setter)                                                                    \
    QString getter() const                                                                                   \
    {                                                                                                        \
        return stringValue(QStringLiteral(#getter));                                                         \
    }                                                                                                        \
    void setter(const QString &value)                                                                        \
    {                                                                                                        \
        setValue(QStringLiteral(#getter), value);                                                            \
    }
#define QV_DATE_SETTING(getter, setter)                                                                      \
    QDateTime getter() const                                                                                 \
    {                                                                                                        \
        return value(QStringLiteral(#getter)).toDateTime();                                                  \
    }                                                                                                        \
    void setter(const QDateTime &value)                                                                      \
    {                                                                                                        \
        setValue(QStringLiteral(#getter), value);                                                            \
    }

    QV_BOOL_SETTING(isInitialRun, setIsInitialRun)
    QV_BOOL_SETTING(diagnoseFileStructure, setDiagnoseFileStructure)
    QV_BOOL_SETTING(ignoreSystemFonts, setIgnoreSystemFonts)
    QV_BOOL_SETTING(ignoreApplicationFonts, setIgnoreApplicationFonts)
    QV_BOOL_SETTING(resolveFileAliases, setResolveFileAliases)
    QV_BOOL_SETTING(findDuplicateFonts, setFindDuplicateFonts)
    QV_BOOL_SETTING(findOrpanedFonts, setFindOrpanedFonts)
    QV_BOOL_SETTING(automaticallySaveReports, setAutomaticallySaveReports)
    QV_BOOL_SETTING(showReports, setShowReports)
    QV_BOOL_SETTING(dontShowWelcomeScreenAtStartup, setDontShowWelcomeScreenAtStartup)
    QV_BOOL_SETTING(checkForUpdates, setCheckForUpdates)
    QV_BOOL_SETTING(showHelperMenu, setShowHelperMenu)
    QV_BOOL_SETTING(autoScanEnabled, setAutoScanEnabled)
    QV_BOOL_SETTING(autoScanModifiedFolders, setAutoScanModifiedFolders)
    QV_BOOL_SETTING(autoScanQuitWhenDone, setAutoScanQuitWhenDone)
    QV_BOOL_SETTING(allStylesRequirePostScript, setAllStylesRequirePostScript)
    QV_BOOL_SETTING(diagnoseType3fonts, setDiagnoseType3fonts)
    QV_BOOL_SETTING(matchVersionNumbers, setMatchVersionNumbers)
    QV_BOOL_SETTING(checkFontActivation, setCheckFontActivation)
    // After the examination, a scan recomputes checksums, follows every table
    // and loads every glyph of its SFNT fonts.
    QV_BOOL_SETTING(deepCheck, setDeepCheck)
    QV_BOOL_SETTING(organizeFonts, setOrganizeFonts)
    QV_STRING_SETTING(organizeFontsFolder, setOrganizeFontsFolder)
    QV_BOOL_SETTING(createAlphabetFolders, setCreateAlphabetFolders)
    QV_BOOL_SETTING(createFoundryFolders, setCreateFoundryFolders)
    QV_BOOL_SETTING(createFamilyFolders, setCreateFamilyFolders)
    QV_BOOL_SETTING(copyFontFiles, setCopyFontFiles)
    QV_BOOL_SETTING(usePostscriptNameForFonts, setUsePostscriptNameForFonts)
    QV_BOOL_SETTING(useFamilyNameForFonts, setUseFamilyNameForFonts)
    QV_BOOL_SETTING(showLibraryFolder, setShowLibraryFolder)
    QV_STRING_SETTING(autoScanFrequency, setAutoScanFrequency)
    QV_BOOL_SETTING(doLogging, setDoLogging)
    QV_BOOL_SETTING(scanAllDisks, setScanAllDisks)
    QV_DATE_SETTING(lastScanDate, setLastScanDate)
    QV_DATE_SETTING(lastAutoScanDate, setLastAutoScanDate)
    QV_STRING_SETTING(lastScanType, setLastScanType)
    QV_STRING_SETTING(lastScanProblemCount, setLastScanProblemCount)
    QV_STRING_SETTING(lastScanTotalCount, setLastScanTotalCount)
    QV_STRING_SETTING(lastReportName, setLastReportName)
    QV_STRING_SETTING(lastReportFilePath, setLastReportFilePath)
    QV_STRING_SETTING(userName, setUserName)
    QV_STRING_SETTING(companyName, setCompanyName)
    // Where update checks read the feed of releases; empty: none is made.
    QV_STRING_SETTING(updateFeedURL, setUpdateFeedURL)

#undef QV_BOOL_SETTING
#undef QV_STRING_SETTING
#undef QV_DATE_SETTING

    // Files a scan reads at once; 0: one per processor core.
    int scanJobs() const
    {
        return value(QStringLiteral("scanJobs")).toInt();
    }
    void setScanJobs(int jobs)
    {
        setValue(QStringLiteral("scanJobs"), jobs);
    }

    int prefsVersion() const
    {
        return value(QStringLiteral("prefsVersion")).toInt();
    }
    void setPrefsVersion(int version)
    {
        setValue(QStringLiteral("prefsVersion"), version);
    }

    // The stored folders, or the system font folders when none are stored.
    // Never empty-handed: the fallback is always computed.
    QStringList fontFolderPaths() const;
    void setFontFolderPaths(const QStringList &paths);

    // The recent manual scans, oldest first; std::nullopt when none are stored.
    std::optional<QStringList> recentScanFolderPaths() const;
    void setRecentScanFolderPaths(const QStringList &paths);
    // A full list (five) loses its oldest entry first; the path is appended and
    // stored only when it is not already there.
    void addRecentScan(const QString &path);
    // Removes every entry equal to the path, when a list is stored and holds it.
    void removeRecentScan(const QString &path);

private:
    bool boolValue(const QString &key) const;
    QString stringValue(const QString &key) const;
    std::unique_ptr<QSettings> openStore() const;

    QString m_bundleIdentifier;
};
