#include "cardscanner.h"

#include "util/canceltoken.h"

#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "metadata/metareader.h"

#include <QDir>
#include <QFileInfo>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentMap>

namespace CardScanner {
namespace {

struct Walk {
    bool includeVideo;
    const CancelToken *cancel;
    const std::function<void(int, int)> &progress;
    QList<IngestItem> items;
    QString error;
};

bool cancelled(const CancelToken *c) { return c && c->isCancelled(); }

void walk(const QString &folder, Walk &w, int depth)
{
    if (depth > 32 || cancelled(w.cancel))
        return;
    QDir dir(folder);
    // Hidden entries are left out by not asking for them; links are not followed (a loop on a
    // card would never end).
    const QFileInfoList entries =
        dir.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &e : entries) {
        if (e.fileName().startsWith(QLatin1Char('.')))
            continue;
        if (e.isDir()) {
            walk(e.filePath(), w, depth + 1);
            continue;
        }
        if (!e.isFile())
            continue;
        const QString ext = FileKinds::extensionOf(e.fileName());
        const bool video = FileKinds::isVideoExt(ext);
        if (!FileKinds::isImageExt(ext) && !(video && w.includeVideo))
            continue;
        IngestItem item;
        item.url = e.filePath();
        item.size = e.size();
        item.isVideo = video;
        item.groupKey = FolderScanner::groupingKey(item.url);
        w.items.append(item);
        if (w.progress && w.items.size() % 50 == 0)
            w.progress(int(w.items.size()), 0);
    }
}

QDateTime earlier(const QDateTime &a, const QDateTime &b)
{
    if (!a.isValid())
        return b;
    if (!b.isValid())
        return a;
    return a < b ? a : b;
}

} // namespace

void readDateAndCamera(const QString &path, IngestItem &item)
{
    if (!item.isVideo) {
        if (const std::optional<PhotoMeta> meta = readPhotoMeta(path)) {
            if (meta->captureDate.isValid())
                item.date = meta->captureDate;
            if (!meta->model.isEmpty())
                item.camera = meta->model;
        }
    }
    if (!item.date.isValid()) {
        // The camera wrote the file once: of its creation and modification dates, the earlier
        // one is the closer to the moment of the shot (a later edit only moves the second).
        const QFileInfo info(path);
        item.date = earlier(info.birthTime(), info.lastModified());
    }
}

CardScan scan(const QString &root, bool includeVideo, const CancelToken *cancel, const std::function<void(int, int)> &progress,
              const QHash<QString, IngestItem> *known)
{
    CardScan result;
    const QFileInfo info(root);
    if (!info.isDir()) {
        result.error = QStringLiteral("No se encuentra la carpeta «%1».").arg(root);
        return result;
    }
    if (!info.isReadable() || !QDir(root).isReadable()) {
        result.error = QStringLiteral("No se puede leer la carpeta «%1».").arg(root);
        return result;
    }
    Walk w{includeVideo, cancel, progress, {}, {}};
    walk(QDir::cleanPath(info.absoluteFilePath()), w, 0);
    if (cancelled(cancel)) {
        result.cancelled = true;
        return result;
    }

    // The metadata of every file, a few at a time: a card answers several small reads at once
    // faster than one after the other.
    QThreadPool pool;
    pool.setMaxThreadCount(4);
    std::atomic<int> done{0};
    const int total = int(w.items.size());
    QtConcurrent::blockingMap(&pool, w.items, [&](IngestItem &item) {
        if (cancelled(cancel))
            return;
        const auto seen = known ? known->constFind(item.url) : QHash<QString, IngestItem>::const_iterator();
        if (known && seen != known->cend() && seen->size == item.size) {
            item.date = seen->date;
            item.camera = seen->camera;
        } else {
            readDateAndCamera(item.url, item);
        }
        const int n = ++done;
        if (progress && n % 20 == 0)
            progress(n, total);
    });
    result.cancelled = cancelled(cancel);
    result.items = std::move(w.items);
    if (progress)
        progress(total, total);
    return result;
}

} // namespace CardScanner
