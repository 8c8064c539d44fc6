#include "cli/QVJsonStream.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>

namespace
{

QString indent(size_t depth)
{
    return QString(qsizetype(depth * 4), QLatin1Char(' '));
}

} // namespace

QVJsonStream::QVJsonStream(QTextStream &out)
    : m_out(out)
{
}

QVJsonStream::~QVJsonStream()
{
    m_out.flush();
}

void QVJsonStream::startItem(const QString &key)
{
    if (!m_open.empty()) {
        m_out << (m_open.back() ? ",\n" : "\n");
        m_open.back() = true;
    }
    m_out << indent(m_open.size());
    if (!key.isNull())
        m_out << QJsonDocument(QJsonArray { key }).toJson(QJsonDocument::Compact).chopped(1).mid(1) << ": ";
}

void QVJsonStream::begin(const QString &key, char open)
{
    startItem(key);
    m_out << open;
    m_open.push_back(false);
}

void QVJsonStream::end(char close)
{
    m_open.pop_back();
    m_out << '\n' << indent(m_open.size()) << close;
    if (m_open.empty())
        m_out << '\n';
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

void QVJsonStream::value(const QString &key, const QJsonValue &value)
{
    startItem(key);
    // Qt lays the value out inside a one-element array: "[\n    VALUE\n]\n".
    // The value's lines, moved to this depth, are what goes out.
    const QByteArray text = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Indented);
    const QByteArray body = text.sliced(2, text.size() - 5); // "[\n" and "\n]\n"
    const QByteArray extra = indent(m_open.size() - 1).toLatin1();
    bool first = true;
    for (const QByteArray &line : body.split('\n')) {
        // Every line carries Qt's four spaces of the array; the first follows the key.
        if (!first)
            m_out << '\n' << extra;
        m_out << QString::fromUtf8(first ? line.sliced(4) : line);
        first = false;
    }
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
