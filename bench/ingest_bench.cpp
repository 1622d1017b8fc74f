// Card ingest to two destinations against what the shell offers, timed in the same run on the same
// disk:
//  - with verification, against the durable floor: `cp -r` to each destination, `sync`, then every
//    copy read back with `dd iflag=direct` (past the page cache) — aim 1.2×;
//  - without verification, against `cp -r` ×2 followed by `sync` — aim 1.1×;
//  - for reference, the quick dishonest check: `cp -r` ×2, then `openssl dgst -sha256` of the
//    source and both copies, all read from the page cache.
// The source's pages are dropped before every run, so each method reads the "card" from the disk.
//   ingest_bench [--gb N] [--runs N]     N gigabytes of RAW, JPEG and video files (3 by default)
// The folder is $CORVANE_BENCH_DIR, else /var/tmp/corvane-ingest-bench (a tmpfs /tmp would hide
// the disk).
#include "ingest/importedrecord.h"
#include "util/canceltoken.h"
#include "ingest/ingestjob.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

QString g_root;

bool shell(const QString &command)
{
    const int rc = std::system(command.toLocal8Bit().constData());
    return rc == 0;
}

QString quoted(const QString &path) { return QLatin1Char('\'') + path + QLatin1Char('\''); }

// Real-sized files: 24 MB RAWs with 7 MB JPEGs beside them, and a few 150 MB videos.
bool makeSource(const QString &dir, double gigabytes)
{
    const QString marker = dir + QStringLiteral("/.complete");
    QFile m(marker);
    const QByteArray want = QByteArray::number(gigabytes);
    if (m.open(QIODevice::ReadOnly) && m.readAll() == want)
        return true;
    m.close();
    std::fprintf(stderr, "ingest_bench: writing %.1f GB into %s\n", gigabytes, qPrintable(dir));
    QDir(dir).removeRecursively();
    QDir().mkpath(dir + QStringLiteral("/DCIM/100CANON"));
    QDir().mkpath(dir + QStringLiteral("/DCIM/101CANON"));
    const qint64 target = qint64(gigabytes * 1e9);
    qint64 written = 0;
    QRandomGenerator gen(7);
    QByteArray block(1 << 20, Qt::Uninitialized);
    auto writeFile = [&](const QString &path, qint64 size) {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly))
            return false;
        for (qint64 left = size; left > 0; left -= block.size()) {
            gen.fillRange(reinterpret_cast<quint32 *>(block.data()), block.size() / 4);
            if (f.write(block.constData(), qMin<qint64>(left, block.size())) < 0)
                return false;
        }
        written += size;
        return true;
    };
    for (int i = 1; i <= 3 && written < target; ++i)
        if (!writeFile(dir + QStringLiteral("/DCIM/100CANON/MVI_%1.MP4").arg(i, 4, 10, QLatin1Char('0')), 150'000'000))
            return false;
    for (int i = 1; written < target; ++i) {
        const QString base = dir + QStringLiteral("/DCIM/%1CANON/IMG_%2").arg(100 + i % 2).arg(i, 4, 10, QLatin1Char('0'));
        if (!writeFile(base + QStringLiteral(".CR2"), 24'000'000 + 1000 * i) || !writeFile(base + QStringLiteral(".JPG"), 7'000'000 + 300 * i))
            return false;
    }
    shell(QStringLiteral("sync"));
    return m.open(QIODevice::WriteOnly) && m.write(want) > 0;
}

// Drops the folder's files from the page cache, so the next reader goes to the disk.
void evict(const QString &dir)
{
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const int fd = ::open(QFile::encodeName(it.next()).constData(), O_RDONLY);
        if (fd >= 0) {
            ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
            ::close(fd);
        }
    }
}

// Fresh empty destinations, the old ones removed and the removal on disk before the clock starts.
void resetDestinations(const QString &d1, const QString &d2)
{
    QDir(d1).removeRecursively();
    QDir(d2).removeRecursively();
    QDir().mkpath(d1);
    QDir().mkpath(d2);
    shell(QStringLiteral("sync"));
}

double timeCorvane(const QString &src, const QString &d1, const QString &d2, bool verify)
{
    resetDestinations(d1, d2);
    evict(src);
    IngestRequest r;
    r.source = src;
    r.working = d1;
    r.backup = d2;
    r.options.structure = IngestStructure::none;
    r.options.rename = false;
    r.options.skipImported = false;
    r.options.verify = verify;
    r.options.video = true;
    r.recordPath = g_root + QStringLiteral("/importadas.json");
    QFile::remove(r.recordPath);
    CancelToken cancel;
    QElapsedTimer t;
    t.start();
    IngestJob::Hooks hooks;
    double verifyStart = 0;
    hooks.phase = [&](IngestPhase p, int, qint64) {
        if (p == IngestPhase::verifying)
            verifyStart = t.nsecsElapsed() / 1e9;
    };
    const IngestReport report = IngestJob(r, &cancel, nullptr, hooks).run();
    const double s = t.nsecsElapsed() / 1e9;
    if (verify)
        std::fprintf(stderr, "ingest_bench: Corvane copied in %.2f s, verified in %.2f s\n", verifyStart, s - verifyStart);
    if (report.hasErrors() || report.copied != report.plan.itemCount) {
        std::fprintf(stderr, "ingest_bench: the import failed: %s\n", qPrintable(report.summary.title));
        std::exit(1);
    }
    return s;
}

