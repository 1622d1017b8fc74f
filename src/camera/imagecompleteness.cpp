#include "imagecompleteness.h"

#include <QFile>
#include <QSet>

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

class TiffWalker
{
public:
    TiffWalker(const Reader &r, bool little) : _r(r), _little(little) {}

    bool walkChain(std::uint64_t offset, int depth)
    {
        for (int n = 0; offset != 0 && n < 64; ++n) {
            if (_visited.contains(offset))
                return true;   // a loop: every IFD on it has been checked already
            _visited.insert(offset);
            std::uint64_t next = 0;
            if (!walkIfd(offset, depth, next))
                return false;
            offset = next;
        }
        return true;
    }

private:
    std::uint16_t u16(const std::uint8_t *p) const { return _little ? std::uint16_t(p[0] | p[1] << 8) : std::uint16_t(p[0] << 8 | p[1]); }
    std::uint32_t u32(const std::uint8_t *p) const
    {
        return _little ? std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24
                       : std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | std::uint32_t(p[3]);
    }
    static unsigned typeSize(unsigned type)
    {
        switch (type) {
        case 1: case 2: case 6: case 7: return 1;
        case 3: case 8: return 2;
        case 4: case 9: case 11: case 13: return 4;
        case 5: case 10: case 12: return 8;
        default: return 0;
        }
    }

    // The values of a SHORT or LONG entry (offsets and byte counts), at most `cap` of them.
    bool values(const std::uint8_t *entry, std::vector<std::uint64_t> &out, size_t cap = 100000)
    {
        const unsigned type = u16(entry + 2);
        const std::uint64_t count = u32(entry + 4);
        out.clear();
        if ((type != 3 && type != 4 && type != 13) || count > cap)
            return true;   // another type, or a count no camera writes: nothing to follow
        const unsigned size = typeSize(type);
        const std::uint64_t bytes = count * size;
        std::vector<std::uint8_t> buf(size_t(std::max<std::uint64_t>(bytes, 4)));
        if (bytes <= 4)
            std::copy(entry + 8, entry + 12, buf.begin());
        else if (!_r.read(u32(entry + 8), buf.data(), size_t(bytes)))
            return false;
        for (std::uint64_t i = 0; i < count; ++i)
            out.push_back(size == 2 ? u16(&buf[size_t(i * 2)]) : u32(&buf[size_t(i * 4)]));
        return true;
    }

    bool walkIfd(std::uint64_t offset, int depth, std::uint64_t &next)
    {
        std::uint8_t head[2];
        if (!_r.read(offset, head, 2))
            return false;
        const unsigned count = u16(head);
        std::vector<std::uint8_t> table(size_t(count) * 12 + 4);
        if (!_r.read(offset + 2, table.data(), table.size()))
            return false;
        next = u32(&table[size_t(count) * 12]);

        std::vector<std::uint64_t> offsets[3], lengths[3];   // strips, tiles, embedded JPEG
        std::vector<std::uint64_t> children;
        for (unsigned i = 0; i < count; ++i) {
            const std::uint8_t *e = &table[size_t(i) * 12];
            std::vector<std::uint64_t> v;
            switch (u16(e)) {
            case 273: if (!values(e, offsets[0])) return false; break;
            case 279: if (!values(e, lengths[0])) return false; break;
            case 324: if (!values(e, offsets[1])) return false; break;
            case 325: if (!values(e, lengths[1])) return false; break;
            case 513: if (!values(e, offsets[2], 1)) return false; break;
            case 514: if (!values(e, lengths[2], 1)) return false; break;
            case 330:     // SubIFDs
            case 34665:   // Exif IFD
                if (!values(e, v, 64))
                    return false;
                children.insert(children.end(), v.begin(), v.end());
                break;
            default: break;
            }
        }
        for (int k = 0; k < 3; ++k) {
            const size_t n = std::min(offsets[k].size(), lengths[k].size());
            for (size_t i = 0; i < n; ++i)
                if (!_r.inside(offsets[k][i], lengths[k][i]))
                    return false;
        }
        if (depth < 4)
            for (std::uint64_t child : children)
                if (child != 0 && !walkChain(child, depth + 1))
                    return false;
        return true;
    }

    const Reader &_r;
    bool _little;
    QSet<std::uint64_t> _visited;
};

bool tiffComplete(const Reader &r, bool little)
{
    std::uint8_t h[8];
    if (!r.read(0, h, 8))
        return false;
    const std::uint32_t first = little ? std::uint32_t(h[4]) | std::uint32_t(h[5]) << 8 | std::uint32_t(h[6]) << 16 | std::uint32_t(h[7]) << 24
                                       : std::uint32_t(h[4]) << 24 | std::uint32_t(h[5]) << 16 | std::uint32_t(h[6]) << 8 | std::uint32_t(h[7]);
    if (first == 0)
        return false;
    TiffWalker walker(r, little);
    return walker.walkChain(first, 0);
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

Verdict check(int fd)
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
            return tiffComplete(r, ii) ? Verdict::complete : Verdict::truncated;
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
