#pragma once
// The thumbnail a camera stores in EXIF IFD1 (JPEGInterchangeFormat / …Length) of a JPEG's APP1
// segment or of a TIFF file, with the orientation of IFD0 that applies to it. A minimal TIFF walk
// bounded on hostile input: no pixels decoded. Pure functions: safe on any thread.
#include <QByteArray>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

namespace ExifThumbnail {

struct Found {
    QByteArray jpeg;
    int orientation = 1;   // EXIF orientation of the main image (1 when the file has none)
};

// Reads `length` bytes at `offset` into `out`; false when they are not all there.
using ReadAt = std::function<bool(qint64 offset, qint64 length, char *out)>;

// From bytes that start with a JPEG (FF D8) or a TIFF header ("II*\0" / "MM\0*").
std::optional<Found> find(const uint8_t *data, qint64 size);
// The same over random access to a file of `size` bytes.
std::optional<Found> find(const ReadAt &read, qint64 size);
// From a file: only the bytes the walk needs are read.
std::optional<Found> read(const QString &path);

inline constexpr qint64 kMaxThumbnailBytes = 4 << 20;   // EXIF allows 64 KB; some writers more

} // namespace ExifThumbnail
