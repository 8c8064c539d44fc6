// The deep check of SFNT fonts: what the quick examination never reads. Every
// table's checksum is recomputed, every table must lie inside the data, the
// tables a font is drawn from are checked for sound structure, and every glyph
// is loaded through FreeType, unscaled. Findings are defect messages; a font
// whose only finding is a checksum mismatch is still usable.
//
// Thread-safe: each thread loads glyphs through a FreeType library of its own.
#pragma once

#include "engine/QVFontFile.h"

#include <QByteArrayView>
#include <QList>
#include <QStringList>

class QVDeepCheck
{
public:
    // The findings for one face whose offset table begins at `faceOffset` in
    // `data` (table offsets count from the data's first byte, as in a file or
    // a collection); `faceIndex` picks the face for FreeType.
    static QStringList checkFace(QByteArrayView data, qint64 faceOffset = 0, int faceIndex = 0);
    // One list per face: a collection's members in order, or the one face of
    // a single font. Bytes that are neither give one list with a finding.
    static QList<QStringList> checkFont(QByteArrayView data);

    // Checks the SFNT fonts of an examined file (a single font, a collection,
    // or the sfnt resources of a suitcase) and adds the findings to their
    // statuses as defects. A file it cannot read is left as the examination
    // found it. Returns how many statuses gained a finding.
    static int checkFontFile(QVFontFile &file);

    // Whether a defect message comes from the deep check.
    static bool isDeepCheckDefect(const QString &message);
    // True when the font stays usable with this defect (a checksum mismatch).
    static bool leavesFontUsable(const QString &message);
    // True when every defect of the status leaves the font usable.
    static bool onlyUsableDefects(const QVStatus &status);
    // The explanation shown beside a deep-check defect; empty for any other.
    static QString cautionText(const QString &message);
};
