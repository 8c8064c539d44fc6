#include "reports/QVFontDataExport.h"

#include "engine/QVFontConstants.h"
#include "engine/QVStatus.h"
#include "platform/QVAtomicFile.h"
#include "platform/QVExtendedAttributes.h"
#include "platform/QVFileName.h"
#include "platform/QVForkStorage.h"

#include <cerrno>
#include <cstring>

namespace
{

QString line(const QVStatus &status, const QString &path)
{
    const QString type = getFontTypeName(status.fontType);
    QString style = status.fontStyle;
    // The separator would split the column.
    style.replace(QLatin1Char(','), QLatin1Char(' '));
    switch (status.fontType) {
    case 0: // bitmap: a size, and no foundry
        return QStringLiteral("%1, %2, %3, %4, %5, -, %6, %7\n")
            .arg(type, status.fontName, style, QString::number(status.fontSize), status.PSname,
                QString::number(status.fontVersion), path);
    case 1: // PostScript outlines: no style, no size
    case 2:
        return QStringLiteral("%1, %2, , , %3, %4, %5, %6\n")
            .arg(type, status.fontName, status.PSname, status.fontFoundry,
                QString::number(status.fontVersion), path);
    default:
        return QStringLiteral("%1, %2, %3, , %4, %5, %6, %7\n")
            .arg(type, status.fontName, style, status.PSname, status.fontFoundry,
                QString::number(status.fontVersion), path);
    }
}

} // namespace

QByteArray QVFontDataExport::csv(const QList<QVFontFilePtr> &fontFiles)
{
    QString text = QString::fromLatin1(kHeader);
    for (const QVFontFilePtr &file : fontFiles) {
        if (!file)
            continue;
        for (const QVStatusPtr &status : file->fontStatusArray) {
            // Names the file system holds as other bytes than UTF-8 are shown as read.
            if (status)
                text += line(
                    *status, QVFileName::display(status->fontURL.isEmpty() ? file->URL : status->fontURL));
        }
    }
    return text.toUtf8();
}

QString QVFontDataExport::write(const QList<QVFontFilePtr> &fontFiles, const QString &path)
{
    if (const int error = QVAtomicFile::write(path, csv(fontFiles)))
        return QStringLiteral("%1 could not be written: %2")
            .arg(QVFileName::display(path), QString::fromLocal8Bit(std::strerror(error)));
    // Only an attribute: a sidecar file beside the export would be clutter.
    QByteArray finderInfo(32, '\0');
    std::memcpy(finderInfo.data(), "XLS8XCEL", 8);
    const int status = QVExtendedAttributes::set(path, QVForkStorage::kFinderInfoAttribute, finderInfo);
    if (status != 0 && status != ENOTSUP)
        return QStringLiteral("%1: the file type could not be set (%2)")
            .arg(QVFileName::display(path), QString::fromLocal8Bit(std::strerror(status)));
    return QString();
}
