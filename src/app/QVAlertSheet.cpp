#include "QVAlertSheet.h"

#include <QPushButton>

namespace
{

const char *const kContextProperty = "qvAlertContext";

} // namespace

QMessageBox *QVAlertSheet::show(QWidget *window, const QString &message, const QString &informativeText,
    const QStringList &buttonTitles, const QString &context, const Answer &answer, QMessageBox::Icon icon)
{
    auto *box = new QMessageBox(icon, QString(), message, QMessageBox::NoButton, window);
    box->setInformativeText(informativeText);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setProperty(kContextProperty, context);
    box->setAccessibleName(message);
    QList<QPushButton *> buttons;
    for (const QString &title : buttonTitles)
        buttons.append(
            box->addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
    if (!buttons.isEmpty()) {
        box->setDefaultButton(buttons.first());
        box->setEscapeButton(buttons.first());
    }
    QObject::connect(box, &QMessageBox::buttonClicked, box, [buttons, answer](QAbstractButton *clicked) {
        const int index = int(buttons.indexOf(static_cast<QPushButton *>(clicked)));
        if (answer)
            answer(index == 1 ? 1001 : 1000);
    });
    box->open();
    return box;
}

QMessageBox *QVAlertSheet::find(QWidget *window, const QString &context)
{
    const QList<QMessageBox *> boxes = window->findChildren<QMessageBox *>();
    for (QMessageBox *box : boxes) {
        if (box->isVisible() && box->property(kContextProperty).toString() == context)
            return box;
    }
    return nullptr;
}
