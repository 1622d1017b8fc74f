#pragma once
// Where the grid and the single view get bitmaps from. The image pipeline implements it; until
// then nothing does and the views paint their placeholders. GUI thread only.
#include <QImage>
#include <QObject>
#include <QUuid>

class ThumbnailSource : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Returns at once with the best image already in memory for the shot, scaled for a long side
    // of about `longSide` device pixels, or a null image; asking may start a load, whose end is
    // reported by thumbnailReady. Never blocks the caller.
    virtual QImage thumbnail(const QUuid &id, int longSide) = 0;

signals:
    void thumbnailReady(const QUuid &id);
};
