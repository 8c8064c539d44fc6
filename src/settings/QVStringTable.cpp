#include "settings/QVStringTable.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{

const QHash<QString, QString> &table()
{
    static const QHash<QString, QString> strings = [] {
        QHash<QString, QString> loaded;
        QFile file(QStringLiteral(":/quorvel/strings.json"));
        if (!file.open(QIODevice::ReadOnly))
            return loaded;
        const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            loaded.insert(it.key(), it.value().toString());
        return loaded;
    }();
    return strings;
}

} // namespace

QString QVStringTable::text(const QString &key)
{
    return table().value(key, key);
}

bool QVStringTable::contains(const QString &key)
{
    return table().contains(key);
}

QStringList QVStringTable::keys()
{
    QStringList all = table().keys();
    all.sort();
    return all;
}
