#include "QVPlaceholderView.h"

#include "QVImages.h"

#include <QBoxLayout>
#include <QLabel>

QVPlaceholderView::QVPlaceholderView(
    const QString &iconName, const QString &title, const QString &text, QWidget *parent)
    : QWidget(parent)
{
    auto *icon = new QLabel(this);
    icon->setPixmap(QVImages::pixmap(iconName, 48, devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    auto *heading = new QLabel(title, this);
    QFont font = heading->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.25);
    heading->setFont(font);
    heading->setAlignment(Qt::AlignCenter);
    auto *body = new QLabel(text, this);
    body->setWordWrap(true);
    body->setAlignment(Qt::AlignCenter);
    body->setForegroundRole(QPalette::PlaceholderText);
    body->setAccessibleName(text);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(48, 48, 48, 48);
    layout->setSpacing(8);
    layout->addStretch();
    layout->addWidget(icon);
    layout->addWidget(heading);
    layout->addWidget(body);
    layout->addStretch();
}
