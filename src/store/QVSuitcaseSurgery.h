// Taking single fonts out of classic suitcases and putting them back. A font
// leaves in a new suitcase (creator DMOV, type FFIL) that holds its family
// record cut down to that font plus the font's strike or outline; the source
// suitcase then loses the family entry, and the file itself when no family is
// left. Every resource access goes through QVResouceFork, and each operation
// holds the resource layer's lock and restores the current file.
//
// FOND layout used here (big-endian): width, kerning and style-mapping table
// offsets at 16, 20, 24 (moved by 6 for every association entry inserted or
// removed), the entry count minus one at 52, and 6-byte entries (point size,
// style, resource ID) from 54. A FOND under 59 bytes is passed over.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVResouceFork.h"

#include <QString>

class QVQuarantineStore;

class QVSuitcaseSurgery
{
public:
    static constexpr qint64 kMinimumFONDSize = 59;

    explicit QVSuitcaseSurgery(QVQuarantineStore *store);

    // Null on success (or when there was nothing to do), else the error text.
    QString moveFontFromSuitcaseToQuarantine(
        const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason);
    // The organizer's variant: into folder/name (a file name the caller made
    // safe and predicts); copyOnly leaves the source.
    QString moveFontFromSuitcaseToFolder(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus,
        const QString &folder, const QString &name, bool copyOnly);
    // Null when putting the quarantined suitcase's first family back into the
    // suitcase at suitcasePath keeps every font of it: for each member the
    // family record will list, the suitcase must hold it byte for byte or have
    // its ID free to receive it (an ID already in use is never overwritten).
    // Else the reason. The restore deletes the quarantined copy only after
    // this holds.
    QString checkRestoreIntoSuitcase(const QString &quarantinedPath, const QString &suitcasePath);
    // Puts the first family of a quarantined suitcase back into the suitcase at
    // suitcasePath: merged into its family record when the suitcase still has
    // one of that name, else added; either way with the font resources the
    // suitcase lacks. The suitcase keeps its times.
    QString moveFontFromQuarantineToSuitcase(const QString &quarantinedPath, const QString &suitcasePath);
    // Deletes one font from a quarantined suitcase (the file too when no family
    // is left). The resource error, 0 for success.
    qint16 removeSuitcaseFontFromQuarantine(
        const QString &path, const QString &postScriptName, bool isTrueType);

    // Copies the strikes and outlines a FOND lists from one open file to
    // another, each as it is (type, ID, name, attributes and bytes);
    // resources the destination already has under that ID are kept.
    void addFONDAssociatedResources(const QVResourceHandle &fond, qint16 fromRes, qint16 toRes);
    // Inserts the source's association entries missing from the destination,
    // keeping it sorted by size, then style.
    void addAssocTables(const QVResourceHandle &source, const QVResourceHandle &destination);
    // The resource error, or -1 when the whole FOND went (or no handle).
    qint16 remove1AssocTable(const QVResourceHandle &fond, int index);
    // Removes every entry of that PostScript name and kind (outline when
    // isTrueType). 0 or the last resource error while entries remain, -1 when
    // the FOND itself was removed.
    qint16 removeFONDAssocTables(
        const QVResourceHandle &fond, const QString &postScriptName, bool isTrueType);
    // Removes every entry not of that PostScript name and kind (the "not
    // matching" form; the file is not used).
    void removeFONDAssocTables(const QVResourceHandle &fond, const QString &postScriptName, bool isTrueType,
        const QVFontFilePtr &inFile);

    // A family name as the name of a file of its own: a slash (allowed in Mac
    // names) becomes a colon, control characters and a leading dot (a hidden
    // file, or one taken for a fork sidecar) become "_", and an overlong name
    // is cut, so the file always lands directly in the folder meant.
    static QString fileNameForFamily(const QString &name);

    // Where the suitcase for `destination` is built: a hidden name beside it
    // (".NAME.partial"), renamed to NAME once whole. One left by a crash holds
    // nothing that is not still in its source.
    static QString partialSuitcasePath(const QString &destination);

    // The PostScript name of association entry `index` of a FOND.
    QString entryPostScriptName(const QVResourceHandle &fond, int index);

private:
    enum class Target { Quarantine, Folder, FolderCopyOnly };
    QString takeFontOut(const QVFontFilePtr &fontFile, const QVStatusPtr &fontStatus, const QString &reason,
        const QString &destination, Target target);
    // Number of entries the FOND's count and size allow (count + 1, at most
    // what fits); 0 for a damaged count.
    int entryCount(const QVResourceHandle &fond);
    QString resourceErrorText(qint16 code) const;
    // Adds `copy` (detached bytes of `source`) to the current file as `type`
    // under the source's ID, name and attributes. The resource error.
    qint16 addCopy(const QVResourceHandle &source, const QVResourceHandle &copy, quint32 type);
    // The strike (NFNT, else FONT) or outline (sfnt, for a size below 1) of an
    // entry in one open file; null when it has none.
    QVResourceHandle memberResource(qint16 ref, qint32 size, qint16 id);

    QVQuarantineStore *m_store;
    QVResouceFork m_fork;
};
