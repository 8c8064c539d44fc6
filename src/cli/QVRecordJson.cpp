#include "cli/QVRecordJson.h"

#include "cli/QVJsonStream.h"
#include "engine/QVFontDataManager.h"

#include <QJsonArray>
#include <algorithm>
#include <vector>

namespace
{

QJsonValue stringOrNull(const QString &text)
{
    return text.isNull() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

} // namespace

namespace
{

QJsonArray boolArray(const QList<bool> &values)
{
    QJsonArray array;
    for (bool value : values)
        array.append(value);
    return array;
}

QJsonArray intArray(const QList<int> &values)
{
    QJsonArray array;
    for (int value : values)
        array.append(value);
    return array;
}

struct StatusField {
    QString key;
    QJsonValue (*get)(const QVStatus &status);
};

// Every field of a status, in the order QJsonObject keeps keys, so that a
// stream writes a record exactly as a whole document would.
const std::vector<StatusField> &statusFields()
{
    static const std::vector<StatusField> fields = [] {
        std::vector<StatusField> list {
            { "index", [](const QVStatus &s) { return QJsonValue(s.index); } },
            { "parentIndex", [](const QVStatus &s) { return QJsonValue(s.parentIndex); } },
            { "fontType", [](const QVStatus &s) { return QJsonValue(s.fontType); } },
            { "fontVersion", [](const QVStatus &s) { return QJsonValue(s.fontVersion); } },
            { "fontSize", [](const QVStatus &s) { return QJsonValue(s.fontSize); } },
            { "fontID", [](const QVStatus &s) { return QJsonValue(s.fontID); } },
            { "fontURL", [](const QVStatus &s) { return stringOrNull(s.fontURL); } },
            { "fontName", [](const QVStatus &s) { return stringOrNull(s.fontName); } },
            { "trueTypeFontName", [](const QVStatus &s) { return stringOrNull(s.trueTypeFontName); } },
            { "familyName", [](const QVStatus &s) { return stringOrNull(s.familyName); } },
            { "PSname", [](const QVStatus &s) { return stringOrNull(s.PSname); } },
            { "PS533name", [](const QVStatus &s) { return stringOrNull(s.PS533name); } },
            { "fontStyle", [](const QVStatus &s) { return stringOrNull(s.fontStyle); } },
            { "fontFoundry", [](const QVStatus &s) { return stringOrNull(s.fontFoundry); } },
            { "fontErrors", [](const QVStatus &s) { return QJsonValue(intArray(s.fontErrors)); } },
            { "fontErrorsInfo",
                [](const QVStatus &s) { return QJsonValue(QJsonArray::fromStringList(s.fontErrorsInfo)); } },
            { "fixedErrors", [](const QVStatus &s) { return QJsonValue(boolArray(s.fixedErrors)); } },
            { "fixedErrorMessages",
                [](const QVStatus &s) {
                    return QJsonValue(QJsonArray::fromStringList(s.fixedErrorMessages));
                } },
            { "movedToQuarantine", [](const QVStatus &s) { return QJsonValue(s.movedToQuarantine); } },
            { "movedSisterToQuarantine",
                [](const QVStatus &s) { return QJsonValue(s.movedSisterToQuarantine); } },
            { "movedToLibrary", [](const QVStatus &s) { return QJsonValue(s.movedToLibrary); } },
            { "movedSisterToLibrary", [](const QVStatus &s) { return QJsonValue(s.movedSisterToLibrary); } },
            { "copiedToLibrary", [](const QVStatus &s) { return QJsonValue(s.copiedToLibrary); } },
            { "copiedSisterToLibrary",
                [](const QVStatus &s) { return QJsonValue(s.copiedSisterToLibrary); } },
        };
        std::sort(list.begin(), list.end(), [](const auto &a, const auto &b) { return a.key < b.key; });
        return list;
    }();
    return fields;
}

} // namespace

QJsonObject QVRecordJson::statusToJson(const QVStatus &status)
{
    QJsonObject object;
    for (const StatusField &field : statusFields())
        object.insert(field.key, field.get(status));
    return object;
}

void QVRecordJson::writeFontFile(QVJsonStream &stream, const QVFontFile &file)
{
    // The keys of fontFileToJson, in its order.
    stream.beginObject();
    stream.value(QStringLiteral("URL"), stringOrNull(file.URL));
    stream.value(QStringLiteral("fontFileType"), file.fontFileType);
    stream.beginArray(QStringLiteral("fontStatusArray"));
    for (const QVStatusPtr &status : file.fontStatusArray) {
        stream.beginObject();
        for (const StatusField &field : statusFields())
            stream.value(field.key, field.get(*status));
        stream.endObject();
    }
    stream.endArray();
    stream.value(QStringLiteral("macTypeCode"), stringOrNull(file.macTypeCode));
    stream.endObject();
}

QJsonObject QVRecordJson::fontFileToJson(const QVFontFile &file)
{
    QJsonObject object;
    object.insert(QStringLiteral("URL"), stringOrNull(file.URL));
    object.insert(QStringLiteral("fontFileType"), file.fontFileType);
    object.insert(QStringLiteral("macTypeCode"), stringOrNull(file.macTypeCode));
    QJsonArray statuses;
    for (const QVStatusPtr &status : file.fontStatusArray)
        statuses.append(statusToJson(*status));
    object.insert(QStringLiteral("fontStatusArray"), statuses);
    return object;
}

QJsonObject QVRecordJson::dataManagerToJson(const QVFontDataManager &dataMgr)
{
    QJsonArray files;
    for (const QVFontFilePtr &file : dataMgr.fontFileItems)
        files.append(fontFileToJson(*file));
    QJsonObject root;
    root.insert(QStringLiteral("totalFonts"), qint64(dataMgr.totalFonts));
    root.insert(QStringLiteral("foundProblemFonts"), dataMgr.foundProblemFonts);
    root.insert(QStringLiteral("fontFiles"), files);
    // Files and folders that could not be read: neither sound nor damaged.
    root.insert(QStringLiteral("unreadable"), QJsonArray::fromStringList(dataMgr.unreadablePaths()));
    return root;
}

void QVRecordJson::writeClosingMembers(QVJsonStream &stream, const QVFontDataManager &dataMgr)
{
    stream.value(QStringLiteral("foundProblemFonts"), dataMgr.foundProblemFonts);
    stream.value(QStringLiteral("totalFonts"), qint64(dataMgr.totalFonts));
    stream.value(QStringLiteral("unreadable"), QJsonArray::fromStringList(dataMgr.unreadablePaths()));
}
