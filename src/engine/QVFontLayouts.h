// Where the fields of the font structures that the program reads lie: byte
// offsets from the start of each structure, all numbers big-endian. Every
// reader of these structures takes its offsets from here.
#pragma once

#include <QtGlobal>

namespace QVFontLayouts
{

// Family record (FOND resource): a 52-byte header, then the association table.
namespace FOND
{
constexpr qint64 kFlags = 0; // 16 bits; bit 0: the family has a width table
constexpr qint64 kFirstChar = 4;
constexpr qint64 kLastChar = 6;
constexpr qint64 kMaxWidth = 14;
// 32-bit offsets of the width, kerning and style-mapping tables (0 = none).
constexpr qint64 kWidthTable = 16;
constexpr qint64 kKerningTable = 20;
constexpr qint64 kStyleTable = 24;
// Number of association entries minus one (signed; -1 = none), then the entries.
constexpr qint64 kEntryCount = 52;
constexpr qint64 kFirstEntry = 54;
constexpr qint64 kEntrySize = 6;
// Within an entry: point size (0 = an outline), style bits, resource ID.
constexpr qint64 kEntryPointSize = 0;
constexpr qint64 kEntryStyle = 2;
constexpr qint64 kEntryID = 4;

constexpr qint64 entry(qint64 index)
{
    return kFirstEntry + kEntrySize * index;
}

// Width table: number of tables minus one, then per table a style word and
// one width per character.
constexpr qint64 kWidthTableCount = 0;
constexpr qint64 kWidthTablesStart = 2;
constexpr qint64 kWidthStyleSize = 2;
// Kerning table: number of tables minus one, then per table a style word, a
// pair count and the pairs.
constexpr qint64 kKerningTableCount = 0;
constexpr qint64 kKerningTablesStart = 2;
constexpr qint64 kKerningStyleSize = 2;
constexpr qint64 kKerningPairSize = 4;
// Style-mapping table: class, offset, reserved, 48 style-index bytes, the
// string count, then Pascal strings (the first the base PostScript name).
constexpr qint64 kStyleIndexes = 10;
constexpr qint64 kStyleStringCount = 58;
constexpr qint64 kStyleStrings = 60;
} // namespace FOND

// Bitmap strike (NFNT or FONT resource): a 26-byte header.
namespace NFNT
{
constexpr qint64 kHeaderSize = 26;
// The negated descent, which holds the high word of the offset/width table
// offset when positive, and that offset's low word.
constexpr qint64 kOffsetHigh = 10;
constexpr qint64 kOffsetLow = 16;
} // namespace NFNT

// SFNT face: the offset table, then one directory entry per table.
namespace SFNT
{
constexpr qint64 kTag = 0; // "OTTO" for PostScript outlines
constexpr qint64 kNumTables = 4;
constexpr qint64 kOffsetTableSize = 12;
constexpr qint64 kEntrySize = 16;
// Within a directory entry: tag, checksum, offset (from the file's start), length.
constexpr qint64 kEntryTag = 0;
constexpr qint64 kEntryChecksum = 4;
constexpr qint64 kEntryOffset = 8;
constexpr qint64 kEntryLength = 12;

constexpr qint64 entry(qint64 index)
{
    return kOffsetTableSize + kEntrySize * index;
}
} // namespace SFNT

// SFNT collection header: "ttcf", two version words, the member count, then
// one 32-bit offset per member.
namespace TTC
{
constexpr qint64 kTag = 0;
constexpr qint64 kMajorVersion = 4;
constexpr qint64 kMinorVersion = 6;
constexpr qint64 kMemberCount = 8;
constexpr qint64 kFirstOffset = 12;
constexpr qint64 kOffsetSize = 4;
} // namespace TTC

// Naming table ("name"): format, record count, string-storage offset, then
// 12-byte records (platform, encoding, language, name ID, length, offset).
namespace Name
{
constexpr qint64 kRecordCount = 2;
constexpr qint64 kStorageOffset = 4;
constexpr qint64 kHeaderSize = 6;
constexpr qint64 kRecordSize = 12;
constexpr qint64 kRecordNameID = 6;
constexpr qint64 kRecordLength = 8;
constexpr qint64 kRecordOffset = 10;
} // namespace Name

} // namespace QVFontLayouts
