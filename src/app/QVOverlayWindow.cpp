#include "QVOverlayWindow.h"

#include "QVImages.h"
#include "settings/QVSettings.h"
#include "settings/QVStringTable.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QMainWindow>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>

namespace
{

// The report's heading colour, and a lighter tint of it on a dark surface.
QColor brandColor()
{
    return QVImages::isDarkPalette() ? QColor(0x8f, 0xb8, 0xe0) : QColor(0x1f, 0x4e, 0x79);
}

} // namespace

QVOverlayWindow::QVOverlayWindow(QWidget *window)
    : QWidget(window)
{
    setObjectName(QStringLiteral("overlayWindow"));
    setAccessibleName(QVStringTable::text(QStringLiteral("overlay.welcome.title")));
    setAccessibleDescription(QVStringTable::text(QStringLiteral("overlay.welcome.message")));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_NoSystemBackground);

    m_card = new QWidget(this);
    m_card->setMaximumWidth(520);
    m_mark = new QLabel(m_card);
    m_mark->setFixedSize(64, 64);
    m_title = new QLabel(QVStringTable::text(QStringLiteral("overlay.welcome.title")), m_card);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    auto *message = new QLabel(QVStringTable::text(QStringLiteral("overlay.welcome.message")), m_card);
    message->setWordWrap(true);
    message->setTextFormat(Qt::RichText);
    message->setAccessibleDescription(QStringLiteral("Welcome text"));
    m_showWelcomeAtStartupButton
        = new QCheckBox(QVStringTable::text(QStringLiteral("overlay.dontShowAgain.title")), m_card);
    m_showWelcomeAtStartupButton->setAccessibleName(QStringLiteral("Don't show the welcome at start-up"));
    connect(m_showWelcomeAtStartupButton, &QCheckBox::clicked, this,
        &QVOverlayWindow::showWelcomeAtStartupButtonAction);
    m_startButton = new QPushButton(QVStringTable::text(QStringLiteral("overlay.start.title")), m_card);
    m_startButton->setAccessibleName(QStringLiteral("Get started"));
    m_startButton->setDefault(true);
    connect(m_startButton, &QPushButton::clicked, this, &QVOverlayWindow::dismiss);
    setTabOrder(m_showWelcomeAtStartupButton, m_startButton);

    auto *head = new QHBoxLayout;
    head->setSpacing(16);
    head->addWidget(m_mark);
    head->addWidget(m_title, 1);
    auto *foot = new QHBoxLayout;
    foot->addWidget(m_showWelcomeAtStartupButton, 1);
    foot->addWidget(m_startButton);
    auto *cardLayout = new QVBoxLayout(m_card);
    cardLayout->setContentsMargins(32, 32, 32, 24);
    cardLayout->setSpacing(16);
    cardLayout->addLayout(head);
    cardLayout->addWidget(message);
    cardLayout->addSpacing(8);
    cardLayout->addLayout(foot);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 32, 32, 32);
    layout->addWidget(m_card, 0, Qt::AlignCenter);

    updateColors();
    window->installEventFilter(this);
    hide();
}

void QVOverlayWindow::setSettings(QVSettings *settings)
{
    m_settings = settings;
    m_showWelcomeAtStartupButton->setChecked(settings && settings->dontShowWelcomeScreenAtStartup());
}

void QVOverlayWindow::showWelcomeAtStartupButtonAction()
{
    if (m_settings)
        m_settings->setDontShowWelcomeScreenAtStartup(m_showWelcomeAtStartupButton->isChecked());
}

void QVOverlayWindow::showOverWindow()
{
    followWindow();
    show();
    raise();
    m_startButton->setFocus(Qt::OtherFocusReason);
}

void QVOverlayWindow::fadeOut()
{
    hide();
}

void QVOverlayWindow::dismiss()
{
    if (!isVisible())
        return;
    fadeOut();
    Q_EMIT dismissed();
}

void QVOverlayWindow::followWindow()
{
    // Over the views, below the menu bar, which stays usable.
    auto *window = qobject_cast<QMainWindow *>(parentWidget());
    QWidget *central = window ? window->centralWidget() : nullptr;
    setGeometry(central ? central->geometry() : parentWidget()->rect());
}

bool QVOverlayWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget()
        && (event->type() == QEvent::Resize || event->type() == QEvent::LayoutRequest))
        followWindow();
    return QWidget::eventFilter(watched, event);
}

bool QVOverlayWindow::focusNextPrevChild(bool next)
{
    // Tab goes round the overlay's two controls, never to the views under it:
    // either way, the other one.
    QWidget *target = focusWidget() == m_startButton ? static_cast<QWidget *>(m_showWelcomeAtStartupButton)
                                                     : m_startButton;
    target->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
    return true;
}

void QVOverlayWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        dismiss();
    else
        QWidget::keyPressEvent(event);
}

void QVOverlayWindow::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    dismiss();
}

void QVOverlayWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor scrim = palette().color(QPalette::Window);
    scrim.setAlpha(QVImages::isDarkPalette() ? 215 : 200);
    painter.fillRect(rect(), scrim);
    QPainterPath card;
    card.addRoundedRect(QRectF(m_card->geometry()).adjusted(0.5, 0.5, -0.5, -0.5), 12, 12);
    // On a dark surface a check box's box is drawn in the base colour: the card
    // takes the alternate one so the box stands out.
    painter.fillPath(
        card, palette().color(QVImages::isDarkPalette() ? QPalette::AlternateBase : QPalette::Base));
    painter.setPen(QPen(palette().color(QPalette::Mid), 1));
    painter.drawPath(card);
    // The band of the brand colour along the card's top edge, as on the report.
    painter.setClipPath(card);
    painter.fillRect(QRectF(m_card->geometry()).adjusted(0, 0, 0, -m_card->height() + 6), brandColor());
}

void QVOverlayWindow::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updateColors();
}

void QVOverlayWindow::updateColors()
{
    m_mark->setPixmap(QVImages::pixmap(QStringLiteral("mac-icon"), 64, devicePixelRatioF()));
    QPalette titlePalette = m_title->palette();
    titlePalette.setColor(QPalette::WindowText, brandColor());
    m_title->setPalette(titlePalette);
}
