#pragma once
#include <QMutex>
#include <memory>

// Cancellation token of one folder load. Shared by the GUI thread, which cancels, and the
// listing's worker, which polls. Thread-safe.
class LoadToken
{
public:
    void cancel()
    {
        QMutexLocker locker(&lock);
        _cancelled = true;
    }
    bool isCancelled() const
    {
        QMutexLocker locker(&lock);
        return _cancelled;
    }

private:
    mutable QMutex lock;
    bool _cancelled = false;   // guarded by lock
};

using LoadTokenPtr = std::shared_ptr<LoadToken>;
