// The quarantine: a flat folder in the data folder holding the fonts moved out
// of the way, and its index "dataSource" (an XML property list, one record per
// quarantined file or suitcase member). Moves go through QVFilePair so a font
// keeps its resource fork and Finder info; a file the user may not move goes
// through the privileged runner.
//
// One run at a time: whatever changes the quarantine holds the data folder's
// lock (across processes) from reading the index to writing it back, so every
// write of the index is a read-modify-write under that lock. A command takes
// it for its whole run (lockForRun); a store used without it takes it at its
// first change and lays its changes over the index as it then is on disk.
//
// Crash safety: before a font is moved in (or a quarantined font restored or
// removed), what is about to happen is appended to a journal beside the index
// ("dataSource.journal") and reaches the disk (a batch of moves can be
// recorded ahead with one sync, each still before it happens); the index is
// written once, by
// commitQuarantine(), which empties the journal. Whoever takes the lock next
// settles what a killed run left in the journal: a font that reached the
// quarantine gets its record (and a fork left behind at the old place follows
// it), one that never moved is forgotten, a restored or removed one loses its
// record. A file found in the quarantine without any record gets one, so the
// list shows every file there. A damaged index is kept aside
// ("dataSource.damaged-DATE") and rebuilt from what can be read of it, the
// journal and the files; while that cannot be done nothing is quarantined, and
// neither is anything after a journal or index write failed.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class QVFileLock;
class QVFontDataManager;
class QVJournalFile;

class QVQuarantineStore
{
public:
    // Loads the index (and settles the journal when no other run holds the
    // lock). dataMgr supplies the other fonts of the scan for the sister
    // PostScript rule; it may be null.
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
    // A failure stops further moves into the quarantine (quarantineError()).
    QString commitQuarantine();
    void loadQuarantineDataSourceFromDisk();

    // How long a run waits for another one by default.
    static constexpr int kLockWaitMs = 10 * 60 * 1000;
    // Takes the data folder's lock for a run and reloads the index from disk,
    // settling and repairing it. Waits up to timeoutMs for another run,
    // calling waiting (see QVFileLock) meanwhile. Null, or why the run cannot
    // go on (another run still holds the lock, or the index cannot be read).
    // When what was settled could not be written (a full disk), the run may
    // list, restore and remove, but quarantineError() stops moves into the
    // quarantine. The lock is held until unlock() or the store's end.
    QString lockForRun(int timeoutMs = kLockWaitMs, const std::function<bool(qint64)> &waiting = {});
    void unlock();
    // Takes the lock for a change when no run holds it yet (waiting a little
    // for another run), laying this store's unsaved changes over the index as
    // it is on disk; held until the next commit. Null, or why nothing may be
    // changed (the lock, or an index that cannot be read). Journalling does
    // this itself; a caller that holds positions in the index across a change
    // calls it first.
    QString lockForChange();
    bool holdsLock() const;
    QString lockPath() const;
    // Null while fonts may be moved into the quarantine; else why not (the
    // index cannot be read, or a journal or index write failed).
    QString quarantineError() const;

    // Removes records (each equal one once) from the index; nothing is
    // written to disk.
    void removeRecords(const QList<QVariantMap> &records);
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
    // With firstNumber, numbered names are tried from *firstNumber on, and it
    // gets the number taken (0 for the plain name).
    // Names in `reserved` count as taken.
    static QString uniqueDestination(const QString &folder, const QString &name, bool keepExtension,
        int *firstNumber = nullptr, const QSet<QString> *reserved = nullptr);
    // uniqueDestination() in the quarantine folder, passing over the names of
    // moves recorded ahead and remembering the numbers this store took, so
    // that many fonts of one name do not each try them all.
    QString quarantineDestination(const QString &name, bool keepExtension);

    // Records a move about to happen: on the disk before it returns; the
    // entry leaves the journal with the next commit. kind: "file" or
    // "suitcase". False (and quarantineError() says why) when it could not be
    // recorded: the move must not happen then.
    bool journalIntent(const QString &kind, const QString &source, const QVariantMap &record);

