#include "imagedraw.h"

#include <QImage>
#include <QPainter>
#include <cmath>

namespace ImageDraw {

QSize turned(const QSize &imageSize, int quarterTurns)
{
    return quarterTurns % 2 ? imageSize.transposed() : imageSize;
}

QRectF fitted(const QRectF &area, const QSize &imageSize, int quarterTurns, qreal dpr)
{
    if (imageSize.isEmpty() || area.isEmpty())
        return {};
    const QSize box(int(std::lround(area.width() * dpr)), int(std::lround(area.height() * dpr)));
    const QSize size = turned(imageSize, quarterTurns).scaled(box, Qt::KeepAspectRatio);
    const qreal x = std::round(area.left() * dpr) + (box.width() - size.width()) / 2;
    const qreal y = std::round(area.top() * dpr) + (box.height() - size.height()) / 2;
    return QRectF(x / dpr, y / dpr, size.width() / dpr, size.height() / dpr);
}

void draw(QPainter &painter, const QRectF &target, const QImage &image, int quarterTurns)
{
    if (quarterTurns % 4 == 0) {
        painter.drawImage(target, image);
        return;
    }
    painter.save();
    painter.translate(target.center());
    painter.rotate(90.0 * quarterTurns);
    const QSizeF s = quarterTurns % 2 ? target.size().transposed() : target.size();
    painter.drawImage(QRectF(QPointF(-s.width() / 2, -s.height() / 2), s), image);
    painter.restore();
}

QPointF turnedUnit(const QPointF &unit, int quarterTurns)
{
    switch (((quarterTurns % 4) + 4) % 4) {
    case 1: return {1 - unit.y(), unit.x()};
    case 2: return {1 - unit.x(), 1 - unit.y()};
    case 3: return {unit.y(), 1 - unit.x()};
    default: return unit;
    }
}

} // namespace ImageDraw
