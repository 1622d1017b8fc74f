// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips.h>

#include "sharpness.h"

#include "imaging/imagedecoder.h"
#include "imaging/imageorientation.h"
#include "imaging/jpeggrey.h"
#include "imaging/vipsbitmap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

namespace {

using Sharpness::kGrid;

struct Tile {
    double value;
    double x, y;
};

// One step of a vips chain: the new image replaces the old, or the chain ends on failure.
template<typename F>
bool step(VipsBitmap::Ptr &image, F &&operation)
{
    VipsImage *out = nullptr;
    if (operation(image.get(), &out) != 0) {
        VipsBitmap::clearError();
        return false;
    }
    image.reset(out);
    return true;
}

// ΣL and ΣL² of one tile row. Per-chunk sums fit in 32 bits (|L| ≤ 1020, so 2048 squares stay
// below 2³¹), which keeps the inner loop a plain int loop the compiler vectorises.
inline void accumulateRow(const uint8_t *row, qsizetype stride, int x0, int x1, qint64 &sum, qint64 &sumSq)
{
    constexpr int kChunk = 2048;
    constexpr int kBlock = 16;
    const uint8_t *up = row - stride;
    const uint8_t *down = row + stride;
    for (int start = x0; start < x1; start += kChunk) {
        const int end = std::min(start + kChunk, x1);
        int s = 0, sq = 0;
        int x = start;
        // Blocks of a fixed 16 pixels: g++ -O2 only vectorises loops whose trip count it knows.
        for (; x + kBlock <= end; x += kBlock) {
            for (int k = 0; k < kBlock; ++k) {
                const int l = 4 * int(row[x + k]) - int(up[x + k]) - int(down[x + k]) - int(row[x + k - 1])
                    - int(row[x + k + 1]);
                s += l;
                sq += l * l;
            }
        }
        for (; x < end; ++x) {
            const int l = 4 * int(row[x]) - int(up[x]) - int(down[x]) - int(row[x - 1]) - int(row[x + 1]);
            s += l;
            sq += l * l;
        }
        sum += s;
        sumSq += sq;
    }
}

// Brightness as the classic device grey: BT.601 luma of the stored values, the same weights
// libjpeg uses for its luma channel, so a JPEG read as grey and its decoded colours agree.
QImage greyOf(const QImage &source)
{
    if (source.format() == QImage::Format_Grayscale8)
        return source;
    const QImage rgb = source.convertToFormat(QImage::Format_RGB32);
    QImage grey(rgb.size(), QImage::Format_Grayscale8);
    if (grey.isNull())
        return {};
    const int w = rgb.width();
    for (int y = 0; y < rgb.height(); ++y) {
        const QRgb *in = reinterpret_cast<const QRgb *>(rgb.constScanLine(y));
        uint8_t *out = grey.scanLine(y);
        for (int x = 0; x < w; ++x)
            out[x] = uint8_t((19595 * qRed(in[x]) + 38470 * qGreen(in[x]) + 7471 * qBlue(in[x]) + 32768) >> 16);
    }
    return grey;
}

// A grey bitmap resampled to exactly `size` with Lanczos 3. Empty on failure.
QImage resizeGrey(const QImage &grey, QSize size)
{
    if (grey.size() == size)
        return grey;
    VipsBitmap::start();
    // libvips wants dense rows; QImage pads grey rows to four bytes.
    QByteArray dense(qsizetype(grey.width()) * grey.height(), Qt::Uninitialized);
    for (int y = 0; y < grey.height(); ++y)
        std::memcpy(dense.data() + qsizetype(y) * grey.width(), grey.constScanLine(y), size_t(grey.width()));
    VipsBitmap::Ptr image(vips_image_new_from_memory(dense.constData(), size_t(dense.size()), grey.width(),
                                                     grey.height(), 1, VIPS_FORMAT_UCHAR));
    if (!image) {
        VipsBitmap::clearError();
        return {};
    }
    /* Resample to exactly W × H; rounding inside the resampler may leave a pixel over or under. */
    const double hscale = double(size.width()) / grey.width();
    const double vscale = double(size.height()) / grey.height();
    if (!step(image, [&](VipsImage *in, VipsImage **out) {
            return vips_resize(in, out, hscale, "vscale", vscale, "kernel", VIPS_KERNEL_LANCZOS3, nullptr);
        }))
        return {};
    if (vips_image_get_width(image.get()) != size.width() || vips_image_get_height(image.get()) != size.height()) {
        if (!step(image, [&](VipsImage *in, VipsImage **out) {
                return vips_embed(in, out, 0, 0, size.width(), size.height(), "extend", VIPS_EXTEND_COPY, nullptr);
            }))
            return {};
    }
    if (!step(image, [](VipsImage *in, VipsImage **out) { return vips_cast_uchar(in, out, nullptr); }))
        return {};

    size_t length = 0;
    void *pixels = vips_image_write_to_memory(image.get(), &length);
    if (!pixels || length != size_t(size.width()) * size_t(size.height())) {
        g_free(pixels);
        VipsBitmap::clearError();
        return {};
    }
    QImage out(size, QImage::Format_Grayscale8);
    for (int y = 0; y < size.height(); ++y)
        std::memcpy(out.scanLine(y), static_cast<const uint8_t *>(pixels) + qsizetype(y) * size.width(),
                    size_t(size.width()));
    g_free(pixels);
    return out;
}

// A camera JPEG read as grey at the cheapest DCT scale, brought to the working size and turned
// upright. Nothing when libjpeg can't give grey from it: the caller takes the general road.
std::optional<QImage> jpegWorkingGrey(const QString &path)
{
    const auto decoded = JpegGreyDecoder::decode(
        path, [](QSize full) { return sharpnessWorkingSize(full.width(), full.height()); }, ImageDecoder::kMaxPixels);
    if (!decoded)
        return std::nullopt;
    const QSize stored = sharpnessWorkingSize(decoded->fullSize.width(), decoded->fullSize.height());
    QImage grey = resizeGrey(decoded->grey, stored);
    if (grey.isNull())
        return std::nullopt;
    VipsBitmap::start();
    if (const VipsBitmap::Ptr header = VipsBitmap::openHeader(path, ImageDecoder::kMaxPixels))
        grey = ImageOrientation::apply(grey, VipsBitmap::orientationOf(header.get()));
    return grey;
}

} // namespace

