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
    // Points at length bytes (at most a window) at pos inside a window, or
    // null when they are not all in the file. Small reads copy nothing.
    const char *peek(qint64 pos, qint64 length);

    // Directories, name records and name strings are read through two small
    // windows (the records and the strings they point to alternate), so
    // neighbouring reads cost no further seek; larger reads go straight to
    // the file.
    static constexpr qint64 kWindowSize = 2048;
    struct Window {
        qint64 start = -1;
        QByteArray bytes;
        bool holds(qint64 pos, qint64 length) const
        {
            return start >= 0 && pos >= start && pos + length <= start + bytes.size();
        }
    };

    QIODevice &m_device;
    qint64 m_size;
    Window m_windows[2];
    int m_lastUsed = 0;
};
