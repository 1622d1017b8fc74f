#include "exifthumbnail.h"

#include <QFile>

#include <cstring>

namespace ExifThumbnail {
namespace {

constexpr int kMaxMarkers = 64;
constexpr int kMaxEntries = 999;

// A TIFF structure at `base` of a random-access byte source.
class Tiff
{
public:
    Tiff(const ReadAt &read, qint64 base, qint64 size) : _read(read), _base(base), _size(size) {}

    bool header()
    {
        char h[8];
        if (!bytes(0, 8, h))
            return false;
        if (h[0] == 'I' && h[1] == 'I')
            _big = false;
        else if (h[0] == 'M' && h[1] == 'M')
            _big = true;
        else
            return false;
        return u16(h + 2) == 42 && (_ifd0 = u32(h + 4)) >= 8;
    }

    // Reads an IFD at `offset` (relative to the TIFF start): calls `onEntry(tag, type, count,
    // value field)` for each entry and returns the next IFD's offset (0 for none, -1 on damage).
    template<typename F>
    qint64 ifd(qint64 offset, F &&onEntry)
    {
        char c[2];
        if (offset < 8 || !bytes(offset, 2, c))
            return -1;
        const int count = u16(c);
        if (count < 1 || count > kMaxEntries)
            return -1;
        QByteArray entries(qsizetype(count) * 12 + 4, Qt::Uninitialized);
        if (!bytes(offset + 2, entries.size(), entries.data()))
            return -1;
        for (int i = 0; i < count; ++i) {
            const char *e = entries.constData() + i * 12;
            onEntry(u16(e), u16(e + 2), u32(e + 4), e + 8);
        }
        return u32(entries.constData() + qsizetype(count) * 12);
    }

    // A SHORT or LONG single value from an entry's value field.
    qint64 value(int type, const char *field) const
    {
        if (type == 3)
            return u16(field);
        if (type == 4)
            return u32(field);
        return -1;
    }

    bool bytes(qint64 offset, qint64 length, char *out) const
    {
        if (offset < 0 || length < 0 || offset > _size || length > _size - offset)
            return false;
        return _read(_base + offset, length, out);
    }

    qint64 ifd0() const { return _ifd0; }

private:
    quint16 u16(const char *p) const
    {
        const auto b = reinterpret_cast<const uint8_t *>(p);
        return _big ? quint16(b[0] << 8 | b[1]) : quint16(b[1] << 8 | b[0]);
    }
    quint32 u32(const char *p) const
    {
        const auto b = reinterpret_cast<const uint8_t *>(p);
        return _big ? quint32(b[0]) << 24 | quint32(b[1]) << 16 | quint32(b[2]) << 8 | b[3]
                    : quint32(b[3]) << 24 | quint32(b[2]) << 16 | quint32(b[1]) << 8 | b[0];
    }

    const ReadAt &_read;
    qint64 _base, _size;
    bool _big = false;
    qint64 _ifd0 = 0;
};

std::optional<Found> fromTiff(const ReadAt &read, qint64 base, qint64 size)
{
    Tiff tiff(read, base, size);
    if (!tiff.header())
        return std::nullopt;

    int orientation = 1;
    const qint64 ifd1 = tiff.ifd(tiff.ifd0(), [&](int tag, int type, quint32 count, const char *field) {
        if (tag == 0x0112 && count == 1) {
            const qint64 o = tiff.value(type, field);
            if (o >= 1 && o <= 8)
                orientation = int(o);
        }
    });
    // A next-IFD pointer back at IFD0 is a loop, not a thumbnail.
    if (ifd1 <= 0 || ifd1 == tiff.ifd0())
        return std::nullopt;

    qint64 start = -1, length = -1;
    tiff.ifd(ifd1, [&](int tag, int type, quint32 count, const char *field) {
        if (count != 1)
            return;
        if (tag == 0x0201)
            start = tiff.value(type, field);
        else if (tag == 0x0202)
            length = tiff.value(type, field);
    });
    if (start <= 0 || length <= 4 || length > kMaxThumbnailBytes)
        return std::nullopt;
    QByteArray jpeg(length, Qt::Uninitialized);
    if (!tiff.bytes(start, length, jpeg.data()) || uint8_t(jpeg[0]) != 0xFF || uint8_t(jpeg[1]) != 0xD8)
        return std::nullopt;
    return Found{jpeg, orientation};
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
