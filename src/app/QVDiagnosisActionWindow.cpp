#include "QVDiagnosisActionWindow.h"

#include "QVAlertSheet.h"
#include "QVAppDelegate.h"
#include "QVImages.h"
#include "QVPopover.h"
#include "QVProblemFontModel.h"
#include "engine/QVDeepCheck.h"
#include "engine/QVResouceFork.h"
#include "platform/QVFileReveal.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVQuarantineStore.h"
#include "store/QVSuitcaseSurgery.h"

#include <QApplication>
#include <QBoxLayout>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDialog>
#include <QFileInfo>
#include <QHash>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSet>
#include <QTimer>
#include <QToolButton>
#include <QTreeView>
#include <QtConcurrent/QtConcurrentRun>

namespace
{

// The explanations by defect name, in the order they are matched.
const std::pair<const char *, const char *> kCautionTexts[] = {
    { "Duplicates:",
        "Diagnosis: A duplicate font matches another font's name, type, and style. This condition can cause "
        "confusion in your font menus if both fonts are activated at the same time.\n\nRecommendation: The "
        "duplicate fonts should be Quaratined." },
    { "Duplicate Font",
        "Diagnosis: A duplicate font matches another font's name, type, and style. This condition can cause "
        "confusion in your font menus if both fonts are activated at the same time.\n\nRecommendation: The "
        "duplicate fonts should be Quaratined." },
    { "Bad File Name",
        "Diagnosis: PostScript font files are required to use a special file name. If a PostScript font file "
        "has the wrong file name, then it won't work. Sometimes a file name gets changed when files are "
        "copied or moved between folders.\n\nRecommendation: Quorvel will repair this." },
    { "Incorrect File Flags",
        "Diagnosis: This Mac manages a set of indicators (called \"file flags\") for every file on your hard "
        "drive. The flags are used as a quick way to get information about a file. Sometimes the flags get "
        "inadvertently changed to incorrect values.\n\nRecommendation: Quorvel will repair this." },
    { "Couldn't Find Bitmap Font",
        "Diagnosis: PostScript font files are always paired with a separate font file called a \"bitmap\" "
        "font file. These two font files work together as a single font. As such, they must always share the "
        "same folder, or the font will not work correctly.\n\nRecommendation: This Postscript font file "
        "should be quarantined since it's useless without it's sister bitmap font file." },
    { "Couldn't Find PostScript File",
        "Diagnosis: Bitmap font files are always paired with a separate font file called a \"PostScript\" "
        "font file. These two font files work together as a single font. As such, they must always share the "
        "same folder, or the font will not work correctly.\n\nRecommendation: This bitmap font file should "
        "be quarantined since it's useless without it's sister Postscript font file." },
    { "Couldn't Open Resource",
        "Diagnosis: Some older Mac font files use a special file storage called a \"resource fork\". "
        "Sometimes a resource fork cannot be opened and cannot be examined. This is usually a problem "
        "related to file permissions (file in use or file locked), or the file may be so damaged that it "
        "just cannot be opened.\n\nRecommendation: This font file should be quarantined since it cannot be "
        "opened for examination." },
    { "Couldn't Activate Font",
        "Diagnosis: One practical method for testing a font file is to test for activation. If the font "
        "activates (e.g. appears in your font menus), then it should be usable. Some fonts may appear "
        "structurally sound, but are not still able to activate on your Mac.\n\nRecommendation: This font "
        "file should be quarantined since it cannot be used on this Mac" },
    { "Missing PostScript Name",
        "Diagnosis: Every font file contains several different font name types. One type of font name is "
        "called the \"PostScript\" font name. This name is the most important name type as it is used to "
        "render and print fonts. As such, a font PostScript name must be valid or a font will not work "
        "properly.\n\nRecommendation: This font file should be quarantined since it contains a bad font "
        "PostScript name." },
    { "Bad Table Data",
        "Diagnosis: A Font file is structured internally as a collection of data tables. These tables "
        "provide important details about the font (e.g. font size, name, family, etc.) Font tables can get "
        "damaged or corrupted as files are copied, installed, uninstalled, or as a result of a system crash. "
        "Usually the tables cannot be repaired because critical table data is lost or damaged beyond all "
        "hope.\n\nRecommendation: This font file should be quarantined since it contains a bad table data." },
    { "Missing Font Header",
        "Diagnosis: A Type 1 font file begins with a short text that says what it holds. When that text is "
        "missing, the file was cut or overwritten at its start, and no program will take it for a font.\n\n"
        "Recommendation: This font file should be quarantined since it cannot be used as a font." },
    { "Bad Encrypted Section",
        "Diagnosis: The shapes of a Type 1 font's characters are kept in an encrypted section after the "
        "font's names. This section is missing, empty or damaged, so the font has names but no usable "
        "characters.\n\nRecommendation: This font file should be quarantined since its characters cannot be "
        "drawn." },
    { "Couldn't Find Metrics File",
        "Diagnosis: A Type 1 font file from a PC is paired with a metrics file of the same name (ending in "
        ".afm or .pfm) that gives the widths and kerning of its characters. Applications that set type need "
        "both files in the same folder, or the font will not work correctly.\n\nRecommendation: This font "
        "file should be quarantined since it's incomplete without its metrics file." },
    { "Couldn't Find Outline File",
        "Diagnosis: A metrics file (ending in .afm or .pfm) describes a Type 1 font whose shapes are in a "
        "separate outline file of the same name (ending in .pfb, .pfa or .t1). That outline file is not in "
        "the same folder, so the metrics file is of no use.\n\nRecommendation: This metrics file should be "
        "quarantined since it's useless without its outline file." },
};
const char *const kResourceErrorText
    = "Error Desciption: %1\n\nDiagnosis: Some older Mac font files use a special file storage called a "
      "\"resource fork\". Sometimes a resource fork is damaged or contains bad or unexpected data and cause "
      "an error.\n\nRecommendation: This font file should be quarantined since it's resource data is bad.";
const char *const kFileErrorText
    = "Diagnosis: When diagnosing a font file, Quorvel must be able to open the file for examination. "
      "Sometimes a file cannot be opened due to file errors.\n\nRecommendation: This font file should be "
      "quarantined because it could not be opened for examination.";

const char *const kResourceErrorPrefix = "File Resource Error";
const char *const kFileErrorPrefix = "File Error (";
constexpr int kLineHeight = 26;
constexpr int kBarScale = 1000;
// How long a resolution waits for another run to finish with the quarantine.
constexpr int kLockWaitMs = 60 * 1000;

} // namespace

