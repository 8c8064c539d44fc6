// The keyed user-visible texts ("any.ok.title" and the like), read once from
// the application's resources.
#pragma once

#include <QString>
#include <QStringList>

class QVStringTable
{
public:
    // The text of a key; the key itself when the table has no text for it, so
    // a missing entry shows up instead of an empty label.
    static QString text(const QString &key);
    static QString text(const char *key) { return text(QString::fromLatin1(key)); }
    static bool contains(const QString &key);
    static QStringList keys();
};
