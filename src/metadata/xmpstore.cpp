#include "xmpstore.h"

#include "sidecarmarks.h"
#include "xmplabels.h"
#include "xmpsidecar.h"

#include "util/atomicbatch.h"

#include <QDebug>

#include <QMetaObject>
#include <QTimer>

namespace {
XMPStore::Job withOrientation(XMPStore::Job job)
{
    job.state = SidecarMarks::withOrientation(job.state, job.image, job.sidecar);
    return job;
}
} // namespace

XMPStore::XMPStore(QObject *parent)
    : QObject(parent)
    , _labels(XmpLabels::userLabels())
{
    queue.setObjectName(QStringLiteral("com.tessaly.corvane.xmp"));
    queueContext = new QObject;
    workItem = new QTimer(queueContext);
    workItem->setSingleShot(true);
    workItem->setInterval(kDebounceMs);
    connect(workItem, &QTimer::timeout, queueContext, [this] { drainOnQueue(); });
    queueContext->moveToThread(&queue);
    connect(&queue, &QThread::finished, queueContext, &QObject::deleteLater);
    queue.start();
}

XMPStore::~XMPStore()
{
    flush();
    queue.quit();
    queue.wait();
}

void XMPStore::setLabels(const QStringList &labels)
{
    QMutexLocker locker(&lock);
    _labels = labels;
}

QStringList XMPStore::labels() const
{
    QMutexLocker locker(&lock);
    return _labels;
}

void XMPStore::write(const QString &sidecar, const XmpState &state, const QString &image)
{
    {
        QMutexLocker locker(&lock);
        if (!pending.contains(sidecar))
            pendingOrder.append(sidecar);
        pending.insert(sidecar, {sidecar, state, image});
    }
    QMetaObject::invokeMethod(workItem, qOverload<>(&QTimer::start), Qt::QueuedConnection);
}

void XMPStore::flush()
{
    if (QThread::currentThread() == &queue) {
        drainOnQueue();
        return;
    }
    if (!queue.isRunning())
        return;
    QMetaObject::invokeMethod(queueContext, [this] {
        workItem->stop();
        drainOnQueue();
    }, Qt::BlockingQueuedConnection);
}

void XMPStore::drainOnQueue()
{
    QStringList order;
    QHash<QString, Job> jobs;
    QMutexLocker locker(&lock);
    order.swap(pendingOrder);
    jobs.swap(pending);
    const QStringList labels = _labels;
    locker.unlock();
    // A burst (a colour on a whole folder) is put in place with one flush of the disk.
    AtomicBatch files;
    for (const QString &sidecar : std::as_const(order)) {
        const Job job = withOrientation(jobs.value(sidecar));
        const XmpSidecar::WriteResult r = XmpSidecar::write(sidecar, job.state, labels, &files);
        if (!r.ok())
            emit writeFailed(r.message);
    }
    commitOnQueue(files);
}

int XMPStore::commitOnQueue(AtomicBatch &files)
{
    const QList<AtomicBatch::Failure> failures = files.commit();
    for (const AtomicBatch::Failure &f : failures) {
        const QString message = XmpSidecar::failedMessage(f.result.error, f.target);
        qWarning().noquote() << message;
        emit writeFailed(message);
    }
    return int(failures.size());
}

quint64 XMPStore::writeAll(const QList<Job> &jobs)
{
    QMutexLocker locker(&lock);
    const quint64 batch = ++batches;
    locker.unlock();
    QMetaObject::invokeMethod(queueContext, [this, batch, jobs] {
        drainOnQueue();   // what was marked before the export goes first
        const QStringList labels = this->labels();
        // A folder's sidecars are written together, with one flush of the disk for all of them.
        AtomicBatch files;
        int written = 0, failed = 0;
        const auto commit = [&] {
            const int lost = commitOnQueue(files);
            written -= lost;
            failed += lost;
        };
        for (qsizetype i = 0; i < jobs.size(); ++i) {
            const Job job = withOrientation(jobs[i]);
            const XmpSidecar::WriteResult r = XmpSidecar::write(job.sidecar, job.state, labels, &files);
            if (r.ok()) {
                ++written;
            } else {
                ++failed;
                emit writeFailed(r.message);
            }
            if (files.size() >= kBatchFiles)
                commit();
            emit batchProgress(batch, int(i + 1), int(jobs.size()));
        }
        commit();
        emit batchFinished(batch, written, failed);
    }, Qt::QueuedConnection);
    return batch;
}

void XMPStore::read(const QStringList &sidecars, quint64 generation)
{
    QMetaObject::invokeMethod(queueContext, [this, sidecars, generation] {
        drainOnQueue();   // a sidecar read back says what was last written to it
        const QStringList labels = this->labels();
        QHash<QString, XmpState> states;
        for (const QString &s : sidecars)
            if (const auto state = XmpSidecar::read(s, labels))
                states.insert(s, *state);
        emit sidecarsRead(generation, states);
    }, Qt::QueuedConnection);
}

void XMPStore::waitForIdle()
{
    flush();   // runs after everything queued before it, and writes what the debounce holds
}
