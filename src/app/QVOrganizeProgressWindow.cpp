#include "QVOrganizeProgressWindow.h"

#include "settings/QVProgress.h"
#include "settings/QVStringTable.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <utility>

QVOrganizeProgressWindow::QVOrganizeProgressWindow(QVProgress *progress, QWidget *parent)
    : QDialog(parent)
    , m_progress(progress)
    , m_titleLabel(new QLabel(this))
    , m_label(new QLabel(this))
    , m_bar(new QProgressBar(this))
    , m_cancelButton(new QPushButton(QVStringTable::text("any.cancel.title"), this))
{
    setWindowModality(Qt::WindowModal);
    setAccessibleName(QStringLiteral("Organizing fonts"));
    QFont bold = m_titleLabel->font();
    bold.setBold(true);
    m_titleLabel->setFont(bold);
    // Font names can be long: the label keeps the sheet's width.
    m_label->setMinimumWidth(1);
    m_label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_bar->setTextVisible(false);
    m_bar->setAccessibleName(QStringLiteral("Organize progress"));
    m_cancelButton->setAccessibleName(m_cancelButton->text());
    connect(m_cancelButton, &QPushButton::clicked, this, [this] {
        m_cancelButton->setEnabled(false);
        if (const auto block = std::exchange(m_cancelBlock, {}))
            block();
    });
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_titleLabel);
    layout->addWidget(m_label);
    layout->addWidget(m_bar);
    layout->addWidget(m_cancelButton, 0, Qt::AlignRight);
    setMinimumWidth(420);
    if (progress)
        connect(progress, &QVProgress::changed, this, &QVOrganizeProgressWindow::refresh);
    refresh();
}

void QVOrganizeProgressWindow::refresh()
{
    if (!m_progress)
        return;
    m_titleLabel->setText(m_progress->title());
    m_label->setText(m_progress->label());
    if (m_progress->indeterminate()) {
        m_bar->setRange(0, 0);
        return;
    }
    const int maximum = qMax(1, int(m_progress->maximum()));
    m_bar->setRange(0, maximum);
    m_bar->setValue(qBound(0, int(m_progress->value()), maximum));
}

void QVOrganizeProgressWindow::reject()
{
    // Closing the sheet is the organizer's, once its run has stopped.
    if (m_cancelButton->isEnabled())
        m_cancelButton->click();
}
