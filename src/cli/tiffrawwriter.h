#pragma once
// Writes small TIFF-structured files shaped like camera RAWs (NEF, CR2, ...): an uncompressed RGB
// thumbnail in IFD0, the full-size JPEG preview in a sub-IFD, an EXIF IFD, and fake sensor data in
// a strip of its own. Used for the sample shoot and by tests and benchmarks of the RAW preview
// extraction. Pure functions: safe on any thread.
#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

namespace TiffRawWriter {

struct Options {
    QByteArray make = "NIKON CORPORATION";
    QByteArray model = "NIKON Z 6_2";
    int orientation = 1;            // EXIF orientation 1...8; 0 leaves the tag out
    QDateTime date;                 // DateTime and DateTimeOriginal; invalid leaves them out

    QByteArray jpeg;                // the full-size preview, in the first sub-IFD; empty: none
    QList<QByteArray> moreJpegs;    // further previews, one sub-IFD each, after the first

    int thumbWidth = 160;           // uncompressed RGB thumbnail in IFD0; 0 leaves it out
    int thumbHeight = 120;
    QByteArray thumbRgb;            // its pixels (width × height × 3); empty: a grey ramp

    qint64 sensorBytes = 1 << 20;   // fake 16-bit CFA data in the last sub-IFD (rounded down to
                                    // even); 0 leaves it out
    bool bigEndian = false;         // "MM" instead of "II"
    bool canonSignature = false;    // "CR" 2 0 and the raw IFD offset after the header, as in CR2

    // EXIF IFD extras: zero or empty leaves each out.
    int exposureNum = 0, exposureDen = 0;   // ExposureTime
    double fNumber = 0;
    int iso = 0;
    double focalLength = 0;
    QByteArray lensModel;
    QByteArray bodySerial;
};

// Where build() put things: byte offsets from the start of the file.
struct Layout {
    qint64 ifd0 = 0;
    qint64 exifIfd = 0;
    QList<qint64> subIfds;              // in the order of the SubIFDs tag
    QList<QPair<qint64, qint64>> jpegs; // (offset, length) of `jpeg`, then of each of `moreJpegs`
    qint64 thumbOffset = 0;             // 0 when there is no thumbnail
    qint64 sensorOffset = 0;            // 0 when there is no sensor strip
    qint64 sensorLength = 0;
};

QByteArray build(const Options &options, Layout *layout = nullptr);

// Pixel size from a JPEG's first frame header, or (0, 0).
QPair<int, int> jpegSize(const QByteArray &jpeg);

} // namespace TiffRawWriter
