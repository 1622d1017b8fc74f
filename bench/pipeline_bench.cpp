// Two browsing figures of the image pipeline, measured in one run:
//  - warm grid: thumbnails per second when a folder of 2,000 shots is opened again (disk cache,
//    empty memory cache), through the same queue the grid uses; aim 1,000 per second;
//  - next shot: in the single view, moving to the next shot at a culling pace (one key every
//    400 ms) with prefetch on: time from the move until the preview is on hand; aim < 10 ms median;
//    and the same while the folder's sharpness is scored in the background.
// Usage: pipeline_bench [--shots N]
#include "analysis/sharpnessanalyzer.h"
#include "analysis/sharpnesscache.h"
#include "imaging/diskimagecache.h"
#include "imaging/imagepipeline.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QPainter>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cstdio>

namespace {

QString benchDir(const QString &name)
{
    const QString dir = QDir::tempPath() + QLatin1Char('/') + name;
    QDir().mkpath(dir);
    return dir;
}

// Photos with some structure, so JPEG decoding costs what it costs on real pictures.
void makeJpegs(const QString &dir, int count, QSize size)
{
    QImage base(size, QImage::Format_RGB32);
    for (int i = 0; i < count; ++i) {
        const QString path = QStringLiteral("%1/IMG_%2.jpg").arg(dir).arg(i, 5, 10, QLatin1Char('0'));
        if (QFile::exists(path))
            continue;
        QPainter p(&base);
        QLinearGradient g(0, 0, size.width(), size.height());
        g.setColorAt(0, QColor::fromHsv((i * 37) % 360, 160, 200));
        g.setColorAt(1, QColor::fromHsv((i * 37 + 120) % 360, 200, 60));
        p.fillRect(base.rect(), g);
        for (int k = 0; k < 40; ++k)
            p.fillRect(QRect((k * 97 + i * 13) % size.width(), (k * 53) % size.height(), size.width() / 9, size.height() / 11),
                       QColor::fromHsv((k * 29 + i) % 360, 220, 240));
        p.end();
        base.save(path, "JPEG", 90);
    }
}

double percentile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[size_t(q * double(v.size() - 1))];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int shots = 2000;
    for (int i = 1; i + 1 < argc; ++i)
        if (QByteArray(argv[i]) == "--shots")
            shots = QByteArray(argv[i + 1]).toInt();
    QTemporaryDir cacheHome;
    qputenv("XDG_CACHE_HOME", QFile::encodeName(cacheHome.path()));   // a cache of our own

    // ----- Warm grid
    const QString grid = benchDir(QStringLiteral("corvane-pipeline-grid-%1").arg(shots));
    std::printf("preparing %d shots in %s…\n", shots, qPrintable(grid));
    makeJpegs(grid, shots, QSize(1600, 1067));
    QStringList files = QDir(grid).entryList({QStringLiteral("*.jpg")}, QDir::Files, QDir::Name);
    for (QString &f : files)
        f = grid + QLatin1Char('/') + f;
    {
        ImagePipeline cold;   // fills the disk cache
        QElapsedTimer t;
        t.start();
        QEventLoop loop;
        int done = 0;
        QObject::connect(&cold, &ImagePipeline::thumbnailReady, [&] {
            if (++done == files.size())
                loop.quit();
        });
        for (const QString &f : std::as_const(files))
            cold.requestThumbnail(f, false);
        loop.exec();
        cold.waitForIdle();
        std::printf("cold grid:  %d thumbnails in %.0f ms (%.0f per second)\n", done, t.nsecsElapsed() / 1e6,
                    done * 1e9 / double(t.nsecsElapsed()));
    }
    double warmRate = 0;
    {
        ImagePipeline warm;   // empty memory cache, warm disk cache
        QElapsedTimer t;
        t.start();
        QEventLoop loop;
        int done = 0;
        QObject::connect(&warm, &ImagePipeline::thumbnailReady, [&] {
            if (++done == files.size())
                loop.quit();
        });
        for (const QString &f : std::as_const(files))
            warm.requestThumbnail(f, false);
        loop.exec();
        warmRate = done * 1e9 / double(t.nsecsElapsed());
        std::printf("warm grid:  %d thumbnails in %.0f ms: %.0f per second; ratio to the aim of 1000/s = %.2f\n", done,
                    t.nsecsElapsed() / 1e6, warmRate, warmRate / 1000.0);
    }

