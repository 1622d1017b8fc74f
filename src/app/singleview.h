#pragma once
// One shot fitted to the view, with its marks in a corner overlay and, for a blurry shot, why.
// Arrows, Home/End, Page Up/Down and the wheel move through the visible shots.
//
// It never waits: it shows the preview when the pipeline has it, else the thumbnail scaled up,
// else the file-kind tile, and swaps in the sharper image when it arrives. Every move of the
// current shot (in either view mode) asks the pipeline to prefetch around it. Z or a click
// zooms to 100 % at the point, showing the preview enlarged until the full image is decoded; a
// drag pans; the zoom stays on while moving, so a burst can be checked at the same spot.
// GUI thread only.
#include "thumbnailsource.h"

#include "imaging/imagebox.h"

#include <QImage>
#include <QPointer>
#include <QUuid>
#include <QWidget>

class AppState;
class ImagePipeline;
class Photo;
class QTimer;

class SingleView : public QWidget
{
    Q_OBJECT
public:
    explicit SingleView(AppState &state, QWidget *parent = nullptr);
    void setThumbnailSource(ThumbnailSource *source);
    void setPipeline(ImagePipeline *pipeline);

    // The line shown under the marks for a blurry or doubtful shot; empty otherwise.
    QString sharpnessNote() const;

    // What is drawn for the current shot.
    enum class Shown { Nothing, Tile, Thumbnail, Preview, FullImage };
    Shown shown() const;
    // The line under the image that tells something is wrong or missing ("Imagen dañada: no se
    // puede leer"), or empty.
    QString notice() const;
    // Where the image lies in the view, in logical pixels (empty for the tile).
    QRectF imageRect() const;

    bool isZoomed() const { return _zoomed; }
    void toggleZoom();                  // at the mouse when it is over the view, else the centre
    void zoomAt(const QPointF &pos);    // 100 % with the image point under `pos` kept there
    void fit();

    bool performanceShown() const { return _performance; }
    void setPerformanceShown(bool on);
    // The performance overlay's lines: where the preview came from and how long it took.
    QStringList performanceLines() const;
    bool focusPointShown() const { return _focusPoint; }
    void setFocusPointShown(bool on);

    // Asks again for the current shot (preview settings changed, caches emptied).
    void refresh();

signals:
    void backToGrid();

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Frame {
        QImage image;
        Shown kind = Shown::Nothing;
    };
    void step(int delta);
    void currentMoved();
    void prefetch();
    void onPreviewReady(const QString &path, const ImageBoxPtr &box);
    void onFullImageReady(const QString &path, const QImage &image);
    Frame frame() const;
    QRectF fitArea() const;
    QSizeF zoomedSize(const Frame &f) const;   // logical size of the image at 100 %
    QRectF placeImage(const Frame &f) const;
    QPointF zoomOffset(const QSizeF &size) const;   // top-left of the zoomed image of `size`
    void zoomTo(const QPointF &unit, const QPointF &at);
    QPointF clamped(const QPointF &offset, const QSizeF &size) const;
    QImage drawable(const QImage &image, const QSize &deviceSize);
    void requestFull();
    void paintOverlay(QPainter &p, const Photo &photo);
    void paintPerformance(QPainter &p);
    void paintFocusPoint(QPainter &p, const Photo &photo, const QRectF &target);
    void updateCursor();

    AppState &_state;
    QPointer<ThumbnailSource> _source;
    ImagePipeline *_pipeline = nullptr;
    int _wheelAccumulator = 0;

    // The shot on screen and the best images in hand for it.
    QUuid _id;
    QString _path;        // its preview file
    ImageBoxPtr _preview;
    QImage _full;
    int _lastIndex = -1;
    int _direction = 1;   // sign of the last move

    // Zoomed, the point `_anchorUnit` of the picture (unit coordinates of the turned image)
    // sits at `_anchorAt` in the view. Kept as a point of the picture rather than an offset, so
    // it stays put when the full image replaces the enlarged preview or the next frame comes.
    bool _zoomed = false;
    QPointF _anchorUnit;
    QPointF _anchorAt;

    bool _pressed = false;
    bool _dragged = false;
    QPointF _pressPos;
    QPointF _pressOffset;   // the zoomed image's top-left when the drag began

    bool _performance = false;
    bool _focusPoint = false;
    QTimer *_resizeSettle;
    // A smooth down-scaled copy of the fitted image, made off this thread once per shot and
    // size: the painter's bilinear filter aliases fine detail when it shrinks a lot.
    qint64 _fittedKey = 0;
    QSize _fittedSize;
    QImage _fitted;
    qint64 _fittingKey = 0;
    QSize _fittingSize;
};
