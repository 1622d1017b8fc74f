// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips.h>

#include "imagedecoder.h"
#include "exifthumbnail.h"
#include "imageorientation.h"
#include "rawdeveloper.h"
#include "rawpreview.h"
#include "vipsbitmap.h"

#include "model/filekinds.h"

#include <QFile>

namespace ImageDecoder {
namespace {

using VipsBitmap::Ptr;

// A box no image reaches: thumbnails at this size keep the full resolution.
constexpr int kFullSize = 1 << 20;

// What made an image, for the road's source label.
struct Made {
    QImage image;
    QString source;
};

int longSide(const QImage &image) { return qMax(image.width(), image.height()); }

QString labelForStill(const QString &path)
{
    const QString ext = FileKinds::extensionOf(path);
    if (FileKinds::isJpegExt(ext))
        return QString::fromUtf8(kJpeg);
    if (ext == QLatin1String("heic") || ext == QLatin1String("heif") || ext == QLatin1String("hif")
        || ext == QLatin1String("avif"))
        return QString::fromUtf8(kHeic);
    return QString::fromUtf8(kOther);
}

// A file, or JPEG bytes held by the caller.
struct Source {
    QString path;
    const QByteArray *bytes = nullptr;
};

// libjpeg decodes at 1/2, 1/4 or 1/8 scale for little more than the cost of the smaller image:
// the smallest scale that still covers `size`. (libvips' own choice keeps twice the target,
// which makes a grid thumbnail of a 24-megapixel JPEG cost a third more.)
int jpegShrink(VipsImage *header, int size)
{
    const int longSide = qMax(vips_image_get_width(header), vips_image_get_height(header));
    int shrink = 8;
    while (shrink > 1 && (longSide + shrink - 1) / shrink < size)
        shrink /= 2;
    return shrink;
}

// libvips' thumbnail: shrink-on-load where the format allows it, never enlarged, EXIF
// orientation applied unless `noRotate`. `header` is the source opened for its header only.
QImage vipsThumbnail(const Source &source, VipsImage *header, int size, bool noRotate = false)
{
    const QByteArray name = QFile::encodeName(source.path);
    VipsImage *out = nullptr;
    int failed = 0;
    if (VipsBitmap::loaderOf(header).startsWith(QLatin1String("jpegload"))) {
        const int shrink = jpegShrink(header, size);
        VipsImage *loaded = nullptr;
        failed = source.bytes ? vips_jpegload_buffer(const_cast<char *>(source.bytes->constData()), size_t(source.bytes->size()),
                                                     &loaded, "shrink", shrink, "access", VIPS_ACCESS_SEQUENTIAL, nullptr)
                              : vips_jpegload(name.constData(), &loaded, "shrink", shrink, "access", VIPS_ACCESS_SEQUENTIAL,
                                              nullptr);
        const Ptr in(loaded);
        if (!failed)
            failed = vips_thumbnail_image(loaded, &out, size, "height", size, "size", VIPS_SIZE_DOWN, "no_rotate", noRotate,
                                          nullptr);
    } else if (source.bytes) {
        failed = vips_thumbnail_buffer(const_cast<char *>(source.bytes->constData()), size_t(source.bytes->size()), &out,
                                       size, "height", size, "size", VIPS_SIZE_DOWN, "no_rotate", noRotate, nullptr);
    } else {
        failed = vips_thumbnail(name.constData(), &out, size, "height", size, "size", VIPS_SIZE_DOWN, "no_rotate", noRotate,
                                nullptr);
    }
    if (failed) {
        VipsBitmap::clearError();
        return {};
    }
    const Ptr image(out);
    return VipsBitmap::toQImage(image.get());
}

// The HEIF's own thumbnail item, whatever its size (the primary image when it has none); libheif
// has already turned it by the file's rotation properties.
QImage heifThumbnail(const QString &path, int size)
{
    const QByteArray name = QFile::encodeName(path);
    VipsImage *loaded = nullptr;
    if (vips_heifload(name.constData(), &loaded, "thumbnail", TRUE, "access", VIPS_ACCESS_SEQUENTIAL, nullptr) != 0) {
        VipsBitmap::clearError();
        return {};
    }
    Ptr image(loaded);
    if (qint64(vips_image_get_width(loaded)) * vips_image_get_height(loaded) > kMaxPixels)
        return {};
    VipsImage *out = nullptr;
    if (vips_thumbnail_image(loaded, &out, size, "height", size, "size", VIPS_SIZE_DOWN, nullptr) != 0) {
        VipsBitmap::clearError();
        return {};
    }
    image.reset(out);
    return VipsBitmap::toQImage(image.get());
}

// libvips has no RAW loader: its TIFF reader would only see a RAW's first IFD (a small
// thumbnail or undeveloped sensor data). LibRaw reads RAWs; libvips is left for files that only
// carry a RAW's name (a JPEG renamed .nef).
Made rawFromFile(const QString &path, int size, bool embeddedFirst)
{
    if (embeddedFirst) {
        // Never a full development here: the byte search of the next step is far cheaper.
        const auto thumb = RawDeveloper::thumbnail(path);
        if (!thumb)
            return {};
        QImage image = !thumb->jpeg.isEmpty() ? thumbnailFromJpeg(thumb->jpeg, size, thumb->orientation)
                                              : ImageOrientation::apply(thumb->bitmap, thumb->orientation);
        if (longSide(image) > size)
            image = image.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        return {image, QString::fromUtf8(kRawEmbedded)};
    }
    if (QImage developed = developRaw(path, size); !developed.isNull())
        return {developed, QString::fromUtf8(kRawDeveloped)};
    const Ptr header = VipsBitmap::openHeader(path, kMaxPixels);
    if (!header)
        return {};
    return {vipsThumbnail({path}, header.get(), size), QString::fromUtf8(kOther)};
}

Made fromFile(const QString &path, int size, bool embeddedFirst)
{
    if (size < 1)
        return {};
    if (FileKinds::isVideo(path))
        return {videoFrame(path, size), QString::fromUtf8(kVideo)};
    if (FileKinds::isRaw(path))
        return rawFromFile(path, size, embeddedFirst);

    const QString label = labelForStill(path);
    /* Header first: refuse what is not an image or claims too many pixels. */
    Ptr header = VipsBitmap::openHeader(path, kMaxPixels);
    if (!header)
        return {};
    const QString loader = VipsBitmap::loaderOf(header.get());

    /* The file's own thumbnail, when asked for and present. */
    if (embeddedFirst) {
        QImage embedded;
        if (loader.startsWith(QLatin1String("jpegload")) || loader.startsWith(QLatin1String("tiffload"))) {
            if (const auto thumb = ExifThumbnail::read(path))
                embedded = thumbnailFromJpeg(thumb->jpeg, size, thumb->orientation);
        } else if (loader.startsWith(QLatin1String("heifload"))) {
            embedded = heifThumbnail(path, size);
        }
        if (!embedded.isNull())
            return {embedded, label};
    }

    /* The full image, reduced. */
    return {vipsThumbnail({path}, header.get(), size), label};
}

} // namespace

void initialize()
{
    VipsBitmap::start();
}

Result decode(const QString &path, bool isRaw, int size)
{
    initialize();
    if (size < 1)
        return {};
    if (FileKinds::isVideo(path))
        return {videoFrame(path, size), QString::fromUtf8(kVideo)};
    const int half = size / 2;

    // A preview that turns out not to decode counts as not found: the road goes on.
    if (isRaw) {
        if (const auto embedded = RawPreview::embeddedJPEG(path, size, half, true, false)) {
            if (QImage image = thumbnailFromJpeg(embedded->jpeg, size, embedded->orientation); !image.isNull())
                return {image, embedded->label};
        }
    }

    if (Made made = fromFile(path, size, true); !made.image.isNull() && longSide(made.image) >= half)
        return {made.image, made.source};

    if (isRaw) {
        if (const auto embedded = RawPreview::embeddedJPEG(path, size, 0, true, true)) {
            if (QImage image = thumbnailFromJpeg(embedded->jpeg, size, embedded->orientation); !image.isNull())
                return {image, embedded->label};
        }
    }

    Made made = fromFile(path, size, false);
    return {made.image, made.source};
}

QImage thumbnailFromFile(const QString &path, int size, bool embeddedFirst)
{
    initialize();
    return fromFile(path, size, embeddedFirst).image;
}

QImage thumbnailFromJpeg(const QByteArray &jpeg, int size, std::optional<int> orientation)
{
    initialize();
    if (size < 1)
        return {};
    Ptr header = VipsBitmap::openHeader(jpeg, kMaxPixels);
    if (!header)
        return {};
    // The JPEG's own turn wins when it has one; a stated "upright" (1) is what camera previews
    // carry by default whatever the container says, so it does not count.
    const bool ownTurn = VipsBitmap::orientationOf(header.get()) >= 2;
    const int given = orientation.value_or(0);
    const bool useGiven = !ownTurn && given >= 2 && given <= 8;

    // Turned in memory: libvips would need random access to the decoded JPEG to turn it.
    const QImage decoded = vipsThumbnail({QString(), &jpeg}, header.get(), size, useGiven);
    return useGiven ? ImageOrientation::apply(decoded, given) : decoded;
}

QImage fullImage(const QString &path, bool isRaw)
{
    initialize();
    if (FileKinds::isVideo(path))
        return videoFrame(path, 0);
    if (isRaw || FileKinds::isRaw(path)) {
        if (const auto embedded = RawPreview::embeddedJPEG(path, kFullSize, 0, false, true)) {
            if (QImage image = thumbnailFromJpeg(embedded->jpeg, kFullSize, embedded->orientation); !image.isNull())
                return image;
        }
        if (QImage developed = developRaw(path, 0); !developed.isNull())
            return developed;
    }
    // Decoded in file order, then turned in memory: libvips would need the whole image twice to
    // turn it on the fly.
    Ptr header = VipsBitmap::openHeader(path, kMaxPixels);
    if (!header)
        return {};
    const int orientation = VipsBitmap::orientationOf(header.get());
    return ImageOrientation::apply(VipsBitmap::toQImage(header.get()), orientation);
}

} // namespace ImageDecoder
