// Font records for the diagnosis tests, as the examiner leaves them, and real
// font files for them to point at, made by tools that are not ours.
#pragma once

#include "engine/QVFontConstants.h"
#include "engine/QVFontDataManager.h"
#include "engine/QVFontExaminer.h"
#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>
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

// otf2bdf exits with a non-zero status on success, so for it the output file
// is what tells.
inline bool runTool(const QString &program, const QStringList &arguments, const QString &workingDirectory,
    bool checkExitCode = true)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit
        || (checkExitCode && process.exitCode() != 0)) {
        ADD_FAILURE() << qPrintable(program) << " failed: " << process.readAllStandardError().constData();
        return false;
    }
    return true;
}

// A PostScript Type 1 outline file as a Mac keeps it on a Linux share: the
// empty data file named by the PostScript file name rule, its LWFN resource
// fork in the AppleDouble sidecar beside it (t1mac).
inline QString makeOutlineFile(const QString &folder, const QString &fileName = kNimbusPS533Name)
{
    QDir().mkpath(folder);
    const QString path = folder + QLatin1Char('/') + fileName;
    runTool(QStringLiteral("t1mac"),
        { QStringLiteral("--appledouble"), QStringLiteral("-n"), fileName, QStringLiteral("-o"),
            QStringLiteral("._") + fileName,
            QStringLiteral("/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1") },
        folder);
    QFile data(path);
    EXPECT_TRUE(data.open(QIODevice::WriteOnly));
    return path;
}

// A bitmap font suitcase (a .dfont) of Nimbus Sans strikes: BDFs from
// otf2bdf, merged into one FOND by ufond.
inline QString makeBitmapSuitcase(const QString &folder, const QList<int> &sizes)
{
    QDir().mkpath(folder);
    QStringList bdfs;
    for (int size : sizes) {
        const QString bdf = QStringLiteral("strike%1.bdf").arg(size);
        runTool(QStringLiteral("otf2bdf"),
            { QStringLiteral("-p"), QString::number(size), QStringLiteral("-l"), QStringLiteral("32_126"),
                QStringLiteral("-o"), bdf,
                QStringLiteral("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf") },
            folder, false);
        EXPECT_GT(QFileInfo(folder + QLatin1Char('/') + bdf).size(), 0)
            << "otf2bdf made no " << qPrintable(bdf);
        bdfs << bdf;
    }
    runTool(QStringLiteral("ufond"), QStringList { QStringLiteral("-dfont") } + bdfs, folder);
    for (const QString &bdf : std::as_const(bdfs))
        QFile::remove(folder + QLatin1Char('/') + bdf);
    const QString path = folder + QStringLiteral("/Nimbus Sans.fam.dfont");
    EXPECT_TRUE(QFileInfo::exists(path)) << qPrintable(path);
    return path;
}

// A copy of an installed font file.
inline QString copyFont(const QString &source, const QString &folder, const QString &name = QString())
{
    QDir().mkpath(folder);
    const QString path = folder + QLatin1Char('/') + (name.isEmpty() ? QFileInfo(source).fileName() : name);
    EXPECT_TRUE(QFile::copy(source, path)) << qPrintable(path);
    return path;
}

// The records the examiner makes of the files above.
inline QVFontFilePtr addOutline(QVFontLibrary &library, const QString &path, qint32 fontType = 1)
{
    QVStatusPtr status
        = makeStatus(fontType, kNimbusPSName, 0, QStringLiteral("Plain"), 100, QStringLiteral("Nimbus Sans"));
    status->PS533name = kNimbusPS533Name;
    status->familyName = QStringLiteral("Nimbus Sans");
    status->fontFoundry = QStringLiteral("URW");
    return library.addFile(path, 0, QStringLiteral("LWFN"), { status });
}

inline QVFontFilePtr addSuitcase(QVFontLibrary &library, const QString &path, const QList<int> &sizes,
    const QString &style = QStringLiteral("Plain"))
{
    QList<QVStatusPtr> statuses;
    for (int size : sizes) {
        QVStatusPtr status
            = makeStatus(QVFontType::Bitmap, kNimbusPSName, size, style, 100, QStringLiteral("Nimbus Sans"));
        status->PS533name = kNimbusPS533Name;
        status->familyName = QStringLiteral("Nimbus Sans");
        status->fontID = 2794;
        statuses << status;
    }
    return library.addFile(path, 0, QStringLiteral("FFIL"), statuses);
}

} // namespace qvtest
