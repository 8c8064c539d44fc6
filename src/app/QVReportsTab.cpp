#include "QVReportsTab.h"

#include "QVAlertSheet.h"
#include "QVReportWindow.h"
#include "QVRowDelegate.h"
#include "settings/QVStringTable.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVReportStore.h"

#include <QAbstractButton>
#include <QBoxLayout>
#include <QDateTime>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <algorithm>

namespace
{

QString value(const QVariantMap &map, const char *key)
{
    return map.value(QString::fromLatin1(key)).toString();
}

QDateTime dateOf(const QVariantMap &record)
{
    return record.value(QStringLiteral("date")).toDateTime();
}

// "1,234" as the index keeps counts.
qint64 countOf(const QVariantMap &record, const char *key)
{
    return value(record, key).remove(QLatin1Char(',')).toLongLong();
}

} // namespace

QVReportsTab::QVReportsTab(QWidget *parent)
    : QWidget(parent)
{
    m_queue.setMaxThreadCount(1);

    m_searchField = new QLineEdit(this);
    m_searchField->setPlaceholderText(QStringLiteral("Search by report name"));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->setAccessibleName(QStringLiteral("Search reports"));
    connect(m_searchField, &QLineEdit::textChanged, this, &QVReportsTab::handleSearch);

    m_model = new QStandardItemModel(0, 4, this);
    m_model->setHorizontalHeaderLabels({ QStringLiteral("Date"), QStringLiteral("Report Name"),
        QStringLiteral("Fonts Scanned"), QStringLiteral("Problems Found") });
    connect(m_model, &QStandardItemModel::itemChanged, this, [this](QStandardItem *item) {
        if (m_fillingModel || item->row() >= m_rowArray.size())
            return;
        const QString path = value(m_rowArray.at(item->row()), "filePath");
        if (item->column() == DateColumn) {
            m_checkedPaths.removeAll(path);
            if (item->checkState() == Qt::Checked)
                m_checkedPaths << path;
            updateButtons();
        } else if (item->column() == NameColumn) {
            updateReportName(item->text().trimmed(), item->row());
        }
    });
    m_tableView = new QTableView(this);
    m_tableView->setModel(m_model);
    m_tableView->setItemDelegate(new QVRowDelegate(m_tableView));
    m_tableView->setAccessibleName(QStringLiteral("Saved reports"));
    m_tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tableView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tableView->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    m_tableView->setAlternatingRowColors(true);
    m_tableView->setShowGrid(false);
    m_tableView->verticalHeader()->hide();
    QHeaderView *header = m_tableView->horizontalHeader();
    header->setSectionResizeMode(DateColumn, QHeaderView::Interactive);
    header->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(ExaminedColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(ProblemsColumn, QHeaderView::ResizeToContents);
    header->resizeSection(DateColumn, 190);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(DateColumn, Qt::AscendingOrder);
    connect(header, &QHeaderView::sortIndicatorChanged, this, &QVReportsTab::sortByColumn);
    m_tableView->installEventFilter(this);
    // The buttons Qt adds have no names of their own for a screen reader.
    for (QAbstractButton *button : m_searchField->findChildren<QAbstractButton *>())
        button->setAccessibleName(QStringLiteral("Clear search"));
    for (QAbstractButton *button : m_tableView->findChildren<QAbstractButton *>())
        button->setAccessibleName(QStringLiteral("Select all rows"));
    connect(m_tableView, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (index.isValid() && index.column() != NameColumn)
            showButtonaction();
    });
    connect(m_tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
        &QVReportsTab::updateButtons);

    m_showButton = new QPushButton(QStringLiteral("&Show"), this);
    m_showButton->setAccessibleName(QStringLiteral("Show"));
    m_showButton->setToolTip(QStringLiteral("Open the selected reports (Enter)"));
    m_removeButton = new QPushButton(QStringLiteral("Re&move…"), this);
    m_removeButton->setAccessibleName(QStringLiteral("Remove"));
    m_removeButton->setToolTip(QStringLiteral("Delete the checked reports, after asking"));
    connect(m_showButton, &QPushButton::clicked, this, &QVReportsTab::showButtonaction);
    connect(m_removeButton, &QPushButton::clicked, this, &QVReportsTab::removeButtonaction);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addStretch();
    buttons->addWidget(m_removeButton);
    buttons->addWidget(m_showButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 16, 24, 8);
    layout->setSpacing(8);
    layout->addWidget(m_searchField);
    layout->addWidget(m_tableView, 1);
    layout->addLayout(buttons);
    setTabOrder(m_searchField, m_tableView);
    setTabOrder(m_tableView, m_removeButton);
    setTabOrder(m_removeButton, m_showButton);
    updateButtons();
}

