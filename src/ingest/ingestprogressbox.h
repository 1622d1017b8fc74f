#pragma once
// Progress the worker writes per chunk and a GUI-thread timer reads, so the worker never touches
// observable state per chunk. Thread-safe.
#include <QMutex>
#include <QString>

class IngestProgressBox
{
public:
    struct Snapshot {
        qint64 bytes = 0;         // bytes copied (or verified) so far in this phase
        int done = 0;             // files finished in this phase (files found while scanning)
        QString name;             // the file at work
        quint64 serial = 0;       // bumped by every write, so readers can skip unchanged boxes
    };
    void set(qint64 bytes, int done, const QString &name)
    {
        QMutexLocker l(&_lock);
        _s.bytes = bytes;
        _s.done = done;
        _s.name = name;
        ++_s.serial;
    }
    void setBytes(qint64 bytes)
    {
        QMutexLocker l(&_lock);
        _s.bytes = bytes;
        ++_s.serial;
    }
    Snapshot read() const
    {
        QMutexLocker l(&_lock);
        return _s;
    }

private:
    mutable QMutex _lock;
    Snapshot _s;   // guarded by _lock
};
