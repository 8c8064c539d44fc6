// AppleDouble version 2 files (the "._NAME" sidecars and netatalk's
// .AppleDouble/NAME and metadata attribute): a 26-byte header, entry
// descriptors, entry data. Parsing is bounds-checked; unknown entries are kept
// and written back untouched, including the extended-attribute block that
// macOS stores after the Finder info.
#pragma once

#include <QByteArray>
#include <QList>
#include <optional>

class QVAppleDouble
{
public:
    enum EntryId : quint32 {
        DataFork = 1,
        ResourceFork = 2,
        RealName = 3,
        Comment = 4,
        FileDates = 8,
        FinderInfo = 9,
        MacFileInfo = 10,
        AfpFileInfo = 14
    };

    struct Entry {
        quint32 id = 0;
        QByteArray data;
        // Offset of the entry in the file it was read from (0 for new entries);
        // used to keep macOS's extended-attribute offsets right.
        quint32 originalOffset = 0;
    };

    static constexpr quint32 kMagic = 0x00051607;
    static constexpr quint32 kVersion2 = 0x00020000;
    static constexpr int kFinderInfoSize = 32;

    // std::nullopt when the bytes are not an AppleDouble file or an entry lies
    // outside them.
    static std::optional<QVAppleDouble> parse(const QByteArray &bytes);
    QByteArray serialize() const;

    bool has(quint32 id) const;
    // The entry's bytes; empty when absent.
    QByteArray entry(quint32 id) const;
    // Replaces or appends an entry. For Finder info only the first 32 bytes are
    // replaced, anything after them (macOS's attribute block) is kept.
    void setEntry(quint32 id, const QByteArray &data);
    void removeEntry(quint32 id);

    QList<Entry> entries;
    // The 16-byte filler after the version ("Mac OS X        " from macOS).
    QByteArray filler = QByteArray(16, '\0');
};
