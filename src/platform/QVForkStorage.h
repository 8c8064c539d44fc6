// Where a file's resource fork, Finder info and creation date live on Linux,
// and reading and writing each there. Places (the rows of QVForkPlace) are
// searched in this order, each of the three on its own; the first that has it
// wins, and a write goes back to the place it was read from:
//   1. extended attributes user.com.apple.ResourceFork / user.com.apple.FinderInfo
//   2. AppleDouble sidecar "._NAME" beside the file (the default for new data)
//   3. netatalk 2 ".AppleDouble/NAME"
//   4. netatalk 3 attribute user.org.netatalk.Metadata (Finder info and dates only)
//   5. the data fork itself, for "*.dfont" (fork only; rewritten whole, by a
//      temporary file renamed over it, when a family leaves it)
// A fork or Finder info that no longer fits in an attribute moves to the
// sidecar; the attribute is removed only after the sidecar is safely written.
// Every rewrite is atomic (QVAtomicFile): on any failure the old sidecar or
// attribute stays as it was. A companion that is a symbolic link (or sits in an
// ".AppleDouble" folder that is one) is never read, written or deleted; it
// counts as unreadable (-54).
// Errors are Mac codes (QVResourceError): -43 no file, -54 permission, -34 full
// disk, -36 other I/O.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

class QVForkStorage
{
public:
    enum class Place { None, ExtendedAttribute, AppleDouble, NetatalkFolder, NetatalkMetadata, DataFork };

    static constexpr const char *kForkAttribute = "user.com.apple.ResourceFork";
    static constexpr const char *kFinderInfoAttribute = "user.com.apple.FinderInfo";
    static constexpr const char *kNetatalkAttribute = "user.org.netatalk.Metadata";
    // No real fork or sidecar comes near this; anything bigger is not read.
    static constexpr qint64 kMaxForkSize = 256 * 1024 * 1024;

    // Short name of a place, as the command line prints it: "none", "xattr",
    // "appledouble", "netatalk", "netatalk-metadata", "datafork".
    static QString placeName(Place place);

    // "DIR/._NAME" and "DIR/.AppleDouble/NAME" of a file.
    static QString sidecarPath(const QString &path);
    static QString netatalkPath(const QString &path);

    // False when no place that keeps a fork exists for the file (no attribute,
    // no companion file, not a ".dfont"); true says only that one may have it.
    static bool mayHaveResourceFork(const QString &path);
    // Where the file's fork is (a non-empty fork), or Place::None.
    static Place resourceForkPlace(const QString &path);
    // Reads the fork; *place gets where it was. 0, -43 no file, -193 no fork,
    // -54 unreadable.
    static qint16 readResourceFork(const QString &path, QByteArray *fork, Place *place);
    // Writes the fork to the place (Place::None: the sidecar). An attribute that
    // cannot hold it moves it to the sidecar; *written gets where it went.
    // A data fork is rewritten only for a ".dfont" (else -54).
    static qint16 writeResourceFork(
        const QString &path, const QByteArray &fork, Place place, Place *written = nullptr);

    // Where the Finder info is, or Place::None: the first place that holds a
    // Finder info entry or attribute, all zeros or not.
    static Place finderInfoPlace(const QString &path);
    // 32 bytes (zeros when the file has none; then *place is None). 0 or -43.
    static qint16 readFinderInfo(const QString &path, QByteArray *info, Place *place = nullptr);
    // Writes 32 bytes of Finder info where it was read; a file without any goes
    // where its fork lives, or to `fallback` (the sidecar unless told).
    static qint16 writeFinderInfo(
        const QString &path, const QByteArray &info, Place fallback = Place::AppleDouble);

    // Finder flags: invisible (hidden) and has-bundle.
    static constexpr quint16 kInvisibleFlag = 0x4000;
    static constexpr quint16 kHasBundleFlag = 0x2000;
    // Hidden: the name begins with "." or the invisible flag is set.
    static bool isHidden(const QString &path);
    // Sets or clears the invisible flag (a leading dot is left alone). 0 or the error.
    static qint16 setHidden(const QString &path, bool hidden);

    // The creation date: AppleDouble File Dates entry where the file has
    // AppleDouble data, else the birth time, else the modification time.
    // Invalid when there is no file.
    static QDateTime creationDate(const QString &path);
    // Writes the File Dates entry of the file's AppleDouble data; a file without
    // AppleDouble data keeps its own date (returns 0, nothing written).
    static qint16 setCreationDate(const QString &path, const QDateTime &date);

    // Whether a path is a metadata store rather than a file of its own: an
    // AppleDouble sidecar "._NAME" or anything inside a ".AppleDouble" folder.
    // A scan passes over these.
    static bool isMetadataStore(const QString &path);

    // The companion files that exist for the file (sidecar, netatalk file):
    // regular files only, never links.
    static QStringList companionFiles(const QString &path);
    // The first companion place of the file that is a symbolic link (the
    // sidecar, the ".AppleDouble" folder or the file in it), else null. A file
    // with one is not moved, copied or deleted: its fork cannot go with it.
    static QString linkedCompanion(const QString &path);
};
