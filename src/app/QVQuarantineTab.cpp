#include "QVQuarantineTab.h"

#include "QVAlertSheet.h"
#include "QVFolderChooser.h"
#include "QVRowDelegate.h"
#include "engine/QVFontConstants.h"
#include "settings/QVProgress.h"
#include "settings/QVStringTable.h"
#include "store/QVQuarantineRuns.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QAbstractButton>
#include <QApplication>
#include <QBoxLayout>
#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHash>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMutex>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QUrl>

namespace
{

QString value(const QVariantMap &map, const char *key)
{
    return map.value(QString::fromLatin1(key)).toString();
}

// What one read of the quarantine gives the view.
struct Reading {
    QList<QVariantMap> rows;
    QString note;
};

// On the queue: the index as it is on disk, settled by the store.
Reading readQuarantine()
{
    QVQuarantineStore store;
    QVSuitcaseSurgery surgery(&store);
    QVQuarantineRuns runs(&store, &surgery);
    Reading reading { runs.rowArray, QString() };
    if (!store.hasQuarantineIndex)
        reading.note = QStringLiteral("The quarantine index cannot be read. Nothing can be restored or "
                                      "removed until it can; the files stay where they are.");
    else if (!store.damagedIndexPath.isEmpty())
        reading.note = QStringLiteral("The quarantine index was damaged. It was kept as %1 and rebuilt from "
                                      "what could be read.")
                           .arg(store.damagedIndexPath);
    else if (!store.unrecordedFiles.isEmpty())
        reading.note = QStringLiteral("%1 files in the quarantine had no record; they are listed as found.")
                           .arg(store.unrecordedFiles.size());
    return reading;
}

// Reveals the folder in the file manager, or opens it when there is none.
void revealFolder(const QString &folder)
{
    const QUrl url = QUrl::fromLocalFile(folder);
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"), QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("ShowItems"));
    call << QStringList { url.toString() } << QString();
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, 3000), qApp);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, qApp, [url](QDBusPendingCallWatcher *done) {
        if (done->isError())
            QDesktopServices::openUrl(url);
        done->deleteLater();
    });
}

} // namespace

// What the window's thread and the queue share while a run goes on.
struct QVQuarantineTab::Shared {
    QMutex mutex;
    QVQuarantineRuns *runs = nullptr;
    bool cancelled = false;

    void cancel()
    {
        QMutexLocker locker(&mutex);
        cancelled = true;
        if (runs)
            runs->cancelRequested = true;
    }
};

