#pragma once
// The background upload queue. Jobs are kept in a journal on disk (rewritten whole and atomically
// at every step), so after a crash or a restart the jobs that were pending run again. Each file
// gets its name on the server once, before its first byte goes out (never replacing a file there,
// "-2", "-3"… as needed, one suffix per shot); a file whose transfer may have completed before the
// interruption is looked up on the server first, so nothing arrives twice.
//
// Thread rules: the queue lives on the thread that made it (the GUI thread) and is used only
// there. Transfers run on its own pool, `parallel` at a time; their results come back queued, and
// a timer reads their progress. The server lookup runs on the queue's thread, the preparer on the
// pool's threads.
#include "uploadjob.h"
#include "uploadserver.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>

// How a job's files are sent: as they are, or as JPEGs of a long side at a quality.
struct UploadOptions {
    int resizeLongSide = 0;
    int quality = 90;
};

class UploadQueue : public QObject
{
    Q_OBJECT
public:
    using Options = UploadOptions;
    using ServerLookup = std::function<std::optional<UploadServer>(const QString &id)>;
    // Makes the bytes to send for one file of a job (a resized copy, say); false and a Spanish
    // line when it cannot. Leaving `bytes` null sends the file as it is (the default).
    using Preparer = std::function<bool(const UploadJob &job, const QString &path, QByteArray *bytes, QString *error)>;

    // "~/.local/share/Corvane/envios.json".
    static QString defaultJournalPath();

    // Loads the journal; nothing runs until start().
    explicit UploadQueue(const QString &journalPath = defaultJournalPath(), QObject *parent = nullptr);
    // Stops the transfers under way (they stay pending in the journal) and waits for them.
    ~UploadQueue() override;

    void setParallel(int transfers);
    // Waits between network failures, in milliseconds; the last repeats. After `maxFailures` in
    // a row the job fails with the last failure's text.
    void setRetryDelays(const QList<int> &ms, int maxFailures);
    void setServerLookup(ServerLookup lookup) { _lookup = std::move(lookup); }
    void setPreparer(Preparer preparer) { _prepare = std::move(preparer); }
    void start();

    // A new job for `paths` to the server `serverId`; returns its id.
    QString add(const QString &serverId, const QStringList &paths, const UploadOptions &options = UploadOptions());
    void cancel(const QString &jobId);
    // Runs a failed or cancelled job again from the files not yet sent.
    void retry(const QString &jobId);
    // Forgets finished jobs.
    void clearFinished();

    QList<UploadJob> jobs() const { return _jobs; }
    std::optional<UploadJob> job(const QString &jobId) const;
    // Nothing waiting, retrying or running.
    bool idle() const;
    QString journalError() const { return _journalError; }

signals:
    void changed();
    void jobFinished(const QString &jobId);
    void idleNow();

private:
    struct Slot;
    struct Result;
    UploadJob *find(const QString &jobId);
    void pump();
    void startNaming(UploadJob &job, const UploadServer &server);
    void startTransfer(UploadJob &job, int fileIndex, const UploadServer &server);
    void finishNaming(const QString &jobId, const Result &result);
    void finishTransfer(const QString &jobId, int fileIndex, const Result &result);
    void failure(UploadJob &job, const Result &result);
    void readProgress();
    // `durable`: synced to disk (new jobs and the user's own actions); otherwise only renamed
    // into place, which a killed process cannot undo either.
    void save(bool durable = true);
    bool inFlight(const QString &jobId) const;

    QString _path;
    QString _journalError;
    QList<UploadJob> _jobs;
    QThreadPool _pool;
    int _parallel = 2;
    QList<int> _delays{2000, 5000, 15000, 30000, 60000};
    int _maxFailures = 10;
    ServerLookup _lookup;
    Preparer _prepare;
    bool _started = false;
    bool _closing = false;
    QHash<QString, QList<std::shared_ptr<Slot>>> _slots;   // by job id: transfers under way
    QHash<QString, qint64> _retryAt;                       // by job id: when the back-off ends
    QTimer _progressTimer;
    QElapsedTimer _clock;
    QHash<QString, QPair<qint64, qint64>> _speedSample;     // by job id: (ms, bytes done)
};
