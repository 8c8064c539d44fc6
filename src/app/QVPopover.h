// A small frameless popup anchored beside the button that opened it, with a
// title, a styled text and a close button. A click outside closes it; a click
// on its own button closes it without opening it again.
#pragma once

#include <QFrame>
#include <QPointer>

class QAbstractButton;
class QLabel;
class QToolButton;

class QVPopover : public QFrame
{
    Q_OBJECT

public:
    explicit QVPopover(QWidget *parent = nullptr);

    // Shows the title and rich text beside the anchor.
    void showBeside(QAbstractButton *anchor, const QString &title, const QString &html);
    QAbstractButton *anchor() const { return m_anchor; }
    QLabel *popoverTitleLabel() const { return m_title; }
    QLabel *popoverInfoLabel() const { return m_info; }
    QToolButton *closeButton() const { return m_close; }

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QPointer<QAbstractButton> m_anchor;
    QLabel *m_title;
    QLabel *m_info;
    QToolButton *m_close;
};
