// Big-endian reads and writes in a loaded resource, with range tests, and the
// Pascal-string helpers. Every table check reads font data only through these.
//
// The string results live in three process-wide buffers shared by all
// instances (a 256-byte Pascal string, a 1024-byte byte string, a 256-byte C
// string); each call overwrites its buffer, so copy what you need before the
// next call, and hold QVResouceFork::lock() while using them.
//
// A null handle (or null string pointer) is a programming error: it asserts in
// debug builds and answers 0 / an empty result in release builds. File contents
// never lead to it, and nothing is ever read or written outside a handle's bytes.
#pragma once

#include "engine/QVResourceHandle.h"

class QVMemoryHandler
{
public:
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
    // The shared Pascal-string buffer holding the Pascal string at the offset,
    // or an empty one when size <= offset + 1 or size <= offset + length byte.
    const unsigned char *Handle_ReadPString(const QVResourceHandle &h, qint64 offset);
    // The shared 1024-byte buffer, cleared, then holding `length` raw bytes from
    // the offset when length >= 1, size > offset + 1 and size > offset + (the
    // byte at the offset). The copy stops at the end of the data and always
    // leaves the last buffer byte 0.
    const unsigned char *Handle_ReadString(const QVResourceHandle &h, qint64 offset, qint32 length);
    // Write 16 / 32 bits; nothing when size < offset + 2 / size < offset + 8.
    void Handle_WriteShort(const QVResourceHandle &h, qint64 offset, qint16 val);
    void Handle_WriteLong(const QVResourceHandle &h, qint64 offset, qint32 val);

    // Copies a Pascal string (length byte and bytes) into dest (256 bytes).
    void pCopy(unsigned char *destStr, const unsigned char *srcStr);
    // The Pascal string as a NUL-terminated string in the shared C-string buffer.
    const char *toCStr(const unsigned char *ch);
    // Double-byte name (UTF-16BE, characters below 256) to single bytes: clears
    // dest, then copies every non-zero byte of the first
    // min(destSize - 1, sourceLength, sourceSize) source bytes.
    void doubleToSingleConversion(const unsigned char *source, qint32 sourceSize, unsigned char *destSingle,
        qint32 destSize, qint32 sourceLength);

    static constexpr int kPStringBufferSize = 256;
    static constexpr int kStringBufferSize = 1024;
    static constexpr int kCStringBufferSize = 256;
};
