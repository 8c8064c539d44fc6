#include "cli/QVJsonStream.h"

#include <QIODevice>
#include <QJsonArray>
#include <algorithm>
#include <cmath>

namespace
{

// Written out once the buffer holds this much.
constexpr qsizetype kFlushSize = 64 * 1024;

void indent(QByteArray &out, size_t depth)
{
    out.append(qsizetype(depth * 4), ' ');
}

// As QJsonDocument writes a string: UTF-8, with quotes, backslashes and
// control characters escaped.
void string(QByteArray &out, const QString &text)
{
    static const char hex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        switch (u) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (u < 0x20) {
                out += "\\u00";
                out += hex[u >> 4];
                out += hex[u & 0xf];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void value(QByteArray &out, const QJsonValue &v, size_t depth)
{
    switch (v.type()) {
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out += "null";
        break;
    case QJsonValue::Bool:
        out += v.toBool() ? "true" : "false";
        break;
    case QJsonValue::Double: {
        const double d = v.toDouble();
        if (!std::isfinite(d))
            out += "null";
        else if (d == std::trunc(d) && std::fabs(d) < 9007199254740992.0)
            out += QByteArray::number(qint64(d));
        else
            out += QByteArray::number(d, 'g', QLocale::FloatingPointShortest);
        break;
    }
    case QJsonValue::String:
        string(out, v.toString());
        break;
    case QJsonValue::Array: {
        const QJsonArray array = v.toArray();
        out += "[\n";
        for (qsizetype i = 0; i < array.size(); ++i) {
            indent(out, depth + 1);
            value(out, array.at(i), depth + 1);
            out += i + 1 < array.size() ? ",\n" : "\n";
        }
        indent(out, depth);
        out += ']';
        break;
    }
    case QJsonValue::Object: {
        const QJsonObject object = v.toObject();
        out += "{\n";
        for (auto it = object.begin(); it != object.end(); ++it) {
            indent(out, depth + 1);
            string(out, it.key());
            out += ": ";
            value(out, it.value(), depth + 1);
            out += std::next(it) != object.end() ? ",\n" : "\n";
        }
        indent(out, depth);
        out += '}';
        break;
    }
    }
}

} // namespace

QVJsonStream::QVJsonStream(QTextStream &out)
    : m_out(out)
{
}

QVJsonStream::~QVJsonStream()
{
    flush();
}

void QVJsonStream::flush()
{
    // Bytes go to the device itself, after whatever the text stream holds.
    m_out.flush();
    if (QIODevice *device = m_out.device())
        device->write(m_buffer);
    m_buffer.clear();
}

void QVJsonStream::startItem(const QString &key)
{
    if (!m_open.empty()) {
        m_buffer += m_open.back() ? ",\n" : "\n";
        m_open.back() = true;
    }
    indent(m_buffer, m_open.size());
    if (!key.isNull()) {
        string(m_buffer, key);
        m_buffer += ": ";
    }
}

void QVJsonStream::begin(const QString &key, char open)
{
    startItem(key);
    m_buffer += open;
    m_open.push_back(false);
}

void QVJsonStream::end(char close)
{
    m_open.pop_back();
    m_buffer += '\n';
    indent(m_buffer, m_open.size());
    m_buffer += close;
    if (m_open.empty()) {
        m_buffer += '\n';
        flush();
    }
}

void QVJsonStream::beginObject(const QString &key)
{
    begin(key, '{');
}

void QVJsonStream::endObject()
{
    end('}');
}

void QVJsonStream::beginArray(const QString &key)
{
    begin(key, '[');
}

void QVJsonStream::endArray()
{
    end(']');
}

void QVJsonStream::value(const QString &key, const QJsonValue &v)
{
    startItem(key);
    ::value(m_buffer, v, m_open.size());
    if (m_buffer.size() >= kFlushSize)
        flush();
}

void QVJsonStream::members(const QJsonObject &small, std::vector<std::pair<QString, Writer>> streamed)
{
    std::sort(
        streamed.begin(), streamed.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    auto next = streamed.begin();
    for (auto it = small.begin(); it != small.end(); ++it) {
        for (; next != streamed.end() && next->first < it.key(); ++next)
            next->second(*this, next->first);
        value(it.key(), it.value());
    }
    for (; next != streamed.end(); ++next)
        next->second(*this, next->first);
}
