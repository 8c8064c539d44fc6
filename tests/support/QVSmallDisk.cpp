#include "support/QVSmallDisk.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{

bool run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
}

} // namespace

QVSmallDisk::QVSmallDisk(const QString &folder, int kilobytes)
    : m_folder(folder)
{
    QDir().mkpath(folder);
    m_mounted = ::geteuid() == 0
        && run(QStringLiteral("mount"),
            { QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                QStringLiteral("size=%1k").arg(kilobytes), QStringLiteral("tmpfs"), folder });
}

QVSmallDisk::~QVSmallDisk()
{
    if (m_mounted)
        run(QStringLiteral("umount"), { QStringLiteral("-l"), m_folder });
}

bool QVSmallDisk::fill() const
{
    // dd stops with "No space left on device", which is the point.
    QProcess dd;
    dd.start(QStringLiteral("dd"),
        { QStringLiteral("if=/dev/zero"), QStringLiteral("of=%1/.filler").arg(m_folder),
            QStringLiteral("bs=1k") });
    dd.waitForFinished(60000);
    struct statvfs st;
    return ::statvfs(QFile::encodeName(m_folder).constData(), &st) == 0 && st.f_bavail == 0;
}
