#include "QVReportWindow.h"

#include "store/QVReportStore.h"

#include <QApplication>
#include <QBoxLayout>
#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QPageSetupDialog>
#include <QPointer>
#include <QPrintDialog>
#include <QPrinter>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QThreadPool>
#include <QWebEngineNavigationRequest>
#include <QWebEnginePage>
#include <QWebEngineSettings>
#include <QWebEngineView>
#include <unistd.h>

namespace
{

QList<QPointer<QVReportWindow>> &windowArray()
{
    static QList<QPointer<QVReportWindow>> windows;
    windows.removeAll(nullptr);
    return windows;
}

QByteArray errorPage(const QString &text)
{
    return QStringLiteral(
        "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><style>body{font:15px sans-serif;"
        "color:#1d2530;margin:48px}h1{font-size:20px;color:#b3261e}</style></head><body>"
        "<h1>This report cannot be shown</h1><p>%1</p></body></html>")
        .arg(text.toHtmlEscaped())
        .toUtf8();
}

} // namespace

void QVReportWindow::prepareEngine()
{
    if (::geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
}

QVReportWindow *QVReportWindow::showReport(const QVariantMap &record)
{
    const QString path = record.value(QStringLiteral("filePath")).toString();
    const QString name = record.value(QStringLiteral("reportName")).toString();
    if (QVReportWindow *open = windowForFile(path)) {
        open->setReportName(name);
        open->scrollToTop();
        open->showNormal();
        open->raise();
        open->activateWindow();
        return open;
    }
    prepareEngine();
    auto *window = new QVReportWindow(path, name);
    // New windows cascade from the last one opened.
    const QList<QPointer<QVReportWindow>> &windows = windowArray();
    if (!windows.isEmpty())
        window->move(windows.last()->pos() + QPoint(28, 28));
    windowArray().append(window);
    window->show();
    window->startLoading();
    return window;
}

QVReportWindow *QVReportWindow::windowForFile(const QString &filePath)
{
    for (const QPointer<QVReportWindow> &window : windowArray()) {
        if (window->filePath() == filePath)
            return window;
    }
    return nullptr;
}

QList<QVReportWindow *> QVReportWindow::openWindows()
{
    QList<QVReportWindow *> windows;
    for (const QPointer<QVReportWindow> &window : windowArray())
        windows.append(window);
    return windows;
}

void QVReportWindow::closeReports(const QStringList &filePaths)
{
    for (QVReportWindow *window : openWindows()) {
        if (filePaths.contains(window->filePath()))
            window->close();
    }
}

void QVReportWindow::retitleReport(const QString &filePath, const QString &reportName)
{
    if (QVReportWindow *window = windowForFile(filePath))
        window->setReportName(reportName);
}

QVReportWindow::QVReportWindow(const QString &filePath, const QString &reportName)
    : QWidget(nullptr, Qt::Window)
    , m_filePath(filePath)
    , m_printer(std::make_unique<QPrinter>(QPrinter::PrinterResolution))
{
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1000, 760);

    m_webView = new QWebEngineView(this);
    m_webView->setAccessibleName(QStringLiteral("Report"));
    QWebEngineSettings *settings = m_webView->settings();
    settings->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessFileUrls, false);
    settings->setAttribute(QWebEngineSettings::PluginsEnabled, false);
    connect(
        m_webView->page(), &QWebEnginePage::navigationRequested, this, &QVReportWindow::navigationRequested);
    connect(m_webView, &QWebEngineView::loadFinished, this, &QVReportWindow::webviewFinishedLoading);
    auto printed = [this](bool ok) {
        m_printing = false;
        m_printButton->setEnabled(!m_loading);
        Q_EMIT printFinished(ok);
    };
    connect(m_webView, &QWebEngineView::printFinished, this, printed);
    connect(m_webView, &QWebEngineView::pdfPrintingFinished, this,
        [printed](const QString &, bool ok) { printed(ok); });

    m_spinner = new QProgressBar(this);
    m_spinner->setRange(0, 0);
    m_spinner->setFixedWidth(120);
    m_spinner->setTextVisible(false);
    m_spinner->setAccessibleName(QStringLiteral("Loading report"));
    m_status = new QLabel(this);
    m_status->setForegroundRole(QPalette::PlaceholderText);
    m_printButton = new QPushButton(QStringLiteral("&Print…"), this);
    m_printButton->setAccessibleName(QStringLiteral("Print"));
    m_printButton->setShortcut(QKeySequence::Print);
    m_printButton->setToolTip(QStringLiteral("Print the report (%1)")
                                  .arg(QKeySequence(QKeySequence::Print).toString(QKeySequence::NativeText)));
    m_pageSetupButton = new QPushButton(QStringLiteral("Page Set&up…"), this);
    m_pageSetupButton->setAccessibleName(QStringLiteral("Page Setup"));
    m_topButton = new QPushButton(QStringLiteral("&Top"), this);
    m_topButton->setAccessibleName(QStringLiteral("Scroll to top"));
    m_topButton->setToolTip(QStringLiteral("Back to the top of the report"));
    m_closeButton = new QPushButton(QStringLiteral("Close"), this);
    m_closeButton->setAccessibleName(QStringLiteral("Close"));
    connect(m_printButton, &QPushButton::clicked, this, &QVReportWindow::printButtonAction);
    connect(m_pageSetupButton, &QPushButton::clicked, this, &QVReportWindow::pageSetupButtonAction);
    connect(m_topButton, &QPushButton::clicked, this, &QVReportWindow::scrollToTop);
    connect(m_closeButton, &QPushButton::clicked, this, &QWidget::close);
    auto *closeShortcut = new QShortcut(QKeySequence::Close, this);
    connect(closeShortcut, &QShortcut::activated, this, &QWidget::close);

    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(16, 8, 16, 8);
    bar->setSpacing(8);
    bar->addWidget(m_spinner);
    bar->addWidget(m_status, 1);
    bar->addWidget(m_topButton);
    bar->addWidget(m_pageSetupButton);
    bar->addWidget(m_printButton);
    bar->addWidget(m_closeButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_webView, 1);
    layout->addLayout(bar);
    setReportName(reportName);
}

