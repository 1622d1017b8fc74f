// The IPTC writer takes apart JPEGs from any card or disk before it rewrites them. Following the
// segments, and the Photoshop resources in them, must stay in proportion to the input, and every
// segment found must lie inside it, in order, before the image data.
#include "metadata/jpegsegments.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto layout = JpegSegments::parse(bytes);
    if (!layout)
        return 0;
    if (layout->work > 2 * qint64(size) + 16)
        __builtin_trap();
    qsizetype last = 2;
    for (const auto &s : layout->segments) {
        if (s.begin < last || s.data < s.begin || s.end < s.data || s.end > layout->scan)
            __builtin_trap();
        last = s.end;
        if (JpegSegments::isPhotoshop(bytes, s)) {
            const QByteArray block = bytes.mid(s.data + 14, s.dataSize() - 14);
            for (quint16 id : {quint16(0x0404), quint16(0x0425)})
                if (const auto r = JpegSegments::photoshopResource(block, id); r && (r->first < 0 || r->first + r->second > block.size()))
                    __builtin_trap();
        }
    }
    if (layout->scan < last || layout->scan + 2 > bytes.size())
        __builtin_trap();
    return 0;
}
