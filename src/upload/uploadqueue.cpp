#include "uploadqueue.h"

#include "filebytes.h"
#include "uploadservers.h"
#include "uploadtexts.h"

#include "model/filekinds.h"
#include "util/atomicfile.h"
#include "util/settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QStandardPaths>
#include <QUuid>
#include <atomic>
#include <cerrno>
#include <cstdio>

// One transfer or naming step under way: the worker writes `sent`, the GUI thread reads it and
// may raise `cancel`, which the progress callback passes to curl.
struct UploadQueue::Slot {
    int fileIndex = -1;   // -1: the naming step
    std::atomic<qint64> sent{0};
    std::atomic<bool> cancel{false};
};

struct UploadQueue::Result {
    TransferShim::Outcome outcome;
    QString error;          // a line of our own (the preparer's), shown as it is
    qint64 size = -1;       // bytes sent
    bool alreadyThere = false;
    QStringList names;      // of the naming step
};

namespace {

// The name a file gets on the server: its own, or ".jpg" when it is sent as a resized JPEG.
QString wantedName(const UploadJob &job, const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    if (job.resizeLongSide > 0 && !FileKinds::isJpeg(name))
        return FileKinds::baseNameOf(name) + QStringLiteral(".jpg");
    return name;
}

// Names for every file of the job that none of `taken` (lower-cased) has: the files of one shot
// (one base name) share the smallest suffix "-2", "-3"… that frees them all.
QStringList chooseNames(const UploadJob &job, QSet<QString> taken)
{
    QStringList out(job.files.size());
    QHash<QString, QList<int>> shots;   // lower-cased base name → files
    QStringList order;
    for (int i = 0; i < job.files.size(); ++i) {
        const QString key = FileKinds::baseNameOf(wantedName(job, job.files[i].path)).toLower();
        if (!shots.contains(key))
            order.append(key);
        shots[key].append(i);
    }
    for (const QString &key : order) {
        const QList<int> &members = shots[key];
        for (int n = 1;; ++n) {
            QStringList names;
            bool free = true;
            for (int i : members) {
                const QString name = wantedName(job, job.files[i].path);
                const QString ext = name.mid(FileKinds::baseNameOf(name).size());
                const QString candidate = n == 1 ? name : FileKinds::baseNameOf(name) + QStringLiteral("-%1").arg(n) + ext;
                free = free && !taken.contains(candidate.toLower()) && !names.contains(candidate, Qt::CaseInsensitive);
                names.append(candidate);
            }
            if (free) {
                for (int k = 0; k < members.size(); ++k) {
                    out[members[k]] = names[k];
                    taken.insert(names[k].toLower());
                }
                break;
            }
        }
    }
    return out;
}

// New for every attempt, so a server that keeps what a cut transfer left (or will not let it be
// overwritten) never has that fragment renamed into place. Not a dot-file: some servers, Corvane's
// own receiver among them, refuse those; the ".part" ending keeps watch-folder tools away.
QString tempNameFor(const QString &finalName, int attempt)
{
    return QStringLiteral("%1.corvane-%2.part").arg(finalName).arg(attempt);
}

// Whether an earlier, interrupted run already put the file in place: the name was free when it
// was chosen, so finding it means it is ours. A server that answers SIZE must also agree on it.
bool alreadySent(const UploadServer &server, const QString &name, qint64 size)
{
    QList<QByteArray> names;
    if (!TransferShim::list(server.connection(server.folderUrl()), &names).ok())
        return false;
    bool listed = false;
    for (const QByteArray &n : names)
        listed = listed || QString::fromUtf8(n).compare(name, Qt::CaseInsensitive) == 0;
    if (!listed)
        return false;
    const qint64 remote = TransferShim::remoteSize(server.connection(server.fileUrl(name)));
    return remote < 0 || remote == size;
}

} // namespace

QString UploadQueue::defaultJournalPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Corvane/envios.json");
}

UploadQueue::UploadQueue(const QString &journalPath, QObject *parent) : QObject(parent), _path(journalPath)
{
    _lookup = [](const QString &id) { return UploadServers::find(id); };
    _prepare = [](const UploadJob &, const QString &, QByteArray *, QString *) { return true; };
    _parallel = std::max(1, Settings::uploadParallel.get());
    QFile f(_path);
    if (f.open(QIODevice::ReadOnly))
        for (const QJsonValue &v : QJsonDocument::fromJson(f.readAll()).array()) {
            UploadJob job = UploadJob::fromJson(v.toObject());
            if (job.id.isEmpty() || job.state == UploadJob::State::done)
                continue;
            if (job.state == UploadJob::State::running || job.state == UploadJob::State::retrying)
                job.state = UploadJob::State::waiting;   // interrupted: runs again
            _jobs.append(job);
        }
    _progressTimer.setInterval(250);
    connect(&_progressTimer, &QTimer::timeout, this, &UploadQueue::readProgress);
    _clock.start();
}

