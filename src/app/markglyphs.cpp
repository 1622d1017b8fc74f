#include "markglyphs.h"

#include <QIcon>
#include <QPixmap>

#include "model/filekinds.h"
#include "model/photo.h"

#include <QPainter>
#include <QPainterPath>
#include <QtMath>

namespace MarkGlyphs {

bool isVideo(const Photo &p) { return FileKinds::isVideo(p.url()); }

QString kindLabel(const Photo &p)
{
    const QString ext = FileKinds::extensionOf(p.url());
    switch (FileKinds::kindOfExtension(ext)) {
    case FileKinds::Kind::Raw: return QStringLiteral("RAW");
    case FileKinds::Kind::Jpeg: return QStringLiteral("JPG");
    case FileKinds::Kind::Video: return QStringLiteral("VÍDEO");
    default: return ext.toUpper();
    }
}

QSizeF uprightAspect(const Photo &p)
{
    QSizeF s(3, 2);
    if (p.meta() && p.meta()->width > 0 && p.meta()->height > 0)
        s = QSizeF(p.meta()->uprightWidth(), p.meta()->uprightHeight());
    else if (isVideo(p))
        s = QSizeF(16, 9);
    if (p.rotation() % 2 == 1)
        s.transpose();
    return s;
}

QIcon colorDot(const QColor &color)
{
    QPixmap pm(14, 14);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawEllipse(QRectF(2, 2, 10, 10));
    return QIcon(pm);
}

QRectF paintKindTile(QPainter &painter, const QRectF &area, const Photo &p, qreal fontPixels)
{
    QSizeF tile = uprightAspect(p);
    tile.scale(area.size() * 0.86, Qt::KeepAspectRatio);
    const QRectF r(area.center() - QPointF(tile.width() / 2, tile.height() / 2), tile);

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // A damaged shot says so in red, distinct from the grey tile of a shot still loading: a failed
    // write must not pass for a healthy file.
    const bool damaged = p.damaged();
    painter.setPen(QPen(damaged ? QColor(0x8a, 0x3a, 0x3f) : QColor(0x4a, 0x4a, 0x4a), 1));
    painter.setBrush(damaged ? QColor(0x3a, 0x22, 0x24) : QColor(0x34, 0x34, 0x34));
    painter.drawRoundedRect(r.adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);

    QFont f = painter.font();
    f.setPixelSize(qMax(8, qRound(fontPixels)));
    f.setBold(true);
    f.setLetterSpacing(QFont::PercentageSpacing, 108);
    painter.setFont(f);
    painter.setPen(damaged ? QColor(0xe0, 0x78, 0x7c) : QColor(0x8c, 0x8c, 0x8c));
    if (damaged) {
        painter.drawText(r, Qt::AlignCenter, QStringLiteral("dañada"));
        painter.restore();
        return r;
    }
    const QString label = kindLabel(p);
    if (isVideo(p)) {
        // A play triangle above the word.
        const qreal s = qMin(r.width(), r.height()) * 0.22;
        const QPointF c = r.center() - QPointF(0, fontPixels * 0.6);
        QPainterPath tri;
        tri.moveTo(c + QPointF(-s * 0.4, -s * 0.5));
        tri.lineTo(c + QPointF(s * 0.6, 0));
        tri.lineTo(c + QPointF(-s * 0.4, s * 0.5));
        tri.closeSubpath();
        painter.fillPath(tri, QColor(0x70, 0x70, 0x70));
        painter.drawText(QRectF(r.left(), c.y() + s * 0.6, r.width(), fontPixels * 1.6), Qt::AlignCenter, label);
    } else {
        painter.drawText(r, Qt::AlignCenter, label);
    }
    painter.restore();
    return r;
}

namespace {
QPainterPath starPath(const QPointF &centre, qreal outer)
{
    QPainterPath path;
    const qreal inner = outer * 0.45;
    for (int i = 0; i < 10; ++i) {
        const qreal radius = (i % 2 == 0) ? outer : inner;
        const qreal angle = qDegreesToRadians(-90.0 + i * 36.0);
        const QPointF pt = centre + QPointF(radius * qCos(angle), radius * qSin(angle));
        if (i == 0)
            path.moveTo(pt);
        else
            path.lineTo(pt);
    }
    path.closeSubpath();
    return path;
}
} // namespace

qreal paintStars(QPainter &painter, const QPointF &topLeft, int rating, qreal size, const QColor &color)
{
    if (rating <= 0)
        return 0;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal step = size * 1.1;
    for (int i = 0; i < rating; ++i) {
        const QPointF c = topLeft + QPointF(size / 2 + i * step, size / 2 + size * 0.04);
        painter.fillPath(starPath(c, size / 2), color);
    }
    painter.restore();
    return rating * step;
}

void paintFlagBox(QPainter &painter, const QRectF &box, bool checked)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF r = box.adjusted(0.5, 0.5, -0.5, -0.5);
    if (checked) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0xe6, 0xe6, 0xe6));
        painter.drawRoundedRect(r, 2.5, 2.5);
        QPen pen(QColor(0x1c, 0x1c, 0x1c), qMax<qreal>(1.6, box.width() / 8));
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        painter.setPen(pen);
        QPainterPath tick;
        tick.moveTo(r.left() + r.width() * 0.24, r.top() + r.height() * 0.53);
        tick.lineTo(r.left() + r.width() * 0.43, r.top() + r.height() * 0.72);
        tick.lineTo(r.left() + r.width() * 0.77, r.top() + r.height() * 0.30);
        painter.drawPath(tick);
    } else {
        painter.setPen(QPen(QColor(0xb0, 0xb0, 0xb0, 200), 1.2));
        painter.setBrush(QColor(0x1c, 0x1c, 0x1c, 140));
        painter.drawRoundedRect(r, 2.5, 2.5);
    }
    painter.restore();
}

