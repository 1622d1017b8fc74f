#include "imagepipeline.h"

#include "diskimagecache.h"
#include "imagedecoder.h"
#include "model/filekinds.h"
#include "util/settings.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>
#include <cmath>

namespace {
const char *const kFromDisk = "caché en disco";

qint64 costOf(const QImage &image) { return qint64(image.bytesPerLine()) * image.height(); }

ImageBoxPtr boxOf(const QImage &image, int target)
{
    if (image.isNull())
        return {};
    return std::make_shared<const ImageBox>(ImageBox{image, target, true});
}

// Without a screen (the command line) previews are made for a common desktop screen.
constexpr int kHeadlessScreenLong = 1920;

int screenLongSide()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return kHeadlessScreenLong;
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen && !QGuiApplication::screens().isEmpty())
        screen = QGuiApplication::screens().first();
    if (!screen)
        return kHeadlessScreenLong;
    const QSize px = screen->size() * screen->devicePixelRatio();
    return std::max(px.width(), px.height());
}
} // namespace

struct ImagePipeline::ImageOp {
    Shot shot;
    int target = 0;
    WorkQueue::JobPtr job;
};

ImagePipeline::ImagePipeline(QObject *parent)
    : QObject(parent)
{
    ImageDecoder::initialize();
    const auto [thumbs, previews] = queueWidths(DiskKind::unknown, QThread::idealThreadCount());
    thumbQueue = new WorkQueue(QStringLiteral("com.tessaly.corvane.thumbs"), thumbs);
    previewQueue = new WorkQueue(QStringLiteral("com.tessaly.corvane.previews"), previews);
}

ImagePipeline::~ImagePipeline()
{
    if (fullTask)
        *fullTask = true;
    delete thumbQueue;
    delete previewQueue;
}

ImagePipeline &ImagePipeline::shared()
{
    static ImagePipeline *instance = new ImagePipeline(QCoreApplication::instance());
    return *instance;
}

// ----- Tuning

int ImagePipeline::previewPixelsFor(const QString &setting, int viewportLong, int screenLong)
{
    if (setting == QLatin1String("2560") || setting == QLatin1String("3840") || setting == QLatin1String("5120"))
        return setting.toInt();
    int base = viewportLong >= 1 ? viewportLong : screenLong;
    const int n = base + 255;
    if (n < 1024)
        return 1024;
    if (n >= 4096)
        return 4096;
    return n / 256 * 256;
}

int ImagePipeline::previewPixels() const
{
    const QString setting = Settings::previewResolution.get();
    return previewPixelsFor(setting, _viewportLong, _viewportLong >= 1 ? 0 : screenLongSide());
}

void ImagePipeline::setViewport(double width, double height)
{
    const int l = int(std::lround(std::max(width, height)));
    // Resizing a window by a few pixels must not throw the cached previews away.
    if (l >= 1 && std::abs(l - _viewportLong) >= 9)
        _viewportLong = l;
}

std::pair<int, int> ImagePipeline::queueWidths(DiskKind kind, int cores)
{
    switch (kind) {
    case DiskKind::rotational: return {2, 2};
    case DiskKind::network: return {4, 3};
    case DiskKind::ssd:
    case DiskKind::unknown: break;
    }
    return {std::max(cores - 2, 2), cores > 5 ? std::min(cores / 2, 6) : 3};
}

void ImagePipeline::configure(const QString &folder, DiskKind kind)
{
    if (configuredFolder && *configuredFolder == folder)
        return;
    configuredFolder = folder;
    _diskKind = kind;
    const auto [thumbs, previews] = queueWidths(kind, QThread::idealThreadCount());
    thumbQueue->setWidth(thumbs);
    previewQueue->setWidth(previews);
}

int ImagePipeline::thumbQueueWidth() const { return thumbQueue->width(); }
int ImagePipeline::previewQueueWidth() const { return previewQueue->width(); }

// ----- Thumbnails

ImageBoxPtr ImagePipeline::cachedThumbnail(const QString &path) const
{
    return thumbCache.get(path).value_or(nullptr);
}

