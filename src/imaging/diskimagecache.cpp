#include "diskimagecache.h"
#include "imagedecoder.h"
#include "vipsbitmap.h"
#include "util/fileio.h"
#include "util/settings.h"
#include "util/uniquefd.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThread>
#include <QThreadPool>
#include <QUuid>
#include <QtConcurrent>

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr double kDay = 24 * 3600;

double seconds(const struct statx_timestamp &t) { return double(t.tv_sec) + double(t.tv_nsec) / 1e9; }
double seconds(const struct timespec &t) { return double(t.tv_sec) + double(t.tv_nsec) / 1e9; }

double now()
{
    struct timespec t {};
    clock_gettime(CLOCK_REALTIME, &t);
    return seconds(t);
}

// The shortest decimal text that reads back as the same double ("1700000000.25", "1700000000").
QByteArray shortestDecimal(double value)
{
    char text[64];
    const auto r = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    return r.ec == std::errc() ? QByteArray(text, r.ptr - text) : QByteArray::number(value, 'f', 6);
}

QString sha256Hex(const QByteArray &data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.constData(), size_t(data.size()), digest, &length, EVP_sha256(), nullptr) != 1 || length != 32)
        return {};
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(digest), int(length)).toHex());
}

// Keys name files inside the folder: nothing that could name one elsewhere.
bool validKey(const QString &key)
{
    return !key.isEmpty() && !key.startsWith(QLatin1Char('.')) && !key.contains(QLatin1Char('/'));
}

struct Entry {
    QByteArray name;
    double accessed = 0;
    qint64 size = 0;
};

// Every file of the folder (not sub-folders) with its last access and size, then `act` on the
// open folder. A folder that can't be listed counts as empty.
template<typename F>
void withEntries(const QString &dir, F &&act)
{
    DIR *d = opendir(QFile::encodeName(dir).constData());
    if (!d)
        return;
    const int fd = dirfd(d);
    const double t = now();
    std::vector<Entry> entries;
    while (const dirent *e = readdir(d)) {
        if (e->d_type == DT_DIR)
            continue;
        struct statx sx {};
        if (statx(fd, e->d_name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, STATX_TYPE | STATX_ATIME | STATX_SIZE, &sx) != 0)
            continue;   // gone since the listing
        if ((sx.stx_mask & STATX_TYPE) && S_ISDIR(sx.stx_mode))
            continue;
        entries.push_back({QByteArray(e->d_name), (sx.stx_mask & STATX_ATIME) ? seconds(sx.stx_atime) : t,
                           (sx.stx_mask & STATX_SIZE) ? qint64(sx.stx_size) : 0});
    }
    act(fd, entries);
    closedir(d);
}

} // namespace

DiskImageCache::DiskImageCache(const QString &dir, double quality, qint64 maxBytes)
    : _dir(QDir::cleanPath(dir)), _quality(quality), _maxBytes(maxBytes), _queue(new QThreadPool)
{
    _queue->setObjectName(QStringLiteral("com.tessaly.corvane.diskcache"));
    _queue->setMaxThreadCount(1);
    _queue->setThreadPriority(QThread::LowPriority);
    QDir().mkpath(_dir);
}

DiskImageCache::~DiskImageCache()
{
    _queue->waitForDone();
    delete _queue;
}

QString DiskImageCache::rootDir()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    return base + QStringLiteral("/com.tessaly.corvane");
}

DiskImageCache &DiskImageCache::thumbs()
{
    static DiskImageCache cache(rootDir() + QStringLiteral("/thumbs"), 0.82, 0);
    return cache;
}

DiskImageCache &DiskImageCache::previews()
{
    static DiskImageCache cache(rootDir() + QStringLiteral("/previews"), 0.88, 4LL * 1024 * 1024 * 1024);
    return cache;
}

std::optional<QString> DiskImageCache::diskKey(const QString &path, int pixels)
{
    struct stat st {};
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    const QString standard = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    const QByteArray text = standard.toUtf8() + '|' + shortestDecimal(seconds(st.st_mtim)) + '|'
                            + QByteArray::number(qint64(st.st_size)) + '|' + QByteArray::number(pixels);
    const QString key = sha256Hex(text);
    return key.isEmpty() ? std::nullopt : std::optional<QString>(key);
}

// Far above any preview we write; a bigger file is not ours.
constexpr qint64 kMaxCacheFileBytes = 256LL * 1024 * 1024;

