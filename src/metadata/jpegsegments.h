#pragma once
// The marker segments of a JPEG file up to its first scan: where each one lies, which of them
// hold EXIF, XMP and Photoshop (IPTC) data, and where the compressed image data begins. The IPTC
// writer rebuilds a file from these pieces and proves the image data untouched with them. Reads
// untrusted bytes: every step is bounded by the input's size. Pure functions; any thread.
#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace JpegSegments {

inline constexpr char kXmpSignature[] = "http://ns.adobe.com/xap/1.0/";          // + NUL
inline constexpr char kPhotoshopSignature[] = "Photoshop 3.0";                    // + NUL
// The most a segment's data may hold (its 2-byte length counts itself).
inline constexpr qsizetype kMaxSegmentData = 65533;

struct Segment {
    unsigned char marker = 0;   // the byte after 0xFF
    qsizetype begin = 0;        // the 0xFF
    qsizetype data = 0;         // just after the length
    qsizetype end = 0;          // just past the segment
    qsizetype dataSize() const { return end - data; }
};

struct Layout {
    std::vector<Segment> segments;   // before the first scan, in file order
    qsizetype scan = 0;              // the first SOS marker: from here to the end is image data
    qint64 work = 0;                 // bytes and segments looked at (the fuzz target bounds it)
};

// Absent, with a Spanish phrase in `error`, when the bytes are not a JPEG whose segments can be
// followed to a scan (a length running past the end, a missing marker, no image data).
std::optional<Layout> parse(const QByteArray &bytes, QString *error = nullptr);

bool isXmp(const QByteArray &bytes, const Segment &s);
bool isPhotoshop(const QByteArray &bytes, const Segment &s);

// The data of resource `id` in a Photoshop block ("8BIM" records), as {offset, size}; absent
// when the block has none or cannot be followed to it.
std::optional<std::pair<qsizetype, qsizetype>> photoshopResource(const QByteArray &block, quint16 id);

} // namespace JpegSegments
