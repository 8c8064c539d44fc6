#include "settings/QVSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QSettings>
#include <QStandardPaths>

namespace
{

QMutex registrationMutex;
QVariantMap registeredDefaults;

using Type = QVSettings::Type;

const QList<QVSettings::Key> keyTable = {
    { "isInitialRun", Type::Bool, true },
    { "diagnoseFileStructure", Type::Bool, true },
    { "ignoreSystemFonts", Type::Bool, true },
    { "ignoreApplicationFonts", Type::Bool, true },
    { "resolveFileAliases", Type::Bool, true },
    { "findDuplicateFonts", Type::Bool, true },
    { "findOrpanedFonts", Type::Bool, true },
    { "automaticallySaveReports", Type::Bool, true },
    { "showReports", Type::Bool, true },
    { "dontShowWelcomeScreenAtStartup", Type::Bool, true },
    { "checkForUpdates", Type::Bool, true },
    { "showHelperMenu", Type::Bool, true },
    { "autoScanEnabled", Type::Bool, true },
    { "autoScanModifiedFolders", Type::Bool, true },
    { "autoScanQuitWhenDone", Type::Bool, true },
    { "allStylesRequirePostScript", Type::Bool, true },
    { "diagnoseType3fonts", Type::Bool, true },
    { "matchVersionNumbers", Type::Bool, true },
    { "checkFontActivation", Type::Bool, true },
    { "deepCheck", Type::Bool, true },
    { "organizeFonts", Type::Bool, true },
    { "organizeFontsFolder", Type::String, true },
    { "createAlphabetFolders", Type::Bool, true },
    { "createFoundryFolders", Type::Bool, true },
    { "createFamilyFolders", Type::Bool, true },
    { "copyFontFiles", Type::Bool, true },
    { "usePostscriptNameForFonts", Type::Bool, true },
    { "useFamilyNameForFonts", Type::Bool, true },
    { "showLibraryFolder", Type::Bool, true },
    { "autoScanFrequency", Type::String, true },
    { "doLogging", Type::Bool, true },
    { "fontFolderPaths", Type::StringList, true },
    { "scanAllDisks", Type::Bool, false },
    { "recentScanFolderPaths", Type::StringList, false },
    { "lastScanDate", Type::Date, false },
    { "lastAutoScanDate", Type::Date, false },
    { "lastScanType", Type::String, false },
    { "lastScanProblemCount", Type::String, false },
    { "lastScanTotalCount", Type::String, false },
    { "lastReportName", Type::String, false },
    { "lastReportFilePath", Type::String, false },
    { "userName", Type::String, false },
    { "companyName", Type::String, false },
    { "prefsVersion", Type::Integer, false },
    { "scanJobs", Type::Integer, true },
    { "updateFeedURL", Type::String, false },
};

constexpr int kMaxRecentScans = 5;

// The INI store reads a one-element list back as a plain string.
std::optional<QStringList> asStringList(const QVariant &value)
{
    if (!value.isValid())
        return std::nullopt;
    if (value.typeId() == QMetaType::QString)
        return QStringList { value.toString() };
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList();
    if (value.typeId() == QMetaType::QVariantList) {
        QStringList list;
        for (const QVariant &item : value.toList()) {
            if (item.typeId() != QMetaType::QString)
                return std::nullopt;
            list.append(item.toString());
        }
        return list;
    }
    return std::nullopt;
}

} // namespace

QVSettings::QVSettings(const QString &bundleIdentifier)
    : m_bundleIdentifier(bundleIdentifier)
{
}

QVSettings::~QVSettings() = default;

const QList<QVSettings::Key> &QVSettings::allKeys()
{
    return keyTable;
}

std::optional<QVSettings::Key> QVSettings::keyNamed(const QString &name)
{
    for (const Key &key : keyTable) {
        if (name == QLatin1String(key.name))
            return key;
    }
    return std::nullopt;
}

