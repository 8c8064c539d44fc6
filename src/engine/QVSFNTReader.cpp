#include "engine/QVSFNTReader.h"

#include <QIODevice>
#include <cstring>

QVSFNTReader::QVSFNTReader(QIODevice &device)
    : m_device(device)
    , m_size(device.size())
{
}

const char *QVSFNTReader::peek(qint64 pos, qint64 length)
{
    if (pos < 0 || length <= 0 || length > kWindowSize || pos >= m_size || length > m_size - pos)
        return nullptr;
    for (int i = 0; i < 2; ++i) {
        if (m_windows[i].holds(pos, length)) {
            m_lastUsed = i;
            return m_windows[i].bytes.constData() + (pos - m_windows[i].start);
        }
    }
    // Refill the window used less recently.
    Window &window = m_windows[1 - m_lastUsed];
    window = Window();
    if (!m_device.seek(pos))
        return nullptr;
    window.bytes = m_device.read(qMin(kWindowSize, m_size - pos));
    window.start = pos;
    m_lastUsed = 1 - m_lastUsed;
    return window.holds(pos, length) ? window.bytes.constData() : nullptr;
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
    if (const char *bytes = peek(pos, available))
        out = QByteArray(bytes, available);
    return out.size() == length;
}

bool QVSFNTReader::readUInt16(qint64 pos, quint16 &value)
{
    const auto *p = reinterpret_cast<const quint8 *>(peek(pos, 2));
    if (!p)
        return false;
    value = quint16((p[0] << 8) | p[1]);
    return true;
}

bool QVSFNTReader::readUInt32(qint64 pos, quint32 &value)
{
    const auto *p = reinterpret_cast<const quint8 *>(peek(pos, 4));
    if (!p)
        return false;
    value = (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
    return true;
}

bool QVSFNTReader::tagAt(qint64 pos, const char tag[4], bool &shortRead)
{
    const char *bytes = peek(pos, 4);
    shortRead = !bytes;
    return bytes && std::memcmp(bytes, tag, 4) == 0;
}
