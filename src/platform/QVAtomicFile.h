// Rewriting a file so that it is at every moment either wholly its old self or
// wholly its new self: the bytes go to a temporary file beside it, reach the
// disk (fsync), and the temporary file is renamed over the old one; then the
// folder itself is flushed. A full disk or any other failure leaves the old
// file byte for byte as it was.
//
// A target that is a symbolic link is refused, never followed: a sidecar or
// index planted as a link to another file must not make us rewrite that file.
// Every rewrite of a fork, a sidecar, Finder info or an index goes through here.
#pragma once

#include <QByteArray>
#include <QString>

class QVAtomicFile
{
public:
    enum Option {
        NoOption = 0,
        // The folder holding the file must not be a symbolic link either: for
        // folders Quorvel itself names (".AppleDouble", its data folders).
        FolderNotLink = 1,
    };

    // 0 or errno: ELOOP when the file (or, with FolderNotLink, its folder) is
    // a symbolic link, EISDIR / EINVAL when it is not a regular file, ENOSPC
    // when the disk is full. A new file gets 0666 less the umask; an existing
    // one keeps its permissions and, where we may, its owner.
    static int write(const QString &path, const QByteArray &bytes, int options = NoOption);

    // Creates one folder (0777 less the umask) unless it is there. 0, or ELOOP
    // when it is a symbolic link, ENOTDIR when it is something else, or the
    // error of mkdir.
    static int makeFolder(const QString &path);

    // Whether the last component of the path is a symbolic link (lstat: the
    // link itself, not what it names).
    static bool isSymLink(const QString &path);

    // "PATH: reason" for an errno, saying plainly when the path is a link.
    static QString errorText(const QString &path, int error);
};
