// The Reports view: the saved reports, oldest first, with their date, name
// and counts. The list filters as the search text is typed (case and accents
// ignored); a name is renamed in place (F2, or a click on a selected name);
// Show (or a double click, or Enter) opens each selected report in its
// window; checked reports are deleted after a confirmation. The index is read
// and changed on a queue of its own, never on the window's thread.
#pragma once

#include <QList>
#include <QStringList>
#include <QThreadPool>
#include <QVariantMap>
#include <QWidget>
#include <functional>

class QLineEdit;
class QPushButton;
class QStandardItemModel;
class QTableView;

class QVReportsTab : public QWidget
{
    Q_OBJECT

public:
    enum Column { DateColumn, NameColumn, ExaminedColumn, ProblemsColumn };

    explicit QVReportsTab(QWidget *parent = nullptr);
    ~QVReportsTab() override;

    // Reads the index again (on the queue), shows it and selects the first row.
    void refreshTableViewData();
    // Narrows the list to names containing the text, in index order; an empty
    // text restores the whole list by date.
    void handleSearch(const QString &text);
    void setRowChecked(int row, bool checked);
    void checkAllRows();
    QList<int> checkedRows() const;
    // Every selected report in its window.
    void showButtonaction();
    void showReportForRow(int row);
    // An empty or unchanged name changes nothing.
    void updateReportName(const QString &name, int row);
    // Asks first; Continue deletes the checked reports.
    void removeButtonaction();
    void removeReportFiles();

    const QList<QVariantMap> &rowArray() const { return m_rowArray; }
    bool isBusy() const { return m_pending > 0; }
    QTableView *tableView() const { return m_tableView; }
    QLineEdit *searchField() const { return m_searchField; }
    QPushButton *showButton() const { return m_showButton; }
    QPushButton *removeButton() const { return m_removeButton; }

Q_SIGNALS:
    void infoChanged(const QString &text);
    // The list was read again; reportsChanged also when the index changed
    // (the Scan view's last-report line may follow).
    void tableReloaded();
    void reportsChanged();

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Runs work on the queue, then shows the index as it then is; the
    // outcome (errors) goes to the info label.
    void runThenReload(const std::function<QStringList()> &work, const QString &doneText, bool changed);
    void setRecords(const QList<QVariantMap> &records, bool readable);
    void applySearch();
    void reloadTable();
    void updateButtons();
    void sortByColumn(int column, Qt::SortOrder order);

    QList<QVariantMap> m_records;
    QList<QVariantMap> m_rowArray;
    QStringList m_checkedPaths;
    int m_pending = 0;
    bool m_fillingModel = false;
    QThreadPool m_queue;

    QStandardItemModel *m_model;
    QTableView *m_tableView;
    QLineEdit *m_searchField;
    QPushButton *m_showButton;
    QPushButton *m_removeButton;
};