qreal paintRotation(QPainter &painter, const QPointF &topLeft, int quarterTurns, qreal height, const QColor &color)
{
    if (quarterTurns % 4 == 0)
        return 0;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal d = height * 0.78;
    const QRectF arc(topLeft + QPointF(1, (height - d) / 2), QSizeF(d, d));
    QPen pen(color, qMax<qreal>(1.2, height / 10));
    pen.setCapStyle(Qt::RoundCap);
    painter.setPen(pen);
    painter.drawArc(arc, 90 * 16, -270 * 16);
    // Arrow head at the end of the arc (pointing left, at the top).
    const QPointF tip(arc.center().x(), arc.top());
    const qreal h = d * 0.32;
    QPainterPath head;
    head.moveTo(tip + QPointF(-h, 0));
    head.lineTo(tip + QPointF(h * 0.3, -h * 0.8));
    head.lineTo(tip + QPointF(h * 0.3, h * 0.8));
    head.closeSubpath();
    painter.fillPath(head, color);

    QFont f = painter.font();
    f.setPixelSize(qMax(7, qRound(height * 0.78)));
    painter.setFont(f);
    const QString text = QStringLiteral("%1°").arg((quarterTurns % 4) * 90);
    const qreal tw = painter.fontMetrics().horizontalAdvance(text);
    painter.drawText(QRectF(arc.right() + 3, topLeft.y(), tw + 2, height), Qt::AlignLeft | Qt::AlignVCenter, text);
    painter.restore();
    return d + 5 + tw;
}

void paintFolder(QPainter &painter, const QRectF &area)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QSizeF s(4, 3);
    s.scale(area.size() * 0.62, Qt::KeepAspectRatio);
    const QRectF body(area.center() - QPointF(s.width() / 2, s.height() / 2 - s.height() * 0.06), s);
    QPainterPath tab;
    tab.addRoundedRect(QRectF(body.left(), body.top() - s.height() * 0.12, s.width() * 0.42, s.height() * 0.3), 3, 3);
    painter.fillPath(tab, QColor(0x5a, 0x5a, 0x5a));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x6b, 0x6b, 0x6b));
    painter.drawRoundedRect(body, 4, 4);
    painter.setBrush(QColor(0x78, 0x78, 0x78));
    painter.drawRoundedRect(body.adjusted(0, s.height() * 0.16, 0, 0), 4, 4);
    painter.restore();
}

} // namespace MarkGlyphs
