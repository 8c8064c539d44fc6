#include "platform/QVAppleDouble.h"

#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"

#include <QHash>
#include <QPair>

namespace
{

constexpr int kHeaderSize = 26;
constexpr int kEntryCount = 24;
constexpr int kDescriptorSize = 12;
constexpr quint32 kVersion1 = 0x00010000;
// macOS puts an extended-attribute block after the 32 bytes of Finder info
// (2 bytes of padding, then "ATTR"); its offsets count from the file start.
constexpr int kAttrMagicOffset = 34;
constexpr quint32 kAttrMagic = 0x41545452; // 'ATTR'
// Within the block: magic, debug tag, total size, data start, data length,
// 3 reserved words, flags, count; then the entries, each an offset, a length,
// flags, a name length and the name, padded to 4 bytes.
constexpr int kAttrTotalSize = 8;
constexpr int kAttrDataStart = 12;
constexpr int kAttrCount = 34;
constexpr int kAttrHeaderSize = 36;
constexpr int kAttrEntryNameLength = 10;
constexpr int kAttrEntryFixedSize = 11;

// Moves the absolute offset at pos by delta; false when it is not all there.
bool shiftOffset(QByteArray &bytes, qint64 pos, qint64 delta)
{
    const auto offset = QVByteReader(bytes).at(pos).u32();
    return offset && QVByteWriter(bytes).setU32(pos, quint32(qint64(*offset) + delta));
}

// Moves the absolute offsets of a macOS attribute block by delta. Leaves a
// block it cannot follow as it is.
void shiftAttributeBlock(QByteArray &finderInfo, qint64 delta)
{
    const qint64 header = kAttrMagicOffset;
    const QVByteReader in(finderInfo);
    if (delta == 0 || !in.has(header, kAttrHeaderSize) || in.at(header).u32() != kAttrMagic)
        return;
    const int count = *in.at(header + kAttrCount).u16();
    shiftOffset(finderInfo, header + kAttrDataStart, delta);
    shiftOffset(finderInfo, header + kAttrTotalSize, delta);
    qint64 at = header + kAttrHeaderSize;
    for (int i = 0; i < count; ++i) {
        const auto nameLength = QVByteReader(finderInfo).at(at + kAttrEntryNameLength).u8();
        if (!nameLength)
            return;
        shiftOffset(finderInfo, at, delta);
        at = (at + kAttrEntryFixedSize + *nameLength + 3) & ~qint64(3);
    }
}

} // namespace

std::optional<QVAppleDouble> QVAppleDouble::parse(const QByteArray &bytes)
{
    QVByteReader in(bytes);
    const auto magic = in.u32();
    // Version 1 files have the same entry layout; accept them and write version 2.
    const auto version = in.u32();
    const auto fillerBytes = in.bytes(16);
    const auto count = in.at(kEntryCount).u16();
    if (!count || *magic != kMagic || (*version != kVersion2 && *version != kVersion1))
        return std::nullopt;
    QVAppleDouble file;
    file.filler = fillerBytes->toByteArray();
    QVByteReader descriptors = in.at(kHeaderSize);
    if (!descriptors.has(kHeaderSize, qint64(*count) * kDescriptorSize))
        return std::nullopt;
    // Entries at one place share one copy, and all copies together never hold
    // more than the file: thousands of entries over one large range would
    // otherwise turn a small sidecar into gigabytes.
    QHash<QPair<qint64, qint64>, QByteArray> taken;
    qint64 budget = bytes.size();
    for (int i = 0; i < *count; ++i) {
        const quint32 id = *descriptors.u32();
        const qint64 offset = *descriptors.u32(), length = *descriptors.u32();
        if (!in.has(offset, length))
            return std::nullopt;
        auto shared = taken.constFind({ offset, length });
        if (shared == taken.cend()) {
            if (length > budget)
                return std::nullopt;
            budget -= length;
            shared = taken.insert({ offset, length }, bytes.mid(offset, length));
        }
        file.entries.append({ id, *shared, quint32(offset) });
    }
    return file;
}

QByteArray QVAppleDouble::serialize() const
{
    QByteArray out;
    QVByteWriter w(out);
    QByteArray fill = filler.left(16);
    fill.resize(16, '\0');
    w.u32(kMagic).u32(kVersion2).bytes(fill).u16(quint16(entries.size()));
    qint64 offset = kHeaderSize + qint64(entries.size()) * kDescriptorSize;
    QByteArray body;
    for (const Entry &e : entries) {
        w.u32(e.id).u32(quint32(offset)).u32(quint32(e.data.size()));
        QByteArray data = e.data;
        if (e.id == FinderInfo && e.originalOffset != 0)
            shiftAttributeBlock(data, offset - qint64(e.originalOffset));
        body.append(data);
        offset += e.data.size();
    }
    out.append(body);
    return out;
}

bool QVAppleDouble::has(quint32 id) const
{
    for (const Entry &e : entries) {
        if (e.id == id)
            return true;
    }
    return false;
}

QByteArray QVAppleDouble::entry(quint32 id) const
{
    for (const Entry &e : entries) {
        if (e.id == id)
            return e.data;
    }
    return {};
}

void QVAppleDouble::setEntry(quint32 id, const QByteArray &data)
{
    for (Entry &e : entries) {
        if (e.id != id)
            continue;
        if (id == FinderInfo && e.data.size() > kFinderInfoSize && data.size() == kFinderInfoSize)
            e.data.replace(0, kFinderInfoSize, data);
        else
            e.data = data;
        return;
    }
    entries.append({ id, data, 0 });
}

void QVAppleDouble::removeEntry(quint32 id)
{
    entries.removeIf([id](const Entry &e) { return e.id == id; });
}
