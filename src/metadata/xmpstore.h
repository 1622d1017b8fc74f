#pragma once
// The one reader and writer of XMP sidecars. Every read and write runs on the store's own
// thread ("com.tessaly.corvane.xmp"), one after another, so two writes of one sidecar never
// interleave and the GUI thread never touches a sidecar. The public functions may be called
// from any thread and do not wait, except waitForIdle(). Results arrive through the signals,
// queued to the receiver's thread.
#include "xmpstate.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>

class XMPStore : public QObject
{
    Q_OBJECT
public:
    struct Job {
        QString sidecar;
        XmpState state;
    };

    explicit XMPStore(QObject *parent = nullptr);
    ~XMPStore() override;   // finishes the work already handed over

    // The texts of colours 1…5 used from now on; the settings' list at first.
    void setLabels(const QStringList &labels);
    QStringList labels() const;

    // Writes one sidecar. A newer state for a sidecar still waiting replaces the older one.
    void write(const QString &sidecar, const XmpState &state);
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

    mutable QMutex lock;
    QStringList _labels;                      // guarded by lock
    QHash<QString, XmpState> pending;         // guarded by lock
    QStringList pendingOrder;                 // guarded by lock; the sidecars of `pending`, oldest first
    bool drainPosted = false;                 // guarded by lock
    quint64 batches = 0;                      // guarded by lock

    QThread queue;
    QObject *queueContext = nullptr;   // lives on `queue`
};
