#include "cli/QVCliCommand.h"

#include "cli/QVCliOutputDevice.h"
#include "engine/QVFontDataManager.h"
#include "platform/QVFileAccess.h"

#include <cerrno>
#include <cstdio>

namespace
{
QVCliCommand::Verbosity currentVerbosity = QVCliCommand::Verbosity::Normal;
} // namespace

void QVCliCommand::setVerbosity(Verbosity verbosity)
{
    currentVerbosity = verbosity;
}

bool QVCliCommand::quiet()
{
    return currentVerbosity == Verbosity::Quiet;
}

bool QVCliCommand::verbose()
{
    return currentVerbosity == Verbosity::Verbose;
}

void QVCliCommand::step(const QString &text)
{
    if (!verbose())
        return;
    err() << "quorvel-cli: " << text << '\n';
    err().flush();
}

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

bool QVCliCommand::takeFormatOption(QStringList *arguments, QString *format)
{
    QStringList given;
    if (arguments->removeAll(QStringLiteral("--json")) > 0)
        given << QStringLiteral("json");
    for (qsizetype at = arguments->indexOf(QStringLiteral("--format")); at >= 0;
         at = arguments->indexOf(QStringLiteral("--format"))) {
        if (at + 1 >= arguments->size())
            return false;
        given << arguments->at(at + 1);
        arguments->remove(at, 2);
    }
    given.removeDuplicates();
    *format = given.value(0, QStringLiteral("text"));
    return given.size() <= 1
        && (*format == QLatin1String("text") || *format == QLatin1String("json")
            || *format == QLatin1String("csv"));
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
