// Gathers the healthy fonts of a scan into a library: a folder tree below a
// chosen folder, sorted by foundry, first letter and family, into which each
// font file is copied or moved. A single font of a suitcase leaves in a
// suitcase of its own; other files go whole, with the file pair so the fork
// and Finder info follow; the PostScript outlines of a bitmap font go with it.
// Fonts with problems stay where they are.
//
// The walk runs on a queue of its own. The file work runs on the main thread
// (one piece at a time, the walk waiting for each, so the marks it reads are
// settled); the sheet, the final alert and revealing the library are hooks
// the GUI fills.
#pragma once

#include "engine/QVFontFile.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class QVFontDataManager;
class QVOperationQueue;
class QVProgress;
class QVSettings;
class QVSuitcaseSurgery;

class QVFontOrganizer : public QObject
{
    Q_OBJECT

public:
    using CompletionBlock = std::function<void()>;

    // One font file (or suitcase member) that reached the library.
    struct Placement {
        QString source;
        QString destination;
        QString fontName;
        bool copied = false;
    };

    QVFontOrganizer(QVFontDataManager *dataManager, QVSuitcaseSurgery *surgery, QVSettings *settings,
        QObject *parent = nullptr);
    ~QVFontOrganizer() override;

    // Starts a run into the library folder and returns at once (main thread).
    void organizeFonts(const QString &libraryPath, const CompletionBlock &completionBlock = {});
    void executeOrganizeFontsQueue(const CompletionBlock &completionBlock);
    void organizeFontsOperation(const CompletionBlock &completionBlock);
    // Walks the fonts and dispatches the copies and moves.
    void createLibrary();

    // The sheet's cancel button.
    void cancelOrganizing();

    // Two or more errors, or one that is not "duplicate".
    static bool statusHasErrors(const QVStatusPtr &fontStatus);
    // Another size of the same bitmap family in the same file already handled
    // or damaged.
    bool parentStatusHasErrors(const QVStatusPtr &fontStatus) const;
    // The PostScript outline record that belongs to a bitmap font, or null.
    QVStatusPtr getSisterPostScriptFont(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const;
    // Copies or moves the whole file into the folder. Null, or the error.
    QString moveFileToFolder(
        const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &folder);
    // Sends the bitmap font's PostScript outlines after it. Whether the last
    // one arrived.
    bool moveSisterPostScriptFontToFolder(
        const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &folder);
    static void updateFileCopiedStatus(const QVFontFilePtr &fontFile);
    // Records that the whole file reached the library, copied or moved.
    static void markInLibrary(const QVFontFilePtr &fontFile, bool copied);
    // A PC Type 1 outline and its metrics files go to the folder together,
    // under one free base name, or none of them goes. Null, or the error.
    QString moveType1ToFolder(
        const QVFontFilePtr &outline, const QVStatusPtr &fontStatus, const QString &folder);

    // The name a font is filed under, the folder it goes to (with a trailing
    // "/") and the file name a suitcase member gets.
    static QString fontDisplayName(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus);
    QString libraryFolderFor(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const;
    QString suitcaseMemberFileName(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus) const;

    bool doCancel() const { return m_doCancel.load(); }
    QString libraryURL() const { return m_libraryURL; }
    void setLibraryURL(const QString &path) { m_libraryURL = path; }
    bool copiedOrMovedFonts() const { return m_copiedOrMovedFonts.load(); }
    bool isOrganizingFonts() const { return m_isOrganizingFonts.load(); }
    int problemFontCount() const { return m_problemFontCount.load(); }
    QVFontDataManager *dataManager() const { return m_dataManager; }
    QVSettings *settings() const { return m_settings; }
    QVOperationQueue *organizeFontsQueue() const { return m_organizeFontsQueue.get(); }
    // Title, label and bar of the progress sheet.
    QVProgress *progressWindow() const { return m_progress; }

    // What reached the library in this run, in order.
    QList<Placement> placements() const;

Q_SIGNALS:
    // On the organizer's thread. The sheet is shown at the start and closed at
    // the end or 2 seconds after a cancel; the alert says the run is done.
    void progressSheetRequested();
    void progressSheetClosed();
    void alertRequested(const QString &message, const QString &informativeText, const QString &button);
    void libraryFolderRevealRequested(const QString &path);

private:
    // Queues the work on the organizer's thread (progress and signals), never
    // waiting for it: file work stays on the walk's thread.
    void onMainThread(const std::function<void()> &work);
    // Moves the bar on by some fonts and shows a label (unless null).
    void advanceProgress(int fonts, const QString &label);
    QString storeError(const QVStatusPtr &fontStatus, const QString &text);
    void moveSuitcaseMember(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus,
        const QString &folder, const QString &fileName);
    void addPlacement(const Placement &placement);
    bool copying() const;

    QVFontDataManager *m_dataManager;
    QVSuitcaseSurgery *m_surgery;
    QVSettings *m_settings;
    QVProgress *m_progress;
    std::unique_ptr<QVOperationQueue> m_organizeFontsQueue;

    std::atomic<bool> m_doCancel = false;
    QString m_libraryURL;
    std::atomic<bool> m_copiedOrMovedFonts = false;
    std::atomic<bool> m_isOrganizingFonts = false;
    std::atomic<int> m_problemFontCount = 0;

    std::mutex m_moveMutex;
    // The failure reason of the last refused copy or move (under m_moveMutex's
    // serialization: only the walk moves files).
    QString m_lastFailureReason;
    mutable std::mutex m_placementMutex;
    QList<Placement> m_placements;
};
