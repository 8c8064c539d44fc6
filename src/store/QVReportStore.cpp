#include "store/QVReportStore.h"

#include "platform/QVAtomicFile.h"
#include "platform/QVFileName.h"
#include "platform/QVFileSystem.h"
#include "platform/QVPrivilegedRunner.h"
#include "settings/QVDataFolder.h"
#include "settings/QVLog.h"
#include "settings/QVSettings.h"
#include "store/QVPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QStandardPaths>
#include <algorithm>
#include <sys/stat.h>

namespace
{

const QString kIndexName = QStringLiteral("dataSource");
// File names stay well below the 255-byte limit, with room for "_N".
constexpr qsizetype kMaxNameBytes = 200;

QString truncatedToBytes(const QString &name, qsizetype maxBytes)
{
    QString result = name;
    while (result.toUtf8().size() > maxBytes) {
        qsizetype cut = result.size() - 1;
        if (cut > 0 && result.at(cut).isLowSurrogate())
            --cut;
        result.truncate(cut);
    }
    return result;
}

bool pathIsTaken(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

QVReportStore::QVReportStore()
{
    loadReportDataSourceFromDisk();
}

QVReportStore::~QVReportStore() = default;

QString QVReportStore::reportFolderPath() const
{
    return QVDataFolder::path() + QStringLiteral("/Reports");
}

QUrl QVReportStore::getReportFolder() const
{
    const QString folder = reportFolderPath();
    QVDataFolder::ensureSubfolder(QFileInfo(folder).fileName());
    return QUrl::fromLocalFile(folder + QLatin1Char('/'));
}

QUrl QVReportStore::getReportFile(const QString &reportName) const
{
    Q_UNUSED(reportName);
    return getReportFolder();
}

QString QVReportStore::addFileToReports(const QVariantMap &report)
{
    const QString displayName = report.value(QStringLiteral("reportName")).toString();
    QString name = displayName;
    name.remove(QLatin1Char('/'));
    name.remove(QLatin1Char(' '));
    name = truncatedToBytes(name, kMaxNameBytes);
    // Never a hidden file, nor one a scan takes for a sidecar ("._").
    if (name.startsWith(QLatin1Char('.')))
        name[0] = QLatin1Char('_');
    if (name.isEmpty())
        name = QStringLiteral("Report");

    const QString folder = getReportFolder().toLocalFile();
    const QString indexPath = folder + kIndexName;
    QString path = QStringLiteral("%1/%2").arg(reportFolderPath(), name);
    // The index file is never a report's name, even before it is first written.
    for (int number = 1; pathIsTaken(path) || path == indexPath; ++number)
        path = QStringLiteral("%1/%2_%3").arg(reportFolderPath(), name, QString::number(number));

    const QByteArray data = report.value(QStringLiteral("reportData")).toString().toUtf8();
    QString error;
    if (const int failed = QVAtomicFile::write(path, data, QVAtomicFile::FolderNotLink))
        error = QVAtomicFile::errorText(path, failed);
    if (!error.isNull()) {
        qCWarning(lcStore).noquote() << QStringLiteral("Error: addFileToReports %1").arg(error);
        return error;
    }

    // Read again first: another window or process may have changed the index
    // since it was loaded, and the commit writes it whole.
    loadReportDataSourceFromDisk();
    addFileToReportsDataSource(path, displayName, report);
    return commitReport();
}

void QVReportStore::addFileToReportsDataSource(
    const QString &filePath, const QString &displayName, const QVariantMap &info)
{
    if (!m_hasIndex)
        return;
    QDateTime date = info.value(QStringLiteral("date")).toDateTime();
    if (!date.isValid())
        date = QDateTime::currentDateTime();
    QVariantMap record;
    record.insert(QStringLiteral("date"), date);
    record.insert(QStringLiteral("reportName"), displayName);
    record.insert(QStringLiteral("filePath"), filePath);
    record.insert(QStringLiteral("qv_total_examined"),
        formatCount(info.value(QStringLiteral("qv_total_examined")).toLongLong()));
    record.insert(QStringLiteral("qv_total_problems"),
        formatCount(info.value(QStringLiteral("qv_total_problems")).toLongLong()));
    m_reportFilesDataArray.append(record);
}

QString QVReportStore::commitReport()
{
    if (!m_hasIndex)
        return QString();
    const QString folder = getReportFolder().toLocalFile();
    QVariantList list;
    list.reserve(m_reportFilesDataArray.size());
    for (const QVariantMap &record : std::as_const(m_reportFilesDataArray))
        list.append(record);
    const QString error = QVPropertyList::writeFile(folder + kIndexName, list);
    if (!error.isNull())
        qCWarning(lcStore).noquote() << QStringLiteral("Error: commitReport %1").arg(error);
    return error;
}

void QVReportStore::loadReportDataSourceFromDisk()
{
    m_reportFilesDataArray.clear();
    m_hasIndex = true;
    const QString indexPath = reportFolderPath() + QLatin1Char('/') + kIndexName;
    if (!QVFileSystem::exists(indexPath))
        return;
    QString error;
    const QVariant root = QVPropertyList::readFile(indexPath, &error);
    if (root.typeId() != QMetaType::QVariantList) {
        qCWarning(lcStore).noquote() << QStringLiteral("Error: loadReportDataSourceFromDisk %1 %2")
                                            .arg(indexPath,
                                                error.isEmpty() ? QStringLiteral("not a list") : error);
        m_hasIndex = false;
        return;
    }
    const QVariantList list = root.toList();
    for (const QVariant &item : list) {
        if (item.typeId() == QMetaType::QVariantMap)
            m_reportFilesDataArray.append(item.toMap());
    }
}

QString QVReportStore::getReportFileData(const QString &filePath) const
{
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcStore).noquote() << QStringLiteral("Error: getReportFileData %1").arg(file.errorString());
        return QString();
    }
    const QString text = QString::fromUtf8(file.readAll());
    return text.isNull() ? QStringLiteral("") : text;
}

