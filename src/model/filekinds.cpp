#include "filekinds.h"

#include <QSet>

namespace FileKinds {
namespace {

const QSet<QString> &jpegSet()
{
    static const QSet<QString> s{"jpg", "jpeg"};
    return s;
}
const QSet<QString> &rawSet()
{
    static const QSet<QString> s{"dng", "cr2", "cr3", "crw", "nef", "nrw", "arw", "srf", "sr2",
                                 "raf", "orf", "rw2", "rwl", "pef", "srw", "3fr", "fff", "iiq",
                                 "erf", "mos", "mrw", "kdc", "dcr", "x3f", "raw"};
    return s;
}
const QSet<QString> &otherImageSet()
{
    static const QSet<QString> s{"heic", "heif", "png", "tif", "tiff", "webp", "psd", "psb", "avif", "jxl"};
    return s;
}
const QSet<QString> &videoSet()
{
    static const QSet<QString> s{"mov", "mp4", "m4v", "mts", "m2ts", "avi", "mxf"};
    return s;
}

// Position of the dot that starts the extension in the last path component, or -1.
qsizetype extensionDot(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    const qsizetype dot = path.lastIndexOf(QLatin1Char('.'));
    // A dot at the very start of the name (".hidden") starts no extension.
    if (dot <= slash + 1)
        return -1;
    return dot;
}

} // namespace

QString extensionOf(const QString &path)
{
    const qsizetype dot = extensionDot(path);
    return dot < 0 ? QString() : path.mid(dot + 1).toLower();
}

QString baseNameOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    const qsizetype dot = extensionDot(path);
    return dot < 0 ? path.mid(slash + 1) : path.mid(slash + 1, dot - slash - 1);
}

Kind kindOfExtension(const QString &e)
{
    if (jpegSet().contains(e))
        return Kind::Jpeg;
    if (rawSet().contains(e))
        return Kind::Raw;
    if (otherImageSet().contains(e))
        return Kind::OtherImage;
    if (videoSet().contains(e))
        return Kind::Video;
    if (e == QLatin1String("xmp"))
        return Kind::Sidecar;
    return Kind::Other;
}

bool isRawExt(const QString &e) { return rawSet().contains(e); }
bool isJpegExt(const QString &e) { return jpegSet().contains(e); }
bool isImageExt(const QString &e) { return jpegSet().contains(e) || rawSet().contains(e) || otherImageSet().contains(e); }
bool isVideoExt(const QString &e) { return videoSet().contains(e); }
bool isMediaExt(const QString &e) { return isImageExt(e) || isVideoExt(e); }

bool isRaw(const QString &p) { return isRawExt(extensionOf(p)); }
bool isJpeg(const QString &p) { return isJpegExt(extensionOf(p)); }
bool isImage(const QString &p) { return isImageExt(extensionOf(p)); }
bool isVideo(const QString &p) { return isVideoExt(extensionOf(p)); }
bool isMedia(const QString &p) { return isMediaExt(extensionOf(p)); }
bool isSidecar(const QString &p) { return extensionOf(p) == QLatin1String("xmp"); }

} // namespace FileKinds
