// File names are the bytes the file system holds. Collections copied from old
// Macs carry Mac Roman names that are not UTF-8, and Qt's own file classes
// skip or mangle such names. Paths therefore live in QStrings in a lossless
// form: valid UTF-8 decodes as usual, and every other byte 0x80-0xFF becomes
// the private-use character U+F700 + byte. So that the mapping stays
// one-to-one, a UTF-8 sequence that itself encodes U+F780..U+F7FF is kept as
// escaped bytes too. Every system call on a font's path encodes it back with
// encode(); people see display().
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

class QVFileName
{
public:
    static constexpr char16_t kEscapeBase = 0xF700;

    // The lossless QString form of a name or path as the file system holds it.
    static QString decode(const QByteArray &native);
    static QString decode(const char *native) { return decode(QByteArray(native)); }
    // The bytes for a system call.
    static QByteArray encode(const QString &path);
    // True when the path holds bytes that are not UTF-8.
    static bool hasEscapes(const QString &path);
    // What a person reads: escaped bytes shown as the Mac Roman characters
    // they were written as.
    static QString display(const QString &path);
};
