#include "cli/QVReportsCommand.h"

#include "platform/QVDefaultApplication.h"
#include "platform/QVFileSystem.h"
#include "store/QVReportStore.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>
#include <set>

namespace
{

// A 1-based list number, or 0 when the text is not one.
int parseNumber(const QString &text, qsizetype count)
{
    bool ok = false;
    const int number = text.toInt(&ok);
    return ok && number >= 1 && number <= count ? number : 0;
}

QString field(const QVariantMap &record, const char *key)
{
    return record.value(QString::fromLatin1(key)).toString();
}

} // namespace

int QVReportsCommand::run(const QStringList &arguments)
{
    const QString action = arguments.value(0);
    QStringList rest = arguments.mid(1);
    QVReportStore store;
    if (action == QLatin1String("list")) {
        const bool json = rest.removeAll(QStringLiteral("--json")) > 0;
        if (!rest.isEmpty())
            return usage();
        return list(store, json);
    }
    if (action == QLatin1String("show"))
        return show(store, rest);
    if (action == QLatin1String("rename"))
        return rename(store, rest);
    if (action == QLatin1String("export"))
        return exportCopy(store, rest);
    if (action == QLatin1String("remove") || action == QLatin1String("rm"))
        return remove(store, rest);
    return usage();
}

int QVReportsCommand::reportNumber(const QString &text, qsizetype count)
{
    const int number = parseNumber(text, count);
    if (number == 0) {
        err() << "quorvel-cli: no report number " << text << " (see: quorvel-cli reports list)\n";
        err().flush();
    }
    return number;
}

int QVReportsCommand::usage()
{
    err() << "usage: quorvel-cli reports list [--json]\n"
             "       quorvel-cli reports show [--path | --open] N\n"
             "       quorvel-cli reports export N FILE.html\n"
             "       quorvel-cli reports rename N NAME\n"
             "       quorvel-cli reports remove N... [--yes]\n"
             "Reports are numbered oldest first, as \"reports list\" shows them.\n";
    err().flush();
    return UsageError;
}

int QVReportsCommand::list(QVReportStore &store, bool json)
{
    if (!store.hasReportIndex()) {
        err() << "quorvel-cli: the report index in " << store.reportFolderPath() << " cannot be read\n";
        err().flush();
        return ProblemsFound;
    }
    const QList<QVariantMap> records = store.recordsByDate();
    if (json) {
        QJsonArray array;
        int number = 0;
        for (const QVariantMap &record : records) {
            QJsonObject object;
            object.insert(QStringLiteral("number"), ++number);
            object.insert(QStringLiteral("date"),
                record.value(QStringLiteral("date")).toDateTime().toUTC().toString(Qt::ISODate));
            object.insert(QStringLiteral("reportName"), field(record, "reportName"));
            object.insert(QStringLiteral("filePath"), field(record, "filePath"));
            object.insert(QStringLiteral("qv_total_examined"), field(record, "qv_total_examined"));
            object.insert(QStringLiteral("qv_total_problems"), field(record, "qv_total_problems"));
            array.append(object);
        }
        out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        out().flush();
        return Success;
    }
    if (records.isEmpty()) {
        out() << "No saved reports.\n";
        out().flush();
        return Success;
    }
    // Padded and joined: text from the index is never formatted in turn.
    auto row = [](const QString &number, const QString &date, const QString &fonts, const QString &problems,
                   const QString &name) -> QString {
        return number.rightJustified(3) + QStringLiteral("  ") + date.leftJustified(16) + QStringLiteral("  ")
            + fonts.rightJustified(9) + QStringLiteral("  ") + problems.rightJustified(9)
            + QStringLiteral("  ") + name + QLatin1Char('\n');
    };
    out() << row(QStringLiteral("#"), QStringLiteral("Date"), QStringLiteral("Fonts"),
        QStringLiteral("Problems"), QStringLiteral("Name"));
    int number = 0;
    for (const QVariantMap &record : records) {
        const QString date = record.value(QStringLiteral("date"))
                                 .toDateTime()
                                 .toLocalTime()
                                 .toString(QStringLiteral("yyyy-MM-dd HH:mm"));
        out() << row(QString::number(++number), date, field(record, "qv_total_examined"),
            field(record, "qv_total_problems"), field(record, "reportName"));
    }
    out().flush();
    return Success;
}

