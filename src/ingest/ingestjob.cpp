#include "ingestjob.h"

#include "cardejector.h"
#include "cardscanner.h"
#include "importedrecord.h"
#include "ingestprogressbox.h"
#include "sha256.h"

#include "metadata/iptcbatch.h"
#include "util/atomicfile.h"
#include "util/canceltoken.h"
#include "util/fileio.h"
#include "util/partfiles.h"
#include "util/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QUuid>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

// The reason of a failed system call, as a short Spanish phrase.
QString reason(int e)
{
    if (e == EFBIG)
        return QStringLiteral("el archivo es demasiado grande para ese disco");
    return AtomicFile::describeErrno(e);
}

bool isCancelled(const CancelToken *c) { return c && c->isCancelled(); }

QString folderOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

// The folder the result opens in: the deepest folder holding every copy on the working disk.
QString commonFolder(const QString &root, const QList<PlannedFile> &files)
{
    if (files.isEmpty())
        return root;
    QStringList common = files.first().relPath.split(QLatin1Char('/'));
    common.removeLast();
    for (const PlannedFile &f : files) {
        QStringList parts = f.relPath.split(QLatin1Char('/'));
        parts.removeLast();
        qsizetype n = 0;
        while (n < common.size() && n < parts.size() && common[n] == parts[n])
            ++n;
        common = common.mid(0, n);
    }
    return common.isEmpty() ? root : root + QLatin1Char('/') + common.join(QLatin1Char('/'));
}

// One destination file being written.
struct Target {
    int dest = 0;
    QString finalPath;
    QString tempPath;
    UniqueFd fd;   // holds an exclusive lock on the part file while it is written
};

class Copier
{
public:
    Copier(IngestReport &report, const QStringList &roots, const QList<bool> &usable, CancelToken *cancel,
           IngestProgressBox *progress, const IngestJob::Hooks &hooks)
        : _r(report), _roots(roots), _usable(usable), _cancel(cancel), _progress(progress), _hooks(hooks),
          _buffer(new char[size_t(Sha256::kChunk)])
    {
    }

    // Copies every planned file; returns false when cancelled.
    bool run()
    {
        const QList<PlannedFile> &files = _r.plan.files;
        for (int i = 0; i < files.size(); ++i) {
            if (isCancelled(_cancel))
                return false;
            hintNext(i + 1);
            if (!copyOne(files[i], i))
                return false;
            _bytesBase += files[i].size;
            _progress->set(_bytesBase, i + 1, files[i].name());
        }
        return true;
    }

    const QSet<QString> &foldersTouched() const { return _folders; }

private:
    // Let the card start reading the next file while this one is written.
    void hintNext(int index)
    {
        if (index >= _r.plan.files.size())
            return;
        const UniqueFd fd(::open(QFile::encodeName(_r.plan.files[index].src).constData(), O_RDONLY | O_CLOEXEC));
        if (fd)
            ::posix_fadvise(fd.get(), 0, qMin<qint64>(_r.plan.files[index].size, 64 << 20), POSIX_FADV_WILLNEED);
    }

    void fail(int dest, const QString &name, const QString &what)
    {
        DestResult &d = _r.dests[dest];
        ++d.failed;
        d.errors.append(name + QStringLiteral(": ") + what);
    }

    void discard(Target &t)
    {
        t.fd.reset();
        ::unlink(QFile::encodeName(t.tempPath).constData());
    }

