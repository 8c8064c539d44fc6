// A view whose contents come later (Quarantine, Reports): its icon and a line
// saying what it will hold.
#pragma once

#include <QWidget>

class QVPlaceholderView : public QWidget
{
    Q_OBJECT

public:
    QVPlaceholderView(
        const QString &iconName, const QString &title, const QString &text, QWidget *parent = nullptr);
};
