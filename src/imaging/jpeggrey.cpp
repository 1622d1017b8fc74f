#include "jpeggrey.h"

#include <QFile>

#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>

namespace {

struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf escape;
};

[[noreturn]] void onError(j_common_ptr info)
{
    std::longjmp(reinterpret_cast<ErrorManager *>(info->err)->escape, 1);
}

// Nothing is printed; warnings (level -1: corrupt or missing data) are counted and read below.
void onMessage(j_common_ptr info, int level)
{
    if (level < 0)
        ++info->err->num_warnings;
}

// Everything libjpeg touches lives here, outside the function that calls setjmp, so a longjmp
// out of libjpeg never skips a C++ destructor.
struct Decode {
    jpeg_decompress_struct info {};
    ErrorManager errors {};
    FILE *file = nullptr;
    bool created = false;
    ~Decode()
    {
        if (created)
            jpeg_destroy_decompress(&info);
        if (file)
            std::fclose(file);
    }
};

// Returns false on any libjpeg error. `out` is sized by the caller once the header is known.
bool run(Decode &d, QSize (*wantedFor)(QSize, void *), void *context, qint64 maxPixels, QImage &out, QSize &full)
{
    d.info.err = jpeg_std_error(&d.errors.base);
    d.errors.base.error_exit = onError;
    d.errors.base.emit_message = onMessage;
    if (setjmp(d.errors.escape))
        return false;
    jpeg_create_decompress(&d.info);
    d.created = true;
    jpeg_stdio_src(&d.info, d.file);
    if (jpeg_read_header(&d.info, TRUE) != JPEG_HEADER_OK)
        return false;
    if (d.info.jpeg_color_space != JCS_YCbCr && d.info.jpeg_color_space != JCS_GRAYSCALE)
        return false;   // CMYK and friends have no luma channel to take
    const qint64 w = d.info.image_width, h = d.info.image_height;
    if (w < 1 || h < 1 || w * h > maxPixels)
        return false;
    full = QSize(int(w), int(h));
    const QSize wanted = wantedFor(full, context);

    // The smallest n/8 whose output covers the wanted size (libjpeg rounds output sizes up).
    unsigned n = 1;
    while (n < 8 && ((w * n + 7) / 8 < wanted.width() || (h * n + 7) / 8 < wanted.height()))
        ++n;
    d.info.scale_num = n;
    d.info.scale_denom = 8;
    d.info.out_color_space = JCS_GRAYSCALE;
    d.info.dct_method = JDCT_ISLOW;
    d.info.do_fancy_upsampling = FALSE;   // nothing to upsample: only luma is kept
    jpeg_start_decompress(&d.info);
    if (d.info.output_components != 1)
        return false;
    out = QImage(int(d.info.output_width), int(d.info.output_height), QImage::Format_Grayscale8);
    if (out.isNull())
        return false;
    while (d.info.output_scanline < d.info.output_height) {
        JSAMPROW row = out.scanLine(int(d.info.output_scanline));
        jpeg_read_scanlines(&d.info, &row, 1);
    }
    // A truncated file makes libjpeg pad with grey and warn: that picture is not the photo.
    if (d.errors.base.num_warnings > 0)
        return false;
    jpeg_finish_decompress(&d.info);
    return true;
}

} // namespace

std::optional<JpegGrey> JpegGreyDecoder::decodeScaled(const QString &path, QSize (*wantedFor)(QSize, void *),
                                                      void *context, qint64 maxPixels)
{
    Decode d;
    d.file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!d.file)
        return std::nullopt;
    QImage grey;
    QSize full;
    if (!run(d, wantedFor, context, maxPixels, grey, full))
        return std::nullopt;
    return JpegGrey{grey, full};
}
