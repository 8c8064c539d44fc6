#include "store/QVUninstaller.h"

#include "platform/QVLoginItem.h"
#include "platform/QVPackageFiles.h"
#include "platform/QVPrivilegedRunner.h"
#include "settings/QVDataFolder.h"
#include "settings/QVSettings.h"
#include "store/QVQuarantineStore.h"
#include "store/QVReportStore.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <csignal>
#include <sys/types.h>

namespace
{

const char *const kBundleIdentifiers[] = { QVSettings::kBundleIdentifier,
    QVSettings::kHandlerBundleIdentifier, QVSettings::kSchedulerBundleIdentifier };

// How long the uninstall waits for a run that holds the quarantine.
constexpr int kLockWaitMs = 5000;

void removeFile(const QString &path, QVUninstaller::Result &result)
{
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return;
    if (QFile::remove(path))
        result.removed.append(path);
    else
        result.errors.append(QStringLiteral("%1 could not be removed").arg(path));
}

// A folder of ours goes only when it is empty: anything the user put there stays.
void removeEmptyFolder(const QString &path, QVUninstaller::Result &result)
{
    if (QFileInfo(path).isDir() && !QFileInfo(path).isSymLink() && QDir().rmdir(path))
        result.removed.append(path);
}

} // namespace

void QVUninstaller::stopHelper(const QString &bundleIdentifier)
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    if (!bus || !QVLoginItem::isRunning(bundleIdentifier))
        return;
    const QDBusReply<uint> pid = bus->servicePid(bundleIdentifier);
    if (!pid.isValid() || pid.value() == 0)
        return;
    // Only one of our helpers is asked to go, whatever else owns the name.
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid.value()));
    if (comm.open(QIODevice::ReadOnly) && comm.readAll().startsWith("quorvel-"))
        ::kill(pid_t(pid.value()), SIGTERM);
}

QVUninstaller::Result QVUninstaller::removeUserData()
{
    Result result;
    QVQuarantineStore quarantine;
    const QString lockError = quarantine.lockForRun(kLockWaitMs);
    if (!lockError.isNull()) {
        result.errors.append(lockError);
        return result;
    }
    for (const char *identifier : kBundleIdentifiers) {
        const QString id = QString::fromLatin1(identifier);
        if (id != QLatin1String(QVSettings::kBundleIdentifier) && m_stopHelper)
            m_stopHelper(id);
        removeFile(QVLoginItem::entryPath(id), result);
    }
    for (const char *identifier : kBundleIdentifiers)
        removeFile(QVSettings(QString::fromLatin1(identifier)).fileName(), result);

    const QString quarantineFolder = quarantine.quarantineFolderPath();
    const int quarantined = int(quarantine.quarantinedFilesDataArray.size());
    quarantine.clearQuarantine();
    result.removed.append(QStringLiteral("%1 quarantined fonts").arg(quarantined));
    QVReportStore reports;
    const QString reportFolder = reports.reportFolderPath();
    const int reportCount = int(reports.reportFilesDataArray().size());
    reports.clearReports();
    result.removed.append(QStringLiteral("%1 reports").arg(reportCount));

    // Quorvel's own files in its data and cache folders; the folders go when
    // nothing else is left in them.
    const QString dataFolder = QVDataFolder::path();
    removeFile(dataFolder + QStringLiteral("/Quorvel.log"), result);
    removeEmptyFolder(quarantineFolder, result);
    removeEmptyFolder(reportFolder, result);
    const QString cacheFolder
        = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/Quorvel");
    QDir reportCopies(cacheFolder + QStringLiteral("/Reports"));
    for (const QString &name :
        reportCopies.entryList({ QStringLiteral("*.html") }, QDir::Files | QDir::Hidden))
        removeFile(reportCopies.filePath(name), result);
    removeEmptyFolder(reportCopies.path(), result);
    removeEmptyFolder(cacheFolder, result);
    // The lock file goes last, while it is still held.
    QFile::remove(quarantine.lockPath());
    quarantine.unlock();
    removeEmptyFolder(dataFolder, result);
    return result;
}

void QVUninstaller::removeProgram(Result &result)
{
    const QString program = m_programPath.isEmpty() ? QCoreApplication::applicationFilePath() : m_programPath;
    if (!QVPackageFiles::isPackageFile(program)) {
        // A build or a copy of the user's own: deleting a folder we did not
        // put there is not ours to do.
        result.programNote = QStringLiteral(
            "Quorvel was not installed by a package here, so its program files in %1 were left as they are. "
            "Delete that folder yourself if you no longer need it.")
                                 .arg(QFileInfo(program).absolutePath());
        return;
    }
    const QString error
        = QVPrivilegedRunner::shared()->runWithAdministratorRights(QStringLiteral("/usr/bin/apt-get"),
            { QStringLiteral("remove"), QStringLiteral("--yes"), m_packageName });
    if (error.isNull())
        result.programNote = QStringLiteral("The package %1 was removed.").arg(m_packageName);
    else
        result.programNote = QStringLiteral("The package %1 could not be removed (%2). Remove it with: "
                                            "sudo apt-get remove %1")
                                 .arg(m_packageName, error);
}
