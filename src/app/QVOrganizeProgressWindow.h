// The sheet shown over the main window while fonts are organized into a
// library: a title, a label, a bar and a cancel button, all following the
// organizer's progress. Escape cancels as the button does.
#pragma once

#include <QDialog>
#include <QPointer>
#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;
class QVProgress;

class QVOrganizeProgressWindow : public QDialog
{
    Q_OBJECT

public:
    QVOrganizeProgressWindow(QVProgress *progress, QWidget *parent);

    // Runs once, on the first press of cancel.
    void setCancelButtonBlock(const std::function<void()> &block) { m_cancelBlock = block; }

    QLabel *progressTitleLabel() const { return m_titleLabel; }
    QLabel *progressLabel() const { return m_label; }
    QProgressBar *progressBar() const { return m_bar; }
    QPushButton *cancelButton() const { return m_cancelButton; }

    // Shown as the progress is; the bar counts fonts.
    void refresh();

public Q_SLOTS:
    void reject() override;

private:
    QPointer<QVProgress> m_progress;
    QLabel *m_titleLabel;
    QLabel *m_label;
    QProgressBar *m_bar;
    QPushButton *m_cancelButton;
    std::function<void()> m_cancelBlock;
};
