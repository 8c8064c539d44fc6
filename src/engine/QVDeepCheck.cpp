#include "engine/QVDeepCheck.h"

#include "engine/QVFontConstants.h"
#include "engine/QVFontLayouts.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "engine/QVTableChecks.h"
#include "platform/QVByteReader.h"
#include "platform/QVFileSystem.h"
#include "platform/QVForkStorage.h"

#include <QFile>
#include <QMap>
#include <QSet>
#include <ft2build.h>
#include FT_FREETYPE_H

using namespace QVFontLayouts;

namespace
{

// FreeType libraries are not shared between threads: each worker has its own,
// made on first use and kept for the thread's life.
struct FreeTypeLibrary {
    FT_Library library = nullptr;
    FreeTypeLibrary() { FT_Init_FreeType(&library); }
    ~FreeTypeLibrary()
    {
        if (library)
            FT_Done_FreeType(library);
    }
};

FT_Library freeType()
{
    thread_local FreeTypeLibrary instance;
    return instance.library;
}

QString tagName(QByteArrayView tag)
{
    // "CFF " is named without its padding.
    return QString::fromLatin1(tag.data(), tag.size()).trimmed();
}

QString finding(const char *message, const QString &detail)
{
    return QVDefect::withDetail(message, detail);
}

// The sum of the table's 32-bit words, its last word padded with zeros, and
// the head table's checksum adjustment counted as zero.
quint32 tableChecksum(QByteArrayView table, bool isHead)
{
    const auto *p = reinterpret_cast<const uchar *>(table.data());
    const qint64 whole = table.size() / 4 * 4;
    quint32 sum = 0;
    for (qint64 i = 0; i < whole; i += 4) {
        if (isHead && i == 8)
            continue;
        sum += (quint32(p[i]) << 24) | (quint32(p[i + 1]) << 16) | (quint32(p[i + 2]) << 8)
            | quint32(p[i + 3]);
    }
    quint32 last = 0;
    for (qint64 i = whole; i < table.size(); ++i)
        last |= quint32(p[i]) << (24 - 8 * (i - whole));
    return sum + last;
}

// Loads every glyph unscaled (a font of bitmaps alone, at its first size); the
// findings it adds say which would not load.
void loadGlyphs(QByteArrayView data, int faceIndex, bool outlines, QStringList *findings)
{
    FT_Library library = freeType();
    if (!library)
        return;
    FT_Face face = nullptr;
    const FT_Error error = FT_New_Memory_Face(
        library, reinterpret_cast<const FT_Byte *>(data.data()), FT_Long(data.size()), faceIndex, &face);
    if (error) {
        findings->append(finding(QVDefect::FontCannotBeLoaded, QStringLiteral("error %1").arg(error)));
        return;
    }
    FT_Int32 flags = FT_LOAD_NO_SCALE;
    if (!outlines && face->num_fixed_sizes > 0 && FT_Select_Size(face, 0) == 0)
        flags = FT_LOAD_DEFAULT | FT_LOAD_COLOR;
    qint64 failed = 0;
    FT_Long first = -1;
    for (FT_Long glyph = 0; glyph < face->num_glyphs; ++glyph) {
        if (FT_Load_Glyph(face, FT_UInt(glyph), flags) != 0) {
            if (first < 0)
                first = glyph;
            ++failed;
        }
    }
    FT_Done_Face(face);
    if (failed == 1)
        findings->append(finding(QVDefect::GlyphCannotBeLoaded, QString::number(first)));
    else if (failed > 1)
        findings->append(finding(
            QVDefect::GlyphCannotBeLoaded, QStringLiteral("%1 and %2 more").arg(first).arg(failed - 1)));
}

bool startsWith(const QString &message, const char *format)
{
    const QString text = QString::fromUtf8(format);
    return message.startsWith(text.left(text.indexOf(QLatin1String("%@"))));
}

const char *const kExplanations[][2] = {
    { QVDefect::TableChecksumMismatch,
        "Diagnosis: Every table in a font file carries a checksum, a number computed from the table's "
        "contents when the font was made. The contents of this table no longer add up to it: some of its "
        "bytes have changed since. Every other check of the font passed, so it may still work, but the "
        "change can be damage that has not shown itself yet.\n\nRecommendation: This font can be kept. "
        "Quarantine it only if it misbehaves or if you have a sound copy to replace it with." },
    { QVDefect::DamagedTableData,
        "Diagnosis: A font file is structured internally as a collection of data tables. The named table "
        "was read field by field, and it holds counts, offsets or lengths that point outside its data or "
        "contradict the rest of the font, or it lies partly outside the file. Programs that draw or print "
        "the font can fail, show wrong characters or stop on it.\n\nRecommendation: This font file should "
        "be quarantined since it contains damaged table data." },
    { QVDefect::MissingRequiredTable,
        "Diagnosis: A font cannot be drawn without a few tables: its header, metrics, character map, names "
        "and outlines. The named table is missing from this font file, which usually means the file was cut "
        "short or badly converted.\n\nRecommendation: This font file should be quarantined since it lacks a "
        "table it cannot work without." },
    { QVDefect::GlyphCannotBeLoaded,
        "Diagnosis: Each character of a font is drawn from a glyph, an outline stored in the font. Every "
        "glyph of this font was loaded the way a program loads it to draw it, and the glyph with the number "
        "shown (counted from 0) could not be loaded. Documents that use it will fail to display or "
        "print.\n\nRecommendation: This font file should be quarantined since some of its glyphs cannot be "
        "drawn." },
    { QVDefect::FontCannotBeLoaded,
        "Diagnosis: The font's outlines could not be opened the way a program opens them to draw text, so "
        "none of its characters can be shown or printed.\n\nRecommendation: This font file should be "
        "quarantined since it cannot be drawn." },
};

} // namespace

