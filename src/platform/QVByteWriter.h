// Big-endian output into a byte array: numbers and bytes appended at its end,
// or numbers written over bytes already inside it (never growing it).
#pragma once

#include <QByteArray>
#include <QByteArrayView>

class QVByteWriter
{
public:
    explicit QVByteWriter(QByteArray &out)
        : m_out(out)
    {
    }

    QVByteWriter &u8(quint8 v)
    {
        m_out.append(char(v));
        return *this;
    }
    QVByteWriter &u16(quint16 v)
    {
        m_out.append(char(v >> 8)).append(char(v));
        return *this;
    }
    QVByteWriter &u32(quint32 v)
    {
        m_out.append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
        return *this;
    }
    QVByteWriter &bytes(QByteArrayView data)
    {
        m_out.append(data);
        return *this;
    }

    // Overwrite the number at pos; false, and nothing written, unless all of
    // its bytes lie inside the array.
    bool setU16(qint64 pos, quint16 v)
    {
        if (!inside(pos, 2))
            return false;
        char *p = m_out.data() + pos;
        p[0] = char(v >> 8);
        p[1] = char(v);
        return true;
    }
    bool setU32(qint64 pos, quint32 v)
    {
        if (!inside(pos, 4))
            return false;
        char *p = m_out.data() + pos;
        p[0] = char(v >> 24);
        p[1] = char(v >> 16);
        p[2] = char(v >> 8);
        p[3] = char(v);
        return true;
    }

private:
    bool inside(qint64 pos, qint64 length) const { return pos >= 0 && pos <= m_out.size() - length; }

    QByteArray &m_out;
};
