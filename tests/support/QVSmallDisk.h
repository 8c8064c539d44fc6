// A full disk for real: a tmpfs of a few hundred KB mounted on a folder
// (root only, as CI runs), filled to the last byte on request.
#pragma once

#include <QString>

class QVSmallDisk
{
public:
    // Mounts a tmpfs of `kilobytes` on folder (created); mounted() says whether it worked.
    QVSmallDisk(const QString &folder, int kilobytes = 400);
    ~QVSmallDisk();
    QVSmallDisk(const QVSmallDisk &) = delete;
    QVSmallDisk &operator=(const QVSmallDisk &) = delete;

    bool mounted() const { return m_mounted; }
    QString path() const { return m_folder; }
    // Fills the rest of the disk with one file; true when the disk is full afterwards.
    bool fill() const;

private:
    QString m_folder;
    bool m_mounted = false;
};