QStringList QVDeepCheck::checkFace(QByteArrayView data, qint64 faceOffset, int faceIndex)
{
    QStringList findings;
    const QString directoryName = QStringLiteral("directory");
    QVByteReader header = QVByteReader(data).at(faceOffset);
    const auto version = header.u32();
    const auto count = header.u16();
    if (!header.ok() || *count == 0
        || (*version != 0x00010000 && *version != 0x4F54544F /* OTTO */ && *version != 0x74727565 /* true */)
        || !header.has(faceOffset + SFNT::kOffsetTableSize, qint64(*count) * SFNT::kEntrySize))
        return { finding(QVDefect::DamagedTableData, directoryName) };

    // The tables that lie inside the data, and every tag the directory lists.
    QMap<QByteArray, QByteArrayView> tables;
    QMap<QByteArray, QByteArrayView> listed;
    bool directorySound = true;
    for (int i = 0; i < *count; ++i) {
        QVByteReader entry = QVByteReader(data).at(faceOffset + SFNT::entry(i));
        const QByteArrayView tag = *entry.bytes(4);
        const quint32 checksum = *entry.u32();
        const quint32 offset = *entry.u32();
        const quint32 length = *entry.u32();
        const QString name = tagName(tag);
        if (listed.contains(tag.toByteArray())) {
            directorySound = false;
            continue;
        }
        listed.insert(tag.toByteArray(), QByteArrayView());
        QVByteReader at = QVByteReader(data).at(offset);
        const auto bytes = at.bytes(length);
        if (!bytes) {
            findings.append(finding(QVDefect::DamagedTableData, name));
            continue;
        }
        tables.insert(tag.toByteArray(), *bytes);
        if (tableChecksum(*bytes, tag == "head") != checksum)
            findings.append(finding(QVDefect::TableChecksumMismatch, name));
    }
    if (!directorySound)
        findings.prepend(finding(QVDefect::DamagedTableData, directoryName));

    for (const QString &tag : QVTableChecks(listed).missingTables())
        findings.append(finding(QVDefect::MissingRequiredTable, tag));
    for (const QString &tag : QVTableChecks(tables).damagedTables())
        findings.append(finding(QVDefect::DamagedTableData, tag.trimmed()));
    const bool outlines = tables.contains("glyf") || tables.contains("CFF ") || tables.contains("CFF2");
    loadGlyphs(data, faceIndex, outlines, &findings);
    findings.removeDuplicates();
    return findings;
}

