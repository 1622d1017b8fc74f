#pragma once
// The single writer of per-folder marks files. schedule() may be called from any thread; the
// encoding and the writes run on the store's own thread ("com.tessaly.corvane.marks"), 0.4 s
// after the last change of a burst. Only the keys this process changed are written, merged into
// the file as it is on disk under the folder's lock, so another process marking the same folder
// (the command line, a second computer) loses nothing. Failures are reported through writeFailed
// (queued to the receiver's thread) and the folder's changes are written again at the next
// scheduling.
#include "marksfile.h"

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QThread>
#include <optional>

class QTimer;

class MarksStore : public QObject
{
    Q_OBJECT
public:
    static constexpr int kDebounceMs = 400;

    explicit MarksStore(QObject *parent = nullptr);
    ~MarksStore() override;   // flushes what is pending

    // Queues a folder's changes: its whole map as this process sees it and the keys changed
    // since the last scheduling (a newer map replaces an older one; the keys add up).
    void schedule(const QString &folder, const MarksMap &marks, const QSet<QString> &changed);
    // Queues camera offsets to be written with the folder's next write.
    void scheduleOffsets(const QString &folder, const CameraOffsets &offsets);
    // Writes every pending folder now and returns when the files are on disk.
    void flush();
    // Number of folder writes done so far (tests observe the debounce with it; a reader of the
    // file that saw it change underneath knows its copy may be older than a write of ours).
    int writeCount() const;
    // The keys of a folder waiting to be written or being written now.
    QSet<QString> unwrittenKeys(const QString &folder) const;

signals:
    void writeFailed(const QString &message);

private:
    void flushOnQueue();

    struct Pending {
        QString folder;
        MarksMap marks;
        QSet<QString> changed;
    };
    mutable QMutex lock;
    QHash<QString, Pending> pending;           // guarded by lock
    QHash<QString, QSet<QString>> writing;     // guarded by lock; keys of the flush under way
    QHash<QString, CameraOffsets> offsets;     // guarded by lock
    int writes = 0;                            // guarded by lock

    QThread queue;
    QObject *queueContext = nullptr;   // lives on `queue`
    QTimer *workItem = nullptr;        // lives on `queue`; restarted by every schedule()
};
