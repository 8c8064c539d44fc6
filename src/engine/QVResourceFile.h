// The classic resource-fork format, parsed and written in memory: a 16-byte
// header, the data area (each resource a 4-byte length and its bytes) and the
// map (header copy, attributes, type list, reference lists, name list). Plain
// data, no I/O: QVResourceManager reads and writes the bytes through the fork
// storage. Every count and offset read from a fork is checked against the real
// size before use.
#pragma once

#include "engine/QVResourceHandle.h"

#include <QByteArray>
#include <QList>
#include <optional>

class QVResourceFile
{
public:
    struct Entry {
        quint32 type = 0;
        qint16 id = 0;
        QByteArray name; // Mac Roman, no length byte
        bool hasName = false;
        quint8 attributes = 0;
        // The bytes as they are in the file. For a resource with a bad data
        // offset or length `dataValid` is false and `data` is empty.
        QByteArray data;
        bool dataValid = true;
        // The handle given out for this entry, if any.
        QVResourceHandle loaded;
    };

    // Largest data area the 24-bit data offsets can address.
    static constexpr qint64 kMaxDataArea = 0xFFFFFF;
    // Map attribute bits.
    static constexpr quint16 kMapReadOnly = 0x80;

    // Parses a fork. On failure returns std::nullopt and sets *error to the
    // resource error (-199 for a damaged map, -39 for a fork too short to hold
    // a header).
    static std::optional<QVResourceFile> parse(const QByteArray &fork, qint16 *error);
    // A valid fork with no resources: type count stored as 0xFFFF.
    static QByteArray emptyFork();

    // Serialises the map and data. On failure (more data than 24-bit offsets
    // reach, a map over 64 KB) returns an empty array and sets *error.
    QByteArray serialize(qint16 *error) const;

    // Whether every entry's data lay inside the fork when it was parsed.
    bool allDataValid() const;

    // Types in map order, each once.
    QList<quint32> types() const;
    // Number of resources of a type.
    int count(quint32 type) const;
    // Index into entries of the n-th (1-based) resource of a type, or -1.
    int indexOf(quint32 type, int oneBasedIndex) const;
    // Index into entries of the first resource of a type and ID, or -1.
    int find(quint32 type, qint16 id) const;
    // Index into entries of the first resource of a type and name, or -1.
    int findNamed(quint32 type, const QByteArray &name) const;

    QList<Entry> entries;
    quint16 mapAttributes = 0;
    // Bytes 16..255 of the fork (reserved and application data), kept as read.
    QByteArray headerReserve;
};
