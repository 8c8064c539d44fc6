#include "QVViewButton.h"

#include "QVImages.h"

namespace
{

constexpr int kImageSize = 48;

} // namespace

QVViewButton::QVViewButton(const QString &baseName, const QString &title, QWidget *parent)
    : QToolButton(parent)
    , m_baseName(baseName)
{
    setText(title);
    setAccessibleName(title);
    setToolTip(title);
    setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    setAutoRaise(true);
    setFocusPolicy(Qt::StrongFocus);
    setIconSize(QSize(kImageSize, kImageSize));
    setButtonImage(Normal);
}

QString QVViewButton::imageName(Mode mode) const
{
    static const char *const names[] = { "Normal", "Over", "Selected" };
    QString name = m_baseName + QLatin1String(names[mode]);
    if (mode != Selected && QVImages::isDarkPalette())
        name += QStringLiteral("Dark");
    return name;
}

void QVViewButton::setButtonImage(Mode mode)
{
    m_mode = mode;
    setIcon(QVImages::iconOfFile(QVImages::exactPath(imageName(mode)), kImageSize));
}

void QVViewButton::setSelected(bool selected)
{
    m_selected = selected;
    setChecked(selected);
    resetImage();
}

void QVViewButton::resetImage()
{
    setButtonImage(m_selected ? Selected : (underMouse() && isEnabled() ? Over : Normal));
}

void QVViewButton::enterEvent(QEnterEvent *event)
{
    QToolButton::enterEvent(event);
    if (!m_selected && isEnabled())
        setButtonImage(Over);
}

void QVViewButton::leaveEvent(QEvent *event)
{
    QToolButton::leaveEvent(event);
    if (!m_selected)
        setButtonImage(Normal);
}
