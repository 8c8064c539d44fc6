#include "engine/QVResourceFile.h"

#include "engine/QVResourceManager.h"
#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"

#include <QHash>

namespace
{

constexpr int kHeaderSize = 16;
constexpr int kDataStart = 256;
constexpr int kMapHeaderSize = 28; // header copy, next map, file ref, attributes, two offsets
constexpr int kMapAttributes = 22; // then the type list's and the name list's offsets
constexpr int kTypeSize = 8;
constexpr int kRefSize = 12;

} // namespace

std::optional<QVResourceFile> QVResourceFile::parse(const QByteArray &fork, qint16 *error)
{
    auto fail = [error](qint16 code) {
        if (error)
            *error = code;
        return std::nullopt;
    };
    QVByteReader header(fork);
    const auto dataOffset = header.u32(), mapOffset = header.u32();
    const auto dataLength = header.u32(), mapLength = header.u32();
    if (!header.ok() || !header.has(*dataOffset, *dataLength) || !header.has(*mapOffset, *mapLength)
        || *mapLength < kMapHeaderSize + 2)
        return fail(QVResourceError::MapRead);

    // Every read below stays inside the map or the data area; the first that
    // does not fit makes the map damaged.
    const QByteArrayView map = QByteArrayView(fork).sliced(*mapOffset, *mapLength);
    const QByteArrayView data = QByteArrayView(fork).sliced(*dataOffset, *dataLength);
    QVByteReader mapHeader = QVByteReader(map).at(kMapAttributes);
    QVResourceFile file;
    file.mapAttributes = *mapHeader.u16();
    const qint64 typeListOffset = *mapHeader.u16(), nameListOffset = *mapHeader.u16();
    QVByteReader typeList = QVByteReader(map).at(typeListOffset);
    // The stored count is types - 1; 0xFFFF is an empty map.
    const auto storedTypeCount = typeList.u16();
    const int typeCount = storedTypeCount ? (*storedTypeCount + 1) & 0xFFFF : 0;
    if (!typeList.ok() || !typeList.has(typeList.pos(), qint64(typeCount) * kTypeSize))
        return fail(QVResourceError::MapRead);
    // In a sound fork every resource has bytes of its own. References to one
    // place share one copy, and all copies together never hold more than the
    // data area: a map pointing thousands of times into one large resource
    // must not make a small file fill the memory.
    QHash<qint64, QByteArray> taken;
    qint64 budget = *dataLength;
    // Nor can types sharing reference lists name more resources than the map
    // has room to list.
    qint64 referenceBudget = *mapLength / kRefSize;

    for (int t = 0; t < typeCount; ++t) {
        const quint32 type = *typeList.u32();
        const int refCount = *typeList.u16() + 1;
        QVByteReader refs = QVByteReader(map).at(typeListOffset + *typeList.u16());
        referenceBudget -= refCount;
        if (!refs.ok() || !refs.has(refs.pos(), qint64(refCount) * kRefSize) || referenceBudget < 0)
            return fail(QVResourceError::MapRead);
        for (int r = 0; r < refCount; ++r) {
            Entry entry;
            entry.type = type;
            entry.id = *refs.i16();
            const quint16 nameOffset = *refs.u16();
            const quint32 attributesAndData = *refs.u32();
            refs.skip(4); // handle, unused on disk
            entry.attributes = quint8(attributesAndData >> 24) & ~quint8(0x02);
            const qint64 dataAt = attributesAndData & 0xFFFFFF;
            if (nameOffset != 0xFFFF) {
                QVByteReader name = QVByteReader(map).at(nameListOffset + nameOffset);
                const auto nameLength = name.u8();
                const auto nameBytes = nameLength ? name.bytes(*nameLength) : std::nullopt;
                if (!nameBytes)
                    return fail(QVResourceError::MapRead);
                entry.name = nameBytes->toByteArray();
                entry.hasName = true;
            }
            QVByteReader resource = QVByteReader(data).at(dataAt);
            const auto length = resource.u32();
            if (const auto shared = taken.constFind(dataAt); shared != taken.cend()) {
                entry.data = *shared;
            } else if (const auto bytes = length ? resource.bytes(*length) : std::nullopt;
                       bytes && qint64(*length) <= budget) {
                entry.data = bytes->toByteArray();
                taken.insert(dataAt, entry.data);
                budget -= *length;
            } else {
                entry.dataValid = false;
            }
            file.entries.append(std::move(entry));
        }
    }
    file.headerReserve
        = fork.mid(kHeaderSize, qMax<qint64>(0, qMin<qint64>(*dataOffset, kDataStart) - kHeaderSize));
    if (error)
        *error = QVResourceError::NoErr;
    return file;
}

QByteArray QVResourceFile::emptyFork()
{
    qint16 error = 0;
    return QVResourceFile().serialize(&error);
}