QVReportsTab::~QVReportsTab()
{
    m_queue.waitForDone();
}

void QVReportsTab::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refreshTableViewData();
}

void QVReportsTab::refreshTableViewData()
{
    runThenReload({}, QString(), false);
}

void QVReportsTab::runThenReload(
    const std::function<QStringList()> &work, const QString &doneText, bool changed)
{
    ++m_pending;
    m_queue.start([this, work, doneText, changed] {
        const QStringList errors = work ? work() : QStringList();
        const QVReportStore store;
        const QList<QVariantMap> records = store.reportFilesDataArray();
        const bool readable = store.hasReportIndex();
        QMetaObject::invokeMethod(
            this,
            [=, this] {
                --m_pending;
                setRecords(records, readable);
                if (!errors.isEmpty())
                    Q_EMIT infoChanged(errors.join(QLatin1Char(' ')));
                else if (!doneText.isEmpty())
                    Q_EMIT infoChanged(doneText);
                if (changed)
                    Q_EMIT reportsChanged();
                Q_EMIT tableReloaded();
            },
            Qt::QueuedConnection);
    });
}

void QVReportsTab::setRecords(const QList<QVariantMap> &records, bool readable)
{
    m_records = records;
    QStringList kept;
    for (const QVariantMap &record : records) {
        if (m_checkedPaths.contains(value(record, "filePath")))
            kept << value(record, "filePath");
    }
    m_checkedPaths = kept;
    applySearch();
    if (!m_rowArray.isEmpty() && m_tableView->selectionModel()->selectedRows().isEmpty())
        m_tableView->selectRow(0);
    if (!readable)
        Q_EMIT infoChanged(
            QStringLiteral("The report index cannot be read; the reports in it cannot be listed."));
}

void QVReportsTab::handleSearch(const QString &)
{
    applySearch();
}

void QVReportsTab::applySearch()
{
    const QString text = m_searchField->text();
    m_rowArray.clear();
    if (text.isEmpty()) {
        m_rowArray = m_records;
        std::stable_sort(m_rowArray.begin(), m_rowArray.end(),
            [](const QVariantMap &a, const QVariantMap &b) { return dateOf(a) < dateOf(b); });
        m_tableView->horizontalHeader()->blockSignals(true);
        m_tableView->horizontalHeader()->setSortIndicator(DateColumn, Qt::AscendingOrder);
        m_tableView->horizontalHeader()->blockSignals(false);
    } else {
        for (const QVariantMap &record : std::as_const(m_records)) {
            if (QVQuarantineRuns::containsIgnoringCaseAndDiacritics(value(record, "reportName"), text))
                m_rowArray.append(record);
        }
    }
    reloadTable();
}

void QVReportsTab::sortByColumn(int column, Qt::SortOrder order)
{
    auto less = [column](const QVariantMap &a, const QVariantMap &b) {
        switch (column) {
        case NameColumn:
            return QString::localeAwareCompare(value(a, "reportName"), value(b, "reportName")) < 0;
        case ExaminedColumn:
            return countOf(a, "qv_total_examined") < countOf(b, "qv_total_examined");
        case ProblemsColumn:
            return countOf(a, "qv_total_problems") < countOf(b, "qv_total_problems");
        default:
            return dateOf(a) < dateOf(b);
        }
    };
    std::stable_sort(m_rowArray.begin(), m_rowArray.end(), [&](const QVariantMap &a, const QVariantMap &b) {
        return order == Qt::AscendingOrder ? less(a, b) : less(b, a);
    });
    reloadTable();
}

