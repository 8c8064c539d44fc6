#include "store/QVPropertyList.h"

#include "platform/QVAtomicFile.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>
#include <cstring>

namespace
{

constexpr int kMaxDepth = 64;

void writeValue(QXmlStreamWriter &writer, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        writer.writeStartElement(QStringLiteral("dict"));
        const QVariantMap map = value.toMap();
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            writer.writeTextElement(QStringLiteral("key"), it.key());
            writeValue(writer, it.value());
        }
        writer.writeEndElement();
        break;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        writer.writeStartElement(QStringLiteral("array"));
        const QVariantList list = value.toList();
        for (const QVariant &item : list)
            writeValue(writer, item);
        writer.writeEndElement();
        break;
    }
    case QMetaType::Bool:
        writer.writeEmptyElement(value.toBool() ? QStringLiteral("true") : QStringLiteral("false"));
        break;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
        writer.writeTextElement(QStringLiteral("integer"), QString::number(value.toLongLong()));
        break;
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        writer.writeTextElement(QStringLiteral("integer"), QString::number(value.toULongLong()));
        break;
    case QMetaType::Double:
    case QMetaType::Float:
        writer.writeTextElement(QStringLiteral("real"), QString::number(value.toDouble(), 'g', 17));
        break;
    case QMetaType::QDateTime:
        writer.writeTextElement(QStringLiteral("date"),
            value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ")));
        break;
    case QMetaType::QByteArray:
        writer.writeTextElement(QStringLiteral("data"), QString::fromLatin1(value.toByteArray().toBase64()));
        break;
    default:
        writer.writeTextElement(QStringLiteral("string"), value.toString());
        break;
    }
}

class Reader
{
public:
    explicit Reader(const QByteArray &xml)
        : m_xml(xml)
    {
    }

    QVariant read(QString *error)
    {
        QVariant root;
        // Find <plist>, then its one value.
        while (m_xml.readNextStartElement()) {
            if (m_xml.name() != QLatin1String("plist")) {
                m_xml.raiseError(QStringLiteral("not a property list"));
                break;
            }
            if (!m_xml.readNextStartElement()) {
                if (!m_xml.hasError())
                    m_xml.raiseError(QStringLiteral("empty property list"));
                break;
            }
            root = readValue(0);
            break;
        }
        if (m_xml.hasError()) {
            if (error)
                *error = QStringLiteral("%1 (line %2)")
                             .arg(m_xml.errorString(), QString::number(m_xml.lineNumber()));
            return QVariant();
        }
        return root;
    }

private:
    // The reader is on the value's start element; leaves it on its end element.
    QVariant readValue(int depth)
    {
        if (depth > kMaxDepth) {
            m_xml.raiseError(QStringLiteral("property list nested too deeply"));
            return QVariant();
        }
        const auto name = m_xml.name();
        if (name == QLatin1String("dict"))
            return readDict(depth);
        if (name == QLatin1String("array"))
            return readArray(depth);
        if (name == QLatin1String("true") || name == QLatin1String("false")) {
            const bool value = name == QLatin1String("true");
            m_xml.skipCurrentElement();
            return value;
        }
        if (name == QLatin1String("string"))
            return m_xml.readElementText();
        if (name == QLatin1String("integer")) {
            const QString text = m_xml.readElementText().trimmed();
            bool ok = false;
            const qlonglong number = text.toLongLong(&ok);
            if (ok)
                return number;
            const qulonglong unsignedNumber = text.toULongLong(&ok);
            if (ok)
                return unsignedNumber;
            m_xml.raiseError(QStringLiteral("bad integer \"%1\"").arg(text));
            return QVariant();
        }
        if (name == QLatin1String("real")) {
            bool ok = false;
            const double number = m_xml.readElementText().trimmed().toDouble(&ok);
            if (!ok)
                m_xml.raiseError(QStringLiteral("bad real"));
            return number;
        }
        if (name == QLatin1String("date")) {
            QDateTime date = QDateTime::fromString(m_xml.readElementText().trimmed(), Qt::ISODate);
            if (!date.isValid())
                m_xml.raiseError(QStringLiteral("bad date"));
            return date;
        }
        if (name == QLatin1String("data"))
            return QByteArray::fromBase64(m_xml.readElementText().toLatin1());
        m_xml.raiseError(QStringLiteral("unknown property list element <%1>").arg(name));
        return QVariant();
    }

    QVariant readDict(int depth)
    {
        QVariantMap map;
        while (m_xml.readNextStartElement()) {
            if (m_xml.name() != QLatin1String("key")) {
                m_xml.raiseError(QStringLiteral("dictionary value without a key"));
                return QVariant();
            }
            const QString key = m_xml.readElementText();
            if (!m_xml.readNextStartElement()) {
                if (!m_xml.hasError())
                    m_xml.raiseError(QStringLiteral("key \"%1\" without a value").arg(key));
                return QVariant();
            }
            const QVariant value = readValue(depth + 1);
            if (m_xml.hasError())
                return QVariant();
            map.insert(key, value);
        }
        return map;
    }

    QVariant readArray(int depth)
    {
        QVariantList list;
        while (m_xml.readNextStartElement()) {
            const QVariant value = readValue(depth + 1);
            if (m_xml.hasError())
                return QVariant();
            list.append(value);
            if (depth == 0)
                salvaged.append(value);
        }
        return list;
    }

public:
    // The complete items of the root array read before any error.
    QVariantList salvaged;

private:
    QXmlStreamReader m_xml;
};

} // namespace

QByteArray QVPropertyList::toXml(const QVariant &root)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(-1); // one tab, as the Mac writes them
    writer.writeStartDocument();
    writer.writeDTD(QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                   "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"));
    writer.writeStartElement(QStringLiteral("plist"));
    writer.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
    writeValue(writer, root);
    writer.writeEndElement();
    writer.writeEndDocument();
    return xml;
}

QVariant QVPropertyList::fromXml(const QByteArray &xml, QString *error)
{
    return Reader(xml).read(error);
}

QVariantList QVPropertyList::salvageList(const QByteArray &xml)
{
    Reader reader(xml);
    reader.read(nullptr);
    return reader.salvaged;
}

QString QVPropertyList::writeFile(const QString &path, const QVariant &root)
{
    // Indexes live in Quorvel's own folders: neither they nor their folder
    // may be links.
    const int error = QVAtomicFile::write(path, toXml(root), QVAtomicFile::FolderNotLink);
    return error ? QVAtomicFile::errorText(path, error) : QString();
}

QVariant QVPropertyList::readFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return QVariant();
    }
    return fromXml(file.readAll(), error);
}