QVDiagnosisActionWindow::QVDiagnosisActionWindow(QVFontDataManager *dataMgr, QWidget *parent)
    : QWidget(parent, Qt::Dialog)
    , m_dataMgr(dataMgr)
    , m_resolution(new QVDiagnosisResolution(nullptr, nullptr, this))
    , m_model(new QVProblemFontModel(this))
    , m_stop(std::make_shared<std::atomic<bool>>(false))
{
    setWindowTitle(QStringLiteral("Font Problems"));
    setAccessibleName(QStringLiteral("Issue resolution"));
    resize(780, 520);

    m_iconImageView = new QLabel(this);
    m_iconImageView->setFixedSize(64, 64);
    m_headline = new QLabel(this);
    QFont big = m_headline->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.2);
    m_headline->setFont(big);
    auto *explanation = new QLabel(
        QStringLiteral(
            "Checked fonts are repaired or moved to the quarantine as recommended; unchecked fonts "
            "are left as they are. Expand a row for the reasons, double-click it to show its file."),
        this);
    explanation->setWordWrap(true);

    m_tableView = new QTreeView(this);
    m_tableView->setModel(m_model);
    m_tableView->setAccessibleName(QStringLiteral("Problem fonts"));
    m_tableView->setUniformRowHeights(true);
    m_tableView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_tableView->setAlternatingRowColors(true);
    m_tableView->setAllColumnsShowFocus(true);
    m_tableView->header()->setStretchLastSection(false);
    m_tableView->header()->setSectionResizeMode(QVProblemFontModel::FontColumn, QHeaderView::Stretch);
    m_tableView->header()->setSectionResizeMode(
        QVProblemFontModel::DiagnosisColumn, QHeaderView::Interactive);
    m_tableView->header()->setSectionResizeMode(
        QVProblemFontModel::RecommendationColumn, QHeaderView::Interactive);
    m_tableView->header()->resizeSection(QVProblemFontModel::DiagnosisColumn, 220);
    m_tableView->header()->resizeSection(QVProblemFontModel::RecommendationColumn, 150);
    m_tableView->installEventFilter(this);
    connect(
        m_tableView, &QTreeView::doubleClicked, this, &QVDiagnosisActionWindow::handleTableViewDoubleClick);
    connect(m_tableView, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        if (!index.parent().isValid())
            addExpandedRowContent(index.row());
    });
    connect(m_tableView, &QTreeView::collapsed, this, [this](const QModelIndex &index) {
        if (!index.parent().isValid())
            removeExpandedRowContent(index.row());
    });
    connect(m_model, &QVProblemFontModel::checkBoxClicked, this, &QVDiagnosisActionWindow::checkBoxAction);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setAccessibleDescription(QStringLiteral("Resolution status"));
    m_statusLabel->hide();

    m_ignoreIssuesButton = new QPushButton(QStringLiteral("Ignore Issues"), this);
    m_ignoreIssuesButton->setAccessibleName(m_ignoreIssuesButton->text());
    m_ignoreIssuesButton->setToolTip(QStringLiteral("Leave every font as it is"));
    m_resolveIssuesButton = new QPushButton(QStringLiteral("Resolve Checked Issues"), this);
    m_resolveIssuesButton->setAccessibleName(m_resolveIssuesButton->text());
    m_resolveIssuesButton->setDefault(true);
    connect(m_ignoreIssuesButton, &QPushButton::clicked, this, &QVDiagnosisActionWindow::doneButtonAction);
    connect(m_resolveIssuesButton, &QPushButton::clicked, this, &QVDiagnosisActionWindow::resolveIssues);

    auto *top = new QHBoxLayout;
    top->setSpacing(16);
    top->addWidget(m_iconImageView, 0, Qt::AlignTop);
    auto *texts = new QVBoxLayout;
    texts->addWidget(m_headline);
    texts->addWidget(explanation);
    top->addLayout(texts, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_ignoreIssuesButton);
    buttons->addWidget(m_resolveIssuesButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(12);
    layout->addLayout(top);
    layout->addWidget(m_tableView, 1);
    layout->addWidget(m_statusLabel);
    layout->addLayout(buttons);

    m_popover = new QVPopover(this);

    connect(m_resolution, &QVDiagnosisResolution::rowResolved, this, &QVDiagnosisActionWindow::rowResolved);
    connect(m_resolution, &QVDiagnosisResolution::resolved, this, &QVDiagnosisActionWindow::resolved);
    connect(&m_storeWatcher, &QFutureWatcher<StoreHandle>::finished, this,
        [this] { startResolving(m_storeWatcher.result()); });
    // Rows done and the bar are shown a few times a second, not once per
    // font: a long list sends thousands of them.
    m_refreshTimer.setInterval(50);
    connect(&m_refreshTimer, &QTimer::timeout, this, &QVDiagnosisActionWindow::showProgress);
    m_resolution->stopRequested = [stop = m_stop] { return stop->load(); };

    m_iconName = QVSettings().lastScanType() == QLatin1String("Manual Scan")
        ? QStringLiteral("mac-icon-caution")
        : QStringLiteral("autoscan-caution");
    refreshImages();
}

