// The pipeline's rules: preview sizes, queue widths, caches, priorities, prefetch, disk use.
#include "imaging/diskimagecache.h"
#include "imaging/imagepipeline.h"
#include "imaging/memorycache.h"
#include "imaging/workqueue.h"
#include "testenv.h"
#include "testimages.h"

#include <QSemaphore>
#include <QSettings>
#include <QtTest>

using TestImages::writeJpeg;

class TestImagePipeline : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }
    void cleanup() { QSettings().clear(); }

    void previewPixels_data()
    {
        QTest::addColumn<QString>("setting");
        QTest::addColumn<int>("viewport");
        QTest::addColumn<int>("screen");
        QTest::addColumn<int>("pixels");
        QTest::newRow("rounded up") << "screen" << 1025 << 0 << 1280;
        QTest::newRow("huge") << "screen" << 5000 << 0 << 4096;
        QTest::newRow("no viewport: screen") << "screen" << 0 << 2560 << 2560;
        QTest::newRow("fixed 3840") << "3840" << 800 << 0 << 3840;
        QTest::newRow("unknown text") << "grande" << 1000 << 0 << 1024;
    }
    void previewPixels()
    {
        QFETCH(QString, setting);
        QFETCH(int, viewport);
        QFETCH(int, screen);
        QFETCH(int, pixels);
        QCOMPARE(ImagePipeline::previewPixelsFor(setting, viewport, screen), pixels);
    }

    void viewportIgnoresSmallChanges()
    {
        ImagePipeline p;
        p.setViewport(1500, 900);
        QCOMPARE(p.viewportLong(), 1500);
        p.setViewport(1508, 900);
        QCOMPARE(p.viewportLong(), 1500);
        p.setViewport(1509, 900);
        QCOMPARE(p.viewportLong(), 1509);
        p.setViewport(0, 0);
        QCOMPARE(p.viewportLong(), 1509);
    }

    void queueWidthsFollowTheDisk()
    {
        // A spinning disk is read by fewer workers than an SSD, which uses the cores it has.
        QVERIFY(ImagePipeline::queueWidths(DiskKind::rotational, 8).first < ImagePipeline::queueWidths(DiskKind::ssd, 8).first);
        QVERIFY(ImagePipeline::queueWidths(DiskKind::ssd, 8).first < ImagePipeline::queueWidths(DiskKind::ssd, 16).first);
        ImagePipeline p;
        p.configure("/fotos", DiskKind::rotational);
        const int spinning = ImagePipeline::queueWidths(DiskKind::rotational, QThread::idealThreadCount()).first;
        QCOMPARE(p.thumbQueueWidth(), spinning);
        p.configure("/fotos", DiskKind::network);   // same folder: nothing changes
        QCOMPARE(p.thumbQueueWidth(), spinning);
    }

    void memoryCacheEvictsLeastRecentlyUsed()
    {
        MemoryCache<QString, int> byCount(3);
        byCount.insert("a", 1);
        byCount.insert("b", 2);
        byCount.insert("c", 3);
        QCOMPARE(byCount.get("a"), std::optional<int>(1));   // "a" is now the newest
        byCount.insert("d", 4);
        QVERIFY(!byCount.contains("b"));
        QVERIFY(byCount.contains("a"));
        MemoryCache<QString, int> byCost(100, 1000);
        byCost.insert("x", 1, 600);
        byCost.insert("y", 2, 600);
        QVERIFY(!byCost.contains("x"));
        QCOMPARE(byCost.totalCost(), 600);
        byCost.insert("huge", 3, 5000);   // one entry over the limit is still kept
        QCOMPARE(byCost.count(), 1);
    }

    void workQueueRunsBestFirstAndSkipsCancelled()
    {
        WorkQueue q("test", 1);
        QSemaphore gate;
        QStringList order;
        QMutex lock;
        auto record = [&](const QString &name) {
            return [&, name] {
                QMutexLocker locker(&lock);
                order << name;
            };
        };
        q.submit([&] { gate.acquire(); }, 100);   // holds the only worker
        QTest::qWait(50);
        q.submit(record("low"), -4);
        auto normal = q.submit(record("normal"), 0);
        q.submit(record("high"), 4);
        auto cancelled = q.submit(record("cancelled"), 8);
        q.submit(record("newer normal"), 0);
        q.cancel(cancelled);
        q.setPriority(normal, 6);
        gate.release();
        q.waitForDone();
        QCOMPARE(order, QStringList({"normal", "high", "newer normal", "low"}));
    }

    void workQueueLetsGoOfRunAndCancelledWork()
    {
        // Each work holds its own job, as a caller that must recognise its job later does: once
        // the job has run or been cancelled, nothing may keep that loop alive.
        WorkQueue q("test", 1);
        QSemaphore gate;
        q.submit([&] { gate.acquire(); }, 100);   // holds the only worker
        auto selfHeld = [&q](int priority) {
            auto self = std::make_shared<WorkQueue::JobPtr>();
            *self = q.submit([self] {}, priority);
            return std::weak_ptr<WorkQueue::Job>(*self);
        };
        const std::weak_ptr<WorkQueue::Job> ran = selfHeld(0);
        const std::weak_ptr<WorkQueue::Job> cancelled = selfHeld(0);
        q.cancel(cancelled.lock());
        QVERIFY(cancelled.expired());
        gate.release();
        q.waitForDone();
        QVERIFY(ran.expired());
    }

    void thumbnailsComeFromTheDiskCacheTheSecondTime()
    {
        QTemporaryDir dir;
        const QString file = writeJpeg(dir.filePath("a.jpg"), 1200, 800, Qt::red);
        {
            ImagePipeline p;
            const auto made = p.thumbnailNow(file, false);
            QVERIFY(made.box);
            QCOMPARE(made.source, QStringLiteral("JPEG"));
            QCOMPARE(made.box->image.width(), 420);
            QCOMPARE(made.box->image.height(), 280);
            p.waitForIdle();
        }
        ImagePipeline fresh;
        const auto again = fresh.thumbnailNow(file, false);
        QCOMPARE(again.source, QStringLiteral("caché en disco"));
        QCOMPARE(again.box->image.size(), QSize(420, 280));
        QVERIFY(fresh.cachedThumbnail(file));
        // A changed file gets a new key: decoded again.
        QTest::qWait(20);
        writeJpeg(file, 1200, 800, Qt::blue);
        ImagePipeline third;
        QCOMPARE(third.thumbnailNow(file, false).source, QStringLiteral("JPEG"));
    }

    void onlySlowPreviewsAreWrittenToDisk()
    {
        QTemporaryDir dir;
        const QString file = writeJpeg(dir.filePath("small.jpg"), 300, 200, Qt::green);
        DiskImageCache::previews().clear();
        ImagePipeline p;
        const auto made = p.previewNow(file, false, 2048);
        QVERIFY(made.box);
        p.waitForIdle();
        // How long the decode took is the machine's business; the disk write follows it.
        QCOMPARE(DiskImageCache::previews().totalSize() > 0, made.ms > ImagePipeline::kSlowDecodeMs);
    }

    void cachedPreviewServesWhenBigEnough()
    {
        QTemporaryDir dir;
        const QString file = writeJpeg(dir.filePath("b.jpg"), 4000, 3000, Qt::yellow);
        ImagePipeline p;
        QSettings().setValue("previewResolution", "3840");
        QSignalSpy ready(&p, &ImagePipeline::previewReady);
        p.preview({file, false}, ImagePipeline::VeryHigh);
        QVERIFY(ready.wait(10000));
        QVERIFY(p.cachedPreview(file));
        QCOMPARE(p.previewInfo(file)->first, QStringLiteral("JPEG"));
        // 3840 serves a 3328 view (85 % rule)…
        QSettings().setValue("previewResolution", "screen");
        p.setViewport(3200, 2000);
        QCOMPARE(p.previewPixels(), 3328);
        QVERIFY(p.cachedPreview(file));
        // …but not a 5120 one.
        QSettings().setValue("previewResolution", "5120");
        QVERIFY(!p.cachedPreview(file));
    }

    void prefetchAtTheEndLooksOnlyBehind()
    {
        QTemporaryDir dir;
        QList<ImagePipeline::Shot> shots;
        for (int i = 0; i < 6; ++i)
            shots.append({writeJpeg(dir.filePath(QStringLiteral("%1.jpg").arg(i)), 64, 48, Qt::gray), false});
        ImagePipeline p;
        p.prefetch(shots, 5, +1, 3, 1);
        QStringList running = p.runningPreviews();
        running.sort();
        QCOMPARE(running, QStringList({shots[4].path, shots[5].path}));
        // Moving on cancels what is no longer wanted.
        p.prefetch(shots, 1, -1, 3, 1);
        running = p.runningPreviews();
        running.sort();
        QCOMPARE(running, QStringList({shots[0].path, shots[1].path, shots[2].path}));
        p.prefetch(shots, 7, +1, 3, 1);   // outside the list: nothing changes
        QCOMPARE(p.runningPreviews().size(), 3);
        p.waitForIdle();
    }
};

QTEST_MAIN(TestImagePipeline)
#include "tst_imagepipeline.moc"
