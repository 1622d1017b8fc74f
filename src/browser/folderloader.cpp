#include "folderloader.h"

#include "model/folderscanner.h"

#include <QSet>
#include <QThreadPool>

FolderLoader::FolderLoader(QObject *parent)
    : QObject(parent)
    , _pool(new QThreadPool(this))
{
    // One worker: a load and the metadata of late arrivals never compete for the disk.
    _pool->setMaxThreadCount(1);
}

FolderLoader::~FolderLoader()
{
    cancel();
    _pool->waitForDone();
}

void FolderLoader::cancel()
{
    if (_token)
        _token->cancel();
}

void FolderLoader::load(quint64 generation, const QString &folder, bool recursive)
{
    cancel();
    auto token = std::make_shared<LoadToken>();
    _token = token;
    _pool->start([this, token, generation, folder, recursive] {
        Result result;
        if (recursive) {
            result.scan = FolderScanner::listTree(folder, *token, [this, token, generation](const QString &text, int count) {
                QMetaObject::invokeMethod(this, [this, token, generation, text, count] {
                    if (!token->isCancelled())
                        emit progress(generation, text, count);
                }, Qt::QueuedConnection);
            });
        } else {
            result.scan = FolderScanner::listFolder(folder, *token);
        }
        QSet<QString> folders;
        for (const ScannedItem &item : std::as_const(result.scan.items))
            folders.insert(FolderScanner::parentOf(item.url));
        for (const QString &dir : std::as_const(folders)) {
            if (token->isCancelled())
                return;
            const auto file = MarksFile::load(dir);
            result.marksByFolder.insert(dir, file ? file->marks : MarksMap{});
        }
        if (token->isCancelled())
            return;
        QMetaObject::invokeMethod(this, [this, token, generation, result = std::move(result)] {
            if (!token->isCancelled())
                emit finished(generation, result);
        }, Qt::QueuedConnection);
    });
}

void FolderLoader::readMeta(quint64 generation, const QList<MetaReader::Job> &jobs)
{
    _pool->start([this, generation, jobs] {
        MetaBatch batch;
        batch.reserve(jobs.size());
        for (const MetaReader::Job &j : jobs)
            batch.append({j.id, readPhotoMeta(j.path, j.sidecar)});
        QMetaObject::invokeMethod(this, [this, generation, batch] { emit metaRead(generation, batch); }, Qt::QueuedConnection);
    });
}
