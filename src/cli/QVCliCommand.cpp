#include "cli/QVCliCommand.h"

#include "cli/QVCliOutputDevice.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileAccess.h"

#include <cerrno>
#include <cstdio>

QTextStream &QVCliCommand::out()
{
    static QVCliOutputDevice device(stdout);
    static QTextStream stream(&device);
    return stream;
}

QTextStream &QVCliCommand::err()
{
    static QVCliOutputDevice device(stderr);
    static QTextStream stream(&device);
    return stream;
}

bool QVCliCommand::confirm(const QString &question)
{
    err() << question << " [y/N] ";
    err().flush();
    char answer[16] = {};
    if (!std::fgets(answer, sizeof answer, stdin))
        return false;
    const QString reply = QString::fromLocal8Bit(answer).trimmed().toLower();
    return reply == QLatin1String("y") || reply == QLatin1String("yes");
}

bool QVCliCommand::reportUnreadable(const QVFontDataManager &dataManager)
{
    for (const QVFontFilePtr &file : dataManager.fontFileItems) {
        for (const QVStatusPtr &status : std::as_const(file->fontStatusArray)) {
            if (status->isUnreadable()) {
                err() << "quorvel-cli: " << file->URL << ": " << status->fontErrorsInfo.value(0)
                      << "; nothing was done with it\n";
                break;
            }
        }
    }
    for (const QString &folder : dataManager.unreadableFolders)
        err() << "quorvel-cli: " << QVFileAccess::describe(folder, EACCES)
              << "; the fonts in it were not examined\n";
    err().flush();
    return !dataManager.unreadablePaths().isEmpty();
}
