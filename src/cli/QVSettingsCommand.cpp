#include "cli/QVSettingsCommand.h"

#include "settings/QVSettings.h"

#include <QDateTime>

int QVSettingsCommand::run(const QStringList &arguments)
{
    const QString action = arguments.value(0);
    if (action == QLatin1String("list") && arguments.size() == 1)
        return list();
    if (action == QLatin1String("get") && arguments.size() == 2)
        return get(arguments.at(1));
    if (action == QLatin1String("set") && arguments.size() >= 3)
        return set(arguments.at(1), arguments.mid(2));
    if (action == QLatin1String("reset") && arguments.size() == 1)
        return reset();
    err() << "usage: quorvel-cli settings list | get KEY | set KEY VALUE... | reset\n";
    err().flush();
    return UsageError;
}

QString QVSettingsCommand::formatValue(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("(not set)");
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::QStringList:
        return value.toStringList().join(QLatin1Char(' '));
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(Qt::ISODate);
    default:
        return value.toString();
    }
}

std::optional<QVariant> QVSettingsCommand::parseValue(
    const QString &key, const QStringList &text, QString *error)
{
    const std::optional<QVSettings::Key> known = QVSettings::keyNamed(key);
    if (!known) {
        *error = QStringLiteral("unknown setting \"%1\" (see: quorvel-cli settings list)").arg(key);
        return std::nullopt;
    }
    if (known->type != QVSettings::Type::StringList && text.size() != 1) {
        *error = QStringLiteral("setting \"%1\" takes one value").arg(key);
        return std::nullopt;
    }
    const QString first = text.value(0);
    switch (known->type) {
    case QVSettings::Type::Bool: {
        const QString lower = first.toLower();
        if (lower == QLatin1String("true") || lower == QLatin1String("yes") || lower == QLatin1String("1"))
            return QVariant(true);
        if (lower == QLatin1String("false") || lower == QLatin1String("no") || lower == QLatin1String("0"))
            return QVariant(false);
        *error = QStringLiteral("setting \"%1\" takes true or false, not \"%2\"").arg(key, first);
        return std::nullopt;
    }
    case QVSettings::Type::Integer: {
        bool ok = false;
        const int number = first.toInt(&ok);
        if (!ok) {
            *error = QStringLiteral("setting \"%1\" takes a whole number, not \"%2\"").arg(key, first);
            return std::nullopt;
        }
        return QVariant(number);
    }
    case QVSettings::Type::Date: {
        const QDateTime date = QDateTime::fromString(first, Qt::ISODate);
        if (!date.isValid()) {
            *error = QStringLiteral("setting \"%1\" takes an ISO 8601 date, not \"%2\"").arg(key, first);
            return std::nullopt;
        }
        return QVariant(date);
    }
    case QVSettings::Type::StringList:
        return QVariant(text);
    case QVSettings::Type::String:
        if (key == QLatin1String("autoScanFrequency")) {
            static const QStringList frequencies = { QStringLiteral("kDaily"), QStringLiteral("kWeekly"),
                QStringLiteral("kMonthly"), QStringLiteral("kNever") };
            if (!frequencies.contains(first)) {
                *error = QStringLiteral("setting \"%1\" takes one of %2, not \"%3\"")
                             .arg(key, frequencies.join(QStringLiteral(", ")), first);
                return std::nullopt;
            }
        }
        return QVariant(first);
    }
    return std::nullopt;
}

int QVSettingsCommand::list()
{
    QVSettings settings;
    settings.registerUserPreferences();
    for (const QVSettings::Key &key : QVSettings::allKeys()) {
        const QString name = QString::fromLatin1(key.name);
        QVariant value = settings.value(name);
        if (key.type == QVSettings::Type::StringList && value.isValid()
            && value.typeId() == QMetaType::QString)
            value = QStringList { value.toString() };
        out() << name << " = " << formatValue(value) << '\n';
    }
    out().flush();
    return Success;
}

int QVSettingsCommand::get(const QString &key)
{
    const std::optional<QVSettings::Key> known = QVSettings::keyNamed(key);
    if (!known) {
        err() << "quorvel-cli: unknown setting \"" << key << "\" (see: quorvel-cli settings list)\n";
        err().flush();
        return UsageError;
    }
    QVSettings settings;
    settings.registerUserPreferences();
    if (key == QLatin1String("fontFolderPaths"))
        out() << formatValue(settings.fontFolderPaths()) << '\n';
    else if (key == QLatin1String("recentScanFolderPaths"))
        out() << formatValue(
            settings.recentScanFolderPaths() ? QVariant(*settings.recentScanFolderPaths()) : QVariant())
              << '\n';
    else
        out() << formatValue(settings.value(key)) << '\n';
    out().flush();
    return Success;
}

int QVSettingsCommand::set(const QString &key, const QStringList &values)
{
    QString error;
    const std::optional<QVariant> value = parseValue(key, values, &error);
    if (!value) {
        err() << "quorvel-cli: " << error << '\n';
        err().flush();
        return UsageError;
    }
    QVSettings settings;
    if (!settings.setValue(key, *value)) {
        err() << "quorvel-cli: the settings file " << settings.fileName() << " cannot be written; \"" << key
              << "\" is unchanged\n";
        err().flush();
        return UsageError;
    }
    return Success;
}

int QVSettingsCommand::reset()
{
    QVSettings settings;
    // A version of 0 makes the migration clear the store, keeping the user's
    // name and company as a move to a new layout would.
    settings.setPrefsVersion(0);
    QVSettings::migratePreferences();
    out() << "Settings reset to their defaults (" << settings.fileName() << ").\n";
    out().flush();
    return Success;
}

QVCliHelp::Command QVSettingsCommand::help() const
{
    return { {}, {},
        { QStringLiteral("settings list"), QStringLiteral("settings get KEY"),
            QStringLiteral("settings set KEY VALUE..."), QStringLiteral("settings reset") },
        QStringLiteral(
            "Lists every preference with its value, prints one, sets one, or puts everything back to "
            "the defaults (keeping your name and company). A value is read by the key's type: "
            "true or false, a number, an ISO date, or a list of several words."),
        {}, { QStringLiteral("settings set fontFolderPaths /srv/fonts /home/shared/fonts") } };
}
