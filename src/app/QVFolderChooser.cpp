#include "QVFolderChooser.h"

#include "settings/QVStringTable.h"

#include <QFileDialog>

QFileDialog *QVFolderChooser::open(QWidget *parent, const QString &title, const QString &start,
    const QString &message, std::function<void(const QString &folder)> chosen)
{
    auto *dialog = new QFileDialog(parent, title, start);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, QVStringTable::text("any.select.title"));
    if (!message.isEmpty())
        dialog->setLabelText(QFileDialog::LookIn, message);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(
        dialog, &QFileDialog::fileSelected, dialog, [chosen = std::move(chosen)](const QString &folder) {
            if (!folder.isEmpty())
                chosen(folder);
        });
    dialog->open();
    return dialog;
}
