#pragma once
// LibRaw behind the decoder: the thumbnail a RAW carries as LibRaw finds it (formats our own
// container walk does not parse, such as CR3 and RW2) and the full development when no embedded
// image serves. LibRaw's failures and exceptions end here as empty results. Thread-safe
// (libraw_r, one LibRaw object per call).
#include <QByteArray>
#include <QImage>
#include <QString>
#include <optional>

namespace RawDeveloper {

struct Thumbnail {
    QByteArray jpeg;       // a JPEG thumbnail, or
    QImage bitmap;         // an uncompressed one, stored as the sensor saw it
    int orientation = 1;   // EXIF orientation of the shot
};

std::optional<Thumbnail> thumbnail(const QString &path);

// The developed image, upright, with its long side at most `size` (0: full size). Half-size
// demosaicing when half the sensor is still at least `size`.
QImage develop(const QString &path, int size);

} // namespace RawDeveloper
