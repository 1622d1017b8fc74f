#pragma once
// Atomic replacement of many small files with one flush of the disk for all of them. Each file is
// written to a hidden temporary beside its target; commit() flushes the file system once
// (syncfs), renames every temporary over its target, and syncs each folder once. A crash leaves
// each target old or new, never a mix or empty, as AtomicFile::write does for one file, but a
// thousand sidecars cost one disk flush instead of two thousand. One thread at a time.
#include "atomicfile.h"

#include <QList>
#include <QString>

#include <sys/types.h>

class AtomicBatch
{
public:
    AtomicBatch() = default;
    AtomicBatch(const AtomicBatch &) = delete;
    AtomicBatch &operator=(const AtomicBatch &) = delete;
    ~AtomicBatch();   // removes the temporaries of a batch never committed

    // Writes `data` for `target` (with permissions `mode`); the target is untouched until commit().
    AtomicFile::Result add(const QString &target, const QByteArray &data, mode_t mode = 0644);
    // Takes over a temporary the caller wrote (and checked) beside `target`, by its native path.
    void adopt(const QString &target, const QByteArray &temp) { _pending.append({target, temp}); }
    qsizetype size() const { return _pending.size(); }

    struct Failure {
        QString target;
        AtomicFile::Result result;
    };
    // Puts every file added so far in place; returns those that could not be.
    QList<Failure> commit();

private:
    struct Pending {
        QString target;
        QByteArray temp;   // native path
    };
    QList<Pending> _pending;
};