QVReportWindow::~QVReportWindow() = default;

void QVReportWindow::setReportName(const QString &reportName)
{
    m_reportName = reportName;
    setWindowTitle(reportName.isEmpty() ? QFileInfo(m_filePath).fileName() : reportName);
    setAccessibleName(windowTitle());
}

void QVReportWindow::startLoading()
{
    m_loading = true;
    m_spinner->show();
    m_status->setText(QStringLiteral("Loading report…"));
    m_printButton->setEnabled(false);
    m_topButton->setEnabled(false);
    // Report files have no extension, and a page is known by its extension:
    // the engine is given a copy named NAME.html, made on a worker.
    QPointer<QVReportWindow> guard(this);
    const QString path = m_filePath;
    QThreadPool::globalInstance()->start([guard, path] {
        QString error;
        const QString copy = QVReportStore().browserCopyOfReport(path, &error);
        QMetaObject::invokeMethod(
            qApp,
            [guard, path, copy, error] {
                if (!guard)
                    return;
                if (copy.isEmpty())
                    guard->m_webView->setHtml(
                        QString::fromUtf8(errorPage(QStringLiteral("%1: %2").arg(path, error))));
                else
                    guard->showPage(QUrl::fromLocalFile(copy));
            },
            Qt::QueuedConnection);
    });
}

void QVReportWindow::showPage(const QUrl &url)
{
    m_pageUrl = url;
    m_webView->load(url);
}

void QVReportWindow::webviewFinishedLoading(bool ok)
{
    m_loading = false;
    m_spinner->hide();
    m_status->clear();
    m_printButton->setEnabled(!m_printing);
    m_topButton->setEnabled(true);
    Q_EMIT loadFinished(ok);
}

void QVReportWindow::navigationRequested(QWebEngineNavigationRequest &request)
{
    const QUrl url = request.url();
    if (url.adjusted(QUrl::RemoveFragment) == m_pageUrl
        || (url.scheme() == QLatin1String("data") && m_pageUrl.isEmpty())) {
        request.accept();
        return;
    }
    // The report stays; its links out (the support page) go to the browser.
    request.reject();
    const QString scheme = url.scheme().toLower();
    if (request.navigationType() == QWebEngineNavigationRequest::LinkClickedNavigation
        && (scheme == QLatin1String("https") || scheme == QLatin1String("http")
            || scheme == QLatin1String("mailto")))
        QDesktopServices::openUrl(url);
}

void QVReportWindow::scrollToTop()
{
    // Scripts are off: the page is moved as the Home key moves it.
    QWidget *target = m_webView->focusProxy() ? m_webView->focusProxy() : m_webView;
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Home, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_Home, Qt::NoModifier);
    QApplication::sendEvent(target, &press);
    QApplication::sendEvent(target, &release);
}

void QVReportWindow::printButtonAction()
{
    auto *dialog = new QPrintDialog(m_printer.get(), this);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, &QVReportWindow::printReport);
    dialog->open();
}

void QVReportWindow::pageSetupButtonAction()
{
    auto *dialog = new QPageSetupDialog(m_printer.get(), this);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}

void QVReportWindow::printReport()
{
    if (m_printing || m_loading)
        return;
    m_printing = true;
    m_printButton->setEnabled(false);
    // To a PDF file the page goes as it is, text and all; a printer gets it
    // drawn at its own resolution.
    if (m_printer->outputFormat() == QPrinter::PdfFormat && !m_printer->outputFileName().isEmpty())
        m_webView->printToPdf(m_printer->outputFileName(), m_printer->pageLayout());
    else
        m_webView->print(m_printer.get());
}
