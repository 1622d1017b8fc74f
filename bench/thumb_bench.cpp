// Cold grid thumbnails: ImageDecoder::decode at 420 px on a two-thread pool (as the pipeline runs
// it on a two-core machine) against one `vipsthumbnail -s 420` process over the same files, and
// against the floor: `djpeg -scale 1/8` (libjpeg-turbo's DCT-scaled decode alone, output thrown
// away) in two parallel streams. The files are 24-megapixel JPEGs made once under the temporary
// folder; every contender reads them from the page cache.
//   thumb_bench [--files N]      N files, 60 by default
// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "benchjpegs.h"
#include "imaging/imagedecoder.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include <sys/resource.h>

namespace {

constexpr int kRuns = 3;
constexpr int kSize = 420;
constexpr int kWidth = 6000, kHeight = 4000;

// Processor time (user + system) of this process or of its waited-for children, in ms. On a
// machine shared with other work it tells more than the wall clock.
double cpuMs(int who)
{
    rusage r {};
    getrusage(who, &r);
    return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1e3 + (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e3;
}

struct Timing {
    double wall = -1;   // ms
    double cpu = -1;    // ms
};

// Reads every file once, so that all contenders start from the same warm page cache.
void warm(const QStringList &files)
{
    for (const QString &f : files) {
        QFile file(f);
        if (file.open(QIODevice::ReadOnly))
            while (!file.read(1 << 20).isEmpty()) {
            }
    }
}

// Corvane on a pool of `threads`; a wall time of -1 when an image failed.
Timing timeCorvane(const QStringList &files, int threads)
{
    QThreadPool pool;
    pool.setMaxThreadCount(threads);
    std::atomic<int> bad{0};
    const double cpu = cpuMs(RUSAGE_SELF);
    QElapsedTimer t;
    t.start();
    for (const QString &f : files)
        pool.start([&bad, f] {
            const QImage image = ImageDecoder::decode(f, false, kSize).image;
            if (qMax(image.width(), image.height()) != kSize)
                ++bad;
        });
    pool.waitForDone();
    const double ms = t.nsecsElapsed() / 1e6;
    return bad ? Timing{} : Timing{ms, cpuMs(RUSAGE_SELF) - cpu};
}

// Whole processes started together, each given its share of the files; -1 on a failure.
Timing timeProcesses(const QList<QPair<QString, QStringList>> &commands)
{
    QList<QProcess *> running;
    const double cpu = cpuMs(RUSAGE_CHILDREN);
    QElapsedTimer t;
    t.start();
    for (const auto &[program, args] : commands) {
        auto *p = new QProcess;
        p->setStandardOutputFile(QProcess::nullDevice());
        p->start(program, args);
        running << p;
    }
    bool ok = true;
    for (QProcess *p : running) {
        ok = p->waitForFinished(-1) && p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0 && ok;
        delete p;
    }
    const double ms = t.nsecsElapsed() / 1e6;
    return ok ? Timing{ms, cpuMs(RUSAGE_CHILDREN) - cpu} : Timing{};
}

// The best wall time and the least processor time of kRuns runs.
template<typename F>
Timing best(F &&run)
{
    Timing b;
    for (int i = 0; i < kRuns; ++i) {
        const Timing t = run();
        if (t.wall < 0)
            return {};
        b.wall = b.wall < 0 ? t.wall : std::min(b.wall, t.wall);
        b.cpu = b.cpu < 0 ? t.cpu : std::min(b.cpu, t.cpu);
    }
    return b;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int count = 60;
    const QStringList args = app.arguments();
    if (args.size() == 3 && args[1] == QLatin1String("--files"))
        count = args[2].toInt();
    if (count < 2 || (args.size() != 1 && args.size() != 3)) {
        std::fprintf(stderr, "uso: thumb_bench [--files N]   (N ≥ 2)\n");
        return 2;
    }
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    const QStringList files = benchJpegs(QStringLiteral("corvane-thumb-bench"), count, kWidth, kHeight);
    if (files.isEmpty()) {
        std::fprintf(stderr, "thumb_bench: no se pudo preparar la carpeta de prueba\n");
        return 1;
    }
    for (const char *tool : {"vipsthumbnail", "djpeg"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty()) {
            std::fprintf(stderr, "thumb_bench: falta %s (libvips-tools, libjpeg-turbo-progs)\n", tool);
            return 1;
        }
    ImageDecoder::initialize();
    warm(files);

    const Timing corvane2 = best([&] { return timeCorvane(files, 2); });
    const Timing corvane1 = best([&] { return timeCorvane(files, 1); });

    const QString out = QDir::tempPath() + QStringLiteral("/corvane-thumb-bench-out");
    QDir().mkpath(out);
    const Timing vipsthumbnail = best([&] {
        return timeProcesses({{QStringLiteral("vipsthumbnail"),
                               QStringList{"-s", QString::number(kSize), "-o", out + QStringLiteral("/%s.jpg")} + files}});
    });

    // djpeg takes one file per run: a shell loop per stream, half of the files each.
    const auto stream = [](const QStringList &part) {
        QString script = QStringLiteral("for f in \"$@\"; do djpeg -scale 1/8 \"$f\" >/dev/null || exit 1; done");
        return QPair<QString, QStringList>{QStringLiteral("sh"), QStringList{"-c", script, "sh"} + part};
    };
    const QStringList first = files.mid(0, files.size() / 2), second = files.mid(files.size() / 2);
    const Timing floor = best([&] { return timeProcesses({stream(first), stream(second)}); });

    if (corvane2.wall < 0 || corvane1.wall < 0 || vipsthumbnail.wall < 0 || floor.wall < 0) {
        std::fprintf(stderr, "thumb_bench: una de las medidas falló\n");
        return 1;
    }
    const double n = files.size();
    std::printf("folder: %s (%d JPEGs of %d×%d), thumbnails at %d px, best of %d\n",
                qPrintable(QFileInfo(files.first()).absolutePath()), count, kWidth, kHeight, kSize, kRuns);
    std::printf("%-32s %9s %9s %12s\n", "", "wall ms", "cpu ms", "cpu/image");
    const auto row = [n](const char *name, const Timing &t) {
        std::printf("%-32s %9.1f %9.1f %9.1f ms\n", name, t.wall, t.cpu, t.cpu / n);
    };
    row("corvane decode, 2 threads", corvane2);
    row("corvane decode, 1 thread", corvane1);
    row("vipsthumbnail, 1 process", vipsthumbnail);
    row("djpeg -scale 1/8, 2 streams", floor);
    std::printf("corvane/vipsthumbnail = %.2f wall, %.2f cpu (aim ≤ 1.00)\n", corvane2.wall / vipsthumbnail.wall,
                corvane2.cpu / vipsthumbnail.cpu);
    std::printf("corvane/djpeg floor   = %.2f wall, %.2f cpu (aim ≤ 1.30)\n", corvane2.wall / floor.wall,
                corvane2.cpu / floor.cpu);
    return 0;
}
