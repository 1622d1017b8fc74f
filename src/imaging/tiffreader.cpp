#include "tiffreader.h"

#include <algorithm>
#include <cstring>

namespace {

// Generous for any real file (a camera's RAW reads a few dozen IFDs and a few KB of tables), and
// still linear in the input however its offsets point.
constexpr qint64 kIfdsBase = 16, kBytesPerIfd = 64, kMaxIfds = 1 << 16;
constexpr qint64 kEntriesBase = 256, kBytesPerEntry = 6, kMaxEntries = 1 << 22;
constexpr qint64 kBytesBase = 64 << 10, kReadsPerByte = 2, kMaxBytes = 64 << 20;

} // namespace

TiffReader::Work TiffReader::limitFor(qint64 size)
{
    size = std::max<qint64>(size, 0);
    Work w;
    w.ifds = std::min(kMaxIfds, kIfdsBase + size / kBytesPerIfd);
    w.entries = std::min(kMaxEntries, kEntriesBase + size / kBytesPerEntry);
    w.bytes = std::min(kMaxBytes, kBytesBase + size * kReadsPerByte);
    return w;
}

int TiffReader::typeSize(quint16 type)
{
    switch (type) {
    case Byte: case Ascii: case SByte: case Undefined: return 1;
    case Short: case SShort: return 2;
    case Long: case SLong: case Float: case IfdType: return 4;
    case Rational: case SRational: case Double: return 8;
    default: return 0;
    }
}

TiffReader::TiffReader(const uint8_t *data, qint64 size)
    : _data(data), _size(data ? std::max<qint64>(size, 0) : 0), _limit(limitFor(_size))
{
}

TiffReader::TiffReader(ReadAt read, qint64 size)
    : _read(std::move(read)), _size(_read ? std::max<qint64>(size, 0) : 0), _limit(limitFor(_size))
{
}

bool TiffReader::charge(qint64 Work::*what, qint64 amount)
{
    if (_spent || amount > _limit.*what - _work.*what) {
        _spent = true;
        return false;
    }
    _work.*what += amount;
    return true;
}

bool TiffReader::fetch(qint64 at, qint64 length, uint8_t *out) const
{
    if (at < 0 || length < 0 || at > _size || length > _size - at)
        return false;
    if (length == 0)
        return true;
    if (_data) {
        std::memcpy(out, _data + at, size_t(length));
        return true;
    }
    return _read(at, length, out);
}

quint16 TiffReader::u16(const Structure &s, const uint8_t *p) const
{
    return s.bigEndian ? quint16(p[0] << 8 | p[1]) : quint16(p[1] << 8 | p[0]);
}

quint32 TiffReader::u32(const Structure &s, const uint8_t *p) const
{
    return s.bigEndian ? quint32(p[0]) << 24 | quint32(p[1]) << 16 | quint32(p[2]) << 8 | p[3]
                       : quint32(p[3]) << 24 | quint32(p[2]) << 16 | quint32(p[1]) << 8 | p[0];
}

std::optional<TiffReader::Structure> TiffReader::structure(qint64 base, qint64 length)
{
    if (base < 0 || base > _size)
        return std::nullopt;
    Structure s;
    s.base = base;
    s.size = length < 0 ? _size - base : std::min(length, _size - base);
    uint8_t h[8];
    if (!read(s, 0, 8, h))
        return std::nullopt;
    if (h[0] == 'M' && h[1] == 'M')
        s.bigEndian = true;
    else if (!(h[0] == 'I' && h[1] == 'I'))
        return std::nullopt;
    s.magic = u16(s, h + 2);
    s.firstIfd = u32(s, h + 4);
    return s;
}

TiffReader::Ifd TiffReader::ifd(const Structure &s, quint32 offset, int maxEntries)
{
    Ifd out;
    if (!charge(&Work::ifds, 1)) {
        out.status = Ifd::Spent;
        return out;
    }
    if (!s.contains(offset, 2))
        return out;
    if (!_visited.insert(s.base + offset).second) {
        out.status = Ifd::Repeat;
        return out;
    }
    uint8_t c[2];
    if (!read(s, offset, 2, c)) {
        out.status = _spent ? Ifd::Spent : Ifd::Outside;
        return out;
    }
    const qint64 count = u16(s, c);
    const qint64 tableAt = qint64(offset) + 2, nextAt = tableAt + 12 * count;
    if (count > maxEntries || !s.contains(tableAt, 12 * count))
        return out;
    const bool hasNext = s.contains(nextAt, 4);
    const qint64 length = 12 * count + (hasNext ? 4 : 0);
    if (!charge(&Work::entries, count) || !charge(&Work::bytes, length)) {
        out.status = Ifd::Spent;
        return out;
    }
    _buffer.resize(size_t(length));
    if (!fetch(s.base + tableAt, length, _buffer.data()))
        return out;
    out.entries.resize(size_t(count));
    for (qint64 i = 0; i < count; ++i) {
        const uint8_t *p = _buffer.data() + 12 * i;
        Entry &e = out.entries[size_t(i)];
        e.tag = u16(s, p);
        e.type = u16(s, p + 2);
        e.count = u32(s, p + 4);
        std::memcpy(e.field, p + 8, 4);
        e.offset = u32(s, p + 8);
    }
    if (hasNext)
        out.next = u32(s, _buffer.data() + 12 * count);
    out.status = Ifd::Read;
    return out;
}

std::optional<quint32> TiffReader::value(const Structure &s, const Entry &e, quint32 i)
{
    if ((e.type != Short && e.type != Long && e.type != IfdType) || i >= e.count)
        return std::nullopt;
    const int size = typeSize(e.type);
    uint8_t b[4];
    if (e.inField())
        std::memcpy(b, e.field + size * i, size_t(size));
    else if (!read(s, qint64(e.offset) + qint64(i) * size, size, b))
        return std::nullopt;
    return size == 2 ? u16(s, b) : u32(s, b);
}

std::optional<std::vector<quint32>> TiffReader::values(const Structure &s, const Entry &e)
{
    if (e.type != Short && e.type != Long && e.type != IfdType)
        return std::nullopt;
    const int size = typeSize(e.type);
    const qint64 length = e.byteCount();
    const uint8_t *p = e.field;
    if (!e.inField()) {
        if (!s.contains(e.offset, length))
            return std::nullopt;
        _buffer.resize(size_t(length));
        if (!read(s, e.offset, length, _buffer.data()))
            return std::nullopt;
        p = _buffer.data();
    }
    std::vector<quint32> out(e.count);
    for (quint32 i = 0; i < e.count; ++i)
        out[i] = size == 2 ? u16(s, p + 2 * i) : u32(s, p + 4 * i);
    return out;
}

bool TiffReader::read(const Structure &s, qint64 offset, qint64 length, uint8_t *out)
{
    return s.contains(offset, length) && charge(&Work::bytes, length) && fetch(s.base + offset, length, out);
}
