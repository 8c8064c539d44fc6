// What the Quarantine view does, without the view: its rows (one per font of
// the index, sorted by font name), the search, the information texts, and the
// restore and removal runs over the checked rows. A run is synchronous; the
// view calls it on its own serial queue and reads progress and cancel through
// the members below.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <atomic>

class QVProgress;
class QVQuarantineStore;
class QVSuitcaseSurgery;

class QVQuarantineRuns
{
public:
    // Runs of this many checked rows or more get a progress bar (and can be
    // cancelled through it).
    static constexpr int kProgressThreshold = 11;
    // How many rows' departures are recorded in the journal at once.
    static constexpr int kJournalBatch = 64;

    struct RunResult {
        // Rows restored or removed, in the order they were handled.
        QList<int> handledRows;
        // One line per row that failed.
        QStringList errors;
        bool cancelled = false;
        // The commit's error, when the index could not be written.
        QString commitError;
        // Rows a restore added because they belong with a chosen one.
        QList<int> companionRows;
    };

    QVQuarantineRuns(QVQuarantineStore *store, QVSuitcaseSurgery *surgery);

    // Rebuilds rowArray from the index and copies it to rowSearchArray.
    void updateRowArray();
    // Filters rowSearchArray by font name ("fontName CONTAINS[cd] text"); an
    // empty text rebuilds the full list. Unchecks every row either way.
    void handleSearch(const QString &text);
    // Case- and diacritic-insensitive "contains".
    static bool containsIgnoringCaseAndDiacritics(const QString &text, const QString &searched);

    // The row's information text, labels and values on their lines.
    static QString getInfoText(const QVariantMap &row);
    // 25 points, or 25 x lines x 0.9 for a reason of several lines.
    static double rowHeight(const QVariantMap &row);

    // Puts the checked rows back where they came from, or into folder when
    // one is given. The index is committed when a row was restored.
    RunResult restoreQuarantinedFiles(const QString &folder = QString());
    // The rows a restore of these brings back with them: the metrics files
    // of a PC Type 1 outline, and the outline of a metrics file.
    QList<int> companionsOf(const QList<int> &rows) const;

    // Deletes the checked rows' quarantined files and their records.
    RunResult removeQuaratinedFiles();
    // Deletes one font from a quarantined suitcase; the resource error.
    qint16 removeFontFromSuitcase(const QVariantMap &row);

    QList<QVariantMap> rowArray;
    QList<QVariantMap> rowSearchArray;
    QList<int> checkedRowsArray;
    // State of the restore error alert: a folder chosen after an error is
    // used for the following rows only when applyToAll is set.
    bool applyToAll = false;
    bool isHandlingError = false;

    // Optional: advanced once per row in runs of kProgressThreshold rows or more.
    QVProgress *progress = nullptr;
    std::atomic<bool> cancelRequested { false };

private:
    // Each of the rows, followed by the rows that come back with it.
    QList<QList<int>> restoreGroups(const QList<int> &rows) const;
    // kind: "restore" or "remove", as the journal records it.
    template <typename Handler> RunResult run(Handler handleRow, const QString &label, const QString &kind);

    QVQuarantineStore *m_store;
    QVSuitcaseSurgery *m_surgery;
};