QString QVSettings::fileName() const
{
    const QString configHome = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return configHome + QLatin1Char('/') + m_bundleIdentifier + QStringLiteral(".conf");
}

std::unique_ptr<QSettings> QVSettings::openStore() const
{
    return std::make_unique<QSettings>(fileName(), QSettings::IniFormat);
}

QVariantMap QVSettings::getDefaultsDictionary() const
{
    QVariantMap defaults;
    defaults.insert(QStringLiteral("isInitialRun"), true);
    defaults.insert(QStringLiteral("diagnoseFileStructure"), true);
    defaults.insert(QStringLiteral("ignoreSystemFonts"), true);
    defaults.insert(QStringLiteral("ignoreApplicationFonts"), true);
    defaults.insert(QStringLiteral("resolveFileAliases"), true);
    defaults.insert(QStringLiteral("findDuplicateFonts"), true);
    defaults.insert(QStringLiteral("findOrpanedFonts"), true);
    defaults.insert(QStringLiteral("automaticallySaveReports"), true);
    defaults.insert(QStringLiteral("showReports"), true);
    defaults.insert(QStringLiteral("dontShowWelcomeScreenAtStartup"), false);
    defaults.insert(QStringLiteral("checkForUpdates"), true);
    defaults.insert(QStringLiteral("showHelperMenu"), true);
    defaults.insert(QStringLiteral("autoScanEnabled"), true);
    defaults.insert(QStringLiteral("autoScanModifiedFolders"), true);
    defaults.insert(QStringLiteral("autoScanQuitWhenDone"), true);
    defaults.insert(QStringLiteral("allStylesRequirePostScript"), true);
    defaults.insert(QStringLiteral("diagnoseType3fonts"), true);
    defaults.insert(QStringLiteral("matchVersionNumbers"), true);
    defaults.insert(QStringLiteral("checkFontActivation"), false);
    defaults.insert(QStringLiteral("deepCheck"), false);
    defaults.insert(QStringLiteral("organizeFonts"), false);
    defaults.insert(QStringLiteral("organizeFontsFolder"), QString(""));
    defaults.insert(QStringLiteral("createAlphabetFolders"), false);
    defaults.insert(QStringLiteral("createFoundryFolders"), true);
    defaults.insert(QStringLiteral("createFamilyFolders"), true);
    defaults.insert(QStringLiteral("copyFontFiles"), true);
    defaults.insert(QStringLiteral("usePostscriptNameForFonts"), true);
    defaults.insert(QStringLiteral("useFamilyNameForFonts"), false);
    defaults.insert(QStringLiteral("showLibraryFolder"), false);
    defaults.insert(QStringLiteral("autoScanFrequency"), QStringLiteral("kMonthly"));
    defaults.insert(QStringLiteral("doLogging"), false);
    defaults.insert(QStringLiteral("scanJobs"), 0);
    defaults.insert(QStringLiteral("fontFolderPaths"), getSystemFontFolderPaths());
    return defaults;
}

void QVSettings::registerUserPreferences()
{
    const QVariantMap defaults = getDefaultsDictionary();
    QMutexLocker locker(&registrationMutex);
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        registeredDefaults.insert(it.key(), it.value());
}

void QVSettings::unregisterUserPreferences()
{
    QMutexLocker locker(&registrationMutex);
    registeredDefaults.clear();
}

