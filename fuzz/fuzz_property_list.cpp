// The property-list reader (indexes are files anyone with access to the data
// folder may have changed): any text gives a value or an error, never a crash
// or a stack overflow, and a value read writes back to text that reads back to
// the same value.
#include "QVFuzzSupport.h"
#include "store/QVPropertyList.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    QVFuzz::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray xml = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const QVariant value = QVPropertyList::fromXml(xml, &error);
    if (!value.isValid()) {
        QVFuzz::check(!error.isEmpty(), "a refusal says why");
        return 0;
    }
    const QByteArray written = QVPropertyList::toXml(value);
    const QVariant again = QVPropertyList::fromXml(written, &error);
    QVFuzz::check(again.isValid(), "what was written reads back");
    QVFuzz::check(QVPropertyList::toXml(again) == written, "the value survives the round trip");
    return 0;
}
