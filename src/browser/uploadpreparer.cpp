#include "uploadpreparer.h"

#include "imaging/imagedecoder.h"
#include "imaging/vipsbitmap.h"
#include "model/filekinds.h"
#include "model/photo.h"

#include <QFile>
#include <QFileInfo>
#include <exiv2/exiv2.hpp>

namespace {

// The source's IPTC copied into the JPEG bytes; the bytes stay as they were when exiv2 cannot.
void copyIptc(const QString &source, QByteArray *jpeg)
{
    try {
        auto from = Exiv2::ImageFactory::open(QFile::encodeName(source).toStdString());
        from->readMetadata();
        if (from->iptcData().empty())
            return;
        auto to = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte *>(jpeg->constData()), size_t(jpeg->size()));
        to->readMetadata();
        to->setIptcData(from->iptcData());
        to->writeMetadata();
        Exiv2::BasicIo &io = to->io();
        io.seek(0, Exiv2::BasicIo::beg);
        QByteArray out(qsizetype(io.size()), Qt::Uninitialized);
        const auto got = io.read(reinterpret_cast<Exiv2::byte *>(out.data()), size_t(out.size()));
        if (qsizetype(got) == out.size())
            *jpeg = out;
    } catch (const std::exception &) {
    }
}

} // namespace

namespace UploadPreparer {

bool prepare(const UploadJob &job, const QString &path, QByteArray *bytes, QString *error)
{
    const QString name = QFileInfo(path).fileName();
    if (job.resizeLongSide <= 0 || !FileKinds::isImage(path))
        return true;   // the file itself
    ImageDecoder::initialize();
    const QImage image = ImageDecoder::decode(path, FileKinds::isRaw(path), job.resizeLongSide).image;
    if (image.isNull()) {
        *error = QStringLiteral("no se puede abrir la imagen «%1»").arg(name);
        return false;
    }
    // The decode road may hand back a larger bitmap (an embedded preview); the long side is a promise.
    const QImage sized = std::max(image.width(), image.height()) > job.resizeLongSide
                             ? image.scaled(job.resizeLongSide, job.resizeLongSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                             : image;
    *bytes = VipsBitmap::encodeJpeg(sized, job.quality);
    if (bytes->isEmpty()) {
        *error = QStringLiteral("no se puede preparar la copia de «%1»").arg(name);
        return false;
    }
    copyIptc(path, bytes);
    return true;
}

QStringList filesOf(const QList<Photo *> &photos, bool jpegOnly)
{
    QStringList out;
    for (const Photo *p : photos) {
        QStringList files;
        for (const QString &f : p->files())
            if (!FileKinds::isSidecar(f))
                files.append(f);
        if (jpegOnly) {
            QStringList jpegs;
            for (const QString &f : files)
                if (FileKinds::isJpeg(f))
                    jpegs.append(f);
            if (!jpegs.isEmpty())
                files = jpegs;
        }
        out += files;
    }
    return out;
}

} // namespace UploadPreparer
