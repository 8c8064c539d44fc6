#include "QVMainWindow.h"

#include "QVAppDelegate.h"
#include "QVImages.h"
#include "QVOverlayWindow.h"
#include "QVViewButton.h"
#include "settings/QVStringTable.h"

#include <QActionGroup>
#include <QApplication>
#include <QBoxLayout>
#include <QCloseEvent>
#include <QFileInfo>
#include <QFrame>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QStackedWidget>
#include <QToolButton>

QVMainWindow::QVMainWindow(QVAppDelegate *delegate, QWidget *parent)
    : QMainWindow(parent)
    , m_delegate(delegate)
{
    setWindowTitle(QVStringTable::text("window.title.default"));
    setAcceptDrops(true);
    setMinimumSize(720, 560);

    // The band of view buttons.
    auto *band = new QFrame(this);
    band->setAutoFillBackground(true);
    band->setBackgroundRole(QPalette::Base);
    auto *bandLayout = new QHBoxLayout(band);
    bandLayout->setContentsMargins(16, 8, 16, 8);
    bandLayout->setSpacing(8);
    const char *const bases[] = { "ButtonScan", "ButtonSettings", "ButtonQuarantine", "ButtonReports" };
    const char *const titleKeys[]
        = { "window.title.scan", "window.title.settings", "window.title.quarantine", "window.title.reports" };
    for (int i = 0; i < 4; ++i) {
        auto *button = new QVViewButton(QLatin1String(bases[i]), QVStringTable::text(titleKeys[i]), band);
        button->setCheckable(true);
        m_buttons[size_t(i)] = button;
        bandLayout->addWidget(button);
        connect(button, &QVViewButton::clicked, this, [this, i] { selectButton(i); });
    }
    bandLayout->addStretch();
    // The images draw the selection; the frame is kept for keyboard focus alone.
    band->setStyleSheet(
        QStringLiteral("QToolButton { border: 2px solid transparent; border-radius: 8px; padding: 2px; }"
                       "QToolButton:focus { border-color: palette(highlight); }"));
    auto *rule = new QFrame(this);
    rule->setFrameShape(QFrame::HLine);
    rule->setFrameShadow(QFrame::Sunken);

    m_tabs = new QStackedWidget(this);
    m_scanStack = new QStackedWidget(m_tabs);

    m_infoIcon = new QLabel(this);
    m_infoIcon->setFixedSize(24, 24);
    m_infoLabel = new QLabel(this);
    m_infoLabel->setWordWrap(true);
    m_infoLabel->setAccessibleDescription(QStringLiteral("Info"));
    auto *info = new QHBoxLayout;
    info->setContentsMargins(24, 8, 24, 16);
    info->setSpacing(8);
    info->addWidget(m_infoIcon, 0, Qt::AlignTop);
    info->addWidget(m_infoLabel, 1);

    auto *central = new QWidget(this);
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(band);
    layout->addWidget(rule);
    layout->addWidget(m_tabs, 1);
    layout->addLayout(info);
    setCentralWidget(central);

    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    m_scanFontsNowMenuItem = file->addAction(QStringLiteral("Scan &Font Folders"),
        QKeySequence(QStringLiteral("Ctrl+R")), m_delegate, &QVAppDelegate::handleScanButton);
    m_customScanMenuItem = file->addAction(QStringLiteral("Scan a F&older…"), QKeySequence::Open, m_delegate,
        &QVAppDelegate::HandleManualScanMenuItem);
    m_scanRecentMenu = file->addMenu(QStringLiteral("&Recent Scans"));
    m_organizeFontsMenuItem
        = file->addAction(QStringLiteral("Or&ganize Fonts…"), QKeySequence(QStringLiteral("Ctrl+Shift+O")),
            m_delegate, [this] { m_delegate->presentOrganizeOptionsWindow({}); });
    file->addSeparator();
    file->addAction(QStringLiteral("&Quit"), QKeySequence::Quit, this, &QWidget::close);

    QMenu *view = menuBar()->addMenu(QStringLiteral("&View"));
    auto *group = new QActionGroup(this);
    group->setExclusive(true);
    for (int i = 0; i < 4; ++i) {
        QAction *action = view->addAction(QVStringTable::text(titleKeys[i]));
        action->setCheckable(true);
        action->setShortcut(QKeySequence(QStringLiteral("Ctrl+%1").arg(i + 1)));
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, i] { selectButton(i); });
        m_viewActions[size_t(i)] = action;
    }
    // The menu bar's overflow button has no text of its own.
    if (auto *more = menuBar()->findChild<QToolButton *>(QStringLiteral("qt_menubar_ext_button")))
        more->setAccessibleName(QStringLiteral("More menus"));
    setInfo(QString());
}

