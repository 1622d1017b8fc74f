#include "singleview.h"
#include "util/settings.h"

#include "imagedraw.h"
#include "labelcolors.h"
#include "markglyphs.h"
#include "thumbnailsource.h"

#include "imaging/imagepipeline.h"
#include "browser/appstate.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>
#include <QWheelEvent>
#include <QtConcurrent>
#include <cmath>

namespace {
const QColor kBackground(0x1a, 0x1a, 0x1a);
const QColor kOverlay(0x12, 0x12, 0x12, 205);
const QColor kText(0xdc, 0xdc, 0xdc);
const QColor kDim(0x9a, 0x9a, 0x9a);
const QColor kBlurry(0xf0, 0x5a, 0x5e);
const QColor kDoubtful(0xe8, 0xa3, 0x2a);

constexpr int kResizeSettleMs = 200;
// Below this share of the bitmap's width a smooth copy is made for drawing.
constexpr double kSmoothBelow = 0.7;

QString milliseconds(double ms)
{
    return ms < 10 ? QString::number(ms, 'f', 1).replace(QLatin1Char('.'), QLatin1Char(',')) : QString::number(qRound(ms));
}
} // namespace

SingleView::SingleView(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
    , _resizeSettle(new QTimer(this))
{
    setObjectName(QStringLiteral("singleView"));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    _resizeSettle->setSingleShot(true);
    _resizeSettle->setInterval(kResizeSettleMs);
    connect(_resizeSettle, &QTimer::timeout, this, &SingleView::refresh);

    connect(&state, &AppState::folderChanged, this, [this] {
        _lastIndex = -1;
        _direction = 1;
        currentMoved();
    });
    connect(&state, &AppState::currentChanged, this, &SingleView::currentMoved);
    connect(&state, &AppState::photosChanged, this, &SingleView::currentMoved);
    connect(&state, &AppState::photosUpdated, this, [this](const QList<QUuid> &ids) {
        if (!_id.isNull() && ids.contains(_id))
            currentMoved();   // a rename may have changed the preview file; a mark needs a repaint
    });
    connect(&state, &AppState::viewModeChanged, this, [this](ViewMode mode) {
        if (mode == ViewMode::grid)
            fit();
        prefetch();   // the single view looks further ahead
    });
    currentMoved();
}

void SingleView::setThumbnailSource(ThumbnailSource *source)
{
    if (_source)
        disconnect(_source, nullptr, this, nullptr);
    _source = source;
    if (source)
        connect(source, &ThumbnailSource::thumbnailReady, this, [this](const QUuid &id) {
            if (id == _id)
                update();
        });
    update();
}

void SingleView::setPipeline(ImagePipeline *pipeline)
{
    if (_pipeline)
        disconnect(_pipeline, nullptr, this, nullptr);
    _pipeline = pipeline;
    if (pipeline) {
        connect(pipeline, &ImagePipeline::previewReady, this, &SingleView::onPreviewReady);
        connect(pipeline, &ImagePipeline::fullImageReady, this, &SingleView::onFullImageReady);
        const qreal dpr = devicePixelRatioF();
        pipeline->setViewport(width() * dpr, height() * dpr);
    }
    _preview = nullptr;
    _full = QImage();
    refresh();
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

// ----- The current shot and its images

void SingleView::currentMoved()
{
    const Photo *p = _state.current();
    const int index = _state.currentIndex();
    if (_lastIndex >= 0 && index >= 0 && index != _lastIndex)
        _direction = index > _lastIndex ? 1 : -1;
    _lastIndex = index;

    const QUuid id = p ? p->id : QUuid();
    const QString path = p ? p->previewURL() : QString();
    if (id != _id || path != _path) {
        _id = id;
        _path = path;
        _preview = _pipeline && p ? _pipeline->cachedPreview(path) : nullptr;
        _full = QImage();
        if (!p)
            fit();
        else if (_zoomed)
            requestFull();   // the zoom stays: the same spot of the next frame of a burst
    }
    prefetch();
    update();
}

void SingleView::prefetch()
{
    if (!_pipeline)
        return;
    const QList<PhotoPtr> &visible = _state.visible();
    const int index = _state.currentIndex();
    if (index < 0 || index >= visible.size())
        return;
    int ahead = 1, behind = 0;
    if (_state.viewMode() != ViewMode::grid) {
        ahead = qMax(0, Settings::prefetchAhead.get());
        behind = 1;
    }
    // Only the stretch the prefetch can reach: the same request as the whole list, without
    // copying thousands of paths on every key.
    const int reach = qMax(ahead, behind);
    const int lo = qMax(0, index - reach);
    const int hi = qMin(int(visible.size()) - 1, index + reach);
    QList<ImagePipeline::Shot> shots;
    shots.reserve(hi - lo + 1);
    for (int i = lo; i <= hi; ++i)
        shots.append({visible[i]->previewURL(), visible[i]->previewIsRaw});
    _pipeline->prefetch(shots, index - lo, _direction, ahead, behind);
}

void SingleView::refresh()
{
    if (_pipeline && !_path.isEmpty()) {
        if (const ImageBoxPtr box = _pipeline->cachedPreview(_path))
            _preview = box;
        if (_zoomed && _full.isNull())
            requestFull();
    }
    prefetch();
    update();
}

void SingleView::onPreviewReady(const QString &path, const ImageBoxPtr &box)
{
    if (path != _path || !box)
        return;
    // A smaller one made before a resize never replaces a sharper one in hand.
    if (_preview && box->target < _preview->target)
        return;
    _preview = box;
    update();
}

void SingleView::onFullImageReady(const QString &path, const QImage &image)
{
    if (path != _path || !_zoomed || image.isNull())
        return;
    _full = image;
    update();
}

void SingleView::requestFull()
{
    const Photo *p = _state.current();
    if (!_pipeline || !p || _path.isEmpty())
        return;
    if (const QImage held = _pipeline->heldFullImage(_path); !held.isNull()) {
        _full = held;
        return;
    }
    _pipeline->fullImage(_path, p->previewIsRaw);
}

SingleView::Frame SingleView::frame() const
{
    if (_id.isNull())
        return {};
    if (_zoomed && !_full.isNull())
        return {_full, Shown::FullImage};
    if (_preview)
        return {_preview->image, Shown::Preview};
    if (_source) {
        const QRectF area = fitArea();
        const QImage thumb = _source->thumbnail(_id, qRound(qMax(area.width(), area.height()) * devicePixelRatioF()));
        if (!thumb.isNull())
            return {thumb, Shown::Thumbnail};
    }
    return {{}, Shown::Tile};
}

SingleView::Shown SingleView::shown() const { return frame().kind; }

QString SingleView::notice() const
{
    const Photo *p = _state.current();
    if (!p)
        return {};
    if (p->damaged())
        return QStringLiteral("Imagen dañada: no se puede leer");
    if (_focusPoint && !p->focusPoint())
        return QStringLiteral("Punto de enfoque sin medir");
    return {};
}

// ----- Geometry

QRectF SingleView::fitArea() const
{
    return QRectF(rect().adjusted(16, 16, -16, -44));
}

QSizeF SingleView::zoomedSize(const Frame &f) const
{
    const Photo *p = _state.current();
    const int turns = p ? p->rotation() : 0;
    QSize px = f.image.size();
    if (f.kind != Shown::FullImage && p && p->meta() && p->meta()->width > 0 && p->meta()->height > 0) {
        // Until the full image is here, the camera's pixel size says how large it will be.
        px = QSize(p->meta()->uprightWidth(), p->meta()->uprightHeight());
        if ((px.width() > px.height()) != (f.image.width() > f.image.height()))
            px.transpose();
    }
    return QSizeF(ImageDraw::turned(px, turns)) / devicePixelRatioF();
}

QPointF SingleView::clamped(const QPointF &offset, const QSizeF &size) const
{
    // Larger than the view: no empty band at an edge. Smaller: centred.
    const qreal dpr = devicePixelRatioF();
    auto axis = [dpr](qreal v, qreal image, qreal view) {
        v = image <= view ? (view - image) / 2 : qBound(view - image, v, 0.0);
        return std::round(v * dpr) / dpr;
    };
    return {axis(offset.x(), size.width(), width()), axis(offset.y(), size.height(), height())};
}

QPointF SingleView::zoomOffset(const QSizeF &size) const
{
    return clamped(_anchorAt - QPointF(_anchorUnit.x() * size.width(), _anchorUnit.y() * size.height()), size);
}

QRectF SingleView::placeImage(const Frame &f) const
{
    if (f.image.isNull())
        return {};
    if (_zoomed) {
        const QSizeF size = zoomedSize(f);
        return QRectF(zoomOffset(size), size);
    }
    const Photo *p = _state.current();
    return ImageDraw::fitted(fitArea(), f.image.size(), p ? p->rotation() : 0, devicePixelRatioF());
}

QRectF SingleView::imageRect() const { return placeImage(frame()); }

// ----- Zoom

void SingleView::zoomAt(const QPointF &pos)
{
    const QRectF shownRect = imageRect();
    if (shownRect.isEmpty())
        return;
    zoomTo(QPointF(qBound(0.0, (pos.x() - shownRect.left()) / shownRect.width(), 1.0),
                   qBound(0.0, (pos.y() - shownRect.top()) / shownRect.height(), 1.0)),
           pos);
}

void SingleView::zoomTo(const QPointF &unit, const QPointF &at)
{
    if (frame().image.isNull())
        return;
    _anchorUnit = unit;
    _anchorAt = at;
    _zoomed = true;
    requestFull();
    updateCursor();
    update();
}

void SingleView::fit()
{
    if (!_zoomed)
        return;
    _zoomed = false;
    _full = QImage();   // the pipeline keeps its own copy for a quick return
    updateCursor();
    update();
}

void SingleView::toggleZoom()
{
    if (_zoomed) {
        fit();
        return;
    }
    const QPointF mouse = mapFromGlobal(QCursor::pos());
    if (underMouse() && rect().contains(mouse.toPoint()))
        zoomAt(mouse);
    else
        zoomTo(QPointF(0.5, 0.5), QRectF(rect()).center());   // the middle of the picture
}

void SingleView::updateCursor()
{
    if (!_zoomed)
        unsetCursor();
    else
        setCursor(_dragged ? Qt::ClosedHandCursor : Qt::OpenHandCursor);
}

void SingleView::setPerformanceShown(bool on)
{
    _performance = on;
    update();
}

void SingleView::setFocusPointShown(bool on)
{
    _focusPoint = on;
    update();
}

QStringList SingleView::performanceLines() const
{
    QStringList lines;
    if (!_pipeline || _path.isEmpty())
        return lines;
    if (const auto info = _pipeline->previewInfo(_path))
        lines << QStringLiteral("Vista previa: %1 · %2 ms").arg(info->first, milliseconds(info->second));
    else
        lines << QStringLiteral("Vista previa: en camino");
    const Frame f = frame();
    switch (f.kind) {
    case Shown::Preview:
        lines << QStringLiteral("Mostrada: %1 × %2 px (hecha para %3)")
                     .arg(f.image.width()).arg(f.image.height()).arg(_preview->target);
        break;
    case Shown::FullImage:
        lines << QStringLiteral("Imagen completa: %1 × %2 px").arg(f.image.width()).arg(f.image.height());
        break;
    case Shown::Thumbnail:
        lines << QStringLiteral("Mostrada: la miniatura");
        break;
    default:
        break;
    }
    if (_zoomed && _full.isNull())
        lines << QStringLiteral("Imagen completa: descodificando…");
    lines << QStringLiteral("Pedida: %1 px · %2 en cola").arg(_pipeline->previewPixels()).arg(_pipeline->runningPreviews().size());
    return lines;
}

// ----- Input

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

void SingleView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    _pressed = true;
    _dragged = false;
    _pressPos = event->position();
    _pressOffset = imageRect().topLeft();
    event->accept();
}

void SingleView::mouseMoveEvent(QMouseEvent *event)
{
    if (!_pressed)
        return;
    const QPointF delta = event->position() - _pressPos;
    if (!_dragged && delta.manhattanLength() < QApplication::startDragDistance())
        return;
    _dragged = true;
    if (_zoomed) {
        // The picture follows the hand; the spot now in the middle is what stays on screen.
        const QSizeF size = zoomedSize(frame());
        const QPointF offset = clamped(_pressOffset + delta, size);
        _anchorAt = QRectF(rect()).center();
        _anchorUnit = QPointF((_anchorAt.x() - offset.x()) / size.width(), (_anchorAt.y() - offset.y()) / size.height());
        updateCursor();
        update();
    }
    event->accept();
}

void SingleView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !_pressed) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    // A click (not a drag) zooms to 100 % at the point, or back to the whole picture.
    if (!_dragged) {
        if (_zoomed)
            fit();
        else
            zoomAt(event->position());
    }
    _pressed = false;
    _dragged = false;
    updateCursor();
    event->accept();
}

