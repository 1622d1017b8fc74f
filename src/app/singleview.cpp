#include "singleview.h"

#include "labelcolors.h"
#include "markglyphs.h"
#include "thumbnailsource.h"

#include "model/appstate.h"

#include <QKeyEvent>
#include <QPainter>
#include <QTransform>
#include <QWheelEvent>

namespace {
const QColor kBackground(0x1a, 0x1a, 0x1a);
const QColor kOverlay(0x12, 0x12, 0x12, 205);
const QColor kText(0xdc, 0xdc, 0xdc);
const QColor kDim(0x9a, 0x9a, 0x9a);
const QColor kBlurry(0xf0, 0x5a, 0x5e);
const QColor kDoubtful(0xe8, 0xa3, 0x2a);
} // namespace

SingleView::SingleView(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
{
    setObjectName(QStringLiteral("singleView"));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    connect(&state, &AppState::currentChanged, this, qOverload<>(&QWidget::update));
    connect(&state, &AppState::photosChanged, this, qOverload<>(&QWidget::update));
    connect(&state, &AppState::photosUpdated, this, [this](const QList<QUuid> &ids) {
        if (const Photo *p = _state.current(); p && ids.contains(p->id))
            update();
    });
}

void SingleView::setThumbnailSource(ThumbnailSource *source)
{
    if (_source)
        disconnect(_source, nullptr, this, nullptr);
    _source = source;
    if (source)
        connect(source, &ThumbnailSource::thumbnailReady, this, [this](const QUuid &id) {
            if (const Photo *p = _state.current(); p && p->id == id)
                update();
        });
    update();
}

QString SingleView::sharpnessNote() const
{
    const Photo *p = _state.current();
    if (!p)
        return {};
    switch (sharpVerdict(*p, _state.sensitivity())) {
    case SharpBlurry: return sharpReason(*p, _state.sensitivity());
    case SharpDoubtful: return QStringLiteral("Nitidez dudosa");
    default: return {};
    }
}

void SingleView::step(int delta)
{
    const int n = int(_state.visible().size());
    if (n == 0)
        return;
    _state.setCurrentIndex(qBound(0, _state.currentIndex() + delta, n - 1));
}

void SingleView::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Up:
        step(-1);
        break;
    case Qt::Key_Right:
    case Qt::Key_Down:
        step(1);
        break;
    case Qt::Key_PageUp: step(-10); break;
    case Qt::Key_PageDown: step(10); break;
    case Qt::Key_Home: step(-int(_state.visible().size())); break;
    case Qt::Key_End: step(int(_state.visible().size())); break;
    default:
        event->ignore();
        return;
    }
    event->accept();
}

void SingleView::wheelEvent(QWheelEvent *event)
{
    // One shot per notch; touchpads send small deltas that add up to one.
    _wheelAccumulator += event->angleDelta().y();
    while (_wheelAccumulator >= 120) {
        step(-1);
        _wheelAccumulator -= 120;
    }
    while (_wheelAccumulator <= -120) {
        step(1);
        _wheelAccumulator += 120;
    }
    event->accept();
}

void SingleView::mouseDoubleClickEvent(QMouseEvent *event)
{
    emit backToGrid();
    event->accept();
}

