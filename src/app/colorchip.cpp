#include "colorchip.h"

#include "labelcolors.h"

#include <QPainter>

ColorChip::ColorChip(int colorClass, QWidget *parent)
    : QAbstractButton(parent)
    , _color(colorClass)
{
    setCheckable(true);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setObjectName(QStringLiteral("chip-%1").arg(colorClass));
    setToolTip(colorClass == 0 ? QStringLiteral("Sin color (0)")
                               : QStringLiteral("%1 (%2)").arg(LabelColors::name(colorClass)).arg(colorClass));
    setAccessibleName(LabelColors::name(colorClass));
}

QSize ColorChip::sizeHint() const { return QSize(22, 22); }

void ColorChip::enterEvent(QEnterEvent *event)
{
    _hover = true;
    update();
    QAbstractButton::enterEvent(event);
}

void ColorChip::leaveEvent(QEvent *event)
{
    _hover = false;
    update();
    QAbstractButton::leaveEvent(event);
}

void ColorChip::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(4.5, 4.5, -4.5, -4.5);
    if (isChecked()) {
        p.setPen(QPen(QColor(0xee, 0xee, 0xee), 1.6));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5));
    } else if (_hover) {
        p.setPen(QPen(QColor(0x80, 0x80, 0x80), 1.2));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5));
    }
    if (_color == 0) {
        p.setPen(QPen(QColor(0xa8, 0xa8, 0xa8), 1.4));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(r.adjusted(0.7, 0.7, -0.7, -0.7));
        p.drawLine(QPointF(r.left() + 2.5, r.bottom() - 2.5), QPointF(r.right() - 2.5, r.top() + 2.5));
    } else {
        p.setPen(Qt::NoPen);
        p.setBrush(LabelColors::color(_color));
        p.drawEllipse(r);
    }
}
