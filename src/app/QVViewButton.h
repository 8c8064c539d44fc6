// One of the four image buttons that choose the main window's view. Its image
// is looked up by its base name and mode ("ButtonScan" + "Normal", "Over" or
// "Selected"), the first two with their dark variants.
#pragma once

#include <QToolButton>

class QVViewButton : public QToolButton
{
    Q_OBJECT

public:
    enum Mode { Normal = 0, Over = 1, Selected = 2 };

    QVViewButton(const QString &baseName, const QString &title, QWidget *parent = nullptr);

    QString baseName() const { return m_baseName; }
    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);
    Mode mode() const { return m_mode; }
    // The image name of a mode under the current palette, as in "ButtonScanNormalDark".
    QString imageName(Mode mode) const;
    void setButtonImage(Mode mode);
    // Back to the normal image (or the selected one), e.g. after a palette change.
    void resetImage();

protected:
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QString m_baseName;
    Mode m_mode = Normal;
    bool m_selected = false;
};