void QVReportsTab::reloadTable()
{
    QStringList selectedPaths;
    for (const QModelIndex &index : m_tableView->selectionModel()->selectedRows())
        selectedPaths << value(m_rowArray.value(index.row()), "filePath");
    m_fillingModel = true;
    m_model->removeRows(0, m_model->rowCount());
    const QLocale locale;
    for (const QVariantMap &record : std::as_const(m_rowArray)) {
        const QDateTime date = dateOf(record).toLocalTime();
        auto *when = new QStandardItem(
            QStringLiteral("%1 %2").arg(locale.toString(date.date(), QLocale::ShortFormat),
                locale.toString(date.time(), QLocale::ShortFormat)));
        when->setCheckable(true);
        when->setCheckState(m_checkedPaths.contains(value(record, "filePath")) ? Qt::Checked : Qt::Unchecked);
        when->setEditable(false);
        auto *name = new QStandardItem(value(record, "reportName"));
        name->setToolTip(value(record, "filePath"));
        auto *examined = new QStandardItem(value(record, "qv_total_examined"));
        auto *problems = new QStandardItem(value(record, "qv_total_problems"));
        for (QStandardItem *count : { examined, problems }) {
            count->setEditable(false);
            count->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        }
        m_model->appendRow({ when, name, examined, problems });
    }
    m_fillingModel = false;
    for (int row = 0; row < m_rowArray.size(); ++row) {
        if (selectedPaths.contains(value(m_rowArray.at(row), "filePath")))
            m_tableView->selectionModel()->select(
                m_model->index(row, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    updateButtons();
}

void QVReportsTab::setRowChecked(int row, bool checked)
{
    if (QStandardItem *item = m_model->item(row, DateColumn))
        item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
}

void QVReportsTab::checkAllRows()
{
    for (int row = 0; row < m_rowArray.size(); ++row)
        setRowChecked(row, true);
}

QList<int> QVReportsTab::checkedRows() const
{
    QList<int> rows;
    for (int row = 0; row < m_rowArray.size(); ++row) {
        if (m_checkedPaths.contains(value(m_rowArray.at(row), "filePath")))
            rows << row;
    }
    return rows;
}

void QVReportsTab::updateButtons()
{
    m_showButton->setEnabled(!m_tableView->selectionModel()->selectedRows().isEmpty());
    m_removeButton->setEnabled(!checkedRows().isEmpty());
}

void QVReportsTab::showButtonaction()
{
    QList<int> rows;
    for (const QModelIndex &index : m_tableView->selectionModel()->selectedRows())
        rows << index.row();
    std::sort(rows.begin(), rows.end());
    for (const int row : rows)
        showReportForRow(row);
}

void QVReportsTab::showReportForRow(int row)
{
    if (row >= 0 && row < m_rowArray.size())
        QVReportWindow::showReport(m_rowArray.at(row));
}

void QVReportsTab::updateReportName(const QString &name, int row)
{
    if (row < 0 || row >= m_rowArray.size())
        return;
    const QVariantMap record = m_rowArray.at(row);
    const QString old = value(record, "reportName");
    if (name.isEmpty() || name == old) {
        m_fillingModel = true;
        m_model->item(row, NameColumn)->setText(old);
        m_fillingModel = false;
        return;
    }
    const QString path = value(record, "filePath");
    m_rowArray[row].insert(QStringLiteral("reportName"), name);
    QVReportWindow::retitleReport(path, name);
    runThenReload(
        [path, name] {
            QVReportStore store;
            const QString error = store.renameReport(path, name);
            return error.isNull() ? QStringList() : QStringList { error };
        },
        QStringLiteral("Renamed \"%1\" to \"%2\".").arg(old, name), true);
}

void QVReportsTab::removeButtonaction()
{
    const QList<int> rows = checkedRows();
    if (rows.isEmpty())
        return;
    QStringList names;
    for (const int row : rows)
        names << value(m_rowArray.at(row), "reportName");
    const QString text
        = QStringLiteral("Click Continue to permanently delete the reports, or click Cancel.\n\n%1 %2: %3")
              .arg(rows.size())
              .arg(rows.size() == 1 ? QStringLiteral("report") : QStringLiteral("reports"))
              .arg(names.size() > 8 ? names.mid(0, 8).join(QStringLiteral(", ")) + QStringLiteral(", …")
                                    : names.join(QStringLiteral(", ")));
    QVAlertSheet::show(window(), QStringLiteral("Are you sure you want to remove the selected reports?"),
        text, { QVStringTable::text("any.continue.title"), QVStringTable::text("any.cancel.title") },
        QStringLiteral("removeButtonaction"), [this](int returnCode) {
            if (returnCode == 1000)
                removeReportFiles();
        });
}

void QVReportsTab::removeReportFiles()
{
    const QStringList paths = m_checkedPaths;
    if (paths.isEmpty())
        return;
    m_checkedPaths.clear();
    m_searchField->blockSignals(true);
    m_searchField->clear();
    m_searchField->blockSignals(false);
    QVReportWindow::closeReports(paths);
    runThenReload(
        [paths] {
            QVReportStore store;
            return store.removeReports(paths);
        },
        QStringLiteral("Removed %1 %2.")
            .arg(paths.size())
            .arg(paths.size() == 1 ? QStringLiteral("report") : QStringLiteral("reports")),
        true);
    updateButtons();
}

bool QVReportsTab::eventFilter(QObject *watched, QEvent *event)
{
    // Keys typed into a name being edited go to its editor, not here.
    if (watched == m_tableView && event->type() == QEvent::KeyPress) {
        switch (static_cast<QKeyEvent *>(event)->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            showButtonaction();
            return true;
        case Qt::Key_Delete:
            removeButtonaction();
            return true;
        default:
            break;
        }
    }
    return QWidget::eventFilter(watched, event);
}
