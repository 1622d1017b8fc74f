// The marks file is read from folders anyone may have written (shared disks, cards).
#include "marks/marksfile.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto file = MarksFile::decode(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (file) {
        // Whatever decodes must encode and decode to the same marks.
        const auto again = MarksFile::decode(file->encode());
        if (!again || again->marks != file->marks)
            __builtin_trap();
    }
    return 0;
}
