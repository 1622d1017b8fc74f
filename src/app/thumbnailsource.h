#pragma once
// Where the grid and the single view get thumbnails from. PipelineThumbnailSource serves them
// from the image pipeline; tests stand in their own. GUI thread only.
#include <QImage>
#include <QList>
#include <QObject>
#include <QUuid>

class ThumbnailSource : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Returns at once with the best image already in memory for the shot, scaled for a long side
    // of about `longSide` device pixels, or a null image. Called while painting: never blocks and
    // never decodes.
    virtual QImage thumbnail(const QUuid &id, int longSide) = 0;

    // The shots on screen and just ahead of the scroll, most needed first: load what is missing
    // and drop queued work for anything else. Sources that load on demand ignore it.
    virtual void want(const QList<QUuid> &ids) { Q_UNUSED(ids) }

signals:
    void thumbnailReady(const QUuid &id);
};