QSize sharpnessWorkingSize(int w, int h)
{
    const int longSide = std::max(w, h);
    const double s = longSide > 0 ? std::min(double(Sharpness::kMaxSide) / longSide, 1.0) : 1.0;
    return {std::max(int(std::trunc(w * s)), Sharpness::kMinSide), std::max(int(std::trunc(h * s)), Sharpness::kMinSide)};
}

SharpResult measureGrey(const uint8_t *grey, int W, int H, qsizetype stride)
{
    std::array<Tile, kGrid * kGrid> tiles;
    for (int r = 0; r < kGrid; ++r) {
        // Bounds skip the one-pixel border, so the Laplacian never reads outside the bitmap.
        const int y0 = std::max(int(qint64(r) * H / kGrid), 1);
        const int y1 = std::min(int(qint64(r + 1) * H / kGrid), H - 1);
        for (int c = 0; c < kGrid; ++c) {
            const int x0 = std::max(int(qint64(c) * W / kGrid), 1);
            const int x1 = std::min(int(qint64(c + 1) * W / kGrid), W - 1);
            double value = 0;
            if (y0 + 2 < y1 && x0 + 2 < x1) {
                qint64 sum = 0, sumSq = 0;
                for (int y = y0; y < y1; ++y)
                    accumulateRow(grey + qsizetype(y) * stride, stride, x0, x1, sum, sumSq);
                const double n = double(x1 - x0) * double(y1 - y0);
                const double mean = double(sum) / n;
                value = std::max(double(sumSq) / n - mean * mean, 0.0);
            }
            tiles[size_t(r * kGrid + c)] = {value, (c + 0.5) / kGrid, (r + 0.5) / kGrid};
        }
    }
    // Stable, so equal tiles keep reading order and a blank image points at the first one.
    std::stable_sort(tiles.begin(), tiles.end(), [](const Tile &a, const Tile &b) { return a.value > b.value; });

    SharpResult result;
    // Always divided by three, even if fewer tiles were measured.
    result.best = (tiles[0].value + tiles[1].value + tiles[2].value) / 3.0;
    result.focusX = tiles[0].x;
    result.focusY = tiles[0].y;
    return result;
}

SharpResult measureSharpness(const QImage &image)
{
    const QSize size = sharpnessWorkingSize(image.width(), image.height());
    QImage grey = image.isNull() ? QImage() : resizeGrey(greyOf(image), size);
    if (grey.isNull()) {
        grey = QImage(size, QImage::Format_Grayscale8);
        grey.fill(0);
    }
    return measureGrey(grey.constBits(), grey.width(), grey.height(), grey.bytesPerLine());
}

std::optional<SharpResult> measureSharpnessOfFile(const QString &path, bool isRaw)
{
    // Most shots are seen through a camera JPEG: its luma alone, at a reduced DCT scale, is all
    // the measure needs, at a fraction of a full colour decode.
    if (!isRaw) {
        if (const auto grey = jpegWorkingGrey(path))
            return measureGrey(grey->constBits(), grey->width(), grey->height(), grey->bytesPerLine());
    }
    const ImageDecoder::Result decoded = ImageDecoder::decode(path, isRaw, Sharpness::kMaxSide);
    if (decoded.image.isNull())
        return std::nullopt;
    return measureSharpness(decoded.image);
}