    // ----- Next shot after prefetch
    const QString big = benchDir(QStringLiteral("corvane-pipeline-next"));
    makeJpegs(big, 40, QSize(6000, 4000));
    QStringList bigFiles = QDir(big).entryList({QStringLiteral("*.jpg")}, QDir::Files, QDir::Name);
    QList<ImagePipeline::Shot> list;
    for (const QString &f : std::as_const(bigFiles))
        list.append({big + QLatin1Char('/') + f, false});
    // One culling pass over the shots with a fresh pipeline (empty memory cache): the time from
    // each move until the preview is on hand, the first (never prefetched) move apart.
    struct Pass {
        double first = 0, median = 0, p95 = 0;
        size_t moves = 0;
    };
    const auto cull = [&list] {
        ImagePipeline pipeline;
        pipeline.setViewport(1920, 1080);
        std::vector<double> waits;
        double first = 0;
        for (int index = 0; index < list.size(); ++index) {
            QElapsedTimer t;
            t.start();
            const QString path = list[index].path;
            pipeline.prefetch(list, index, +1, 3, 1);
            if (!pipeline.cachedPreview(path)) {
                QEventLoop loop;
                auto c = QObject::connect(&pipeline, &ImagePipeline::previewReady, [&](const QString &p) {
                    if (p == path)
                        loop.quit();
                });
                loop.exec();
                QObject::disconnect(c);
            }
            const double ms = t.nsecsElapsed() / 1e6;
            if (index == 0)
                first = ms;
            else
                waits.push_back(ms);
            // The photographer looks for a moment before the next key.
            QEventLoop pause;
            QTimer::singleShot(400, &pause, &QEventLoop::quit);
            pause.exec();
        }
        pipeline.waitForIdle();
        return Pass{first, percentile(waits, 0.5), percentile(waits, 0.95), waits.size()};
    };

    cull();   // fills the disk cache, so both passes below start from the same state
    const Pass quiet = cull();
    std::printf("next shot:  first (not prefetched) %.1f ms; then median %.2f ms, p95 %.2f ms over %zu moves; "
                "ratio to the aim of 10 ms = %.2f\n",
                quiet.first, quiet.median, quiet.p95, quiet.moves, quiet.median / 10.0);

    // The same pass while the whole folder's sharpness is measured in the background, as the
    // window does on opening a folder (its own cache file, so every shot is really decoded).
    QTemporaryDir sharpCache;
    SharpnessCache cache(sharpCache.path());
    SharpnessAnalyzer analyzer(nullptr, 0, &cache);
    QList<SharpnessAnalyzer::Job> jobs;
    for (const auto &shot : std::as_const(list))
        jobs.append({QUuid::createUuid(), shot.path, false});
    // More shots, when thumb_bench has left its 24-megapixel JPEGs, so the scoring lasts the pass.
    const QDir more(QDir::tempPath() + QStringLiteral("/corvane-thumb-bench"));
    for (const QString &f : more.entryList({QStringLiteral("*.JPG")}, QDir::Files, QDir::Name))
        jobs.append({QUuid::createUuid(), more.filePath(f), false});
    int scored = 0;
    QObject::connect(&analyzer, &SharpnessAnalyzer::progressChanged, [&](int done, int) { scored = std::max(scored, done); });
    analyzer.start(jobs);
    const Pass busy = cull();
    const int scoredDuring = scored;
    analyzer.cancel();
    std::printf("next shot while scoring sharpness: median %.2f ms, p95 %.2f ms (%d shots scored meanwhile); "
                "ratio to the quiet pass = %.2f\n",
                busy.median, busy.p95, scoredDuring, quiet.median > 0 ? busy.median / quiet.median : 0.0);
    return 0;
}
