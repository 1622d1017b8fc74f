// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips.h>

#include "vipsbitmap.h"

#include <QFile>

#include <mutex>

namespace VipsBitmap {
namespace {

void dropLog(const gchar *, GLogLevelFlags, const gchar *, gpointer) {}

Ptr checked(VipsImage *image, qint64 maxPixels)
{
    Ptr p(image);
    if (!p) {
        clearError();
        return {};
    }
    if (qint64(vips_image_get_width(image)) * vips_image_get_height(image) > maxPixels)
        return {};
    return p;
}

// One step of a chain: the new image replaces the old, or the chain ends on failure.
template<typename F>
bool step(Ptr &image, F &&operation)
{
    VipsImage *out = nullptr;
    if (operation(image.get(), &out) != 0) {
        clearError();
        return false;
    }
    image.reset(out);
    return true;
}

void freeBuffer(void *buffer) { g_free(buffer); }

} // namespace

void start()
{
    static std::once_flag once;
    std::call_once(once, [] {
        vips_init("corvane");
        vips_concurrency_set(1);
        vips_cache_set_max(0);
        vips_cache_set_max_mem(0);
        vips_cache_set_max_files(0);
        // ImageMagick, PDF, SVG and friends are not for files that arrive from cameras and
        // strangers; JPEG XL is a photo format and libjxl is fuzzed upstream. Savers only ever see
        // our own bitmaps.
        vips_block_untrusted_set(TRUE);
        vips_operation_block_set("VipsForeignLoadJxl", FALSE);
        vips_operation_block_set("VipsForeignSave", FALSE);
        // A damaged file already gives no image; its warnings would only fill the terminal.
        g_log_set_handler("VIPS", GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_INFO),
                          dropLog, nullptr);
    });
}

void Unref::operator()(VipsImage *image) const
{
    if (image)
        g_object_unref(image);
}

void clearError() { vips_error_clear(); }

Ptr openHeader(const QString &path, qint64 maxPixels)
{
    start();
    const QByteArray name = QFile::encodeName(path);
    return checked(vips_image_new_from_file(name.constData(), "access", VIPS_ACCESS_SEQUENTIAL, nullptr), maxPixels);
}

Ptr openHeader(const QByteArray &bytes, qint64 maxPixels)
{
    start();
    if (bytes.isEmpty())
        return {};
    return checked(vips_image_new_from_buffer(bytes.constData(), size_t(bytes.size()), "",
                                              "access", VIPS_ACCESS_SEQUENTIAL, nullptr),
                   maxPixels);
}

QString loaderOf(VipsImage *image)
{
    const char *loader = nullptr;
    if (!image || vips_image_get_typeof(image, VIPS_META_LOADER) == 0
        || vips_image_get_string(image, VIPS_META_LOADER, &loader) != 0 || !loader) {
        clearError();
        return {};
    }
    return QString::fromLatin1(loader);
}

int orientationOf(VipsImage *image)
{
    int o = 0;
    if (!image || vips_image_get_typeof(image, VIPS_META_ORIENTATION) == 0
        || vips_image_get_int(image, VIPS_META_ORIENTATION, &o) != 0) {
        clearError();
        return 0;
    }
    return o >= 1 && o <= 8 ? o : 0;
}

QImage toQImage(VipsImage *image)
{
    if (!image)
        return {};
    g_object_ref(image);
    Ptr p(image);

    /* Colour: sRGB whatever it came as (grey, CMYK, 16-bit, float). */
    if (vips_colourspace_issupported(p.get())) {
        if (vips_image_guess_interpretation(p.get()) != VIPS_INTERPRETATION_sRGB
            && !step(p, [](VipsImage *in, VipsImage **out) {
                   return vips_colourspace(in, out, VIPS_INTERPRETATION_sRGB, nullptr);
               }))
            return {};
    } else if (vips_image_get_bands(p.get()) <= 2) {
        if (!step(p, [](VipsImage *in, VipsImage **out) {
                return vips_copy(in, out, "interpretation", VIPS_INTERPRETATION_B_W, nullptr);
            })
            || !step(p, [](VipsImage *in, VipsImage **out) {
                   return vips_colourspace(in, out, VIPS_INTERPRETATION_sRGB, nullptr);
               }))
            return {};
    }
    if (vips_image_get_format(p.get()) != VIPS_FORMAT_UCHAR
        && !step(p, [](VipsImage *in, VipsImage **out) { return vips_cast_uchar(in, out, nullptr); }))
        return {};

    /* Bands: RGB, or RGBA when the image has alpha; anything further is dropped. */
    const int bands = vips_image_get_bands(p.get());
    if (bands < 3) {
        VipsImage *grey[3] = {p.get(), p.get(), p.get()};
        if (!step(p, [&grey](VipsImage *, VipsImage **out) { return vips_bandjoin(grey, out, 3, nullptr); }))
            return {};
    }
    const bool alpha = bands >= 4 && vips_image_hasalpha(p.get());
    const int keep = alpha ? 4 : 3;
    if (vips_image_get_bands(p.get()) > keep
        && !step(p, [keep](VipsImage *in, VipsImage **out) { return vips_extract_band(in, out, 0, "n", keep, nullptr); }))
        return {};

    /* Pixels: decoded here, on the caller's thread, then handed to Qt in one conversion. */
    const int w = vips_image_get_width(p.get());
    const int h = vips_image_get_height(p.get());
    size_t length = 0;
    void *pixels = vips_image_write_to_memory(p.get(), &length);
    if (!pixels) {
        clearError();
        return {};
    }
    if (length != size_t(w) * size_t(h) * size_t(keep)) {
        g_free(pixels);
        return {};
    }
    const QImage wrapped(static_cast<uchar *>(pixels), w, h, qsizetype(w) * keep,
                         alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888, freeBuffer, pixels);
    return wrapped.convertToFormat(alpha ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
}

QByteArray encodeJpeg(const QImage &image, int quality)
{
    start();
    if (image.isNull())
        return {};
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    if (rgb.isNull())
        return {};
    const int w = rgb.width(), h = rgb.height();
    // libvips wants rows without padding.
    QByteArray packed(qsizetype(w) * h * 3, Qt::Uninitialized);
    for (int y = 0; y < h; ++y)
        memcpy(packed.data() + qsizetype(y) * w * 3, rgb.constScanLine(y), size_t(w) * 3);
    Ptr in(vips_image_new_from_memory(packed.constData(), size_t(packed.size()), w, h, 3, VIPS_FORMAT_UCHAR));
    if (!in) {
        clearError();
        return {};
    }
    void *buffer = nullptr;
    size_t length = 0;
    if (vips_jpegsave_buffer(in.get(), &buffer, &length, "Q", qBound(1, quality, 100), "strip", TRUE, nullptr) != 0) {
        clearError();
        return {};
    }
    QByteArray jpeg(static_cast<const char *>(buffer), qsizetype(length));
    g_free(buffer);
    return jpeg;
}

QImage decodeJpegFile(const QString &path, qint64 maxPixels)
{
    start();
    const QByteArray name = QFile::encodeName(path);
    VipsImage *image = nullptr;
    if (vips_jpegload(name.constData(), &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on", VIPS_FAIL_ON_TRUNCATED,
                      nullptr)
        != 0) {
        clearError();
        return {};
    }
    const Ptr p = checked(image, maxPixels);
    return toQImage(p.get());
}

} // namespace VipsBitmap
