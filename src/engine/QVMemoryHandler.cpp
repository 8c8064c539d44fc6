#include "engine/QVMemoryHandler.h"

#include "platform/QVByteReader.h"
#include "platform/QVByteWriter.h"

#include <QtGlobal>
#include <cstring>

namespace
{

// A null handle is a caller's mistake, never the file's: stop in debug builds.
#define QV_REQUIRE_HANDLE(h, where, result)                                                                  \
    do {                                                                                                     \
        Q_ASSERT_X((h) != nullptr, where, "h != NULL");                                                      \
        if (!(h))                                                                                            \
            return result;                                                                                   \
    } while (false)

// HLock/HUnlock around each access.
struct HandleLock {
    explicit HandleLock(const QVResourceHandle &h)
        : handle(h)
    {
        ++handle->lockCount;
    }
    ~HandleLock() { --handle->lockCount; }
    HandleLock(const HandleLock &) = delete;
    HandleLock &operator=(const HandleLock &) = delete;
    const QVResourceHandle &handle;
};

QVByteReader readerAt(const QVResourceHandle &h, qint64 offset)
{
    return QVByteReader(h->data).at(offset);
}

} // namespace

qint32 QVMemoryHandler::Handle_ReadShort(const QVResourceHandle &h, qint64 offset)
{
    if (!h)
        return 0;
    HandleLock lock(h);
    return readerAt(h, offset).i16().value_or(0);
}

qint32 QVMemoryHandler::Handle_ReadUnsignedShort(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadUnsignedShort", 0);
    HandleLock lock(h);
    // Sign-extended like the signed read, whatever the name says.
    return readerAt(h, offset).i16().value_or(0);
}

qint32 QVMemoryHandler::Handle_ReadLong(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadLong", 0);
    HandleLock lock(h);
    // Eight bytes are asked for a four-byte value: a long in the last 4 to 7
    // bytes reads 0. The checks built on this reader rely on that.
    QVByteReader in = readerAt(h, offset);
    const auto value = in.i32();
    return value && in.remaining() >= 4 ? *value : 0;
}

qint32 QVMemoryHandler::Handle_ReadChar(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadChar", 0);
    HandleLock lock(h);
    return readerAt(h, offset).i8().value_or(0);
}

QVMemoryHandler::PString QVMemoryHandler::Handle_ReadPString(const QVResourceHandle &h, qint64 offset)
{
    PString result {};
    QV_REQUIRE_HANDLE(h, "Handle_ReadPString", result);
    HandleLock lock(h);
    QVByteReader in = readerAt(h, offset);
    // Two bytes are asked for even an empty string.
    if (in.remaining() < 2)
        return result;
    const quint8 length = *in.u8();
    if (const auto text = in.bytes(length)) {
        result[0] = length;
        std::memcpy(result.data() + 1, text->data(), size_t(length));
    }
    return result;
}

QVMemoryHandler::ByteString QVMemoryHandler::Handle_ReadString(
    const QVResourceHandle &h, qint64 offset, qint32 length)
{
    ByteString result {};
    QV_REQUIRE_HANDLE(h, "Handle_ReadString", result);
    HandleLock lock(h);
    QVByteReader in = readerAt(h, offset);
    if (length < 1 || in.remaining() < 2)
        return result;
    // The byte at the offset is tested as if it were a length byte.
    if (in.remaining() <= *in.at(offset).u8())
        return result;
    const qint64 count = qMin<qint64>(qMin<qint64>(length, in.remaining()), kStringBufferSize - 1);
    std::memcpy(result.data(), in.bytes(count)->data(), size_t(count));
    return result;
}

void QVMemoryHandler::Handle_WriteShort(const QVResourceHandle &h, qint64 offset, qint16 val)
{
    if (!h)
        return;
    HandleLock lock(h);
    QVByteWriter(h->data).setU16(offset, quint16(val));
}

void QVMemoryHandler::Handle_WriteLong(const QVResourceHandle &h, qint64 offset, qint32 val)
{
    // Eight bytes are asked for, as by the long read.
    if (!h || !QVByteReader(h->data).has(offset, 8))
        return;
    HandleLock lock(h);
    QVByteWriter(h->data).setU32(offset, quint32(val));
}

void QVMemoryHandler::pCopy(unsigned char *destStr, const unsigned char *srcStr)
{
    Q_ASSERT_X(destStr != nullptr, "pCopy", "destStr != NULL");
    Q_ASSERT_X(srcStr != nullptr, "pCopy", "srcStr != NULL");
    if (!destStr || !srcStr)
        return;
    std::memmove(destStr, srcStr, size_t(srcStr[0]) + 1);
}

QByteArray QVMemoryHandler::toCStr(const unsigned char *ch)
{
    Q_ASSERT_X(ch != nullptr, "toCStr", "ch != NULL");
    if (!ch)
        return QByteArray();
    const auto *text = reinterpret_cast<const char *>(ch + 1);
    return QByteArray(text, qstrnlen(text, ch[0]));
}

void QVMemoryHandler::doubleToSingleConversion(const unsigned char *source, qint32 sourceSize,
    unsigned char *destSingle, qint32 destSize, qint32 sourceLength)
{
    if (!source || !destSingle || destSize < 1)
        return;
    Q_ASSERT_X(!(sourceSize < sourceLength), "doubleToSingleConversion", "!(srcSize < sourceLength)");
    std::memset(destSingle, 0, size_t(destSize));
    const qint32 count = qMin(qMin(destSize - 1, sourceLength), sourceSize);
    qint32 out = 0;
    for (qint32 i = 0; i < count; ++i) {
        if (source[i] != 0)
            destSingle[out++] = source[i];
    }
}
