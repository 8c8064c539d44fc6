// Whether the user may read a file, the companions that hold its fork and
// Finder info, and folders. A part that cannot be read is not damaged: what
// it holds is simply unknown, so callers report it and leave it alone.
#pragma once

#include <QString>

class QVFileAccess
{
public:
    // The first of the file, its AppleDouble sidecar and its netatalk file
    // that exists but cannot be read for lack of rights; empty when every
    // part can be read. *error gets the errno of the refusal.
    static QString unreadablePart(const QString &path, int *error = nullptr);
    // 0 when the folder can be listed and entered, else the errno.
    static int folderError(const QString &folder);
    static bool isPermissionError(int error);
    // "PATH: cannot be read (REASON)".
    static QString describe(const QString &path, int error);
};
