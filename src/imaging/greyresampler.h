#pragma once
// Lanczos-3 resampling of 8-bit grey bitmaps, separable, in 14-bit fixed point: the columns pass
// first (one weight per source row, vectorised across the row), then the rows pass with a fixed
// tap count the compiler turns into SIMD dot products. For the sharpness measure, where a
// general-purpose resampler on one band costs as much as the JPEG decode before it. Pure: safe
// on any thread.
#include <QImage>
#include <QSize>

namespace GreyResampler {

// `grey` (Format_Grayscale8) drawn at exactly `size`; null for a null input or an empty size.
QImage lanczos3(const QImage &grey, QSize size);

} // namespace GreyResampler
