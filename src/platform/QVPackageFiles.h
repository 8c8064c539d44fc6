// The files that belong to the system: those an installed package owns, as the
// package manager lists them (/var/lib/dpkg/info/*.list). Quorvel examines and
// reports them but never moves, renames or deletes them, whoever runs it.
#pragma once

#include <QString>

class QVPackageFiles
{
public:
    // Whether an installed package owns the file, under the path given or the
    // one it resolves to. The lists are read once, on first use.
    static bool isPackageFile(const QString &path);
    // The folder whose *.list files name the owned files; they are read again
    // on the next question. Tests point it at lists of their own.
    static void setListFolder(const QString &folder);
    static QString listFolder();
    // Why the file stays where it is: "PATH belongs to an installed package ...".
    static QString refusal(const QString &path);
};
