#pragma once
// Small drawings shared by the grid cells and the single view: the file-kind tile shown until a
// thumbnail exists, stars, the flag box and the rotation mark.
#include <QRectF>
#include <QSizeF>
#include <QString>

class Photo;
class QColor;
class QIcon;
class QPainter;

namespace MarkGlyphs {

// "RAW", "JPG", "VÍDEO", "HEIC"…: what the placeholder says the shot is.
QString kindLabel(const Photo &p);
bool isVideo(const Photo &p);
// Upright proportions of the shot (metadata and rotation mark applied); 3:2 when unknown.
QSizeF uprightAspect(const Photo &p);

// A neutral tile of the shot's proportions centred in `area`, with its kind written on it.
// Returns the tile's rectangle.
QRectF paintKindTile(QPainter &painter, const QRectF &area, const Photo &p, qreal fontPixels);
// `rating` filled stars of `size` pixels from `topLeft`; the width used is returned.
qreal paintStars(QPainter &painter, const QPointF &topLeft, int rating, qreal size, const QColor &color);
// The flag as a check box.
void paintFlagBox(QPainter &painter, const QRectF &box, bool checked);
// A quarter-turn arrow with the angle ("90°") at `topLeft`; returns the width used.
qreal paintRotation(QPainter &painter, const QPointF &topLeft, int quarterTurns, qreal height, const QColor &color);
// A colour label's dot, for menus and lists.
QIcon colorDot(const QColor &color);
// A folder drawn in `area`.
void paintFolder(QPainter &painter, const QRectF &area);

} // namespace MarkGlyphs
