#include "engine/QVSFNTDirectory.h"

#include "engine/QVFontLayouts.h"

#include <cstring>

using namespace QVFontLayouts;

qint64 QVSFNTDirectory::size(quint16 count)
{
    return SFNT::entry(count);
}

std::optional<quint16> QVSFNTDirectory::tableCount() const
{
    return QVByteReader(m_face).at(SFNT::kNumTables).u16();
}

qint64 QVSFNTDirectory::entriesHolding(qint64 bytes) const
{
    const qint64 after = m_face.size() - SFNT::kOffsetTableSize - bytes;
    return after < 0 ? 0 : after / SFNT::kEntrySize + 1;
}

qint64 QVSFNTDirectory::find(const char tag[4], qint64 limit) const
{
    const qint64 count = qMin(limit, entriesHolding(4));
    if (count <= 0)
        return -1;
    const char *entries = m_face.data() + SFNT::kOffsetTableSize;
    for (qint64 i = 0; i < count; ++i) {
        if (std::memcmp(entries + i * SFNT::kEntrySize, tag, 4) == 0)
            return i;
    }
    return -1;
}

qint64 QVSFNTDirectory::findLast(const char tag[4], qint64 limit) const
{
    const qint64 count = qMin(limit, entriesHolding(4));
    if (count <= 0)
        return -1;
    const char *entries = m_face.data() + SFNT::kOffsetTableSize;
    for (qint64 i = count - 1; i >= 0; --i) {
        if (std::memcmp(entries + i * SFNT::kEntrySize, tag, 4) == 0)
            return i;
    }
    return -1;
}

QVByteReader QVSFNTDirectory::entry(qint64 index) const
{
    return QVByteReader(m_face).at(SFNT::entry(index));
}
