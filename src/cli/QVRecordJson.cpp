#include "cli/QVRecordJson.h"

#include "cli/QVJsonStream.h"
#include "engine/QVFontDataManager.h"

#include <QJsonArray>

namespace
{

QJsonValue stringOrNull(const QString &text)
{
    return text.isNull() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

} // namespace

QJsonObject QVRecordJson::statusToJson(const QVStatus &status)
{
    QJsonObject object;
    object.insert(QStringLiteral("index"), status.index);
    object.insert(QStringLiteral("parentIndex"), status.parentIndex);
    object.insert(QStringLiteral("fontType"), status.fontType);
    object.insert(QStringLiteral("fontVersion"), status.fontVersion);
    object.insert(QStringLiteral("fontSize"), status.fontSize);
    object.insert(QStringLiteral("fontID"), status.fontID);
    object.insert(QStringLiteral("fontURL"), stringOrNull(status.fontURL));
    object.insert(QStringLiteral("fontName"), stringOrNull(status.fontName));
    object.insert(QStringLiteral("trueTypeFontName"), stringOrNull(status.trueTypeFontName));
    object.insert(QStringLiteral("familyName"), stringOrNull(status.familyName));
    object.insert(QStringLiteral("PSname"), stringOrNull(status.PSname));
    object.insert(QStringLiteral("PS533name"), stringOrNull(status.PS533name));
    object.insert(QStringLiteral("fontStyle"), stringOrNull(status.fontStyle));
    object.insert(QStringLiteral("fontFoundry"), stringOrNull(status.fontFoundry));
    QJsonArray errors;
    for (int code : status.fontErrors)
        errors.append(code);
    object.insert(QStringLiteral("fontErrors"), errors);
    object.insert(QStringLiteral("fontErrorsInfo"), QJsonArray::fromStringList(status.fontErrorsInfo));
    QJsonArray fixed;
    for (bool value : status.fixedErrors)
        fixed.append(value);
    object.insert(QStringLiteral("fixedErrors"), fixed);
    object.insert(
        QStringLiteral("fixedErrorMessages"), QJsonArray::fromStringList(status.fixedErrorMessages));
    object.insert(QStringLiteral("movedToQuarantine"), status.movedToQuarantine);
    object.insert(QStringLiteral("movedSisterToQuarantine"), status.movedSisterToQuarantine);
    object.insert(QStringLiteral("movedToLibrary"), status.movedToLibrary);
    object.insert(QStringLiteral("movedSisterToLibrary"), status.movedSisterToLibrary);
    object.insert(QStringLiteral("copiedToLibrary"), status.copiedToLibrary);
    object.insert(QStringLiteral("copiedSisterToLibrary"), status.copiedSisterToLibrary);
    return object;
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