QVDiagnosisActionWindow::~QVDiagnosisActionWindow()
{
    // A resolution in hand stops after its font; the store it uses goes last.
    m_stop->store(true);
    m_storeWatcher.waitForFinished();
    m_resolution->waitForResolving();
    m_resolution->setStore(nullptr, nullptr);
}

void QVDiagnosisActionWindow::setProblemFontsArray(const QList<QVProblemFontPtr> &problemFonts)
{
    m_resolution->setProblemFontsArray(problemFonts);
    clearExpandedRowsArray();
    m_model->setRows(m_resolution->rowArray, m_resolution->checkedRowsArray);
    m_headline->setText(problemFonts.size() == 1
            ? QStringLiteral("1 font has a problem")
            : QStringLiteral("%1 fonts have problems").arg(problemFonts.size()));
    m_showCloseWarning = false;
    m_isDisabled = false;
    updateButtons();
}

QString QVDiagnosisActionWindow::getCautionText(const QString &defectName)
{
    QString text;
    for (const auto &[key, explanation] : kCautionTexts) {
        if (defectName == QLatin1String(key))
            text = QString::fromUtf8(explanation);
    }
    const QString resourcePrefix = QString::fromLatin1(kResourceErrorPrefix);
    if (defectName.startsWith(resourcePrefix)) {
        QString message;
        // "File Resource Error (CODE)": the code lies between " (" and ")".
        if (defectName.size() > resourcePrefix.size() + 2) {
            const qsizetype from = resourcePrefix.size() + 2;
            message = QVResouceFork::errorMessageForCode(
                defectName.mid(from, defectName.size() - from - 1).toInt());
        }
        text = QString::fromUtf8(kResourceErrorText).arg(message);
    }
    if (defectName.startsWith(QLatin1String(kFileErrorPrefix)))
        text = QString::fromUtf8(kFileErrorText);
    if (text.isEmpty())
        text = QVDeepCheck::cautionText(defectName);
    return text;
}

