#include "diagnosis/QVCounterpartIndex.h"

QString QVCounterpartIndex::folderOfPath(const QString &path)
{
    // Trailing slashes do not make a component of their own.
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == QLatin1Char('/'))
        --end;
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'), end - 1);
    if (slash < 0)
        return QString("");
    if (slash == 0)
        return QStringLiteral("/");
    qsizetype folderEnd = slash;
    while (folderEnd > 1 && path.at(folderEnd - 1) == QLatin1Char('/'))
        --folderEnd;
    return path.left(folderEnd);
}

void QVCounterpartIndex::add(const QString &psName, const QString &fontPath)
{
    m_foldersByName[psName].insert(folderOfPath(fontPath));
}

bool QVCounterpartIndex::containsName(const QString &psName) const
{
    return m_foldersByName.contains(psName);
}

bool QVCounterpartIndex::containsNameInFolder(const QString &psName, const QString &folder) const
{
    const auto it = m_foldersByName.constFind(psName);
    return it != m_foldersByName.cend() && it->contains(folder);
}
