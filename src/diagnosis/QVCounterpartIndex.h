// The fonts that can stand as counterparts, by PostScript name and folder, so
// that finding a font's partner is a lookup instead of a walk over every
// candidate. Answers exactly what a walk would: is there a candidate of this
// name, and is there one of this name in this folder.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>

class QVCounterpartIndex
{
public:
    // The folder of a file path: the path without its last component, as the
    // counterpart passes compare them ("/a/b/c" -> "/a/b", "/c" -> "/", "c" -> "").
    static QString folderOfPath(const QString &path);

    void clear() { m_foldersByName.clear(); }
    void add(const QString &psName, const QString &fontPath);
    bool isEmpty() const { return m_foldersByName.isEmpty(); }

    bool containsName(const QString &psName) const;
    bool containsNameInFolder(const QString &psName, const QString &folder) const;

private:
    QHash<QString, QSet<QString>> m_foldersByName;
};