ImagePipeline::Made ImagePipeline::thumbnailNow(const QString &path, bool isRaw)
{
    QElapsedTimer timer;
    timer.start();
    if (auto box = thumbCache.get(path))
        return {*box, QStringLiteral("memoria"), 0};
    const int px = _thumbPixels;
    Made made;
    const auto key = DiskImageCache::diskKey(path, px);
    QImage image;
    if (key)
        image = DiskImageCache::thumbs().load(*key);
    if (!image.isNull()) {
        made.source = QString::fromUtf8(kFromDisk);
    } else {
        ImageDecoder::Result r = ImageDecoder::decode(path, isRaw, px);
        image = r.image;
        made.source = r.source;
        if (!image.isNull() && key)
            DiskImageCache::thumbs().store(image, *key);
    }
    made.box = boxOf(image, px);
    if (made.box)
        thumbCache.insert(path, made.box);
    made.ms = timer.nsecsElapsed() / 1e6;
    return made;
}

void ImagePipeline::requestThumbnail(const QString &path, bool isRaw)
{
    if (const auto it = queuedThumbs.constFind(path); it != queuedThumbs.constEnd() && !(*it)->cancelled)
        return;
    // The work knows its job only weakly: the job owns the work, and queuedThumbs owns the job.
    auto self = std::make_shared<std::weak_ptr<WorkQueue::Job>>();
    const WorkQueue::JobPtr job = thumbQueue->submit([this, path, isRaw, self] {
        const Made made = thumbnailNow(path, isRaw);
        QMetaObject::invokeMethod(this, [this, path, made, self] {
            const auto it = queuedThumbs.constFind(path);
            if (it != queuedThumbs.constEnd() && *it == self->lock())
                queuedThumbs.remove(path);
            emit thumbnailReady(path, made.box);
        }, Qt::QueuedConnection);
    }, 0);
    *self = job;
    queuedThumbs.insert(path, job);
}

void ImagePipeline::cancelThumbnailsExcept(const QSet<QString> &keep)
{
    for (auto it = queuedThumbs.begin(); it != queuedThumbs.end();) {
        if (!keep.contains(it.key()) && !(*it)->started) {
            thumbQueue->cancel(*it);
            it = queuedThumbs.erase(it);
        } else {
            ++it;
        }
    }
}

// ----- Previews

bool ImagePipeline::goodEnough(const ImageBoxPtr &box, int wanted) const
{
    // A preview made for at least 85 % of the wanted size serves.
    return box && qint64(box->target) * 100 >= qint64(wanted) * 85;
}

ImageBoxPtr ImagePipeline::cachedPreview(const QString &path) const
{
    const auto box = previewCache.get(path);
    return box && goodEnough(*box, previewPixels()) ? *box : nullptr;
}

std::optional<std::pair<QString, double>> ImagePipeline::previewInfo(const QString &path) const
{
    const auto it = infos.constFind(path);
    return it == infos.constEnd() ? std::nullopt : std::optional(*it);
}

ImagePipeline::Made ImagePipeline::previewNow(const QString &path, bool isRaw, int pixels)
{
    // Workers are handed the size: the screen may only be asked on the GUI thread.
    const int w = pixels > 0 ? pixels : previewPixels();
    QElapsedTimer timer;
    timer.start();
    Made made;
    const auto key = DiskImageCache::diskKey(path, w);
    QImage image;
    if (key)
        image = DiskImageCache::previews().load(*key);
    if (!image.isNull()) {
        made.source = QString::fromUtf8(kFromDisk);
    } else {
        ImageDecoder::Result r = ImageDecoder::decode(path, isRaw, w);
        image = r.image;
        made.source = r.source;
    }
    made.ms = timer.nsecsElapsed() / 1e6;
    // Fast decodes (ordinary JPEGs) are not worth the disk.
    if (made.source != QLatin1String(kFromDisk) && made.ms > kSlowDecodeMs && key && !image.isNull())
        DiskImageCache::previews().storeAsync(image, *key);
    made.box = boxOf(image, w);
    return made;
}

void ImagePipeline::preview(const Shot &shot, int priority)
{
    if (const ImageBoxPtr box = cachedPreview(shot.path)) {
        emit previewReady(shot.path, box);
        return;
    }
    if (const auto it = previewTasks.constFind(shot.path); it != previewTasks.constEnd() && !(*it)->job->cancelled) {
        if (!(*it)->job->started && priority > (*it)->job->priority)
            previewQueue->setPriority((*it)->job, priority);
        return;   // previewReady follows when it is done
    }
    startPreviewOp(shot, priority);
}

