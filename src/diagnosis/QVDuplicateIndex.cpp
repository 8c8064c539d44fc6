#include "diagnosis/QVDuplicateIndex.h"

void QVDuplicateIndex::clear()
{
    m_entries.clear();
    m_size = 0;
}

void QVDuplicateIndex::add(
    qint32 fileIndex, qint32 statusIndex, const QString &psName, qint32 fontType, qint32 fontVersion)
{
    m_entries[Key { psName, fontType }].append(Entry { fileIndex, statusIndex, fontVersion });
    ++m_size;
}

QList<QVDuplicateIndex::Entry> QVDuplicateIndex::matches(
    const QString &psName, qint32 fontType, qint32 excludedFile, std::optional<qint32> fontVersion) const
{
    QList<Entry> found;
    const auto it = m_entries.constFind(Key { psName, fontType });
    if (it == m_entries.cend())
        return found;
    for (const Entry &entry : *it) {
        if (entry.fileIndex == excludedFile)
            continue;
        if (fontVersion && entry.fontVersion != *fontVersion)
            continue;
        found.append(entry);
    }
    return found;
}
