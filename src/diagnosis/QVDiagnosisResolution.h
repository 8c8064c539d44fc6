// The issue resolution window's work, without the window: which action each
// problem font gets ("Repair" or "Quarantine"), the texts of its rows, the two
// sweeps over the checked rows (repairs first, then quarantines), the repairs
// themselves (Finder flags, PostScript file name) and the end of a diagnosis.
// The window (and the command line) drive this object. resolveIssues() runs on
// the caller's thread (the command line's); startResolving() runs it on a
// worker and delivers the outcome to the object's thread, so a window never
// waits for file work. What it asks of a window goes out as signals.
#pragma once

#include "engine/QVProblemFont.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <atomic>
#include <functional>

class QVFontDataManager;
class QVProgress;
class QVQuarantineStore;
class QVSuitcaseSurgery;

class QVDiagnosisResolution : public QObject
{
    Q_OBJECT

public:
    // Lists of this many rows or more show a progress bar, through which the
    // resolution can be cancelled.
    static constexpr int kProgressThreshold = 11;

    struct Outcome {
        bool cancelled = false;
        // Rows the repair and quarantine sweeps handled, in order.
        QList<int> repairedRows;
        QList<int> quarantinedRows;
        // After a cancel: the rows taken out of rowArray (their fonts moved).
        QList<int> removedRows;
        // Why the quarantine stopped taking fonts (a journal or index write
        // failed), or null.
        QString error;
    };

    // One thing resolveIssues() would do, or leave, for the checked rows.
    struct PlannedStep {
        enum Kind { Repair, Quarantine, TakeOutOfSuitcase, Keep };
        Kind kind = Quarantine;
        int row = -1;
        QVFontRef font;
        // The defects that lead here (the reasons recorded with a move).
        QStringList defects;
        // Repair: the name a bad file name becomes (empty when the font has
        // none to give), and whether Finder flags are set right.
        QString newName;
        bool fixesFlags = false;
        bool renames = false;
        // Quarantine of a duplicate: the copy that stays.
        QVFontRef duplicateOf;
        // The PostScript outline file that goes with a bitmap font taken out.
        QVFontRef outlineOf;
        // Taking the font out leaves its suitcase with no font: the empty
        // file is deleted.
        bool emptiesSuitcase = false;
        // Keep: why the font stays.
        QString why;
    };

    // A window may make its store on a worker and hand it over later
    // (setStore); nothing is resolved without one.
    QVDiagnosisResolution(QVQuarantineStore *store, QVSuitcaseSurgery *surgery, QObject *parent = nullptr);
    ~QVDiagnosisResolution() override;

    // Not while a resolution runs.
    void setStore(QVQuarantineStore *store, QVSuitcaseSurgery *surgery);

    // Takes the entries as rows, flags cleared; every row is checked but those
    // of fonts whose only defects leave them usable.
    void setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts);
    // Checks or unchecks a row (kept in the order rows were checked).
    void setRowChecked(int row, bool checked);
    bool canResolve() const { return !checkedRowsArray.isEmpty(); }

    // "Repair" for a font whose defects include a repairable one and that has
    // no cross-font problem, else "Quarantine".
    static QString getActionTitleForErrors(const QVStatusPtr &fontStatus);
    static QString getDiagnosisDescription(int diagnosisType);
    static QString getDiagnosisActionReason(int diagnosisType);
    // "· A\n· B": the reason recorded with a quarantined font.
    static QString getDiagnosisReasons(const QStringList &errors);
    // The text of the row's diagnosis column (also stored as its "title").
    static QString rowTitle(const QVProblemFontPtr &entry);

    // What resolveIssues() would do with the checked rows, in its order,
    // changing nothing: each repair, each font moved (a suitcase member taken
    // out, an outline file going with its bitmap font), and the fonts that
    // stay (the kept copy of a duplicate group, a file of an installed
    // package). dataMgr holds the scan's files, where outline files are looked
    // for. A move that fails when it is tried is not foreseen.
    QList<PlannedStep> plan(const QVFontDataManager *dataMgr) const;

    // Repairs the checked rows, then quarantines the checked rows, each sweep
    // in the order the rows were checked, and commits the quarantine once.
    // It stops after the font in hand when asked (or when the quarantine can
    // no longer record its moves), as a cancel does. The store's
    // qv_total_quarantined becomes the number of fonts moved in.
    Outcome resolveIssues();
    // resolveIssues() on a worker thread; resolved() carries the outcome. The
    // rows must not be touched until then. False while one is running.
    bool startResolving();
    bool isResolving() const { return m_running.load(); }
    // Blocks until a background resolution has returned (for shutdown).
    void waitForResolving();
    // False when a stop came before the row's work was done: the row is not
    // resolved then. Failures to move are stored on the statuses.
    bool quarantineFile(const QVProblemFontPtr &entry);
    // Takes a quarantined PC outline's metrics files along.
    void moveType1Companions(const QVFontFilePtr &outline, const QString &reason);
    // Null, or the error of the last repair made.
    QString repairFile(const QVProblemFontPtr &entry);
    QString fixIncorrectFileFlags(const QVStatusPtr &fontStatus);
    QString fixBadFileName(const QVStatusPtr &fontStatus);
    // "Couldn't Fix File: REASON SUGGESTION", "Couldn't Fix File: REASON" or
    // "Couldn't Fix File".
    static QString getErrormessage(
        const QString &failureReason, const QString &recoverySuggestion = QString());

    // The ignore button: nothing done, nothing to warn about.
    void ignoreIssues();
    // Asks for the report (or the scan view's text), answers an auto-scan
    // helper and posts "kEndDiagnosisAction".
    void endDiagnosis();

    QList<QVProblemFontPtr> problemFontsArray;
    QList<QVProblemFontPtr> rowArray;
    QList<int> checkedRowsArray;
    bool isDisabled = false;
    bool showCloseWarning = false;
    bool didCancel = false;

    QVProgress *progress = nullptr;
    std::atomic<bool> cancelRequested { false };
    // How many rows' moves are recorded in the quarantine's journal at once.
    int planBatch = 64;
    // Polled before every font; true stops the resolution (the command
    // line's interrupt).
    std::function<bool()> stopRequested;

Q_SIGNALS:
    // The outcome of startResolving(), on the object's thread.
    void resolved(const QVDiagnosisResolution::Outcome &outcome);
    // What the end of a diagnosis asks of the application (endDiagnosis):
    // the report, or the scan view's text; the auto-scan answer.
    void reportRequested();
    void scanViewTextChanged();
    void helperResponse(const QString &response, const QVariantMap &options);
    // Fonts were moved into the quarantine (from the resolving thread).
    void quarantineChanged();
    // A row of either sweep is done (from the resolving thread): a null
    // error, or why its font was not repaired or not (all) moved.
    void rowResolved(int row, const QString &error);

private:
    // Records ahead the whole-file moves of the rows from checked[from] on
    // (planBatch of them); returns where the next batch starts.
    qsizetype planMoves(const QList<int> &checked, qsizetype from);
    // Every defect of the font is repaired in place, or it is the copy kept.
    static bool keptInPlace(const QVStatusPtr &status);
    // The first failure recorded on the row's fonts by the quarantine sweep.
    static QString quarantineError(const QVProblemFontPtr &entry);

    QVQuarantineStore *m_store;
    QVSuitcaseSurgery *m_surgery;
    std::atomic<bool> m_running { false };
    QFuture<void> m_worker;
};

Q_DECLARE_METATYPE(QVDiagnosisResolution::Outcome)
