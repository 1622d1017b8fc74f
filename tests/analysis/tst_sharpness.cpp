#include "analysis/sharpness.h"
#include "analysis/sharpnessanalyzer.h"
#include "analysis/sharpnesscache.h"
#include "model/sharpverdict.h"
#include "cli/sharpnesscommand.h"
#include "imaging/imagedecoder.h"
#include "imaging/jpeggrey.h"

#include "testenv.h"
#include "testscenes.h"

#include <QDateTime>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <array>
#include <vector>


class TestSharpness : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { TestEnv::isolate(); }

    void uniformGreyScoresZero()
    {
        QImage img(800, 600, QImage::Format_RGB32);
        img.fill(QColor(90, 90, 90));
        const SharpResult r = measureSharpness(img);
        QCOMPARE(r.best, 0.0);
        // Ties keep reading order: the top-left tile comes first.
        QCOMPARE(r.focusX, 0.5 / 12);
        QCOMPARE(r.focusY, 0.5 / 12);
        QVERIFY(!r.face && !r.eyesClosed && !r.eyeOpen);
        QCOMPARE(measureSharpness(QImage()).best, 0.0);
        // Measured at 16 × 16: every tile is narrower than three pixels, so none is measured.
        QCOMPARE(measureSharpness(sharpScene(10, 10)).best, 0.0);
    }

    void matchesPlainReference_data()
    {
        QTest::addColumn<int>("W");
        QTest::addColumn<int>("H");
        QTest::newRow("odd sizes") << 157 << 91;
        QTest::newRow("working maximum") << 1600 << 1066;
        QTest::newRow("wide tiles") << 5000 << 40;
        QTest::newRow("rows past one block") << 30000 << 48;
    }
    void matchesPlainReference()
    {
        // The grid measure written the slow, obvious way, on a fixed pattern with padded rows: the
        // border and the padding must never count.
        QFETCH(int, W);
        QFETCH(int, H);
        const int stride = W + 7;
        std::vector<uint8_t> grey(size_t(stride) * size_t(H));
        for (size_t i = 0; i < grey.size(); ++i)
            grey[i] = uint8_t((i * 2654435761u) >> 24);
        std::vector<std::array<double, 3>> tiles;
        for (int r = 0; r < 12; ++r)
            for (int c = 0; c < 12; ++c) {
                const int x0 = std::max(c * W / 12, 1), x1 = std::min((c + 1) * W / 12, W - 1);
                const int y0 = std::max(r * H / 12, 1), y1 = std::min((r + 1) * H / 12, H - 1);
                double v = 0;
                if (x0 + 2 < x1 && y0 + 2 < y1) {
                    double sum = 0, sq = 0, n = 0;
                    for (int y = y0; y < y1; ++y)
                        for (int x = x0; x < x1; ++x) {
                            auto at = [&](int xx, int yy) { return double(grey[size_t(yy * stride + xx)]); };
                            const double l = 4 * at(x, y) - at(x, y - 1) - at(x, y + 1) - at(x - 1, y) - at(x + 1, y);
                            sum += l;
                            sq += l * l;
                            ++n;
                        }
                    v = std::max(sq / n - (sum / n) * (sum / n), 0.0);
                }
                tiles.push_back({v, (c + 0.5) / 12, (r + 0.5) / 12});
            }
        std::stable_sort(tiles.begin(), tiles.end(), [](const auto &a, const auto &b) { return a[0] > b[0]; });
        const SharpResult got = measureGrey(grey.data(), W, H, stride);
        QCOMPARE(got.best, (tiles[0][0] + tiles[1][0] + tiles[2][0]) / 3);
        QCOMPARE(got.focusX, tiles[0][1]);
        QCOMPARE(got.focusY, tiles[0][2]);
    }

    void sharpBeatsBlurred()
    {
        const QImage sharp = sharpScene(1200, 800);
        const double s = measureSharpness(sharp).best;
        const double g = measureSharpness(gaussianLike(sharp, 4)).best;
        const double m = measureSharpness(boxBlur(sharp, 10, 0)).best;
        QVERIFY2(s > 110, qPrintable(QString::number(s)));
        QVERIFY2(s > 10 * g, qPrintable(QStringLiteral("%1 vs %2").arg(s).arg(g)));
        QVERIFY2(s > 4 * m, qPrintable(QStringLiteral("%1 vs %2").arg(s).arg(m)));
        QCOMPARE(sharpVerdict(g, std::nullopt, SharpSensitivity::normal), int(SharpBlurry));
        QCOMPARE(sharpVerdict(s, std::nullopt, SharpSensitivity::normal), int(SharpSharp));
    }

    void sharpSubjectOnBlurredBackground()
    {
        const QImage sharp = sharpScene(1200, 800);
        const QImage blurred = gaussianLike(sharp, 4);
        QImage mixed = blurred;
        // 300 × 240 in the middle covers several whole 100 × 66 tiles.
        const QRect subject(450, 280, 300, 240);
        QPainter(&mixed).drawImage(subject.topLeft(), sharp.copy(subject));
        const SharpResult r = measureSharpness(mixed);
        const double b = measureSharpness(blurred).best;
        QVERIFY2(r.best >= 110, qPrintable(QString::number(r.best)));
        QVERIFY(r.best > 10 * b);
        QVERIFY(subject.contains(QPoint(int(r.focusX * 1200), int(r.focusY * 800))));
    }

    void sameScoreWhateverTheFormat()
    {
        QTemporaryDir dir;
        // Neutral greys: JPEG and HEIC halve colour resolution by design, and saturated colour
        // edges would measure that rather than the small loss in brightness detail real photos show.
        const QImage sharp = sharpScene(2400, 1600).convertToFormat(QImage::Format_Grayscale8);
        const QString jpg = dir.filePath("a.jpg"), png = dir.filePath("a.png"), heic = dir.filePath("a.heic");
        QVERIFY(sharp.save(jpg, "JPG", 95));
        QVERIFY(sharp.save(png, "PNG"));
        const auto p = measureSharpnessOfFile(png, false);
        QVERIFY(p);
        auto near = [&](const std::optional<SharpResult> &r, const char *what) {
            QVERIFY2(r, what);
            QVERIFY2(std::abs(r->best - p->best) <= 0.1 * p->best,
                     qPrintable(QStringLiteral("%1: %2 vs PNG %3").arg(what).arg(r->best).arg(p->best)));
        };
        near(measureSharpnessOfFile(jpg, false), "JPEG");
        if (QProcess::execute("vips", {"copy", png, heic + "[Q=92]"}) != 0)
            QSKIP("this libvips cannot write HEIC");
        near(measureSharpnessOfFile(heic, false), "HEIC");
    }

    // Camera JPEGs are read as luma at a reduced DCT scale; that road must agree with a full
    // decode, follow the EXIF turn, and refuse what it cannot read faithfully.
    void jpegGreyRoadAgreesWithFullDecode()
    {
        QTemporaryDir dir;
        const QImage sharp = sharpScene(4000, 2600);
        QImage mixed = gaussianLike(sharp.scaled(1000, 650), 2).scaled(4000, 2600);
        const QRect subject(200, 900, 900, 800);   // stored on the left, half-way down
        QPainter(&mixed).drawImage(subject.topLeft(), sharp.copy(subject));
        const QString path = dir.filePath("IMG_0001.JPG");
        QVERIFY(mixed.save(path, "JPG", 93));

        const auto grey = JpegGreyDecoder::decode(path, [](QSize) { return QSize(1600, 1040); }, 1'000'000'000);
        QVERIFY(grey);
        QCOMPARE(grey->fullSize, QSize(4000, 2600));
        QCOMPARE(grey->grey.size(), QSize(2000, 1300));   // 4/8: the smallest scale covering 1600

        const auto viaGrey = measureSharpnessOfFile(path, false);
        // The general road: a colour decode at the working size (libvips shrinks JPEGs on load too).
        const SharpResult viaFull = measureSharpness(ImageDecoder::decode(path, false, Sharpness::kMaxSide).image);
        QVERIFY(viaGrey);
        QVERIFY2(std::abs(viaGrey->best - viaFull.best) <= 0.05 * viaFull.best,
                 qPrintable(QStringLiteral("%1 vs %2").arg(viaGrey->best).arg(viaFull.best)));
        QCOMPARE(viaGrey->focusX, viaFull.focusX);
        QCOMPARE(viaGrey->focusY, viaFull.focusY);
        QVERIFY(viaGrey->focusX < 0.3);

        // Turned a quarter to the right by its EXIF tag: the subject is now at the top.
        if (QProcess::execute("exiv2", {"-q", "-M", "set Exif.Image.Orientation 6", path}) != 0)
            QSKIP("exiv2 is needed to tag the orientation");
        const auto turned = measureSharpnessOfFile(path, false);
        QVERIFY(turned);
        // Turned tiles fall one pixel apart here and there: nearly, not exactly, the same score.
        QVERIFY(std::abs(turned->best - viaGrey->best) <= 0.02 * viaGrey->best);
        QVERIFY2(turned->focusY < 0.3 && turned->focusX > 0.3 && turned->focusX < 0.7,
                 qPrintable(QStringLiteral("(%1, %2)").arg(turned->focusX).arg(turned->focusY)));
    }

    void cutJpegIsNotReadAsGrey()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("cut.jpg");
        QVERIFY(sharpScene(1200, 800).save(path, "JPG", 90));
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QVERIFY(f.resize(f.size() / 2));
        f.close();
        QVERIFY(!JpegGreyDecoder::decode(path, [](QSize s) { return s; }, 1'000'000'000));
        QVERIFY(!measureSharpnessOfFile(TestEnv::touch(dir.filePath("broken.jpg"), "not a jpeg"), false));
        const QString png = TestEnv::touch(dir.filePath("a.png"), "\x89PNG not really");
        QVERIFY(!JpegGreyDecoder::decode(png, [](QSize s) { return s; }, 1'000'000'000));
    }

    void corruptFileGivesEmptyCache_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("garbage") << QByteArray("\x01\x02 not json {");
        QTest::newRow("array") << QByteArray("[1,2,3]");
        QTest::newRow("bad record") << QByteArray(R"({"a|1|2":{"s":"x"},"b|1|2":7})");
        QTest::newRow("empty") << QByteArray();
    }
    void corruptFileGivesEmptyCache()
    {
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("nitidez-v6.json"), bytes);
        SharpnessCache cache(dir.path());
        QVERIFY(!cache.get("a|1|2"));
        QVERIFY(!cache.get("b|1|2"));
        // And it recovers: a new result replaces the damaged file.
        cache.put("c|1|2", SharpResult{});
        QVERIFY(cache.save());
        QVERIFY(SharpnessCache(dir.path()).get("c|1|2"));
    }

    void photoKeyFollowsFileIdentity()
    {
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("x.jpg"), "12345");
        const QString k1 = SharpnessCache::photoKey(path);
        QCOMPARE(SharpnessCache::photoKey(path), k1);

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        const QDateTime when = f.fileTime(QFileDevice::FileModificationTime);
        QVERIFY(f.setFileTime(when.addSecs(-3600), QFileDevice::FileModificationTime));
        f.close();
        const QString k2 = SharpnessCache::photoKey(path);
        QVERIFY(k2 != k1);

        TestEnv::touch(path, "123456");
        QVERIFY(SharpnessCache::photoKey(path) != k2);
    }

    void commandRejectsBadUsage()
    {
        QCOMPARE(sharpnessCommand({}), 2);
        QCOMPARE(sharpnessCommand({"--sensitivity", "extreme", "/tmp"}), 2);
        QCOMPARE(sharpnessCommand({"--bogus", "/tmp"}), 2);
        QCOMPARE(sharpnessCommand({"/nonexistent/corvane-folder"}), 1);
    }

    void commandMeasuresAndFillsCache()
    {
        QTemporaryDir dir;
        const QImage sharp = sharpScene(1200, 800);
        QVERIFY(sharp.save(dir.filePath("a.jpg"), "JPG", 95));
        QVERIFY(gaussianLike(sharp, 4).save(dir.filePath("b.jpg"), "JPG", 95));
        QCOMPARE(sharpnessCommand({"--json", "--sensitivity", "strict", dir.path()}), 0);
        SharpnessCache &cache = SharpnessCache::shared();
        QVERIFY(!cache.isDirty());
        const auto a = cache.get(SharpnessCache::photoKey(dir.filePath("a.jpg")));
        const auto b = cache.get(SharpnessCache::photoKey(dir.filePath("b.jpg")));
        QVERIFY(a && b);
        QVERIFY(a->best > b->best);
        QVERIFY(QFile::exists(cache.url()));
        // A second run reads everything from the cache.
        QCOMPARE(sharpnessCommand({dir.path()}), 0);
    }
    // The background service: every shot comes back once, from the cache on a second round, and
    // a new folder silences the old one.
    void analyzerScoresEveryShot()
    {
        QTemporaryDir dir, cacheDir;
        const QImage sharp = sharpScene(900, 600);
        QList<SharpnessAnalyzer::Job> jobs;
        for (int i = 0; i < 6; ++i) {
            const QString path = dir.filePath(QStringLiteral("f%1.jpg").arg(i));
            QVERIFY((i % 2 ? gaussianLike(sharp, 3) : sharp).save(path, "JPG", 92));
            jobs.append({QUuid::createUuid(), path, false});
        }
        jobs.append({QUuid::createUuid(), dir.filePath("missing.jpg"), false});   // counts, gives nothing

        auto run = [&](SharpnessCache &cache, SharpnessAnalyzer::Results &all) {
            SharpnessAnalyzer analyzer(nullptr, 2, &cache);
            QList<std::pair<int, int>> progress;
            connect(&analyzer, &SharpnessAnalyzer::measured, this, [&](const SharpnessAnalyzer::Results &r) {
                for (auto it = r.cbegin(); it != r.cend(); ++it) {
                    QVERIFY2(!all.contains(it.key()), "a shot reported twice");
                    all.insert(it.key(), it.value());
                }
            });
            connect(&analyzer, &SharpnessAnalyzer::progressChanged, this, [&](int d, int t) { progress.append({d, t}); });
            QSignalSpy finished(&analyzer, &SharpnessAnalyzer::finished);
            analyzer.start(jobs);
            analyzer.add(jobs.mid(0, 3));   // already queued: ignored
            QCOMPARE(analyzer.total(), 7);
            QVERIFY(finished.wait(30000));
            QVERIFY(!analyzer.isBusy());
            QCOMPARE(progress.first(), std::make_pair(0, 7));
            QCOMPARE(progress.last(), std::make_pair(0, 0));
        };

        SharpnessCache cache(cacheDir.path());
        SharpnessAnalyzer::Results first, second;
        run(cache, first);
        QCOMPARE(first.size(), 6);
        for (int i = 0; i < 6; ++i) {
            const double score = first.value(jobs[i].id).first;
            QCOMPARE(sharpVerdict(score, std::nullopt, SharpSensitivity::normal), i % 2 ? int(SharpBlurry) : int(SharpSharp));
        }
        QTRY_VERIFY(QFile::exists(cache.url()));   // written by the service when the folder is done
        QVERIFY(!cache.isDirty());

        // A restart: the same answers from the file alone.
        SharpnessCache reopened(cacheDir.path());
        QVERIFY(reopened.get(SharpnessCache::photoKey(jobs[0].path)));
        run(reopened, second);
        QCOMPARE(second, first);
    }

    void analyzerDropsTheOldFolder()
    {
        QTemporaryDir dir, cacheDir;
        const QImage sharp = sharpScene(1600, 1000);
        QList<SharpnessAnalyzer::Job> oldFolder, newFolder;
        for (int i = 0; i < 12; ++i) {
            const QString path = dir.filePath(QStringLiteral("old%1.png").arg(i));
            QVERIFY(sharp.save(path, "PNG"));
            oldFolder.append({QUuid::createUuid(), path, false});
        }
        const QString fresh = dir.filePath("new.jpg");
        QVERIFY(sharp.save(fresh, "JPG", 90));
        newFolder.append({QUuid::createUuid(), fresh, false});

        SharpnessCache cache(cacheDir.path());
        SharpnessAnalyzer analyzer(nullptr, 1, &cache);
        QSet<QUuid> seen;
        connect(&analyzer, &SharpnessAnalyzer::measured, this, [&](const SharpnessAnalyzer::Results &r) {
            for (auto it = r.cbegin(); it != r.cend(); ++it)
                seen.insert(it.key());
        });
        QSignalSpy finished(&analyzer, &SharpnessAnalyzer::finished);
        analyzer.start(oldFolder);
        analyzer.start(newFolder);
        QCOMPARE(analyzer.total(), 1);
        QVERIFY(finished.wait(30000));
        analyzer.waitForDone();
        QTest::qWait(300);   // anything late would arrive now
        QCOMPARE(seen, QSet<QUuid>{newFolder.first().id});
        // At most the one measure that was running when the folder changed was done for nothing.
        int measuredOld = 0;
        for (const auto &job : std::as_const(oldFolder))
            measuredOld += cache.get(SharpnessCache::photoKey(job.path)) ? 1 : 0;
        QVERIFY2(measuredOld <= 1, qPrintable(QString::number(measuredOld)));
    }
};

QTEST_GUILESS_MAIN(TestSharpness)
#include "tst_sharpness.moc"
