#include "QVDiagnosisViewController.h"

#include "QVAlertSheet.h"
#include "QVImages.h"
#include "diagnosis/QVDiagnosis.h"
#include "diagnosis/QVDiagnosisViewState.h"
#include "reports/QVReportManager.h"
#include "settings/QVProgress.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"
#include "store/QVFileManager.h"
#include "store/QVReportStore.h"

#include <QBoxLayout>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

namespace
{

// Bars count in thousandths so fractional steps still move them.
constexpr int kBarScale = 1000;
const QString kCompleteSuffix = QStringLiteral(" - Complete ✓");

} // namespace

QVDiagnosisViewController::QVDiagnosisViewController(QVFontDataManager *dataMgr, QWidget *parent)
    : QWidget(parent)
    , m_diagnosis(new QVDiagnosis(dataMgr, this))
    , m_viewState(new QVDiagnosisViewState(m_diagnosis, this))
{
    m_icon = new QLabel(this);
    m_icon->setFixedSize(64, 64);
    m_overallLabel = new QLabel(this);
    QFont big = m_overallLabel->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.25);
    m_overallLabel->setFont(big);
    // Labels that change keep their text as their accessible name, so that a
    // screen reader reads the status itself; the description says what it is.
    m_overallLabel->setAccessibleDescription(QStringLiteral("Diagnosis status"));
    m_overallBar = new QProgressBar(this);
    m_overallBar->setTextVisible(false);
    m_overallBar->setAccessibleName(QStringLiteral("Overall progress"));

    auto *passes = new QGroupBox(QStringLiteral("Passes"), this);
    auto *grid = new QGridLayout(passes);
    grid->setHorizontalSpacing(8);
    grid->setVerticalSpacing(8);
    grid->setColumnStretch(2, 1);
    for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass) {
        const auto i = size_t(pass);
        m_passMarks[i] = new QLabel(passes);
        m_passMarks[i]->setFixedSize(16, 16);
        m_passLabels[i] = new QLabel(passes);
        m_passLabels[i]->setMinimumWidth(240);
        m_passBars[i] = new QProgressBar(passes);
        m_passBars[i]->setTextVisible(false);
        m_passBars[i]->setAccessibleName(m_diagnosis->titleForProgress(pass));
        grid->addWidget(m_passMarks[i], pass, 0);
        grid->addWidget(m_passLabels[i], pass, 1);
        grid->addWidget(m_passBars[i], pass, 2);
        connect(m_diagnosis->progressForPass(pass), &QVProgress::changed, this,
            [this, pass] { refreshPass(pass); });
    }
    connect(m_diagnosis->overallProgress(), &QVProgress::changed, this,
        &QVDiagnosisViewController::refreshOverall);

    m_settingsText = new QLabel(this);
    m_settingsText->setTextFormat(Qt::RichText);
    m_settingsText->setWordWrap(true);
    m_settingsText->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_settingsText->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_settingsText->setFocusPolicy(Qt::StrongFocus);
    m_settingsText->setAccessibleDescription(QStringLiteral("Scan settings"));

    m_reportButton = new QPushButton(QStringLiteral("Report"), this);
    m_reportButton->setAccessibleName(QStringLiteral("Report"));
    m_reportButton->setToolTip(QStringLiteral("Show the report of this diagnosis"));
    m_reportButton->setEnabled(false);
    connect(m_reportButton, &QPushButton::clicked, this, &QVDiagnosisViewController::reportButtonAction);
    m_cancelButton = new QPushButton(QVStringTable::text(QStringLiteral("any.done.title")), this);
    m_cancelButton->setAccessibleName(m_cancelButton->text());
    m_cancelButton->setDefault(true);
    connect(m_cancelButton, &QPushButton::clicked, m_viewState, &QVDiagnosisViewState::cancelButtonAction);

    auto *top = new QGridLayout;
    top->setHorizontalSpacing(16);
    top->setVerticalSpacing(8);
    top->addWidget(m_icon, 0, 0, 2, 1, Qt::AlignTop);
    top->addWidget(m_overallLabel, 0, 1);
    top->addWidget(m_overallBar, 1, 1);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addStretch();
    buttons->addWidget(m_reportButton);
    buttons->addWidget(m_cancelButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(16);
    layout->addLayout(top);
    layout->addWidget(passes);
    layout->addWidget(m_settingsText, 1);
    layout->addLayout(buttons);

    connect(m_viewState, &QVDiagnosisViewState::stateChanged, this, [this] {
        refreshButtons();
        refreshIcon();
        for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass)
            refreshPass(pass);
    });
    connect(m_viewState, &QVDiagnosisViewState::alertRequested, this, &QVDiagnosisViewController::showAlert);
    connect(m_viewState, &QVDiagnosisViewState::alertDismissed, this, [this] {
        if (m_alert)
            m_alert->close();
    });
    connect(m_viewState, &QVDiagnosisViewState::diagnosisFinished, this,
        &QVDiagnosisViewController::refreshButtons);

    m_diagnosis->setStateFromUserPrefs();
    resetAllProgressViews();
    refreshButtons();
    refreshIcon();
    refreshOverall();
}

