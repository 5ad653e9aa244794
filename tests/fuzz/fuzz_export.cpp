// The export document reader: every document either reads completely or is
// refused with a path naming what is wrong.
#include "ExportDocument.h"
#include "FuzzCheck.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray json(reinterpret_cast<const char*>(data), qsizetype(size));
    QString error;
    const std::optional<ExportDocument> document = ExportDocument::read(json, &error);
    FUZZ_CHECK(document.has_value() || !error.isEmpty());
    return 0;
}
