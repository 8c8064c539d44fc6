// Removes what Quorvel keeps of a user's: the helpers are stopped and their
// autostart entries removed, the settings of the application and of both
// helpers deleted, the quarantine (the fonts in it included) and the reports
// cleared, and the data folder removed once nothing else is left in it. Files
// of the user's that Quorvel did not make stay where they are.
//
// The program's own files are the package manager's: when an installed
// package owns the running program it is removed through it (with
// administrator rights); otherwise the program's folder is named and left.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

class QVUninstaller
{
public:
    struct Result {
        // What was removed, one path or item a line, and what could not be.
        QStringList removed;
        QStringList errors;
        // How the program itself goes (or went).
        QString programNote;
    };

    // Stops a helper by bundle identifier; the default asks the process that
    // owns the name on the session bus to terminate.
    using HelperStopper = std::function<void(const QString &bundleIdentifier)>;
    void setHelperStopper(const HelperStopper &stopper) { m_stopHelper = stopper; }
    // The program whose package is removed (default: the running one) and
    // the package's name.
    void setProgramPath(const QString &path) { m_programPath = path; }
    void setPackageName(const QString &name) { m_packageName = name; }

    // The user's part. Refused (nothing removed, errors set) while another
    // run holds the quarantine.
    Result removeUserData();
    // The program's part: run after removeUserData, when the user confirmed.
    void removeProgram(Result &result);

    static void stopHelper(const QString &bundleIdentifier);

private:
    HelperStopper m_stopHelper = &QVUninstaller::stopHelper;
    QString m_programPath;
    QString m_packageName = QStringLiteral("quorvel");
};
