// Sidecars come from any folder: other tools, cards, shared disks. A read-modify-write must
// leave a packet that parses again and holds what was written, and the work it does must stay
// in proportion to the input.
#include "metadata/xmplabels.h"
#include "metadata/xmpsidecar.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    auto doc = XmpDocument::parse(bytes);
    if (!doc)
        return 0;
    static const QStringList labels = XmpLabels::presets().at(2).labels;
    XmpSidecar::stateOf(*doc, labels);
    // The state written varies with the input, so every branch of the edit is met.
    const XmpState state{int(size % 9), int(size / 9 % 6), size % 2 == 1, int(size / 3 % 4), int(size % 8) + 1};
    XmpSidecar::apply(*doc, state, labels);
    const QByteArray out = doc->bytes();
    if (doc->work() > 64 * (qint64(size) + 256) || out.size() > bytes.size() + 4096)
        __builtin_trap();
    const auto again = XmpDocument::parse(out);
    if (!again || !XmpSidecar::stateOf(*again, labels).sameMarks(state))
        __builtin_trap();
    return 0;
}