QVDiagnosisViewController::~QVDiagnosisViewController()
{
    // A report being written reads the run's records.
    m_reportManager.reset();
    // The passes read the view state's diagnosis until they return.
    m_diagnosis->setDoCancel(true);
}

void QVDiagnosisViewController::diagnoseFonts()
{
    m_overrideTitle.clear();
    m_reportEnabled = true;
    m_reportWritten = false;
    m_viewState->setFindingFonts(false);
    m_viewState->diagnoseFonts();
    refreshButtons();
}

void QVDiagnosisViewController::setScanMode()
{
    m_viewState->setScanMode();
    QString html = m_viewState->getSettingsStartText().toHtmlEscaped();
    for (const QString &heading : QVDiagnosisViewState::settingsStartHeadings())
        html.replace(heading.toHtmlEscaped(),
            QStringLiteral("<b>") + heading.toHtmlEscaped() + QStringLiteral("</b>"));
    html.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
    m_settingsText->setText(html);
    refreshIcon();
}

void QVDiagnosisViewController::resetAllProgressViews()
{
    m_diagnosis->resetAllProgressViews();
    m_diagnosis->resetProgress();
}

void QVDiagnosisViewController::setCancelButton(const QString &title, bool enabled)
{
    m_overrideTitle = title;
    m_overrideEnabled = enabled;
    refreshButtons();
}

void QVDiagnosisViewController::setReportButtonEnabled(bool enabled)
{
    m_reportEnabled = enabled;
    refreshButtons();
}

void QVDiagnosisViewController::refreshButtons()
{
    const bool overridden = !m_overrideTitle.isEmpty();
    const QString title = overridden ? m_overrideTitle : m_viewState->cancelButtonTitle();
    m_cancelButton->setText(title.isEmpty() ? QVStringTable::text(QStringLiteral("any.done.title")) : title);
    m_cancelButton->setAccessibleName(m_cancelButton->text());
    m_cancelButton->setEnabled(overridden ? m_overrideEnabled : m_viewState->isCancelButtonEnabled());
    m_reportButton->setEnabled(m_reportEnabled && m_viewState->isReportButtonEnabled());
}

QVReportManager *QVDiagnosisViewController::reportManager()
{
    if (!m_reportManager) {
        m_reportStore = std::make_unique<QVReportStore>();
        m_reportManager = std::make_unique<QVReportManager>();
        m_reportManager->setFileMgr(m_reportStore.get());
        connect(m_reportManager.get(), &QVReportManager::reportStored, this, [this] {
            m_reportWritten = true;
            Q_EMIT m_viewState->scanViewTextChanged();
        });
    }
    return m_reportManager.get();
}

void QVDiagnosisViewController::generateReport(bool show)
{
    QVReportManager *manager = reportManager();
    if (manager->reportIsProcessing())
        return;
    QVReportInput input = QVReportInput::fromRun(
        { m_diagnosis->fileStructureProblemCount(), m_diagnosis->missingBitmapProblemCount(),
            m_diagnosis->missingPSProblemCount(), m_diagnosis->duplicateProblemCount() },
        m_diagnosis->totalFontProblems(), m_diagnosis->problemFontsArray(), *m_diagnosis->qvDataMgr(),
        m_diagnosis->manualScanFolders());
    input.qv_total_quarantined = m_fileMgr ? m_fileMgr->qv_total_quarantined : 0;
    manager->setReportInput(input);
    manager->createReport(QVSettings().lastScanDate(), show);
}