QVQuarantineTab::QVQuarantineTab(QWidget *parent)
    : QWidget(parent)
    , m_shared(std::make_shared<Shared>())
    , m_progress(new QVProgress(this))
{
    m_moveFontsQueue.setMaxThreadCount(1);

    m_searchField = new QLineEdit(this);
    m_searchField->setPlaceholderText(QStringLiteral("Search by font name"));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->setAccessibleName(QStringLiteral("Search quarantined fonts"));
    connect(m_searchField, &QLineEdit::textChanged, this, &QVQuarantineTab::handleSearch);
    m_countLabel = new QLabel(this);
    m_countLabel->setForegroundRole(QPalette::PlaceholderText);
    m_countLabel->setAccessibleDescription(QStringLiteral("Fonts in the quarantine"));

    m_model = new QStandardItemModel(0, 4, this);
    m_model->setHorizontalHeaderLabels(
        { QStringLiteral("Font Name"), QStringLiteral("File Name"), QStringLiteral("Diagnosis"), QString() });
    m_model->setHeaderData(InfoColumn, Qt::Horizontal, QStringLiteral("Info"), Qt::AccessibleTextRole);
    connect(m_model, &QStandardItemModel::itemChanged, this, [this](QStandardItem *item) {
        if (!m_fillingModel && item->column() == FontNameColumn)
            itemChanged(item->row(), item->checkState() == Qt::Checked);
    });
    m_tableView = new QTableView(this);
    m_tableView->setModel(m_model);
    m_tableView->setItemDelegate(new QVRowDelegate(m_tableView));
    m_tableView->setAccessibleName(QStringLiteral("Quarantined fonts"));
    m_tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tableView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_tableView->setAlternatingRowColors(true);
    m_tableView->setShowGrid(false);
    m_tableView->setWordWrap(true);
    m_tableView->setTextElideMode(Qt::ElideMiddle);
    m_tableView->verticalHeader()->hide();
    m_tableView->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_tableView->setContextMenuPolicy(Qt::CustomContextMenu);
    QHeaderView *header = m_tableView->horizontalHeader();
    header->setSectionResizeMode(FontNameColumn, QHeaderView::Interactive);
    header->setSectionResizeMode(FileNameColumn, QHeaderView::Interactive);
    header->setSectionResizeMode(DiagnosisColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(InfoColumn, QHeaderView::Fixed);
    header->resizeSection(FontNameColumn, 250);
    header->resizeSection(FileNameColumn, 200);
    header->resizeSection(InfoColumn, 36);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_tableView->installEventFilter(this);
    // The buttons Qt adds have no names of their own for a screen reader.
    for (QAbstractButton *button : m_searchField->findChildren<QAbstractButton *>())
        button->setAccessibleName(QStringLiteral("Clear search"));
    for (QAbstractButton *button : m_tableView->findChildren<QAbstractButton *>())
        button->setAccessibleName(QStringLiteral("Select all rows"));
    connect(m_tableView, &QTableView::clicked, this, [this](const QModelIndex &index) {
        if (index.column() == InfoColumn)
            infoButtonAction(index.row());
    });
    // A double click checks or unchecks the row.
    connect(m_tableView, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (!index.isValid() || index.column() == InfoColumn || m_isDisabled)
            return;
        const bool checked = m_checkedKeys.contains(rowKey(m_rowArray.value(index.row())));
        checkSelectedRows(!checked);
    });
    connect(m_tableView, &QWidget::customContextMenuRequested, this, &QVQuarantineTab::showContextMenu);
    connect(m_tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
        &QVQuarantineTab::updateButtons);

    m_restoreButton = new QPushButton(QStringLiteral("&Restore"), this);
    m_restoreButton->setAccessibleName(QStringLiteral("Restore"));
    m_restoreButton->setToolTip(QStringLiteral("Put the checked fonts back where they came from. Alt-click "
                                               "to choose a folder to restore them into."));
    m_restoreToButton = new QPushButton(QStringLiteral("Restore &To…"), this);
    m_restoreToButton->setAccessibleName(QStringLiteral("Restore To Folder"));
    m_restoreToButton->setToolTip(QStringLiteral("Restore the checked fonts into a folder you choose"));
    m_removeButton = new QPushButton(QStringLiteral("Re&move…"), this);
    m_removeButton->setAccessibleName(QStringLiteral("Remove"));
    m_removeButton->setToolTip(QStringLiteral("Delete the checked fonts for good, after asking"));
    connect(m_restoreButton, &QPushButton::clicked, this,
        [this] { restoreButtonaction(QApplication::keyboardModifiers()); });
    connect(m_restoreToButton, &QPushButton::clicked, this, &QVQuarantineTab::selectFolderToRestoreTo);
    connect(m_removeButton, &QPushButton::clicked, this, &QVQuarantineTab::removeButtonaction);

    // The popover: a small frameless popup beside the row's button.
    m_popover = new QFrame(this, Qt::Popup);
    m_popover->setFrameShape(QFrame::StyledPanel);
    m_popover->setAccessibleName(QStringLiteral("Font information"));
    m_popoverTitleLabel = new QLabel(m_popover);
    QFont bold = m_popoverTitleLabel->font();
    bold.setBold(true);
    m_popoverTitleLabel->setFont(bold);
    m_popoverInfoLabel = new QLabel(m_popover);
    m_popoverInfoLabel->setTextFormat(Qt::RichText);
    m_popoverInfoLabel->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_popoverInfoLabel->setMaximumWidth(520);
    m_popoverInfoLabel->setWordWrap(true);
    auto *popoverClose = new QPushButton(QStringLiteral("Close"), m_popover);
    popoverClose->setAccessibleName(QStringLiteral("Close information"));
    connect(popoverClose, &QPushButton::clicked, this, &QVQuarantineTab::closePopover);
    auto *popoverLayout = new QVBoxLayout(m_popover);
    popoverLayout->setContentsMargins(16, 16, 16, 16);
    popoverLayout->setSpacing(8);
    popoverLayout->addWidget(m_popoverTitleLabel);
    popoverLayout->addWidget(m_popoverInfoLabel);
    popoverLayout->addWidget(popoverClose, 0, Qt::AlignRight);
    m_popover->installEventFilter(this);

    auto *top = new QHBoxLayout;
    top->setSpacing(8);
    top->addWidget(m_searchField, 1);
    top->addWidget(m_countLabel);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addStretch();
    buttons->addWidget(m_removeButton);
    buttons->addWidget(m_restoreToButton);
    buttons->addWidget(m_restoreButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 16, 24, 8);
    layout->setSpacing(8);
    layout->addLayout(top);
    layout->addWidget(m_tableView, 1);
    layout->addLayout(buttons);
    setTabOrder(m_searchField, m_tableView);
    setTabOrder(m_tableView, m_removeButton);
    setTabOrder(m_removeButton, m_restoreToButton);
    setTabOrder(m_restoreToButton, m_restoreButton);
    updateButtons();
}

