#pragma once
// The decode road: a bitmap of a given long side from any kind of shot, orientation applied.
// libvips for stills (shrink-on-load), the RAW's embedded JPEG first, LibRaw last, FFmpeg for a
// video frame. Thread-safe; failures give a null image (callers show their placeholder).
#include <QImage>
#include <QString>
#include <optional>

namespace ImageDecoder {

// Source labels shown by the performance overlay and counted by `corvane thumbs`.
inline const char *const kJpeg = "JPEG";
inline const char *const kHeic = "HEIC";
inline const char *const kOther = "otros formatos";
inline const char *const kRawDeveloped = "RAW revelado";
inline const char *const kRawEmbedded = "JPEG del RAW";
inline const char *const kRawSearched = "JPEG del RAW (búsqueda)";
inline const char *const kVideo = "vídeo";

struct Result {
    QImage image;      // Format_RGB32 (or ARGB32_Premultiplied with alpha), orientation applied
    QString source;    // one of the labels above
};

// Starts libvips once per process (idempotent, thread-safe).
void initialize();

// The whole road for a shot's preview file at `size` long side.
Result decode(const QString &path, bool isRaw, int size);

// Steps of the road, offered to tests and other callers.
// Thumbnail at `size` from a file; `embeddedFirst` uses the file's own thumbnail when present
// (EXIF IFD1 of JPEG/TIFF, the HEIF thumbnail) and returns it whatever its size.
QImage thumbnailFromFile(const QString &path, int size, bool embeddedFirst);
// Thumbnail from JPEG bytes; `orientation` (1…8) is applied when the bytes carry none.
QImage thumbnailFromJpeg(const QByteArray &jpeg, int size, std::optional<int> orientation);
QImage videoFrame(const QString &path, int size);      // frame at 1.0 s, display rotation applied
QImage developRaw(const QString &path, int size);      // LibRaw, half size when enough
QImage fullImage(const QString &path, bool isRaw);     // full resolution for 100 % zoom

// Refuses images whose header claims more pixels than this (bounded memory on hostile files).
inline constexpr qint64 kMaxPixels = 200'000'000;

} // namespace ImageDecoder