void QVMainWindow::setViews(
    QWidget *scanRoot, QWidget *diagnosisView, QWidget *settings, QWidget *quarantine, QWidget *reports)
{
    m_scanStack->addWidget(scanRoot);
    m_scanStack->addWidget(diagnosisView);
    m_tabs->addWidget(m_scanStack);
    m_tabs->addWidget(settings);
    m_tabs->addWidget(quarantine);
    m_tabs->addWidget(reports);
}

void QVMainWindow::switchTo(
    int index, const QString &titleKey, const QString &infoKey, const QString &iconName)
{
    setWindowTitle(QVStringTable::text(titleKey));
    m_viewActions[size_t(index)]->setChecked(true);
    for (int i = 0; i < 4; ++i)
        m_buttons[size_t(i)]->setSelected(i == index);
    m_tabs->setCurrentIndex(index);
    if (!infoKey.isEmpty())
        setInfo(QVStringTable::text(infoKey), iconName);
}

void QVMainWindow::scanButtonClicked()
{
    switchTo(ScanView, QStringLiteral("window.title.scan"), QString(), QString());
    if (!m_delegate->isBusy() && !m_delegate->isShowingDoneButton()) {
        // Another view's line says nothing about scanning.
        setInfo(QString());
        m_delegate->presentScanView();
    }
}

void QVMainWindow::settingsButtonClicked()
{
    switchTo(SettingsView, QStringLiteral("window.title.settings"),
        QStringLiteral("info.settings.default.message"), QStringLiteral("settings"));
}

void QVMainWindow::quarantineButtonClicked()
{
    switchTo(QuarantineView, QStringLiteral("window.title.quarantine"),
        QStringLiteral("info.quarantine.default.message"), QStringLiteral("quarantine"));
}

void QVMainWindow::reportsButtonClicked()
{
    switchTo(ReportsView, QStringLiteral("window.title.reports"),
        QStringLiteral("info.reports.default.message"), QStringLiteral("reports"));
}

void QVMainWindow::selectButton(int index)
{
    if (QVOverlayWindow *overlay = m_delegate->overlayWindow())
        overlay->fadeOut();
    // A view that is switched off keeps the current one (and its check mark).
    if (!m_buttons[size_t(index)]->isEnabled()) {
        m_viewActions[size_t(selectedIndex())]->setChecked(true);
        m_buttons[size_t(index)]->setSelected(false);
        return;
    }
    switch (index) {
    case ScanView:
        scanButtonClicked();
        break;
    case SettingsView:
        settingsButtonClicked();
        break;
    case QuarantineView:
        quarantineButtonClicked();
        break;
    case ReportsView:
        reportsButtonClicked();
        break;
    default:
        break;
    }
}

int QVMainWindow::selectedIndex() const
{
    return m_tabs->currentIndex();
}

QWidget *QVMainWindow::currentView() const
{
    return m_tabs->currentIndex() == ScanView ? m_scanStack->currentWidget() : m_tabs->currentWidget();
}

void QVMainWindow::resetButtons()
{
    for (QVViewButton *button : m_buttons)
        button->resetImage();
}

void QVMainWindow::showDiagnosisView(bool show)
{
    m_scanStack->setCurrentIndex(show ? 1 : 0);
}

bool QVMainWindow::isShowingDiagnosisView() const
{
    return m_scanStack->currentIndex() == 1;
}

void QVMainWindow::setInfo(const QString &text, const QString &iconName)
{
    m_infoLabel->setText(text);
    m_infoIconName = text.isEmpty() ? QString() : iconName;
    m_infoIcon->setPixmap(
        m_infoIconName.isEmpty() ? QPixmap() : QVImages::pixmap(m_infoIconName, 24, devicePixelRatioF()));
}

QString QVMainWindow::infoText() const
{
    return m_infoLabel->text();
}

QStringList QVMainWindow::droppedFolders(const QMimeData *data)
{
    if (!data || !data->hasUrls())
        return {};
    QStringList folders;
    for (const QUrl &url : data->urls()) {
        if (!url.isLocalFile())
            return {};
        const QFileInfo info(url.toLocalFile());
        if (!info.exists() || !info.isDir())
            return {};
        folders.append(info.absoluteFilePath());
    }
    return folders;
}

void QVMainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!m_delegate->isBusy() && !droppedFolders(event->mimeData()).isEmpty())
        event->acceptProposedAction();
    else
        event->ignore();
}

void QVMainWindow::dragMoveEvent(QDragMoveEvent *event)
{
    if (!m_delegate->isBusy() && !droppedFolders(event->mimeData()).isEmpty())
        event->acceptProposedAction();
    else
        event->ignore();
}

void QVMainWindow::dropEvent(QDropEvent *event)
{
    if (m_delegate->performDragOperation(droppedFolders(event->mimeData())))
        event->acceptProposedAction();
    else
        event->ignore();
}

void QVMainWindow::closeEvent(QCloseEvent *event)
{
    if (m_delegate->windowShouldClose())
        event->accept();
    else
        event->ignore();
}

void QVMainWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        resetButtons();
        setInfo(m_infoLabel->text(), m_infoIconName);
    }
}