QVQuarantineTab::~QVQuarantineTab()
{
    m_shared->cancel();
    m_moveFontsQueue.waitForDone();
}

QString QVQuarantineTab::rowKey(const QVariantMap &row)
{
    return value(row, "quarantineFileName") + QChar(0x1f) + value(row, "fontName") + QChar(0x1f)
        + value(row, "psName");
}

void QVQuarantineTab::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refreshTableViewData();
}

void QVQuarantineTab::refreshTableViewData()
{
    if (m_isDisabled)
        return;
    if (m_loading) {
        m_reloadWanted = true;
        return;
    }
    m_loading = true;
    m_moveFontsQueue.start([this] {
        const Reading reading = readQuarantine();
        QMetaObject::invokeMethod(
            this,
            [this, reading] {
                m_loading = false;
                if (m_reloadWanted) {
                    m_reloadWanted = false;
                    refreshTableViewData();
                    return;
                }
                setRows(reading.rows);
                if (!reading.note.isEmpty())
                    Q_EMIT infoChanged(reading.note);
                Q_EMIT tableReloaded();
            },
            Qt::QueuedConnection);
    });
}

void QVQuarantineTab::setRows(const QList<QVariantMap> &rows)
{
    m_rowSearchArray = rows;
    // Checks survive a reload for the rows still there.
    QStringList kept;
    for (const QVariantMap &row : rows) {
        if (m_checkedKeys.contains(rowKey(row)))
            kept << rowKey(row);
    }
    QStringList ordered;
    for (const QString &key : std::as_const(m_checkedKeys)) {
        if (kept.contains(key))
            ordered << key;
    }
    m_checkedKeys = ordered;
    const QString text = m_searchField->text();
    m_rowArray.clear();
    for (const QVariantMap &row : rows) {
        if (text.isEmpty()
            || QVQuarantineRuns::containsIgnoringCaseAndDiacritics(value(row, "fontName"), text))
            m_rowArray.append(row);
    }
    reloadTable();
}

void QVQuarantineTab::handleSearch(const QString &text)
{
    closePopover();
    m_checkedKeys.clear();
    m_rowArray.clear();
    for (const QVariantMap &row : std::as_const(m_rowSearchArray)) {
        if (text.isEmpty()
            || QVQuarantineRuns::containsIgnoringCaseAndDiacritics(value(row, "fontName"), text))
            m_rowArray.append(row);
    }
    reloadTable();
}

