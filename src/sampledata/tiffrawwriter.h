#pragma once
// Writes TIFF-structured files shaped like camera RAWs (NEF, CR2, RW2, ORF, ...): an uncompressed
// RGB thumbnail in IFD0, the full-size JPEG preview in a sub-IFD, an EXIF IFD, and fake sensor data
// in a strip of its own; also Fuji's RAF header. Used for the sample shoot and by tests and
// benchmarks of the RAW preview extraction. Pure functions: safe on any thread.
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

    // The 16-bit magic after the byte order mark. Panasonic's files keep `jpeg` in IFD0's tag
    // 0x002E rather than in a sub-IFD; the Olympus ones are laid out as plain TIFF.
    enum class Magic : quint16 { Tiff = 42, Panasonic = 0x55, OlympusRO = 0x4F52, OlympusRS = 0x5352 };
    Magic magic = Magic::Tiff;

    // How the sub-IFD of `jpeg` points at it: JPEGInterchangeFormat and its length, the start
    // alone, or as the one strip of a JPEG-compressed image (Compression `stripCompression`, 6
    // or 7), as CR2 keeps its preview in IFD0.
    enum class JpegRef { Interchange, StartOnly, Strip };
    JpegRef jpegRef = JpegRef::Interchange;
    int stripCompression = 6;

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

// A Fuji RAF: the "FUJIFILM" header with the big-endian offset and length of `jpeg` at bytes 84
// and 88, the JPEG, then the sensor data. The camera keeps the orientation only in the JPEG's own
// EXIF, so a non-zero `orientation` is written there. Uses `model`, `jpeg`, `orientation` and
// `sensorBytes`; Layout gets `jpegs` and the sensor's place.
QByteArray buildFuji(const Options &options, Layout *layout = nullptr);

// A 24-megapixel camera's RAW as it leaves the camera: a 160×120 thumbnail and orientation 1 in
// IFD0, `preview` (by default photoJpeg(6000, 4000, 90)) in a sub-IFD, 8 MB of sensor data.
Options realistic(const QByteArray &preview = {});

// A photograph-like JPEG (light, shapes, fine texture) that compresses as camera previews do:
// about 4 MB at 6000×4000 and quality 90. The same bytes for the same arguments. Uses libvips,
// which the caller must have started.
QByteArray photoJpeg(int width, int height, int quality = 90, int seed = 0);

// `jpeg` with an APP1 EXIF segment right after its start that holds only `orientation` (1...8),
// as cameras tag the previews they embed.
QByteArray withExifOrientation(const QByteArray &jpeg, int orientation, bool bigEndian = false);

// Pixel size from a JPEG's first frame header, or (0, 0).
QPair<int, int> jpegSize(const QByteArray &jpeg);

} // namespace TiffRawWriter
