#include "platform/QVAppleDouble.h"

#include <QHash>
#include <QPair>

namespace
{

constexpr int kHeaderSize = 26;
constexpr int kDescriptorSize = 12;
// macOS puts an extended-attribute block after the 32 bytes of Finder info
// (2 bytes of padding, then "ATTR"); its offsets count from the file start.
constexpr int kAttrMagicOffset = 34;
constexpr quint32 kAttrMagic = 0x41545452; // 'ATTR'

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

void set32(QByteArray &b, qint64 at, quint32 v)
{
    b[at] = char(v >> 24);
    b[at + 1] = char(v >> 16);
    b[at + 2] = char(v >> 8);
    b[at + 3] = char(v);
}

void put32(QByteArray &b, quint32 v)
{
    b.append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
}

// Moves the absolute offsets of a macOS attribute block by delta. Leaves a
// block it cannot follow as it is.
void shiftAttributeBlock(QByteArray &finderInfo, qint64 delta)
{
    const qint64 size = finderInfo.size();
    if (delta == 0 || size < kAttrMagicOffset + 36 || be32(finderInfo, kAttrMagicOffset) != kAttrMagic)
        return;
    const qint64 header = kAttrMagicOffset;
    // magic, debug tag, total size, data start, data length, 3 reserved, flags, count
    const int count = be16(finderInfo, header + 34);
    set32(finderInfo, header + 12, quint32(qint64(be32(finderInfo, header + 12)) + delta));
    set32(finderInfo, header + 8, quint32(qint64(be32(finderInfo, header + 8)) + delta));
    qint64 at = header + 36;
    for (int i = 0; i < count; ++i) {
        if (at + 11 > size)
            return;
        set32(finderInfo, at, quint32(qint64(be32(finderInfo, at)) + delta));
        const int nameLength = quint8(finderInfo.at(at + 10));
        at = (at + 11 + nameLength + 3) & ~qint64(3);
    }
}

} // namespace

std::optional<QVAppleDouble> QVAppleDouble::parse(const QByteArray &bytes)
{
    const qint64 size = bytes.size();
    if (size < kHeaderSize || be32(bytes, 0) != kMagic)
        return std::nullopt;
    // Version 1 files have the same entry layout; accept them and write version 2.
    const quint32 version = be32(bytes, 4);
    if (version != kVersion2 && version != 0x00010000)
        return std::nullopt;
    QVAppleDouble file;
    file.filler = bytes.mid(8, 16);
    const int count = be16(bytes, 24);
    if (kHeaderSize + qint64(count) * kDescriptorSize > size)
        return std::nullopt;
    // Entries at one place share one copy, and all copies together never hold
    // more than the file: thousands of entries over one large range would
    // otherwise turn a small sidecar into gigabytes.
    QHash<QPair<qint64, qint64>, QByteArray> taken;
    qint64 budget = size;
    for (int i = 0; i < count; ++i) {
        const qint64 at = kHeaderSize + qint64(i) * kDescriptorSize;
        const quint32 id = be32(bytes, at);
        const qint64 offset = be32(bytes, at + 4), length = be32(bytes, at + 8);
        if (offset > size || length > size - offset)
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
    put32(out, kMagic);
    put32(out, kVersion2);
    QByteArray fill = filler.left(16);
    fill.resize(16, '\0');
    out.append(fill);
    out.append(char(entries.size() >> 8)).append(char(entries.size()));
    qint64 offset = kHeaderSize + qint64(entries.size()) * kDescriptorSize;
    QByteArray body;
    for (const Entry &e : entries) {
        put32(out, e.id);
        put32(out, quint32(offset));
        put32(out, quint32(e.data.size()));
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
