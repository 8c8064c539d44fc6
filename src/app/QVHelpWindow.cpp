#include "QVHelpWindow.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QIcon>
#include <QPointer>
#include <QTextBrowser>
#include <QToolButton>
#include <QVBoxLayout>

namespace
{

QPointer<QVHelpWindow> &theWindow()
{
    static QPointer<QVHelpWindow> window;
    return window;
}

} // namespace

QVHelpWindow::QVHelpWindow()
    : m_browser(new QTextBrowser(this))
    , m_back(new QToolButton(this))
    , m_forward(new QToolButton(this))
{
    setAttribute(Qt::WA_DeleteOnClose);
    // Help open on its own does not keep Quorvel running once the main window is closed.
    setAttribute(Qt::WA_QuitOnClose, false);
    setObjectName(QStringLiteral("helpWindow"));
    setWindowTitle(QStringLiteral("Quorvel Help"));
    setWindowIcon(QIcon(QStringLiteral(":/quorvel/images/quorvel.svg")));
    resize(760, 640);

    m_back->setArrowType(Qt::LeftArrow);
    m_back->setAccessibleName(QStringLiteral("Back"));
    m_back->setToolTip(QStringLiteral("Back"));
    m_back->setShortcut(QKeySequence::Back);
    m_forward->setArrowType(Qt::RightArrow);
    m_forward->setAccessibleName(QStringLiteral("Forward"));
    m_forward->setToolTip(QStringLiteral("Forward"));
    m_forward->setShortcut(QKeySequence::Forward);
    auto *contents = new QToolButton(this);
    contents->setText(QStringLiteral("Contents"));
    contents->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_back->setEnabled(false);
    m_forward->setEnabled(false);
    connect(m_back, &QToolButton::clicked, m_browser, &QTextBrowser::backward);
    connect(m_forward, &QToolButton::clicked, m_browser, &QTextBrowser::forward);
    connect(contents, &QToolButton::clicked, this, [this] { showPage(QStringLiteral("index.html")); });
    connect(m_browser, &QTextBrowser::backwardAvailable, m_back, &QToolButton::setEnabled);
    connect(m_browser, &QTextBrowser::forwardAvailable, m_forward, &QToolButton::setEnabled);
    connect(m_browser, &QTextBrowser::sourceChanged, this,
        [this] { setWindowTitle(m_browser->documentTitle() + QStringLiteral(" — Quorvel Help")); });

    // Pages of the help open here; anything else is the browser's.
    m_browser->setOpenLinks(false);
    connect(m_browser, &QTextBrowser::anchorClicked, this, [this](const QUrl &url) {
        if (url.scheme() == QLatin1String("qrc") || url.isRelative())
            m_browser->setSource(url.isRelative() ? m_browser->source().resolved(url) : url);
        else
            QDesktopServices::openUrl(url);
    });
    m_browser->setFrameShape(QFrame::NoFrame);
    m_browser->document()->setDocumentMargin(18);

    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(8, 6, 8, 6);
    bar->addWidget(m_back);
    bar->addWidget(m_forward);
    bar->addWidget(contents);
    bar->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(bar);
    layout->addWidget(m_browser);
}

QVHelpWindow *QVHelpWindow::showHelp(const QString &page)
{
    QPointer<QVHelpWindow> &window = theWindow();
    if (!window)
        window = new QVHelpWindow;
    window->showPage(page.isEmpty() ? QStringLiteral("index.html") : page);
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

QVHelpWindow *QVHelpWindow::instance()
{
    return theWindow();
}

void QVHelpWindow::showPage(const QString &page)
{
    m_browser->setSource(QUrl(helpFolder() + page));
}

QString QVHelpWindow::currentPage() const
{
    return m_browser->source().toString().mid(helpFolder().size());
}