UploadQueue::~UploadQueue()
{
    _closing = true;
    for (const auto &transfers : std::as_const(_slots))
        for (const auto &slot : transfers)
            slot->cancel = true;
    _pool.waitForDone();
}

void UploadQueue::setParallel(int transfers)
{
    _parallel = std::max(1, transfers);
    pump();
}

void UploadQueue::setRetryDelays(const QList<int> &ms, int maxFailures)
{
    if (!ms.isEmpty())
        _delays = ms;
    _maxFailures = std::max(1, maxFailures);
}

void UploadQueue::start()
{
    _started = true;
    _pool.setMaxThreadCount(_parallel + 1);
    pump();
}

QString UploadQueue::add(const QString &serverId, const QStringList &paths, const Options &options)
{
    UploadJob job;
    job.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    job.serverId = serverId;
    job.resizeLongSide = std::max(0, options.resizeLongSide);
    job.quality = std::clamp(options.quality, 1, 100);
    for (const QString &path : paths) {
        UploadFile f;
        f.path = QFileInfo(path).absoluteFilePath();
        f.size = QFileInfo(path).size();
        job.files.append(f);
    }
    if (const std::optional<UploadServer> server = _lookup(serverId))
        job.serverName = server->name;
    _jobs.append(job);
    save();
    emit changed();
    pump();
    return job.id;
}

UploadJob *UploadQueue::find(const QString &jobId)
{
    for (UploadJob &j : _jobs)
        if (j.id == jobId)
            return &j;
    return nullptr;
}

std::optional<UploadJob> UploadQueue::job(const QString &jobId) const
{
    for (const UploadJob &j : _jobs)
        if (j.id == jobId)
            return j;
    return std::nullopt;
}

bool UploadQueue::idle() const
{
    for (const UploadJob &j : _jobs)
        if (!j.finished())
            return false;
    return _slots.isEmpty();
}

bool UploadQueue::inFlight(const QString &jobId) const { return _slots.contains(jobId); }

void UploadQueue::cancel(const QString &jobId)
{
    UploadJob *job = find(jobId);
    if (!job || job->finished())
        return;
    job->state = UploadJob::State::cancelled;
    job->error.clear();
    _retryAt.remove(jobId);
    for (const auto &slot : _slots.value(jobId))
        slot->cancel = true;
    save();
    emit changed();
    emit jobFinished(jobId);
    if (idle())
        emit idleNow();
}

void UploadQueue::retry(const QString &jobId)
{
    UploadJob *job = find(jobId);
    if (!job || (job->state != UploadJob::State::failed && job->state != UploadJob::State::cancelled))
        return;
    job->state = UploadJob::State::waiting;
    job->error.clear();
    job->failures = 0;
    save();
    emit changed();
    pump();
}

void UploadQueue::clearFinished()
{
    _jobs.removeIf([this](const UploadJob &j) { return j.finished() && !inFlight(j.id); });
    save();
    emit changed();
}

void UploadQueue::pump()
{
    if (!_started || _closing)
        return;
    int running = 0;
    for (const auto &transfers : std::as_const(_slots))
        running += int(transfers.size());
    const qint64 now = _clock.elapsed();
    for (UploadJob &job : _jobs) {
        if (running >= _parallel)
            break;
        if (job.finished())
            continue;
        if (job.state == UploadJob::State::retrying) {
            if (_retryAt.value(job.id) > now)
                continue;
            job.state = UploadJob::State::waiting;
        }
        // Naming comes first, alone; then the job's files, as many at once as slots are free.
        if (!job.named && inFlight(job.id))
            continue;
        std::optional<UploadServer> server = _lookup(job.serverId);
        if (!server) {
            job.state = UploadJob::State::failed;
            job.error = QStringLiteral("el servidor ya no está en la lista");
            save();
            emit changed();
            emit jobFinished(job.id);
            continue;
        }
        if (!job.named) {
            job.state = UploadJob::State::running;
            startNaming(job, *server);
            ++running;
            continue;
        }
        for (int i = 0; i < job.files.size() && running < _parallel; ++i) {
            if (job.files[i].done)
                continue;
            bool busy = false;
            for (const auto &slot : _slots.value(job.id))
                busy = busy || slot->fileIndex == i;
            if (busy)
                continue;
            job.state = UploadJob::State::running;
            startTransfer(job, i, *server);
            ++running;
        }
    }
    if (!_slots.isEmpty() && !_progressTimer.isActive())
        _progressTimer.start();
}

