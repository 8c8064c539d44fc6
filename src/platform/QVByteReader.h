// A cursor over bytes read from a file the program does not trust: big-endian
// numbers and runs of bytes, each read whole or not at all. The first read or
// move that does not fit fails the reader for good, so that a run of reads can
// be checked once with ok() at its end. Nothing is copied; the bytes must
// outlive the reader.
#pragma once

#include <QByteArrayView>
#include <optional>

class QVByteReader
{
public:
    QVByteReader() = default;
    explicit QVByteReader(QByteArrayView data)
        : m_data(data)
    {
    }

    qint64 size() const { return m_data.size(); }
    qint64 pos() const { return m_pos; }
    // Bytes from the cursor to the end; none once the reader has failed.
    qint64 remaining() const { return m_failed ? 0 : m_data.size() - m_pos; }
    bool ok() const { return !m_failed; }
    // Whether [pos, pos + length) lies inside the data, whatever the cursor.
    bool has(qint64 pos, qint64 length) const
    {
        return pos >= 0 && length >= 0 && pos <= m_data.size() && length <= m_data.size() - pos;
    }

    // A reader over the same bytes with its cursor at pos; failed when pos lies
    // outside them or this reader has failed.
    QVByteReader at(qint64 pos) const
    {
        QVByteReader other = *this;
        other.seek(pos);
        return other;
    }
    // The cursor to pos (0 to size) or n bytes on (never backwards).
    bool seek(qint64 pos)
    {
        if (m_failed || !has(pos, 0))
            return fail();
        m_pos = pos;
        return true;
    }
    bool skip(qint64 n)
    {
        const uchar *p = nullptr;
        return take(n, p);
    }

    std::optional<quint8> u8()
    {
        const uchar *p = nullptr;
        return take(1, p) ? std::optional<quint8>(p[0]) : std::nullopt;
    }
    std::optional<qint8> i8()
    {
        const auto v = u8();
        return v ? std::optional<qint8>(qint8(*v)) : std::nullopt;
    }
    std::optional<quint16> u16()
    {
        const uchar *p = nullptr;
        return take(2, p) ? std::optional<quint16>(quint16((p[0] << 8) | p[1])) : std::nullopt;
    }
    std::optional<qint16> i16()
    {
        const auto v = u16();
        return v ? std::optional<qint16>(qint16(*v)) : std::nullopt;
    }
    std::optional<quint32> u32()
    {
        const uchar *p = nullptr;
        if (!take(4, p))
            return std::nullopt;
        return (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
    }
    std::optional<qint32> i32()
    {
        const auto v = u32();
        return v ? std::optional<qint32>(qint32(*v)) : std::nullopt;
    }
    // The next n bytes, without a copy.
    std::optional<QByteArrayView> bytes(qint64 n)
    {
        const uchar *p = nullptr;
        return take(n, p) ? std::optional<QByteArrayView>(QByteArrayView(p, n)) : std::nullopt;
    }

private:
    bool fail()
    {
        m_failed = true;
        return false;
    }
    // Points p at the next n bytes and moves the cursor past them; false (and
    // failed) when they are not all there.
    bool take(qint64 n, const uchar *&p)
    {
        if (m_failed || !has(m_pos, n))
            return fail();
        // A null view holds no bytes: nothing is added to its null pointer.
        p = m_data.data() ? reinterpret_cast<const uchar *>(m_data.data()) + m_pos : nullptr;
        m_pos += n;
        return true;
    }

    QByteArrayView m_data;
    qint64 m_pos = 0;
    bool m_failed = false;
};
