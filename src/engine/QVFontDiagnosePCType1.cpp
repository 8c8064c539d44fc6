// PC Type 1 fonts: the outline file with the font program, and the metrics
// files that go with it.
#include "engine/QVFontConstants.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVType1Files.h"
#include "engine/QVType1Program.h"

#include <QFile>
#include <QFileInfo>
#include <cstring>

namespace
{

// Far above any Type 1 font program, CJK ones included.
constexpr qint64 kMaxType1FileSize = 32 * 1024 * 1024;

// The style a font's names give: what its full name adds to its family name,
// else its weight; a regular weight is the plain style.
QString styleOf(const QByteArray &fullName, const QByteArray &familyName, const QByteArray &weight)
{
    QByteArray style;
    if (!familyName.isEmpty() && fullName.startsWith(familyName)) {
        style = fullName.mid(familyName.size());
        while (!style.isEmpty() && (style.front() == '-' || style.front() == ' '))
            style.remove(0, 1);
        style = style.trimmed();
    }
    if (style.isEmpty())
        style = weight.trimmed();
    static const QList<QByteArray> plain = { "", "Regular", "Roman", "Normal", "Medium", "Book" };
    if (plain.contains(style))
        return QStringLiteral("Plain");
    return QString::fromLatin1(style);
}

} // namespace

bool QVFontDiagnose::readType1File(const QString &path, qint32 version, QByteArray &bytes)
{
    QFile opened;
    std::unique_ptr<QIODevice> held;
    int openError = 0;
    QIODevice *device = openFontFile(path, opened, held, &openError);
    QString defect;
    if (!device)
        defect = QVDefect::withDetail(QVDefect::FileError, QString::fromLocal8Bit(std::strerror(openError)));
    else if (device->size() > kMaxType1FileSize)
        defect = QString::fromUtf8(QVDefect::BadTableData);
    else
        bytes = device->readAll();
    if (defect.isEmpty())
        return true;
    QVStatus &status = *currentStatus;
    status.fontName = QFileInfo(path).fileName();
    status.fontURL = path;
    status.fontType = QVFontType::PostScriptType1;
    status.fontVersion = version;
    status.PSname = QStringLiteral("<none>");
    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(defect);
    saveCurrentStatus();
    return false;
}

qint32 QVFontDiagnose::examinePCType1(const QString &path)
{
    const qint32 version = getFileVersion(path);
    QByteArray bytes;
    if (!readType1File(path, version, bytes))
        return 1;
    const QVType1Program program(bytes);
    bytes.clear();

    const QByteArray fontName = program.value("FontName");
    QVStatus &status = *currentStatus;
    status.fontURL = path;
    status.fontType = QVFontType::PostScriptType1;
    status.fontVersion = version;
    status.fontName = fontName.isEmpty() ? QFileInfo(path).fileName() : QString::fromLatin1(fontName);
    status.PSname = fontName.isEmpty() ? QStringLiteral("<none>") : QString::fromLatin1(fontName);
    if (!fontName.isEmpty())
        status.PS533name = get533postScriptName(status.PSname);
    status.familyName = QString::fromLatin1(program.value("FamilyName"));
    status.fontStyle
        = styleOf(program.value("FullName"), program.value("FamilyName"), program.value("Weight"));
    status.PSversion = QString::fromLatin1(program.value("version"));
    // The notice names the foundry; the copyright comments stand in for it.
    status.fontFoundry = matchFoundryName(QString::fromLatin1(program.value("Notice")));
    if (status.fontFoundry == QLatin1String("Generic"))
        status.fontFoundry = matchFoundryName(QString::fromLatin1(program.headerComments()));

    QList<const char *> defects;
    if (!program.segmentsSound())
        defects.append(QVDefect::BadTableData);
    if (!program.hasHeader())
        defects.append(QVDefect::MissingFontHeader);
    if (fontName.isEmpty())
        defects.append(QVDefect::MissingPostScriptName);
    if (!program.encryptedPartSound())
        defects.append(QVDefect::BadEncryptedSection);
    for (const char *defect : std::as_const(defects)) {
        status.setFontError(QVErrorClass::Defect);
        status.setFontErrorInfo(QString::fromUtf8(defect));
    }
    saveCurrentStatus();
    return defects.isEmpty() ? 0 : 1;
}

qint32 QVFontDiagnose::examineType1Metrics(const QString &path)
{
    const qint32 version = getFileVersion(path);
    QByteArray bytes;
    if (!readType1File(path, version, bytes))
        return 1;
    const bool pfm = QFileInfo(path).suffix().compare(QLatin1String("pfm"), Qt::CaseInsensitive) == 0;
    const QVType1Files::Metrics metrics = QVType1Files::readMetrics(bytes, pfm);

    QVStatus &status = *currentStatus;
    status.fontURL = path;
    status.fontType = QVFontType::PostScriptType1;
    status.fontVersion = version;
    status.fontName
        = metrics.fontName.isEmpty() ? QFileInfo(path).fileName() : QString::fromLatin1(metrics.fontName);
    status.PSname
        = metrics.fontName.isEmpty() ? QStringLiteral("<none>") : QString::fromLatin1(metrics.fontName);
    status.familyName = QString::fromLatin1(metrics.familyName);
    status.fontStyle = styleOf(QByteArray(), QByteArray(), metrics.weight);
    status.fontFoundry = matchFoundryName(QString::fromLatin1(metrics.notice));
    qint32 result = 0;
    if (!metrics.sound) {
        status.setFontError(QVErrorClass::Defect);
        status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadTableData));
        result = 1;
    }
    if (metrics.fontName.isEmpty()) {
        status.setFontError(QVErrorClass::Defect);
        status.setFontErrorInfo(QString::fromUtf8(QVDefect::MissingPostScriptName));
        result = 1;
    }
    saveCurrentStatus();
    return result;
}
