#include "settings/QVLog.h"

#include "settings/QVDataFolder.h"
#include "settings/QVSettings.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <atomic>
#include <cstdio>
#include <mutex>

Q_LOGGING_CATEGORY(lcEngine, "quorvel.engine", QtWarningMsg)
Q_LOGGING_CATEGORY(lcStore, "quorvel.store", QtWarningMsg)
Q_LOGGING_CATEGORY(lcDiagnosis, "quorvel.diagnosis", QtWarningMsg)
Q_LOGGING_CATEGORY(lcOrganizer, "quorvel.organizer", QtWarningMsg)
Q_LOGGING_CATEGORY(lcReports, "quorvel.reports", QtWarningMsg)
Q_LOGGING_CATEGORY(lcHelpers, "quorvel.helpers", QtWarningMsg)

namespace
{

std::atomic<bool> loggingEnabled { false };
QString logFileName = QStringLiteral("Quorvel.log");
QMutex fileMutex;
QtMessageHandler previousHandler = nullptr;

void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const bool ours = context.category && qstrncmp(context.category, "quorvel.", 8) == 0;
    if (ours && loggingEnabled.load()) {
        QMutexLocker locker(&fileMutex);
        QFile file(QVLog::logFilePath());
        QVDataFolder::ensure();
        if (file.open(QIODevice::Append | QIODevice::Text)) {
            const QByteArray line = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toUtf8() + ' '
                + context.category + ": " + message.toUtf8() + '\n';
            file.write(line);
        }
    }
    if (previousHandler)
        previousHandler(type, context, message);
    else
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

void applyFilter(bool enabled)
{
    QLoggingCategory::setFilterRules(enabled ? QStringLiteral("quorvel.*.debug=true\nquorvel.*.info=true")
                                             : QStringLiteral("quorvel.*.debug=false\nquorvel.*.info=false"));
}

} // namespace

void QVLog::configure()
{
    static std::once_flag installed;
    std::call_once(installed, [] { previousHandler = qInstallMessageHandler(messageHandler); });
    setEnabled(QVSettings().doLogging());
}

void QVLog::setEnabled(bool enabled)
{
    loggingEnabled.store(enabled);
    applyFilter(enabled);
}

bool QVLog::isEnabled()
{
    return loggingEnabled.load();
}

QString QVLog::logFilePath()
{
    return QVDataFolder::path() + QLatin1Char('/') + logFileName;
}

void QVLog::setLogFileName(const QString &name)
{
    logFileName = name;
}
