// The quarantine: a flat folder in the data folder holding the fonts moved out
// of the way, and its index "dataSource" (an XML property list, one record per
// quarantined file or suitcase member). Moves go through QVFilePair so a font
// keeps its resource fork and Finder info; a file the user may not move goes
// through the privileged runner.
//
// Crash safety: before a font is moved, the record it will get is written to a
// journal beside the index ("dataSource.journal"); commitQuarantine() empties
// it. Loading the index settles what a killed run left in the journal: a font
// that reached the quarantine gets its record (and a fork left behind at the
// old place follows it), one that never moved is forgotten. Every font is thus
// where it was or listed in the quarantine. A store holds a lock file beside
// the journal while its journal has entries, so a journal is settled only when
// the process that wrote it is gone, and two processes never share one.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"

#include <QList>
#include <QString>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class QLockFile;
class QVFontDataManager;

class QVQuarantineStore
{
public:
    // Loads the index (and settles the journal). dataMgr supplies the other
    // fonts of the scan for the sister PostScript rule; it may be null.
    explicit QVQuarantineStore(QVFontDataManager *dataMgr = nullptr);
    ~QVQuarantineStore();
    QVQuarantineStore(const QVQuarantineStore &) = delete;
    QVQuarantineStore &operator=(const QVQuarantineStore &) = delete;

    // The quarantine folder as a directory URL (created, 0777, when missing).
    QUrl getQuarantineFolder() const;
    // Its path without a trailing slash.
    QString quarantineFolderPath() const;
    // Null when the data folder and the quarantine folder are folders (or not
    // made yet); else why nothing may be moved into or out of them: one that
    // is a symbolic link is never followed.
    QString folderProblem() const;
    QString indexPath() const;
    QString journalPath() const;

    // Null on success (or when there was nothing to do), else the error text.
    QString moveFileToQuarantine(
        const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason);
    // True when sister PostScript files went with a quarantined bitmap font.
    bool moveSisterPostScriptFontToQuarantine(
        const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason);
    // Appends a record (only for a status marked movedToQuarantine). Nothing is
    // written to disk.
    void addFileToQuarantineDataSource(const QString &quarantineFileName, const QVFontFilePtr &fontFile,
        const QVStatusPtr &fontStatus, const QString &reason);
    // The record addFileToQuarantineDataSource appends, whatever the marks.
    static QVariantMap makeRecord(const QString &quarantineFileName, const QVFontFilePtr &fontFile,
        const QVStatusPtr &fontStatus, const QString &reason);
    // The display name of a font in a record.
    static QString displayName(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus);

    static void markAsMoved(const QVFontFilePtr &fontFile, int fontSize, const QString &fontStyle);
    static void updateFileMovedStatus(const QVFontFilePtr &fontFile, bool toQuarantine);
    static void updateFontMovedStatus(const QVFontFilePtr &fontFile, const QString &psName,
        const QString &fontName, bool allStyles, bool asQuarantine);
    static void updateFontMovedStatusForAllFonts(const QVFontFilePtr &fontFile);

    // Writes the index atomically and empties the journal. Null on success.
    QString commitQuarantine();
    void loadQuarantineDataSourceFromDisk();
    // Deletes every indexed file, the index and the journal (errors ignored).
    // The in-memory index is left as it is.
    void clearQuarantine();

    // Privileged operations. Polkit grants on the first run, so there is
    // nothing to obtain up front: "authorized" means a runner is available.
    bool getAuthorization();
    // pkexec /bin/mv -f -T -- SRC DST, and the same for each companion of SRC.
    // The runner is waited for, so the result says what happened.
    QString authorizedMoveFileToQuarantine(const QString &source, const QString &destination);
    // pkexec /bin/rm -f -- PATH COMPANIONS...
    QString authorizedDeleteFile(const QString &path);

    // The first free "FOLDER/NAME", "FOLDER/BASE N.EXT" or (keepExtension
    // false, or no extension) "FOLDER/NAME N". A name counts as taken when the
    // file or one of its companions exists there.
    static QString uniqueDestination(const QString &folder, const QString &name, bool keepExtension);

    // Records a move about to happen (written at once, atomically); the entry
    // leaves the journal with the next commit. kind: "file" or "suitcase".
    bool journalIntent(const QString &kind, const QString &source, const QVariantMap &record);
    // Forgets the last intent (the move failed before anything changed).
    void dropLastIntent();

    QList<QVariantMap> quarantinedFilesDataArray;
    // False when "dataSource" exists but is not a list of records.
    bool hasQuarantineIndex = true;
    int qv_total_quarantined = 0;
    void setQv_total_quarantined(int total) { qv_total_quarantined = total; }

    QVFontDataManager *dataMgr = nullptr;

    // Called after each font file reached the quarantine, with its new path.
    // Lets the command line report progress (and tests stop a run there).
    std::function<void(const QString &)> movedHook;

private:
    void settleJournal();
    // Records the entries whose fonts reached the quarantine; returns how many.
    int settleEntries(const QList<QVariantMap> &entries);
    bool writeJournal();

    QString journalLockPath() const;

    QList<QVariantMap> m_journal;
    std::unique_ptr<QLockFile> m_journalLock;
    bool m_authorized = false;
};
