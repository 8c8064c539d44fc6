#include "engine/QVMemoryHandler.h"

#include "engine/QVResourceManager.h"

#include <QtGlobal>
#include <cstring>

namespace
{

// The shared result buffers (see the header).
unsigned char gPString[QVMemoryHandler::kPStringBufferSize];
unsigned char gString[QVMemoryHandler::kStringBufferSize];
char gCString[QVMemoryHandler::kCStringBufferSize];

// A null handle is a caller's mistake, never the file's: stop in debug builds.
#define QV_REQUIRE_HANDLE(h, where, result)                                                                  \
    do {                                                                                                     \
        Q_ASSERT_X((h) != nullptr, where, "h != NULL");                                                      \
        if (!(h))                                                                                            \
            return result;                                                                                   \
    } while (false)

// Whether [offset, offset + length) lies inside the handle's bytes.
bool fits(const QVResourceHandle &h, qint64 offset, qint64 length)
{
    return offset >= 0 && length >= 0 && offset <= h->data.size() && length <= h->data.size() - offset;
}

const quint8 *bytes(const QVResourceHandle &h)
{
    return reinterpret_cast<const quint8 *>(h->data.constData());
}

// HLock/HUnlock around each read.
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

qint32 readShortAt(const QVResourceHandle &h, qint64 offset)
{
    const quint8 *p = bytes(h) + offset;
    return qint16(quint16((p[0] << 8) | p[1]));
}

} // namespace

qint32 QVMemoryHandler::Handle_ReadShort(const QVResourceHandle &h, qint64 offset)
{
    if (!h || !fits(h, offset, 2))
        return 0;
    HandleLock lock(h);
    return readShortAt(h, offset);
}

qint32 QVMemoryHandler::Handle_ReadUnsignedShort(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadUnsignedShort", 0);
    if (!fits(h, offset, 2))
        return 0;
    HandleLock lock(h);
    // Sign-extended like the signed read, whatever the name says.
    return readShortAt(h, offset);
}

qint32 QVMemoryHandler::Handle_ReadLong(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadLong", 0);
    // Eight bytes are asked for a four-byte value: a long in the last 4 to 7
    // bytes reads 0. The checks built on this reader rely on that.
    if (!fits(h, offset, 8))
        return 0;
    HandleLock lock(h);
    const quint8 *p = bytes(h) + offset;
    return qint32((quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]));
}

qint32 QVMemoryHandler::Handle_ReadChar(const QVResourceHandle &h, qint64 offset)
{
    QV_REQUIRE_HANDLE(h, "Handle_ReadChar", 0);
    if (!fits(h, offset, 1))
        return 0;
    HandleLock lock(h);
    return qint8(bytes(h)[offset]);
}

const unsigned char *QVMemoryHandler::Handle_ReadPString(const QVResourceHandle &h, qint64 offset)
{
    // The shared buffer is written under the layer's lock (callers hold it to read it).
    std::lock_guard guard(QVResourceManager::lock());
    std::memset(gPString, 0, sizeof gPString);
    QV_REQUIRE_HANDLE(h, "Handle_ReadPString", gPString);
    const qint64 size = h->data.size();
    if (offset < 0 || !(size > offset + 1))
        return gPString;
    HandleLock lock(h);
    const int length = bytes(h)[offset];
    if (!(size > offset + length))
        return gPString;
    std::memcpy(gPString, bytes(h) + offset, size_t(length) + 1);
    return gPString;
}

const unsigned char *QVMemoryHandler::Handle_ReadString(
    const QVResourceHandle &h, qint64 offset, qint32 length)
{
    std::lock_guard guard(QVResourceManager::lock());
    std::memset(gString, 0, sizeof gString);
    QV_REQUIRE_HANDLE(h, "Handle_ReadString", gString);
    const qint64 size = h->data.size();
    if (length < 1 || offset < 0 || !(size > offset + 1))
        return gString;
    HandleLock lock(h);
    // The byte at the offset is tested as if it were a length byte.
    if (!(size > offset + bytes(h)[offset]))
        return gString;
    const qint64 count = qMin<qint64>(qMin<qint64>(length, size - offset), kStringBufferSize - 1);
    std::memcpy(gString, bytes(h) + offset, size_t(count));
    return gString;
}

void QVMemoryHandler::Handle_WriteShort(const QVResourceHandle &h, qint64 offset, qint16 val)
{
    if (!h || !fits(h, offset, 2))
        return;
    HandleLock lock(h);
    char *p = h->data.data() + offset;
    p[0] = char(quint16(val) >> 8);
    p[1] = char(val);
}

void QVMemoryHandler::Handle_WriteLong(const QVResourceHandle &h, qint64 offset, qint32 val)
{
    if (!h || !fits(h, offset, 8))
        return;
    HandleLock lock(h);
    char *p = h->data.data() + offset;
    const auto v = quint32(val);
    p[0] = char(v >> 24);
    p[1] = char(v >> 16);
    p[2] = char(v >> 8);
    p[3] = char(v);
}

void QVMemoryHandler::pCopy(unsigned char *destStr, const unsigned char *srcStr)
{
    Q_ASSERT_X(destStr != nullptr, "pCopy", "destStr != NULL");
    Q_ASSERT_X(srcStr != nullptr, "pCopy", "srcStr != NULL");
    if (!destStr || !srcStr)
        return;
    std::memmove(destStr, srcStr, size_t(srcStr[0]) + 1);
}

const char *QVMemoryHandler::toCStr(const unsigned char *ch)
{
    // The shared buffer is written under the layer's lock (callers hold it to read it).
    std::lock_guard guard(QVResourceManager::lock());
    std::memset(gCString, 0, sizeof gCString);
    Q_ASSERT_X(ch != nullptr, "toCStr", "ch != NULL");
    if (!ch)
        return gCString;
    std::memcpy(gCString, ch + 1, ch[0]);
    return gCString;
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
