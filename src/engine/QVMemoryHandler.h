// Big-endian reads and writes in a loaded resource, with the range rules the
// table checks were written against, and the Pascal-string helpers. Each is a
// thin layer on QVByteReader / QVByteWriter: a read that does not fit answers
// 0 or an empty result, and nothing is ever read or written outside a
// handle's bytes. String results are returned by value.
//
// A null handle (or null string pointer) is a programming error: it asserts in
// debug builds and answers 0 / an empty result in release builds. File contents
// never lead to it.
#pragma once

#include "engine/QVResourceHandle.h"

#include <QByteArray>
#include <array>

class QVMemoryHandler
{
public:
    static constexpr int kPStringBufferSize = 256;
    static constexpr int kStringBufferSize = 1024;
    // A Pascal string: its length byte, its bytes, zeros after them.
    using PString = std::array<unsigned char, kPStringBufferSize>;
    // Raw bytes, zeros after them; the last byte is always 0.
    using ByteString = std::array<unsigned char, kStringBufferSize>;

    // 16-bit value sign-extended; 0 when the two bytes are not inside the data.
    qint32 Handle_ReadShort(const QVResourceHandle &h, qint64 offset);
    // The same 16-bit value, also sign-extended (FF FE reads -2); 0 when
    // size < offset + 2.
    qint32 Handle_ReadUnsignedShort(const QVResourceHandle &h, qint64 offset);
    // 32-bit value; 0 when size < offset + 8, so a long in the last 4 to 7
    // bytes reads as 0 (kept on purpose: the checks built on it expect it).
    qint32 Handle_ReadLong(const QVResourceHandle &h, qint64 offset);
    // Signed byte; 0 when size < offset + 1.
    qint32 Handle_ReadChar(const QVResourceHandle &h, qint64 offset);
    // The Pascal string at the offset, or an empty one when size <= offset + 1
    // or size <= offset + length byte.
    PString Handle_ReadPString(const QVResourceHandle &h, qint64 offset);
    // `length` raw bytes from the offset when length >= 1, size > offset + 1
    // and size > offset + (the byte at the offset), else all zeros. The copy
    // stops at the end of the data and always leaves the last byte 0.
    ByteString Handle_ReadString(const QVResourceHandle &h, qint64 offset, qint32 length);
    // Write 16 / 32 bits; nothing when size < offset + 2 / size < offset + 8.
    void Handle_WriteShort(const QVResourceHandle &h, qint64 offset, qint16 val);
    void Handle_WriteLong(const QVResourceHandle &h, qint64 offset, qint32 val);

    // Copies a Pascal string (length byte and bytes) into dest (256 bytes).
    void pCopy(unsigned char *destStr, const unsigned char *srcStr);
    // The Pascal string's bytes up to its first zero byte.
    QByteArray toCStr(const unsigned char *ch);
    // Double-byte name (UTF-16BE, characters below 256) to single bytes: clears
    // dest, then copies every non-zero byte of the first
    // min(destSize - 1, sourceLength, sourceSize) source bytes.
    void doubleToSingleConversion(const unsigned char *source, qint32 sourceSize, unsigned char *destSingle,
        qint32 destSize, qint32 sourceLength);
};