QImage DiskImageCache::load(const QString &key) const
{
    if (!validKey(key))
        return {};
    const QByteArray path = QFile::encodeName(_dir + QLatin1Char('/') + key + QStringLiteral(".jpg"));
    // Cache files are small JPEGs we wrote ourselves: Qt's reader (libjpeg-turbo underneath)
    // opens them with less set-up than a libvips pipeline, which matters at a grid's rate. It
    // would show a cut file half grey, so a file must end where our encoder ends it.
    QImage image;
    QFile file(QFile::decodeName(path));
    if (file.open(QIODevice::ReadOnly) && file.size() <= kMaxCacheFileBytes) {
        const QByteArray bytes = file.readAll();
        if (bytes.size() > 4 && bytes.startsWith("\xFF\xD8") && bytes.endsWith("\xFF\xD9")) {
            QBuffer buffer;
            buffer.setData(bytes);
            QImageReader reader(&buffer, "jpeg");
            if (reader.size().isValid() && qint64(reader.size().width()) * reader.size().height() <= ImageDecoder::kMaxPixels)
                image = reader.read();
        }
    }
    if (!image.isNull() && image.format() != QImage::Format_RGB32)
        image = image.convertToFormat(QImage::Format_RGB32);
    if (image.isNull())
        return {};
    // Access dates drive eviction. Mounts with noatime never set them and relatime at most daily:
    // refresh a day-old one ourselves, so an entry looked at again stays.
    struct stat st {};
    if (::stat(path.constData(), &st) == 0 && seconds(st.st_atim) < now() - kDay) {
        const struct timespec times[2] = {{0, UTIME_NOW}, {0, UTIME_OMIT}};
        utimensat(AT_FDCWD, path.constData(), times, 0);
    }
    return image;
}

bool DiskImageCache::store(const QImage &image, const QString &key) const
{
    if (image.isNull() || !validKey(key))
        return false;
    const QByteArray jpeg = VipsBitmap::encodeJpeg(image, qRound(_quality * 100));
    if (jpeg.isEmpty())
        return false;

    const QString base = _dir + QLatin1Char('/') + key;
    const QByteArray temp =
        QFile::encodeName(base + QLatin1Char('.') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".tmp"));
    const QByteArray final = QFile::encodeName(base + QStringLiteral(".jpg"));
    UniqueFd fd(::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd)
        return false;
    // No fsync: an entry lost in a crash is only decoded again (a damaged one fails to load and is
    // overwritten), and a sync per thumbnail would cost more than that.
    bool written = FileIo::writeFully(fd.get(), jpeg.constData(), jpeg.size());
    if (fd.close() != 0)
        written = false;
    if (written && ::rename(temp.constData(), final.constData()) == 0)
        return true;
    ::unlink(temp.constData());
    return false;
}

void DiskImageCache::storeAsync(const QImage &image, const QString &key)
{
    _queue->start([this, image, key] { store(image, key); });
}

void DiskImageCache::waitForWrites()
{
    _queue->waitForDone();
}

void DiskImageCache::prune(int days) const
{
    withEntries(_dir, [this, days](int fd, std::vector<Entry> &entries) {
        /* By age: files not read for `days`. */
        const double cutoff = now() - double(days) * kDay;
        std::vector<Entry> kept;
        for (Entry &e : entries) {
            if (days > 0 && e.accessed < cutoff)
                unlinkat(fd, e.name.constData(), 0);
            else
                kept.push_back(std::move(e));
        }

        /* By size: down to 80 % of the limit, least recently read first, so the next prune
           does not have to run again at once. */
        if (_maxBytes < 1)
            return;
        qint64 total = 0;
        for (const Entry &e : kept)
            total += e.size;
        if (total <= _maxBytes)
            return;
        std::stable_sort(kept.begin(), kept.end(), [](const Entry &a, const Entry &b) { return a.accessed < b.accessed; });
        const qint64 target = _maxBytes * 8 / 10;
        for (const Entry &e : kept) {
            if (total <= target)
                break;
            unlinkat(fd, e.name.constData(), 0);
            total -= e.size;
        }
    });
}

qint64 DiskImageCache::totalSize() const
{
    qint64 total = 0;
    withEntries(_dir, [&total](int, const std::vector<Entry> &entries) {
        for (const Entry &e : entries)
            total += e.size;
    });
    return total;
}

void DiskImageCache::clear() const
{
    withEntries(_dir, [](int fd, const std::vector<Entry> &entries) {
        for (const Entry &e : entries)
            unlinkat(fd, e.name.constData(), 0);
    });
}

int DiskImageCache::cacheDaysSetting()
{
    return Settings::cacheDays.get();
}

QFuture<void> DiskImageCache::pruneAtLaunch()
{
    const int days = cacheDaysSetting();
    DiskImageCache &thumbnails = thumbs();
    DiskImageCache &largerPreviews = previews();
    // Made after the two caches, so it is destroyed (waiting for its work) before them.
    static QThreadPool background;
    background.setMaxThreadCount(1);
    background.setThreadPriority(QThread::IdlePriority);
    return QtConcurrent::run(&background, [&thumbnails, &largerPreviews, days] {
        thumbnails.prune(days);
        largerPreviews.prune(days);
    });
}
