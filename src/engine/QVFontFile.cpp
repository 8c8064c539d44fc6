#include "engine/QVFontFile.h"

#include <QCborMap>
#include <QCborValue>

QVFontFile::QVFontFile(const QString &url)
    : URL(url)
{
}

bool QVFontFile::copiedOrMoved() const
{
    return fileMovedToQuarantine || fileMovedToLibrary || fileCopiedToLibrary;
}

bool QVFontFile::hasErrors() const
{
    return !fileMovedToLibraryErrorInfo.isNull() || !fileCopiedToLibraryErrorInfo.isNull();
}

std::shared_ptr<QVFontFile> QVFontFile::copy() const
{
    return std::make_shared<QVFontFile>(*this);
}

QByteArray QVFontFile::encode() const
{
    QCborMap map;
    if (!URL.isNull())
        map.insert(QStringLiteral("URL"), URL);
    map.insert(QStringLiteral("fontFileType"), qint64(fontFileType));
    if (!macTypeCode.isNull())
        map.insert(QStringLiteral("macTypeCode"), macTypeCode);
    return map.toCborValue().toCbor();
}

std::shared_ptr<QVFontFile> QVFontFile::decode(const QByteArray &archive)
{
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(archive, &error);
    if (error.error != QCborError::NoError || !value.isMap())
        return nullptr;
    const QCborMap map = value.toMap();
    auto file = std::make_shared<QVFontFile>();
    const QCborValue url = map.value(QStringLiteral("URL"));
    if (url.isString())
        file->URL = url.toString();
    file->fontFileType = qint32(map.value(QStringLiteral("fontFileType")).toInteger());
    const QCborValue type = map.value(QStringLiteral("macTypeCode"));
    if (type.isString())
        file->macTypeCode = type.toString();
    return file;
}