    // Forgets the intent of the move in hand (it failed before anything changed).
    void dropLastIntent();

    // Records the moves of these fonts into the quarantine ahead, with one
    // write and sync for all, so that each moveFileToQuarantine() of them
    // finds its move recorded already: a sync per font would make a run of
    // thousands of fonts wait on the disk thousands of times. A failure
    // stops further moves in, as journalIntent's does.
    struct PlannedMove {
        QVFontFilePtr fontFile;
        QVStatusPtr fontStatus;
        QString reason;
    };
    void planMoves(const QList<PlannedMove> &moves);
    // Records that quarantined files are about to leave (kind "restore" or
    // "remove"), each with the records that go with it, with one write and
    // sync for all. Null, or the error; a failure here does not stop moves
    // into the quarantine.
    struct Removal {
        QString quarantineFileName;
        QList<QVariantMap> records;
    };
    QString journalRemovals(const QString &kind, const QList<Removal> &removals);

    QList<QVariantMap> quarantinedFilesDataArray;
    // False when "dataSource" exists but is not a list of records and could
    // not be rebuilt.
    bool hasQuarantineIndex = true;
    // Where the damaged index was kept when one was set aside and rebuilt.
    QString damagedIndexPath;
    // Files of the quarantine that had no record and were given one.
    QStringList unrecordedFiles;
    // The records this store added (moves into the quarantine), in order.
    QList<QVariantMap> addedRecords;
    int qv_total_quarantined = 0;
    void setQv_total_quarantined(int total) { qv_total_quarantined = total; }

    QVFontDataManager *dataMgr = nullptr;

    // Called after each font file reached the quarantine, with its new path.
    // Lets the command line report progress (and tests stop a run there).
    std::function<void(const QString &)> movedHook;

private:
    enum class IndexState { Missing, Good, Damaged };
    IndexState readIndex(QList<QVariantMap> *records, QByteArray *raw = nullptr) const;
    bool acquire(int timeoutMs, const std::function<bool(qint64)> &waiting = {});
    // Under the lock: the index as on disk (with this store's unsaved changes
    // laid over it when keepChanges), settled, repaired and, when that
    // changed it and the changes are not kept for a later commit, written.
    void syncUnderLock(bool keepChanges);
    // Settles the journal's entries; true when the index changed.
    bool settleEntries(const QList<QVariantMap> &entries);
    // Gives a record to every file of the quarantine that has none.
    bool recordUnrecordedFiles();
    // Keeps a damaged index beside it; the path, or null when it failed.
    QString setDamagedIndexAside();
    // Null, or the error. A failure to record a move into the quarantine
    // stops further moves in.
    QString appendToJournal(const QList<QVariantMap> &entries, bool intoQuarantine);
    static QVariantMap intentEntry(const QString &kind, const QString &source, const QVariantMap &record);
    QList<QVariantMap> readJournal() const;
    QString writeIndex();

    std::unique_ptr<QVFileLock> m_lock;
    std::unique_ptr<QVJournalFile> m_journal;
    bool m_runLock = false;
    // The index as last read from or written to disk.
    QList<QVariantMap> m_loaded;
    QString m_writeError;
    int m_lockError = 0;
    QHash<QString, int> m_lastNumbers;
    // Moves recorded ahead, by font, and the intent of the move in hand.
    struct Plan {
        QString destination;
        QString id;
    };
    QHash<const QVStatus *, Plan> m_planned;
    QSet<QString> m_plannedDestinations;
    QString m_lastIntentId;
    // The data manager's files by folder, for the sister PostScript rule.
    QHash<QString, QList<QVFontFilePtr>> m_filesByFolder;
    const QVFontDataManager *m_foldersOf = nullptr;
    qsizetype m_foldersCount = -1;
    bool m_authorized = false;
};
