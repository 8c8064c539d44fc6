// An alert shown as a sheet: a window-modal message box on the main window
// whose first button answers 1000 and second 1001.
#pragma once

#include <QMessageBox>
#include <QString>
#include <QStringList>
#include <functional>

class QVAlertSheet
{
public:
    using Answer = std::function<void(int returnCode)>;

    // Shows the alert and returns at once; the box deletes itself once
    // answered. Escape presses the first button: the second of these alerts
    // stops or discards work.
    static QMessageBox *show(QWidget *window, const QString &message, const QString &informativeText,
        const QStringList &buttonTitles, const QString &context, const Answer &answer,
        QMessageBox::Icon icon = QMessageBox::Warning);
    // The alert of this context now shown on the window, if any.
    static QMessageBox *find(QWidget *window, const QString &context);
};