void QVReportStore::clearReports()
{
    for (const QVariantMap &record : std::as_const(m_reportFilesDataArray)) {
        const QString path = record.value(QStringLiteral("filePath")).toString();
        if (isInsideReportFolder(path) && QVFileSystem::exists(path))
            QFile::remove(path);
    }
    if (!QVAtomicFile::isSymLink(reportFolderPath()) && !QVAtomicFile::isSymLink(QVDataFolder::path()))
        QFile::remove(reportFolderPath() + QLatin1Char('/') + kIndexName);
}

QString QVReportStore::cleanFontCaches()
{
    // fontconfig rebuilds what is missing on its next run.
    static const QRegularExpression cacheFile(QStringLiteral("\\.cache-\\d+$"));
    const QDir userCache(userFontCacheFolder());
    const QStringList names = userCache.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QString &name : names) {
        if (cacheFile.match(name).hasMatch() && !QFile::remove(userCache.filePath(name)))
            qCWarning(lcStore).noquote()
                << QStringLiteral("Error: cleanFontCaches could not remove %1").arg(userCache.filePath(name));
    }

    // Where the package puts it, never whatever PATH finds first: it runs as root.
    const QString error = QVPrivilegedRunner::shared()->runWithAdministratorRights(
        QStringLiteral("/usr/bin/fc-cache"), { QStringLiteral("-r") });
    if (!error.isNull())
        qCWarning(lcStore).noquote() << QStringLiteral("Error: cleanFontCaches %1").arg(error);
    return error;
}

QList<QVariantMap> QVReportStore::recordsByDate() const
{
    QList<QVariantMap> records = m_reportFilesDataArray;
    std::stable_sort(records.begin(), records.end(), [](const QVariantMap &a, const QVariantMap &b) {
        return a.value(QStringLiteral("date")).toDateTime() < b.value(QStringLiteral("date")).toDateTime();
    });
    return records;
}

QString QVReportStore::renameReport(const QString &filePath, const QString &newName)
{
    bool found = false;
    bool changed = false;
    for (QVariantMap &record : m_reportFilesDataArray) {
        if (record.value(QStringLiteral("filePath")).toString() != filePath)
            continue;
        found = true;
        if (newName.isEmpty() || record.value(QStringLiteral("reportName")).toString() == newName)
            continue;
        record.insert(QStringLiteral("reportName"), newName);
        changed = true;
    }
    if (!found)
        return QStringLiteral("No saved report at %1").arg(filePath);
    if (!changed)
        return QString();
    QVSettings settings;
    if (settings.lastReportFilePath() == filePath)
        settings.setLastReportName(newName);
    return commitReport();
}

QStringList QVReportStore::removeReports(const QStringList &filePaths)
{
    QStringList errors;
    QVSettings settings;
    for (const QString &path : filePaths) {
        if (isInsideReportFolder(path) && QVFileSystem::exists(path)) {
            QFile file(path);
            if (!file.remove()) {
                const QString error = QStringLiteral("Remove File Error: %1").arg(file.errorString());
                qCWarning(lcStore).noquote() << error;
                errors.append(error);
            }
        }
        m_reportFilesDataArray.removeIf([&path](const QVariantMap &record) {
            return record.value(QStringLiteral("filePath")).toString() == path;
        });
        if (settings.lastReportFilePath() == path) {
            settings.removeValue(QStringLiteral("lastReportName"));
            settings.removeValue(QStringLiteral("lastReportFilePath"));
        }
    }
    const QString error = commitReport();
    if (!error.isNull())
        errors.append(error);
    return errors;
}

QString QVReportStore::browserCopyOfReport(const QString &filePath, QString *error) const
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + QStringLiteral("/Quorvel/Reports");
    if (!QDir().mkpath(folder)) {
        *error = QStringLiteral("cannot create %1").arg(folder);
        return QString();
    }
    const QString copy = folder + QLatin1Char('/') + QFileInfo(filePath).fileName() + QStringLiteral(".html");
    QFile::remove(copy);
    QFile source(filePath);
    if (!source.copy(copy)) {
        *error = source.errorString();
        return QString();
    }
    return copy;
}

QString QVReportStore::formatCount(qint64 count)
{
    static const QLocale grouping(QLocale::English, QLocale::UnitedStates);
    return grouping.toString(count);
}

QString QVReportStore::userFontCacheFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + QStringLiteral("/fontconfig");
}

bool QVReportStore::isInsideReportFolder(const QString &filePath) const
{
    if (filePath.isEmpty())
        return false;
    const QFileInfo info(QDir::cleanPath(filePath));
    // A folder of ours replaced by a link names someone else's files.
    return info.isAbsolute() && info.absolutePath() == QDir::cleanPath(reportFolderPath())
        && info.fileName() != kIndexName && !QVAtomicFile::isSymLink(reportFolderPath())
        && !QVAtomicFile::isSymLink(QVDataFolder::path());
}
