#pragma once
// Scores every shot of the open folder in the background. Its workers run at the lowest CPU
// priority and beside (never inside) the image pipeline's queues, so thumbnails and previews are
// never kept waiting; results already in the cache come back at once without decoding. Results
// reach the GUI thread in batches, a few times a second, through `measured`. Starting a new folder
// drops the old folder's waiting work. Lives on the GUI thread.
#include "sharpness.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPointF>
#include <QSet>
#include <QString>
#include <QUuid>
#include <atomic>
#include <memory>
#include <utility>

class QTimer;
class SharpnessCache;
class WorkQueue;

class SharpnessAnalyzer : public QObject
{
    Q_OBJECT
public:
    struct Job {
        QUuid id;
        QString path;       // the file the shot is seen through (a pair's JPEG)
        bool isRaw = false;
    };
    using Results = QHash<QUuid, std::pair<double, QPointF>>;

    // `width` workers (0: half the cores, at least one); `cache` defaults to the shared one.
    explicit SharpnessAnalyzer(QObject *parent = nullptr, int width = 0, SharpnessCache *cache = nullptr);
    ~SharpnessAnalyzer() override;

    // Forgets the previous folder's work and measures these shots.
    void start(const QList<Job> &jobs);
    // More shots of the same folder (files that arrived); shots already queued are ignored.
    void add(const QList<Job> &jobs);
    void cancel();

    bool isBusy() const { return _done < _total; }
    int done() const { return _done; }
    int total() const { return _total; }

    // Waits for the workers (tests, shutdown); results still reach `measured` through the event loop.
    void waitForDone();

signals:
    void measured(const SharpnessAnalyzer::Results &results);
    // Shots whose file could not be decoded at all.
    void unreadable(const QList<QUuid> &ids);
    void progressChanged(int done, int total);   // total 0: nothing under way
    void finished();

private:
    struct Outcome {
        QUuid id;
        std::optional<SharpResult> result;
    };
    void enqueue(const QList<Job> &jobs);
    void noteOutcome(quint64 generation, Outcome outcome);   // any thread
    void flush();                                             // GUI thread
    void saveCache();

    SharpnessCache *_cache;
    std::unique_ptr<WorkQueue> _queue;
    std::atomic<quint64> _generation{0};
    QSet<QUuid> _queued;   // this folder's shots handed to the workers
    int _done = 0, _total = 0;
    int _nextPriority = 0;
    QTimer *_flushTimer;

    QMutex _lock;
    QList<Outcome> _pending;    // guarded by _lock
    bool _flushAsked = false;   // guarded by _lock
};
