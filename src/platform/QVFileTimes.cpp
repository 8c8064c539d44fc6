#include "platform/QVFileTimes.h"

#include "platform/QVFileName.h"
#include "platform/QVForkStorage.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

QVFileTimes::Times QVFileTimes::of(const QString &path)
{
    Times times;
    struct stat st;
    if (::lstat(QVFileName::encode(path).constData(), &st) != 0)
        return times;
    times.known = true;
    times.accessed[0] = st.st_atim.tv_sec;
    times.accessed[1] = st.st_atim.tv_nsec;
    times.modified[0] = st.st_mtim.tv_sec;
    times.modified[1] = st.st_mtim.tv_nsec;
    return times;
}

int QVFileTimes::set(const QString &path, const Times &times)
{
    struct timespec values[2];
    values[0].tv_sec = times.accessed[0];
    values[0].tv_nsec = long(times.accessed[1]);
    values[1].tv_sec = times.modified[0];
    values[1].tv_nsec = long(times.modified[1]);
    if (::utimensat(AT_FDCWD, QVFileName::encode(path).constData(), values, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    return 0;
}

QVFileTimes QVFileTimes::read(const QString &path)
{
    QVFileTimes result;
    result.m_file = of(path);
    result.m_valid = result.m_file.known;
    result.m_sidecar = of(QVForkStorage::sidecarPath(path));
    result.m_netatalk = of(QVForkStorage::netatalkPath(path));
    return result;
}

int QVFileTimes::apply(const QString &path) const
{
    if (!m_valid)
        return EINVAL;
    int error = set(path, m_file);
    const QString companions[2] = { QVForkStorage::sidecarPath(path), QVForkStorage::netatalkPath(path) };
    const Times *own[2] = { &m_sidecar, &m_netatalk };
    for (int i = 0; i < 2; ++i) {
        if (!of(companions[i]).known)
            continue;
        if (const int companionError = set(companions[i], own[i]->known ? *own[i] : m_file); !error)
            error = companionError;
    }
    return error;
}
