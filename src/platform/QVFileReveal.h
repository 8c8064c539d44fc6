// Showing a file in the desktop's file manager, selected: the file manager's
// ShowItems call on the session bus, or the file's folder opened when no file
// manager answers it.
#pragma once

#include <QString>

class QVFileReveal
{
public:
    static constexpr const char *kService = "org.freedesktop.FileManager1";
    static constexpr const char *kPath = "/org/freedesktop/FileManager1";

    // Returns at once; the fallback runs when the call fails.
    static void revealInFinder(const QString &path);
};