    bool open(Target &t, const PlannedFile &f, const QString &name)
    {
        const QString folder = folderOf(t.finalPath);
        if (const int e = FileIo::makePath(folder)) {
            fail(t.dest, name, QStringLiteral("no se puede crear el archivo (%1)").arg(reason(e)));
            return false;
        }
        t.tempPath = folder + QStringLiteral("/.corvane-") + QUuid::createUuid().toString(QUuid::WithoutBraces)
                     + QStringLiteral(".part");
        t.fd.reset(::open(QFile::encodeName(t.tempPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (!t.fd) {
            fail(t.dest, name, QStringLiteral("no se puede crear el archivo (%1)").arg(reason(errno)));
            return false;
        }
        // Held until the part is renamed or removed, so a second import cleaning stale parts
        // leaves this one alone.
        PartFiles::hold(t.fd.get());
        // Reserve the space up front: a full disk says so now rather than after most of the
        // file. KEEP_SIZE leaves the size to the bytes written, which the size check relies on.
        if (f.size > 0 && ::fallocate(t.fd.get(), FALLOC_FL_KEEP_SIZE, 0, f.size) != 0 && (errno == ENOSPC || errno == EDQUOT)) {
            const int e = errno;
            discard(t);
            fail(t.dest, name, QStringLiteral("no se puede crear el archivo (%1)").arg(reason(e)));
            return false;
        }
        return true;
    }

    // False only when cancelled.
    bool copyOne(const PlannedFile &f, int index)
    {
        const QString name = f.name();
        std::vector<Target> targets;
        for (int d = 0; d < _roots.size(); ++d)
            if (_usable[d] && !f.presentOn(d))
                targets.push_back({d, _roots[d] + QLatin1Char('/') + f.relPath, {}, {}});
        if (targets.empty())
            return true;
        _progress->set(_bytesBase, index, name);

        UniqueFd src(::open(QFile::encodeName(f.src).constData(), O_RDONLY | O_CLOEXEC));
        if (!src) {
            for (const Target &t : targets)
                fail(t.dest, name, QStringLiteral("no se puede leer el original"));
            return true;
        }
        ::posix_fadvise(src.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        // The copy keeps the card file's modification time (a shot from June stays dated June).
        struct stat srcStat;
        const bool haveTimes = ::fstat(src.get(), &srcStat) == 0;

        std::vector<Target> live;
        for (Target &t : targets)
            if (open(t, f, name))
                live.push_back(std::move(t));

        Sha256 hash;
        qint64 offset = 0;
        bool cancelled = false;
        while (!live.empty()) {
            if (isCancelled(_cancel)) {
                cancelled = true;
                break;
            }
            const qint64 n = FileIo::readFully(src.get(), _buffer.get(), Sha256::kChunk);
            if (n < 0) {
                const QString why = reason(errno);
                for (Target &t : live) {
                    discard(t);
                    fail(t.dest, name, QStringLiteral("error al leer la tarjeta: %1").arg(why));
                }
                live.clear();
                break;
            }
            hash.add(_buffer.get(), n);
            for (auto it = live.begin(); it != live.end();) {
                if (!FileIo::writeFully(it->fd.get(), _buffer.get(), n)) {
                    const int e = errno;
                    discard(*it);
                    fail(it->dest, name, QStringLiteral("no se pudo escribir la copia: %1").arg(reason(e)));
                    it = live.erase(it);
                    continue;
                }
                // Start the disk on these bytes now, so the final fsync has little left to wait for.
                if (n > 0)
                    ::sync_file_range(it->fd.get(), offset, n, SYNC_FILE_RANGE_WRITE);
                ++it;
            }
            offset += n;
            _progress->setBytes(_bytesBase + offset);
            if (_hooks.chunkCopied)
                _hooks.chunkCopied(name, offset);
            if (n < Sha256::kChunk)
                break;
        }
        src.reset();
        if (cancelled) {
            for (Target &t : live)
                discard(t);
            return false;
        }
        const QByteArray digest = hash.finish();

        for (Target &t : live) {
            struct stat st;
            if (::fstat(t.fd.get(), &st) != 0 || st.st_size != offset || offset != f.size) {
                discard(t);
                fail(t.dest, name, QStringLiteral("la copia no tiene el tamaño del original"));
                continue;
            }
            // After the last write, which would set it again; a disk that cannot keep it (rare
            // on FAT) still gets a whole copy.
            if (haveTimes) {
                const timespec times[2] = {{0, UTIME_OMIT}, srcStat.st_mtim};
                ::futimens(t.fd.get(), times);
            }
            // Durable before it takes its name: a file under its final name is always whole.
            if (::fsync(t.fd.get()) != 0) {
                const int e = errno;
                discard(t);
                fail(t.dest, name, QStringLiteral("no se pudo escribir la copia: %1").arg(reason(e)));
                continue;
            }
            // The written pages are clean now; dropping them keeps the copy from pushing the
            // user's own files out of memory, and the verification reads the disk.
            ::posix_fadvise(t.fd.get(), 0, 0, POSIX_FADV_DONTNEED);
            if (const int e = FileIo::renameNoReplace(t.tempPath, t.finalPath)) {
                discard(t);
                fail(t.dest, name, QStringLiteral("no se pudo poner el nombre definitivo: %1")
                                       .arg(e == EEXIST ? QStringLiteral("ya existe un archivo con ese nombre") : reason(e)));
                continue;
            }
            t.fd.reset();   // releases the lock
            _folders.insert(folderOf(t.finalPath));
            ++_r.dests[t.dest].copied;
            _r.records.append(CopyRecord{t.dest, t.finalPath, digest, offset, name, f.historyKey});
        }
        return true;
    }

    IngestReport &_r;
    const QStringList &_roots;
    const QList<bool> &_usable;
    CancelToken *_cancel;
    IngestProgressBox *_progress;
    const IngestJob::Hooks &_hooks;
    std::unique_ptr<char[]> _buffer;
    qint64 _bytesBase = 0;
    QSet<QString> _folders;
};

enum class Check { ok, bad, unreadable, cancelled };

bool sameDevice(const QString &a, const QString &b)
{
    struct stat sa, sb;
    return ::stat(QFile::encodeName(a).constData(), &sa) == 0 && ::stat(QFile::encodeName(b).constData(), &sb) == 0
           && sa.st_dev == sb.st_dev;
}

// Reads the copy back from its disk and compares it with the digest taken while copying.
Check verifyOne(const CopyRecord &rec, CancelToken *cancel, const std::function<void(qint64)> &bytes)
{
    const Sha256::FileDigest d = Sha256::ofFile(rec.dst, true, [&](qint64 n) {
        bytes(n);
        return !isCancelled(cancel);
    });
    if (d.cancelled)
        return Check::cancelled;
    if (d.digest.isEmpty())
        return Check::unreadable;
    return d.digest == rec.hash && d.size == rec.size ? Check::ok : Check::bad;
}

// Verifies `records` (both disks at once, one thread each), deletes the bad copies and notes
// them in their destination. Returns the records that failed.
QList<CopyRecord> verifyRecords(IngestReport &r, CancelToken *cancel, IngestProgressBox *progress)
{
    const int destCount = int(r.dests.size());
    std::vector<Check> checks(size_t(r.records.size()), Check::cancelled);
    std::atomic<qint64> bytes{0};
    std::atomic<int> done{0};
    // Read-only on every thread: QList's non-const operator[] would detach a list still shared
    // with the caller's report, and two disks' threads would detach it at once.
    const QList<CopyRecord> &records = r.records;
    auto work = [&](int dest) {
        for (int i = 0; i < records.size(); ++i) {
            const CopyRecord &rec = records[i];
            if (rec.rootIndex != dest)
                continue;
            if (isCancelled(cancel))
                return;
            checks[size_t(i)] = verifyOne(rec, cancel, [&](qint64 n) { progress->setBytes(bytes += n); });
            progress->set(bytes, ++done, rec.srcName);
        }
    };
    // Two disks are read at once; two folders of one disk one after the other, as two streams
    // would only make the disk seek between them.
    std::vector<std::thread> threads;
    for (int d = 1; d < destCount; ++d) {
        if (sameDevice(r.dests[0].root, r.dests[d].root))
            continue;
        threads.emplace_back(work, d);
    }
    work(0);
    for (int d = 1; d < destCount; ++d)
        if (sameDevice(r.dests[0].root, r.dests[d].root))
            work(d);
    for (std::thread &t : threads)
        t.join();

    QList<CopyRecord> bad;
    QList<CopyRecord> kept;
    for (int i = 0; i < r.records.size(); ++i) {
        const CopyRecord &rec = r.records[i];
        DestResult &dest = r.dests[rec.rootIndex];
        switch (checks[size_t(i)]) {
        case Check::ok:
            ++dest.verifiedOK;
            kept.append(rec);
            break;
        case Check::cancelled:
            kept.append(rec);
            break;
        case Check::bad:
        case Check::unreadable:
            ::unlink(QFile::encodeName(rec.dst).constData());
            ++dest.verifyBad;
            dest.errors.append(rec.srcName + QStringLiteral(": ")
                               + (checks[size_t(i)] == Check::bad
                                      ? QStringLiteral("la copia NO coincide con el original; se ha borrado para volver a copiarla")
                                      : QStringLiteral("no se pudo leer la copia para verificarla; se ha borrado para volver a copiarla")));
            bad.append(rec);
            break;
        }
    }
    for (DestResult &d : r.dests)
        d.verifiedDone = !isCancelled(cancel);
    r.records = kept;
    return bad;
}

// The template on every sound copy. A JPEG changes, so its record takes the new digest and size:
// a later "Verificar ahora" compares against what the disk should now hold.
void applyTemplate(IngestReport &r, const IptcTemplate &t)
{
    QStringList files;
    QHash<QString, qsizetype> byPath;
    for (qsizetype i = 0; i < r.records.size(); ++i) {
        const CopyRecord &rec = r.records[i];
        const QFileInfo info(rec.dst);
        if (info.isFile() && info.size() == rec.size && !byPath.contains(rec.dst)) {
            files.append(rec.dst);
            byPath.insert(rec.dst, i);
        }
    }
    const IptcBatch::Outcome o = IptcBatch::apply(t, files);
    r.iptcWritten = o.written;
    r.errors.append(o.messages);
    for (const IptcFile::Undo &u : o.undo) {
        if (!u.jpeg)
            continue;
        CopyRecord &rec = r.records[byPath.value(u.file)];
        const Sha256::FileDigest d = Sha256::ofFile(rec.dst, false);
        if (!d.digest.isEmpty()) {
            rec.hash = d.digest;
            rec.size = d.size;
        }
    }
}

IngestSummary summarize(const IngestReport &r, bool dryRun = false)
{
    const int destCount = int(r.dests.size());
    if (r.cancelled)
        return IngestSummary::make(IngestOutcome::cancelled, destCount);
    if (r.hasErrors())
        return IngestSummary::make(IngestOutcome::errors, destCount);
    if (r.plan.files.isEmpty())
        return IngestSummary::make(IngestOutcome::nothingToDo, destCount);
    if (dryRun)
        return IngestSummary::make(IngestOutcome::planned, destCount);
    // Verified only when every copy made on every disk was read back and found equal.
    bool allVerified = r.verified;
    for (const DestResult &d : r.dests)
        allVerified = allVerified && d.verifiedOK >= d.copied;
    return IngestSummary::make(allVerified ? IngestOutcome::verified : IngestOutcome::copied, destCount);
}

} // namespace

QStringList IngestRequest::destRoots() const
{
    QStringList roots{QDir::cleanPath(working)};
    if (!backup.isEmpty())
        roots.append(QDir::cleanPath(backup));
    return roots;
}

bool IngestReport::hasErrors() const
{
    if (!errors.isEmpty())
        return true;
    return std::any_of(dests.begin(), dests.end(), [](const DestResult &d) { return d.hasErrors(); });
}

IngestJob::IngestJob(IngestRequest request, CancelToken *cancel, IngestProgressBox *progress, Hooks hooks)
    : _request(std::move(request)), _cancel(cancel), _progress(progress), _hooks(std::move(hooks))
{
}

IngestReport IngestJob::run()
{
    // A file-size limit must fail the write (EFBIG) and show on that disk, not end the program.
    std::signal(SIGXFSZ, SIG_IGN);
    IngestProgressBox localBox;
    IngestProgressBox *box = _progress ? _progress : &localBox;
    auto phase = [&](IngestPhase p, int files, qint64 bytes) {
        box->set(0, 0, {});
        if (_hooks.phase)
            _hooks.phase(p, files, bytes);
    };

    IngestReport r;
    r.recordPath = _request.recordPath.isEmpty() ? ImportedRecord::path() : _request.recordPath;
    const QStringList roots = _request.destRoots();
    for (int d = 0; d < roots.size(); ++d) {
        DestResult dest;
        dest.id = d;
        dest.root = roots[d];
        r.dests.append(dest);
    }
    const QString source = QDir::cleanPath(QFileInfo(_request.source).absoluteFilePath());
    auto finish = [&]() {
        const QString cancelled = QStringLiteral("importación cancelada");
        if (r.cancelled && !r.errors.contains(cancelled))
            r.errors.append(cancelled);
        r.summary = summarize(r, _request.dryRun);
        phase(IngestPhase::finished, 0, 0);
        return r;
    };

    // Destinations that cannot take a single file fail as a whole, in one line each.
    QList<bool> usable;
    for (int d = 0; d < roots.size(); ++d) {
        const QString &root = roots[d];
        const QFileInfo info(root);
        QString problem;
        // A plan may be made against a folder still to be created: nothing is there yet.
        if (root.isEmpty() || (!info.exists() && !_request.dryRun))
            problem = QStringLiteral("la carpeta no existe");
        else if (info.exists() && !info.isDir())
            problem = QStringLiteral("no es una carpeta");
        else if (source == root || root.startsWith(source + QLatin1Char('/')))
            problem = QStringLiteral("está dentro de la carpeta de origen");
        else if (d > 0 && root == roots[0])
            problem = QStringLiteral("es la misma carpeta que el disco de trabajo");
        if (!problem.isEmpty())
            r.dests[d].errors.append(QStringLiteral("No se puede copiar en «%1»: %2.").arg(root, problem));
        usable.append(problem.isEmpty());
    }

    phase(IngestPhase::scanning, 0, 0);
    QHash<QString, IngestItem> known;
    for (const IngestItem &item : std::as_const(_request.known))
        known.insert(item.url, item);
    const CardScan scan = CardScanner::scan(source, _request.options.video, _cancel,
                                            [&](int done, int) { box->set(0, done, {}); }, &known);
    if (!scan.error.isEmpty())
        r.errors.append(scan.error);
    if (scan.cancelled)
        r.cancelled = true;
    if (!scan.error.isEmpty() || scan.cancelled)
        return finish();

    IngestPlanner::Input in;
    in.items = scan.items;
    in.options = _request.options;
    in.destRoots = roots;
    if (_request.options.skipImported)
        in.imported = ImportedRecord::load(r.recordPath);
    in.check = IngestPlanner::DestinationCheck::full;
    in.cancel = _cancel;
    qint64 compared = 0;
    in.comparing = [&](qint64 bytes, const QString &name) { box->set(compared += bytes, int(scan.items.size()), name); };
    r.plan = IngestPlanner::plan(in);
    if (r.plan.cancelled) {
        r.cancelled = true;
        return finish();
    }
    r.skipped = r.plan.skippedImported + int(r.plan.presentKeys.size());
    for (int d = 0; d < roots.size(); ++d) {
        r.dests[d].skipped = r.plan.skippedImported + r.plan.present.value(d);
        if (!usable[d])
            r.dests[d].failed = r.plan.toCopy(d);
    }
    // The working disk's folder, or the backup's when the working disk cannot be written.
    const qsizetype shown = std::max<qsizetype>(0, usable.indexOf(true));
    r.resultFolder = commonFolder(roots[shown], r.plan.files);
    if (_hooks.planned)
        _hooks.planned(r.plan);
    if (_request.dryRun)
        return finish();

    // Parts left by a killed run anywhere in the trees this run writes into, not only in the
    // folders it writes this time (the killed run may have had other dates or sessions): every
    // folder at the depths this run's structure writes at, and no deeper.
    int depth = 0;
    for (const PlannedFile &f : r.plan.files)
        depth = std::max(depth, int(f.relPath.count(QLatin1Char('/'))));
    for (int d = 0; d < roots.size(); ++d)
        if (usable[d])
            PartFiles::removeStaleBelow(roots[d], depth);

    QSet<QString> keys(r.plan.presentKeys.begin(), r.plan.presentKeys.end());
    if (!r.plan.files.isEmpty()) {
        phase(IngestPhase::copying, int(r.plan.files.size()), r.plan.bytesTotal);
        Copier copier(r, roots, usable, _cancel, box, _hooks);
        r.cancelled = !copier.run();
        for (const QString &folder : copier.foldersTouched())
            FileIo::syncFolder(folder);
        QSet<QString> written;
        for (const CopyRecord &rec : std::as_const(r.records))
            written.insert(rec.historyKey);
        r.copied = int(written.size());

        if (_request.options.verify && !r.cancelled && !r.records.isEmpty()) {
            qint64 total = 0;
            for (const CopyRecord &rec : std::as_const(r.records))
                total += rec.size;
            phase(IngestPhase::verifying, int(r.records.size()), total);
            if (_hooks.beforeVerify)
                for (const CopyRecord &rec : std::as_const(r.records))
                    _hooks.beforeVerify(rec);
            verifyRecords(r, _cancel, box);
            r.verified = true;
            if (isCancelled(_cancel))
                r.cancelled = true;
        }

        if (_request.iptc && !r.cancelled && !r.records.isEmpty())
            applyTemplate(r, *_request.iptc);

        // A file is remembered once it stands, whole, on every destination.
        QHash<QString, quint32> onDisk;
        for (const CopyRecord &rec : std::as_const(r.records)) {
            const QFileInfo info(rec.dst);
            if (info.isFile() && info.size() == rec.size)
                onDisk[rec.historyKey] |= 1u << rec.rootIndex;
        }
        const quint32 all = (1u << roots.size()) - 1;
        for (const PlannedFile &f : std::as_const(r.plan.files))
            if ((onDisk.value(f.historyKey) | f.presentIn) == all)
                keys.insert(f.historyKey);
    }
    if (!keys.isEmpty()) {
        const QString error = ImportedRecord::add(keys, r.recordPath);
        if (!error.isEmpty())
            r.errors.append(error);
    }

    if (_request.options.eject) {
        if (r.cancelled)
            r.ejectMessage = QStringLiteral("No se ha expulsado la tarjeta: la importación se canceló.");
        else if (r.hasErrors())
            r.ejectMessage = QStringLiteral("No se ha expulsado la tarjeta: hubo errores.");
        else {
            const QString error = _hooks.eject ? _hooks.eject(source) : CardEjector::eject(source);
            r.ejectMessage = error.isEmpty() ? QString::fromUtf8(CardEjector::kEjectedText) : error;
        }
    }
    return finish();
}

void IngestJob::verifyNow(IngestReport &report, CancelToken *cancel, IngestProgressBox *progress, const Hooks &hooks)
{
    IngestProgressBox localBox;
    IngestProgressBox *box = progress ? progress : &localBox;
    qint64 total = 0;
    for (const CopyRecord &rec : std::as_const(report.records))
        total += rec.size;
    box->set(0, 0, {});
    if (hooks.phase)
        hooks.phase(IngestPhase::verifying, int(report.records.size()), total);
    if (hooks.beforeVerify)
        for (const CopyRecord &rec : std::as_const(report.records))
            hooks.beforeVerify(rec);
    for (DestResult &d : report.dests)
        d.verifiedOK = 0;
    const QList<CopyRecord> bad = verifyRecords(report, cancel, box);
    report.verified = !isCancelled(cancel);
    QSet<QString> badKeys;
    for (const CopyRecord &rec : bad)
        badKeys.insert(rec.historyKey);
    if (!badKeys.isEmpty()) {
        const QString error = ImportedRecord::remove(badKeys, report.recordPath);
        if (!error.isEmpty())
            report.errors.append(error);
    }
    report.cancelled = isCancelled(cancel);
    report.summary = summarize(report);
    box->set(0, 0, {});
    if (hooks.phase)
        hooks.phase(IngestPhase::finished, 0, 0);
}
