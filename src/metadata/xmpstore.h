#pragma once
// The one reader and writer of XMP sidecars. Every read and write runs on the store's own
// thread ("com.tessaly.corvane.xmp"), one after another, so two writes of one sidecar never
// interleave and the GUI thread never touches a sidecar. Single writes are debounced: a burst of
// marking writes each sidecar once, 0.4 s after its last change; a read or a batch first writes
// what is waiting. The public functions may be called from any thread and do not wait, except
// flush() and waitForIdle(). Results arrive through the signals, queued to the receiver's thread.
#include "xmpstate.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>

class AtomicBatch;
class QTimer;

class XMPStore : public QObject
{
    Q_OBJECT
public:
    static constexpr int kDebounceMs = 400;
    // A batch's sidecars are put in place this many at a time, one disk flush each.
    static constexpr int kBatchFiles = 4096;

    struct Job {
        QString sidecar;
        XmpState state;
        // The image whose own EXIF orientation the written orientation starts from, read on the
        // store's thread when `state` carries none and the sidecar may hold a turn.
        QString image;
    };

    explicit XMPStore(QObject *parent = nullptr);
    ~XMPStore() override;   // finishes the work already handed over

    // The texts of colours 1…5 used from now on; the settings' list at first.
    void setLabels(const QStringList &labels);
    QStringList labels() const;

    // Writes one sidecar. A newer state for a sidecar still waiting replaces the older one.
    void write(const QString &sidecar, const XmpState &state, const QString &image = {});
    // Writes what is waiting now and returns when it is on disk.
    void flush();
    // Writes many (the export of a folder), reporting progress; returns the batch's number.
    quint64 writeAll(const QList<Job> &jobs);
    // Reads the sidecars; those that are missing or cannot be understood are left out.
    void read(const QStringList &sidecars, quint64 generation);
    // Returns when everything handed over so far is done.
    void waitForIdle();

signals:
    void writeFailed(const QString &message);
    void batchProgress(quint64 batch, int done, int total);
    void batchFinished(quint64 batch, int written, int failed);
    void sidecarsRead(quint64 generation, const QHash<QString, XmpState> &states);

private:
    void drainOnQueue();
    // Puts a batch's sidecars in place; reports and counts those that could not be.
    int commitOnQueue(AtomicBatch &files);

    mutable QMutex lock;
    QStringList _labels;                      // guarded by lock
    QHash<QString, Job> pending;              // guarded by lock
    QStringList pendingOrder;                 // guarded by lock; the sidecars of `pending`, oldest first
    quint64 batches = 0;                      // guarded by lock

    QThread queue;
    QObject *queueContext = nullptr;   // lives on `queue`
    QTimer *workItem = nullptr;        // lives on `queue`; restarted by every write()
};
