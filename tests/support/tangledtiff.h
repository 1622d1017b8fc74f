#pragma once
// A hostile TIFF of about `size` bytes, made to cost a naive walker as much as possible per byte:
// hundreds of IFDs, each with sub-IFD and EXIF pointers fanning out to the following ones,
// strip and tile arrays of 100000 values (all of them one shared table), entry after entry of
// them, and next pointers looping back to IFD0. Every offset is inside the file, and every strip
// it names lies inside too, so nothing ends a walk early.
#include <QByteArray>
#include <QList>

namespace TangledTiff {

inline QByteArray le16(quint32 v) { return QByteArray(1, char(v & 0xFF)) + char((v >> 8) & 0xFF); }
inline QByteArray le32(quint32 v) { return le16(v & 0xFFFF) + le16(v >> 16); }

inline QByteArray build(qint64 size)
{
    constexpr quint32 kArray = 100000;   // values in each strip or tile array
    constexpr int kFan = 64;             // sub-IFDs per IFD
    constexpr int kStrips = 40;          // strip and tile entries per IFD
    QByteArray out = QByteArray("II*\0", 4) + le32(8);
    // IFDs first (their offsets known in advance), then the shared table of zeros.
    const int entries = 2 + kStrips;
    const qint64 ifdSize = 2 + 12 * entries + 4 + 4 * kFan;
    const int count = int(qMax<qint64>(4, (size - 8 - 4 * qint64(kArray)) / ifdSize));
    const quint32 table = quint32(8 + count * ifdSize);
    const auto ifdAt = [&](int i) { return quint32(8 + i * ifdSize); };
    for (int i = 0; i < count; ++i) {
        const quint32 fanAt = ifdAt(i) + 2 + 12 * entries + 4;
        out += le16(entries);
        out += le16(330) + le16(4) + le32(kFan) + le32(fanAt);                      // SubIFDs
        out += le16(34665) + le16(4) + le32(1) + le32(ifdAt((i + 1) % count));      // EXIF IFD
        for (int k = 0; k < kStrips; ++k) {
            static const quint16 tags[] = {273, 279, 324, 325};
            out += le16(tags[k % 4]) + le16(4) + le32(kArray) + le32(table);
        }
        out += le32(i % 2 ? ifdAt(0) : ifdAt((i + 2) % count));   // next: onwards, or back to IFD0
        for (int k = 1; k <= kFan; ++k)
            out += le32(ifdAt((i + k) % count));
    }
    out += QByteArray(4 * qint64(kArray), '\0');
    return out;
}

} // namespace TangledTiff
