// The platform font manager as the activation test sees it: FreeType decides
// whether a file is a font it can open, fontconfig holds what is registered.
#pragma once

#include <QString>

class QVFontActivation
{
public:
    // FreeType opens the file's first face (it also reads sfnt and POST
    // resources of Mac files).
    static bool isSupported(const QString &path);
    // fontconfig's current configuration lists the file, in the system or the
    // application set.
    static bool isRegistered(const QString &path);
    // Registers the file for this process only. Whatever this adds must be
    // taken away again with unregisterProcessFonts().
    static bool registerForProcess(const QString &path);
    static void unregisterProcessFonts();
};
