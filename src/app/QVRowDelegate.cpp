#include "QVRowDelegate.h"

#include <QApplication>
#include <QPainter>

void QVRowDelegate::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    const QString text = opt.text;
    const QString second = index.data(kSecondLineRole).toString();
    const bool info = index.data(kInfoButtonRole).toBool();
    opt.text.clear();
    // Background, selection, check box and focus as the style draws them.
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const bool selected = opt.state & QStyle::State_Selected;
    const QPalette::ColorGroup group
        = opt.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
    const QColor textColour = opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    painter->save();
    if (info) {
        const int side = qMin(18, qMin(opt.rect.width(), opt.rect.height()) - 4);
        const QRectF circle(QPointF(opt.rect.center()) - QPointF(side / 2.0, side / 2.0), QSizeF(side, side));
        const bool shown = index.data(kInfoShownRole).toBool();
        const QColor brand = opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Link);
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(brand, 1.5));
        painter->setBrush(shown ? brand : Qt::NoBrush);
        painter->drawEllipse(circle.adjusted(0.75, 0.75, -0.75, -0.75));
        QFont font = opt.font;
        font.setBold(true);
        font.setPixelSize(qMax(8, int(side * 0.62)));
        painter->setFont(font);
        painter->setPen(shown ? opt.palette.color(group, QPalette::Base) : brand);
        painter->drawText(circle, Qt::AlignCenter, QStringLiteral("i"));
    } else {
        const QRect area
            = style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget).adjusted(4, 4, -4, -4);
        const QFontMetrics metrics(opt.font);
        painter->setFont(opt.font);
        painter->setPen(textColour);
        const bool multiLine = text.contains(QLatin1Char('\n'));
        if (multiLine) {
            painter->drawText(area, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, text);
        } else {
            const QRect first(area.left(), area.top(), area.width(), metrics.height());
            painter->drawText(first, Qt::AlignLeft | Qt::AlignVCenter,
                metrics.elidedText(text, opt.textElideMode, first.width()));
        }
        if (!second.isEmpty()) {
            QFont small = opt.font;
            small.setPointSizeF(small.pointSizeF() * 0.88);
            const QFontMetrics smallMetrics(small);
            painter->setFont(small);
            painter->setPen(selected ? textColour : opt.palette.color(group, QPalette::PlaceholderText));
            const QRect below(
                area.left(), area.top() + metrics.height() + 1, area.width(), smallMetrics.height());
            painter->drawText(below, Qt::AlignLeft | Qt::AlignVCenter,
                smallMetrics.elidedText(second, Qt::ElideRight, below.width()));
        }
    }
    painter->restore();
}

QSize QVRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QFontMetrics metrics(opt.font);
    int height = metrics.height();
    const QString text = opt.text;
    if (const qsizetype breaks = text.count(QLatin1Char('\n')))
        height = int(metrics.lineSpacing() * (breaks + 1));
    if (!index.data(kSecondLineRole).toString().isEmpty())
        height = qMax(height, metrics.height() * 2 + 1);
    return QSize(QStyledItemDelegate::sizeHint(option, index).width(), height + 8);
}
