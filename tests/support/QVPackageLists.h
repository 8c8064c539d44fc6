// Points the package ownership look-up at lists a test writes, for as long as
// the object lives.
#pragma once

#include "platform/QVPackageFiles.h"

#include <QString>

class QVPackageLists
{
public:
    explicit QVPackageLists(const QString &folder)
        : m_saved(QVPackageFiles::listFolder())
    {
        QVPackageFiles::setListFolder(folder);
    }
    ~QVPackageLists() { QVPackageFiles::setListFolder(m_saved); }
    QVPackageLists(const QVPackageLists &) = delete;
    QVPackageLists &operator=(const QVPackageLists &) = delete;

private:
    QString m_saved;
};
