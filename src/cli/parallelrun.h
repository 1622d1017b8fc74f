#pragma once
// Runs work(i) for i in [0, count) on `threads` worker threads while the calling thread draws a
// progress bar; returns when every call has finished. Each call must write only its own slot.
#include "terminalprogress.h"

#include <QMutex>
#include <QThreadPool>
#include <QWaitCondition>
#include <functional>

inline void parallelRun(qsizetype count, int threads, const QString &label, const std::function<void(qsizetype)> &work)
{
    QThreadPool pool;
    pool.setMaxThreadCount(threads);
    QMutex lock;
    QWaitCondition progressed;
    qsizetype done = 0;
    for (qsizetype i = 0; i < count; ++i) {
        pool.start([&, i] {
            work(i);
            QMutexLocker locker(&lock);
            ++done;
            progressed.wakeAll();
        });
    }
    {
        TerminalProgress bar;
        QMutexLocker locker(&lock);
        while (done < count) {
            bar.update(label, done, count);
            progressed.wait(&lock, 100);
        }
        bar.finish();
    }
    pool.waitForDone();
}
