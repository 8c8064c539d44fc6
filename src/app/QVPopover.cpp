#include "QVPopover.h"

#include <QAbstractButton>
#include <QBoxLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QScreen>
#include <QToolButton>

QVPopover::QVPopover(QWidget *parent)
    : QFrame(parent, Qt::Popup | Qt::FramelessWindowHint)
{
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Window);
    m_title = new QLabel(this);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setWordWrap(true);
    m_info = new QLabel(this);
    m_info->setTextFormat(Qt::RichText);
    m_info->setWordWrap(true);
    m_info->setFixedWidth(380);
    m_info->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_close = new QToolButton(this);
    m_close->setText(QStringLiteral("×"));
    m_close->setAutoRaise(true);
    m_close->setAccessibleName(QStringLiteral("Close"));
    connect(m_close, &QToolButton::clicked, this, &QWidget::close);

    auto *top = new QHBoxLayout;
    top->addWidget(m_title, 1);
    top->addWidget(m_close, 0, Qt::AlignTop);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 10, 14, 14);
    layout->setSpacing(6);
    layout->addLayout(top);
    layout->addWidget(m_info);
}

void QVPopover::showBeside(QAbstractButton *anchor, const QString &title, const QString &html)
{
    m_anchor = anchor;
    // Set off from what lies under it in either palette.
    const QColor edge = palette().color(QPalette::WindowText);
    setStyleSheet(QStringLiteral("QVPopover { background: %1; border: 1px solid rgba(%2, %3, %4, 110); "
                                 "border-radius: 6px; }")
                      .arg(palette().color(QPalette::Window).name())
                      .arg(edge.red())
                      .arg(edge.green())
                      .arg(edge.blue()));
    m_title->setText(title);
    m_info->setText(html);
    setAccessibleName(title);
    m_info->setAccessibleName(title);
    adjustSize();
    // Below the button (above it near the bottom of the screen), so the line
    // it explains stays in sight.
    QPoint at = anchor->mapToGlobal(QPoint(0, anchor->height() + 2));
    if (const QScreen *screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        if (at.y() + height() > area.bottom())
            at.setY(anchor->mapToGlobal(QPoint(0, 0)).y() - height() - 2);
        at.setX(qBound(area.left(), at.x(), qMax(area.left(), area.right() - width())));
    }
    move(at);
    show();
    m_close->setFocus();
}

void QVPopover::mousePressEvent(QMouseEvent *event)
{
    // The press that closes the popover on its own button must not reopen it.
    if (!rect().contains(event->position().toPoint()) && m_anchor
        && m_anchor->rect().contains(m_anchor->mapFromGlobal(event->globalPosition().toPoint())))
        setAttribute(Qt::WA_NoMouseReplay);
    QFrame::mousePressEvent(event);
}

void QVPopover::hideEvent(QHideEvent *event)
{
    QFrame::hideEvent(event);
    m_anchor.clear();
}
