// The disk cache of thumbnails and previews: keys from file identity, atomic JPEG writes, reads
// that refuse damaged files, pruning by last access and by size, and the two shared instances
// living under the user's cache folder.
#include "imaging/diskimagecache.h"
#include "testenv.h"

#include <QDirIterator>
#include <QSettings>
#include <QtTest>

#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A picture with structure (not one flat colour), so a JPEG round trip is a real test.
QImage picture(int w = 160, int h = 120)
{
    QImage image(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image.setPixel(x, y, x < w / 4 && y < h / 4     ? qRgb(230, 30, 30)
                                 : x >= w / 2 && y >= h / 2 ? qRgb(30, 200, 40)
                                                            : qRgb(20, 60, 200));
    return image;
}

// Mean absolute difference per channel.
double difference(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return 1e9;
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            sum += qAbs(qRed(p) - qRed(q)) + qAbs(qGreen(p) - qGreen(q)) + qAbs(qBlue(p) - qBlue(q));
        }
    return sum / (3.0 * a.width() * a.height());
}

// Sets a file's last access to `daysAgo` days before now (modification left alone).
bool setAccess(const QString &path, double daysAgo)
{
    const double t = double(QDateTime::currentSecsSinceEpoch()) - daysAgo * 86400;
    struct timespec times[2] = {{time_t(t), 0}, {0, UTIME_OMIT}};
    return utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

bool setModified(const QString &path, qint64 secs, long nanos = 0)
{
    struct timespec times[2] = {{0, UTIME_OMIT}, {time_t(secs), nanos}};
    return utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

QStringList filesIn(const QString &dir)
{
    QStringList names = QDir(dir).entryList(QDir::Files | QDir::Hidden);
    names.sort();
    return names;
}

} // namespace

class TestDiskImageCache : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { TestEnv::isolate(); }

    // ----- Keys

    void keyFollowsIdentity()
    {
        QTemporaryDir dir;
        const QString photo = TestEnv::touch(dir.filePath("a.jpg"), "12345");
        QVERIFY(setModified(photo, 1700000000));
        const QString base = *DiskImageCache::diskKey(photo, 420);
        // The same file named through "." and ".." is the same entry.
        QVERIFY(QDir(dir.path()).mkdir("sub"));
        QCOMPARE(*DiskImageCache::diskKey(dir.path() + "/./sub/../a.jpg", 420), base);
        QVERIFY(!DiskImageCache::diskKey(dir.filePath("missing.jpg"), 420).has_value());
        QVERIFY(!DiskImageCache::diskKey(QString(), 420).has_value());

        QVERIFY(*DiskImageCache::diskKey(photo, 2560) != base);                      // pixels
        QVERIFY(setModified(photo, 1700000000, 500000000));
        const QString touched = *DiskImageCache::diskKey(photo, 420);
        QVERIFY(touched != base);                                                     // sub-second date
        QVERIFY(setModified(photo, 1700000001));
        QVERIFY(*DiskImageCache::diskKey(photo, 420) != base);                        // date
        QVERIFY(setModified(photo, 1700000000));
        QCOMPARE(*DiskImageCache::diskKey(photo, 420), base);                         // back again
        TestEnv::touch(photo, "123456");
        QVERIFY(setModified(photo, 1700000000));
        QVERIFY(*DiskImageCache::diskKey(photo, 420) != base);                        // size
        const QString other = TestEnv::touch(dir.filePath("b.jpg"), "12345");
        QVERIFY(setModified(other, 1700000000));
        QVERIFY(*DiskImageCache::diskKey(other, 420) != base);                        // path
    }

    // ----- Reads and writes

    void roundTrip()
    {
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        QVERIFY(QDir(cache.dir()).exists());   // made on construction
        const QString key = QString(64, 'a');
        QVERIFY(cache.load(key).isNull());
        QVERIFY(!cache.store(QImage(), key));

        const QImage image = picture();
        QVERIFY(cache.store(image, key));
        QCOMPARE(filesIn(cache.dir()), QStringList{key + ".jpg"});   // no temporary left over
        QVERIFY(QFile(cache.dir() + "/" + key + ".jpg").size() > 100);
        const QImage back = cache.load(key);
        QCOMPARE(back.size(), image.size());
        QCOMPARE(back.format(), QImage::Format_RGB32);
        QVERIFY2(difference(back, image) < 4.0, qPrintable(QString::number(difference(back, image))));

        // Overwritten in place.
        QVERIFY(cache.store(picture(80, 60), key));
        QCOMPARE(cache.load(key).size(), QSize(80, 60));
        QCOMPARE(filesIn(cache.dir()).size(), 1);
    }

    void damagedFilesDoNotLoad_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        QVERIFY(cache.store(picture(), QString(64, 'c')));
        QFile f(cache.dir() + "/" + QString(64, 'c') + ".jpg");
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray good = f.readAll();
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("garbage") << QByteArray(5000, 'z');
        QTest::newRow("cut in half") << good.left(good.size() / 2);
        QTest::newRow("header only") << good.left(200);
    }
    void damagedFilesDoNotLoad()
    {
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        const QString key = QString(64, 'd');
        TestEnv::touch(cache.dir() + "/" + key + ".jpg", bytes);
        QVERIFY(cache.load(key).isNull());
        // The caller decodes again and overwrites it.
        QVERIFY(cache.store(picture(), key));
        QVERIFY(!cache.load(key).isNull());
    }

    void writeCutShort()
    {
        // The file-size limit makes write() fail half-way, as a full disk would.
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        const QString key = QString(64, 'a');
        QVERIFY(cache.store(picture(), key));
        struct rlimit old {};
        QVERIFY(getrlimit(RLIMIT_FSIZE, &old) == 0);
        const auto previous = signal(SIGXFSZ, SIG_IGN);
        struct rlimit tight = old;
        tight.rlim_cur = 200;
        QVERIFY(setrlimit(RLIMIT_FSIZE, &tight) == 0);
        const bool stored = cache.store(picture(640, 480), key);
        setrlimit(RLIMIT_FSIZE, &old);
        signal(SIGXFSZ, previous);
        QVERIFY(!stored);
        QCOMPARE(filesIn(cache.dir()), QStringList{key + ".jpg"});   // no temporary left behind
        QCOMPARE(cache.load(key).size(), QSize(160, 120));            // the old entry is untouched
    }

    void failedWritesLeaveNothing()
    {
        if (geteuid() == 0)
            QSKIP("root writes into read-only folders");
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        QVERIFY(QFile::setPermissions(cache.dir(), QFile::ReadOwner | QFile::ExeOwner));
        QVERIFY(!cache.store(picture(), QString(64, 'e')));
        cache.storeAsync(picture(), QString(64, 'f'));
        cache.waitForWrites();
        QVERIFY(QFile::setPermissions(cache.dir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(filesIn(cache.dir()), QStringList());
    }

    void cacheFolderMissing()
    {
        // A folder that can't exist (under a file): every operation fails quietly.
        QTemporaryDir dir;
        const QString blocker = TestEnv::touch(dir.filePath("file"));
        DiskImageCache cache(blocker + "/c", 0.88, 100);
        QVERIFY(!cache.store(picture(), QString(64, 'a')));
        QVERIFY(cache.load(QString(64, 'a')).isNull());
        QCOMPARE(cache.totalSize(), 0);
        cache.prune(1);
        cache.clear();
    }

    void keysStayInTheFolder()
    {
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        for (const QString &bad : {QString(), QStringLiteral("../escape"), QStringLiteral("a/b"), QStringLiteral(".hidden")})
            QVERIFY(!cache.store(picture(), bad));
        QCOMPARE(filesIn(dir.path()), QStringList());
        QCOMPARE(filesIn(cache.dir()), QStringList());
    }

    void loadRefreshesOldAccess()
    {
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 0);
        const QString key = QString(64, 'a');
        QVERIFY(cache.store(picture(), key));
        const QString file = cache.dir() + "/" + key + ".jpg";
        QVERIFY(setAccess(file, 40));
        QVERIFY(!cache.load(key).isNull());
        cache.prune(30);   // read just now: not old any more
        QCOMPARE(filesIn(cache.dir()), QStringList{key + ".jpg"});
    }

    // ----- Pruning

    void pruneByAge_data()
    {
        QTest::addColumn<int>("days");
        QTest::addColumn<QStringList>("kept");
        QTest::newRow("30 days") << 30 << QStringList{"fresh.jpg", "recent.jpg"};
        QTest::newRow("0 days: nothing by age") << 0 << QStringList{"ancient.jpg", "fresh.jpg", "old.jpg", "recent.jpg"};
    }
    void pruneByAge()
    {
        QFETCH(int, days);
        QFETCH(QStringList, kept);
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.82, 0);
        const QString d = cache.dir();
        QVERIFY(setAccess(TestEnv::touch(d + "/fresh.jpg", QByteArray(10, 'x')), 0));
        QVERIFY(setAccess(TestEnv::touch(d + "/recent.jpg", QByteArray(10, 'x')), 29));
        QVERIFY(setAccess(TestEnv::touch(d + "/old.jpg", QByteArray(10, 'x')), 31));
        QVERIFY(setAccess(TestEnv::touch(d + "/ancient.jpg", QByteArray(10, 'x')), 400));
        QDir(d).mkdir("sub");   // folders are not entries
        cache.prune(days);
        QCOMPARE(filesIn(d), kept);
        QVERIFY(QDir(d + "/sub").exists());
    }

    void pruneAgeThenSize()
    {
        QTemporaryDir dir;
        DiskImageCache cache(dir.filePath("c"), 0.88, 1000);
        const QString d = cache.dir();
        QVERIFY(setAccess(TestEnv::touch(d + "/stale.jpg", QByteArray(600, 'x')), 100));
        QVERIFY(setAccess(TestEnv::touch(d + "/a.jpg", QByteArray(500, 'x')), 5));
        QVERIFY(setAccess(TestEnv::touch(d + "/b.jpg", QByteArray(400, 'x')), 3));
        QVERIFY(setAccess(TestEnv::touch(d + "/c.jpg", QByteArray(300, 'x')), 1));
        // Age removes "stale"; 1200 > 1000, so "a" goes (700 ≤ 800) and the rest stays.
        cache.prune(30);
        QCOMPARE(filesIn(d), (QStringList{"b.jpg", "c.jpg"}));
    }

    // ----- The shared instances and the launch prune

    void pruneAtLaunch()
    {
        QSettings().setValue("cacheDays", 10);
        DiskImageCache &thumbs = DiskImageCache::thumbs();
        DiskImageCache &previews = DiskImageCache::previews();
        thumbs.clear();
        previews.clear();
        QVERIFY(setAccess(TestEnv::touch(thumbs.dir() + "/old.jpg", QByteArray(10, 'x')), 11));
        QVERIFY(setAccess(TestEnv::touch(thumbs.dir() + "/new.jpg", QByteArray(10, 'x')), 9));
        QVERIFY(setAccess(TestEnv::touch(previews.dir() + "/old.jpg", QByteArray(10, 'x')), 20));
        DiskImageCache::pruneAtLaunch().waitForFinished();
        QCOMPARE(filesIn(thumbs.dir()), QStringList{"new.jpg"});
        QCOMPARE(filesIn(previews.dir()), QStringList());
        QSettings().remove("cacheDays");
    }
};

QTEST_GUILESS_MAIN(TestDiskImageCache)
#include "tst_diskimagecache.moc"