double timeShell(const QString &src, const QString &d1, const QString &d2, const QString &script)
{
    resetDestinations(d1, d2);
    evict(src);
    QString s = script;
    s.replace(QStringLiteral("$SRC"), quoted(src)).replace(QStringLiteral("$D1"), quoted(d1)).replace(QStringLiteral("$D2"), quoted(d2));
    QElapsedTimer t;
    t.start();
    if (!shell(s)) {
        std::fprintf(stderr, "ingest_bench: failed: %s\n", qPrintable(s));
        std::exit(1);
    }
    return t.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    double gigabytes = 3;
    int runs = 2;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (qstrcmp(argv[i], "--gb") == 0)
            gigabytes = std::atof(argv[i + 1]);
        else if (qstrcmp(argv[i], "--runs") == 0)
            runs = std::max(1, std::atoi(argv[i + 1]));
    }
    g_root = qEnvironmentVariable("CORVANE_BENCH_DIR", QStringLiteral("/var/tmp/corvane-ingest-bench"));
    QDir().mkpath(g_root);
    struct statfs fs;
    if (::statfs(QFile::encodeName(g_root).constData(), &fs) == 0 && fs.f_type == 0x01021994)
        std::fprintf(stderr, "ingest_bench: warning: %s is on tmpfs; set CORVANE_BENCH_DIR to a disk\n", qPrintable(g_root));
    const QString src = g_root + QStringLiteral("/card"), d1 = g_root + QStringLiteral("/disk1"),
                  d2 = g_root + QStringLiteral("/disk2");
    if (!makeSource(src, gigabytes))
        return 1;
    qint64 bytes = 0;
    int files = 0;
    for (QDirIterator it(src, QDir::Files, QDirIterator::Subdirectories); it.hasNext(); ++files)
        bytes += QFileInfo(it.next()).size();

    const QString cp2 = QStringLiteral("cp -r $SRC/DCIM $D1/ && cp -r $SRC/DCIM $D2/");
    const QString readBack = QStringLiteral(
        " && find $D1 $D2 -type f -exec sh -c 'for f; do dd if=\"$f\" of=/dev/null bs=8M iflag=direct status=none || exit 1; done' sh {} +");
    const QString dishonest = QStringLiteral(
        " && find $SRC $D1 $D2 -type f -name '*.*' ! -name '.*' -print0 | xargs -0 openssl dgst -sha256 > /dev/null");

    // Best of `runs`, the methods interleaved so a slow moment of the disk hits them alike.
    double verified = 1e9, floor = 1e9, plain = 1e9, cpSync = 1e9, quick = 1e9;
    for (int run = 0; run < runs; ++run) {
        verified = std::min(verified, timeCorvane(src, d1, d2, true));
        floor = std::min(floor, timeShell(src, d1, d2, cp2 + QStringLiteral(" && sync") + readBack));
        plain = std::min(plain, timeCorvane(src, d1, d2, false));
        cpSync = std::min(cpSync, timeShell(src, d1, d2, cp2 + QStringLiteral(" && sync")));
        quick = std::min(quick, timeShell(src, d1, d2, cp2 + dishonest));
    }
    resetDestinations(d1, d2);

    const double gb = double(bytes) / 1e9;
    std::printf("ingest_bench: %d files, %.2f GB, to two destinations in %s (best of %d)\n", files, gb,
                qPrintable(g_root), runs);
    std::printf("  verified:   Corvane %6.2f s  vs  cp -r ×2 + sync + dd iflag=direct  %6.2f s   ratio %.2f (aim ≤ 1.2)\n",
                verified, floor, verified / floor);
    std::printf("  unverified: Corvane %6.2f s  vs  cp -r ×2 + sync                    %6.2f s   ratio %.2f (aim ≤ 1.1)\n",
                plain, cpSync, plain / cpSync);
    std::printf("  reference:  cp -r ×2 + openssl dgst -sha256 from the page cache   %6.2f s (proves nothing "
                "about the disk)\n",
                quick);
    std::printf("  Corvane verified: %.0f MB/s of card data\n", double(bytes) / 1e6 / verified);
    return 0;
}