void QVQuarantineTab::reloadTable()
{
    m_fillingModel = true;
    m_model->removeRows(0, m_model->rowCount());
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.88);
    for (const QVariantMap &row : std::as_const(m_rowArray)) {
        auto *name = new QStandardItem(value(row, "fontName"));
        name->setCheckable(true);
        name->setCheckState(m_checkedKeys.contains(rowKey(row)) ? Qt::Checked : Qt::Unchecked);
        QStringList second;
        if (!value(row, "fontStyle").isEmpty())
            second << value(row, "fontStyle");
        second << getFontTypeName(row.value(QStringLiteral("fontType")).toInt());
        name->setData(second.join(QStringLiteral(" · ")), QVRowDelegate::kSecondLineRole);
        name->setData(QStringLiteral("%1, %2").arg(value(row, "fontName"), second.join(QStringLiteral(", "))),
            Qt::AccessibleTextRole);
        auto *file = new QStandardItem(value(row, "fileName"));
        file->setToolTip(value(row, "originalFilePath"));
        auto *reason = new QStandardItem(value(row, "reason"));
        reason->setFont(small);
        auto *info = new QStandardItem;
        info->setData(true, QVRowDelegate::kInfoButtonRole);
        info->setData(QStringLiteral("Show information"), Qt::AccessibleTextRole);
        info->setToolTip(QStringLiteral("Information (Enter)"));
        for (QStandardItem *item : { name, file, reason, info })
            item->setEditable(false);
        m_model->appendRow({ name, file, reason, info });
    }
    m_fillingModel = false;
    m_tableView->resizeRowsToContents();
    m_countLabel->setText(m_rowArray.size() == m_rowSearchArray.size()
            ? QStringLiteral("%1 fonts").arg(m_rowArray.size())
            : QStringLiteral("%1 of %2 fonts").arg(m_rowArray.size()).arg(m_rowSearchArray.size()));
    if (m_popoverRow >= 0)
        closePopover();
    updateButtons();
}

void QVQuarantineTab::itemChanged(int row, bool checked)
{
    if (row < 0 || row >= m_rowArray.size())
        return;
    if (m_isDisabled) {
        // Boxes do nothing while a run goes on.
        m_fillingModel = true;
        m_model->item(row, FontNameColumn)->setCheckState(checked ? Qt::Unchecked : Qt::Checked);
        m_fillingModel = false;
        return;
    }
    const QModelIndexList selected = m_tableView->selectionModel()->selectedRows();
    bool inSelection = false;
    for (const QModelIndex &index : selected)
        inSelection = inSelection || index.row() == row;
    // A box of a selection of several rows sets them all.
    if (selected.size() >= 2 && inSelection) {
        checkSelectedRows(checked);
        return;
    }
    const QString key = rowKey(m_rowArray.at(row));
    m_checkedKeys.removeAll(key);
    if (checked)
        m_checkedKeys << key;
    updateButtons();
}

void QVQuarantineTab::setRowChecked(int row, bool checked)
{
    if (QStandardItem *item = m_model->item(row, FontNameColumn))
        item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
}

void QVQuarantineTab::checkSelectedRows(bool checked)
{
    if (m_isDisabled)
        return;
    m_fillingModel = true;
    const QModelIndexList selected = m_tableView->selectionModel()->selectedRows();
    for (const QModelIndex &index : selected) {
        const QString key = rowKey(m_rowArray.value(index.row()));
        m_checkedKeys.removeAll(key);
        if (checked)
            m_checkedKeys << key;
        m_model->item(index.row(), FontNameColumn)->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
    }
    m_fillingModel = false;
    updateButtons();
}

