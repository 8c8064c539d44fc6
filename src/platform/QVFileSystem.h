// Questions to the file system about a path in QVFileName's form. Qt's own
// file classes encode paths as UTF-8 and so miss files whose names are not;
// whatever looks at a font's path asks here.
#pragma once

#include <QDateTime>
#include <QIODevice>
#include <QString>

class QFile;

class QVFileSystem
{
public:
    // Whether something is there (a link counts as what it points to).
    static bool exists(const QString &path);
    static bool isDirectory(const QString &path);
    static bool isFile(const QString &path);
    // In local time, as QFileInfo gives it; invalid when nothing is there.
    static QDateTime modificationTime(const QString &path);
    // The path with links and "." and ".." resolved; empty when it is not there.
    static QString canonicalPath(const QString &path);
    // Opens the file for reading into `file`. On failure returns false with
    // *error set to errno.
    static bool openForReading(
        QFile &file, const QString &path, QIODevice::OpenMode extra = {}, int *error = nullptr);
};
