#include "marksstore.h"

#include "model/folderscanner.h"

#include <QMetaObject>
#include <QTimer>

MarksStore::MarksStore(QObject *parent)
    : QObject(parent)
{
    queue.setObjectName(QStringLiteral("com.tessaly.corvane.marks"));
    queueContext = new QObject;
    workItem = new QTimer(queueContext);
    workItem->setSingleShot(true);
    workItem->setInterval(kDebounceMs);
    connect(workItem, &QTimer::timeout, queueContext, [this] { flushOnQueue(); });
    queueContext->moveToThread(&queue);
    connect(&queue, &QThread::finished, queueContext, &QObject::deleteLater);
    queue.start();
}

MarksStore::~MarksStore()
{
    flush();
    queue.quit();
    queue.wait();
}

void MarksStore::schedule(const QString &folderIn, const MarksMap &marks, const QSet<QString> &changed)
{
    const QString folder = FolderScanner::standardPath(folderIn);
    {
        QMutexLocker locker(&lock);
        Pending &p = pending[folder];
        p.folder = folder;
        p.marks = marks;
        p.changed.unite(changed);
    }
    // Cancel the scheduled flush and schedule a new one: a burst writes once, after its last change.
    QMetaObject::invokeMethod(workItem, qOverload<>(&QTimer::start), Qt::QueuedConnection);
}

void MarksStore::scheduleOffsets(const QString &folderIn, const CameraOffsets &o)
{
    const QString folder = FolderScanner::standardPath(folderIn);
    QMutexLocker locker(&lock);
    offsets.insert(folder, o);
    // Offsets alone change no key: they are written with the marks the file holds then.
    pending[folder].folder = folder;
    locker.unlock();
    QMetaObject::invokeMethod(workItem, qOverload<>(&QTimer::start), Qt::QueuedConnection);
}

void MarksStore::flush()
{
    if (QThread::currentThread() == &queue) {
        flushOnQueue();
        return;
    }
    if (!queue.isRunning())
        return;
    QMetaObject::invokeMethod(queueContext, [this] {
        workItem->stop();
        flushOnQueue();
    }, Qt::BlockingQueuedConnection);
}

int MarksStore::writeCount() const
{
    QMutexLocker locker(&lock);
    return writes;
}

QSet<QString> MarksStore::unwrittenKeys(const QString &folderIn) const
{
    const QString folder = FolderScanner::standardPath(folderIn);
    QMutexLocker locker(&lock);
    QSet<QString> keys = writing.value(folder);
    if (const auto it = pending.constFind(folder); it != pending.constEnd())
        keys.unite(it->changed);
    return keys;
}

void MarksStore::flushOnQueue()
{
    QHash<QString, Pending> work;
    QHash<QString, CameraOffsets> workOffsets;
    {
        QMutexLocker locker(&lock);
        work.swap(pending);
        workOffsets.swap(offsets);
        for (auto it = work.cbegin(); it != work.cend(); ++it)
            writing.insert(it.key(), it->changed);
    }
    for (auto it = work.cbegin(); it != work.cend(); ++it) {
        std::optional<CameraOffsets> o;
        if (workOffsets.contains(it.key()))
            o = workOffsets.value(it.key());
        const QString error = MarksFile::saveChanges(it->folder, it->marks, it->changed, o);
        QMutexLocker locker(&lock);
        ++writes;
        writing.remove(it.key());
        if (!error.isEmpty()) {
            // Keep the changes for the next flush; a newer map that arrived meanwhile wins, and
            // its keys add to these.
            Pending &p = pending[it.key()];
            if (p.folder.isEmpty()) {
                p.folder = it->folder;
                p.marks = it->marks;
            }
            p.changed.unite(it->changed);
            if (o && !offsets.contains(it.key()))
                offsets.insert(it.key(), *o);
            locker.unlock();
            emit writeFailed(error);
        }
    }
}