void UploadQueue::startNaming(UploadJob &job, const UploadServer &server)
{
    auto slot = std::make_shared<Slot>();
    _slots[job.id].append(slot);
    // Names that other unfinished jobs to the same folder have chosen but not yet sent.
    QSet<QString> reserved;
    for (const UploadJob &other : std::as_const(_jobs))
        if (other.id != job.id && other.serverId == job.serverId && !other.finished())
            for (const UploadFile &f : other.files)
                if (!f.remoteName.isEmpty())
                    reserved.insert(f.remoteName.toLower());
    const QString id = job.id;
    const UploadJob copy = job;
    _pool.start([this, id, copy, server, reserved, slot] {
        Result r;
        QList<QByteArray> names;
        r.outcome = TransferShim::list(server.connection(server.folderUrl()), &names);
        if (r.outcome.code == 9 || r.outcome.code == 78)   // a folder still to be made holds nothing
            r.outcome = {};
        if (r.outcome.ok()) {
            QSet<QString> taken = reserved;
            for (const QByteArray &n : names)
                taken.insert(QString::fromUtf8(n).toLower());
            r.names = chooseNames(copy, taken);
        }
        QMetaObject::invokeMethod(this, [this, id, r] { finishNaming(id, r); }, Qt::QueuedConnection);
    });
}

void UploadQueue::finishNaming(const QString &jobId, const Result &result)
{
    _slots.remove(jobId);
    UploadJob *job = find(jobId);
    if (_closing || !job)
        return;
    if (job->state == UploadJob::State::cancelled) {
        // nothing to do: it stays cancelled
    } else if (result.outcome.ok()) {
        for (int i = 0; i < job->files.size() && i < result.names.size(); ++i)
            job->files[i].remoteName = result.names[i];
        job->named = true;
        job->failures = 0;
        save(false);
    } else {
        failure(*job, result);
    }
    emit changed();
    pump();
    if (idle())
        emit idleNow();
}

void UploadQueue::startTransfer(UploadJob &job, int fileIndex, const UploadServer &server)
{
    auto slot = std::make_shared<Slot>();
    slot->fileIndex = fileIndex;
    _slots[job.id].append(slot);
    UploadFile &file = job.files[fileIndex];
    const bool checkFirst = file.attempts > 0;   // an earlier transfer may have completed
    ++file.attempts;
    file.sent = 0;
    save(false);
    const QString id = job.id;
    const UploadJob copy = job;
    const Preparer prepare = _prepare;
    _pool.start([this, id, fileIndex, copy, server, slot, checkFirst, prepare] {
        Result r;
        const UploadFile &file = copy.files[fileIndex];
        QByteArray prepared;
        QString error;
        std::optional<FileBytes> mapped;
        const char *bytes = nullptr;
        if (!prepare(copy, file.path, &prepared, &error)) {
            r.error = error;
        } else if (!prepared.isNull()) {
            bytes = prepared.constData();
            r.size = prepared.size();
        } else if (mapped.emplace(file.path); mapped->isOpen()) {
            bytes = mapped->data();
            r.size = mapped->size();
        } else {
            r.error = QStringLiteral("no se puede leer «%1»").arg(QFileInfo(file.path).fileName());
        }
        if (!r.error.isEmpty()) {
            r.outcome.code = -3;
        } else {
            if (checkFirst && alreadySent(server, file.remoteName, r.size)) {
                r.alreadyThere = true;
            } else {
                const QByteArray finalName = file.remoteName.toUtf8();
                // Progress goes into the slot; the callback also answers the cancel flag.
                struct Context {
                    std::atomic<qint64> *sent;
                    std::atomic<bool> *cancel;
                } context{&slot->sent, &slot->cancel};
                auto forward = [](void *c, int64_t sent, int64_t) -> int {
                    auto *ctx = static_cast<Context *>(c);
                    ctx->sent->store(sent, std::memory_order_relaxed);
                    return ctx->cancel->load() ? 1 : 0;
                };
                if (server.tempName) {
                    const QByteArray temp = tempNameFor(file.remoteName, file.attempts).toUtf8();
                    r.outcome = TransferShim::upload(server.connection(server.fileUrl(QString::fromUtf8(temp))),
                                                     bytes, r.size, temp, finalName, forward, &context);
                    // A cut transfer leaves its fragment under the temporary name: take it away
                    // rather than leave the client's folder littered with .part files.
                    if (!r.outcome.ok())
                        TransferShim::remove(server.connection(server.folderUrl()), temp);
                } else {
                    r.outcome = TransferShim::upload(server.connection(server.fileUrl(file.remoteName)),
                                                     bytes, r.size, {}, {}, forward, &context);
                }
            }
        }
        QMetaObject::invokeMethod(this, [this, id, fileIndex, r] { finishTransfer(id, fileIndex, r); },
                                  Qt::QueuedConnection);
    });
}