void ImagePipeline::startPreviewOp(const Shot &shot, int priority)
{
    auto op = std::make_shared<ImageOp>();
    op->shot = shot;
    op->target = previewPixels();
    std::weak_ptr<ImageOp> weak = op;
    op->job = previewQueue->submit([this, weak] {
        const auto op = weak.lock();
        if (!op)
            return;
        const Made made = previewNow(op->shot.path, op->shot.isRaw, op->target);
        QMetaObject::invokeMethod(this, [this, op, made] { finishPreview(op, made); }, Qt::QueuedConnection);
    }, priority);
    previewTasks.insert(shot.path, op);
}

void ImagePipeline::finishPreview(const std::shared_ptr<ImageOp> &op, const Made &made)
{
    const QString &path = op->shot.path;
    if (const auto it = previewTasks.constFind(path); it != previewTasks.constEnd() && *it == op)
        previewTasks.remove(path);
    if (op->job->cancelled || !made.box)
        return;
    previewCache.insert(path, made.box, costOf(made.box->image));
    infos.insert(path, {made.source, made.ms});
    emit previewReady(path, made.box);
}

void ImagePipeline::prefetch(const QList<Shot> &shots, int index, int direction, int ahead, int behind)
{
    if (index < 0 || index >= shots.size())
        return;
    const int step = direction < 0 ? -1 : 1;
    QList<std::pair<int, int>> wanted{{index, VeryHigh}};
    if (ahead >= 1) {
        for (int k = 1; k <= ahead; ++k) {
            const int pos = index + k * step;
            if (pos < 0 || pos >= shots.size())
                break;
            wanted.append({pos, k == 1 ? High : Normal});
        }
    }
    for (int k = 1; k <= behind; ++k) {
        const int pos = index - k * step;
        if (pos < 0 || pos >= shots.size())
            break;
        wanted.append({pos, Low});
    }
    QSet<QString> wantedPaths;
    for (const auto &[pos, prio] : std::as_const(wanted))
        wantedPaths.insert(shots[pos].path);
    for (auto it = previewTasks.begin(); it != previewTasks.end();) {
        if (!wantedPaths.contains(it.key())) {
            previewQueue->cancel((*it)->job);
            it = previewTasks.erase(it);
        } else {
            ++it;
        }
    }
    const int w = previewPixels();
    for (const auto &[pos, prio] : std::as_const(wanted)) {
        const Shot &shot = shots[pos];
        if (const auto box = previewCache.get(shot.path); box && goodEnough(*box, w))
            continue;
        const auto it = previewTasks.constFind(shot.path);
        if (it != previewTasks.constEnd() && !(*it)->job->cancelled) {
            if (!(*it)->job->started)
                previewQueue->setPriority((*it)->job, prio);
            continue;
        }
        startPreviewOp(shot, prio);
    }
}

// ----- Full image

void ImagePipeline::fullImage(const QString &path, bool isRaw)
{
    if (path == fullKey && !fullImg.isNull()) {
        emit fullImageReady(path, fullImg);
        return;
    }
    if (fullTask)
        *fullTask = true;
    fullKey = path;
    fullImg = QImage();
    fullRot = 0;
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    fullTask = cancelled;
    previewQueue->submit([this, path, isRaw, cancelled] {
        if (*cancelled)
            return;
        const QImage image = ImageDecoder::fullImage(path, isRaw);
        QMetaObject::invokeMethod(this, [this, path, image, cancelled] {
            if (*cancelled || path != fullKey)
                return;
            fullImg = image;
            fullTask.reset();
            emit fullImageReady(path, image);
        }, Qt::QueuedConnection);
    }, VeryHigh + 1);
}

void ImagePipeline::clearMemory()
{
    thumbCache.clear();
    previewCache.clear();
    fullKey.clear();
    fullImg = QImage();
}

void ImagePipeline::waitForIdle()
{
    thumbQueue->waitForDone();
    previewQueue->waitForDone();
    DiskImageCache::thumbs().waitForWrites();
    DiskImageCache::previews().waitForWrites();
}
