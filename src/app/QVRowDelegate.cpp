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
    // The item view's text has its line breaks as line separators.
    const QString text = QString(opt.text).replace(QChar::LineSeparator, QLatin1Char('\n'));
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
        painter->setBrush(shown ? QBrush(brand) : QBrush(Qt::NoBrush));
        painter->drawEllipse(circle.adjusted(0.75, 0.75, -0.75, -0.75));
        QFont font = opt.font;
        font.setBold(true);
        font.setPixelSize(qMax(8, int(side * 0.62)));
        painter->setFont(font);
        painter->setPen(shown ? opt.palette.color(group, QPalette::Base) : brand);
        painter->drawText(circle, Qt::AlignCenter, QStringLiteral("i"));
    } else {
        // The cell less its check box; the lines centred as one block.
        QRect area = opt.rect.adjusted(6, 4, -6, -4);
        if (opt.features & QStyleOptionViewItem::HasCheckIndicator)
            area.setLeft(
                style->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, widget).right() + 6);
        const QFontMetrics metrics(opt.font);
        QFont small = opt.font;
        small.setPointSizeF(small.pointSizeF() * 0.88);
        const QFontMetrics smallMetrics(small);
        const QStringList lines = text.split(QLatin1Char('\n'));
        const int block
            = int(metrics.lineSpacing() * lines.size()) + (second.isEmpty() ? 0 : smallMetrics.height() + 1);
        int top = area.top() + qMax(0, (area.height() - block) / 2);
        const Qt::Alignment align = opt.displayAlignment & Qt::AlignRight ? Qt::AlignRight : Qt::AlignLeft;
        painter->setFont(opt.font);
        painter->setPen(textColour);
        if (lines.size() > 1) {
            painter->drawText(area, align | Qt::AlignVCenter, text);
        } else {
            const QRect row(area.left(), top, area.width(), metrics.height());
            painter->drawText(
                row, align | Qt::AlignVCenter, metrics.elidedText(text, opt.textElideMode, row.width()));
            top += metrics.lineSpacing();
        }
        if (!second.isEmpty()) {
            painter->setFont(small);
            painter->setPen(selected ? textColour : opt.palette.color(group, QPalette::PlaceholderText));
            const QRect below(area.left(), top + 1, area.width(), smallMetrics.height());
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
    const QString text = QString(opt.text).replace(QChar::LineSeparator, QLatin1Char('\n'));
    int height = metrics.boundingRect(QRect(0, 0, 100000, 100000), 0, text).height();
    if (!index.data(kSecondLineRole).toString().isEmpty()) {
        QFont small = opt.font;
        small.setPointSizeF(small.pointSizeF() * 0.88);
        height = metrics.lineSpacing() + QFontMetrics(small).height() + 1;
    }
    return QSize(QStyledItemDelegate::sizeHint(option, index).width(), height + 10);
}
