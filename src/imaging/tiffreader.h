#pragma once
// Reads TIFF structures (TIFF files, most RAW containers, the EXIF block of a JPEG): the header,
// IFDs with their entries, and entry values, every read checked against the structure's bounds.
// One TiffReader serves one walk over one input and charges all of it to a budget in proportion
// to the input's size (with an absolute cap): IFDs asked for, entries decoded, bytes read. Each IFD
// is read once; asking again (a loop) answers Repeat. So whatever the bytes, a walk costs O(size).
// Which tags to follow and what to collect is the caller's business.
// No shared state, no I/O of its own: any thread, one reader per walk (not to be shared).
#include <QtGlobal>

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_set>
#include <vector>

class TiffReader
{
public:
    // Reads `length` bytes at `offset` of the input into `out`; false when they are not all there.
    using ReadAt = std::function<bool(qint64 offset, qint64 length, uint8_t *out)>;

    // Work done or allowed: IFD reads asked for (repeats included), entries decoded, bytes read.
    struct Work {
        qint64 ifds = 0, entries = 0, bytes = 0;
    };
    // What a walk over `size` bytes may do.
    static Work limitFor(qint64 size);

    enum Type : quint16 { Byte = 1, Ascii, Short, Long, Rational, SByte, Undefined, SShort, SLong, SRational, Float, Double, IfdType };
    // Bytes per value; 0 for types TIFF does not define.
    static int typeSize(quint16 type);

    // One TIFF structure inside the input: where it starts (its offsets count from there), how far
    // it may reach, its byte order, its magic (42, or a maker's own) and its first IFD.
    struct Structure {
        qint64 base = 0, size = 0;
        bool bigEndian = false;
        quint16 magic = 0;
        quint32 firstIfd = 0;
        // Whether [offset, offset + length) lies inside; offsets relative to the base.
        bool contains(qint64 offset, qint64 length) const
        {
            return offset >= 0 && length >= 0 && offset <= size && length <= size - offset;
        }
    };

    struct Entry {
        quint16 tag = 0, type = 0;
        quint32 count = 0;
        uint8_t field[4] = {};   // the value itself when it fits, else where the values are
        quint32 offset = 0;      // the field read as a LONG
        qint64 byteCount() const { return qint64(count) * typeSize(type); }
        bool inField() const { return byteCount() <= 4; }
    };

    struct Ifd {
        enum Status { Read, Repeat, Outside, Spent };
        Status status = Outside;   // Repeat: read before (a loop); Spent: over budget
        std::vector<Entry> entries;
        std::optional<quint32> next;   // the next IFD's offset (0: none); absent when it lies outside
        explicit operator bool() const { return status == Read; }
    };

    TiffReader(const uint8_t *data, qint64 size);   // bytes in memory
    TiffReader(ReadAt read, qint64 size);           // random access to `size` bytes (a file)

    qint64 size() const { return _size; }

    // The header at `base`: "II" or "MM", a 16-bit magic (any: the caller knows which it takes) and
    // the first IFD's offset. The structure reaches `length` bytes, or to the end of the input.
    std::optional<Structure> structure(qint64 base, qint64 length = -1);

    // The IFD at `offset` of `s`. Outside also when its entries are not all inside `s`, or when it
    // has more than `maxEntries` (nothing of it is read then).
    Ifd ifd(const Structure &s, quint32 offset, int maxEntries = 65535);

    // The i-th value of a SHORT, LONG or IFD entry; absent for other types, past the count, outside
    // `s` or over budget.
    std::optional<quint32> value(const Structure &s, const Entry &e, quint32 i = 0);
    // All values of a SHORT, LONG or IFD entry, read at once; absent as for value().
    std::optional<std::vector<quint32>> values(const Structure &s, const Entry &e);
    // `length` bytes at `offset` of `s`, charged to the budget; false when outside or over budget.
    bool read(const Structure &s, qint64 offset, qint64 length, uint8_t *out);

    quint16 u16(const Structure &s, const uint8_t *p) const;
    quint32 u32(const Structure &s, const uint8_t *p) const;

    Work work() const { return _work; }
    Work limit() const { return _limit; }
    // True once something was refused for the budget: the walk did not see everything.
    bool spent() const { return _spent; }

private:
    bool charge(qint64 Work::*what, qint64 amount);
    bool fetch(qint64 at, qint64 length, uint8_t *out) const;

    const uint8_t *_data = nullptr;
    ReadAt _read;
    qint64 _size = 0;
    Work _work, _limit;
    bool _spent = false;
    std::unordered_set<qint64> _visited;   // absolute offsets of the IFDs read
    std::vector<uint8_t> _buffer;
};
