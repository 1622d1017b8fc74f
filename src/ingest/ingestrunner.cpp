#include "ingestrunner.h"

#include <QMetaObject>
#include <QThread>

IngestRunner::IngestRunner(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<IngestPhase>();
    qRegisterMetaType<IngestPlan>();
    _thread = new QThread;
    _thread->setObjectName(QStringLiteral("corvane-ingest"));
    _thread->start();
    _context = new QObject;
    _context->moveToThread(_thread);
    _timer.setInterval(100);
    connect(&_timer, &QTimer::timeout, this, &IngestRunner::pollProgress);
}

IngestRunner::~IngestRunner()
{
    _cancel.cancel();
    _thread->quit();
    _thread->wait();
    delete _context;
    delete _thread;
}

void IngestRunner::setProgressInterval(int ms) { _timer.setInterval(ms); }

void IngestRunner::setHooks(const IngestJob::Hooks &hooks) { _hooks = hooks; }

IngestJob::Hooks IngestRunner::jobHooks()
{
    // The job runs on the worker: its phase changes and its plan reach this object queued.
    IngestJob::Hooks hooks = _hooks;
    const IngestJob::Hooks mine = _hooks;
    hooks.phase = [this, mine](IngestPhase phase, int files, qint64 bytes) {
        if (mine.phase)
            mine.phase(phase, files, bytes);
        QMetaObject::invokeMethod(this, [this, phase, files, bytes] { onPhase(phase, files, bytes); }, Qt::QueuedConnection);
    };
    hooks.planned = [this, mine](const IngestPlan &plan) {
        if (mine.planned)
            mine.planned(plan);
        QMetaObject::invokeMethod(this, [this, plan] { emit planned(plan); }, Qt::QueuedConnection);
    };
    return hooks;
}

void IngestRunner::launch(std::function<IngestReport()> work)
{
    _busy = true;
    _cancel.reset();
    _done = _total = 0;
    _bytesDone = _bytesTotal = 0;
    _currentName.clear();
    _seenSerial = 0;
    _timer.start();
    QMetaObject::invokeMethod(_context, [this, work] {
        const IngestReport report = work();
        QMetaObject::invokeMethod(this, [this, report] { onFinished(report); }, Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}

bool IngestRunner::start(const IngestRequest &request)
{
    if (_busy)
        return false;
    _report = IngestReport{};
    _willVerify = request.options.verify && !request.dryRun;
    const IngestJob::Hooks hooks = jobHooks();
    launch([this, request, hooks] { return IngestJob(request, &_cancel, &_box, hooks).run(); });
    return true;
}

bool IngestRunner::preview(const IngestRequest &request)
{
    IngestRequest dry = request;
    dry.dryRun = true;
    return start(dry);
}

bool IngestRunner::verifyNow()
{
    if (_busy || _report.records.isEmpty())
        return false;
    _willVerify = true;
    const IngestJob::Hooks hooks = jobHooks();
    IngestReport report = _report;
    launch([this, report, hooks]() mutable {
        IngestJob::verifyNow(report, &_cancel, &_box, hooks);
        return report;
    });
    return true;
}

void IngestRunner::cancel() { _cancel.cancel(); }

QStringList IngestRunner::errors() const
{
    QStringList all = _report.errors;
    for (const DestResult &d : _report.dests)
        all += d.errors;
    return all;
}

int IngestRunner::verifiedCount() const
{
    int n = 0;
    for (const DestResult &d : _report.dests)
        n += d.verifiedOK;
    return n;
}

int IngestRunner::badCount() const
{
    int n = 0;
    for (const DestResult &d : _report.dests)
        n += d.verifyBad;
    return n;
}

double IngestRunner::rate() const
{
    if (!_phaseStart.isValid())
        return 0;
    const qint64 ms = _phaseStart.msecsTo(QDateTime::currentDateTimeUtc());
    return ms > 0 ? double(_bytesDone) * 1000.0 / double(ms) : 0;
}

int IngestRunner::secondsLeft() const
{
    const double r = rate();
    if (r <= 0 || _bytesTotal <= 0 || _bytesDone <= 0)
        return -1;
    return int(double(_bytesTotal - _bytesDone) / r + 0.5);
}

void IngestRunner::pollProgress()
{
    const IngestProgressBox::Snapshot s = _box.read();
    if (s.serial == _seenSerial)
        return;
    _seenSerial = s.serial;
    _bytesDone = s.bytes;
    _done = s.done;
    _currentName = s.name;
    emit progressChanged();
}

void IngestRunner::onPhase(IngestPhase phase, int filesTotal, qint64 bytesTotal)
{
    // The end is announced by onFinished, once the report is here.
    if (phase == IngestPhase::finished || !_busy)
        return;
    pollProgress();
    _phase = phase;
    _total = filesTotal;
    _bytesTotal = bytesTotal;
    _done = 0;
    _bytesDone = 0;
    _currentName.clear();
    _phaseStart = QDateTime::currentDateTimeUtc();
    emit phaseChanged(phase);
    emit progressChanged();
}

void IngestRunner::onFinished(const IngestReport &report)
{
    _timer.stop();
    pollProgress();
    _report = report;
    _busy = false;
    _phase = IngestPhase::finished;
    emit phaseChanged(_phase);
    emit finished();
}
