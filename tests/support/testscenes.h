#pragma once
// Test pictures for the sharpness measure: a detailed scene and blurred copies of it.
#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPen>

#include <algorithm>

namespace TestScenes {

// A fixed scene with hard edges at many places and scales: rectangles, rings and lines of
// several greys. No randomness, so every run measures the same pixels.
inline QImage sharpScene(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    img.fill(QColor(128, 128, 128));
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing, false);
    int shade = 0;
    for (int y = 0; y < h; y += 40) {
        for (int x = 0; x < w; x += 40) {
            shade = (shade * 37 + 71) % 256;
            p.fillRect(x + 4, y + 4, 28 + (x / 40) % 8, 20 + (y / 40) % 12, QColor(shade, 255 - shade, (shade * 3) % 256));
            p.setPen(QPen(QColor(255 - shade, shade, 40), 1 + (x / 40) % 3));
            p.drawLine(x, y + 36, x + 36, y + 10);
            p.drawEllipse(QPoint(x + 20, y + 20), 9, 6);
        }
    }
    p.end();
    return img;
}

// Separable box blur of radius `rx` × `ry`, edges clamped; two passes of it are close to a Gaussian.
inline QImage boxBlur(const QImage &src, int rx, int ry)
{
    QImage in = src.convertToFormat(QImage::Format_RGB32);
    const int w = in.width(), h = in.height();
    auto pass = [&](const QImage &from, bool horizontal, int r) {
        QImage to(w, h, QImage::Format_RGB32);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                int sr = 0, sg = 0, sb = 0, n = 0;
                for (int d = -r; d <= r; ++d) {
                    const int xx = horizontal ? std::clamp(x + d, 0, w - 1) : x;
                    const int yy = horizontal ? y : std::clamp(y + d, 0, h - 1);
                    const QRgb c = reinterpret_cast<const QRgb *>(from.constScanLine(yy))[xx];
                    sr += qRed(c);
                    sg += qGreen(c);
                    sb += qBlue(c);
                    ++n;
                }
                reinterpret_cast<QRgb *>(to.scanLine(y))[x] = qRgb(sr / n, sg / n, sb / n);
            }
        }
        return to;
    };
    QImage out = in;
    if (rx > 0)
        out = pass(out, true, rx);
    if (ry > 0)
        out = pass(out, false, ry);
    return out;
}

inline QImage gaussianLike(const QImage &src, int r) { return boxBlur(boxBlur(src, r, r), r, r); }

} // namespace TestScenes

using TestScenes::boxBlur;
using TestScenes::gaussianLike;
using TestScenes::sharpScene;
