#pragma once
// The grid's thumbnails from the image pipeline. A shot is asked for by id and served from its
// preview file. Painting only looks in memory; loads start from want(), which the grid calls
// when scrolling settles. The pipeline's thumbnails are kept at its fixed size (so the disk
// cache keys stay the same whatever the cell size) and scaled down here once per cell size.
// GUI thread only.
#include "thumbnailsource.h"

#include "imaging/imagebox.h"

#include <QCache>
#include <QHash>
#include <QSet>
#include <memory>

class AppState;
class ImagePipeline;

class PipelineThumbnailSource : public ThumbnailSource
{
    Q_OBJECT
public:
    PipelineThumbnailSource(AppState &state, ImagePipeline &pipeline, QObject *parent = nullptr);

    QImage thumbnail(const QUuid &id, int longSide) override;
    void want(const QList<QUuid> &ids) override;

    ImagePipeline &pipeline() const { return _pipeline; }
    // Forgets scaled copies and failures (the caches were emptied).
    void reset();

private:
    void onReady(const QString &path, const ImageBoxPtr &box);

    struct Scaled {
        std::weak_ptr<const ImageBox> from;   // the pipeline's box it was made from
        int longSide = 0;
        QImage image;
    };

    AppState &_state;
    ImagePipeline &_pipeline;
    QHash<QString, QUuid> _idOfPath;   // every file asked for in this folder
    QSet<QString> _failed;             // files that gave no image: not asked again
    QCache<QUuid, Scaled> _scaled;     // cost in KiB
};
