#pragma once
// The whole-image sharpness score: variance of a 4-neighbour Laplacian in a 12 × 12 grid of tiles
// on a grey copy of at most 1600 px on the long side; the three sharpest tiles count. Pure
// functions: safe on any thread.
#include <QImage>
#include <QList>
#include <QRectF>
#include <QSize>
#include <QString>
#include <cstdint>
#include <optional>

struct SharpResult {
    double best = 0;                        // the score
    std::optional<QRectF> face;             // the face measured (unit coordinates), when one was
    std::optional<bool> eyesClosed;
    std::optional<QList<double>> eyeOpen;   // openness per eye
    double focusX = 0.5, focusY = 0.5;      // centre of the sharpest tile, unit coordinates
};

namespace Sharpness {
inline constexpr int kGrid = 12;
inline constexpr int kMaxSide = 1600;
inline constexpr int kMinSide = 16;
} // namespace Sharpness

// The size the measure works at for an image of w × h: never scaled up, at least 16 × 16.
QSize sharpnessWorkingSize(int w, int h);

// Measures a bitmap of any format; a null image measures as a blank one.
SharpResult measureSharpness(const QImage &image);

// The grid measure on an 8-bit grey bitmap of W × H whose rows are `stride` bytes apart.
SharpResult measureGrey(const uint8_t *grey, int W, int H, qsizetype stride);

// Decodes a shot's preview file at the working size and measures it; nothing when it can't be
// decoded (a failed decode must not pass for a blurry photo).
std::optional<SharpResult> measureSharpnessOfFile(const QString &path, bool isRaw);