void QVQuarantineTab::checkAllRows()
{
    if (m_isDisabled)
        return;
    m_fillingModel = true;
    for (int row = 0; row < m_rowArray.size(); ++row) {
        const QString key = rowKey(m_rowArray.at(row));
        if (!m_checkedKeys.contains(key))
            m_checkedKeys << key;
        m_model->item(row, FontNameColumn)->setCheckState(Qt::Checked);
    }
    m_fillingModel = false;
    updateButtons();
}

QList<int> QVQuarantineTab::checkedRowsArray() const
{
    QHash<QString, int> rows;
    for (int row = 0; row < m_rowArray.size(); ++row)
        rows.insert(rowKey(m_rowArray.at(row)), row);
    QList<int> checked;
    for (const QString &key : m_checkedKeys) {
        if (rows.contains(key))
            checked << rows.value(key);
    }
    return checked;
}

void QVQuarantineTab::updateButtons()
{
    const bool any = !checkedRowsArray().isEmpty() && !m_isDisabled;
    m_restoreButton->setEnabled(any);
    m_restoreToButton->setEnabled(any);
    m_removeButton->setEnabled(any);
}

void QVQuarantineTab::setDisabled(bool disabled)
{
    m_isDisabled = disabled;
    m_tableView->setEnabled(!disabled);
    m_searchField->setEnabled(!disabled);
    updateButtons();
}

void QVQuarantineTab::restoreButtonaction(Qt::KeyboardModifiers modifiers)
{
    m_applyToAll = false;
    m_isHandlingError = false;
    if (modifiers & Qt::AltModifier)
        selectFolderToRestoreTo();
    else
        restoreQuarantinedFiles();
}

void QVQuarantineTab::selectFolderToRestoreTo()
{
    if (checkedRowsArray().isEmpty() || m_isDisabled)
        return;
    // Cancelling restores nothing.
    QVFolderChooser::open(this, QStringLiteral("Restore From Quarantine"), QString(),
        QStringLiteral("Select a folder to restore the selected fonts into"),
        [this](const QString &folder) { restoreQuarantinedFiles(folder); })
        ->setObjectName(QStringLiteral("selectFolderToRestoreTo"));
}

void QVQuarantineTab::restoreQuarantinedFiles(const QString &folder)
{
    startRun(QStringLiteral("restore"), folder);
}

void QVQuarantineTab::showRestoreAlert(const QString &error)
{
    QMessageBox *alert = QVAlertSheet::show(window(), QStringLiteral("A File Error Occurred"),
        QStringLiteral("The original font folders could not be restored because an error occurred (%1). "
                       "Please select a folder to restore the font files to.")
            .arg(error),
        { QStringLiteral("Select Folder"), QVStringTable::text("any.cancel.title") },
        QStringLiteral("restoreQuarantinedFiles"), [](int) {});
    auto *box = new QCheckBox(QStringLiteral("Apply to all"), alert);
    box->setAccessibleName(box->text());
    alert->setCheckBox(box);
    QPointer<QCheckBox> applyBox = box;
    connect(alert, &QMessageBox::buttonClicked, this, [this, alert, applyBox](QAbstractButton *button) {
        if (alert->buttons().indexOf(button) != 0)
            return;
        m_applyToAll = applyBox && applyBox->isChecked();
        QFileDialog *chooser = QVFolderChooser::open(this, QStringLiteral("Restore From Quarantine"),
            QString(), QStringLiteral("Select a folder to restore the selected fonts into"),
            [this](const QString &folder) {
                m_isHandlingError = true;
                restoreQuarantinedFiles(folder);
            });
        chooser->setObjectName(QStringLiteral("showRestoreAlert"));
        connect(chooser, &QDialog::rejected, this, [this] {
            m_applyToAll = false;
            m_isHandlingError = false;
        });
    });
}

