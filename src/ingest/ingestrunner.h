#pragma once
// The card import service the screen observes. Lives on the GUI thread and owns one worker
// thread; IngestJob runs there. Observable values change on the GUI thread only: at phase changes
// (queued from the worker) and from a repeating timer that reads the progress box. One run at a
// time; start() while busy is refused.
#include "copyrecord.h"
#include "destresult.h"
#include "util/canceltoken.h"
#include "ingestjob.h"
#include "ingestphase.h"
#include "ingestprogressbox.h"

#include <QDateTime>
#include <QMetaType>
#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

class QThread;

Q_DECLARE_METATYPE(IngestPlan)

class IngestRunner : public QObject
{
    Q_OBJECT
public:
    explicit IngestRunner(QObject *parent = nullptr);
    ~IngestRunner() override;   // cancels a run in progress and waits for it

    // Starts an import; false when one is already running.
    bool start(const IngestRequest &request);
    // Reads and plans only (no copies): `planned` then `finished` with a report whose plan is set.
    bool preview(const IngestRequest &request);
    // "Verificar ahora" on the last run's copies (after a run without verification).
    bool verifyNow();
    void cancel();
    bool busy() const { return _busy; }

    // Observable state (GUI thread).
    IngestPhase phase() const { return _phase; }
    int done() const { return _done; }
    int total() const { return _total; }
    qint64 bytesDone() const { return _bytesDone; }
    qint64 bytesTotal() const { return _bytesTotal; }
    QString currentName() const { return _currentName; }
    int copied() const { return _report.copied; }
    int skipped() const { return _report.skipped; }
    QStringList errors() const;                      // every error line, destinations included
    QDateTime phaseStart() const { return _phaseStart; }
    QString resultFolder() const { return _report.resultFolder; }
    bool cancelled() const { return _report.cancelled; }
    bool willVerify() const { return _willVerify; }
    bool verified() const { return _report.verified; }
    int verifiedCount() const;
    int badCount() const;
    int destCount() const { return int(_report.dests.size()); }
    QList<DestResult> dests() const { return _report.dests; }
    const IngestReport &report() const { return _report; }
    IngestSummary summary() const { return _report.summary; }
    // Bytes per second over the current phase, and the seconds left (-1 when unknown).
    double rate() const;
    int secondsLeft() const;

    // Tests and the command line: the timer's period, and the hooks handed to every job.
    void setProgressInterval(int ms);
    void setHooks(const IngestJob::Hooks &hooks);

signals:
    void phaseChanged(IngestPhase phase);
    void progressChanged();                          // done, bytesDone or currentName moved
    void planned(const IngestPlan &plan);
    void finished();                                 // phase is `finished`; report() is final

private:
    IngestJob::Hooks jobHooks();
    void launch(std::function<IngestReport()> work);
    void pollProgress();
    void onPhase(IngestPhase phase, int filesTotal, qint64 bytesTotal);
    void onFinished(const IngestReport &report);

    QThread *_thread = nullptr;
    QObject *_context = nullptr;   // lives on _thread: jobs are queued to it
    QTimer _timer;
    CancelToken _cancel;
    IngestProgressBox _box;
    IngestJob::Hooks _hooks;
    quint64 _seenSerial = 0;

    bool _busy = false;
    IngestPhase _phase = IngestPhase::idle;
    int _done = 0, _total = 0;
    qint64 _bytesDone = 0, _bytesTotal = 0;
    QString _currentName;
    QDateTime _phaseStart;
    bool _willVerify = false;
    IngestReport _report;
};
