// Diagnostic logging, switched by the doLogging setting. Messages go to stderr
// and to Quorvel.log in the data folder.
#pragma once

#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcEngine)
Q_DECLARE_LOGGING_CATEGORY(lcStore)
Q_DECLARE_LOGGING_CATEGORY(lcDiagnosis)
Q_DECLARE_LOGGING_CATEGORY(lcOrganizer)
Q_DECLARE_LOGGING_CATEGORY(lcReports)
Q_DECLARE_LOGGING_CATEGORY(lcHelpers)

class QVLog
{
public:
    // Reads doLogging and turns the Quorvel categories on or off; installs the
    // handler that also writes to the log file. Call again after the setting
    // changes.
    static void configure();
    static void setEnabled(bool enabled);
    static bool isEnabled();
    // The data folder's log file: Quorvel.log, or the name a helper program
    // sets for its own log before configuring.
    static QString logFilePath();
    static void setLogFileName(const QString &name);
};