bool QVResourceFile::allDataValid() const
{
    for (const Entry &e : entries) {
        if (!e.dataValid)
            return false;
    }
    return true;
}

QList<quint32> QVResourceFile::types() const
{
    QList<quint32> result;
    for (const Entry &e : entries) {
        if (!result.contains(e.type))
            result.append(e.type);
    }
    return result;
}

int QVResourceFile::count(quint32 type) const
{
    int n = 0;
    for (const Entry &e : entries)
        n += e.type == type;
    return n;
}

int QVResourceFile::indexOf(quint32 type, int oneBasedIndex) const
{
    if (oneBasedIndex < 1)
        return -1;
    int n = 0;
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).type == type && ++n == oneBasedIndex)
            return i;
    }
    return -1;
}

int QVResourceFile::find(quint32 type, qint16 id) const
{
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).type == type && entries.at(i).id == id)
            return i;
    }
    return -1;
}

int QVResourceFile::findNamed(quint32 type, const QByteArray &name) const
{
    for (int i = 0; i < entries.size(); ++i) {
        const Entry &e = entries.at(i);
        if (e.type == type && e.hasName && e.name.compare(name, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

QByteArray QVResourceFile::serialize(qint16 *error) const
{
    const QList<quint32> typeList = types();
    // Data area, in type order then entry order, so reference lists read in order.
    QByteArray data;
    QByteArray names;
    QHash<int, quint32> dataOffsets;
    QHash<int, int> nameOffsets;
    for (quint32 type : typeList) {
        for (int i = 0; i < entries.size(); ++i) {
            const Entry &e = entries.at(i);
            if (e.type != type)
                continue;
            dataOffsets.insert(i, quint32(data.size()));
            QVByteWriter(data).u32(quint32(e.data.size())).bytes(e.data);
            if (data.size() > kMaxDataArea + 4) {
                *error = QVResourceError::WritingPastEnd;
                return {};
            }
            if (e.hasName) {
                nameOffsets.insert(i, int(names.size()));
                QVByteWriter(names).u8(quint8(qMin<qsizetype>(e.name.size(), 255))).bytes(e.name.left(255));
            }
        }
    }
    for (quint32 offset : std::as_const(dataOffsets)) {
        if (offset > kMaxDataArea) {
            *error = QVResourceError::WritingPastEnd;
            return {};
        }
    }

    const qint64 typeListSize = 2 + qint64(typeList.size()) * 8;
    const qint64 refListSize = qint64(entries.size()) * kRefSize;
    const qint64 nameListOffset = kMapHeaderSize + typeListSize + refListSize;
    if (nameListOffset > 0xFFFF || names.size() > 0xFFFF || typeList.size() > 0x10000) {
        *error = QVResourceError::AddResFailed;
        return {};
    }

    QByteArray typeBytes, refBytes;
    QVByteWriter types(typeBytes), refs(refBytes);
    types.u16(quint16(typeList.size() - 1));
    qint64 refOffset = typeListSize;
    for (quint32 type : typeList) {
        const int n = count(type);
        if (n > 0x10000) {
            *error = QVResourceError::AddResFailed;
            return {};
        }
        types.u32(type).u16(quint16(n - 1)).u16(quint16(refOffset));
        refOffset += qint64(n) * kRefSize;
        for (int i = 0; i < entries.size(); ++i) {
            const Entry &e = entries.at(i);
            if (e.type != type)
                continue;
            refs.u16(quint16(e.id))
                .u16(e.hasName ? quint16(nameOffsets.value(i)) : quint16(0xFFFF))
                .u32((quint32(e.attributes & ~0x02) << 24) | dataOffsets.value(i))
                .u32(0);
        }
    }

    const quint32 dataOffset = kDataStart;
    const quint32 mapOffset = dataOffset + quint32(data.size());
    const quint32 mapLength = quint32(nameListOffset + names.size());
    QByteArray header;
    QVByteWriter(header).u32(dataOffset).u32(mapOffset).u32(quint32(data.size())).u32(mapLength);

    QByteArray reserve = headerReserve.left(kDataStart - kHeaderSize);
    reserve.resize(kDataStart - kHeaderSize, '\0');
    QByteArray fork;
    QVByteWriter out(fork);
    out.bytes(header).bytes(reserve).bytes(data);
    // The map: a copy of the header first.
    out.bytes(header);
    out.u32(0); // next map
    out.u16(0); // file reference
    // The read-only bit stays; "compact" and "changed" describe the last session only.
    out.u16(mapAttributes & ~quint16(0x0060));
    out.u16(kMapHeaderSize);
    out.u16(quint16(nameListOffset));
    out.bytes(typeBytes).bytes(refBytes).bytes(names);
    *error = QVResourceError::NoErr;
    return fork;
}
