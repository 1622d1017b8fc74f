#include "metareader.h"

#include "photometareader.h"

#include <QElapsedTimer>
#include <QMetaObject>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>

// =============================================================================================
// MetaReader

struct MetaReader::Worker {
    QThread *thread = nullptr;

    // The request in force. Bumped on the GUI thread by start() and cancel(); the worker compares
    // it before each file, and deliveries compare it again on arrival so nothing stale is emitted.
    std::atomic<quint64> serial{0};

    QMutex lock;
    QWaitCondition wake;
    // guarded by lock:
    QList<Job> jobs;
    quint64 generation = 0;
    quint64 jobsSerial = 0;
    bool pending = false;
    bool quit = false;
};

namespace {
using Batch = QList<QPair<QUuid, std::optional<PhotoMeta>>>;
constexpr int kBatchSize = 32;
constexpr qint64 kBatchMs = 100;
} // namespace

MetaReader::MetaReader(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Worker>())
{
    qRegisterMetaType<Batch>();
    ensureExiv2();
    Worker *w = d.get();

    // Hands results to the GUI thread; dropped there if a newer request came meanwhile.
    auto deliver = [this, w](quint64 serial, quint64 generation, Batch batch, bool last) {
        QMetaObject::invokeMethod(
            this,
            [this, w, serial, generation, batch = std::move(batch), last] {
                if (w->serial.load() != serial)
                    return;
                if (!batch.isEmpty())
                    emit metaReady(generation, batch);
                if (last)
                    emit finished(generation);
            },
            Qt::QueuedConnection);
    };

    w->thread = QThread::create([w, deliver] {
        for (;;) {
            QList<Job> jobs;
            quint64 generation = 0, serial = 0;
            {
                QMutexLocker locker(&w->lock);
                while (!w->pending && !w->quit)
                    w->wake.wait(&w->lock);
                if (w->quit)
                    return;
                jobs = std::move(w->jobs);
                w->jobs.clear();
                generation = w->generation;
                serial = w->jobsSerial;
                w->pending = false;
            }
            Batch batch;
            QElapsedTimer sinceFlush;
            sinceFlush.start();
            bool cancelled = false;
            for (const Job &job : std::as_const(jobs)) {
                if (w->serial.load(std::memory_order_relaxed) != serial) {
                    cancelled = true;
                    break;
                }
                batch.append({job.id, readPhotoMeta(job.path, job.sidecar)});
                if (batch.size() >= kBatchSize || sinceFlush.elapsed() >= kBatchMs) {
                    deliver(serial, generation, std::exchange(batch, {}), false);
                    sinceFlush.restart();
                }
            }
            if (!cancelled)
                deliver(serial, generation, std::move(batch), true);
        }
    });
    w->thread->setObjectName(QStringLiteral("corvane-metareader"));
    w->thread->start(QThread::LowPriority);
}

MetaReader::~MetaReader()
{
    {
        QMutexLocker locker(&d->lock);
        d->quit = true;
        d->jobs.clear();
        d->serial.fetch_add(1);
        d->wake.wakeAll();
    }
    // The current file finishes (exiv2 reads headers only), then the thread returns. Deliveries
    // still queued for this object are discarded with it.
    d->thread->wait();
    delete d->thread;
}

void MetaReader::start(const QList<Job> &jobs, quint64 generation)
{
    QMutexLocker locker(&d->lock);
    d->jobs = jobs;
    d->generation = generation;
    d->jobsSerial = d->serial.fetch_add(1) + 1;
    d->pending = true;
    d->wake.wakeAll();
}

void MetaReader::cancel()
{
    QMutexLocker locker(&d->lock);
    d->jobs.clear();
    d->pending = false;
    d->serial.fetch_add(1);
}
