// The welcome screen: a card over the main window's views on a dimmed
// backdrop, with what to do first and a box to stop it showing at start-up.
// A click anywhere on it, Escape, or any command of the window dismisses it;
// while it shows, the keyboard stays on its own controls.
#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;
class QVSettings;

class QVOverlayWindow : public QWidget
{
    Q_OBJECT

public:
    // Covers the window's central area, following its size; hidden until shown.
    explicit QVOverlayWindow(QWidget *window);

    // The check box from dontShowWelcomeScreenAtStartup; clicking it stores it.
    void setSettings(QVSettings *settings);
    void showOverWindow();
    // Dismisses the overlay (nothing happens when it is not showing).
    void fadeOut();

    QCheckBox *showWelcomeAtStartupButton() const { return m_showWelcomeAtStartupButton; }
    QPushButton *startButton() const { return m_startButton; }

Q_SIGNALS:
    // The user dismissed it (click, Escape or the button).
    void dismissed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool focusNextPrevChild(bool next) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void showWelcomeAtStartupButtonAction();
    void dismiss();
    void followWindow();
    void updateColors();

    QVSettings *m_settings = nullptr;
    QWidget *m_card;
    QCheckBox *m_showWelcomeAtStartupButton;
    QPushButton *m_startButton;
    QLabel *m_mark;
    QLabel *m_title;
};
