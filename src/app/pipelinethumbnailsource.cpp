#include "pipelinethumbnailsource.h"

#include "imaging/imagepipeline.h"
#include "browser/appstate.h"

namespace {
// Scaled copies of the cells on screen and a few screens around them.
constexpr int kScaledKiB = 96 * 1024;
} // namespace

PipelineThumbnailSource::PipelineThumbnailSource(AppState &state, ImagePipeline &pipeline, QObject *parent)
    : ThumbnailSource(parent)
    , _state(state)
    , _pipeline(pipeline)
    , _scaled(kScaledKiB)
{
    connect(&pipeline, &ImagePipeline::thumbnailReady, this, &PipelineThumbnailSource::onReady);
    connect(&state, &AppState::folderChanged, this, [this] {
        _idOfPath.clear();
        reset();
    });
    // Files arriving from a camera can fail while half written: try again when the list changes.
    connect(&state, &AppState::photosChanged, this, [this] { _failed.clear(); });
}

void PipelineThumbnailSource::reset()
{
    _failed.clear();
    _scaled.clear();
}

QImage PipelineThumbnailSource::thumbnail(const QUuid &id, int longSide)
{
    const Photo *photo = _state.photo(id);
    if (!photo)
        return {};
    const ImageBoxPtr box = _pipeline.cachedThumbnail(photo->previewURL());
    if (!box) {
        _scaled.remove(id);
        return {};
    }
    const QImage &full = box->image;
    if (longSide <= 0 || qMax(full.width(), full.height()) <= longSide)
        return full;   // the view scales it up while drawing
    if (const Scaled *s = _scaled.object(id); s && s->longSide == longSide && s->from.lock() == box)
        return s->image;
    // Once per cell size, not on every paint: scrolling then only copies pixels.
    auto *s = new Scaled{box, longSide, full.scaled(longSide, longSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)};
    const QImage image = s->image;
    _scaled.insert(id, s, qMax<qsizetype>(1, image.sizeInBytes() / 1024));
    return image;
}

void PipelineThumbnailSource::want(const QList<QUuid> &ids)
{
    QSet<QString> keep;
    keep.reserve(ids.size());
    for (const QUuid &id : ids) {
        const Photo *photo = _state.photo(id);
        if (!photo)
            continue;
        const QString &path = photo->previewURL();
        keep.insert(path);
        if (_failed.contains(path) || _pipeline.cachedThumbnail(path))
            continue;
        _idOfPath.insert(path, id);
        _pipeline.requestThumbnail(path, photo->previewIsRaw);
    }
    // Cells scrolled away: their queued work goes.
    _pipeline.cancelThumbnailsExcept(keep);
}

void PipelineThumbnailSource::onReady(const QString &path, const ImageBoxPtr &box)
{
    const auto it = _idOfPath.constFind(path);
    if (it == _idOfPath.constEnd())
        return;
    if (!box)
        _failed.insert(path);
    emit thumbnailReady(*it);
}
