#include "sharpnessanalyzer.h"

#include "sharpnesscache.h"
#include "imaging/workqueue.h"

#include <QThread>
#include <QTimer>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// On Linux the nice value belongs to the thread, so this lowers only the calling worker.
void lowerThisThread()
{
    thread_local bool lowered = false;
    if (!lowered) {
        lowered = true;
        setpriority(PRIO_PROCESS, id_t(syscall(SYS_gettid)), 19);
    }
}

constexpr int kFlushMs = 150;
constexpr int kSaveEvery = 200;   // results between cache writes on a long folder

} // namespace

SharpnessAnalyzer::SharpnessAnalyzer(QObject *parent, int width, SharpnessCache *cache)
    : QObject(parent)
    , _cache(cache ? cache : &SharpnessCache::shared())
    , _queue(std::make_unique<WorkQueue>(QStringLiteral("Nitidez"),
                                         width > 0 ? width : qMax(1, QThread::idealThreadCount() / 2)))
    , _flushTimer(new QTimer(this))
{
    _flushTimer->setSingleShot(true);
    _flushTimer->setInterval(kFlushMs);
    connect(_flushTimer, &QTimer::timeout, this, &SharpnessAnalyzer::flush);
}

SharpnessAnalyzer::~SharpnessAnalyzer()
{
    ++_generation;
    _queue.reset();   // waits for the running measures
    _cache->save();
}

void SharpnessAnalyzer::start(const QList<Job> &jobs)
{
    cancel();
    enqueue(jobs);
}

void SharpnessAnalyzer::add(const QList<Job> &jobs)
{
    enqueue(jobs);
}

void SharpnessAnalyzer::cancel()
{
    ++_generation;   // waiting jobs of the old folder return at once when their turn comes
    {
        QMutexLocker locker(&_lock);
        _pending.clear();
    }
    const bool wasBusy = _total > 0;
    _queued.clear();
    _done = _total = 0;
    _nextPriority = 0;
    if (wasBusy) {
        saveCache();
        emit progressChanged(0, 0);
    }
}

void SharpnessAnalyzer::waitForDone()
{
    _queue->waitForDone();
}

void SharpnessAnalyzer::enqueue(const QList<Job> &jobs)
{
    const quint64 generation = _generation;
    int added = 0;
    for (const Job &job : jobs) {
        if (job.path.isEmpty() || _queued.contains(job.id))
            continue;
        _queued.insert(job.id);
        ++added;
        // Falling priorities keep the folder's order: the first shots are scored first.
        _queue->submit(
            [this, job, generation] {
                if (_generation != generation)
                    return;
                const QString key = SharpnessCache::photoKey(job.path);
                std::optional<SharpResult> result = _cache->get(key);
                if (!result) {
                    lowerThisThread();
                    result = measureSharpnessOfFile(job.path, job.isRaw);
                    if (result)
                        _cache->put(key, *result);
                }
                noteOutcome(generation, {job.id, result});
            },
            --_nextPriority);
    }
    if (added == 0)
        return;
    if (_done >= _total)
        _done = _total = 0;   // a new round after an idle spell counts from zero
    _total += added;
    emit progressChanged(_done, _total);
}

void SharpnessAnalyzer::noteOutcome(quint64 generation, Outcome outcome)
{
    QMutexLocker locker(&_lock);
    if (_generation != generation)
        return;
    _pending.append(std::move(outcome));
    if (_flushAsked)
        return;
    _flushAsked = true;
    locker.unlock();
    QMetaObject::invokeMethod(this, [this] {
        if (!_flushTimer->isActive())
            _flushTimer->start();
    }, Qt::QueuedConnection);
}

void SharpnessAnalyzer::flush()
{
    QList<Outcome> batch;
    {
        QMutexLocker locker(&_lock);
        batch.swap(_pending);
        _flushAsked = false;
    }
    if (batch.isEmpty())
        return;
    Results results;
    QList<QUuid> failed;
    for (const Outcome &o : std::as_const(batch)) {
        if (o.result)
            results.insert(o.id, {o.result->best, QPointF(o.result->focusX, o.result->focusY)});
        else
            failed.append(o.id);
    }
    const int before = _done;
    _done = qMin(_total, _done + int(batch.size()));
    if (!results.isEmpty())
        emit measured(results);
    if (!failed.isEmpty())
        emit unreadable(failed);
    emit progressChanged(_done, _total);
    if (_done / kSaveEvery != before / kSaveEvery || _done >= _total)
        saveCache();
    if (_done >= _total) {
        emit progressChanged(0, 0);
        emit finished();
    }
}

void SharpnessAnalyzer::saveCache()
{
    if (!_cache->isDirty())
        return;
    // Off the GUI thread: a large cache file takes a moment to write.
    SharpnessCache *cache = _cache;
    _queue->submit([cache] { cache->save(); }, 1000);
}
