#pragma once
// A pool of worker threads fed from a priority list of jobs. Waiting jobs can be re-prioritised
// or cancelled at any time (QThreadPool's own queue can do neither safely); among equal
// priorities the newest runs first, so the cells the user looks at now win over old requests.
// Thread-safe.
#include <QMutex>
#include <QString>
#include <QThreadPool>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class WorkQueue
{
public:
    struct Job {
        std::function<void()> work;     // dropped once run or cancelled
        int priority = 0;               // guarded by the queue's lock while waiting
        quint64 seq = 0;
        std::atomic<bool> cancelled{false};
        std::atomic<bool> started{false};
    };
    using JobPtr = std::shared_ptr<Job>;

    WorkQueue(const QString &name, int width);
    ~WorkQueue();

    void setWidth(int width) { _pool.setMaxThreadCount(width); }
    int width() const { return _pool.maxThreadCount(); }

    JobPtr submit(std::function<void()> work, int priority);
    void setPriority(const JobPtr &job, int priority);
    void cancel(const JobPtr &job);   // a job already running finishes; a waiting one never runs
    void waitForDone();

private:
    void runOne();

    QThreadPool _pool;
    QMutex _lock;
    std::vector<JobPtr> _waiting;   // guarded by _lock
    quint64 _seq = 0;               // guarded by _lock
};
