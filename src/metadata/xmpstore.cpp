#include "xmpstore.h"

#include "xmplabels.h"
#include "xmpsidecar.h"

#include <QMetaObject>

XMPStore::XMPStore(QObject *parent)
    : QObject(parent)
    , _labels(XmpLabels::userLabels())
{
    queue.setObjectName(QStringLiteral("com.tessaly.corvane.xmp"));
    queueContext = new QObject;
    queueContext->moveToThread(&queue);
    connect(&queue, &QThread::finished, queueContext, &QObject::deleteLater);
    queue.start();
}

XMPStore::~XMPStore()
{
    waitForIdle();
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

void XMPStore::write(const QString &sidecar, const XmpState &state)
{
    QMutexLocker locker(&lock);
    if (!pending.contains(sidecar))
        pendingOrder.append(sidecar);
    pending.insert(sidecar, state);
    if (drainPosted)
        return;
    drainPosted = true;
    locker.unlock();
    QMetaObject::invokeMethod(queueContext, [this] { drainOnQueue(); }, Qt::QueuedConnection);
}

void XMPStore::drainOnQueue()
{
    // What is waiting now; a write handed over meanwhile posts a drain of its own, so it lands
    // after any batch queued before it.
    QStringList order;
    QHash<QString, XmpState> states;
    QMutexLocker locker(&lock);
    order.swap(pendingOrder);
    states.swap(pending);
    drainPosted = false;
    const QStringList labels = _labels;
    locker.unlock();
    for (const QString &sidecar : std::as_const(order)) {
        const XmpSidecar::WriteResult r = XmpSidecar::write(sidecar, states.value(sidecar), labels);
        if (!r.ok())
            emit writeFailed(r.message);
    }
}

quint64 XMPStore::writeAll(const QList<Job> &jobs)
{
    QMutexLocker locker(&lock);
    const quint64 batch = ++batches;
    locker.unlock();
    QMetaObject::invokeMethod(queueContext, [this, batch, jobs] {
        const QStringList labels = this->labels();
        int written = 0, failed = 0;
        for (qsizetype i = 0; i < jobs.size(); ++i) {
            const XmpSidecar::WriteResult r = XmpSidecar::write(jobs[i].sidecar, jobs[i].state, labels);
            if (r.ok()) {
                ++written;
            } else {
                ++failed;
                emit writeFailed(r.message);
            }
            emit batchProgress(batch, int(i + 1), int(jobs.size()));
        }
        emit batchFinished(batch, written, failed);
    }, Qt::QueuedConnection);
    return batch;
}

void XMPStore::read(const QStringList &sidecars, quint64 generation)
{
    QMetaObject::invokeMethod(queueContext, [this, sidecars, generation] {
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
    if (QThread::currentThread() == &queue || !queue.isRunning())
        return;
    QMetaObject::invokeMethod(queueContext, [] {}, Qt::BlockingQueuedConnection);
}
