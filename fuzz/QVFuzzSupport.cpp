#include "QVFuzzSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

namespace QVFuzz
{

QString setUp()
{
    static QString home;
    if (!home.isNull())
        return home;
    static int argc = 1;
    static char name[] = "quorvel-fuzz";
    static char *argv[] = { name, nullptr };
    static QCoreApplication app(argc, argv);
    // Memory rather than disk where there is a tmpfs: the fork writes flush
    // to the disk (fsync), which is the point in use and a waste here.
    const QString base
        = QFileInfo(QStringLiteral("/dev/shm")).isWritable() ? QStringLiteral("/dev/shm") : QDir::tempPath();
    static QTemporaryDir dir(base + QStringLiteral("/qv-fuzz-XXXXXX"));
    home = dir.path();
    for (const char *variable : { "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME" })
        qputenv(variable, home.toUtf8());
    // Damaged input is expected; its warnings would drown libFuzzer's output.
    QLoggingCategory::setFilterRules(QStringLiteral("*.warning=false\n*.info=false\n*.debug=false"));
    return home;
}

void fail(const char *what)
{
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    // A new file each time: ext4 flushes a file truncated and rewritten in
    // place when it is closed, which would make every run wait for the disk.
    QFile::remove(path);
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::NewOnly) && file.write(bytes) == bytes.size();
}

} // namespace QVFuzz