void UploadQueue::finishTransfer(const QString &jobId, int fileIndex, const Result &result)
{
    auto &transfers = _slots[jobId];
    transfers.removeIf([fileIndex](const std::shared_ptr<Slot> &s) { return s->fileIndex == fileIndex; });
    if (transfers.isEmpty())
        _slots.remove(jobId);
    UploadJob *job = find(jobId);
    if (_closing || !job)
        return;
    UploadFile &file = job->files[fileIndex];
    if (result.size >= 0)
        file.size = result.size;
    if (result.outcome.ok() && result.error.isEmpty()) {
        file.done = true;
        file.sent = file.size;
        job->failures = 0;
        if (job->filesDone() == job->files.size()) {
            job->state = UploadJob::State::done;
            job->error.clear();
            job->speed = 0;
            emit jobFinished(jobId);
        }
    } else if (job->state != UploadJob::State::cancelled && job->state != UploadJob::State::failed) {
        file.sent = 0;
        failure(*job, result);
    } else {
        file.sent = 0;
    }
    save(false);
    emit changed();
    pump();
    if (idle())
        emit idleNow();
}

void UploadQueue::failure(UploadJob &job, const Result &result)
{
    const int code = result.outcome.code;
    const QString text = result.error.isEmpty() ? UploadTexts::forResult(code, result.outcome.text) : result.error;
    if (UploadTexts::isRetryable(code) && job.failures + 1 < _maxFailures) {
        const int delay = _delays[std::min<qsizetype>(job.failures, _delays.size() - 1)];
        ++job.failures;
        job.state = UploadJob::State::retrying;
        job.error = text;
        _retryAt[job.id] = _clock.elapsed() + delay;
        QTimer::singleShot(delay, this, &UploadQueue::pump);
        return;
    }
    job.state = UploadJob::State::failed;
    job.error = text;
    for (const auto &slot : _slots.value(job.id))
        slot->cancel = true;
    emit jobFinished(job.id);
}

void UploadQueue::readProgress()
{
    if (_slots.isEmpty()) {
        _progressTimer.stop();
        _speedSample.clear();
    }
    const qint64 now = _clock.elapsed();
    for (UploadJob &job : _jobs) {
        const auto transfers = _slots.value(job.id);
        if (transfers.isEmpty()) {
            job.speed = 0;
            continue;
        }
        for (const auto &slot : transfers)
            if (slot->fileIndex >= 0)
                job.files[slot->fileIndex].sent = slot->sent.load(std::memory_order_relaxed);
        // Speed over the last samples, smoothed so the time left does not jump.
        const qint64 done = job.bytesDone();
        const auto last = _speedSample.value(job.id, {now, done});
        if (now > last.first) {
            const double instant = double(done - last.second) * 1000.0 / double(now - last.first);
            job.speed = job.speed > 0 ? job.speed * 0.7 + instant * 0.3 : instant;
        }
        _speedSample[job.id] = {now, done};
    }
    emit changed();
}

void UploadQueue::save(bool durable)
{
    QJsonArray array;
    for (const UploadJob &j : std::as_const(_jobs))
        array.append(j.toJson());
    const QByteArray data = QJsonDocument(array).toJson(QJsonDocument::Compact);
    QDir().mkpath(QFileInfo(_path).absolutePath());
    if (durable) {
        _journalError = AtomicFile::write(_path, data).error;
        return;
    }
    // Still a whole new file renamed over the old one, so a killed process leaves one or the
    // other; only the sync is left out. On ext4 a sync also writes out everything the server
    // side of a loopback test (or any other program) has pending, which cost a fifth of a
    // second per file. A power cut may lose the last seconds of steps (the kernel writes them out
    // within seconds); a killed process loses none.
    const QString temp = QFileInfo(_path).absolutePath() + QStringLiteral("/.envios.json.part");
    QFile f(temp);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(data) != data.size()) {
        _journalError = AtomicFile::describeErrno(errno);
        return;
    }
    f.close();
    _journalError = std::rename(QFile::encodeName(temp).constData(), QFile::encodeName(_path).constData()) == 0
                        ? QString()
                        : AtomicFile::describeErrno(errno);
}
