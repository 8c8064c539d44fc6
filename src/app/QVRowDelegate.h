// Draws the cells of the Quarantine and Reports tables: a name with a second
// line in secondary text under it (style and type of a font), text that may
// run to several lines, and the round information button of a row.
#pragma once

#include <QStyledItemDelegate>

class QVRowDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    // The second line under a cell's text.
    static constexpr int kSecondLineRole = Qt::UserRole + 100;
    // A cell drawn as the information button (true), pressed when "shown".
    static constexpr int kInfoButtonRole = Qt::UserRole + 101;
    static constexpr int kInfoShownRole = Qt::UserRole + 102;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(
        QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
