// The duplicate pass's name index: for every font that may have duplicates, its
// position (file, status), PostScript name, type and version. Grouped by name
// and type, so a search touches only the fonts that can match; within a group
// the entries keep the order of the records (file, then status), which is the
// order a search yields them in.
#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

class QVDuplicateIndex
{
public:
    struct Entry {
        qint32 fileIndex;
        qint32 statusIndex;
        qint32 fontVersion;
    };

    void clear();
    void add(
        qint32 fileIndex, qint32 statusIndex, const QString &psName, qint32 fontType, qint32 fontVersion);
    qsizetype size() const { return m_size; }

    // The entries of this name and type that lie in another file than
    // excludedFile, and when a version is given, that have that version.
    QList<Entry> matches(
        const QString &psName, qint32 fontType, qint32 excludedFile, std::optional<qint32> fontVersion) const;

private:
    struct Key {
        QString psName;
        qint32 fontType;
        bool operator==(const Key &other) const = default;
    };
    friend size_t qHash(const Key &key, size_t seed) { return qHashMulti(seed, key.psName, key.fontType); }

    QHash<Key, QList<Entry>> m_entries;
    qsizetype m_size = 0;
};