void SingleView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), kBackground);
    const Photo *photo = _state.current();
    if (!photo) {
        p.setPen(kDim);
        p.drawText(rect(), Qt::AlignCenter, QStringLiteral("Ninguna imagen"));
        return;
    }
    const QRect area = rect().adjusted(16, 16, -16, -44);
    QImage image;
    if (_source) {
        const qreal dpr = devicePixelRatioF();
        image = _source->thumbnail(photo->id, qRound(qMax(area.width(), area.height()) * dpr));
    }
    if (!image.isNull()) {
        if (photo->rotation() != 0)
            image = image.transformed(QTransform().rotate(90.0 * photo->rotation()));
        QSizeF s = image.size() / image.devicePixelRatio();
        s.scale(area.size(), Qt::KeepAspectRatio);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        p.drawImage(QRectF(QPointF(area.center()) - QPointF(s.width() / 2, s.height() / 2), s), image);
    } else {
        const QRectF tile = MarkGlyphs::paintKindTile(p, area, *photo, qMax(18.0, qMin(area.width(), area.height()) / 12.0));
        QFont f = font();
        f.setPixelSize(15);
        p.setFont(f);
        p.setPen(kDim);
        p.drawText(QRectF(tile.left(), tile.center().y() + qMin(area.width(), area.height()) / 12.0, tile.width(), 30),
                   Qt::AlignHCenter | Qt::AlignTop, photo->name());
    }

    // Name and position under the image.
    QFont f = font();
    f.setPixelSize(12);
    p.setFont(f);
    p.setPen(kDim);
    const QString position = QStringLiteral("%1 de %2").arg(_state.currentIndex() + 1).arg(_state.visible().size());
    const QRect footer(16, height() - 34, width() - 32, 24);
    p.drawText(footer, Qt::AlignLeft | Qt::AlignVCenter, photo->name() + QStringLiteral("   ") + photo->badge);
    p.drawText(footer, Qt::AlignRight | Qt::AlignVCenter, position);

    paintOverlay(p, *photo);
}

void SingleView::paintOverlay(QPainter &p, const Photo &photo)
{
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    QFont f = font();
    f.setPixelSize(12);
    p.setFont(f);
    const QFontMetrics fm(f);
    const int color = int(photo.colorClass());
    const int lineH = 16;

    // Measure first so the box fits its contents.
    const QString flagText = photo.tagged() ? QStringLiteral("Marcada") : QStringLiteral("Sin marcar");
    int w = lineH + 6 + fm.horizontalAdvance(flagText);
    if (photo.rating() > 0)
        w += 14 + int(photo.rating() * (lineH - 2) * 1.1);
    if (color > 0)
        w += 14 + 10 + 5 + fm.horizontalAdvance(LabelColors::name(color));
    if (photo.rotation() != 0)
        w += 14 + lineH + fm.horizontalAdvance(QStringLiteral("270°")) + 6;
    const QString note = sharpnessNote();
    const int noteW = note.isEmpty() ? 0 : fm.horizontalAdvance(note);
    const QRect box(14, 14, qMax(w, noteW) + 20, note.isEmpty() ? lineH + 14 : 2 * lineH + 20);
    p.setPen(Qt::NoPen);
    p.setBrush(kOverlay);
    p.drawRoundedRect(box, 6, 6);

    int x = box.left() + 10;
    const int y = box.top() + 7;
    MarkGlyphs::paintFlagBox(p, QRectF(x, y + 1, lineH - 2, lineH - 2), photo.tagged());
    x += lineH + 4;
    p.setPen(photo.tagged() ? kText : kDim);
    p.drawText(QRect(x, y, fm.horizontalAdvance(flagText) + 2, lineH), Qt::AlignVCenter, flagText);
    x += fm.horizontalAdvance(flagText) + 14;
    if (photo.rating() > 0)
        x += int(MarkGlyphs::paintStars(p, QPointF(x, y + 1), photo.rating(), lineH - 2, kText)) + 14;
    if (color > 0) {
        p.setPen(Qt::NoPen);
        p.setBrush(LabelColors::color(color));
        p.drawEllipse(QRectF(x, y + lineH / 2.0 - 5, 10, 10));
        x += 15;
        p.setPen(kText);
        const QString name = LabelColors::name(color);
        p.drawText(QRect(x, y, fm.horizontalAdvance(name) + 2, lineH), Qt::AlignVCenter, name);
        x += fm.horizontalAdvance(name) + 14;
    }
    if (photo.rotation() != 0)
        MarkGlyphs::paintRotation(p, QPointF(x, y), photo.rotation(), lineH, kText);
    if (!note.isEmpty()) {
        const bool blurry = sharpVerdict(photo, _state.sensitivity()) == SharpBlurry;
        p.setPen(blurry ? kBlurry : kDoubtful);
        p.drawText(QRect(box.left() + 10, y + lineH + 6, noteW + 2, lineH), Qt::AlignVCenter, note);
    }
    p.restore();
}
