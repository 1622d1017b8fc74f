// The TIFF reader under every walk of RAW files, EXIF blocks and uploads. This walk follows every
// pointer it can (next IFDs, sub-IFDs, EXIF, GPS and interoperability IFDs, any IFD-typed entry)
// and reads every value, as a caller with no policy at all would: the reader alone must keep the
// work in proportion to the input, stay inside it, and read each IFD once.
#include "imaging/tiffreader.h"

#include <cstdint>
#include <vector>

namespace {

struct Walk {
    TiffReader &r;
    const TiffReader::Structure &s;
    qint64 steps = 0;   // calls made into the reader

    void chain(quint32 offset)
    {
        std::vector<quint32> pending{offset};
        while (!pending.empty()) {
            const quint32 at = pending.back();
            pending.pop_back();
            ++steps;
            const TiffReader::Ifd ifd = r.ifd(s, at);
            if (!ifd) {
                if (!ifd.entries.empty() || ifd.next)
                    __builtin_trap();
                continue;
            }
            for (const TiffReader::Entry &e : ifd.entries) {
                const bool pointer = e.tag == 330 || e.tag == 34665 || e.tag == 34853 || e.tag == 40965 || e.type == TiffReader::IfdType;
                if (e.count <= 4) {
                    for (quint32 i = 0; i < e.count; ++i) {
                        ++steps;
                        const auto v = r.value(s, e, i);
                        if (!v)
                            break;
                        if (pointer)
                            pending.push_back(*v);
                    }
                } else {
                    ++steps;
                    if (const auto v = r.values(s, e)) {
                        if (v->size() != e.count)
                            __builtin_trap();
                        if (pointer)
                            pending.insert(pending.end(), v->begin(), v->end());
                    }
                }
                if (!e.inField() && e.byteCount() <= 4096) {
                    std::vector<uint8_t> bytes(size_t(e.byteCount()));
                    ++steps;
                    r.read(s, e.offset, e.byteCount(), bytes.data());
                }
            }
            if (ifd.next)
                pending.push_back(*ifd.next);
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const qint64 n = qint64(size);
    TiffReader reader(data, n);
    // The header at the start, and one a little further in (as in a JPEG's EXIF block).
    for (qint64 base : {qint64(0), qint64(12)}) {
        const auto tiff = reader.structure(base);
        if (!tiff)
            continue;
        if (tiff->base != base || tiff->base + tiff->size > n)
            __builtin_trap();
        Walk w{reader, *tiff};
        w.chain(tiff->firstIfd);
        // Every pointer followed was paid for when read, so the walk itself stays linear in the input.
        if (w.steps > (256 << 10) + 16 * n)
            __builtin_trap();
    }

    // The work done, whatever the bytes: a few IFDs and entries per KB, a few reads of each byte.
    const TiffReader::Work w = reader.work(), limit = reader.limit();
    if (w.ifds > limit.ifds || w.entries > limit.entries || w.bytes > limit.bytes)
        __builtin_trap();
    if (w.ifds > 64 + n / 16 || w.entries > 1024 + n / 2 || w.bytes > (128 << 10) + 4 * n)
        __builtin_trap();
    return 0;
}
