#include "engine/QVSFNTReader.h"

#include <QIODevice>
#include <cstring>

QVSFNTReader::QVSFNTReader(QIODevice &device)
    : m_device(device)
    , m_size(device.size())
{
}

bool QVSFNTReader::readBytes(qint64 pos, qint64 length, QByteArray &out)
{
    out.clear();
    if (pos < 0 || length < 0)
        return false;
    // Reading nothing is never short, wherever it points.
    if (length == 0)
        return true;
    if (pos >= m_size)
        return false;
    // Never ask for more than the file holds, whatever a length field says.
    const qint64 available = qMin(length, m_size - pos);
    if (available > kWindowSize) {
        if (!m_device.seek(pos))
            return false;
        out = m_device.read(available);
        return out.size() == length;
    }
    for (int i = 0; i < 2; ++i) {
        if (m_windows[i].holds(pos, available)) {
            m_lastUsed = i;
            out = m_windows[i].bytes.mid(pos - m_windows[i].start, available);
            return out.size() == length;
        }
    }
    // Refill the window used less recently.
    Window &window = m_windows[1 - m_lastUsed];
    window = Window();
    if (!m_device.seek(pos))
        return false;
    window.bytes = m_device.read(qMin(kWindowSize, m_size - pos));
    window.start = pos;
    m_lastUsed = 1 - m_lastUsed;
    out = window.bytes.mid(0, available);
    return out.size() == length;
}

bool QVSFNTReader::readUInt16(qint64 pos, quint16 &value)
{
    QByteArray bytes;
    if (!readBytes(pos, 2, bytes))
        return false;
    value = quint16((quint8(bytes[0]) << 8) | quint8(bytes[1]));
    return true;
}

bool QVSFNTReader::readUInt32(qint64 pos, quint32 &value)
{
    QByteArray bytes;
    if (!readBytes(pos, 4, bytes))
        return false;
    value = (quint32(quint8(bytes[0])) << 24) | (quint32(quint8(bytes[1])) << 16)
        | (quint32(quint8(bytes[2])) << 8) | quint32(quint8(bytes[3]));
    return true;
}

bool QVSFNTReader::tagAt(qint64 pos, const char tag[4], bool &shortRead)
{
    QByteArray bytes;
    shortRead = !readBytes(pos, 4, bytes);
    return !shortRead && std::memcmp(bytes.constData(), tag, 4) == 0;
}