void QVQuarantineTab::removeButtonaction()
{
    const QList<int> checked = checkedRowsArray();
    if (checked.isEmpty() || m_isDisabled)
        return;
    // What will go, named: a quarantined suitcase goes whole, with every font in it.
    QStringList names;
    QSet<QString> files;
    for (const int row : checked) {
        names << value(m_rowArray.at(row), "fontName");
        files.insert(value(m_rowArray.at(row), "quarantineFileName"));
    }
    QStringList sharing;
    for (const QVariantMap &row : std::as_const(m_rowSearchArray)) {
        if (files.contains(value(row, "quarantineFileName")) && !m_checkedKeys.contains(rowKey(row)))
            sharing << value(row, "fontName");
    }
    QString text = QStringLiteral("Click Continue to permanently delete the font files, or click Cancel.");
    text += QStringLiteral("\n\n%1 %2: %3")
                .arg(checked.size())
                .arg(checked.size() == 1 ? QStringLiteral("font") : QStringLiteral("fonts"))
                .arg(names.size() > 8 ? names.mid(0, 8).join(QStringLiteral(", ")) + QStringLiteral(", …")
                                      : names.join(QStringLiteral(", ")));
    if (!sharing.isEmpty())
        text += QStringLiteral("\nDeleted with them, as they share a file: %1")
                    .arg(sharing.join(QStringLiteral(", ")));
    QVAlertSheet::show(window(), QStringLiteral("Are you sure you want to remove the selected files?"), text,
        { QVStringTable::text("any.continue.title"), QVStringTable::text("any.cancel.title") },
        QStringLiteral("removeButtonaction"), [this](int returnCode) {
            if (returnCode == 1000)
                removeQuaratinedFiles();
        });
}

void QVQuarantineTab::removeQuaratinedFiles()
{
    startRun(QStringLiteral("remove"), QString());
}

void QVQuarantineTab::startRun(const QString &kind, const QString &folder)
{
    const QList<int> checked = checkedRowsArray();
    if (checked.isEmpty() || m_isDisabled)
        return;
    closePopover();
    QStringList requested;
    for (const int row : checked)
        requested << rowKey(m_rowArray.at(row));
    setDisabled(true);
    {
        QMutexLocker locker(&m_shared->mutex);
        m_shared->cancelled = false;
    }
    const bool restoring = kind == QLatin1String("restore");
    QVProgress *progress = nullptr;
    if (checked.size() >= QVQuarantineRuns::kProgressThreshold) {
        progress = m_progress;
        progress->reset();
        auto *sheet = new QProgressDialog(
            restoring ? QStringLiteral("Restoring Font files...") : QStringLiteral("Removing Font Files..."),
            QVStringTable::text("any.cancel.title"), 0, 1000, window());
        sheet->setWindowModality(Qt::WindowModal);
        sheet->setMinimumDuration(0);
        sheet->setAutoClose(false);
        sheet->setAutoReset(false);
        sheet->setAccessibleName(sheet->labelText());
        connect(m_progress, &QVProgress::changed, sheet, [sheet, progress] {
            if (progress->maximum() > 0)
                sheet->setValue(int(1000 * progress->value() / progress->maximum()));
        });
        std::shared_ptr<Shared> shared = m_shared;
        connect(sheet, &QProgressDialog::canceled, sheet, [shared] { shared->cancel(); });
        m_progressWindow = sheet;
        sheet->open();
    }
    std::shared_ptr<Shared> shared = m_shared;
    const bool applyToAll = m_applyToAll, isHandlingError = m_isHandlingError;
    m_moveFontsQueue.start([this, shared, kind, folder, requested, progress, restoring, applyToAll,
                               isHandlingError] {
        QVQuarantineStore store;
        QVSuitcaseSurgery surgery(&store);
        QVQuarantineRuns runs(&store, &surgery);
        runs.applyToAll = applyToAll;
        runs.isHandlingError = isHandlingError;
        // The checked rows found again in the index as it is now.
        QHash<QString, QList<int>> positions;
        for (int i = 0; i < runs.rowArray.size(); ++i)
            positions[rowKey(runs.rowArray.at(i))].append(i);
        QStringList errors;
        for (const QString &key : requested) {
            if (positions[key].isEmpty())
                errors
                    << QStringLiteral("%1: no longer in the quarantine").arg(key.section(QChar(0x1f), 1, 1));
            else
                runs.checkedRowsArray << positions[key].takeFirst();
        }
        runs.progress = progress;
        {
            QMutexLocker locker(&shared->mutex);
            shared->runs = &runs;
        }
        // A cancel pressed before the run began still stops it, at its first row.
        QMetaObject::Connection early;
        if (progress)
            early = QObject::connect(progress, &QVProgress::changed, progress, [shared] {
                QMutexLocker locker(&shared->mutex);
                if (shared->cancelled && shared->runs)
                    shared->runs->cancelRequested = true;
            });
        const QVQuarantineRuns::RunResult result
            = restoring ? runs.restoreQuarantinedFiles(folder) : runs.removeQuaratinedFiles();
        QObject::disconnect(early);
        {
            QMutexLocker locker(&shared->mutex);
            shared->runs = nullptr;
        }
        errors += result.errors;
        if (!result.commitError.isNull())
            errors << QStringLiteral("The quarantine index could not be written: %1").arg(result.commitError);
        const QList<QVariantMap> rows = runs.rowArray;
        const int handled = int(result.handledRows.size());
        const int asked = int(requested.size() + result.companionRows.size());
        const bool cancelled = result.cancelled;
        QMetaObject::invokeMethod(
            this, [=, this] { finishRun(kind, folder, requested, asked, rows, handled, errors, cancelled); },
            Qt::QueuedConnection);
    });
}

