#include "engine/QVTableChecks.h"

#include "platform/QVByteReader.h"

#include <QStringList>
#include <optional>
#include <vector>

namespace
{

// A compact-font INDEX: a count, an offset size and count + 1 offsets, then the
// data they point into. `items` holds [start, end) of each item in the table.
struct Index {
    quint32 count = 0;
    std::vector<std::pair<qint64, qint64>> items;
    qint64 end = 0;
};

std::optional<Index> readIndex(QByteArrayView table, qint64 at, bool wideCount)
{
    QVByteReader r = QVByteReader(table).at(at);
    Index index;
    const auto count = wideCount ? r.u32() : std::optional<quint32>(r.u16().value_or(0));
    if (!r.ok() || !count)
        return std::nullopt;
    index.count = *count;
    if (index.count == 0) {
        index.end = r.pos();
        return index;
    }
    const auto offSize = r.u8();
    if (!offSize || *offSize < 1 || *offSize > 4)
        return std::nullopt;
    // The offsets must fit before anything is sized by the count.
    const qint64 offsetBytes = (qint64(index.count) + 1) * *offSize;
    if (!r.has(r.pos(), offsetBytes))
        return std::nullopt;
    const qint64 dataStart = r.pos() + offsetBytes - 1;
    index.items.reserve(index.count);
    quint32 previous = 0;
    for (quint32 i = 0; i <= index.count; ++i) {
        quint32 offset = 0;
        for (int b = 0; b < *offSize; ++b)
            offset = (offset << 8) | *r.u8();
        if ((i == 0 && offset != 1) || offset < previous)
            return std::nullopt;
        if (i > 0)
            index.items.emplace_back(dataStart + previous, dataStart + offset);
        previous = offset;
    }
    index.end = dataStart + previous;
    if (index.end > table.size())
        return std::nullopt;
    return index;
}

// The operators of a DICT with their last operands as integers (reals count
// as 0); none when the operands run past the data or an operator is unknown.
using Dict = std::vector<std::pair<int, std::vector<qint64>>>;

std::optional<Dict> readDict(QByteArrayView data)
{
    QVByteReader r(data);
    Dict dict;
    std::vector<qint64> operands;
    while (r.remaining() > 0) {
        const quint8 b = *r.u8();
        // 22 to 24 are the variation operators of the newer format.
        if (b <= 24) {
            int op = b;
            if (b == 12) {
                const auto second = r.u8();
                if (!second)
                    return std::nullopt;
                op = 1200 + *second;
            }
            dict.emplace_back(op, operands);
            operands.clear();
        } else if (b == 28) {
            const auto v = r.i16();
            if (!v)
                return std::nullopt;
            operands.push_back(*v);
        } else if (b == 29) {
            const auto v = r.i32();
            if (!v)
                return std::nullopt;
            operands.push_back(*v);
        } else if (b == 30) {
            // A real: nibbles up to the end marker 0xf.
            for (;;) {
                const auto n = r.u8();
                if (!n)
                    return std::nullopt;
                if ((*n & 0x0f) == 0x0f || (*n >> 4) == 0x0f)
                    break;
            }
            operands.push_back(0);
        } else if (b >= 32 && b <= 246) {
            operands.push_back(qint64(b) - 139);
        } else if (b >= 247 && b <= 254) {
            const auto w = r.u8();
            if (!w)
                return std::nullopt;
            operands.push_back(
                b <= 250 ? (qint64(b) - 247) * 256 + *w + 108 : -(qint64(b) - 251) * 256 - *w - 108);
        } else {
            return std::nullopt;
        }
        if (operands.size() > 513)
            return std::nullopt;
    }
    return dict;
}

const std::vector<qint64> *operandsOf(const Dict &dict, int op)
{
    for (const auto &[o, args] : dict) {
        if (o == op)
            return &args;
    }
    return nullptr;
}

// A Private DICT given by (size, offset) in a font DICT, and its local
// subroutines, which are placed relative to it.
bool checkPrivate(QByteArrayView table, const Dict &fontDict, bool wideCount)
{
    const auto *priv = operandsOf(fontDict, 18);
    if (!priv)
        return true;
    if (priv->size() != 2 || (*priv)[0] < 0 || (*priv)[1] < 0
        || !QVByteReader(table).has((*priv)[1], (*priv)[0]))
        return false;
    const QByteArrayView bytes = table.sliced((*priv)[1], (*priv)[0]);
    const auto dict = readDict(bytes);
    if (!dict)
        return false;
    if (const auto *subrs = operandsOf(*dict, 19)) {
        if (subrs->size() != 1 || (*subrs)[0] <= 0 || !readIndex(table, (*priv)[1] + (*subrs)[0], wideCount))
            return false;
    }
    return true;
}

// CharStrings, Private and, for CID-keyed fonts, the font DICTs with theirs.
bool checkTopDict(QByteArrayView table, const Dict &top, quint16 numGlyphs, bool cff2)
{
    const auto *charStrings = operandsOf(top, 17);
    if (!charStrings || charStrings->size() != 1)
        return false;
    const auto glyphs = readIndex(table, (*charStrings)[0], cff2);
    if (!glyphs || glyphs->count != numGlyphs)
        return false;
    if (!cff2 && !checkPrivate(table, top, false))
        return false;
    if (const auto *fdArray = operandsOf(top, 1236)) {
        if (fdArray->size() != 1)
            return false;
        const auto fonts = readIndex(table, (*fdArray)[0], cff2);
        if (!fonts || fonts->count == 0)
            return false;
        for (const auto &[start, end] : fonts->items) {
            const auto fontDict = readDict(table.sliced(start, end - start));
            if (!fontDict || !checkPrivate(table, *fontDict, cff2))
                return false;
        }
        if (const auto *fdSelect = operandsOf(top, 1237)) {
            QVByteReader r = QVByteReader(table).at(fdSelect->size() == 1 ? (*fdSelect)[0] : -1);
            const auto format = r.u8();
            if (!format || (*format == 0 && !r.skip(numGlyphs)))
                return false;
            if (*format == 3 || *format == 4) {
                const auto ranges = *format == 3 ? r.u16().value_or(0) : r.u32().value_or(0);
                if (ranges == 0 || !r.skip(qint64(ranges) * (*format == 3 ? 3 : 6) + (*format == 3 ? 2 : 4)))
                    return false;
            } else if (*format != 0) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

bool QVTableChecks::checkHead(QByteArrayView head)
{
    QVByteReader r(head);
    const auto version = r.u32();
    r.skip(8);
    const auto magic = r.u32();
    r.skip(2);
    const auto unitsPerEm = r.u16();
    r.skip(30);
    const auto locFormat = r.i16();
    const auto glyphFormat = r.i16();
    return r.ok() && (*version >> 16) == 1 && *magic == 0x5F0F3CF5 && *unitsPerEm >= 16
        && *unitsPerEm <= 16384 && (*locFormat == 0 || *locFormat == 1) && *glyphFormat == 0;
}

bool QVTableChecks::checkMaxp(QByteArrayView maxp, quint16 *numGlyphs)
{
    QVByteReader r(maxp);
    const auto version = r.u32();
    const auto glyphs = r.u16();
    if (!r.ok() || (*version != 0x00005000 && *version != 0x00010000) || *glyphs == 0)
        return false;
    if (*version == 0x00010000 && maxp.size() < 32)
        return false;
    *numGlyphs = *glyphs;
    return true;
}

bool QVTableChecks::checkHhea(QByteArrayView hhea, quint16 numGlyphs, quint16 *numMetrics)
{
    QVByteReader r(hhea);
    const auto major = r.u16();
    r.skip(30);
    const auto dataFormat = r.i16();
    const auto metrics = r.u16();
    if (!r.ok() || *major != 1 || *dataFormat != 0 || *metrics == 0 || *metrics > numGlyphs)
        return false;
    *numMetrics = *metrics;
    return true;
}

bool QVTableChecks::checkHmtx(QByteArrayView hmtx, quint16 numGlyphs, quint16 numMetrics)
{
    return numMetrics <= numGlyphs
        && hmtx.size() >= qint64(numMetrics) * 4 + qint64(numGlyphs - numMetrics) * 2;
}

bool QVTableChecks::checkLoca(QByteArrayView loca, bool longOffsets, quint16 numGlyphs, qint64 glyfSize)
{
    const int step = longOffsets ? 4 : 2;
    if (loca.size() < (qint64(numGlyphs) + 1) * step)
        return false;
    QVByteReader r(loca);
    qint64 previous = 0;
    for (int i = 0; i <= numGlyphs; ++i) {
        const qint64 offset = longOffsets ? qint64(*r.u32()) : qint64(*r.u16()) * 2;
        if (offset < previous || offset > glyfSize)
            return false;
        previous = offset;
    }
    return true;
}

namespace
{

bool checkSimpleGlyph(QVByteReader &r, qint16 contours, qint64 end)
{
    qint64 previousEnd = -1;
    for (int i = 0; i < contours; ++i) {
        const auto endPoint = r.u16();
        if (!endPoint || *endPoint < previousEnd)
            return false;
        previousEnd = *endPoint;
    }
    const qint64 points = previousEnd + 1;
    const auto instructions = r.u16();
    if (!instructions || !r.skip(*instructions))
        return false;
    qint64 coordinateBytes = 0;
    for (qint64 flagged = 0; flagged < points;) {
        const auto flag = r.u8();
        // Bit 7 is reserved; bit 6 (overlapping outlines) belongs to the first
        // point alone.
        if (!flag || (*flag & 0x80) || ((*flag & 0x40) && flagged > 0))
            return false;
        qint64 repeat = 1;
        if (*flag & 0x08) {
            const auto extra = r.u8();
            if (!extra)
                return false;
            repeat += *extra;
        }
        if (flagged + repeat > points)
            return false;
        const int x = (*flag & 0x02) ? 1 : (*flag & 0x10) ? 0 : 2;
        const int y = (*flag & 0x04) ? 1 : (*flag & 0x20) ? 0 : 2;
        coordinateBytes += repeat * (x + y);
        flagged += repeat;
    }
    return r.pos() + coordinateBytes <= end;
}

bool checkCompositeGlyph(QVByteReader &r, quint16 numGlyphs)
{
    quint16 flags = 0;
    do {
        const auto f = r.u16();
        const auto glyph = r.u16();
        if (!f || !glyph || *glyph >= numGlyphs)
            return false;
        flags = *f;
        const int args = (flags & 0x0001) ? 4 : 2;
        const int scale = (flags & 0x0008) ? 2 : (flags & 0x0040) ? 4 : (flags & 0x0080) ? 8 : 0;
        if (!r.skip(args + scale))
            return false;
    } while (flags & 0x0020);
    if (flags & 0x0100) {
        const auto instructions = r.u16();
        if (!instructions || !r.skip(*instructions))
            return false;
    }
    return true;
}

} // namespace

bool QVTableChecks::checkGlyf(QByteArrayView glyf, QByteArrayView loca, bool longOffsets, quint16 numGlyphs)
{
    QVByteReader offsets(loca);
    const auto next = [&] {
        return longOffsets ? qint64(offsets.u32().value_or(0)) : qint64(offsets.u16().value_or(0)) * 2;
    };
    qint64 start = next();
    for (int i = 0; i < numGlyphs; ++i) {
        const qint64 end = next();
        if (end == start)
            continue;
        if (end - start < 10)
            return false;
        QVByteReader r(glyf.sliced(0, end));
        r.seek(start);
        const auto contours = r.i16();
        const auto xMin = r.i16(), yMin = r.i16(), xMax = r.i16(), yMax = r.i16();
        if (!r.ok() || *contours < -1 || *xMin > *xMax || *yMin > *yMax)
            return false;
        if (*contours >= 0 ? !checkSimpleGlyph(r, *contours, end) : !checkCompositeGlyph(r, numGlyphs))
            return false;
        start = end;
    }
    return true;
}

namespace
{

bool checkCmapFormat4(QByteArrayView sub, quint16 numGlyphs)
{
    QVByteReader r(sub);
    r.skip(6);
    const auto segX2 = r.u16();
    if (!segX2 || *segX2 == 0 || (*segX2 & 1))
        return false;
    const qint64 segs = *segX2 / 2;
    const qint64 ends = 14, starts = ends + 2 * segs + 2, deltas = starts + 2 * segs,
                 ranges = deltas + 2 * segs;
    if (!r.has(ranges, 2 * segs))
        return false;
    QVByteReader at(sub);
    const auto u16at = [&](qint64 pos) { return *at.at(pos).u16(); };
    qint64 previousEnd = -1;
    for (qint64 i = 0; i < segs; ++i) {
        const quint16 end = u16at(ends + 2 * i), start = u16at(starts + 2 * i);
        const quint16 delta = u16at(deltas + 2 * i), range = u16at(ranges + 2 * i);
        if (start > end || qint64(start) <= previousEnd)
            return false;
        previousEnd = end;
        for (qint64 c = start; c <= end; ++c) {
            // The last segment maps U+FFFF to nothing by its delta alone.
            quint16 glyph = quint16(c + delta);
            if (range != 0) {
                const qint64 pos = ranges + 2 * i + range + 2 * (c - start);
                if (!r.has(pos, 2)) {
                    if (c == 0xFFFF)
                        continue;
                    return false;
                }
                glyph = u16at(pos);
                if (glyph != 0)
                    glyph = quint16(glyph + delta);
            }
            if (glyph >= numGlyphs && c != 0xFFFF)
                return false;
        }
    }
    return previousEnd == 0xFFFF;
}

bool checkCmapGroups(QByteArrayView sub, quint16 numGlyphs, bool ranged)
{
    QVByteReader r(sub);
    r.skip(12);
    const auto groups = r.u32();
    if (!groups || !r.has(16, qint64(*groups) * 12))
        return false;
    qint64 previousEnd = -1;
    for (quint32 i = 0; i < *groups; ++i) {
        const quint32 start = *r.u32(), end = *r.u32(), glyph = *r.u32();
        if (start > end || end > 0x10FFFF || qint64(start) <= previousEnd)
            return false;
        if ((ranged ? qint64(glyph) + (end - start) : qint64(glyph)) >= numGlyphs)
            return false;
        previousEnd = end;
    }
    return true;
}

} // namespace

bool QVTableChecks::checkCmap(QByteArrayView cmap, quint16 numGlyphs)
{
    QVByteReader r(cmap);
    const auto version = r.u16();
    const auto count = r.u16();
    if (!r.ok() || *version != 0 || *count == 0 || !r.has(4, qint64(*count) * 8))
        return false;
    for (int i = 0; i < *count; ++i) {
        r.skip(4);
        const qint64 offset = *r.u32();
        QVByteReader sub = QVByteReader(cmap).at(offset);
        const auto format = sub.u16();
        if (!format)
            return false;
        qint64 length = 0;
        if (*format == 8 || *format == 10 || *format == 12 || *format == 13) {
            sub.skip(2);
            length = sub.u32().value_or(0);
        } else if (*format == 14) {
            length = sub.u32().value_or(0);
        } else if (*format <= 6 && *format % 2 == 0) {
            length = sub.u16().value_or(0);
        } else {
            return false;
        }
        if (!sub.ok() || !sub.has(offset, length) || length < 6)
            return false;
        const QByteArrayView bytes = cmap.sliced(offset, length);
        if ((*format == 4 && !checkCmapFormat4(bytes, numGlyphs))
            || ((*format == 12 || *format == 13) && !checkCmapGroups(bytes, numGlyphs, *format == 12))
            || (*format == 0 && length < 262))
            return false;
        if (*format == 6) {
            QVByteReader six = QVByteReader(bytes).at(8);
            const auto entries = six.u16();
            if (!entries || !six.has(10, qint64(*entries) * 2))
                return false;
        }
    }
    return true;
}

bool QVTableChecks::checkName(QByteArrayView name)
{
    QVByteReader r(name);
    const auto format = r.u16();
    const auto count = r.u16();
    const auto storage = r.u16();
    // The strings come after the records.
    if (!r.ok() || *format > 1 || *storage > name.size() || *storage < 6 + qint64(*count) * 12
        || !r.has(6, qint64(*count) * 12))
        return false;
    const qint64 storageSize = name.size() - *storage;
    for (int i = 0; i < *count; ++i) {
        r.skip(8);
        const quint16 length = *r.u16(), offset = *r.u16();
        if (qint64(offset) + length > storageSize)
            return false;
    }
    return true;
}

bool QVTableChecks::checkPost(QByteArrayView post, quint16 numGlyphs)
{
    QVByteReader r(post);
    const auto version = r.u32();
    if (!r.ok() || post.size() < 32)
        return false;
    if (*version == 0x00010000 || *version == 0x00030000 || *version == 0x00025000)
        return true;
    if (*version != 0x00020000)
        return false;
    r.seek(32);
    const auto glyphs = r.u16();
    if (!glyphs || *glyphs != numGlyphs || !r.has(34, qint64(*glyphs) * 2))
        return false;
    quint16 highest = 0;
    for (int i = 0; i < *glyphs; ++i)
        highest = qMax(highest, *r.u16());
    // Every name an index asks for must be among the strings.
    qint64 names = 0;
    while (r.remaining() > 0) {
        const auto length = r.u8();
        const auto text = r.bytes(*length);
        if (!text)
            return false;
        // Glyph names are printable ASCII.
        for (const char c : *text) {
            if (c < 0x21 || c > 0x7e)
                return false;
        }
        ++names;
    }
    return highest < 258 || highest - 258 < names;
}

bool QVTableChecks::checkOS2(QByteArrayView os2)
{
    const auto version = QVByteReader(os2).u16();
    if (!version || *version > 5)
        return false;
    const qint64 needed[] = { 68, 86, 96, 96, 96, 100 };
    return os2.size() >= needed[*version];
}

bool QVTableChecks::checkCFF(QByteArrayView cff, quint16 numGlyphs)
{
    QVByteReader r(cff);
    const auto major = r.u8();
    r.skip(1);
    const auto headerSize = r.u8();
    const auto offSize = r.u8();
    if (!r.ok() || *major != 1 || *headerSize < 4 || *offSize < 1 || *offSize > 4)
        return false;
    const auto names = readIndex(cff, *headerSize, false);
    if (!names || names->count != 1)
        return false;
    const auto tops = readIndex(cff, names->end, false);
    if (!tops || tops->count != 1)
        return false;
    const auto strings = readIndex(cff, tops->end, false);
    if (!strings || !readIndex(cff, strings->end, false))
        return false;
    const auto &[start, end] = tops->items.front();
    const auto top = readDict(cff.sliced(start, end - start));
    return top && checkTopDict(cff, *top, numGlyphs, false);
}

bool QVTableChecks::checkCFF2(QByteArrayView cff2, quint16 numGlyphs)
{
    QVByteReader r(cff2);
    const auto major = r.u8();
    r.skip(1);
    const auto headerSize = r.u8();
    const auto topSize = r.u16();
    if (!r.ok() || *major != 2 || *headerSize < 5 || !r.has(*headerSize, *topSize))
        return false;
    if (!readIndex(cff2, qint64(*headerSize) + *topSize, true))
        return false;
    const auto top = readDict(cff2.sliced(*headerSize, *topSize));
    return top && checkTopDict(cff2, *top, numGlyphs, true);
}

QStringList QVTableChecks::missingTables() const
{
    QStringList missing;
    for (const char *tag : { "head", "hhea", "maxp", "hmtx", "cmap", "name" }) {
        if (!has(tag))
            missing.append(QString::fromLatin1(tag));
    }
    const bool bitmapsOnly = has("EBDT") || has("CBDT") || has("sbix") || has("bdat");
    if (!has("CFF ") && !has("CFF2") && !bitmapsOnly) {
        if (!has("glyf"))
            missing.append(QStringLiteral("glyf"));
        if (!has("loca"))
            missing.append(QStringLiteral("loca"));
    }
    return missing;
}

QStringList QVTableChecks::damagedTables() const
{
    QStringList damaged;
    if (has("head") && !checkHead(table("head")))
        return { QStringLiteral("head") };
    quint16 numGlyphs = 0;
    if (!has("maxp"))
        return damaged;
    if (!checkMaxp(table("maxp"), &numGlyphs))
        return { QStringLiteral("maxp") };
    const auto add = [&](const char *tag, bool sound) {
        if (has(tag) && !sound)
            damaged.append(QString::fromLatin1(tag));
    };
    quint16 numMetrics = 0;
    add("hhea", checkHhea(table("hhea"), numGlyphs, &numMetrics));
    if (numMetrics > 0)
        add("hmtx", checkHmtx(table("hmtx"), numGlyphs, numMetrics));
    if (has("head") && has("loca") && has("glyf")) {
        const bool longOffsets = QVByteReader(table("head")).at(50).i16().value_or(0) == 1;
        const bool locaSound = checkLoca(table("loca"), longOffsets, numGlyphs, table("glyf").size());
        add("loca", locaSound);
        if (locaSound)
            add("glyf", checkGlyf(table("glyf"), table("loca"), longOffsets, numGlyphs));
    }
    add("cmap", checkCmap(table("cmap"), numGlyphs));
    add("name", checkName(table("name")));
    add("post", checkPost(table("post"), numGlyphs));
    add("OS/2", checkOS2(table("OS/2")));
    add("CFF ", checkCFF(table("CFF "), numGlyphs));
    add("CFF2", checkCFF2(table("CFF2"), numGlyphs));
    return damaged;
}
