#pragma once
// The one decoding service: grid thumbnails, single-view previews with prefetch, and the full
// image for 100 % zoom. Lives on the GUI thread; decoding runs on its two pools (thumbnails,
// previews) sized from the folder's disk kind. Results reach the GUI thread through queued
// signals, one per image. The memory caches are thread-safe; previewTasks and the prefetch are
// touched on the GUI thread only.
#include "diskkind.h"
#include "imagebox.h"
#include "memorycache.h"
#include "workqueue.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class ImagePipeline : public QObject
{
    Q_OBJECT
public:
    static constexpr int kDefaultThumbPixels = 420;
    static constexpr qsizetype kThumbCount = 5000;
    static constexpr qsizetype kPreviewCount = 30;
    static constexpr qint64 kPreviewCost = 1100LL * 1024 * 1024;
    static constexpr double kSlowDecodeMs = 40.0;   // faster previews are not worth a disk write

    // Priorities of the preview queue (higher runs first).
    enum Priority { VeryHigh = 8, High = 4, Normal = 0, Low = -4 };

    explicit ImagePipeline(QObject *parent = nullptr);
    ~ImagePipeline() override;
    static ImagePipeline &shared();

    struct Shot {
        QString path;   // the preview file
        bool isRaw = false;
    };

    // ----- Settings and tuning
    int thumbPixels() const { return _thumbPixels; }
    void setThumbPixels(int px) { _thumbPixels = px; }
    int viewportLong() const { return _viewportLong; }
    // The long side wanted for previews, from "previewResolution" and the viewport or screen.
    int previewPixels() const;
    static int previewPixelsFor(const QString &setting, int viewportLong, int screenLong);
    void setViewport(double width, double height);   // ignores changes under 9 pixels
    void configure(const QString &folder, DiskKind kind);
    DiskKind diskKind() const { return _diskKind; }
    int thumbQueueWidth() const;
    int previewQueueWidth() const;
    static std::pair<int, int> queueWidths(DiskKind kind, int cores);

    // ----- Thumbnails
    ImageBoxPtr cachedThumbnail(const QString &path) const;
    // Queues a thumbnail; thumbnailReady follows (also for failures, with a null box).
    void requestThumbnail(const QString &path, bool isRaw);
    // Drops queued thumbnail work for everything not in `keep` (cells scrolled away).
    void cancelThumbnailsExcept(const QSet<QString> &keep);
    // The whole thumbnail road, synchronously on the calling thread (command line, analysis).
    struct Made {
        ImageBoxPtr box;
        QString source;   // a decoder label, or "caché en disco"
        double ms = 0;
    };
    Made thumbnailNow(const QString &path, bool isRaw);

    // ----- Previews
    // A cached preview good for the current size (85 % rule), or null.
    ImageBoxPtr cachedPreview(const QString &path) const;
    void preview(const Shot &shot, int priority);
    void prefetch(const QList<Shot> &shots, int index, int direction, int ahead, int behind);
    // The preview road synchronously (command line, workers); does the same disk writes.
    // `pixels` 0: previewPixels(), which only the GUI thread may ask.
    Made previewNow(const QString &path, bool isRaw, int pixels = 0);
    bool isPreviewRunning(const QString &path) const { return previewTasks.contains(path); }
    QStringList runningPreviews() const { return previewTasks.keys(); }
    // Source label and milliseconds of the last preview made for a file (performance overlay).
    std::optional<std::pair<QString, double>> previewInfo(const QString &path) const;

    // ----- Full image (one at a time)
    void fullImage(const QString &path, bool isRaw);
    QImage heldFullImage(const QString &path) const { return path == fullKey ? fullImg : QImage(); }

    // Empties the memory caches (the settings' "empty caches" action also clears the disk).
    void clearMemory();
    void waitForIdle();   // tests and the command line

signals:
    void thumbnailReady(const QString &path, ImageBoxPtr box);
    void previewReady(const QString &path, ImageBoxPtr box);
    void fullImageReady(const QString &path, const QImage &image);

private:
    struct ImageOp;
    void startPreviewOp(const Shot &shot, int priority);
    void finishPreview(const std::shared_ptr<ImageOp> &op, const Made &made);
    bool goodEnough(const ImageBoxPtr &box, int wanted) const;

    int _thumbPixels = kDefaultThumbPixels;
    int _viewportLong = 0;
    WorkQueue *thumbQueue;
    WorkQueue *previewQueue;
    mutable MemoryCache<QString, ImageBoxPtr> thumbCache{kThumbCount};
    mutable MemoryCache<QString, ImageBoxPtr> previewCache{kPreviewCount, kPreviewCost};
    QHash<QString, std::shared_ptr<ImageOp>> previewTasks;
    QHash<QString, WorkQueue::JobPtr> queuedThumbs;   // requested, result not delivered yet
    QHash<QString, std::pair<QString, double>> infos;
    DiskKind _diskKind = DiskKind::unknown;
    std::optional<QString> configuredFolder;
    QString fullKey;
    QImage fullImg;
    std::shared_ptr<std::atomic<bool>> fullTask;   // cancel flag of the running full decode
    int fullRot = 0;
};
