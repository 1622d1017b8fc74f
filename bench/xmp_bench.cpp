// The marks of 2,000 shots exported to sidecars by the sidecar store, against exiftool writing the
// same three tags (rating, label, Photo Mechanic's colour class) to the same 2,000 sidecars in one
// process. Two passes each: new sidecars, then the same sidecars edited in place with other marks.
//   xmp_bench            (works in $CORVANE_BENCH_DIR, else $TMPDIR, in corvane-xmp-bench)
#include "metadata/xmplabels.h"
#include "metadata/xmpstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kShots = 2000;

XmpState marksOf(int i, int pass)
{
    XmpState s;
    s.rating = (i + pass) % 6;
    s.color = (i * 7 + pass) % 9;
    s.flag = (i + pass) % 3 == 0;
    return s;
}

QString sidecar(const QString &dir, int i) { return QStringLiteral("%1/DSC_%2.xmp").arg(dir).arg(i, 4, 10, QLatin1Char('0')); }

void clear(const QString &dir)
{
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
}

double corvane(XMPStore &store, const QString &dir, int pass)
{
    QList<XMPStore::Job> jobs;
    for (int i = 0; i < kShots; ++i)
        jobs.append({sidecar(dir, i), marksOf(i, pass), {}});
    QEventLoop loop;
    int written = 0;
    QElapsedTimer t;
    t.start();
    const quint64 batch = store.writeAll(jobs);
    const auto done = QObject::connect(&store, &XMPStore::batchFinished, &loop, [&](quint64 b, int w, int) {
        if (b == batch) {
            written = w;
            loop.quit();
        }
    });
    loop.exec();
    const double ms = t.nsecsElapsed() / 1e6;
    QObject::disconnect(done);
    if (written != kShots)
        std::fprintf(stderr, "corvane wrote %d of %d\n", written, kShots);
    return ms;
}

double exiftool(const QString &dir, int pass, const QStringList &labels)
{
    // One process, one -execute per file: the fastest way to give exiftool per-file values.
    QFile args(dir + QStringLiteral("/../exiftool.args"));
    if (!args.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return -1;
    for (int i = 0; i < kShots; ++i) {
        const XmpState s = marksOf(i, pass);
        QString a = QStringLiteral("-overwrite_original\n-XMP-xmp:Rating=%1\n-XMP-xmp:Label=%2\n-XMP-photomech:ColorClass=%3\n%4\n-execute\n")
                        .arg(s.rating)
                        .arg(XmpLabels::label(s.color, labels))
                        .arg(s.color)
                        .arg(sidecar(dir, i));
        args.write(a.toUtf8());
    }
    args.close();
    QElapsedTimer t;
    t.start();
    QProcess p;
    p.start(QStringLiteral("exiftool"), {QStringLiteral("-q"), QStringLiteral("-@"), args.fileName()});
    p.waitForFinished(-1);
    return t.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (QStandardPaths::findExecutable(QStringLiteral("exiftool")).isEmpty()) {
        std::fprintf(stderr, "xmp_bench needs exiftool (libimage-exiftool-perl)\n");
        return 1;
    }
    const QString base = qEnvironmentVariable("CORVANE_BENCH_DIR", QDir::tempPath());
    const QString root = base + QStringLiteral("/corvane-xmp-bench");
    std::printf("in %s\n", qPrintable(root));
    const QString ours = root + QStringLiteral("/corvane"), theirs = root + QStringLiteral("/exiftool");
    XMPStore store;
    const QStringList labels = store.labels();

    clear(ours);
    clear(theirs);
    // Each side starts with nothing of the other's waiting to be written: Corvane flushes the
    // disk once per batch, exiftool leaves it to the system.
    ::sync();
    const double newOurs = corvane(store, ours, 0);
    ::sync();
    const double newTheirs = exiftool(theirs, 0, labels);
    ::sync();
    const double editOurs = corvane(store, ours, 1);
    ::sync();
    const double editTheirs = exiftool(theirs, 1, labels);

    std::printf("%d new sidecars:        corvane %8.1f ms   exiftool %8.1f ms   %5.1f× faster\n", kShots, newOurs, newTheirs, newTheirs / newOurs);
    std::printf("%d edited in place:     corvane %8.1f ms   exiftool %8.1f ms   %5.1f× faster\n", kShots, editOurs, editTheirs, editTheirs / editOurs);
    std::printf("aim: at least 10× faster than exiftool\n");
    QDir(root).removeRecursively();
    return 0;
}
