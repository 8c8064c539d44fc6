#include "engine/QVResourceFile.h"

#include "engine/QVResourceManager.h"

#include <QHash>

namespace
{

constexpr int kHeaderSize = 16;
constexpr int kDataStart = 256;
constexpr int kMapHeaderSize = 28; // header copy, next map, file ref, attributes, two offsets
constexpr int kRefSize = 12;

quint32 be32(const QByteArray &b, qint64 at)
{
    const auto *p = reinterpret_cast<const quint8 *>(b.constData()) + at;
    return (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
}

quint16 be16(const QByteArray &b, qint64 at)
{
    const auto *p = reinterpret_cast<const quint8 *>(b.constData()) + at;
    return quint16((p[0] << 8) | p[1]);
}

void put32(QByteArray &b, quint32 v)
{
    b.append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
}

void put16(QByteArray &b, quint16 v)
{
    b.append(char(v >> 8)).append(char(v));
}

// A range [at, at + len) inside [0, size).
bool inside(qint64 at, qint64 len, qint64 size)
{
    return at >= 0 && len >= 0 && at <= size && len <= size - at;
}

} // namespace

std::optional<QVResourceFile> QVResourceFile::parse(const QByteArray &fork, qint16 *error)
{
    auto fail = [error](qint16 code) {
        if (error)
            *error = code;
        return std::nullopt;
    };
    const qint64 size = fork.size();
    if (size < kHeaderSize)
        return fail(QVResourceError::MapRead);
    const qint64 dataOffset = be32(fork, 0), mapOffset = be32(fork, 4);
    const qint64 dataLength = be32(fork, 8), mapLength = be32(fork, 12);
    if (!inside(dataOffset, dataLength, size) || !inside(mapOffset, mapLength, size)
        || mapLength < kMapHeaderSize + 2)
        return fail(QVResourceError::MapRead);

    const QByteArray map = fork.mid(mapOffset, mapLength);
    QVResourceFile file;
    file.mapAttributes = be16(map, 22);
    const qint64 typeListOffset = be16(map, 24), nameListOffset = be16(map, 26);
    if (!inside(typeListOffset, 2, mapLength))
        return fail(QVResourceError::MapRead);
    // The stored count is types - 1; 0xFFFF is an empty map.
    const int typeCount = (be16(map, typeListOffset) + 1) & 0xFFFF;
    if (!inside(typeListOffset + 2, qint64(typeCount) * 8, mapLength))
        return fail(QVResourceError::MapRead);
    const QByteArray data = fork.mid(dataOffset, dataLength);
    // In a sound fork every resource has bytes of its own. References to one
    // place share one copy, and all copies together never hold more than the
    // data area: a map pointing thousands of times into one large resource
    // must not make a small file fill the memory.
    QHash<qint64, QByteArray> taken;
    qint64 budget = dataLength;

    for (int t = 0; t < typeCount; ++t) {
        const qint64 at = typeListOffset + 2 + qint64(t) * 8;
        const quint32 type = be32(map, at);
        const int refCount = be16(map, at + 4) + 1;
        const qint64 refList = typeListOffset + be16(map, at + 6);
        if (!inside(refList, qint64(refCount) * kRefSize, mapLength))
            return fail(QVResourceError::MapRead);
        for (int r = 0; r < refCount; ++r) {
            const qint64 ref = refList + qint64(r) * kRefSize;
            Entry entry;
            entry.type = type;
            entry.id = qint16(be16(map, ref));
            const quint16 nameOffset = be16(map, ref + 2);
            entry.attributes = quint8(map.at(ref + 4)) & ~quint8(0x02);
            const qint64 dataAt = be32(map, ref + 4) & 0xFFFFFF;
            if (nameOffset != 0xFFFF) {
                const qint64 nameAt = nameListOffset + nameOffset;
                if (!inside(nameAt, 1, mapLength))
                    return fail(QVResourceError::MapRead);
                const int nameLength = quint8(map.at(nameAt));
                if (!inside(nameAt + 1, nameLength, mapLength))
                    return fail(QVResourceError::MapRead);
                entry.name = map.mid(nameAt + 1, nameLength);
                entry.hasName = true;
            }
            const qint64 length = inside(dataAt, 4, dataLength) ? be32(data, dataAt) : -1;
            if (const auto shared = taken.constFind(dataAt); shared != taken.cend()) {
                entry.data = *shared;
            } else if (length >= 0 && inside(dataAt + 4, length, dataLength) && length <= budget) {
                entry.data = data.mid(dataAt + 4, length);
                taken.insert(dataAt, entry.data);
                budget -= length;
            } else {
                entry.dataValid = false;
            }
            file.entries.append(std::move(entry));
        }
    }
    file.headerReserve
        = fork.mid(kHeaderSize, qMax<qint64>(0, qMin<qint64>(dataOffset, kDataStart) - kHeaderSize));
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
            put32(data, quint32(e.data.size()));
            data.append(e.data);
            if (data.size() > kMaxDataArea + 4) {
                *error = QVResourceError::WritingPastEnd;
                return {};
            }
            if (e.hasName) {
                nameOffsets.insert(i, int(names.size()));
                names.append(char(qMin<qsizetype>(e.name.size(), 255))).append(e.name.left(255));
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
    put16(typeBytes, quint16(typeList.size() - 1));
    qint64 refOffset = typeListSize;
    for (quint32 type : typeList) {
        const int n = count(type);
        if (n > 0x10000) {
            *error = QVResourceError::AddResFailed;
            return {};
        }
        put32(typeBytes, type);
        put16(typeBytes, quint16(n - 1));
        put16(typeBytes, quint16(refOffset));
        refOffset += qint64(n) * kRefSize;
        for (int i = 0; i < entries.size(); ++i) {
            const Entry &e = entries.at(i);
            if (e.type != type)
                continue;
            put16(refBytes, quint16(e.id));
            put16(refBytes, e.hasName ? quint16(nameOffsets.value(i)) : quint16(0xFFFF));
            put32(refBytes, (quint32(e.attributes & ~0x02) << 24) | dataOffsets.value(i));
            put32(refBytes, 0);
        }
    }

    const quint32 dataOffset = kDataStart;
    const quint32 mapOffset = dataOffset + quint32(data.size());
    const quint32 mapLength = quint32(nameListOffset + names.size());
    QByteArray header;
    put32(header, dataOffset);
    put32(header, mapOffset);
    put32(header, quint32(data.size()));
    put32(header, mapLength);

    QByteArray fork = header;
    QByteArray reserve = headerReserve.left(kDataStart - kHeaderSize);
    reserve.resize(kDataStart - kHeaderSize, '\0');
    fork.append(reserve);
    fork.append(data);
    fork.append(header);
    put32(fork, 0); // next map
    put16(fork, 0); // file reference
    // The read-only bit stays; "compact" and "changed" describe the last session only.
    put16(fork, mapAttributes & ~quint16(0x0060));
    put16(fork, kMapHeaderSize);
    put16(fork, quint16(nameListOffset));
    fork.append(typeBytes);
    fork.append(refBytes);
    fork.append(names);
    *error = QVResourceError::NoErr;
    return fork;
}
