// Structural checks of the tables a font needs to be drawn: every count,
// offset and length is followed and checked against the bytes that are really
// there, the way a strict loader would before trusting them. Each check answers
// the tag of the first damaged table it finds, or nothing.
#pragma once

#include <QByteArrayView>
#include <QMap>
#include <QString>

class QVTableChecks
{
public:
    // The tables of one face, by tag, each already inside the data.
    explicit QVTableChecks(const QMap<QByteArray, QByteArrayView> &tables)
        : m_tables(tables)
    {
    }

    // Tags of the damaged tables, in the order they were checked; a table
    // that later ones depend on (head, maxp) stops the checks when damaged.
    QStringList damagedTables() const;
    // Tags of the tables a font cannot be drawn without that are absent.
    QStringList missingTables() const;

    static bool checkHead(QByteArrayView head);
    static bool checkMaxp(QByteArrayView maxp, quint16 *numGlyphs);
    static bool checkHhea(QByteArrayView hhea, quint16 numGlyphs, quint16 *numMetrics);
    static bool checkHmtx(QByteArrayView hmtx, quint16 numGlyphs, quint16 numMetrics);
    static bool checkLoca(QByteArrayView loca, bool longOffsets, quint16 numGlyphs, qint64 glyfSize);
    static bool checkGlyf(QByteArrayView glyf, QByteArrayView loca, bool longOffsets, quint16 numGlyphs);
    static bool checkCmap(QByteArrayView cmap, quint16 numGlyphs);
    static bool checkName(QByteArrayView name);
    static bool checkPost(QByteArrayView post, quint16 numGlyphs);
    static bool checkOS2(QByteArrayView os2);
    static bool checkCFF(QByteArrayView cff, quint16 numGlyphs);
    static bool checkCFF2(QByteArrayView cff2, quint16 numGlyphs);

private:
    QByteArrayView table(const char *tag) const { return m_tables.value(QByteArray(tag)); }
    bool has(const char *tag) const { return m_tables.contains(QByteArray(tag)); }

    QMap<QByteArray, QByteArrayView> m_tables;
};
