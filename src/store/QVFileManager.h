// The one object for everything that touches font files on disk. This part
// finds font files: it walks folders on a queue of its own, one folder after
// another, and hands every font file to the font data manager, with progress,
// pause, resume and cancel. It also owns the data folder.
#pragma once

#include "platform/QVFileSnapshot.h"

#include <QObject>
#include <QPair>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class QVFontDataManager;
class QVHelperCommunications;
class QVOperationQueue;
class QVProgress;
class QVSettings;
class QThreadPool;

class QVFileManager : public QObject
{
    Q_OBJECT

public:
    // Runs on the walk's thread once the last folder has been walked.
    using CompletionBlock = std::function<void(QVFileManager *)>;
    // The GUI's folder chooser: the chosen folders, or std::nullopt when the
    // user cancels.
    // The file's HFS type code (four bytes), or empty when it has none.
    using TypeCodeReader = std::function<QByteArray(const QString &path)>;
    // Monotonic clock in nanoseconds.
    using Clock = std::function<qint64()>;

    // What one queued folder walk is given.
    struct FindFontsRequest {
        QString startDirectory;
        bool isFinal = false;
        CompletionBlock completionBlock;
    };

    // With its own data manager and settings.
    explicit QVFileManager(QObject *parent = nullptr);
    // With the application's shared data manager; the owner sets settings.
    explicit QVFileManager(QVFontDataManager *dataManager, QObject *parent = nullptr);
    // Cancels a running scan and waits for its walk to stop.
    ~QVFileManager() override;

    // Starts a scan of the folders, one after another, and returns at once.
    // The folders are taken as the file system resolves them; one named twice
    // or lying inside another is walked once, and no file is handed over twice
    // (links and hard links to a file already met are passed over). Folders
    // and files that cannot be read are listed in the data manager.
    void scanFolders(const QStringList &folders, const CompletionBlock &completionBlock = {});
    void findFontsOperation(const FindFontsRequest &request);
    // Walks one folder; true when the walk ended by cancellation.
    bool findFontFiles(
        const QString &startDirectory, bool isFinalDirectory, const CompletionBlock &completionBlock);

    void cancelScan();
    void pauseScan();
    void resumeScan();

    // By extension (otf, ttf, ttc in any case) or by HFS type code.
    bool isSupportedFontFileType(const QString &path) const;
    // The whole rule a scan applies to a regular file: a name ending in
    // ".dfont", a font content type, or isSupportedFontFileType.
    bool isFontFile(const QString &path) const;
    // Folders whose contents a scan never enters: packages and the metadata
    // stores of file servers.
    static bool isSkippedFolderName(const QString &name);

    // The data folder with its Reports and Quarantine folders, made on first use.
    QString getRootRepository();
    // Entries directly inside the folder, hidden ones included; 0 when unreadable.
    static int getDirectoryItemCount(const QString &folder);

    QString getFontItemsFilePath(const QString &folder) const;
    // Both return false, and change nothing, when the list cannot be written or read.
    bool saveFontFileItemsToDisk(const QString &folder);
    bool loadFontFileItemsFromDisk(const QString &folder);

    void updateProgressLabel();
    void resetProgress();
    // "less than a minute", "%.0f minutes" or "%.0f hours" of the seconds.
    static QString timeRemainingText(double remainingSeconds);

    bool isFindingFonts() const { return m_isFindingFonts.load(); }
    bool didCancel() const { return m_didCancel.load(); }

    QVFontDataManager *dataMgr() const { return m_dataMgr; }
    QVSettings *settings() const { return m_settings; }
    void setSettings(QVSettings *settings) { m_settings = settings; }
    // Files read at once by a scan: 1 reads each as the walk meets it; more
    // read ahead of the walk on as many threads, which a network file system
    // needs. Records come in the walk's order whatever the number. 0 (the
    // default) takes the settings' scanJobs, and 0 there one per core.
    void setJobs(int jobs) { m_jobs = jobs; }
    int jobs() const;
    // Whether the last folder's walk ends with the deep check of every SFNT
    // font found, on the same workers; unset takes the setting deepCheck.
    void setDeepCheck(bool on) { m_deepCheck = on; }
    bool deepCheck() const;
    QVProgress *progress() const;
    void setProgress(QVProgress *progress);
    QVHelperCommunications *helperCommunications() const;
    void setHelperCommunications(QVHelperCommunications *helper);
    QVOperationQueue *findFontsGlobalQueue() const { return m_findFontsGlobalQueue.get(); }

    void setTypeCodeReader(const TypeCodeReader &reader) { m_typeCodeReader = reader; }
    void setClock(const Clock &clock) { m_clock = clock; }

    // Quarantine count kept for the report.
    int qv_total_quarantined = 0;
    // Clock reading when the walk of the current folder began.
    qint64 startTime = 0;

Q_SIGNALS:
    // The last folder of a scan ended: an alert still shown may close (main thread).
    void closeAlertDialogIfShowing();

private:
    void initCommon();
    // Hands a regular file to the data manager unless it is not a font or was
    // met before under another name.
    using SnapshotPtr = std::shared_ptr<const QVFileSnapshot>;
    void considerFile(const SnapshotPtr &snapshot);
    void noteUnreadableFolder(const QString &folder);
    // The deep check of every file found, on the pool when there is one;
    // true when it was cancelled.
    bool deepCheckFonts(QThreadPool *pool);
    void postScanFolderComplete(bool cancelled);
    void onMainThread(std::function<void()> work);

    QVFontDataManager *m_dataMgr = nullptr;
    std::unique_ptr<QVFontDataManager> m_ownDataMgr;
    QVSettings *m_settings = nullptr;
    int m_jobs = 0;
    std::optional<bool> m_deepCheck;
    std::unique_ptr<QVSettings> m_ownSettings;
    QPointer<QVProgress> m_progress;
    QVProgress *m_ownProgress = nullptr;
    QPointer<QVHelperCommunications> m_helperCommunications;
    std::unique_ptr<QVOperationQueue> m_findFontsGlobalQueue;
    std::atomic<bool> m_didCancel = false;
    std::atomic<bool> m_isFindingFonts = false;
    QString m_rootRepository;
    TypeCodeReader m_typeCodeReader;
    Clock m_clock;
    // Device and inode of every file handed over in this scan.
    QSet<QPair<quint64, quint64>> m_seenFiles;
    // Links to files met by the walk, decided once every folder is walked.
    QStringList m_linkedFiles;
};
