// Sharpness of a shoot end to end (decode at the working size, grey, downscale, 12 × 12 tiles):
// Corvane's measureSharpnessOfFile on a pool as wide as the machine against the same work in
// Python with OpenCV (bench/sharpness_opencv.py: reduced-size decode, grey, area resize to
// 1600 px, Laplacian variance per tile, best three) with as many worker processes. Both read the
// same 24-megapixel JPEGs from the page cache; the scores of the two are compared as well.
//   sharpness_bench [--files N]      N files, 200 by default
#include <vips/vips8>

#include "benchjpegs.h"
#include "analysis/sharpness.h"
#include "imaging/imagedecoder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QProcess>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <mutex>

namespace {

constexpr int kRuns = 3;

void warm(const QStringList &files)
{
    for (const QString &f : files) {
        QFile file(f);
        if (file.open(QIODevice::ReadOnly))
            while (!file.read(1 << 20).isEmpty()) {
            }
    }
}

// ms, or -1 when a file could not be measured.
double timeCorvane(const QStringList &files, int threads, QHash<QString, double> *scores)
{
    QThreadPool pool;
    pool.setMaxThreadCount(threads);
    std::atomic<int> bad{0};
    std::mutex lock;
    QElapsedTimer t;
    t.start();
    for (const QString &f : files)
        pool.start([&, f] {
            const auto r = measureSharpnessOfFile(f, false);
            if (!r) {
                ++bad;
                return;
            }
            std::lock_guard guard(lock);
            scores->insert(f, r->best);
        });
    pool.waitForDone();
    const double ms = t.nsecsElapsed() / 1e6;
    return bad ? -1 : ms;
}

double timeOpenCv(const QString &script, const QStringList &files, int threads, QHash<QString, double> *scores)
{
    QProcess p;
    QElapsedTimer t;
    t.start();
    p.start(QStringLiteral("/usr/bin/python3"), QStringList{script, QString::number(threads)} + files);
    if (!p.waitForFinished(-1) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        std::fprintf(stderr, "sharpness_bench: OpenCV: %s\n", p.readAllStandardError().constData());
        return -1;
    }
    const double ms = t.nsecsElapsed() / 1e6;
    for (const QByteArray &line : p.readAllStandardOutput().split('\n')) {
        const int space = line.lastIndexOf(' ');
        if (space > 0)
            scores->insert(QString::fromUtf8(line.left(space)), line.mid(space + 1).toDouble());
    }
    return ms;
}

// The decoding floor both contenders stand on: libjpeg-turbo's grey decode at 1/2, output thrown
// away, in as many parallel streams as there are threads.
double timeDjpegFloor(const QStringList &files, int threads)
{
    QList<QProcess *> running;
    QElapsedTimer t;
    t.start();
    for (int k = 0; k < threads; ++k) {
        QStringList part;
        for (qsizetype i = k; i < files.size(); i += threads)
            part << files[i];
        auto *p = new QProcess;
        p->start(QStringLiteral("sh"), QStringList{QStringLiteral("-c"),
                                                   QStringLiteral("for f in \"$@\"; do djpeg -scale 1/2 -grayscale \"$f\" >/dev/null || exit 1; done"),
                                                   QStringLiteral("sh")} + part);
        running << p;
    }
    bool ok = true;
    for (QProcess *p : running) {
        ok = p->waitForFinished(-1) && p->exitCode() == 0 && ok;
        delete p;
    }
    return ok ? t.nsecsElapsed() / 1e6 : -1;
}

template<typename F>
double best(F &&run)
{
    double b = -1;
    for (int i = 0; i < kRuns; ++i) {
        const double t = run();
        if (t < 0)
            return -1;
        b = b < 0 ? t : std::min(b, t);
    }
    return b;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int count = 200;
    const QStringList args = app.arguments();
    if (args.size() == 3 && args[1] == QLatin1String("--files"))
        count = args[2].toInt();
    if (count < 1 || (args.size() != 1 && args.size() != 3)) {
        std::fprintf(stderr, "uso: sharpness_bench [--files N]\n");
        return 2;
    }
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    const QString script = QStringLiteral(CORVANE_SOURCE_DIR "/bench/sharpness_opencv.py");
    if (QProcess::execute(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QStringLiteral("import cv2")}) != 0) {
        std::fprintf(stderr, "sharpness_bench: falta OpenCV para Python (python3-opencv)\n");
        return 1;
    }
    const QStringList files = benchJpegs(QStringLiteral("corvane-thumb-bench"), count, 6000, 4000);
    if (files.isEmpty())
        return 1;
    ImageDecoder::initialize();
    warm(files);
    const int threads = QThread::idealThreadCount();

    QHash<QString, double> ours, theirs;
    const double corvane = best([&] { return timeCorvane(files, threads, &ours); });
    const double opencv = best([&] { return timeOpenCv(script, files, threads, &theirs); });
    const double floor = best([&] { return timeDjpegFloor(files, threads); });
    if (corvane < 0 || opencv < 0 || floor < 0) {
        std::fprintf(stderr, "sharpness_bench: una de las medidas falló\n");
        return 1;
    }
    // Different resamplers give slightly different greys; the scores should still agree closely.
    double worst = 0;
    for (auto it = ours.cbegin(); it != ours.cend(); ++it)
        if (theirs.contains(it.key()) && it.value() > 0)
            worst = std::max(worst, std::abs(theirs.value(it.key()) / it.value() - 1));

    std::printf("%d JPEGs of 6000×4000 from the page cache, %d threads, best of %d\n", count, threads, kRuns);
    std::printf("  Corvane   %8.0f ms  %6.1f files/s\n", corvane, count * 1000.0 / corvane);
    std::printf("  OpenCV    %8.0f ms  %6.1f files/s\n", opencv, count * 1000.0 / opencv);
    std::printf("  floor     %8.0f ms  djpeg -scale 1/2 -grayscale alone, output thrown away\n", floor);
    std::printf("  ratio     %.2f× faster than OpenCV (aim ≥ 1.5×); %.2f× the decoding floor\n", opencv / corvane,
                corvane / floor);
    std::printf("  scores    largest difference between the two: %.1f %%\n", worst * 100);
    return 0;
}
