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

void MarksStore::schedule(const QString &folderIn, const MarksMap &marks)
{
    const QString folder = FolderScanner::standardPath(folderIn);
    {
        QMutexLocker locker(&lock);
        pending.insert(folder, {folder, marks});
    }
    // Cancel the scheduled flush and schedule a new one: a burst writes once, after its last change.
    QMetaObject::invokeMethod(workItem, qOverload<>(&QTimer::start), Qt::QueuedConnection);
}

void MarksStore::scheduleOffsets(const QString &folderIn, const CameraOffsets &o)
{
    const QString folder = FolderScanner::standardPath(folderIn);
    QMutexLocker locker(&lock);
    offsets.insert(folder, o);
    if (!pending.contains(folder)) {
        // Offsets alone: write them with the marks the file already holds.
        const auto existing = MarksFile::load(folder);
        pending.insert(folder, {folder, existing ? existing->marks : MarksMap{}});
    }
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

void MarksStore::flushOnQueue()
{
    QHash<QString, Pending> work;
    QHash<QString, CameraOffsets> workOffsets;
    {
        QMutexLocker locker(&lock);
        work.swap(pending);
        workOffsets.swap(offsets);
    }
    for (auto it = work.cbegin(); it != work.cend(); ++it) {
        std::optional<CameraOffsets> o;
        if (workOffsets.contains(it.key()))
            o = workOffsets.value(it.key());
        const QString error = MarksFile::save(it.value().folder, it.value().marks, o);
        QMutexLocker locker(&lock);
        ++writes;
        if (!error.isEmpty()) {
            // Keep it for the next flush, unless a newer map arrived meanwhile.
            if (!pending.contains(it.key()))
                pending.insert(it.key(), it.value());
            if (o && !offsets.contains(it.key()))
                offsets.insert(it.key(), *o);
            locker.unlock();
            emit writeFailed(error);
        }
    }
}
