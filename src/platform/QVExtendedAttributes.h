// Thin wrappers over the Linux user extended attributes of a file. Writes and
// removals never follow a symbolic link (a link keeps no user attributes, so
// they fail on one); a new value replaces the old in one call, so the old one
// stays whole when the new one cannot be written.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

class QVExtendedAttributes
{
public:
    // The attribute's value; std::nullopt when absent or unreadable (*error gets
    // errno, 0 when simply absent).
    static std::optional<QByteArray> get(const QString &path, const char *name, int *error = nullptr);
    // 0 or errno (E2BIG / ENOSPC when the value does not fit, ENOTSUP when the
    // file system keeps no user attributes).
    static int set(const QString &path, const char *name, const QByteArray &value);
    // 0, or errno; an absent attribute is not an error.
    static int remove(const QString &path, const char *name);
    // Names of all attributes of the file.
    static QStringList list(const QString &path);
    // Whether the file system holding the path keeps user attributes.
    static bool supported(const QString &path);
};
