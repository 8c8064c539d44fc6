// AppleDouble sidecars: parsing never reads outside the bytes, and whatever
// parses writes back to bytes that parse to the same entries, and again to the
// same bytes.
#include "QVFuzzSupport.h"
#include "platform/QVAppleDouble.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto parsed = QVAppleDouble::parse(bytes);
    if (!parsed)
        return 0;
    // Every accessor on what was read.
    for (const auto &entry : parsed->entries)
        QVFuzz::check(parsed->has(entry.id), "an entry read is there");
    QVAppleDouble edited = *parsed;
    edited.setEntry(QVAppleDouble::FinderInfo, QByteArray(QVAppleDouble::kFinderInfoSize, 'F'));
    edited.setEntry(QVAppleDouble::ResourceFork, QByteArray("fork"));
    const QByteArray written = edited.serialize();
    const auto again = QVAppleDouble::parse(written);
    QVFuzz::check(bool(again), "a written sidecar parses");
    QVFuzz::check(again->entries.size() == edited.entries.size(), "entries survive the round trip");
    for (qsizetype i = 0; i < edited.entries.size(); ++i) {
        QVFuzz::check(again->entries.at(i).id == edited.entries.at(i).id, "entry ids survive");
        QVFuzz::check(
            again->entries.at(i).data.size() == edited.entries.at(i).data.size(), "entry sizes survive");
    }
    QVFuzz::check(again->entry(QVAppleDouble::ResourceFork) == "fork", "the fork written is read back");
    QVFuzz::check(again->entry(QVAppleDouble::FinderInfo).left(QVAppleDouble::kFinderInfoSize)
            == QByteArray(QVAppleDouble::kFinderInfoSize, 'F'),
        "the Finder info written is read back");
    QVFuzz::check(again->serialize() == written, "a second write gives the same bytes");
    return 0;
}
