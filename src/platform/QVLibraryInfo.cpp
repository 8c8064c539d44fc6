#include "platform/QVLibraryInfo.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

QString QVLibraryInfo::freeTypeVersion()
{
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0)
        return QStringLiteral("unknown");
    FT_Int major = 0, minor = 0, patch = 0;
    FT_Library_Version(library, &major, &minor, &patch);
    FT_Done_FreeType(library);
    return QStringLiteral("%1.%2.%3").arg(major).arg(minor).arg(patch);
}

QString QVLibraryInfo::fontconfigVersion()
{
    // Encoded as major * 10000 + minor * 100 + revision.
    const int version = FcGetVersion();
    return QStringLiteral("%1.%2.%3").arg(version / 10000).arg(version / 100 % 100).arg(version % 100);
}
