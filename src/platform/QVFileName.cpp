#include "platform/QVFileName.h"

namespace
{

bool isEscape(char16_t c)
{
    return c >= QVFileName::kEscapeBase + 0x80 && c <= QVFileName::kEscapeBase + 0xFF;
}

// The length of the valid UTF-8 sequence at s[i], 0 when it is not one
// (overlong forms, surrogates and values past U+10FFFF are not).
int utf8Sequence(const QByteArray &s, qsizetype i, char32_t *value)
{
    const auto b = [&](qsizetype k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = b(i);
    int length = 0;
    char32_t v = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        v = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        v = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        v = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > s.size())
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((b(i + k) & 0xC0) != 0x80)
            return 0;
        v = (v << 6) | (b(i + k) & 0x3F);
    }
    if ((length == 3 && v < 0x800) || (length == 4 && (v < 0x10000 || v > 0x10FFFF))
        || (v >= 0xD800 && v <= 0xDFFF))
        return 0;
    *value = v;
    return length;
}

// Mac Roman 0x80-0xFF.
constexpr char16_t kMacRoman[128] = { 0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0,
    0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF,
    0x00F1, 0x00F3, 0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2,
    0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA,
    0x03A9, 0x00E6, 0x00F8, 0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026,
    0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7,
    0x25CA, 0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E,
    0x2030, 0x00C2, 0x00CA, 0x00C1, 0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF,
    0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD,
    0x02DB, 0x02C7 };

} // namespace

QString QVFileName::decode(const QByteArray &native)
{
    QString out;
    out.reserve(native.size());
    for (qsizetype i = 0; i < native.size();) {
        const unsigned char c = static_cast<unsigned char>(native[i]);
        if (c < 0x80) {
            out.append(QChar(c));
            ++i;
            continue;
        }
        char32_t value = 0;
        const int length = utf8Sequence(native, i, &value);
        if (length > 0 && !(value >= kEscapeBase + 0x80 && value <= kEscapeBase + 0xFF)) {
            out.append(QChar::fromUcs4(value));
            i += length;
        } else {
            out.append(QChar(char16_t(kEscapeBase + c)));
            ++i;
        }
    }
    return out;
}

QByteArray QVFileName::encode(const QString &path)
{
    if (!hasEscapes(path))
        return path.toUtf8();
    QByteArray out;
    out.reserve(path.size() * 2);
    qsizetype start = 0;
    for (qsizetype i = 0; i < path.size(); ++i) {
        if (!isEscape(path[i].unicode()))
            continue;
        out.append(QStringView(path).mid(start, i - start).toUtf8());
        out.append(char(path[i].unicode() - kEscapeBase));
        start = i + 1;
    }
    out.append(QStringView(path).mid(start).toUtf8());
    return out;
}

bool QVFileName::hasEscapes(const QString &path)
{
    for (QChar c : path)
        if (isEscape(c.unicode()))
            return true;
    return false;
}

QString QVFileName::display(const QString &path)
{
    QString out = path;
    for (QChar &c : out)
        if (isEscape(c.unicode()))
            c = QChar(kMacRoman[c.unicode() - kEscapeBase - 0x80]);
    return out;
}
