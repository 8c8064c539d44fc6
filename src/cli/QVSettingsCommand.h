// quorvel-cli settings list|get KEY|set KEY VALUE...|reset
#pragma once

#include "cli/QVCliCommand.h"

#include <QVariant>
#include <optional>

class QVSettingsCommand final : public QVCliCommand
{
public:
    QString name() const override { return QStringLiteral("settings"); }
    QString summary() const override { return QStringLiteral("list, get, set or reset the preferences"); }
    QVCliHelp::Command help() const override;
    int run(const QStringList &arguments) override;

    // Parses text as a value of the key's type; std::nullopt when it does not fit.
    static std::optional<QVariant> parseValue(const QString &key, const QStringList &text, QString *error);
    static QString formatValue(const QVariant &value);

private:
    int list();
    int get(const QString &key);
    int set(const QString &key, const QStringList &values);
    int reset();
};
