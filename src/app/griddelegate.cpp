#include "griddelegate.h"

#include "gridmodel.h"
#include "imagedraw.h"
#include "labelcolors.h"
#include "markglyphs.h"
#include "thumbnailsource.h"

#include "browser/appstate.h"

#include <QAbstractItemView>
#include <QPainter>

namespace {
constexpr int kMargin = 3;      // between cells
constexpr int kPad = 6;         // inside the card, around the thumbnail
constexpr int kTextBlock = 36;  // name line and marks line under the thumbnail

const QColor kCard(0x2a, 0x2a, 0x2a);
const QColor kCardSelected(0x48, 0x48, 0x48);
const QColor kCurrentFrame(0xd8, 0xd8, 0xd8);
const QColor kText(0xd4, 0xd4, 0xd4);
const QColor kDimText(0x9a, 0x9a, 0x9a);
const QColor kStar(0xe0, 0xe0, 0xe0);
const QColor kBlurry(0xe5, 0x48, 0x4d);
const QColor kDoubtful(0xe8, 0xa3, 0x2a);
const QColor kNew(0x3b, 0x8e, 0xf6);

// The current cell keeps its frame when the keyboard focus is elsewhere (the search field, the
// sidebar): the photographer must always see which shot a key will mark.
bool isCurrent(const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const auto *view = qobject_cast<const QAbstractItemView *>(option.widget);
    return view ? view->currentIndex() == index : bool(option.state & QStyle::State_HasFocus);
}
} // namespace

GridDelegate::GridDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
}

QSize GridDelegate::cellSize() const
{
    return QSize(_thumb + 2 * (kMargin + kPad), _thumb + 2 * (kMargin + kPad) + kTextBlock);
}

QRect GridDelegate::cellRect(const QRect &itemRect) const
{
    // The view spreads spare width over the columns; the cell keeps its size, centred.
    const QSize s = cellSize();
    return QRect(itemRect.left() + qMax(0, itemRect.width() - s.width()) / 2, itemRect.top(), s.width(), s.height());
}

QRect GridDelegate::cardRect(const QRect &itemRect) const
{
    return cellRect(itemRect).adjusted(kMargin, kMargin, -kMargin, -kMargin);
}

QRect GridDelegate::thumbRect(const QRect &itemRect) const
{
    const QRect card = cardRect(itemRect);
    return QRect(card.left() + kPad, card.top() + kPad, _thumb, _thumb);
}

QRect GridDelegate::flagRect(const QRect &itemRect) const
{
    const QRect t = thumbRect(itemRect);
    const int s = qBound(12, _thumb / 11, 16);
    return QRect(t.right() - s - 3, t.top() + 3, s, s);
}

QSize GridDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const
{
    return cellSize();
}

void GridDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const auto *model = static_cast<const GridModel *>(index.model());
    QPainter &p = *painter;
    p.save();
    if (model->isFolder(index.row())) {
        paintFolderCell(p, option, index);
        p.restore();
        return;
    }
    const Photo *photo = model->photoAt(index.row());
    if (!photo) {
        p.restore();
        return;
    }
    const QRect cell = option.rect;
    const QRect card = cardRect(cell);
    const QRect thumb = thumbRect(cell);
    const bool selected = option.state & QStyle::State_Selected;
    const bool current = isCurrent(option, index);
    const int color = int(photo->colorClass());

    // Card, with the colour label as a tinted frame.
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(selected ? kCardSelected : kCard);
    p.drawRoundedRect(card, 4, 4);
    if (color > 0) {
        QColor tint = LabelColors::color(color);
        p.setPen(QPen(tint, 2.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(card).adjusted(1.25, 1.25, -1.25, -1.25), 4, 4);
    }
    if (current) {
        p.setPen(QPen(kCurrentFrame, 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(cellRect(cell)).adjusted(0.75, 0.75, -0.75, -0.75), 5.5, 5.5);
    }

    // Thumbnail, upright with the rotation mark, or the kind tile.
    QImage image;
    if (ThumbnailSource *source = model->thumbnailSource()) {
        const qreal dpr = p.device() ? p.device()->devicePixelRatioF() : 1.0;
        image = source->thumbnail(photo->id, qRound(_thumb * dpr));
    }
    const qreal fontPx = qMax(9.0, _thumb / 9.0);
    if (!image.isNull() && !photo->damaged()) {
        const qreal dpr = p.device() ? p.device()->devicePixelRatioF() : 1.0;
        const QRectF target = ImageDraw::fitted(thumb, image.size(), photo->rotation(), dpr);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        ImageDraw::draw(p, target, image, photo->rotation());
    } else {
        MarkGlyphs::paintKindTile(p, thumb, *photo, fontPx);
    }

    // Badge top-left.
    QFont small = option.font;
    small.setPixelSize(qBound(9, _thumb / 15, 11));
    small.setBold(true);
    p.setFont(small);
    const QFontMetrics smallFm(small);
    if (!photo->badge.isEmpty()) {
        const QRect b(thumb.left() + 3, thumb.top() + 3, smallFm.horizontalAdvance(photo->badge) + 8, smallFm.height() + 2);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0x16, 0x16, 0x16, 200));
        p.drawRoundedRect(b, 2.5, 2.5);
        p.setPen(kDimText);
        p.drawText(b, Qt::AlignCenter, photo->badge);
    }

    // Flag box top-right.
    MarkGlyphs::paintFlagBox(p, flagRect(cell), photo->tagged());

    // Name line: the blue "new" dot, then the elided name.
    QFont nameFont = option.font;
    nameFont.setPixelSize(qBound(10, _thumb / 13, 12));
    p.setFont(nameFont);
    const QFontMetrics fm(nameFont);
    QRect nameRect(card.left() + kPad, thumb.bottom() + 4, card.width() - 2 * kPad, fm.height());
    if (photo->isNew()) {
        const int d = 7;
        p.setPen(Qt::NoPen);
        p.setBrush(kNew);
        p.drawEllipse(QRectF(nameRect.left(), nameRect.center().y() - d / 2.0 + 1, d, d));
        nameRect.setLeft(nameRect.left() + d + 4);
    }
    p.setPen(selected ? QColor(0xf0, 0xf0, 0xf0) : kText);
    p.drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter, fm.elidedText(photo->name(), Qt::ElideMiddle, nameRect.width()));

    // Marks line: stars and rotation on the left; sharpness mark and colour dot on the right.
    const int lineH = 13;
    const QRect marks(card.left() + kPad, nameRect.bottom() + 3, card.width() - 2 * kPad, lineH);
    qreal x = marks.left();
    x += MarkGlyphs::paintStars(p, QPointF(x, marks.top()), photo->rating(), lineH - 1, kStar);
    if (photo->rotation() != 0)
        MarkGlyphs::paintRotation(p, QPointF(x + (x > marks.left() ? 6 : 0), marks.top()), photo->rotation(), lineH, kDimText);

    qreal right = marks.right();
    const qreal d = 9;
    if (color > 0) {
        p.setPen(Qt::NoPen);
        p.setBrush(LabelColors::color(color));
        p.drawEllipse(QRectF(right - d, marks.center().y() - d / 2 + 0.5, d, d));
        right -= d + 5;
    }
    const int verdict = sharpVerdict(*photo, model->state().sensitivity());
    if (verdict == SharpBlurry || verdict == SharpDoubtful) {
        // A small warning triangle: red for blurry, amber for doubtful.
        const QColor c = verdict == SharpBlurry ? kBlurry : kDoubtful;
        const qreal s = lineH - 1;
        QPolygonF tri;
        tri << QPointF(right - s / 2, marks.top() + 0.5) << QPointF(right, marks.top() + s) << QPointF(right - s, marks.top() + s);
        p.setPen(Qt::NoPen);
        p.setBrush(c);
        p.drawPolygon(tri);
        p.setPen(QPen(QColor(0x1c, 0x1c, 0x1c), 1.4));
        p.drawLine(QPointF(right - s / 2, marks.top() + s * 0.38), QPointF(right - s / 2, marks.top() + s * 0.68));
        p.drawPoint(QPointF(right - s / 2, marks.top() + s * 0.84));
    }
    p.restore();
}

void GridDelegate::paintFolderCell(QPainter &p, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QRect cell = option.rect;
    const QRect card = cardRect(cell);
    const QRect thumb = thumbRect(cell);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush((option.state & QStyle::State_Selected) ? kCardSelected : QColor(0x24, 0x24, 0x24));
    p.drawRoundedRect(card, 4, 4);
    if (isCurrent(option, index)) {
        p.setPen(QPen(kCurrentFrame, 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(cellRect(cell)).adjusted(0.75, 0.75, -0.75, -0.75), 5.5, 5.5);
    }
    MarkGlyphs::paintFolder(p, thumb);
    QFont nameFont = option.font;
    nameFont.setPixelSize(qBound(10, _thumb / 13, 12));
    p.setFont(nameFont);
    const QFontMetrics fm(nameFont);
    const QRect nameRect(card.left() + kPad, thumb.bottom() + 4, card.width() - 2 * kPad, fm.height());
    p.setPen(kText);
    p.drawText(nameRect, Qt::AlignHCenter | Qt::AlignVCenter,
               fm.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideMiddle, nameRect.width()));
}
