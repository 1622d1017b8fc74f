#pragma once
// One shot fitted to the view, with its marks in a corner overlay and, for a blurry shot, why.
// Arrows, Home/End, Page Up/Down and the wheel move through the visible shots. Paints the
// file-kind tile until a ThumbnailSource gives an image. GUI thread only.
#include "thumbnailsource.h"

#include <QPointer>
#include <QUuid>
#include <QWidget>

class AppState;
class Photo;

class SingleView : public QWidget
{
    Q_OBJECT
public:
    explicit SingleView(AppState &state, QWidget *parent = nullptr);
    void setThumbnailSource(ThumbnailSource *source);

    // The line shown under the marks for a blurry or doubtful shot; empty otherwise.
    QString sharpnessNote() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

signals:
    void backToGrid();

private:
    void step(int delta);
    void paintOverlay(QPainter &p, const Photo &photo);

    AppState &_state;
    QPointer<ThumbnailSource> _source;
    int _wheelAccumulator = 0;
};