QList<QStringList> QVDeepCheck::checkFont(QByteArrayView data)
{
    QVByteReader header(data);
    if (header.bytes(4) != QByteArrayView("ttcf"))
        return { checkFace(data) };
    header.seek(TTC::kMemberCount);
    const auto members = header.u32();
    if (!members || *members == 0 || !header.has(TTC::kFirstOffset, qint64(*members) * TTC::kOffsetSize))
        return { { finding(QVDefect::DamagedTableData, QStringLiteral("ttcf")) } };
    QList<QStringList> faces;
    for (quint32 i = 0; i < *members; ++i)
        faces.append(checkFace(data, *header.u32(), int(i)));
    return faces;
}

int QVDeepCheck::checkFontFile(QVFontFile &file)
{
    QList<QVStatusPtr> targets;
    bool suitcase = false;
    for (const QVStatusPtr &status : std::as_const(file.fontStatusArray)) {
        if (status->isUnreadable())
            return 0;
        if (status->sfntResourceID >= 0) {
            suitcase = true;
            targets.append(status);
        } else if ((status->fontType == QVFontType::TrueType || status->fontType == QVFontType::OpenType)
            && status->fontSize == 0) {
            targets.append(status);
        }
    }
    if (targets.isEmpty())
        return 0;

    QList<std::pair<QVStatusPtr, QStringList>> found;
    if (suitcase) {
        QByteArray fork;
        QVForkStorage::Place place;
        qint16 error = QVForkStorage::readResourceFork(file.URL, &fork, &place);
        const auto resources = error == 0 ? QVResourceFile::parse(fork, &error) : std::nullopt;
        if (!resources)
            return 0;
        for (const QVStatusPtr &status : std::as_const(targets)) {
            const int at = status->sfntResourceID >= 0
                ? resources->find(qvFourCC("sfnt"), qint16(status->sfntResourceID))
                : -1;
            if (at >= 0)
                found.append({ status, checkFace(resources->entries.at(at).data) });
        }
    } else {
        QFile data;
        if (!QVFileSystem::openForReading(data, file.URL) || data.size() == 0)
            return 0;
        // Mapped, not copied: a large collection is read once, page by page.
        const uchar *mapped = data.map(0, data.size());
        const QByteArray read = mapped ? QByteArray() : data.readAll();
        const QByteArrayView bytes = mapped ? QByteArrayView(mapped, data.size()) : QByteArrayView(read);
        const QList<QStringList> faces = checkFont(bytes);
        if (mapped)
            data.unmap(const_cast<uchar *>(mapped));
        if (faces.size() == targets.size()) {
            for (qsizetype i = 0; i < faces.size(); ++i)
                found.append({ targets.at(i), faces.at(i) });
        } else {
            // The examination saw the file differently (a collection whose
            // header it could not read): everything goes to its first font.
            QStringList all;
            for (const QStringList &face : faces)
                all += face;
            all.removeDuplicates();
            found.append({ targets.first(), all });
        }
    }

    int reported = 0;
    for (const auto &[status, findings] : found) {
        for (const QString &message : findings) {
            status->setFontError(QVErrorClass::Defect);
            status->setFontErrorInfo(message);
        }
        reported += findings.isEmpty() ? 0 : 1;
    }
    return reported;
}

bool QVDeepCheck::isDeepCheckDefect(const QString &message)
{
    for (const auto &[format, text] : kExplanations) {
        if (startsWith(message, format))
            return true;
    }
    return false;
}

bool QVDeepCheck::leavesFontUsable(const QString &message)
{
    return startsWith(message, QVDefect::TableChecksumMismatch);
}

bool QVDeepCheck::onlyUsableDefects(const QVStatus &status)
{
    if (status.fontErrorsInfo.isEmpty())
        return false;
    for (const QString &message : status.fontErrorsInfo) {
        if (!leavesFontUsable(message))
            return false;
    }
    return true;
}

QString QVDeepCheck::cautionText(const QString &message)
{
    for (const auto &[format, text] : kExplanations) {
        if (startsWith(message, format))
            return QString::fromUtf8(text);
    }
    return QString();
}
