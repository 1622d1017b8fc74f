#pragma once
// EXIF orientation (1…8) applied to a Qt bitmap, and the other conventions mapped onto it:
// LibRaw's flip code and FFmpeg's display matrix. Pure functions: safe on any thread.
#include <QImage>
#include <cstdint>

namespace ImageOrientation {

// The upright bitmap for pixels stored with EXIF orientation `orientation`.
QImage apply(const QImage &image, int orientation);

// dcraw/LibRaw flip bits (4 transpose, 2 vertical, 1 horizontal) as an EXIF orientation.
int fromLibRawFlip(int flip);

// The EXIF orientation that shows a video frame as its display matrix asks
// (the nine 16.16/2.30 fixed-point numbers of ISO 14496-12), 1 when absent or not a right angle.
int fromDisplayMatrix(const int32_t matrix[9]);

} // namespace ImageOrientation
