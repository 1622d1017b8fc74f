#include "exifthumbnail.h"

#include "tiffreader.h"

#include <QFile>

#include <cstring>

namespace ExifThumbnail {
namespace {

constexpr int kMaxMarkers = 64;
constexpr int kMaxEntries = 999;
constexpr quint16 kOrientation = 0x0112, kThumbnailOffset = 0x0201, kThumbnailLength = 0x0202;

// The thumbnail of the TIFF structure that makes up all of `reader`'s input.
std::optional<Found> fromTiff(TiffReader &reader)
{
    const auto tiff = reader.structure(0);
    if (!tiff || tiff->magic != 42 || tiff->firstIfd < 8)
        return std::nullopt;
    // A single SHORT or LONG, in the entry itself.
    const auto single = [&](const TiffReader::Entry &e) -> qint64 {
        if (e.count != 1 || (e.type != TiffReader::Short && e.type != TiffReader::Long))
            return -1;
        return reader.value(*tiff, e).value_or(0);
    };

    const TiffReader::Ifd ifd0 = reader.ifd(*tiff, tiff->firstIfd, kMaxEntries);
    if (!ifd0 || ifd0.entries.empty() || !ifd0.next || *ifd0.next < 8)
        return std::nullopt;
    int orientation = 1;
    for (const TiffReader::Entry &e : ifd0.entries) {
        if (e.tag == kOrientation) {
            const qint64 o = single(e);
            if (o >= 1 && o <= 8)
                orientation = int(o);
        }
    }

    // IFD1; the reader refuses a next pointer back at IFD0, a loop rather than a thumbnail.
    const TiffReader::Ifd ifd1 = reader.ifd(*tiff, *ifd0.next, kMaxEntries);
    if (!ifd1 || ifd1.entries.empty() || !ifd1.next)
        return std::nullopt;
    qint64 start = -1, length = -1;
    for (const TiffReader::Entry &e : ifd1.entries) {
        if (e.tag == kThumbnailOffset)
            start = single(e);
        else if (e.tag == kThumbnailLength)
            length = single(e);
    }
    if (start <= 0 || length <= 4 || length > kMaxThumbnailBytes)
        return std::nullopt;
    QByteArray jpeg(length, Qt::Uninitialized);
    if (!reader.read(*tiff, start, length, reinterpret_cast<uint8_t *>(jpeg.data())) || uint8_t(jpeg[0]) != 0xFF
        || uint8_t(jpeg[1]) != 0xD8)
        return std::nullopt;
    return Found{jpeg, orientation};
}

std::optional<Found> fromTiff(const ReadAt &read, qint64 base, qint64 size)
{
    TiffReader reader([&read, base](qint64 offset, qint64 length, uint8_t *out) {
        return read(base + offset, length, reinterpret_cast<char *>(out));
    }, size);
    return fromTiff(reader);
}

// The TIFF inside a JPEG's "Exif" APP1 segment: (offset, length) of it, or absent.
std::optional<std::pair<qint64, qint64>> exifSegment(const ReadAt &read, qint64 size)
{
    qint64 pos = 2;
    for (int markers = 0; markers < kMaxMarkers; ++markers) {
        uint8_t m[4];
        if (pos + 4 > size || !read(pos, 4, reinterpret_cast<char *>(m)))
            return std::nullopt;
        if (m[0] != 0xFF)
            return std::nullopt;
        if (m[1] == 0xFF) {   // fill byte
            ++pos;
            continue;
        }
        if (m[1] == 0x01 || (m[1] >= 0xD0 && m[1] <= 0xD8)) {
            pos += 2;
            continue;
        }
        if (m[1] == 0xD9 || m[1] == 0xDA)   // the image data starts: no EXIF before it
            return std::nullopt;
        const qint64 length = m[2] << 8 | m[3];
        if (length < 2)
            return std::nullopt;
        if (m[1] == 0xE1 && length >= 2 + 6 + 8) {
            char id[6];
            if (pos + 10 <= size && read(pos + 4, 6, id) && memcmp(id, "Exif\0\0", 6) == 0)
                return std::make_pair(pos + 10, qMin(length - 8, size - (pos + 10)));
        }
        pos += 2 + length;
    }
    return std::nullopt;
}

} // namespace

std::optional<Found> find(const ReadAt &read, qint64 size)
{
    char magic[4];
    if (size < 8 || !read(0, 4, magic))
        return std::nullopt;
    if (uint8_t(magic[0]) == 0xFF && uint8_t(magic[1]) == 0xD8) {
        const auto segment = exifSegment(read, size);
        return segment ? fromTiff(read, segment->first, segment->second) : std::nullopt;
    }
    return fromTiff(read, 0, size);
}

std::optional<Found> find(const uint8_t *data, qint64 size)
{
    if (!data || size <= 0)
        return std::nullopt;
    const ReadAt read = [data, size](qint64 offset, qint64 length, char *out) {
        if (offset < 0 || length < 0 || offset > size || length > size - offset)
            return false;
        memcpy(out, data + offset, size_t(length));
        return true;
    };
    return find(read, size);
}

std::optional<Found> read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const qint64 size = file.size();
    const ReadAt read = [&file](qint64 offset, qint64 length, char *out) {
        return file.seek(offset) && file.read(out, length) == length;
    };
    return find(read, size);
}

} // namespace ExifThumbnail
