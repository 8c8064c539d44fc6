// Small big-endian reads from an open font file. Every read says whether all
// of its bytes were there; nothing is read past the end and nothing is mapped.
#pragma once

#include <QByteArray>
#include <QtGlobal>

class QIODevice;

class QVSFNTReader
{
public:
    explicit QVSFNTReader(QIODevice &device);

    qint64 size() const { return m_size; }
    // Exactly length bytes at pos, or false (out left with what was there).
    bool readBytes(qint64 pos, qint64 length, QByteArray &out);
    bool readUInt16(qint64 pos, quint16 &value);
    bool readUInt32(qint64 pos, quint32 &value);
    // Four bytes compared with a tag such as "name".
    bool tagAt(qint64 pos, const char tag[4], bool &shortRead);

private:
    QIODevice &m_device;
    qint64 m_size;
};
