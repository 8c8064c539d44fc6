#include "platform/QVFontActivation.h"

#include "platform/QVFileName.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <QCoreApplication>
#include <QFile>
#include <mutex>

namespace
{

// fontconfig keeps its configuration for the life of the process; give it
// back when the application ends so that nothing is left allocated.
void releaseFontconfigAtExit()
{
    static std::once_flag once;
    std::call_once(once, [] { qAddPostRoutine([] { FcFini(); }); });
}

} // namespace

bool QVFontActivation::isSupported(const QString &path)
{
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0)
        return false;
    FT_Face face = nullptr;
    const QByteArray encoded = QVFileName::encode(path);
    const bool opened = FT_New_Face(library, encoded.constData(), 0, &face) == 0;
    if (opened)
        FT_Done_Face(face);
    FT_Done_FreeType(library);
    return opened;
}

static bool fontSetHasFile(FcFontSet *fonts, const QByteArray &file)
{
    if (!fonts)
        return false;
    for (int i = 0; i < fonts->nfont; ++i) {
        FcChar8 *name = nullptr;
        if (FcPatternGetString(fonts->fonts[i], FC_FILE, 0, &name) == FcResultMatch && name
            && file == reinterpret_cast<const char *>(name))
            return true;
    }
    return false;
}

bool QVFontActivation::isRegistered(const QString &path)
{
    releaseFontconfigAtExit();
    FcConfig *config = FcConfigGetCurrent();
    if (!config)
        return false;
    const QByteArray file = QVFileName::encode(path);
    return fontSetHasFile(FcConfigGetFonts(config, FcSetSystem), file)
        || fontSetHasFile(FcConfigGetFonts(config, FcSetApplication), file);
}

bool QVFontActivation::registerForProcess(const QString &path)
{
    releaseFontconfigAtExit();
    const QByteArray file = QVFileName::encode(path);
    if (FcConfigAppFontAddFile(nullptr, reinterpret_cast<const FcChar8 *>(file.constData())) != FcTrue)
        return false;
    // fontconfig answers yes for a file it scanned without finding a face; only
    // a listed face counts as registered.
    return fontSetHasFile(FcConfigGetFonts(nullptr, FcSetApplication), file);
}

void QVFontActivation::unregisterProcessFonts()
{
    releaseFontconfigAtExit();
    FcConfigAppFontClear(nullptr);
}
