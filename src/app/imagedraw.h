#pragma once
// Drawing a shot's bitmap turned by the user's rotation mark: the painter turns it, so the
// bitmap is never copied to be drawn. Sizes are worked out in device pixels, so an image
// already scaled to the cell lands pixel for pixel.
#include <QRectF>
#include <QSize>

class QImage;
class QPainter;

namespace ImageDraw {

// `imageSize` turned by `quarterTurns` (clockwise).
QSize turned(const QSize &imageSize, int quarterTurns);
// Where the image, turned, fits inside `area` (logical pixels), centred and aligned to device pixels.
QRectF fitted(const QRectF &area, const QSize &imageSize, int quarterTurns, qreal dpr);
// Draws `image` turned by `quarterTurns` so that it covers `target` (the turned rectangle).
void draw(QPainter &painter, const QRectF &target, const QImage &image, int quarterTurns);
// A point in unit coordinates of the upright image, in unit coordinates of the turned one.
QPointF turnedUnit(const QPointF &unit, int quarterTurns);

} // namespace ImageDraw
