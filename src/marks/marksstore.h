#pragma once
// The single writer of per-folder marks files. schedule() may be called from any thread; the
// encoding and the writes run on the store's own thread ("com.tessaly.corvane.marks"), 0.4 s
// after the last change of a burst. Failures are reported through writeFailed (queued to the
// receiver's thread) and the folder's map is written again at the next scheduling.
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

    // Queues a folder's whole map for writing (a newer map replaces an older one).
    void schedule(const QString &folder, const MarksMap &marks);
    // Queues camera offsets to be written with the folder's next write.
    void scheduleOffsets(const QString &folder, const CameraOffsets &offsets);
    // Writes every pending folder now and returns when the files are on disk.
    void flush();
    // Number of folder writes done so far (tests observe the debounce with it).
    int writeCount() const;

signals:
    void writeFailed(const QString &message);

private:
    void flushOnQueue();

    struct Pending {
        QString folder;
        MarksMap marks;
    };
    mutable QMutex lock;
    QHash<QString, Pending> pending;           // guarded by lock
    QHash<QString, CameraOffsets> offsets;     // guarded by lock
    int writes = 0;                            // guarded by lock

    QThread queue;
    QObject *queueContext = nullptr;   // lives on `queue`
    QTimer *workItem = nullptr;        // lives on `queue`; restarted by every schedule()
};
