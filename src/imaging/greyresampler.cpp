#include "greyresampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <vector>

namespace {

constexpr int kShift = 14;
constexpr int kOne = 1 << kShift;
constexpr int kRound = 1 << (kShift - 1);

double lanczos3(double x)
{
    x = std::abs(x);
    if (x < 1e-9)
        return 1.0;
    if (x >= 3.0)
        return 0.0;
    const double px = std::numbers::pi * x;
    return 3.0 * std::sin(px) * std::sin(px / 3.0) / (px * px);
}

// For every output position, `taps` weights starting at source index `start`. Every window lies
// inside the source: near the edges it is shifted in and the weights of the positions beyond the
// edge go to the edge pixel, as if the border were repeated.
struct Taps {
    int taps = 0;
    std::vector<int> start;
    std::vector<int16_t> weights;   // out × taps
};

Taps makeTaps(int in, int out, int align)
{
    const double scale = double(in) / out;
    const double stretch = std::max(scale, 1.0);   // widen the kernel when shrinking
    const double support = 3.0 * stretch;
    Taps t;
    t.taps = std::min(in, (int(std::ceil(2 * support)) + 1 + align - 1) / align * align);
    t.start.resize(size_t(out));
    t.weights.assign(size_t(out) * size_t(t.taps), 0);
    std::vector<double> w(size_t(t.taps));
    for (int o = 0; o < out; ++o) {
        const double centre = (o + 0.5) * scale - 0.5;
        const int first = std::clamp(int(std::floor(centre - support)) + 1, 0, in - t.taps);
        t.start[size_t(o)] = first;
        std::fill(w.begin(), w.end(), 0.0);
        double sum = 0;
        for (int k = int(std::floor(centre - support)) + 1; k <= int(std::floor(centre + support)); ++k) {
            const double weight = lanczos3((k - centre) / stretch);
            const int at = std::clamp(k, 0, in - 1) - first;
            if (at < 0 || at >= t.taps)
                continue;
            w[size_t(at)] += weight;
            sum += weight;
        }
        // Rounded so the integer weights add up to exactly one: flat areas stay exactly flat.
        int16_t *dst = &t.weights[size_t(o) * size_t(t.taps)];
        int total = 0, biggest = 0;
        for (int k = 0; k < t.taps; ++k) {
            dst[k] = int16_t(std::lround(w[size_t(k)] / sum * kOne));
            total += dst[k];
            if (std::abs(dst[k]) > std::abs(dst[biggest]))
                biggest = k;
        }
        dst[biggest] = int16_t(dst[biggest] + (kOne - total));
    }
    return t;
}

inline uint8_t clampPixel(int v)
{
    v = (v + kRound) >> kShift;
    return uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v));
}

} // namespace

QImage GreyResampler::lanczos3(const QImage &grey, QSize size)
{
    if (grey.isNull() || size.isEmpty() || grey.format() != QImage::Format_Grayscale8)
        return {};
    if (grey.size() == size)
        return grey;
    const int inW = grey.width(), inH = grey.height();
    const int outW = size.width(), outH = size.height();

    // Columns: inW × outH, each output row a weighted sum of whole source rows.
    const Taps vt = makeTaps(inH, outH, 1);
    std::vector<uint8_t> mid(size_t(inW) * size_t(outH));
    std::vector<int32_t> acc(static_cast<size_t>(inW));
    for (int o = 0; o < outH; ++o) {
        std::fill(acc.begin(), acc.end(), 0);
        const int16_t *w = &vt.weights[size_t(o) * size_t(vt.taps)];
        for (int k = 0; k < vt.taps; ++k) {
            const int weight = w[k];
            if (weight == 0)
                continue;
            const uint8_t *src = grey.constScanLine(vt.start[size_t(o)] + k);
            int32_t *a = acc.data();
            for (int x = 0; x < inW; ++x)
                a[x] += weight * int32_t(src[x]);
        }
        uint8_t *dst = &mid[size_t(o) * size_t(inW)];
        for (int x = 0; x < inW; ++x)
            dst[x] = clampPixel(acc[size_t(x)]);
    }

    // Rows: a fixed tap count (a multiple of 8) keeps the dot product a SIMD loop.
    const Taps ht = makeTaps(inW, outW, 8);
    QImage out(size, QImage::Format_Grayscale8);
    if (out.isNull())
        return {};
    const int taps = ht.taps;
    for (int y = 0; y < outH; ++y) {
        const uint8_t *src = &mid[size_t(y) * size_t(inW)];
        uint8_t *dst = out.scanLine(y);
        for (int x = 0; x < outW; ++x) {
            const uint8_t *s = src + ht.start[size_t(x)];
            const int16_t *w = &ht.weights[size_t(x) * size_t(taps)];
            int32_t sum = 0;
            for (int k = 0; k < taps; ++k)
                sum += int32_t(w[k]) * int32_t(s[k]);
            dst[x] = clampPixel(sum);
        }
    }
    return out;
}