void SingleView::mouseDoubleClickEvent(QMouseEvent *event)
{
    _pressed = false;
    fit();
    emit backToGrid();
    event->accept();
}

void SingleView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (!_pipeline)
        return;
    const qreal dpr = devicePixelRatioF();
    _pipeline->setViewport(width() * dpr, height() * dpr);
    _resizeSettle->start();   // a sharper preview once the window stops changing
}

// ----- Painting

QImage SingleView::drawable(const QImage &image, const QSize &deviceSize)
{
    if (deviceSize.width() >= image.width() * kSmoothBelow || deviceSize.isEmpty())
        return image;
    const qint64 key = image.cacheKey();
    if (key == _fittedKey && deviceSize == _fittedSize)
        return _fitted;
    if (key != _fittingKey || deviceSize != _fittingSize) {
        _fittingKey = key;
        _fittingSize = deviceSize;
        QtConcurrent::run([image, deviceSize] {
            return image.scaled(deviceSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        }).then(this, [this, key, deviceSize](const QImage &scaled) {
            if (key != _fittingKey || deviceSize != _fittingSize)
                return;   // another shot or size since
            _fitted = scaled;
            _fittedKey = key;
            _fittedSize = deviceSize;
            update();
        });
    }
    return image;   // drawn by the painter's filter until the smooth copy is ready
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
    const Frame f = frame();
    const int turns = photo->rotation();
    const qreal dpr = devicePixelRatioF();
    if (!f.image.isNull()) {
        QRectF target;
        QImage image = f.image;
        if (_zoomed) {
            target = placeImage(f);
        } else {
            target = placeImage(f);
            const QSize device = ImageDraw::turned((target.size() * dpr).toSize(), turns);
            image = drawable(image, device);
        }
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        ImageDraw::draw(p, target, image, turns);
        if (_focusPoint)
            paintFocusPoint(p, *photo, target);
    } else {
        const QRectF area = fitArea();
        const QRectF tile = MarkGlyphs::paintKindTile(p, area, *photo, qMax(18.0, qMin(area.width(), area.height()) / 12.0));
        QFont font = this->font();
        font.setPixelSize(15);
        p.setFont(font);
        p.setPen(kDim);
        p.drawText(QRectF(tile.left(), tile.center().y() + qMin(area.width(), area.height()) / 12.0, tile.width(), 30),
                   Qt::AlignHCenter | Qt::AlignTop, photo->name());
    }

    // Name and position under the image (over it, on a band, when zoomed).
    QFont font = this->font();
    font.setPixelSize(12);
    p.setFont(font);
    const QRect footer(16, height() - 34, width() - 32, 24);
    if (_zoomed)
        p.fillRect(QRect(0, height() - 40, width(), 40), kOverlay);
    p.setPen(kDim);
    const QString position = QStringLiteral("%1 de %2").arg(_state.currentIndex() + 1).arg(_state.visible().size());
    p.drawText(footer, Qt::AlignLeft | Qt::AlignVCenter, photo->name() + QStringLiteral("   ") + photo->badge);
    QString right = position;
    if (_zoomed)
        right.prepend(QStringLiteral("100 %   "));
    p.drawText(footer, Qt::AlignRight | Qt::AlignVCenter, right);
    if (const QString n = notice(); !n.isEmpty()) {
        if (photo->damaged())
            p.setPen(QColor(0xe0, 0x78, 0x7c));
        p.drawText(footer, Qt::AlignHCenter | Qt::AlignVCenter, n);
    }

    paintOverlay(p, *photo);
    if (_performance)
        paintPerformance(p);
}

void SingleView::paintFocusPoint(QPainter &p, const Photo &photo, const QRectF &target)
{
    const auto point = photo.focusPoint();
    if (!point)
        return;
    const QPointF unit = ImageDraw::turnedUnit(*point, photo.rotation());
    const QPointF c(target.left() + unit.x() * target.width(), target.top() + unit.y() * target.height());
    const qreal s = qBound(24.0, qMin(target.width(), target.height()) / 8, 72.0);
    const QRectF box(c - QPointF(s / 2, s / 2), QSizeF(s, s));
    // Corner brackets, light over a dark outline, readable on any picture.
    QPainterPath path;
    const qreal k = s / 4;
    for (const auto &[corner, dx, dy] : {std::tuple{box.topLeft(), 1, 1}, std::tuple{box.topRight(), -1, 1},
                                         std::tuple{box.bottomLeft(), 1, -1}, std::tuple{box.bottomRight(), -1, -1}}) {
        path.moveTo(corner + QPointF(dx * k, 0));
        path.lineTo(corner);
        path.lineTo(corner + QPointF(0, dy * k));
    }
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(QColor(0, 0, 0, 160), 3.5));
    p.drawPath(path);
    p.setPen(QPen(QColor(0xf2, 0xf2, 0xf2), 1.5));
    p.drawPath(path);
    p.restore();
}

void SingleView::paintPerformance(QPainter &p)
{
    const QStringList lines = performanceLines();
    if (lines.isEmpty())
        return;
    p.save();
    QFont f = font();
    f.setPixelSize(12);
    p.setFont(f);
    const QFontMetrics fm(f);
    int w = 0;
    for (const QString &line : lines)
        w = qMax(w, fm.horizontalAdvance(line));
    const int lineH = fm.height() + 2;
    const QRect box(width() - w - 34, 14, w + 20, int(lines.size()) * lineH + 12);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(kOverlay);
    p.drawRoundedRect(box, 6, 6);
    p.setPen(kText);
    for (int i = 0; i < lines.size(); ++i)
        p.drawText(QRect(box.left() + 10, box.top() + 6 + i * lineH, w + 2, lineH), Qt::AlignVCenter, lines[i]);
    p.restore();
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
