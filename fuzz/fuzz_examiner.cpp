// The examiner on one file, as a scan meets it. The first byte says how the
// rest is laid out; every examination must end with well-formed statuses, and
// a file that must be represented is:
//   0 .ttf, 1 .otf, 2 .ttc   the bytes are the data fork
//   3 .dfont                 the bytes are a data-fork suitcase
//   4 suitcase               an empty file, the bytes its fork (FFIL) in "._NAME"
//   5 LWFN                   an empty file, the bytes its fork (LWFN) in "._NAME"
//   6 sidecar                an empty file, the bytes its "._NAME" as they are
//   7 .pfb, 8 .afm, 9 .pfm   the bytes are a PC Type 1 outline or metrics file
#include "QVFuzzSupport.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVResourceManager.h"
#include "platform/QVAppleDouble.h"
#include "platform/QVForkStorage.h"

#include <QFile>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace
{

QString folder;
std::unique_ptr<QVFontDiagnose> examiner;

QByteArray withFork(const QByteArray &fork, const char type[5])
{
    QVAppleDouble sidecar;
    sidecar.filler = QByteArray("Mac OS X        ", 16);
    sidecar.entries.append(
        { QVAppleDouble::FinderInfo, QByteArray(type, 4) + QByteArray("DMOV").leftJustified(28, '\0'), 0 });
    sidecar.entries.append({ QVAppleDouble::ResourceFork, fork, 0 });
    return sidecar.serialize();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    folder = QVFuzz::setUp();
    examiner = std::make_unique<QVFontDiagnose>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const int layout = data[0] % 10;
    const QByteArray bytes(reinterpret_cast<const char *>(data) + 1, qsizetype(size - 1));
    static const char *const names[] = { "Font.ttf", "Font.otf", "Font.ttc", "Font.dfont", "Suitcase",
        "Outline", "Sidecar", "Font.pfb", "Font.afm", "Font.pfm" };
    const QString path = folder + QLatin1Char('/') + QLatin1String(names[layout]);
    if (layout <= 3 || layout >= 7) {
        QVFuzz::check(QVFuzz::writeFile(path, bytes), "the font is written");
    } else {
        QVFuzz::check(QVFuzz::writeFile(path, {}), "the data file is written");
        const QByteArray sidecar = layout == 4 ? withFork(bytes, "FFIL")
            : layout == 5                      ? withFork(bytes, "LWFN")
                                               : bytes;
        QVFuzz::check(QVFuzz::writeFile(QVForkStorage::sidecarPath(path), sidecar), "the sidecar is written");
    }

    examiner->initialize();
    examiner->setDoActivation(false);
    examiner->examineFont(path);
    const QList<QVStatusPtr> statuses = examiner->fontStatusArray();
    examiner->finalize();
    for (const QVStatusPtr &status : statuses) {
        QVFuzz::check(status->fontURL == path, "a status names its file");
        QVFuzz::check(status->fontErrorsInfo.size() == status->fixedErrors.size()
                && status->fontErrorsInfo.size() == status->fixedErrorMessages.size(),
            "every defect has its repair fields");
        QVFuzz::check(
            status->fontErrors.isEmpty() == status->fontErrorsInfo.isEmpty(), "defects are described");
    }
    // Font files are always represented, damaged or not.
    if (layout <= 2 || layout == 5)
        QVFuzz::check(!statuses.isEmpty(), "an outline file is represented");
    if (layout == 5 || layout >= 7)
        QVFuzz::check(statuses.size() == 1, "an LWFN or a PC Type 1 file is one font");
    // A suitcase whose fork does not open is one status saying so.
    if (layout == 4 && !examiner->hasResourceFork(path))
        QVFuzz::check(
            statuses.size() == 1 && statuses.first()->fontID == -1, "an unreadable suitcase is one status");
    QVFuzz::check(QVResourceManager::openFiles().isEmpty(), "no fork is left open");
    return 0;
}