void QVQuarantineTab::finishRun(const QString &kind, const QString &folder, const QStringList &requested,
    int asked, const QList<QVariantMap> &rows, int handled, const QStringList &errors, bool cancelled)
{
    if (m_progressWindow) {
        m_progressWindow->setValue(m_progressWindow->maximum());
        m_progressWindow->close();
        m_progressWindow->deleteLater();
    }
    setDisabled(false);
    const bool restoring = kind == QLatin1String("restore");
    if (handled > 0) {
        // Rows that failed stay checked, so that they can be tried again.
        m_checkedKeys = requested;
        m_searchField->blockSignals(true);
        m_searchField->clear();
        m_searchField->blockSignals(false);
        setRows(rows);
    } else {
        updateButtons();
    }
    const QString verb = restoring ? QStringLiteral("Restored") : QStringLiteral("Removed");
    QString text = handled == asked
        ? QStringLiteral("%1 %2 %3")
              .arg(verb)
              .arg(handled)
              .arg(handled == 1 ? QStringLiteral("font") : QStringLiteral("fonts"))
        : QStringLiteral("%1 %2 of %3 fonts").arg(verb).arg(handled).arg(asked);
    if (restoring && !folder.isEmpty() && handled > 0)
        text += QStringLiteral(" into %1").arg(folder);
    else if (restoring && handled > 0)
        text += QStringLiteral(" to their folders");
    text += QLatin1Char('.');
    if (cancelled)
        text += QStringLiteral(" Cancelled; the others are still in the quarantine.");
    if (!errors.isEmpty())
        text += QStringLiteral(" %1").arg(errors.join(QStringLiteral("; ")));
    Q_EMIT infoChanged(text);
    Q_EMIT tableReloaded();
    if (restoring && !folder.isEmpty() && handled > 0)
        revealFolder(folder);
}