QString QVDiagnosisActionWindow::getInfoText(const QVProblemFontPtr &entry)
{
    const QVStatusPtr &status = entry->fontStatus;
    const QString fileName = QFileInfo(entry->fontFile->URL).fileName();
    const QString type = QVAppDelegate::getFontTypeName(status->fontType);
    if (status->fontType == 1 || status->fontType == 2)
        return QStringLiteral("File Name: %1\nFont Type: %2\nPostScript Name: %3\nLocation: %4")
            .arg(fileName, type, status->PSname, entry->fontFile->URL);
    return QStringLiteral("File Name: %1\nFont Type: %2\nStyle: %3\nPostScript Name: %4\nLocation: %5")
        .arg(fileName, type, status->fontStyle, status->PSname, entry->fontFile->URL);
}

QStringList QVDiagnosisActionWindow::cautionHeadings()
{
    return { QStringLiteral("Diagnosis:"), QStringLiteral("Recommendation:"),
        QStringLiteral("Error Desciption:") };
}

QStringList QVDiagnosisActionWindow::infoHeadings()
{
    return { QStringLiteral("File Name:"), QStringLiteral("Font Type:"), QStringLiteral("Style:"),
        QStringLiteral("PostScript Name:"), QStringLiteral("Location:") };
}

QString QVDiagnosisActionWindow::styledText(const QString &text, const QStringList &headings)
{
    QString html;
    QSet<QString> done;
    const QStringList paragraphs = text.split(QLatin1Char('\n'));
    for (const QString &paragraph : paragraphs) {
        QString body = paragraph.toHtmlEscaped();
        for (const QString &heading : headings) {
            const QString escaped = heading.toHtmlEscaped();
            if (done.contains(heading) || !body.contains(escaped))
                continue;
            done.insert(heading);
            const qsizetype at = body.indexOf(escaped);
            body.replace(at, escaped.size(), QStringLiteral("<b>") + escaped + QStringLiteral("</b>"));
        }
        // Hanging indent: a paragraph's second line starts under its text.
        html += QStringLiteral("<p style=\"margin:0; margin-left:14px; text-indent:-14px; line-height:3px; "
                               "-qt-line-height-type:line-distance;\">%1</p>")
                    .arg(body.isEmpty() ? QStringLiteral("&nbsp;") : body);
    }
    return QStringLiteral("<div style=\"font-size:small;\">%1</div>").arg(html);
}

