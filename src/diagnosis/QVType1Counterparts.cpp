#include "diagnosis/QVType1Counterparts.h"

#include "engine/QVFontConstants.h"
#include "engine/QVType1Files.h"

#include <QFile>
#include <QFileInfo>

namespace
{

// An X font index is a line per font; no real one comes near this.
constexpr qint64 kMaxIndexSize = 16 * 1024 * 1024;

} // namespace

bool QVType1Counterparts::isPCFile(const QVFontFile &file)
{
    return isPCOutline(file) || isPCMetrics(file);
}

bool QVType1Counterparts::isPCOutline(const QVFontFile &file)
{
    return file.macTypeCode != QLatin1String("LWFN") && QVType1Files::isOutline(file.URL);
}

bool QVType1Counterparts::isPCMetrics(const QVFontFile &file)
{
    return file.macTypeCode != QLatin1String("LWFN") && QVType1Files::isMetrics(file.URL);
}

const QSet<QString> &QVType1Counterparts::xFontIndex(const QString &folder)
{
    auto known = m_xFontIndexes.constFind(folder);
    if (known != m_xFontIndexes.cend())
        return *known;
    QSet<QString> names;
    for (const QString &index : { QStringLiteral("fonts.dir"), QStringLiteral("fonts.scale") }) {
        QFile file(folder + QLatin1Char('/') + index);
        if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxIndexSize)
            continue;
        // The first line counts the fonts; each other line is a file name
        // and the font's X name.
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const qsizetype space = line.indexOf(' ');
            if (space > 0)
                names.insert(QString::fromUtf8(line.left(space)));
        }
    }
    return *m_xFontIndexes.insert(folder, names);
}

bool QVType1Counterparts::lacksMetrics(const QString &outlinePath)
{
    if (!QVType1Files::metricsOf(outlinePath).isEmpty())
        return false;
    const QFileInfo info(outlinePath);
    return !xFontIndex(info.path()).contains(info.fileName());
}

bool QVType1Counterparts::lacksOutline(const QString &metricsPath)
{
    return QVType1Files::outlinesOf(metricsPath).isEmpty();
}

QList<QVFontFilePtr> QVType1Counterparts::companionsLeftBehind(
    const QList<QVFontFilePtr> &fontFiles, const QVFontFilePtr &outline)
{
    QList<QVFontFilePtr> companions;
    if (!outline || !isPCOutline(*outline) || QFileInfo::exists(outline->URL))
        return companions;
    // The outline is gone from its folder now, so the metrics files found are
    // those of the same name; any of them that another outline still uses
    // stays.
    const QString psName
        = outline->fontStatusArray.isEmpty() ? QString() : outline->fontStatusArray.first()->PSname;
    for (const QString &metrics : QVType1Files::metricsOf(outline->URL)) {
        if (!QVType1Files::outlinesOf(metrics).isEmpty())
            continue;
        const QString canonical = QFileInfo(metrics).absoluteFilePath();
        QVFontFilePtr record;
        for (const QVFontFilePtr &file : fontFiles) {
            if (file->URL == metrics || file->URL == canonical) {
                record = file;
                break;
            }
        }
        if (!record) {
            record = std::make_shared<QVFontFile>(metrics);
            record->fontFileType = 1;
            auto status = std::make_shared<QVStatus>();
            status->fontName = QFileInfo(metrics).fileName();
            status->fontURL = metrics;
            status->fontType = QVFontType::PostScriptType1;
            status->PSname = psName;
            record->fontStatusArray.append(status);
        }
        if (!record->fileMovedToQuarantine)
            companions.append(record);
    }
    return companions;
}
