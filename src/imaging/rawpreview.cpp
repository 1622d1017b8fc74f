#include "rawpreview.h"

#include "imagedecoder.h"
#include "tiffreader.h"

#include <QFile>

#include <algorithm>
#include <cstring>
#include <vector>

namespace RawPreview {
namespace {

constexpr qint64 kMinFileSize = 65;
constexpr qint64 kMinFujiSize = 101;
constexpr int kMaxDepth = 2;
constexpr int kMaxEntries = 999;
constexpr int kMaxMarkers = 64;
constexpr qsizetype kMaxCandidates = 16;
constexpr int kMaxSearchFailures = 32;

enum Tag : quint32 {
    Compression = 259, StripOffsets = 273, Orientation = 274, StripByteCounts = 279, SubIFDs = 330,
    JpegOffset = 513, JpegLength = 514, ExifIfd = 34665, PanasonicJpeg = 0x002E,
};

enum Magic : quint32 { StandardMagic = 42, PanasonicMagic = 0x55, OlympusROMagic = 0x4F52, OlympusRSMagic = 0x5352 };

inline quint32 be16(const uint8_t *p) { return (quint32(p[0]) << 8) | p[1]; }
inline quint32 be32(const uint8_t *p)
{
    return (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | p[3];
}

inline bool isFrameMarker(uint8_t m) { return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC; }
inline bool hasNoLength(uint8_t m) { return m == 0x01 || (m >= 0xD0 && m <= 0xD7); }

// What one IFD says about JPEGs and where to go next.
struct Ifd {
    std::optional<quint32> compression, stripOffset, stripLength, jpegOffset, jpegLength, exif;
    quint32 stripCount = 0;
    std::optional<std::pair<quint32, qint64>> panasonicJpeg;   // offset, byte count
    std::vector<quint32> subIfds;
};

// One findCandidates run: the TIFF reader (its byte budget and visited IFDs shared by the
// container and the EXIF blocks of the JPEGs inside it), this walk's own work budget, the
// orientation found so far and the candidates. Every IFD, entry, sub-IFD pointer, JPEG marker and
// fill byte costs one unit of the walk's budget.
class Walker
{
public:
    Walker(const uint8_t *data, qint64 size) : d(data), n(size), reader(data, size) {}

    QList<Candidate> found;
    std::optional<int> orientation;

    // `collect` false: look for the orientation only (the EXIF inside an embedded JPEG).
    void walkTIFF(qint64 base, int depth, bool collect);
    std::optional<Candidate> check(qint64 offset, qint64 length, int depth);
    void consider(qint64 offset, qint64 length, int depth);

private:
    bool spend()
    {
        if (budget <= 0)
            return false;
        --budget;
        return true;
    }
    void walkChain(const TiffReader::Structure &t, quint32 first, int depth, bool collect);
    std::optional<quint32> walkIFD(const TiffReader::Structure &t, quint32 offset, int depth, bool collect);
    // Offsets and sizes here are SHORTs or LONGs; other types are not read.
    std::optional<quint32> value(const TiffReader::Structure &t, const TiffReader::Entry &e, quint32 i)
    {
        if (e.type != TiffReader::Short && e.type != TiffReader::Long)
            return {};
        return reader.value(t, e, i);
    }

    const uint8_t *d;
    qint64 n;
    TiffReader reader;
    int budget = kWorkBudget;
};

void Walker::walkTIFF(qint64 base, int depth, bool collect)
{
    if (depth > kMaxDepth)
        return;
    const auto t = reader.structure(base);
    if (!t || (t->magic != StandardMagic && t->magic != PanasonicMagic && t->magic != OlympusROMagic && t->magic != OlympusRSMagic))
        return;
    walkChain(*t, t->firstIfd, depth, collect);
}

void Walker::walkChain(const TiffReader::Structure &t, quint32 first, int depth, bool collect)
{
    quint32 next = first;
    while (next != 0) {
        const auto after = walkIFD(t, next, depth, collect);
        if (!after)
            return;
        next = *after;
    }
}

// Returns the next IFD's offset (0: none), or absent when this IFD was not walked.
std::optional<quint32> Walker::walkIFD(const TiffReader::Structure &t, quint32 offset, int depth, bool collect)
{
    if (depth > kMaxDepth)
        return {};
    const TiffReader::Ifd read = reader.ifd(t, offset, kMaxEntries);
    if (!read || !spend() || read.entries.empty())
        return {};

    Ifd ifd;
    for (const TiffReader::Entry &e : read.entries) {
        if (!spend())
            return {};
        switch (e.tag) {
        case Compression: ifd.compression = value(t, e, 0); break;
        case StripOffsets:
            ifd.stripCount = e.count;
            ifd.stripOffset = value(t, e, 0);
            break;
        case StripByteCounts: ifd.stripLength = value(t, e, 0); break;
        case Orientation:
            if (!orientation) {
                const auto v = value(t, e, 0);
                if (v && *v >= 1 && *v <= 8)
                    orientation = int(*v);
            }
            break;
        case JpegOffset: ifd.jpegOffset = value(t, e, 0); break;
        case JpegLength: ifd.jpegLength = value(t, e, 0); break;
        case SubIFDs:
            for (quint32 k = 0; k < e.count; ++k) {
                const auto v = value(t, e, k);
                if (!v || !spend())
                    break;
                ifd.subIfds.push_back(*v);
            }
            break;
        case ExifIfd: ifd.exif = value(t, e, 0); break;
        case PanasonicJpeg:
            if (t.magic == PanasonicMagic) {
                // Types TIFF does not define count as bytes here.
                const qint64 bytes = qint64(e.count) * std::max(1, TiffReader::typeSize(e.type));
                if (bytes > 4)   // a value this short sits in the entry itself: no JPEG there
                    ifd.panasonicJpeg = {e.offset, bytes};
            }
            break;
        default: break;
        }
    }

    if (collect) {
        if (ifd.jpegOffset)
            consider(t.base + *ifd.jpegOffset, ifd.jpegLength.value_or(0), depth);
        if ((ifd.compression == 6u || ifd.compression == 7u) && ifd.stripCount == 1 && ifd.stripOffset)
            consider(t.base + *ifd.stripOffset, ifd.stripLength.value_or(0), depth);
        if (ifd.panasonicJpeg)
            consider(t.base + ifd.panasonicJpeg->first, ifd.panasonicJpeg->second, depth);
    }
    for (quint32 sub : ifd.subIfds)
        walkChain(t, sub, depth + 1, collect);
    if (ifd.exif)
        walkChain(t, *ifd.exif, depth + 1, collect);
    return read.next.value_or(0);
}

void Walker::consider(qint64 offset, qint64 length, int depth)
{
    if (found.size() >= kMaxCandidates)
        return;
    if (auto c = check(offset, length, depth)) {
        c->exifOrientation = orientation;
        found.append(*c);
    }
}

// A JPEG at `offset` up to its frame header. An unknown end is recorded as the end of the file,
// the furthest the JPEG can reach; jpegEnd() finds the real one when it is needed.
std::optional<Candidate> Walker::check(qint64 offset, qint64 length, int depth)
{
    if (offset < 0 || offset >= n - 4 || d[offset] != 0xFF || d[offset + 1] != 0xD8)
        return {};
    Candidate c;
    c.start = offset;
    c.hasKnownEnd = length > 4 && length <= n - offset;
    c.end = c.hasKnownEnd ? offset + length : n;
    const qint64 limit = c.end;

    qint64 p = offset + 2;
    for (int markers = 0; markers < kMaxMarkers; ++markers) {
        if (p >= limit || d[p] != 0xFF)
            return {};
        while (p < limit && d[p] == 0xFF) {
            if (!spend())
                return {};
            ++p;
        }
        if (p >= limit)
            return {};
        const uint8_t m = d[p++];
        if (hasNoLength(m))
            continue;
        if (m == 0xD9 || m == 0xDA || limit - p < 2)
            return {};
        const qint64 len = be16(d + p);
        if (len < 2)
            return {};
        if (m >= 0xC0 && m <= 0xCF) {
            if (m >= 0xCD)
                return {};
            if (isFrameMarker(m)) {
                if (limit - p < 7)
                    return {};
                c.height = int(be16(d + p + 3));
                c.width = int(be16(d + p + 5));
                return c;
            }
        } else if (m == 0xE1 && len >= 17 && limit - p >= 8 && std::memcmp(d + p + 2, "Exif", 4) == 0) {
            walkTIFF(p + 8, depth + 1, false);   // after "Exif\0\0"
        }
        p += len;
    }
    return {};
}

} // namespace

QList<Candidate> findCandidates(const uint8_t *data, qint64 size)
{
    if (!data || size < kMinFileSize)
        return {};
    Walker w(data, size);
    if (size >= kMinFujiSize && std::memcmp(data, "FUJIFILM", 8) == 0)
        w.consider(be32(data + 84), be32(data + 88), 0);
    else
        w.walkTIFF(0, 0, true);
    return w.found;
}

std::optional<Candidate> largest(const QList<Candidate> &candidates)
{
    const Candidate *best = nullptr;
    for (const Candidate &c : candidates)
        if (!best || c.longSide() > best->longSide())
            best = &c;
    return best ? std::optional<Candidate>(*best) : std::nullopt;
}

std::optional<Candidate> bestFit(const QList<Candidate> &candidates, int minLong)
{
    const Candidate *best = nullptr;
    for (const Candidate &c : candidates)
        if (c.longSide() >= minLong && (!best || c.longSide() < best->longSide()))
            best = &c;
    return best ? std::optional<Candidate>(*best) : largest(candidates);
}

std::optional<qint64> jpegEnd(const uint8_t *data, qint64 size, qint64 start)
{
    const uint8_t *d = data;
    const qint64 n = size;
    if (!d || start < 0 || start >= n - 4 || d[start] != 0xFF || d[start + 1] != 0xD8)
        return {};
    bool frame = false;
    qint64 p = start + 2;
    for (int markers = 0; markers < kMaxMarkers; ++markers) {
        if (p >= n || d[p] != 0xFF)
            return {};
        while (p < n && d[p] == 0xFF)
            ++p;
        if (p >= n)
            return {};
        const uint8_t m = d[p++];
        if (hasNoLength(m))
            continue;
        if (m == 0xD9)
            return frame ? std::optional<qint64>(p) : std::nullopt;
        if ((m == 0xDA && !frame) || n - p < 2)
            return {};
        const qint64 len = be16(d + p);
        if (len < 2)
            return {};
        if (isFrameMarker(m)) {
            if (m > 0xC2)   // lossless, arithmetic, hierarchical: not for the image I/O
                return {};
            frame = true;
        }
        p += len;
        if (m != 0xDA)
            continue;
        // Entropy-coded data: the next marker is an FF not followed by a stuffed 00, a restart
        // marker or another FF.
        for (;;) {
            if (p >= n)
                return {};
            const auto *ff = static_cast<const uint8_t *>(std::memchr(d + p, 0xFF, size_t(n - p)));
            if (!ff || ff + 1 >= d + n)
                return {};
            const uint8_t next = ff[1];
            p = ff - d;
            if (next != 0x00 && next != 0xFF && !(next >= 0xD0 && next <= 0xD7))
                break;
            ++p;
        }
    }
    return {};
}

std::optional<std::pair<qint64, qint64>> searchJPEG(const uint8_t *data, qint64 size)
{
    if (!data)
        return {};
    std::optional<std::pair<qint64, qint64>> best;
    int failures = 0;
    qint64 p = 0;
    while (size - p >= 3) {
        const auto *ff = static_cast<const uint8_t *>(std::memchr(data + p, 0xFF, size_t(size - p - 2)));
        if (!ff)
            break;
        const qint64 hit = ff - data;
        if (ff[1] != 0xD8 || ff[2] != 0xFF) {
            p = hit + 1;
            continue;
        }
        if (const auto end = jpegEnd(data, size, hit)) {
            if (!best || *end - hit > best->second - best->first)
                best = {hit, *end};
            p = *end;
        } else {
            if (++failures >= kMaxSearchFailures)
                break;
            p = hit + 4;
        }
    }
    return best;
}

std::optional<Choice> choose(const uint8_t *data, qint64 size, int viewSize, int minLong, bool fit, bool allowSearch)
{
    const QList<Candidate> candidates = findCandidates(data, size);
    if (const auto pick = fit ? bestFit(candidates, viewSize) : largest(candidates)) {
        const int floor = minLong > kFloor ? minLong : kFloor;
        if (pick->longSide() >= floor) {
            Choice c{*pick, QString::fromUtf8(ImageDecoder::kRawEmbedded), pick->longSide()};
            if (pick->hasKnownEnd)
                return c;
            if (const auto end = jpegEnd(data, size, pick->start)) {
                c.candidate.end = *end;
                return c;
            }
        }
    }
    if (!allowSearch)
        return {};
    const auto found = searchJPEG(data, size);
    if (!found)
        return {};
    // The frame header gives the size; no orientation is claimed for bytes found this way.
    Walker w(data, size);
    Candidate c = w.check(found->first, found->second - found->first, 0).value_or(Candidate{});
    c.start = found->first;
    c.end = found->second;
    c.exifOrientation.reset();
    c.hasKnownEnd = false;
    return Choice{c, QString::fromUtf8(ImageDecoder::kRawSearched), 0};
}

std::optional<Embedded> embeddedJPEG(const QString &path, int size, int minLong, bool fit, bool allowSearch)
{
    // Mapped, not read: only the headers and the chosen range are touched. A file cut short
    // while mapped would fault, a risk shared with every mmap reader of camera files.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const qint64 n = file.size();
    if (n <= 0)
        return {};
    const uchar *map = file.map(0, n);
    if (!map)
        return {};
    std::optional<Embedded> out;
    if (const auto c = choose(map, n, size, minLong, fit, allowSearch)) {
        const qint64 start = c->candidate.start;
        out = Embedded{QByteArray(reinterpret_cast<const char *>(map) + start, qsizetype(c->candidate.end - start)),
                       c->label, c->candidate.exifOrientation, c->longSide};
    }
    file.unmap(const_cast<uchar *>(map));
    return out;
}

} // namespace RawPreview
