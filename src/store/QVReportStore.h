// The saved reports: one HTML file per report in the data folder's "Reports"
// folder and an index of them ("dataSource", an XML property list), plus the
// clearing of the font caches. The file manager exposes these duties.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

class QVReportStore
{
public:
    // Loads the index from disk.
    QVReportStore();
    ~QVReportStore();
    QVReportStore(const QVReportStore &) = delete;
    QVReportStore &operator=(const QVReportStore &) = delete;

    // The Reports folder as a directory URL (created when missing).
    QUrl getReportFolder() const;
    // The same folder whatever the argument.
    QUrl getReportFile(const QString &reportName) const;
    // The Reports folder's path, without a trailing slash.
    QString reportFolderPath() const;

    // Stores a report: "reportName", "reportData" (the HTML) and its
    // information ("date", "qv_total_examined", "qv_total_problems"). Returns a
    // null string on success, else the error; the index is read again from
    // disk, the record appended and the index saved.
    QString addFileToReports(const QVariantMap &report);
    // Appends an index record; nothing is written here.
    void addFileToReportsDataSource(
        const QString &filePath, const QString &displayName, const QVariantMap &info);
    // Writes the index whole and atomically; a null string on success.
    QString commitReport();
    void loadReportDataSourceFromDisk();
    // The report's text, or a null string when it cannot be read.
    QString getReportFileData(const QString &filePath) const;
    // Deletes every indexed report file and the index file. The in-memory index
    // is left as it is: the caller resets it.
    void clearReports();

    // Removes the user's fontconfig cache files, then rebuilds the system's
    // caches with administrator rights. A null string on success.
    QString cleanFontCaches();

    // The index, in the order the reports were added.
    const QList<QVariantMap> &reportFilesDataArray() const { return m_reportFilesDataArray; }
    // False when "dataSource" exists but is not a list of records: nothing
    // appended is kept, and nothing is written over the damaged file.
    bool hasReportIndex() const { return m_hasIndex; }

    // The records, oldest first (the order of the reports list).
    QList<QVariantMap> recordsByDate() const;
    // Renames the report of filePath in the index (the file keeps its name),
    // saves the index and follows the newest-report name in the settings. An
    // empty or unchanged name changes nothing. A null string on success.
    QString renameReport(const QString &filePath, const QString &newName);
    // Deletes the report files and their records, saves the index, and forgets
    // the newest report in the settings when it is among them. Returns the
    // errors met (one line each); the records go even when a file could not.
    QStringList removeReports(const QStringList &filePaths);

    // Browsers go by a file's extension and report files have none: a copy
    // named "NAME.html" in the cache folder is what a browser is given. Returns
    // its path, or an empty string with *error set.
    QString browserCopyOfReport(const QString &filePath, QString *error) const;

    // Counts as the index stores them: "," between groups of three digits.
    static QString formatCount(qint64 count);
    // The user's fontconfig cache folder.
    static QString userFontCacheFolder();

private:
    // Only files directly inside the Reports folder are ever deleted, whatever a
    // damaged or edited index says.
    bool isInsideReportFolder(const QString &filePath) const;

    QList<QVariantMap> m_reportFilesDataArray;
    bool m_hasIndex = true;
};
