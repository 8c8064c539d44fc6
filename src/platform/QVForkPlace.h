// The places a file's resource fork, Finder info and dates can live in, as one
// table of plain rows in search order; QVForkStorage walks it. What a place
// keeps is named by AppleDouble entry IDs: ResourceFork, FinderInfo, FileDates.
// The rows:
//   ExtendedAttribute  user.com.apple.ResourceFork / FinderInfo (fork, Finder info)
//   AppleDouble        "._NAME" beside the file (all three)
//   NetatalkFolder     ".AppleDouble/NAME" (all three)
//   NetatalkMetadata   user.org.netatalk.Metadata (Finder info, dates)
//   DataFork           the file itself, for "*.dfont" (fork)
// Reads and writes answer Mac codes (QVResourceError).
#pragma once

#include "platform/QVAppleDouble.h"
#include "platform/QVForkStorage.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <span>

struct QVForkPlace {
    using Place = QVForkStorage::Place;

    // What lies where a place keeps its companion file. A link (the file
    // itself or the ".AppleDouble" folder holding it) is never read, written
    // or deleted: it may name any file of anyone.
    enum class Companion { Absent, File, Link, Other };

    // Answered by a write that does not fit the place (a value too big for an
    // attribute); the storage then moves the data to the sidecar.
    static constexpr qint16 kDoesNotFit = 1;

    Place place;
    // The entries the place can keep, one bit (1 << ID) each.
    quint32 keeps;
    // The companion file beside the file; null for places in the file itself.
    QString (*companionPath)(const QString &path);
    // An entry's bytes: 0, -193 when the place does not have it, -54 when the
    // place cannot be read (a later place may still have it); any other code
    // ends the search.
    qint16 (*read)(const QVForkPlace &self, const QString &path, quint32 entry, QByteArray *bytes);
    // Writes an entry: 0, kDoesNotFit, or the error. Everything else the place
    // holds stays as it was.
    qint16 (*write)(const QVForkPlace &self, const QString &path, quint32 entry, const QByteArray &bytes);
    // Removes an entry once its data have moved to the sidecar; set for every
    // place whose write can answer kDoesNotFit.
    qint16 (*remove)(const QString &path, quint32 entry);
    // The place's AppleDouble data, for the places keeping it; null elsewhere.
    std::optional<QVAppleDouble> (*load)(const QVForkPlace &self, const QString &path);
    qint16 (*store)(const QVForkPlace &self, const QString &path, const QVAppleDouble &data);

    bool canKeep(quint32 entry) const { return keeps & (1u << entry); }
    // Absent for a place without a companion.
    Companion companionAt(const QString &path) const;

    // Every place, in search order.
    static std::span<const QVForkPlace> table();
    // The row of a place; the sidecar's for Place::None.
    static const QVForkPlace &of(Place place);
};
