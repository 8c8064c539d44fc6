#include "engine/QVFontConstants.h"

#include "settings/QVStringTable.h"

QString getFontTypeNameKey(int fontType)
{
    switch (fontType) {
    case QVFontType::Bitmap:
        return QStringLiteral("font.type.bitmap");
    case QVFontType::PostScriptType1:
        return QStringLiteral("font.type.ps1");
    case QVFontType::PostScriptType3:
        return QStringLiteral("font.type.ps3");
    case QVFontType::TrueType:
        return QStringLiteral("font.type.truetype");
    case QVFontType::TrueTypeCollection:
        return QStringLiteral("font.type.truetypeCollection");
    case QVFontType::OpenType:
        return QStringLiteral("font.type.opentype");
    default:
        return QString();
    }
}

QString getFontTypeName(int fontType)
{
    const QString key = getFontTypeNameKey(fontType);
    return key.isEmpty() ? QString() : QVStringTable::text(key);
}
