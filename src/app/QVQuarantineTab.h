// The Quarantine view: every font the quarantine holds, one row each, with
// its file and the diagnosis that put it there. The rows filter as the search
// text is typed (case and accents ignored); checked rows are restored to the
// folders they came from (with Alt, or "Restore To…", into a chosen folder)
// or deleted for good after a confirmation. Reading the index, restoring and
// removing run on the view's own serial queue, each with a store of its own:
// the window's thread touches no file and never waits for that work.
#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QProgressDialog>
#include <QStringList>
#include <QThreadPool>
#include <QVariantMap>
#include <QWidget>
#include <memory>

class QFrame;
class QLabel;
class QLineEdit;
class QModelIndex;
class QPushButton;
class QStandardItemModel;
class QTableView;
class QVProgress;
class QVQuarantineRuns;

class QVQuarantineTab : public QWidget
{
    Q_OBJECT

public:
    enum Column { FontNameColumn, FileNameColumn, DiagnosisColumn, InfoColumn };

    explicit QVQuarantineTab(QWidget *parent = nullptr);
    // A run in hand stops after the font it is moving.
    ~QVQuarantineTab() override;

    // Reads the index again (on the queue) and shows it.
    void refreshTableViewData();
    // Narrows the rows to font names containing the text; unchecks every row.
    void handleSearch(const QString &text);
    void setRowChecked(int row, bool checked);
    // Applies the state to every selected row.
    void checkSelectedRows(bool checked);
    void checkAllRows();
    // Shown rows by number, in the order they were checked.
    QList<int> checkedRowsArray() const;

    // With Alt held, asks for a folder first.
    void restoreButtonaction(Qt::KeyboardModifiers modifiers);
    // The folder panel; a chosen folder starts the restore into it.
    void selectFolderToRestoreTo();
    // The checked rows back to their folders, or into folder when one is given.
    void restoreQuarantinedFiles(const QString &folder = QString());
    // Offers another folder after a restore failed: "Select Folder" runs the
    // checked rows' restore again into the chosen folder, for the first row
    // only unless "Apply to all" is checked. Restore runs report their errors
    // in the info text and never show it themselves.
    void showRestoreAlert(const QString &error);
    bool applyToAll() const { return m_applyToAll; }
    bool isHandlingError() const { return m_isHandlingError; }
    // Asks first; Continue deletes the checked rows' files.
    void removeButtonaction();
    void removeQuaratinedFiles();

    // The row's information popover; the same row again closes it.
    void infoButtonAction(int row);
    void closePopover();
    // The information of a row as rich text, its labels in bold.
    static QString getInfoText(const QVariantMap &row);

    // The rows shown (after the search) and every row of the index.
    const QList<QVariantMap> &rowArray() const { return m_rowArray; }
    const QList<QVariantMap> &rowSearchArray() const { return m_rowSearchArray; }
    bool isDisabled() const { return m_isDisabled; }
    bool isLoading() const { return m_loading; }

    QTableView *tableView() const { return m_tableView; }
    QLineEdit *searchField() const { return m_searchField; }
    QPushButton *restoreButton() const { return m_restoreButton; }
    QPushButton *restoreToButton() const { return m_restoreToButton; }
    QPushButton *removeButton() const { return m_removeButton; }
    QFrame *popover() const { return m_popover; }
    QLabel *popoverInfoLabel() const { return m_popoverInfoLabel; }
    QProgressDialog *progressWindow() const { return m_progressWindow; }

Q_SIGNALS:
    // One line on what happened, for the window's info label.
    void infoChanged(const QString &text);
    // The rows were read again, or a run ended.
    void tableReloaded();

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    struct Shared;
    void reloadTable();
    void setRows(const QList<QVariantMap> &rows);
    void updateButtons();
    void setDisabled(bool disabled);
    // kind: "restore" or "remove".
    void startRun(const QString &kind, const QString &folder);
    // asked counts the requested rows and those a restore brought with them.
    void finishRun(const QString &kind, const QString &folder, const QStringList &requested, int asked,
        const QList<QVariantMap> &rows, int handled, const QStringList &errors, bool cancelled);
    void itemChanged(int row, bool checked);
    void showContextMenu(const QPoint &position);
    static QString rowKey(const QVariantMap &row);

    QList<QVariantMap> m_rowArray;
    QList<QVariantMap> m_rowSearchArray;
    // Rows by key, in the order they were checked.
    QStringList m_checkedKeys;
    bool m_isDisabled = false;
    bool m_applyToAll = false;
    bool m_isHandlingError = false;
    bool m_loading = false;
    bool m_reloadWanted = false;
    bool m_fillingModel = false;
    int m_popoverRow = -1;
    int m_lastPopoverRow = -1;
    QElapsedTimer m_popoverClosed;

    std::shared_ptr<Shared> m_shared;
    QThreadPool m_moveFontsQueue;
    QVProgress *m_progress;
    QPointer<QProgressDialog> m_progressWindow;

    QStandardItemModel *m_model;
    QTableView *m_tableView;
    QLineEdit *m_searchField;
    QLabel *m_countLabel;
    QPushButton *m_restoreButton;
    QPushButton *m_restoreToButton;
    QPushButton *m_removeButton;
    QFrame *m_popover;
    QLabel *m_popoverTitleLabel;
    QLabel *m_popoverInfoLabel;
};