void QVDiagnosisViewController::reportButtonAction()
{
    const QVSettings settings;
    if (m_reportWritten && reportManager()->reportIsReady() && !settings.lastReportFilePath().isEmpty()
        && !settings.lastReportName().isEmpty()) {
        reportManager()->showReport({ { QStringLiteral("filePath"), settings.lastReportFilePath() },
            { QStringLiteral("reportName"), settings.lastReportName() } });
        return;
    }
    generateReport(true);
}

QString QVDiagnosisViewController::iconName() const
{
    return m_viewState->iconName().isEmpty() ? QStringLiteral("mac-icon") : m_viewState->iconName();
}

void QVDiagnosisViewController::refreshIcon()
{
    m_icon->setPixmap(QVImages::pixmap(iconName(), 64, devicePixelRatioF()));
    m_icon->setAccessibleName(iconName());
}

void QVDiagnosisViewController::showProgress(QProgressBar *bar, const QVProgress *progress)
{
    if (progress->indeterminate()) {
        bar->setRange(0, 0);
        return;
    }
    bar->setRange(0, kBarScale);
    const double maximum = progress->maximum() > 0 ? progress->maximum() : 100.0;
    bar->setValue(qBound(0, int(progress->value() / maximum * kBarScale + 0.5), kBarScale));
}

void QVDiagnosisViewController::refreshOverall()
{
    const QVProgress *overall = m_diagnosis->overallProgress();
    showProgress(m_overallBar, overall);
    m_overallLabel->setText(overall->label());
}

QString QVDiagnosisViewController::passMark(int pass) const
{
    return m_passMarkNames[size_t(pass)];
}

void QVDiagnosisViewController::refreshPass(int pass)
{
    const auto i = size_t(pass);
    const QVProgress *progress = m_diagnosis->progressForPass(pass);
    const bool enabled = m_diagnosis->isProgressEnabled(pass);
    showProgress(m_passBars[i], progress);
    m_passBars[i]->setVisible(enabled);
    const QString label
        = progress->label().isEmpty() ? m_diagnosis->titleForProgress(pass) : progress->label();
    m_passLabels[i]->setText(label);
    m_passLabels[i]->setEnabled(enabled);

    QString mark;
    if (!enabled)
        mark = QStringLiteral("off");
    else if (label.endsWith(kCompleteSuffix))
        mark = QStringLiteral("done");
    else if (m_viewState->isDiagnosingFonts())
        mark = m_diagnosis->doCancel() ? QStringLiteral("cancelled") : QStringLiteral("running");
    else if (m_viewState->isShowingDoneButton() && m_diagnosis->doCancel())
        mark = QStringLiteral("cancelled");
    else
        mark = QStringLiteral("idle");
    m_passMarkNames[i] = mark;
    static const QHash<QString, QString> images { { QStringLiteral("off"), QStringLiteral("pass-idle") },
        { QStringLiteral("idle"), QStringLiteral("pass-idle") },
        { QStringLiteral("running"), QStringLiteral("pass-running") },
        { QStringLiteral("done"), QStringLiteral("ok_dot") },
        { QStringLiteral("cancelled"), QStringLiteral("fail_dot") } };
    m_passMarks[i]->setPixmap(QVImages::pixmap(images.value(mark), 16, devicePixelRatioF()));
    m_passMarks[i]->setAccessibleName(m_diagnosis->titleForProgress(pass) + QStringLiteral(": ") + mark);
}

void QVDiagnosisViewController::showAlert(const QString &message, const QString &informativeText,
    const QStringList &buttonTitles, const QString &context)
{
    if (m_alert)
        m_alert->close();
    m_alert = QVAlertSheet::show(
        window(), message, informativeText, buttonTitles, context,
        [this, context](int returnCode) { m_viewState->modalEnded(returnCode, context); },
        buttonTitles.size() > 1 ? QMessageBox::Warning : QMessageBox::Information);
}

void QVDiagnosisViewController::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        refreshIcon();
        for (int pass = 0; pass < QVDiagnosis::kPassCount; ++pass)
            refreshPass(pass);
    }
}
