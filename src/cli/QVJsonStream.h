// Writes one JSON document a member at a time, laid out exactly as
// QJsonDocument::Indented lays it out (without building its text), so that a list of a hundred thousand
// records goes out as it is produced and never sits in memory whole. Members
// of an object must come in the order QJsonObject sorts keys (by UTF-16 code
// units); the stream writes them in the order given.
#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QTextStream>
#include <functional>
#include <utility>
#include <vector>

class QVJsonStream
{
public:
    explicit QVJsonStream(QTextStream &out);
    ~QVJsonStream();

    void beginObject(const QString &key = QString());
    void endObject();
    void beginArray(const QString &key = QString());
    void endArray();
    // A member (inside an object) or an element (inside an array; no key).
    void value(const QString &key, const QJsonValue &value);
    void element(const QJsonValue &value) { this->value(QString(), value); }

    // The members of `small` and the streamed ones, merged in key order; each
    // streamed member is written by its function, given the key.
    using Writer = std::function<void(QVJsonStream &stream, const QString &key)>;
    void members(const QJsonObject &small, std::vector<std::pair<QString, Writer>> streamed);

private:
    void flush();
    void startItem(const QString &key);
    void begin(const QString &key, char open);
    void end(char close);

    QTextStream &m_out;
    // UTF-8 not yet written.
    QByteArray m_buffer;
    // Per open container: whether it has an item yet.
    std::vector<bool> m_open;
};
