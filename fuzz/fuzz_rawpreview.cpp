// RAW files arrive from cards, cameras and the network: the container walk, the JPEG checks and the
// byte search must survive any bytes, stay inside them, and agree with one another.
#include "imaging/rawpreview.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const qint64 n = qint64(size);
    const QList<RawPreview::Candidate> list = RawPreview::findCandidates(data, n);
    if (list.size() > 16)
        __builtin_trap();
    for (const RawPreview::Candidate &c : list) {
        if (c.start < 0 || c.start >= c.end || c.end > n || c.width < 0 || c.height < 0)
            __builtin_trap();
        if (c.exifOrientation && (*c.exifOrientation < 1 || *c.exifOrientation > 8))
            __builtin_trap();
        if (const auto end = RawPreview::jpegEnd(data, n, c.start); end && (*end <= c.start + 2 || *end > n))
            __builtin_trap();
    }

    // The largest is at least as big as any, and a fit is one of the list.
    const auto big = RawPreview::largest(list);
    if (big.has_value() != !list.isEmpty())
        __builtin_trap();
    for (const RawPreview::Candidate &c : list)
        if (c.longSide() > big->longSide())
            __builtin_trap();
    for (int minLong : {0, 200, 1600, 2560, 100000}) {
        const auto fit = RawPreview::bestFit(list, minLong);
        if (fit.has_value() != !list.isEmpty() || (fit && fit->longSide() < minLong && fit->longSide() != big->longSide()))
            __builtin_trap();
    }

    // What the search finds is a whole JPEG by the end walk's own measure.
    if (const auto found = RawPreview::searchJPEG(data, n)) {
        if (found->first < 0 || found->first >= found->second || found->second > n)
            __builtin_trap();
        if (RawPreview::jpegEnd(data, n, found->first) != found->second)
            __builtin_trap();
    }
    RawPreview::jpegEnd(data, n, 0);

    if (const auto chosen = RawPreview::choose(data, n, 2560, 0, true, true))
        if (chosen->candidate.start < 0 || chosen->candidate.end > n || chosen->candidate.start >= chosen->candidate.end)
            __builtin_trap();
    return 0;
}
