// The table directory of one SFNT face, read from the bytes that start at the
// face's first byte, as far as they go: a file's or collection member's
// directory read into memory, or a suitcase's sfnt resource. Every search for
// a face's tables goes through it. A cut-short directory is walked as far as
// it goes; what each caller makes of the missing rest is its own business.
#pragma once

#include "platform/QVByteReader.h"

#include <QByteArrayView>
#include <optional>

class QVSFNTDirectory
{
public:
    explicit QVSFNTDirectory(QByteArrayView face)
        : m_face(face)
    {
    }

    // Bytes of the offset table and `count` entries.
    static qint64 size(quint16 count);

    // The stored table count; none when the data ends before it.
    std::optional<quint16> tableCount() const;
    // How many entries, from the first on, have at least `bytes` of their 16
    // bytes inside the data (whatever the table count says).
    qint64 entriesHolding(qint64 bytes) const;
    // Index of the first (last) of the first `limit` entries whose tag lies
    // whole in the data and is `tag`; -1 when none is.
    qint64 find(const char tag[4], qint64 limit) const;
    qint64 findLast(const char tag[4], qint64 limit) const;
    // A reader at the first byte (the tag) of entry `index`; reads past the
    // data fail.
    QVByteReader entry(qint64 index) const;

private:
    QByteArrayView m_face;
};