QList<int> QVDiagnosisActionWindow::selectedRows() const
{
    QList<int> rows;
    const QModelIndexList indexes
        = m_tableView->selectionModel()->selectedRows(QVProblemFontModel::FontColumn);
    for (const QModelIndex &index : indexes) {
        if (!index.parent().isValid())
            rows << index.row();
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

void QVDiagnosisActionWindow::checkBoxAction(int row, bool checked)
{
    if (m_isDisabled)
        return;
    const QList<int> selected = selectedRows();
    if (selected.size() < 2) {
        m_model->setChecked({ row }, checked);
        m_resolution->setRowChecked(row, checked);
        updateButtons();
        return;
    }
    checkSelectedRows(checked);
    // The click that toggled the box would leave only its own row selected.
    const QItemSelection kept = m_tableView->selectionModel()->selection();
    QTimer::singleShot(0, this,
        [this, kept] { m_tableView->selectionModel()->select(kept, QItemSelectionModel::ClearAndSelect); });
}

void QVDiagnosisActionWindow::checkSelectedRows(bool checked)
{
    if (m_isDisabled)
        return;
    const QList<int> rows = selectedRows();
    m_model->setChecked(rows, checked);
    for (const int row : rows)
        m_resolution->setRowChecked(row, checked);
    updateButtons();
}

void QVDiagnosisActionWindow::updateButtons()
{
    m_resolveIssuesButton->setEnabled(!m_isDisabled && m_resolution->canResolve());
    m_ignoreIssuesButton->setEnabled(!m_isDisabled);
}

void QVDiagnosisActionWindow::resolveIssues()
{
    if (m_isDisabled || !m_resolution->canResolve())
        return;
    m_isDisabled = true;
    m_showCloseWarning = true;
    m_resolving = true;
    m_stop->store(false);
    m_popover->close();
    m_statusLabel->hide();
    m_model->setEditable(false);
    m_tableView->setItemsExpandable(false);
    updateButtons();
    Q_EMIT userInterfaceEnabled(false);
    m_checkedBefore.clear();
    for (const int row : std::as_const(m_resolution->checkedRowsArray))
        m_checkedBefore << m_resolution->rowArray.value(row);

    if (m_resolution->rowArray.size() >= QVDiagnosisResolution::kProgressThreshold) {
        m_progressWindow = new QDialog(this);
        m_progressWindow->setWindowModality(Qt::WindowModal);
        m_progressWindow->setAccessibleName(QStringLiteral("Resolving Font Issues..."));
        auto *label = new QLabel(QStringLiteral("Resolving Font Issues..."), m_progressWindow);
        m_progressBar = new QProgressBar(m_progressWindow);
        m_progressBar->setRange(0, kBarScale);
        m_progressBar->setTextVisible(false);
        m_progressBar->setAccessibleName(QStringLiteral("Resolution progress"));
        auto *cancel = new QPushButton(QVStringTable::text("any.cancel.title"), m_progressWindow);
        cancel->setAccessibleName(cancel->text());
        connect(cancel, &QPushButton::clicked, this, [this, label, cancel] {
            m_stop->store(true);
            m_resolution->cancelRequested = true;
            label->setText(QStringLiteral("Stopping after the font in hand..."));
            cancel->setEnabled(false);
        });
        auto *layout = new QVBoxLayout(m_progressWindow);
        layout->addWidget(label);
        layout->addWidget(m_progressBar);
        layout->addWidget(cancel, 0, Qt::AlignRight);
        m_progressWindow->setMinimumWidth(360);
        // Escape would only hide it; cancelling is the button's.
        m_progressWindow->installEventFilter(this);
        m_progressWindow->open();
        m_resolution->progress = &m_progress;
    } else {
        m_resolution->progress = nullptr;
    }

    m_refreshTimer.start();
    // Reading the quarantine index and waiting for another run are file work.
    QVFontDataManager *dataMgr = m_dataMgr;
    const std::shared_ptr<std::atomic<bool>> stop = m_stop;
    m_storeWatcher.setFuture(QtConcurrent::run([dataMgr, stop] {
        StoreHandle handle;
        handle.store = std::make_shared<QVQuarantineStore>(dataMgr);
        handle.error = handle.store->lockForRun(kLockWaitMs, [stop](qint64) { return !stop->load(); });
        return handle;
    }));
}

void QVDiagnosisActionWindow::startResolving(const StoreHandle &handle)
{
    m_store = handle.store;
    if (!handle.error.isNull() || m_stop->load()) {
        QVDiagnosisResolution::Outcome nothing;
        nothing.cancelled = true;
        nothing.error = handle.error;
        resolved(nothing);
        return;
    }
    m_surgery = std::make_unique<QVSuitcaseSurgery>(m_store.get());
    m_resolution->setStore(m_store.get(), m_surgery.get());
    if (!m_resolution->startResolving()) {
        QVDiagnosisResolution::Outcome nothing;
        nothing.cancelled = true;
        resolved(nothing);
    }
}

void QVDiagnosisActionWindow::rowResolved(int row, const QString &error)
{
    m_doneRows.append({ row, error });
    if (error.isNull())
        return;
    // The row and the dialog about it are shown together.
    showProgress();
    const QVProblemFontPtr entry = m_model->entry(row);
    const bool repair = m_model->data(m_model->index(row, QVProblemFontModel::RecommendationColumn))
                            .toString()
                            .startsWith(QLatin1String("Repair"));
    m_pendingErrors.append({ repair ? QStringLiteral("A font could not be repaired")
                                    : QStringLiteral("A font could not be moved to the quarantine"),
        QStringLiteral("%1\n%2\n\nIt was left where it is.")
            .arg(entry ? QVProblemFontModel::fontColumnText(entry) : QString(), error) });
    showNextError();
}

void QVDiagnosisActionWindow::showProgress()
{
    for (const auto &[row, error] : std::as_const(m_doneRows))
        m_model->setResult(row, error);
    m_doneRows.clear();
    if (m_progressBar) {
        const double maximum = m_progress.maximum() > 0 ? m_progress.maximum() : 100.0;
        m_progressBar->setValue(qBound(0, int(m_progress.value() / maximum * kBarScale), kBarScale));
    }
}

void QVDiagnosisActionWindow::resolved(const QVDiagnosisResolution::Outcome &outcome)
{
    m_refreshTimer.stop();
    showProgress();
    // The worker is done with the fonts: the window may read them again.
    const int quarantined = m_store ? m_store->qv_total_quarantined : 0;
    m_resolution->setStore(nullptr, nullptr);
    m_surgery.reset();
    if (m_store) {
        // Unlocking and freeing the store may touch the disk.
        (void)QtConcurrent::run([store = std::move(m_store)] {});
    }
    m_resolving = false;
    if (m_progressWindow) {
        m_progressWindow->removeEventFilter(this);
        m_progressWindow->close();
        m_progressWindow->deleteLater();
        m_progressWindow = nullptr;
        m_progressBar = nullptr;
    }
    m_resolution->progress = nullptr;
    Q_EMIT fontsQuarantined(quarantined);
    if (!outcome.quarantinedRows.isEmpty())
        Q_EMIT quarantineChanged();
    Q_EMIT userInterfaceEnabled(true);
    if (!outcome.error.isNull()) {
        m_pendingErrors.append({ QStringLiteral("The quarantine could not take more fonts"), outcome.error });
        showNextError();
    }

    if (!outcome.cancelled) {
        m_showCloseWarning = false;
        m_isDisabled = false;
        m_model->setEditable(true);
        m_tableView->setItemsExpandable(true);
        updateButtons();
        if (m_errorDialog || !m_pendingErrors.isEmpty()) {
            m_closeAfterErrors = true;
            return;
        }
        m_closing = true;
        close();
        return;
    }

    // Stopped: the fonts that left are taken out of the list; the others
    // that were checked and not reached stay checked.
    QSet<const QVProblemFont *> handled;
    for (const QList<int> *rows : { &outcome.repairedRows, &outcome.quarantinedRows }) {
        for (const int row : *rows)
            handled.insert(m_model->entry(row).get());
    }
    QHash<const QVProblemFont *, int> rowOf;
    for (int row = 0; row < m_resolution->rowArray.size(); ++row)
        rowOf.insert(m_resolution->rowArray.at(row).get(), row);
    // In the order they were checked, as the sweeps take them.
    QList<int> checked;
    for (const QVProblemFontPtr &entry : std::as_const(m_checkedBefore)) {
        if (!handled.contains(entry.get()) && rowOf.contains(entry.get()))
            checked << rowOf.value(entry.get());
    }
    m_resolution->checkedRowsArray = checked;
    m_checkedBefore.clear();
    clearExpandedRowsArray();
    m_model->setRows(m_resolution->rowArray, m_resolution->checkedRowsArray);
    m_isDisabled = false;
    m_model->setEditable(true);
    m_tableView->setItemsExpandable(true);
    updateButtons();
    m_statusLabel->setText(
        QStringLiteral("Stopped after the font in hand: %1 repaired, %2 moved to the quarantine. The fonts "
                       "still listed were left as they are.")
            .arg(outcome.repairedRows.size())
            .arg(quarantined));
    m_statusLabel->show();
    if (m_closeWhenResolved) {
        m_showCloseWarning = false;
        m_closing = true;
        endDiagnosis();
        close();
    }
}

void QVDiagnosisActionWindow::showNextError()
{
    if (m_errorDialog || m_pendingErrors.isEmpty())
        return;
    if (m_dontShowAgain) {
        m_pendingErrors.clear();
        return;
    }
    const auto [message, information] = m_pendingErrors.takeFirst();
    presentErrorDialog(message, information, QVStringTable::text("any.ok.title"));
}

void QVDiagnosisActionWindow::presentErrorDialog(const QString &message, const QString &information,
    const QString &cancelTitle, const QString &continueTitle)
{
    QStringList titles { cancelTitle };
    if (!continueTitle.isEmpty())
        titles << continueTitle;
    auto *box = new QCheckBox(QStringLiteral("Do not show this again"));
    box->setAccessibleName(box->text());
    QPointer<QCheckBox> suppression = box;
    m_errorDialog = QVAlertSheet::show(this, message, information, titles,
        QStringLiteral("presentErrorDialog"), [this, suppression](int returnCode) {
            m_dontShowAgain = suppression && suppression->isChecked();
            modalEnded(returnCode, QStringLiteral("presentErrorDialog"));
        });
    m_errorDialog->setCheckBox(box);
}

void QVDiagnosisActionWindow::modalEnded(int returnCode, const QString &context)
{
    if (context == QLatin1String("presentErrorDialog")) {
        m_errorDialog.clear();
        // The next one after this box has gone.
        QTimer::singleShot(0, this, [this] {
            showNextError();
            if (m_closeAfterErrors && !m_errorDialog) {
                m_closeAfterErrors = false;
                m_closing = true;
                close();
            }
        });
    } else if (context == QLatin1String("windowShouldClose") && returnCode == 1000) {
        if (m_resolving) {
            // Stops after the font in hand; the window closes when it has.
            m_closeWhenResolved = true;
            m_stop->store(true);
            m_resolution->cancelRequested = true;
            hide();
            return;
        }
        m_closing = true;
        endDiagnosis();
        close();
    }
}

bool QVDiagnosisActionWindow::windowShouldClose()
{
    if (m_closing) {
        if (!m_ended) {
            if (QVSettings().organizeFonts()) {
                // Time for the organizer to take over.
                m_ended = true;
                QTimer::singleShot(750, m_resolution, [this] {
                    m_ended = false;
                    endDiagnosis();
                });
            } else {
                endDiagnosis();
            }
        }
        return true;
    }
    if (m_showCloseWarning || m_resolving) {
        m_showCloseWarning = false;
        if (!QVAlertSheet::find(this, QStringLiteral("windowShouldClose")))
            QVAlertSheet::show(this, QStringLiteral("There are unresolved issues remaining."),
                QStringLiteral("No action has been taken to resolve the font issues listed below."),
                { QStringLiteral("Close"), QStringLiteral("Don't Close") },
                QStringLiteral("windowShouldClose"),
                [this](int returnCode) { modalEnded(returnCode, QStringLiteral("windowShouldClose")); });
        return false;
    }
    m_closing = true;
    return windowShouldClose();
}

void QVDiagnosisActionWindow::endDiagnosis()
{
    if (m_ended)
        return;
    m_ended = true;
    m_resolution->endDiagnosis();
    deleteLater();
}

void QVDiagnosisActionWindow::doneButtonAction()
{
    if (m_isDisabled)
        return;
    m_resolution->ignoreIssues();
    m_showCloseWarning = false;
    Q_EMIT userInterfaceEnabled(true);
    m_closing = true;
    close();
}

void QVDiagnosisActionWindow::closeEvent(QCloseEvent *event)
{
    if (windowShouldClose()) {
        m_popover->close();
        event->accept();
    } else {
        event->ignore();
    }
}

void QVDiagnosisActionWindow::disclosureAction(int row, bool expand)
{
    const QModelIndex index = m_model->index(row, QVProblemFontModel::FontColumn);
    if (index.isValid())
        m_tableView->setExpanded(index, expand);
}

QWidget *QVDiagnosisActionWindow::expandedLine(int row, int line) const
{
    return m_tableView->indexWidget(m_model->index(
        line, QVProblemFontModel::FontColumn, m_model->index(row, QVProblemFontModel::FontColumn)));
}

void QVDiagnosisActionWindow::addExpandedRowContent(int row)
{
    const QVProblemFontPtr entry = m_model->entry(row);
    if (!entry || m_resolving)
        return;
    removeExpandedRowContent(row);
    const QModelIndex parent = m_model->index(row, QVProblemFontModel::FontColumn);
    const QStringList lines = m_model->lines(row);
    const QString infoText = getInfoText(entry);
    const QString fontName = QVProblemFontModel::fontColumnText(entry);
    for (int i = 0; i < lines.size(); ++i) {
        const QString &name = lines.at(i);
        auto *line = new QWidget;
        line->setAccessibleName(name);
        auto *layout = new QHBoxLayout(line);
        layout->setContentsMargins(4, 0, 8, 0);
        layout->setSpacing(6);
        auto *caution = new QToolButton(line);
        caution->setObjectName(QStringLiteral("iconView%1").arg(i));
        caution->setAutoRaise(true);
        caution->setIcon(QVImages::icon(QStringLiteral("caution"), 16));
        caution->setProperty("imageName", QStringLiteral("caution"));
        caution->setAccessibleName(QStringLiteral("Explain: %1").arg(name));
        caution->setToolTip(caution->accessibleName());
        caution->setProperty("row", row);
        caution->setProperty("tag", i);
        connect(caution, &QToolButton::clicked, this, [this, caution] { cautionButtonAction(caution); });
        auto *label = new QLabel(name, line);
        label->setObjectName(QStringLiteral("label%1").arg(i));
        layout->addWidget(caution);
        layout->addWidget(label);
        if (name == QLatin1String(QVProblemFontModel::kDuplicatesLabel)) {
            // The other copies, each shown in its folder when chosen.
            auto *popup = new QToolButton(line);
            popup->setObjectName(QStringLiteral("popup"));
            popup->setText(QStringLiteral("Other copies"));
            popup->setAccessibleName(QStringLiteral("Other copies of %1").arg(fontName));
            popup->setPopupMode(QToolButton::InstantPopup);
            auto *menu = new QMenu(popup);
            for (const QVFontRef &member : std::as_const(entry->duplicatesArray)) {
                const QString format
                    = member.fontStatus->fontSize > 0 ? QStringLiteral("%1  %2") : QStringLiteral("%1   %2");
                QAction *action
                    = menu->addAction(format.arg(member.fontStatus->fontName, member.fontFile->URL));
                const QString path = member.fontFile->URL;
                connect(action, &QAction::triggered, this, [path] { QVFileReveal::revealInFinder(path); });
            }
            popup->setMenu(menu);
            layout->addWidget(popup);
        }
        layout->addStretch();
        if (i == 0) {
            auto *info = new QToolButton(line);
            info->setObjectName(QStringLiteral("info"));
            info->setAutoRaise(true);
            info->setIcon(QVImages::icon(QStringLiteral("info"), 16));
            info->setProperty("imageName", QStringLiteral("info"));
            info->setAccessibleName(QStringLiteral("Details of %1").arg(fontName));
            info->setToolTip(info->accessibleName());
            info->setProperty("row", row);
            // Taken now: while a resolution runs the records are the worker's.
            info->setProperty("infoText", infoText);
            info->setProperty("title", fontName);
            connect(info, &QToolButton::clicked, this, [this, info] { infoButtonAction(info); });
            layout->addWidget(info);
        }
        m_tableView->setFirstColumnSpanned(i, parent, true);
        m_tableView->setIndexWidget(m_model->index(i, QVProblemFontModel::FontColumn, parent), line);
    }
    m_expandedRowsArray.append({ row, int(lines.size()) * kLineHeight });
}

void QVDiagnosisActionWindow::removeExpandedRowContent(int row)
{
    const QModelIndex parent = m_model->index(row, QVProblemFontModel::FontColumn);
    for (int i = 0; i < m_model->rowCount(parent); ++i) {
        const QModelIndex line = m_model->index(i, QVProblemFontModel::FontColumn, parent);
        if (QWidget *widget = m_tableView->indexWidget(line)) {
            if (m_popover->anchor() && widget->isAncestorOf(m_popover->anchor()))
                m_popover->close();
            m_tableView->setIndexWidget(line, nullptr);
        }
    }
    m_expandedRowsArray.removeIf([row](const QPair<int, int> &expanded) { return expanded.first == row; });
}

void QVDiagnosisActionWindow::clearExpandedRowsArray()
{
    m_popover->close();
    const QList<QPair<int, int>> expanded = m_expandedRowsArray;
    for (const auto &[row, height] : expanded) {
        Q_UNUSED(height);
        m_tableView->setExpanded(m_model->index(row, QVProblemFontModel::FontColumn), false);
        removeExpandedRowContent(row);
    }
    m_expandedRowsArray.clear();
}

void QVDiagnosisActionWindow::cautionButtonAction(QAbstractButton *button)
{
    if (m_popover->isVisible() && m_popover->anchor() == button) {
        m_popover->close();
        return;
    }
    const QString name
        = m_model->lines(button->property("row").toInt()).value(button->property("tag").toInt());
    m_popover->showBeside(button, name, styledText(getCautionText(name), cautionHeadings()));
}

void QVDiagnosisActionWindow::infoButtonAction(QAbstractButton *button)
{
    if (m_popover->isVisible() && m_popover->anchor() == button) {
        m_popover->close();
        return;
    }
    m_popover->showBeside(button, button->property("title").toString(),
        styledText(button->property("infoText").toString(), infoHeadings()));
}

void QVDiagnosisActionWindow::handleTableViewDoubleClick()
{
    QModelIndex index = m_tableView->currentIndex();
    if (index.parent().isValid())
        index = index.parent();
    const QString path
        = m_model->data(m_model->index(index.row(), QVProblemFontModel::FontColumn), Qt::ToolTipRole)
              .toString();
    if (!path.isEmpty())
        QVFileReveal::revealInFinder(path);
}

bool QVDiagnosisActionWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (watched == m_tableView && key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) {
            // Space toggles the boxes of the selected rows, as the current one goes.
            const QList<int> rows = selectedRows();
            if (!rows.isEmpty() && !m_isDisabled) {
                const int current = m_tableView->currentIndex().parent().isValid()
                    ? m_tableView->currentIndex().parent().row()
                    : m_tableView->currentIndex().row();
                checkSelectedRows(!m_model->isChecked(rows.contains(current) ? current : rows.first()));
            }
            return true;
        }
        if (watched == m_progressWindow && key->key() == Qt::Key_Escape)
            return true;
    }
    return QWidget::eventFilter(watched, event);
}

void QVDiagnosisActionWindow::refreshImages()
{
    m_iconImageView->setPixmap(QVImages::pixmap(m_iconName, 64, devicePixelRatioF()));
    m_iconImageView->setAccessibleName(m_iconName);
    for (QToolButton *button : findChildren<QToolButton *>()) {
        const QString image = button->property("imageName").toString();
        if (!image.isEmpty())
            button->setIcon(QVImages::icon(image, 16));
    }
}

void QVDiagnosisActionWindow::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        refreshImages();
}
