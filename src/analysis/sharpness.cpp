#include "sharpness.h"

#include "imaging/greyresampler.h"
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

// A camera JPEG read as grey at the cheapest DCT scale, brought to the working size and turned
// upright. Nothing when libjpeg can't give grey from it: the caller takes the general road.
std::optional<QImage> jpegWorkingGrey(const QString &path)
{
    const auto decoded = JpegGreyDecoder::decode(
        path, [](QSize full) { return sharpnessWorkingSize(full.width(), full.height()); }, ImageDecoder::kMaxPixels);
    if (!decoded)
        return std::nullopt;
    const QSize stored = sharpnessWorkingSize(decoded->fullSize.width(), decoded->fullSize.height());
    QImage grey = GreyResampler::lanczos3(decoded->grey, stored);
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
    QImage grey = image.isNull() ? QImage() : GreyResampler::lanczos3(greyOf(image), size);
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
