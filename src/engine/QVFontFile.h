// One font file found by a scan, with the status records of the fonts in it.
#pragma once

#include "engine/QVStatus.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <memory>

class QVFontFile
{
public:
    QVFontFile() = default;
    explicit QVFontFile(const QString &url);

    bool copiedOrMoved() const;
    // Whether moving or copying the file into the library failed. Says nothing
    // of font defects.
    bool hasErrors() const;

    // A new record sharing the status records of this one.
    std::shared_ptr<QVFontFile> copy() const;

    // Keyed archive of exactly "URL", "fontFileType" and "macTypeCode": the
    // statuses and the moved/copied flags are not kept, so a restored list is
    // examined again before use.
    QByteArray encode() const;
    static std::shared_ptr<QVFontFile> decode(const QByteArray &archive);

    // Absolute path of the font file.
    QString URL;
    // 0: the file has a resource fork; 1: a data-fork font.
    qint32 fontFileType = 0;
    QString macTypeCode;
    QList<QVStatusPtr> fontStatusArray;
    bool fileMovedToQuarantine = false;
    bool fileMovedToLibrary = false;
    bool fileCopiedToLibrary = false;
    // Null when there was no error.
    QString fileMovedToLibraryErrorInfo;
    QString fileCopiedToLibraryErrorInfo;
};

using QVFontFilePtr = std::shared_ptr<QVFontFile>;
