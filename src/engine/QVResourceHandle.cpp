#include "engine/QVResourceHandle.h"

#include "engine/QVResourceFile.h"

QVResourceHandle newHandle(qint64 size)
{
    if (size < 0 || size > QVResourceFile::kMaxDataArea)
        return nullptr;
    auto h = std::make_shared<QVResourceHandleData>();
    h->data = QByteArray(qsizetype(size), '\0');
    return h;
}

QVResourceHandle newHandleFromBytes(const QByteArray &bytes)
{
    if (bytes.size() > QVResourceFile::kMaxDataArea)
        return nullptr;
    auto h = std::make_shared<QVResourceHandleData>();
    h->data = bytes;
    return h;
}
