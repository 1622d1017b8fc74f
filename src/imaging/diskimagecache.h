#pragma once
// Decoded thumbnails and previews kept as JPEG files in ~/.cache/com.tessaly.corvane/<name>/,
// one file per entry named <key>.jpg; the folder listing is the index. Thread-safe: reads and
// synchronous writes happen on pipeline workers; storeAsync() runs on the cache's own serial
// queue ("com.tessaly.corvane.diskcache"). All file-system errors are swallowed.
#include <QFuture>
#include <QImage>
#include <QString>
#include <optional>

class QThreadPool;

class DiskImageCache
{
public:
    DiskImageCache(const QString &dir, double quality, qint64 maxBytes);
    ~DiskImageCache();

    static DiskImageCache &thumbs();     // "thumbs", quality 0.82, no size limit
    static DiskImageCache &previews();   // "previews", quality 0.88, 4 GiB
    // ~/.cache/com.tessaly.corvane (the temporary folder when there is no caches folder).
    static QString rootDir();

    // SHA-256 hex of "path|mtime seconds|size|pixels"; absent when the file can't be stat'ed.
    static std::optional<QString> diskKey(const QString &path, int pixels);

    QImage load(const QString &key) const;
    bool store(const QImage &image, const QString &key) const;   // atomic: temp file + rename
    void storeAsync(const QImage &image, const QString &key);
    void waitForWrites();                                         // tests and exit

    // Removes files not accessed for `days` (0: none by age), then trims to 80 % of maxBytes,
    // oldest access first, when over the limit.
    void prune(int days) const;
    qint64 totalSize() const;
    void clear() const;

    // Once after launch: prunes thumbs() then previews() with "cacheDays" on a background
    // thread of lowest priority. The future is for tests; the program does not wait for it.
    static QFuture<void> pruneAtLaunch();
    // The setting "cacheDays": 90 when unset or not an integer.
    static int cacheDaysSetting();

    const QString &dir() const { return _dir; }
    double quality() const { return _quality; }
    qint64 maxBytes() const { return _maxBytes; }

private:
    QString _dir;
    double _quality;
    qint64 _maxBytes;
    QThreadPool *_queue;
};
