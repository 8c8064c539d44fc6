// Moves, copies, renames and deletes a file together with its resource fork
// and Finder info, wherever they live: the AppleDouble sidecar and netatalk
// file travel with it, extended attributes are kept (copied across file
// systems). Every file operation on fonts goes through here, so a font never
// loses its fork.
//
// Nothing is overwritten: a destination (or a companion at the destination)
// that exists is an error. A companion that is a symbolic link, at the source
// or the destination, refuses the operation (ELOOP): links are never followed
// for moving or deleting. On failure the source is left as it was.
#pragma once

#include <QString>
#include <QStringList>

class QVFilePair
{
public:
    struct Result {
        // errno of the failing step (0 on success).
        int error = 0;
        // User-readable text, empty on success.
        QString message;
        explicit operator bool() const { return error == 0; }
    };

    // Moves (renames, or copies and deletes across file systems) `from` to the
    // full destination path `to`.
    static Result move(const QString &from, const QString &to);
    // Copies `from` to `to` with its fork, Finder info and attributes.
    static Result copy(const QString &from, const QString &to);
    // Renames within the folder.
    static Result rename(const QString &path, const QString &newName);
    // Deletes the file and its companions.
    static Result remove(const QString &path);
    // Moves the file to the desktop trash, then its companions (each gets its
    // own trash entry remembering its original place, so a restore puts
    // them back together). *trashedPath gets the file's place in the trash.
    static Result moveToTrash(const QString &path, QString *trashedPath = nullptr);

    // The paths a file's metadata occupies besides the file itself (existing
    // ones only); a privileged move or delete must handle these as well.
    static QStringList companions(const QString &path);
    // Where each companion of `from` goes when the file goes to `to`, in the
    // order of companions(from).
    static QStringList companionDestinations(const QString &from, const QString &to);
};
