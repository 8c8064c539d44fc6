// The diagnosis run: after a discovery scan has examined the fonts, four passes
// (file structure, missing bitmap fonts, missing PostScript fonts, duplicate
// fonts) run at once on four serial queues and gather the problem fonts into
// one list, with the counters and the progress of each pass. What a window
// shows of a run (buttons, icon, alerts, pacing) is QVDiagnosisViewState's.
//
// The passes find the same fonts that a walk over every candidate would, but
// through indexes (by PostScript name and folder, by name and type, by problem
// entry), so a run over a hundred thousand fonts takes seconds.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVProblemFont.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <array>
#include <atomic>
#include <memory>
#include <optional>

class QThreadPool;
class QVFontDataManager;
class QVProgress;
class QVSettings;

class QVDiagnosis : public QObject
{
    Q_OBJECT

public:
    enum Pass {
        FileStructurePass = 0,
        MissingBitmapsPass = 1,
        MissingPostscriptsPass = 2,
        DuplicatesPass = 3
    };
    static constexpr int kPassCount = 4;
    // Scans of fewer fonts than this are paced so that their bars are seen to move.
    static constexpr quint32 kPacingFontLimit = 2000;

    explicit QVDiagnosis(QVFontDataManager *dataMgr, QObject *parent = nullptr);
    ~QVDiagnosis() override;

    QVFontDataManager *qvDataMgr() const { return m_dataMgr; }
    QVSettings *settings() const { return m_settings.get(); }
    QStringList manualScanFolders() const { return m_manualScanFolders; }
    void setManualScanFolders(const QStringList &folders) { m_manualScanFolders = folders; }

    // A 1 ms pause per font status for small scans (the view's choice).
    bool pacingEnabled() const { return m_pacingEnabled; }
    void setPacingEnabled(bool enabled) { m_pacingEnabled = enabled; }

    // Starts the passes over the data manager's fonts and returns at once
    // (main thread); false when there are no font files. diagnosisFinished()
    // follows on the main thread.
    bool diagnoseFonts();
    // Sorts the fonts into bitmaps and postscripts for the counterpart passes.
    void populateArrays();
    // The passes. The run calls them on their queues; they can also be called
    // one at a time on any thread (after populateArrays for passes 1 to 3).
    void diagnoseFileStructure();
    void diagnoseMissingBitmaps();
    void diagnoseMissingPostscripts();
    void diagnoseDuplicateFonts();
    // Adds or updates the entry of a problem font. Thread-safe.
    void addProblemFont(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, int diagnosisType,
        const std::optional<QList<QVFontRef>> &duplicatesArray = std::nullopt);

    // Counters to zero, and the passes the preferences turn on.
    void setStateFromUserPrefs();

    // Progress: one bar and label per pass, and the overall bar and label.
    QVProgress *progressForPass(int pass) const;
    QVProgress *overallProgress() const { return m_overallProgress; }
    bool isProgressEnabled(int pass) const;
    QString titleForProgress(int pass, const QString &appendedText = QString()) const;
    void resetProgress(int pass, const QString &text, bool finished);
    void setProgressEnabled(int pass, bool enabled);
    void resetAllProgressViews();
    void setAllProgressViewsAsIndeterminate();
    void setOverallProgressToIndeterminate();
    void setProgressText(const QString &text);
    void resetProgress();

    QList<QVProblemFontPtr> problemFontsArray() const;
    // Orders the list as passes run one after another would have made it.
    void sortProblemFonts();
    void setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts);
    QList<QVFontFilePtr> bitmaps() const { return m_bitmaps; }
    QList<QVFontFilePtr> postscripts() const { return m_postscripts; }

    bool isDiagnosingFonts() const { return m_isDiagnosingFonts; }
    // The cancel request, read by every pass between items.
    bool doCancel() const { return m_doCancel.load(); }
    void setDoCancel(bool doCancel) { m_doCancel.store(doCancel); }

    qint32 fileStructureProblemCount() const { return m_fileStructureProblemCount.load(); }
    qint32 missingBitmapProblemCount() const { return m_missingBitmapProblemCount.load(); }
    qint32 missingPSProblemCount() const { return m_missingPSProblemCount.load(); }
    qint32 duplicateProblemCount() const { return m_duplicateProblemCount.load(); }
    // The problem fonts (see QVProblemCounts), set when the run finishes.
    qint32 totalFontProblems() const { return m_totalFontProblems.load(); }
    void setFileStructureProblemCount(qint32 count) { m_fileStructureProblemCount.store(count); }
    void setMissingBitmapProblemCount(qint32 count) { m_missingBitmapProblemCount.store(count); }
    void setMissingPSProblemCount(qint32 count) { m_missingPSProblemCount.store(count); }
    void setDuplicateProblemCount(qint32 count) { m_duplicateProblemCount.store(count); }
    void setTotalFontProblems(qint32 count) { m_totalFontProblems.store(count); }

    // Pass jobs dispatched and not yet returned.
    int passesInFlight() const { return m_passesInFlight.load(); }

