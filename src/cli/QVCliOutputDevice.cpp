#include "cli/QVCliOutputDevice.h"

#include "platform/QVFileName.h"

#include <QString>

QVCliOutputDevice::QVCliOutputDevice(FILE *stream)
    : m_stream(stream)
{
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

qint64 QVCliOutputDevice::writeData(const char *data, qint64 length)
{
    QByteArray bytes = m_pending + QByteArray(data, length);
    m_pending.clear();
    // Keep back a UTF-8 sequence that the next write completes.
    qsizetype cut = bytes.size();
    for (qsizetype back = 1; back <= 3 && back <= bytes.size(); ++back) {
        const unsigned char c = static_cast<unsigned char>(bytes[bytes.size() - back]);
        if ((c & 0xC0) == 0x80)
            continue;
        const int needed = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        if (needed > back)
            cut = bytes.size() - back;
        break;
    }
    m_pending = bytes.mid(cut);
    bytes.truncate(cut);
    const QByteArray shown = QVFileName::display(QString::fromUtf8(bytes)).toUtf8();
    if (std::fwrite(shown.constData(), 1, size_t(shown.size()), m_stream) != size_t(shown.size()))
        return -1;
    std::fflush(m_stream);
    return length;
}