void QVSettings::migratePreferences(const std::function<void()> &quitHelpers, const QString &bundleIdentifier)
{
    QVSettings settings(bundleIdentifier);
    if (settings.prefsVersion() == kCurrentPrefsVersion)
        return;
    const QVariant userName = settings.hasStoredValue(QStringLiteral("userName"))
        ? settings.value(QStringLiteral("userName"))
        : QVariant();
    const QVariant companyName = settings.hasStoredValue(QStringLiteral("companyName"))
        ? settings.value(QStringLiteral("companyName"))
        : QVariant();
    {
        auto store = settings.openStore();
        store->clear();
        store->sync();
    }
    settings.setPrefsVersion(kCurrentPrefsVersion);
    if (userName.typeId() == QMetaType::QString)
        settings.setUserName(userName.toString());
    else
        settings.removeValue(QStringLiteral("userName"));
    if (companyName.typeId() == QMetaType::QString)
        settings.setCompanyName(companyName.toString());
    else
        settings.removeValue(QStringLiteral("companyName"));
    if (quitHelpers)
        quitHelpers();
}

QStringList QVSettings::getSystemFontFolderPaths()
{
    const QString home = QDir::homePath();
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QStringList candidates = {
        dataHome + QStringLiteral("/fonts/"),
        home + QStringLiteral("/.fonts/"),
        QStringLiteral("/usr/local/share/fonts/"),
        QStringLiteral("/usr/share/fonts/"),
    };
    QStringList existing;
    for (const QString &folder : candidates) {
        if (QFileInfo(folder).isDir() && !existing.contains(folder))
            existing.append(folder);
    }
    return existing;
}

QVariant QVSettings::value(const QString &key) const
{
    auto store = openStore();
    if (store->contains(key))
        return store->value(key);
    QMutexLocker locker(&registrationMutex);
    return registeredDefaults.value(key);
}

bool QVSettings::hasStoredValue(const QString &key) const
{
    return openStore()->contains(key);
}

bool QVSettings::setValue(const QString &key, const QVariant &value)
{
    auto store = openStore();
    store->setValue(key, value);
    store->sync();
    return store->status() == QSettings::NoError;
}

void QVSettings::removeValue(const QString &key)
{
    auto store = openStore();
    store->remove(key);
    store->sync();
}

bool QVSettings::boolValue(const QString &key) const
{
    const QVariant stored = value(key);
    if (!stored.isValid())
        return false;
    if (stored.typeId() == QMetaType::QString) {
        const QString text = stored.toString().toLower();
        return text == QLatin1String("true") || text == QLatin1String("yes") || text == QLatin1String("1");
    }
    return stored.toBool();
}

QString QVSettings::stringValue(const QString &key) const
{
    const QVariant stored = value(key);
    if (!stored.isValid() || stored.typeId() == QMetaType::QStringList
        || stored.typeId() == QMetaType::QVariantList)
        return QString();
    return stored.toString();
}

QStringList QVSettings::fontFolderPaths() const
{
    const std::optional<QStringList> stored = asStringList(value(QStringLiteral("fontFolderPaths")));
    if (stored && !stored->isEmpty())
        return *stored;
    return getSystemFontFolderPaths();
}

void QVSettings::setFontFolderPaths(const QStringList &paths)
{
    setValue(QStringLiteral("fontFolderPaths"), paths);
}

std::optional<QStringList> QVSettings::recentScanFolderPaths() const
{
    return asStringList(value(QStringLiteral("recentScanFolderPaths")));
}

void QVSettings::setRecentScanFolderPaths(const QStringList &paths)
{
    setValue(QStringLiteral("recentScanFolderPaths"), paths);
}

void QVSettings::addRecentScan(const QString &path)
{
    QStringList recent = recentScanFolderPaths().value_or(QStringList());
    if (recent.size() == kMaxRecentScans)
        recent.removeFirst();
    // When the path is already there nothing is stored, so the entry dropped
    // above survives in the store; re-adding the oldest entry of a full list
    // therefore moves it to the end.
    if (!recent.contains(path)) {
        recent.append(path);
        setRecentScanFolderPaths(recent);
    }
}

void QVSettings::removeRecentScan(const QString &path)
{
    std::optional<QStringList> recent = recentScanFolderPaths();
    if (!recent || !recent->contains(path))
        return;
    recent->removeAll(path);
    setRecentScanFolderPaths(*recent);
}