Q_SIGNALS:
    // A pass was turned on or off.
    void stateChanged();
    // The passes ended and the counters, the sorted list and the last-scan
    // preferences are set (after a cancellation, once per pass that returns).
    void diagnosisFinished(bool cancelled);

private:
    void dispatchPass(int pass, void (QVDiagnosis::*body)());
    // A pass job returned (main thread).
    void passReturned();
    QThreadPool *queueForPass(int pass);
    void finishDiagnosis();
    void pace() const;
    double stepFor(int pass, qsizetype count) const;
    void endPass(int pass);

    // The marks the passes put on statuses. Several passes mark statuses at once,
    // so every read and write of the error arrays in a pass goes through these.
    bool hasMark(const QVStatus &status, int errorClass) const;
    QList<int> marks(const QVStatus &status) const;
    void appendMark(QVStatus &status, int errorClass);
    void addMessage(QVStatus &status, const QString &message);
    // Whether the problem list holds another size of this bitmap font (same
    // PostScript name, file and type) already reported as missing its outline.
    bool problemListHoldsReportedSize(const QVStatus &bitmap) const;
    static QString familyKey(const QVStatus &status);
    // Whether the font's folder holds something unreadable that may be its
    // counterpart; such a font is not reported as missing one.
    bool counterpartMayBeHidden(const QVStatus &status) const;
    // PC Type 1 outlines without metrics files (outlines), or metrics files
    // without their outline.
    void reportType1Counterparts(bool outlines);
    void rebuildProblemIndexes();

    QVFontDataManager *m_dataMgr;
    std::unique_ptr<QVSettings> m_settings;
    QStringList m_manualScanFolders;
    bool m_pacingEnabled = true;

    mutable QMutex m_problemLock;
    QList<QVProblemFontPtr> m_problemFonts;
    QHash<qint32, QVProblemFontPtr> m_problemByIndex;
    std::array<quint32, kPassCount> m_passCalls {};
    QHash<const QVProblemFont *, quint32> m_entryOrder;
    QHash<QString, QList<QVStatusPtr>> m_problemStatusesByFamily;
    // Striped by status, so passes marking different fonts rarely wait on
    // one another.
    static constexpr size_t kMarkLockCount = 64;
    QMutex &marksLockFor(const QVStatus &status) const;
    mutable std::array<QMutex, kMarkLockCount> m_marksLocks;

    QList<QVFontFilePtr> m_bitmaps;
    QList<QVFontFilePtr> m_postscripts;
    QSet<QString> m_hiddenCounterpartFolders;

    std::array<std::unique_ptr<QThreadPool>, kPassCount> m_queues;
    std::array<QVProgress *, kPassCount> m_passProgress {};
    std::array<bool, kPassCount> m_passEnabled {};
    QVProgress *m_overallProgress = nullptr;
    double m_overallStep = 0;
    int m_passCount = 0;
    int m_finishedPasses = 0;
    std::atomic<int> m_passesInFlight { 0 };

    bool m_isDiagnosingFonts = false;
    std::atomic<bool> m_doCancel { false };
    std::atomic<qint32> m_fileStructureProblemCount { 0 };
    std::atomic<qint32> m_missingBitmapProblemCount { 0 };
    std::atomic<qint32> m_missingPSProblemCount { 0 };
    std::atomic<qint32> m_duplicateProblemCount { 0 };
    std::atomic<qint32> m_totalFontProblems { 0 };
};
