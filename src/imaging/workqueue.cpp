#include "workqueue.h"

#include <QThread>

WorkQueue::WorkQueue(const QString &name, int width)
{
    _pool.setObjectName(name);
    _pool.setMaxThreadCount(width);
    // Idle workers are cheap to keep and costly to recreate while scrolling.
    _pool.setExpiryTimeout(30000);
}

WorkQueue::~WorkQueue()
{
    {
        QMutexLocker locker(&_lock);
        for (const JobPtr &j : _waiting) {
            j->cancelled = true;
            j->work = nullptr;
        }
        _waiting.clear();
    }
    _pool.waitForDone();
}

WorkQueue::JobPtr WorkQueue::submit(std::function<void()> work, int priority)
{
    auto job = std::make_shared<Job>();
    job->work = std::move(work);
    {
        QMutexLocker locker(&_lock);
        job->priority = priority;
        job->seq = ++_seq;
        _waiting.push_back(job);
    }
    // One pool task per job: each takes whichever waiting job is best when it starts.
    _pool.start([this] { runOne(); });
    return job;
}

void WorkQueue::setPriority(const JobPtr &job, int priority)
{
    QMutexLocker locker(&_lock);
    job->priority = priority;
}

void WorkQueue::cancel(const JobPtr &job)
{
    if (!job)
        return;
    job->cancelled = true;
    std::function<void()> dropped;
    {
        QMutexLocker locker(&_lock);
        // A job still waiting will never run: its work (and whatever that holds) goes now, outside
        // the lock. A running one drops its own when it ends.
        if (std::erase(_waiting, job) > 0)
            dropped = std::move(job->work);
    }
}

void WorkQueue::waitForDone()
{
    _pool.waitForDone();
}

void WorkQueue::runOne()
{
    JobPtr job;
    {
        QMutexLocker locker(&_lock);
        auto best = _waiting.end();
        for (auto it = _waiting.begin(); it != _waiting.end(); ++it)
            if (best == _waiting.end() || (*it)->priority > (*best)->priority
                || ((*it)->priority == (*best)->priority && (*it)->seq > (*best)->seq))
                best = it;
        if (best == _waiting.end())
            return;   // its job was cancelled
        job = *best;
        _waiting.erase(best);
        job->started = true;
    }
    // The work leaves the job before it runs: whoever still holds the job (a caller's table, the
    // work's own captures) does not keep what the work captured alive.
    const std::function<void()> work = std::move(job->work);
    job->work = nullptr;
    if (!job->cancelled && work)
        work();
}
