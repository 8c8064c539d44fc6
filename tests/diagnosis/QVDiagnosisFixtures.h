// Font records for the diagnosis tests, as the examiner leaves them, and a
// real outline file for them to point at, made by t1mac.
#pragma once

#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"
#include "support/QVFixtures.h"

#include <QString>
#include <gtest/gtest.h>

namespace qvtest
{

inline const QString kNimbusPSName = QStringLiteral("NimbusSans-Regular");
inline const QString kNimbusPS533Name = QStringLiteral("NimbuSanReg");

// A data manager filled with records built by hand: indexes run from 0 across
// the scan and totalFonts counts the statuses, as after a real scan.
class QVFontLibrary
{
public:
    QVFontFilePtr addFile(const QString &path, qint32 fontFileType, const QString &macTypeCode,
        const QList<QVStatusPtr> &statuses)
    {
        auto file = std::make_shared<QVFontFile>(path);
        file->fontFileType = fontFileType;
        file->macTypeCode = macTypeCode;
        for (const QVStatusPtr &status : statuses) {
            status->index = m_nextIndex++;
            if (status->fontURL.isEmpty())
                status->fontURL = path;
        }
        file->fontStatusArray = statuses;
        dataMgr.fontFileItems.append(file);
        dataMgr.totalFonts += quint32(statuses.size());
        return file;
    }

    QVFontDataManager dataMgr;

private:
    qint32 m_nextIndex = 0;
};

inline QVStatusPtr makeStatus(qint32 fontType, const QString &psName, qint32 fontSize = 0,
    const QString &style = QStringLiteral("Plain"), qint32 version = 0, const QString &fontName = QString())
{
    auto status = std::make_shared<QVStatus>();
    status->fontType = fontType;
    status->PSname = psName;
    status->fontSize = fontSize;
    status->fontStyle = style;
    status->fontVersion = version;
    status->fontName = fontName.isEmpty() ? psName : fontName;
    return status;
}

inline QVStatusPtr withDefect(QVStatusPtr status, const char *message)
{
    status->setFontError(QVErrorClass::Defect);
    status->setFontErrorInfo(QString::fromUtf8(message));
    return status;
}

using QVFixtures::copyFont;

// A Type 1 outline file as a Mac keeps it on a share (t1mac): the empty data
// file under its PostScript file name, its LWFN fork in an AppleDouble sidecar.
inline QString makeOutlineFile(const QString &folder, const QString &fileName = kNimbusPS533Name)
{
    const QString path = QVFixtures::makeLwfn(
        folder, fileName, QStringLiteral("/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1"));
    EXPECT_FALSE(path.isEmpty()) << "t1mac made no " << qPrintable(fileName);
    return path;
}

} // namespace qvtest
