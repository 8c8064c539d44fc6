// The one folder chooser of the application: a non-blocking dialog that shows
// folders only, says "Select", and hands the chosen folder on (cancelling
// hands on nothing).
#pragma once

#include <QString>
#include <functional>

class QFileDialog;
class QWidget;

class QVFolderChooser
{
public:
    // Opens the chooser over `parent`; `message` (when given) is shown above
    // the folders. The dialog is returned for callers that name or style it;
    // it deletes itself when closed.
    static QFileDialog *open(QWidget *parent, const QString &title, const QString &start,
        const QString &message, std::function<void(const QString &folder)> chosen);
};
