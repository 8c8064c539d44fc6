#include "engine/QVType1Files.h"

#include "platform/QVByteReader.h"

#include <QFileInfo>

namespace
{

const QStringList kOutlineExtensions = { QStringLiteral("pfb"), QStringLiteral("pfa"), QStringLiteral("t1") };
const QStringList kMetricsExtensions = { QStringLiteral("afm"), QStringLiteral("pfm") };
constexpr qsizetype kMaxValueBytes = 255;
// Where a PFM keeps its copyright text, and the offset of its PostScript name.
constexpr qint64 kPfmCopyright = 6;
constexpr qint64 kPfmCopyrightSize = 60;
constexpr qint64 kPfmDriverInfo = 139;

QString extensionOf(const QString &path)
{
    return QFileInfo(path).suffix().toLower();
}

QByteArray littleEndianOffsetString(QByteArrayView bytes, qint64 offsetAt, bool *ok)
{
    const auto raw = QVByteReader(bytes).at(offsetAt).bytes(4);
    if (!raw) {
        *ok = false;
        return QByteArray();
    }
    const auto *p = reinterpret_cast<const uchar *>(raw->data());
    const qint64 offset = qint64(p[0]) | (qint64(p[1]) << 8) | (qint64(p[2]) << 16) | (qint64(p[3]) << 24);
    if (offset <= 0 || offset >= bytes.size()) {
        *ok = false;
        return QByteArray();
    }
    const QByteArrayView rest = bytes.sliced(offset, qMin<qint64>(kMaxValueBytes, bytes.size() - offset));
    const qsizetype end = rest.indexOf('\0');
    *ok = true;
    return (end < 0 ? rest : rest.first(end)).toByteArray();
}

} // namespace

bool QVType1Files::isOutline(const QString &path)
{
    return kOutlineExtensions.contains(extensionOf(path));
}

bool QVType1Files::isMetrics(const QString &path)
{
    return kMetricsExtensions.contains(extensionOf(path));
}

QStringList QVType1Files::existing(const QString &base, const QStringList &extensions)
{
    QStringList found;
    for (const QString &extension : extensions) {
        for (const QString &spelt : { extension, extension.toUpper() }) {
            const QString candidate = base + QLatin1Char('.') + spelt;
            if (QFileInfo(candidate).isFile() && !found.contains(candidate))
                found.append(candidate);
        }
    }
    return found;
}

QString QVType1Files::texParallel(const QString &path, const QString &from, const QString &to)
{
    const QString marker = QStringLiteral("/fonts/") + from + QLatin1Char('/');
    const qsizetype at = path.lastIndexOf(marker);
    if (at < 0)
        return QString();
    return path.left(at) + QStringLiteral("/fonts/") + to + QLatin1Char('/') + path.mid(at + marker.size());
}

QStringList QVType1Files::metricsOf(const QString &outlinePath)
{
    const QFileInfo info(outlinePath);
    const QString base = info.path() + QLatin1Char('/') + info.completeBaseName();
    QStringList found = existing(base, kMetricsExtensions);
    if (const QString tex = texParallel(base, QStringLiteral("type1"), QStringLiteral("afm")); !tex.isEmpty())
        found += existing(tex, { QStringLiteral("afm") });
    return found;
}

QStringList QVType1Files::outlinesOf(const QString &metricsPath)
{
    const QFileInfo info(metricsPath);
    const QString base = info.path() + QLatin1Char('/') + info.completeBaseName();
    QStringList found = existing(base, kOutlineExtensions);
    if (const QString tex = texParallel(base, QStringLiteral("afm"), QStringLiteral("type1")); !tex.isEmpty())
        found += existing(tex, kOutlineExtensions);
    return found;
}

QStringList QVType1Files::outlineBases(const QString &path)
{
    const bool outline = isOutline(path);
    if (!outline && !isMetrics(path))
        return {};
    const QFileInfo info(path);
    const QString base = info.path() + QLatin1Char('/') + info.completeBaseName();
    QStringList bases { base };
    if (!outline && extensionOf(path) == QLatin1String("afm")) {
        if (const QString tex = texParallel(base, QStringLiteral("afm"), QStringLiteral("type1"));
            !tex.isEmpty())
            bases.append(tex);
    }
    return bases;
}

QVType1Files::Metrics QVType1Files::readMetrics(QByteArrayView bytes, bool pfm)
{
    Metrics metrics;
    if (pfm) {
        // The header of a PFM: its version, then its size, which is no more
        // than the file holds.
        QVByteReader header(bytes);
        header.skip(2);
        const auto size = header.bytes(4);
        if (!size || !header.has(0, kPfmDriverInfo + 4))
            return metrics;
        bool ok = false;
        metrics.fontName = littleEndianOffsetString(bytes, kPfmDriverInfo, &ok);
        metrics.sound = ok;
        const QByteArrayView copyright = bytes.sliced(kPfmCopyright, kPfmCopyrightSize);
        const qsizetype end = copyright.indexOf('\0');
        metrics.notice = (end < 0 ? copyright : copyright.first(end)).toByteArray();
        return metrics;
    }
    // An AFM: lines of a keyword and its value.
    metrics.sound = bytes.startsWith(QByteArrayView("StartFontMetrics"));
    qsizetype at = 0;
    while (at < bytes.size()) {
        qsizetype end = at;
        while (end < bytes.size() && bytes.at(end) != '\n' && bytes.at(end) != '\r')
            ++end;
        const QByteArrayView line = bytes.sliced(at, end - at);
        const qsizetype space = line.indexOf(' ');
        if (space > 0) {
            const QByteArrayView keyword = line.first(space);
            const QByteArrayView rest = line.sliced(space + 1).trimmed();
            const QByteArray value = rest.first(qMin(rest.size(), kMaxValueBytes)).toByteArray();
            if (keyword == QByteArrayView("FontName"))
                metrics.fontName = value;
            else if (keyword == QByteArrayView("FamilyName"))
                metrics.familyName = value;
            else if (keyword == QByteArrayView("Weight"))
                metrics.weight = value;
            else if (keyword == QByteArrayView("Notice"))
                metrics.notice = value;
            else if (keyword == QByteArrayView("StartCharMetrics"))
                break; // the names all come before the glyphs
        }
        at = end + 1;
    }
    return metrics;
}
