#pragma once
// The cancel flag shared by the worker and the screen. Thread-safe.
#include <QMutex>

class IngestCancel
{
public:
    void cancel()
    {
        QMutexLocker l(&_lock);
        _cancelled = true;
    }
    void reset()
    {
        QMutexLocker l(&_lock);
        _cancelled = false;
    }
    bool cancelled() const
    {
        QMutexLocker l(&_lock);
        return _cancelled;
    }

private:
    mutable QMutex _lock;
    bool _cancelled = false;   // guarded by _lock
};
