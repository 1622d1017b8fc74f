#include "imagecompleteness.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace ImageCompleteness {
namespace {

class Reader
{
public:
    Reader(int fd, std::uint64_t size) : _fd(fd), _size(size) {}
    std::uint64_t size() const { return _size; }
    // Reads exactly n bytes at offset; false when any of them lies outside the file.
    bool read(std::uint64_t offset, void *out, size_t n) const
    {
        if (offset > _size || n > _size - offset)
            return false;
        auto *p = static_cast<char *>(out);
        while (n > 0) {
            const ssize_t got = ::pread(_fd, p, n, off_t(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            p += got;
            offset += std::uint64_t(got);
            n -= size_t(got);
        }
        return true;
    }
    bool inside(std::uint64_t offset, std::uint64_t length) const { return offset <= _size && length <= _size - offset; }

private:
    int _fd;
    std::uint64_t _size;
};

// ----- JPEG

bool jpegComplete(const Reader &r)
{
    // Walk the marker segments up to the start of the image data.
    std::uint64_t pos = 2;
    for (int guard = 0; guard < 1000; ++guard) {
        std::uint8_t m[4];
        if (!r.read(pos, m, 2))
            return false;
        if (m[0] != 0xFF)
            break;   // not a marker: leave the rest to the end-of-image test
        if (m[1] == 0xFF) {   // fill byte
            ++pos;
            continue;
        }
        if (m[1] == 0xD9)     // end of image before any data: a bare file, complete as written
            return true;
        if (m[1] == 0x01 || (m[1] >= 0xD0 && m[1] <= 0xD7)) {   // markers without a length
            pos += 2;
            continue;
        }
        if (!r.read(pos + 2, m + 2, 2))
            return false;
        const std::uint64_t length = (std::uint64_t(m[2]) << 8) | m[3];
        if (length < 2 || !r.inside(pos + 2, length))
            return false;
        pos += 2 + length;
        if (m[1] == 0xDA)     // start of scan: entropy-coded data follows
            break;
    }
    // Usually the file ends with EOI, or with zeros after it.
    std::array<std::uint8_t, 4096> tail{};
    const std::uint64_t n = std::min<std::uint64_t>(tail.size(), r.size());
    if (!r.read(r.size() - n, tail.data(), size_t(n)))
        return false;
    qsizetype i = qsizetype(n);
    while (i > 0 && tail[size_t(i - 1)] == 0x00)
        --i;
    if (i >= 2 && tail[size_t(i - 2)] == 0xFF && tail[size_t(i - 1)] == 0xD9)
        return true;
    // Otherwise something follows the image (a maker's trailer): an EOI must still come after the
    // start of the image data, where the coded data cannot hold one.
    std::vector<std::uint8_t> chunk(size_t(std::min<std::uint64_t>(1 << 20, r.size() - std::min(pos, r.size()))));
    bool lastWasFF = false;
    while (pos < r.size()) {
        const size_t len = size_t(std::min<std::uint64_t>(chunk.size(), r.size() - pos));
        if (!r.read(pos, chunk.data(), len))
            return false;
        for (size_t k = 0; k < len; ++k) {
            if (lastWasFF && chunk[k] == 0xD9)
                return true;
            lastWasFF = chunk[k] == 0xFF;
        }
        pos += len;
    }
    return false;
}

// ----- TIFF

constexpr int kMaxChain = 64;          // IFDs in one chain
constexpr int kMaxDepth = 4;           // levels of sub-IFDs and EXIF IFDs below IFD0
constexpr quint32 kMaxChildren = 64;   // sub-IFDs of one IFD
constexpr quint32 kMaxArray = 100000;  // strips or tiles: a count no camera writes is not followed

enum class TiffState { whole, cut, tangled };

// Every IFD, and every strip, tile and embedded JPEG they point to, lies inside the file. A walk
// that runs out of the reader's budget cannot tell: the file is too tangled to be a camera's.
class TiffCheck
{
public:
    TiffCheck(TiffReader &reader, const TiffReader::Structure &tiff) : _r(reader), _s(tiff) {}

    TiffState chain(quint32 offset, int depth)
    {
        for (int n = 0; offset != 0 && n < kMaxChain; ++n) {
            const TiffReader::Ifd ifd = _r.ifd(_s, offset);
            if (ifd.status == TiffReader::Ifd::Repeat)
                return TiffState::whole;   // a loop: every IFD on it has been checked already
            if (ifd.status == TiffReader::Ifd::Spent)
                return TiffState::tangled;
            if (!ifd || !ifd.next)
                return TiffState::cut;
            if (const TiffState t = entries(ifd, depth); t != TiffState::whole)
                return t;
            offset = *ifd.next;
        }
        return TiffState::whole;
    }

private:
    // The values of a SHORT, LONG or IFD entry, at most `cap` of them; none for another type or a
    // larger count (nothing to follow).
    TiffState values(const TiffReader::Entry &e, quint32 cap, std::vector<quint32> &out)
    {
        out.clear();
        if ((e.type != TiffReader::Short && e.type != TiffReader::Long && e.type != TiffReader::IfdType) || e.count > cap)
            return TiffState::whole;
        auto v = _r.values(_s, e);
        if (!v)
            return _r.spent() ? TiffState::tangled : TiffState::cut;
        out = std::move(*v);
        return TiffState::whole;
    }

    TiffState entries(const TiffReader::Ifd &ifd, int depth)
    {
        std::vector<quint32> offsets[3], lengths[3];   // strips, tiles, embedded JPEG
        std::vector<quint32> children, v;
        for (const TiffReader::Entry &e : ifd.entries) {
            TiffState t = TiffState::whole;
            switch (e.tag) {
            case 273: t = values(e, kMaxArray, offsets[0]); break;
            case 279: t = values(e, kMaxArray, lengths[0]); break;
            case 324: t = values(e, kMaxArray, offsets[1]); break;
            case 325: t = values(e, kMaxArray, lengths[1]); break;
            case 513: t = values(e, 1, offsets[2]); break;
            case 514: t = values(e, 1, lengths[2]); break;
            case 330:     // SubIFDs
            case 34665:   // Exif IFD
                t = values(e, kMaxChildren, v);
                children.insert(children.end(), v.begin(), v.end());
                break;
            default: break;
            }
            if (t != TiffState::whole)
                return t;
        }
        for (int k = 0; k < 3; ++k) {
            const size_t n = std::min(offsets[k].size(), lengths[k].size());
            for (size_t i = 0; i < n; ++i)
                if (!_s.contains(offsets[k][i], lengths[k][i]))
                    return TiffState::cut;
        }
        if (depth < kMaxDepth)
            for (quint32 child : children)
                if (child != 0)
                    if (const TiffState t = chain(child, depth + 1); t != TiffState::whole)
                        return t;
        return TiffState::whole;
    }

    TiffReader &_r;
    const TiffReader::Structure &_s;
};

Verdict tiffVerdict(const Reader &r, TiffReader::Work *work)
{
    TiffReader reader([&r](qint64 offset, qint64 length, uint8_t *out) {
        return r.read(std::uint64_t(offset), out, size_t(length));
    }, qint64(r.size()));
    TiffState state = TiffState::cut;
    if (const auto tiff = reader.structure(0); tiff && tiff->firstIfd != 0)
        state = TiffCheck(reader, *tiff).chain(tiff->firstIfd, 0);
    if (work)
        *work = reader.work();
    switch (state) {
    case TiffState::whole: return Verdict::complete;
    case TiffState::cut: return Verdict::truncated;
    case TiffState::tangled: return Verdict::unknownKind;
    }
    return Verdict::unknownKind;
}

// ----- ISO base media

bool isBoxType(const std::uint8_t *t)
{
    for (int i = 0; i < 4; ++i)
        if (!((t[i] >= 'a' && t[i] <= 'z') || (t[i] >= 'A' && t[i] <= 'Z') || (t[i] >= '0' && t[i] <= '9') || t[i] == ' '))
            return false;
    return true;
}

bool isoComplete(const Reader &r)
{
    std::uint64_t pos = 0;
    for (int guard = 0; guard < 100000 && pos < r.size(); ++guard) {
        std::uint8_t h[16];
        if (!r.read(pos, h, 8))
            return false;
        std::uint64_t size = std::uint64_t(h[0]) << 24 | std::uint64_t(h[1]) << 16 | std::uint64_t(h[2]) << 8 | h[3];
        if (size == 0)
            return true;   // the last box runs to the end of the file
        if (size == 1) {
            if (!r.read(pos + 8, h + 8, 8))
                return false;
            size = 0;
            for (int i = 8; i < 16; ++i)
                size = size << 8 | h[i];
            if (size < 16)
                return false;
        } else if (size < 8) {
            return false;
        }
        if (!r.inside(pos, size))
            return false;
        pos += size;
    }
    return pos == r.size();
}

} // namespace

Verdict check(int fd, TiffReader::Work *tiffWork)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return Verdict::unknownKind;
    const Reader r(fd, std::uint64_t(st.st_size));
    std::uint8_t h[12] = {};
    if (!r.read(0, h, std::min<std::uint64_t>(sizeof h, r.size())))
        return Verdict::unknownKind;
    if (r.size() >= 3 && h[0] == 0xFF && h[1] == 0xD8 && h[2] == 0xFF)
        return jpegComplete(r) ? Verdict::complete : Verdict::truncated;
    if (r.size() >= 4) {
        const bool ii = h[0] == 'I' && h[1] == 'I';
        const bool mm = h[0] == 'M' && h[1] == 'M';
        // TIFF 42, Olympus "RO"/"RS", Panasonic 0x55.
        const bool tiff = (ii && ((h[2] == 42 && h[3] == 0) || (h[2] == 'R' && (h[3] == 'O' || h[3] == 'S')) || (h[2] == 0x55 && h[3] == 0)))
                          || (mm && ((h[2] == 0 && h[3] == 42) || (h[2] == 'O' && h[3] == 'R')));
        if (tiff)
            return tiffVerdict(r, tiffWork);
    }
    if (r.size() >= 8 && isBoxType(h + 4)) {
        static const char *kTopBoxes[] = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot", "uuid"};
        for (const char *t : kTopBoxes)
            if (std::equal(t, t + 4, h + 4))
                return isoComplete(r) ? Verdict::complete : Verdict::truncated;
    }
    return Verdict::unknownKind;
}

Verdict checkFile(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return Verdict::unknownKind;
    const Verdict v = check(fd);
    ::close(fd);
    return v;
}

} // namespace ImageCompleteness
