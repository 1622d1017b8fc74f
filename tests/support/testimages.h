#pragma once
// Small real image files for tests that need something to decode, written with Qt's own encoder.
#include <QColor>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QString>

namespace TestImages {

// A JPEG of one colour at `path` (folders made as needed); returns the path, or "" on failure.
inline QString writeJpeg(const QString &path, int w, int h, QColor colour = Qt::gray, int quality = 90)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(colour);
    return image.save(path, "JPEG", quality) ? path : QString();
}

} // namespace TestImages
