// Apple XML property lists, the format of the store's index files: readable by
// any plist tool, and by the Mac version of the program.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

class QVPropertyList
{
public:
    // Serializes maps (keys sorted), lists, strings, booleans, integers, reals,
    // dates (UTC, whole seconds) and byte arrays. Other values are written as
    // strings.
    static QByteArray toXml(const QVariant &root);

    // The root object, or an invalid QVariant with *error set when the text is
    // not a property list. Nesting deeper than 64 levels is refused.
    static QVariant fromXml(const QByteArray &xml, QString *error = nullptr);

    // What can be saved of a damaged list (a file cut short, say): the items
    // of the root array that were complete before the damage.
    static QVariantList salvageList(const QByteArray &xml);

    // Writes the XML atomically: the old file stays whole until the new one is
    // on the disk. Neither the file nor its folder may be a symbolic link.
    // Returns a null string on success, else the error.
    static QString writeFile(const QString &path, const QVariant &root);
    // Reads and parses a file; an invalid QVariant when it is missing or bad.
    static QVariant readFile(const QString &path, QString *error = nullptr);
};