void QVQuarantineTab::infoButtonAction(int row)
{
    if (m_isDisabled || row < 0 || row >= m_rowArray.size())
        return;
    // The popup closes itself on the press that reaches the button again.
    const bool justClosed
        = m_popoverClosed.isValid() && m_popoverClosed.elapsed() < 400 && m_lastPopoverRow == row;
    if ((m_popover->isVisible() && m_popoverRow == row) || justClosed) {
        closePopover();
        m_popoverClosed.invalidate();
        return;
    }
    closePopover();
    m_popoverRow = row;
    const QVariantMap &shown = m_rowArray.at(row);
    m_popoverTitleLabel->setText(value(shown, "fontName"));
    m_popoverInfoLabel->setText(getInfoText(shown));
    m_model->item(row, InfoColumn)->setData(true, QVRowDelegate::kInfoShownRole);
    m_popover->adjustSize();
    const QRect cell = m_tableView->visualRect(m_model->index(row, InfoColumn));
    QPoint at = m_tableView->viewport()->mapToGlobal(QPoint(cell.left(), cell.bottom()));
    at.rx() -= m_popover->width() - cell.width();
    m_popover->move(at);
    m_popover->show();
    m_popover->setFocus();
}

void QVQuarantineTab::closePopover()
{
    if (m_popoverRow >= 0) {
        m_lastPopoverRow = m_popoverRow;
        m_popoverClosed.start();
    }
    if (m_popoverRow >= 0 && m_popoverRow < m_model->rowCount())
        m_model->item(m_popoverRow, InfoColumn)->setData(false, QVRowDelegate::kInfoShownRole);
    m_popoverRow = -1;
    m_popover->hide();
}

QString QVQuarantineTab::getInfoText(const QVariantMap &row)
{
    QStringList lines;
    const QStringList plain = QVQuarantineRuns::getInfoText(row).split(QLatin1Char('\n'));
    for (const QString &line : plain) {
        const qsizetype colon = line.indexOf(QLatin1Char(':'));
        lines << QStringLiteral("<b>%1</b> %2")
                     .arg(
                         line.left(colon + 1).toHtmlEscaped(), line.mid(colon + 1).trimmed().toHtmlEscaped());
    }
    return QStringLiteral("<p style=\"line-height:130%\">") + lines.join(QStringLiteral("<br>"))
        + QStringLiteral("</p>");
}

void QVQuarantineTab::showContextMenu(const QPoint &position)
{
    if (m_isDisabled)
        return;
    const QModelIndex index = m_tableView->indexAt(position);
    QMenu menu(this);
    const bool any = !checkedRowsArray().isEmpty();
    menu.addAction(QStringLiteral("Check Selected"), this, [this] { checkSelectedRows(true); });
    menu.addAction(QStringLiteral("Uncheck Selected"), this, [this] { checkSelectedRows(false); });
    menu.addAction(QStringLiteral("Check All"), this, &QVQuarantineTab::checkAllRows);
    menu.addSeparator();
    if (index.isValid())
        menu.addAction(
            QStringLiteral("Show Information"), this, [this, index] { infoButtonAction(index.row()); });
    menu.addAction(QStringLiteral("Restore"), this, [this] { restoreQuarantinedFiles(); })->setEnabled(any);
    menu.addAction(QStringLiteral("Restore To…"), this, &QVQuarantineTab::selectFolderToRestoreTo)
        ->setEnabled(any);
    menu.addAction(QStringLiteral("Remove…"), this, &QVQuarantineTab::removeButtonaction)->setEnabled(any);
    menu.exec(m_tableView->viewport()->mapToGlobal(position));
}

bool QVQuarantineTab::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (watched == m_popover && key->key() == Qt::Key_Escape) {
            closePopover();
            return true;
        }
        if (watched == m_tableView) {
            const QModelIndex current = m_tableView->currentIndex();
            switch (key->key()) {
            case Qt::Key_Space:
                if (current.isValid())
                    checkSelectedRows(!m_checkedKeys.contains(rowKey(m_rowArray.value(current.row()))));
                return true;
            case Qt::Key_Return:
            case Qt::Key_Enter:
                if (current.isValid())
                    infoButtonAction(current.row());
                return true;
            case Qt::Key_Delete:
                removeButtonaction();
                return true;
            default:
                break;
            }
        }
    }
    if (watched == m_popover && event->type() == QEvent::Hide && m_popoverRow >= 0) {
        closePopover();
        m_tableView->setFocus();
    }
    return QWidget::eventFilter(watched, event);
}