int QVReportsCommand::show(QVReportStore &store, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool open = rest.removeAll(QStringLiteral("--open")) > 0;
    // The path is what show prints; --path says so for scripts.
    const bool pathOnly = rest.removeAll(QStringLiteral("--path")) > 0;
    const QList<QVariantMap> records = store.recordsByDate();
    if (rest.size() != 1 || (open && pathOnly))
        return usage();
    const int number = reportNumber(rest.first(), records.size());
    if (number == 0)
        return UsageError;
    const QString path = field(records.at(number - 1), "filePath");
    if (!QVFileSystem::exists(path)) {
        err() << "quorvel-cli: the report file " << path << " is missing\n";
        err().flush();
        return ProblemsFound;
    }
    out() << path << '\n';
    out().flush();
    if (open) {
        QString error;
        const QString copy = store.browserCopyOfReport(path, &error);
        if (!copy.isEmpty())
            error = QVDefaultApplication::open(copy);
        if (!error.isNull()) {
            err() << "quorvel-cli: could not open the report: " << error << '\n';
            err().flush();
            return ProblemsFound;
        }
    }
    return Success;
}

int QVReportsCommand::exportCopy(QVReportStore &store, const QStringList &arguments)
{
    if (arguments.size() != 2)
        return usage();
    const QList<QVariantMap> records = store.recordsByDate();
    const int number = reportNumber(arguments.first(), records.size());
    if (number == 0)
        return UsageError;
    // The stored report has no extension; the copy gets one a browser knows.
    QString target = QFileInfo(arguments.at(1)).absoluteFilePath();
    const QString suffix = QFileInfo(target).suffix().toLower();
    if (suffix != QLatin1String("html") && suffix != QLatin1String("htm"))
        target += QStringLiteral(".html");
    if (QVFileSystem::exists(target)) {
        err() << "quorvel-cli: " << target << " exists already; nothing was written\n";
        err().flush();
        return UsageError;
    }
    const QString source = field(records.at(number - 1), "filePath");
    QFile file(source);
    if (!file.copy(target)) {
        err() << "quorvel-cli: could not copy the report " << source << " to " << target << ": "
              << file.errorString() << '\n';
        err().flush();
        return ProblemsFound;
    }
    out() << target << '\n';
    out().flush();
    return Success;
}

int QVReportsCommand::rename(QVReportStore &store, const QStringList &arguments)
{
    if (arguments.size() < 2)
        return usage();
    const QList<QVariantMap> records = store.recordsByDate();
    const int number = reportNumber(arguments.first(), records.size());
    if (number == 0)
        return UsageError;
    const QString name = arguments.mid(1).join(QLatin1Char(' ')).trimmed();
    if (name.isEmpty()) {
        err() << "quorvel-cli: a report name cannot be empty\n";
        err().flush();
        return UsageError;
    }
    if (!store.hasReportIndex()) {
        err() << "quorvel-cli: the report index cannot be read, so it cannot be changed\n";
        err().flush();
        return ProblemsFound;
    }
    const QString error = store.renameReport(field(records.at(number - 1), "filePath"), name);
    if (!error.isNull()) {
        err() << "quorvel-cli: could not rename the report: " << error << '\n';
        err().flush();
        return ProblemsFound;
    }
    return Success;
}

int QVReportsCommand::remove(QVReportStore &store, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = rest.removeAll(QStringLiteral("--yes")) + rest.removeAll(QStringLiteral("-y")) > 0;
    if (rest.isEmpty())
        return usage();
    const QList<QVariantMap> records = store.recordsByDate();
    std::set<int> numbers;
    for (const QString &text : std::as_const(rest)) {
        const int number = reportNumber(text, records.size());
        if (number == 0)
            return UsageError;
        numbers.insert(number);
    }
    QStringList paths;
    for (int number : numbers)
        paths.append(field(records.at(number - 1), "filePath"));

    if (!yes) {
        for (int number : numbers)
            err() << "  " << number << "  " << field(records.at(number - 1), "reportName") << '\n';
        if (!confirm(QStringLiteral("Are you sure you want to remove the selected reports?"))) {
            err() << "Nothing was removed.\n";
            err().flush();
            return Success;
        }
    }
    const QStringList errors = store.removeReports(paths);
    for (const QString &error : errors)
        err() << "quorvel-cli: " << error << '\n';
    err().flush();
    out() << "Removed " << numbers.size() << (numbers.size() == 1 ? " report.\n" : " reports.\n");
    out().flush();
    return errors.isEmpty() ? Success : ProblemsFound;
}

QVCliHelp::Command QVReportsCommand::help() const
{
    return { {}, {},
        { QStringLiteral("reports list [--json]"), QStringLiteral("reports show N [--open]"),
            QStringLiteral("reports rename N NAME"), QStringLiteral("reports remove [--yes] N...") },
        QStringLiteral(
            "Lists the saved reports, numbered oldest first as the Reports view lists them; prints a "
            "report's file (or opens it in the browser); renames a report; removes reports after "
            "asking."),
        { { QStringLiteral("--json"), QStringLiteral("List the reports as JSON.") },
            { QStringLiteral("--open"), QStringLiteral("Open the report in the browser.") },
            { QStringLiteral("-y, --yes"), QStringLiteral("Remove without asking.") } },
        { QStringLiteral("reports export 3 ~/last-run.html") } };
}
