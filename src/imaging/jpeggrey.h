#pragma once
// The brightness of a JPEG, decoded by libjpeg-turbo at the smallest of its DCT scales (n/8) that
// still covers a wanted size. Only the luma channel is inverse-transformed: the colour channels
// are entropy-decoded and dropped, which is what makes this the cheapest honest road to a grey
// bitmap of a camera JPEG. Safe on any thread.
#include <QImage>
#include <QSize>
#include <QString>
#include <optional>

struct JpegGrey {
    QImage grey;       // Format_Grayscale8, as stored (not turned)
    QSize fullSize;    // the JPEG's own size, as stored
};

namespace JpegGreyDecoder {

// `wantedFor` maps the stored full size to the smallest stored size wanted. Nothing when the file
// is not a JPEG libjpeg can give grey from (CMYK, damaged, truncated) or claims over `maxPixels`.
template<typename F>
std::optional<JpegGrey> decode(const QString &path, F &&wantedFor, qint64 maxPixels);

std::optional<JpegGrey> decodeScaled(const QString &path, QSize (*wantedFor)(QSize, void *), void *context,
                                     qint64 maxPixels);

} // namespace JpegGreyDecoder

template<typename F>
std::optional<JpegGrey> JpegGreyDecoder::decode(const QString &path, F &&wantedFor, qint64 maxPixels)
{
    return decodeScaled(
        path, [](QSize full, void *c) { return (*static_cast<F *>(c))(full); }, &wantedFor, maxPixels);
}
