#include "rawdeveloper.h"
#include "imagedecoder.h"
#include "imageorientation.h"

#include <QFile>

#include <libraw/libraw.h>

#include <memory>

namespace RawDeveloper {
namespace {

// Without these flags LibRaw prints its complaints about damaged files on stderr.
std::unique_ptr<LibRaw> openRaw(const QString &path)
{
    // (LibRaw 0.20 spells them OPIONS.)
    auto raw = std::make_unique<LibRaw>(LIBRAW_OPIONS_NO_MEMERR_CALLBACK | LIBRAW_OPIONS_NO_DATAERR_CALLBACK);
    if (raw->open_file(QFile::encodeName(path).constData()) != LIBRAW_SUCCESS)
        return nullptr;
    const libraw_image_sizes_t &s = raw->imgdata.sizes;
    if (s.width == 0 || s.height == 0 || qint64(s.raw_width) * s.raw_height > ImageDecoder::kMaxPixels)
        return nullptr;
    return raw;
}

struct ClearMem {
    void operator()(libraw_processed_image_t *image) const { LibRaw::dcraw_clear_mem(image); }
};

} // namespace

std::optional<Thumbnail> thumbnail(const QString &path)
{
    try {
        const auto raw = openRaw(path);
        if (!raw || raw->unpack_thumb() != LIBRAW_SUCCESS)
            return std::nullopt;
        const libraw_thumbnail_t &t = raw->imgdata.thumbnail;
        if (!t.thumb || t.tlength < 4)
            return std::nullopt;
        Thumbnail out;
        out.orientation = ImageOrientation::fromLibRawFlip(raw->imgdata.sizes.flip);
        if (t.tformat == LIBRAW_THUMBNAIL_JPEG) {
            if (uint8_t(t.thumb[0]) != 0xFF || uint8_t(t.thumb[1]) != 0xD8)
                return std::nullopt;
            out.jpeg = QByteArray(t.thumb, qsizetype(t.tlength));
            return out;
        }
        if (t.tformat == LIBRAW_THUMBNAIL_BITMAP && t.tcolors == 3 && t.twidth > 0 && t.theight > 0
            && qint64(t.tlength) >= qint64(t.twidth) * t.theight * 3) {
            const QImage view(reinterpret_cast<const uchar *>(t.thumb), t.twidth, t.theight, qsizetype(t.twidth) * 3,
                              QImage::Format_RGB888);
            out.bitmap = view.convertToFormat(QImage::Format_RGB32);
            return out;
        }
    } catch (...) {
    }
    return std::nullopt;
}

QImage develop(const QString &path, int size)
{
    try {
        const auto raw = openRaw(path);
        if (!raw)
            return {};
        const libraw_image_sizes_t &s = raw->imgdata.sizes;
        libraw_output_params_t &p = raw->imgdata.params;
        p.use_camera_wb = 1;
        p.output_bps = 8;
        p.output_color = 1;   // sRGB
        p.half_size = size > 0 && qMax(s.width, s.height) / 2 >= size;
        if (raw->unpack() != LIBRAW_SUCCESS || raw->dcraw_process() != LIBRAW_SUCCESS)
            return {};
        int error = 0;
        const std::unique_ptr<libraw_processed_image_t, ClearMem> image(raw->dcraw_make_mem_image(&error));
        if (!image || image->type != LIBRAW_IMAGE_BITMAP || image->bits != 8
            || (image->colors != 3 && image->colors != 1) || image->width == 0 || image->height == 0
            || qint64(image->data_size) < qint64(image->width) * image->height * image->colors)
            return {};
        // LibRaw has already turned the pixels by the file's flip.
        const QImage view(image->data, image->width, image->height, qsizetype(image->width) * image->colors,
                          image->colors == 3 ? QImage::Format_RGB888 : QImage::Format_Grayscale8);
        QImage upright = view.convertToFormat(QImage::Format_RGB32);
        if (size > 0 && qMax(upright.width(), upright.height()) > size)
            upright = upright.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        return upright;
    } catch (...) {
        return {};
    }
}

} // namespace RawDeveloper

QImage ImageDecoder::developRaw(const QString &path, int size)
{
    return RawDeveloper::develop(path, size);
}
