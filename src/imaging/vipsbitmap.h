#pragma once
// The seam between libvips and Qt bitmaps, shared by the decoders and the disk cache. libvips'
// own headers stay out of here (glib's "signals" member clashes with Qt's macro), so any file may
// include this one. Thread-safe.
#include <QByteArray>
#include <QImage>
#include <QString>
#include <memory>

typedef struct _VipsImage VipsImage;

namespace VipsBitmap {

// Starts libvips once per process: one worker per pipeline (the callers' pools are the
// parallelism), no operation cache (it would hold files and memory of shots long gone), loaders
// that libvips marks unsafe for untrusted files blocked, warnings silenced. Process-wide: every
// libvips user in the program runs under these settings from then on.
void start();

struct Unref {
    void operator()(VipsImage *image) const;
};
using Ptr = std::unique_ptr<VipsImage, Unref>;

// Header of a file or of bytes, pixels not decoded; null when libvips can't read it or when it
// claims more than `maxPixels`. `bytes` must outlive the image.
Ptr openHeader(const QString &path, qint64 maxPixels);
Ptr openHeader(const QByteArray &bytes, qint64 maxPixels);
QString loaderOf(VipsImage *image);            // "jpegload", "heifload", … (empty when unknown)
int orientationOf(VipsImage *image);           // EXIF orientation 1…8 it carries, 0 for none

// sRGB, 8 bits, 3 or 4 bands, decoded into a Format_RGB32 (or ARGB32_Premultiplied when there is
// alpha) image. Null on any failure.
QImage toQImage(VipsImage *image);

// Baseline JPEG of a bitmap at quality 1…100, metadata stripped; empty on failure.
QByteArray encodeJpeg(const QImage &image, int quality);
// A JPEG file decoded strictly: truncated or damaged data gives a null image.
QImage decodeJpegFile(const QString &path, qint64 maxPixels);

// Drops libvips' error text after a failure we deal with ourselves.
void clearError();

} // namespace VipsBitmap
