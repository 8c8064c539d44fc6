// What the harnesses share: a Qt application, a throw-away home so that
// settings and data never touch the real ones, and a loud failure for a broken
// invariant (libFuzzer keeps the input that caused it).
#pragma once

#include <QByteArray>
#include <QString>

namespace QVFuzz
{
// Once per process: the application object and HOME / XDG folders in a
// temporary directory. Returns the directory.
QString setUp();
// Prints what did not hold and aborts.
[[noreturn]] void fail(const char *what);
inline void check(bool condition, const char *what)
{
    if (!condition)
        fail(what);
}
// Writes bytes to a file (replacing it); false on failure.
bool writeFile(const QString &path, const QByteArray &bytes);
} // namespace QVFuzz
