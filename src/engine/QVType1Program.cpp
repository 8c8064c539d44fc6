#include "engine/QVType1Program.h"

#include "platform/QVByteReader.h"

#include <optional>

namespace
{

constexpr qsizetype kMaxValueBytes = 255;
constexpr quint8 kSegmentMarker = 0x80;
constexpr quint8 kTextSegment = 1;
constexpr quint8 kBinarySegment = 2;
constexpr quint8 kEndSegment = 3;

bool isWhite(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\0';
}

bool isDelimiter(char c)
{
    return isWhite(c) || c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{'
        || c == '}' || c == '/' || c == '%';
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// A segment length is stored least significant byte first.
std::optional<quint32> littleEndian32(QVByteReader &reader)
{
    const auto bytes = reader.bytes(4);
    if (!bytes)
        return std::nullopt;
    const auto *p = reinterpret_cast<const uchar *>(bytes->data());
    return quint32(p[0]) | (quint32(p[1]) << 8) | (quint32(p[2]) << 16) | (quint32(p[3]) << 24);
}

} // namespace

QVType1Program::QVType1Program(QByteArrayView file)
{
    QByteArray encrypted;
    m_segmented = !file.isEmpty() && quint8(file.at(0)) == kSegmentMarker;
    if (m_segmented)
        readSegments(file, encrypted);
    else
        readText(file, encrypted);
    m_hasHeader = m_clear.startsWith("%!PS-AdobeFont") || m_clear.startsWith("%!FontType1");
    checkEncrypted(encrypted);
}

void QVType1Program::readSegments(QByteArrayView file, QByteArray &encrypted)
{
    QVByteReader reader(file);
    bool binarySeen = false;
    while (reader.remaining() > 0) {
        const auto marker = reader.u8();
        const auto type = reader.u8();
        if (!marker || !type || *marker != kSegmentMarker
            || (*type != kTextSegment && *type != kBinarySegment && *type != kEndSegment)) {
            m_segmentsSound = false;
            return;
        }
        if (*type == kEndSegment)
            return;
        const auto length = littleEndian32(reader);
        if (!length) {
            m_segmentsSound = false;
            return;
        }
        // A length past the end is a defect; what the file does hold is still
        // read for the names it carries.
        const qint64 held = qMin<qint64>(*length, reader.remaining());
        if (held < qint64(*length))
            m_segmentsSound = false;
        const auto content = reader.bytes(held);
        if (!content) {
            m_segmentsSound = false;
            return;
        }
        if (*type == kBinarySegment) {
            binarySeen = true;
            encrypted.append(*content);
        } else if (!binarySeen) {
            m_clear.append(*content);
        }
        if (!m_segmentsSound)
            return;
    }
    // A file ending after its last segment without the end marker is read
    // the same way by every interpreter: not a defect.
}

void QVType1Program::readText(QByteArrayView file, QByteArray &encrypted)
{
    const qsizetype eexec = file.indexOf(QByteArrayView("eexec"));
    if (eexec < 0) {
        m_clear = file.toByteArray();
        return;
    }
    qsizetype at = eexec + 5;
    m_clear = file.first(at).toByteArray();
    while (at < file.size() && isWhite(file.at(at)))
        ++at;
    const QByteArrayView rest = file.sliced(at);
    bool hex = rest.size() >= 4;
    for (qsizetype i = 0; hex && i < 4; ++i)
        hex = hexDigit(rest.at(i)) >= 0;
    if (!hex) {
        encrypted = rest.toByteArray();
        return;
    }
    encrypted.reserve(rest.size() / 2);
    int high = -1;
    for (const char c : rest) {
        const int digit = hexDigit(c);
        if (digit < 0) {
            if (isWhite(c))
                continue;
            break;
        }
        if (high < 0) {
            high = digit;
        } else {
            encrypted.append(char((high << 4) | digit));
            high = -1;
        }
    }
}

void QVType1Program::checkEncrypted(const QByteArray &encrypted)
{
    m_encryptedLength = encrypted.size();
    // The fixed key of the encrypted part; its first four bytes are random.
    // Unsigned 32-bit arithmetic: quint16 operands would promote to int and overflow.
    constexpr quint32 kKey = 55665, kC1 = 52845, kC2 = 22719;
    QByteArray plain(encrypted.size(), Qt::Uninitialized);
    quint32 r = kKey;
    for (qsizetype i = 0; i < encrypted.size(); ++i) {
        const quint32 cipher = quint8(encrypted.at(i));
        plain[i] = char(cipher ^ (r >> 8));
        r = ((cipher + r) * kC1 + kC2) & 0xffffu;
    }
    m_encryptedSound
        = encrypted.size() > 4 && plain.indexOf("/Private", 4) >= 0 && plain.indexOf("/CharStrings", 4) >= 0;
}

QByteArray QVType1Program::value(const char *key) const
{
    const QByteArray pattern = QByteArray("/").append(key);
    for (qsizetype at = m_clear.indexOf(pattern); at >= 0; at = m_clear.indexOf(pattern, at + 1)) {
        qsizetype i = at + pattern.size();
        // "/FontName" must not be the start of a longer name.
        if (i < m_clear.size() && !isDelimiter(m_clear.at(i)))
            continue;
        while (i < m_clear.size() && isWhite(m_clear.at(i)))
            ++i;
        if (i >= m_clear.size())
            break;
        QByteArray result;
        if (m_clear.at(i) == '/') {
            for (++i; i < m_clear.size() && !isDelimiter(m_clear.at(i)) && result.size() < kMaxValueBytes;
                 ++i)
                result.append(m_clear.at(i));
            return result;
        }
        if (m_clear.at(i) == '(') {
            // A string: balanced parentheses, with backslash escapes.
            int depth = 1;
            for (++i; i < m_clear.size() && result.size() < kMaxValueBytes; ++i) {
                char c = m_clear.at(i);
                if (c == '\\' && i + 1 < m_clear.size()) {
                    c = m_clear.at(++i);
                } else if (c == '(') {
                    ++depth;
                } else if (c == ')' && --depth == 0) {
                    break;
                }
                result.append(c);
            }
            return result;
        }
    }
    return QByteArray();
}

QByteArray QVType1Program::headerComments() const
{
    constexpr qsizetype kMaxCommentBytes = 4096;
    QByteArray comments;
    for (qsizetype at = 0;
         at < m_clear.size() && m_clear.at(at) == '%' && comments.size() < kMaxCommentBytes;) {
        qsizetype end = at;
        while (end < m_clear.size() && m_clear.at(end) != '\n' && m_clear.at(end) != '\r')
            ++end;
        // Not the first line: "%!PS-AdobeFont" names a format, not a foundry.
        if (m_clear.at(qMin(at + 1, m_clear.size() - 1)) != '!')
            comments.append(m_clear.mid(at, end - at)).append('\n');
        at = end;
        while (at < m_clear.size() && (m_clear.at(at) == '\n' || m_clear.at(at) == '\r'))
            ++at;
    }
    return comments;
}
