// Resource forks: any bytes parse or are refused with -199; what parses writes
// back to bytes that parse to the same resources and again to the same bytes.
// A quarter of the inputs also go through the resource layer on disk (a fork in
// an AppleDouble sidecar): every resource read the way the examiner and the
// suitcase surgery read them, one changed and the fork written back and read
// again.
#include "QVFuzzSupport.h"
#include "engine/QVFontLayouts.h"
#include "engine/QVResouceFork.h"
#include "engine/QVResourceFile.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVByteReader.h"
#include "platform/QVForkStorage.h"

#include <QHash>
#include <cstddef>
#include <cstdint>

namespace
{

QString target;

// The same resources: the same types, and each type's resources in the same
// order (a type listed twice in a damaged map comes back listed once).
void sameResources(const QVResourceFile &a, const QVResourceFile &b, const char *what)
{
    auto byType = [](const QVResourceFile &file) {
        QHash<quint32, QList<const QVResourceFile::Entry *>> grouped;
        for (const auto &entry : file.entries)
            grouped[entry.type].append(&entry);
        return grouped;
    };
    const auto x = byType(a), y = byType(b);
    QVFuzz::check(a.entries.size() == b.entries.size() && x.keys().size() == y.keys().size(), what);
    for (auto it = x.cbegin(); it != x.cend(); ++it) {
        const auto other = y.value(it.key());
        QVFuzz::check(other.size() == it->size(), what);
        for (qsizetype i = 0; i < other.size(); ++i) {
            const auto &p = *it->at(i), &q = *other.at(i);
            QVFuzz::check(p.id == q.id && p.name == q.name && p.hasName == q.hasName
                    && p.attributes == q.attributes && p.data == q.data,
                what);
        }
    }
}

void roundTripInMemory(const QByteArray &fork)
{
    qint16 error = 0;
    const auto parsed = QVResourceFile::parse(fork, &error);
    if (!parsed) {
        QVFuzz::check(error == QVResourceError::MapRead, "a refused fork says -199");
        return;
    }
    if (!parsed->allDataValid())
        return;
    const QByteArray written = parsed->serialize(&error);
    if (error != 0)
        return; // more than the format can address: refused, not written
    const auto again = QVResourceFile::parse(written, &error);
    QVFuzz::check(bool(again), "a written fork parses");
    sameResources(*parsed, *again, "resources survive the round trip");
    QVFuzz::check(again->serialize(&error) == written, "a second write gives the same bytes");
}

void readEverything(QVResouceFork &fork, qint16 ref)
{
    QVMemoryHandler &memory = *fork.memoryHandler;
    fork.useResourceFile(ref);
    const int types = QVResourceManager::count1Types();
    for (int t = 1; t <= types; ++t) {
        fork.useResourceFile(ref);
        const quint32 type = QVResourceManager::get1IndType(t);
        const int count = fork.countResourceTypes(ref, type);
        for (int i = 1; i <= count; ++i) {
            const QVResourceHandle h = fork.getIndexResource(ref, type, i);
            if (!h)
                continue;
            fork.getResourceInfo(h);
            if (type == qvFourCC("FOND")) {
                for (int style = 0; style < 48; ++style)
                    fork.getBitmapPSname(h, style);
                using namespace QVFontLayouts;
                const QVByteReader family(h->data);
                const int entries = family.at(FOND::kEntryCount).i16().value_or(0) + 1;
                for (int e = 0; e < qMin(entries, 64); ++e)
                    fork.getResourceOfID(
                        family.at(FOND::entry(e) + FOND::kEntryID).i16().value_or(0), qvFourCC("NFNT"), ref);
            } else if (type == qvFourCC("sfnt")) {
                for (int id : { 1, 4, 6 })
                    fork.getSNFTResourceName(h, id);
            }
            memory.Handle_ReadLong(h, h->data.size() - 8);
            memory.Handle_ReadPString(h, h->data.size() - 1);
            fork.releaseResource(h);
        }
    }
}

void writeBackOnDisk(const QByteArray &bytes)
{
    QVAppleDouble sidecar;
    sidecar.entries.append({ QVAppleDouble::ResourceFork, bytes, 0 });
    QVFuzz::check(QVFuzz::writeFile(target, {}), "the data file is written");
    QVFuzz::check(
        QVFuzz::writeFile(QVForkStorage::sidecarPath(target), sidecar.serialize()), "the sidecar is written");

    std::lock_guard guard(QVResouceFork::lock());
    QVResouceFork fork;
    qint16 ref = fork.openResourceFile(QVPermission::Read, target);
    if (ref < 1) {
        const qint16 error = fork.resourceError();
        QVFuzz::check(error == QVResourceError::MapRead || error == QVResourceError::ResFileNotFound,
            "a fork that does not open says why");
        return;
    }
    readEverything(fork, ref);
    fork.closeResourceFile(ref);

    ref = fork.openResourceFile(QVPermission::ReadWrite, target);
    if (ref < 1) {
        // Only a fork with resources outside its data is kept from being rewritten.
        qint16 error = 0;
        const auto parsed = QVResourceFile::parse(bytes, &error);
        QVFuzz::check(fork.resourceError() == QVResourceError::MapRead && parsed && !parsed->allDataValid(),
            "a fork that opens for reading opens for writing");
        return;
    }
    fork.useResourceFile(ref);
    QVResourceHandle changed;
    for (int t = 1; t <= QVResourceManager::count1Types() && !changed; ++t)
        changed = QVResourceManager::get1IndResource(QVResourceManager::get1IndType(t), 1);
    QByteArray expected;
    if (changed) {
        changed->data.append("QV");
        expected = changed->data;
        fork.changedResource(changed);
        fork.writeResource(changed);
    }
    fork.closeResourceFile(ref);
    const qint16 closeError = fork.resourceError();
    QByteArray reread;
    QVForkStorage::Place place = QVForkStorage::Place::None;
    QVFuzz::check(QVForkStorage::readResourceFork(target, &reread, &place) == 0, "the fork is still there");
    qint16 error = 0;
    const auto parsed = QVResourceFile::parse(reread, &error);
    QVFuzz::check(bool(parsed), "the fork written back parses");
    if (closeError != 0) {
        QVFuzz::check(reread == bytes, "a fork that could not be written back is as it was");
    } else if (changed) {
        const int at = parsed->find(changed->type, changed->id);
        QVFuzz::check(at >= 0 && parsed->entries.at(at).data == expected, "the change was written");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    target = QVFuzz::setUp() + QStringLiteral("/Suitcase");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray fork(reinterpret_cast<const char *>(data), qsizetype(size));
    roundTripInMemory(fork);
    if (size % 4 == 0)
        writeBackOnDisk(fork);
    return 0;
}
