// The open folder watched on a real file system: files created, deleted, renamed and moved by
// "another program" (this test), and the folder itself vanishing. Short delays keep it quick;
// one case keeps the real ones, for the within-a-second promise.
#include "browser/folderwatcher.h"
#include "testenv.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
// Delays short enough for quick tests, long enough for inotify to deliver a burst together.
constexpr FolderWatcher::Timing kFast{30, 90};
// Nothing more can come: a few debounce periods with no report.
constexpr int kQuietMs = 150;
} // namespace

class TestFolderWatcher : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void startsQuietWhenNothingChanged();
    void reportsFilesThatArrivedBeforeWatching();
    void changes_data();
    void changes();
    void steadyStreamStillReports();
    void folderGone();
    void missingFolderIsGone();
    void recreatedFolderIsWatchedAgain();
    void stopAndSwitchSilenceTheOldFolder();

private:
    QString path(const QString &name) const { return _folder + QLatin1Char('/') + name; }
    QStringList paths(const QStringList &names) const
    {
        QStringList out;
        for (const QString &n : names)
            out << path(n);
        return out;
    }
    // The media files and sidecars the listing would have shown, plus things it never reports.
    QStringList known() const
    {
        return paths({"IMG_0001.JPG", "IMG_0001.NEF", "IMG_0002.jpg", "IMG_0002.xmp",
                      // not compared: a subfolder's file (recursive view) and a non-media file
                      "sub/IMG_0009.jpg", "notas.txt"});
    }

    // Watching, and past the first look at the folder.
    static void settle(FolderWatcher &w) { QTRY_VERIFY(!w.isPending()); }

    std::unique_ptr<QTemporaryDir> _tmp;
    QString _folder;
};

void TestFolderWatcher::initTestCase()
{
    TestEnv::isolate();
}

void TestFolderWatcher::init()
{
    _tmp = std::make_unique<QTemporaryDir>();
    QVERIFY(_tmp->isValid());
    _folder = _tmp->filePath(QStringLiteral("sesion"));
    for (const char *name : {"IMG_0001.JPG", "IMG_0001.NEF", "IMG_0002.jpg", "IMG_0002.xmp", "notas.txt",
                             ".corvane.json", "sub/IMG_0009.jpg"})
        TestEnv::touch(path(QString::fromLatin1(name)));
}

void TestFolderWatcher::cleanup()
{
    _tmp.reset();
}

void TestFolderWatcher::startsQuietWhenNothingChanged()
{
    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    QSignalSpy gone(&w, &FolderWatcher::folderGone);
    w.watch(_folder, known());
    QCOMPARE(w.folder(), _folder);
    settle(w);
    QTest::qWait(kQuietMs);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(gone.size(), 0);
}

void TestFolderWatcher::reportsFilesThatArrivedBeforeWatching()
{
    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    // The listing missed IMG_0002.jpg and still lists a file deleted since.
    QStringList k = known();
    k.removeAll(path("IMG_0002.jpg"));
    k << path("IMG_0000.CR3");
    w.watch(_folder + QStringLiteral("/"), k);   // a trailing slash names the same folder
    QVERIFY(changed.wait(1000));
    QCOMPARE(changed.first().at(0).toStringList(), paths({"IMG_0002.jpg"}));
    QCOMPARE(changed.first().at(1).toStringList(), paths({"IMG_0000.CR3"}));
}

void TestFolderWatcher::changes_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<QStringList>("removed");
    const QStringList none;

    QTest::newRow("new JPEG") << "create IMG_0003.JPG" << QStringList{"IMG_0003.JPG"} << none;
    QTest::newRow("new RAW") << "create IMG_0003.CR3" << QStringList{"IMG_0003.CR3"} << none;
    QTest::newRow("new sidecar") << "create IMG_0001.xmp" << QStringList{"IMG_0001.xmp"} << none;
    QTest::newRow("new video") << "create MVI_0004.MOV" << QStringList{"MVI_0004.MOV"} << none;
    QTest::newRow("deleted RAW") << "delete IMG_0001.NEF" << none << QStringList{"IMG_0001.NEF"};
    QTest::newRow("deleted sidecar") << "delete IMG_0002.xmp" << none << QStringList{"IMG_0002.xmp"};
    QTest::newRow("renamed") << "rename IMG_0002.jpg boda_0002.jpg" << QStringList{"boda_0002.jpg"}
                             << QStringList{"IMG_0002.jpg"};
    QTest::newRow("moved in from elsewhere") << "movein DSC_0100.ARW" << QStringList{"DSC_0100.ARW"} << none;
    QTest::newRow("moved into a subfolder") << "rename IMG_0001.JPG sub/IMG_0001.JPG" << none
                                            << QStringList{"IMG_0001.JPG"};
    QTest::newRow("received through a hidden temporary file")
        << "receive IMG_0005.NEF" << QStringList{"IMG_0005.NEF"} << none;
    QTest::newRow("burst, sorted naturally") << "burst IMG_10.jpg IMG_9.jpg IMG_1.jpg"
                                             << QStringList{"IMG_1.jpg", "IMG_9.jpg", "IMG_10.jpg"} << none;
    QTest::newRow("several kinds at once") << "mixed" << QStringList{"IMG_0007.jpg", "IMG_0007.xmp"}
                                           << QStringList{"IMG_0001.NEF"};

    // Nothing to report
    QTest::newRow("hidden file") << "create .corvane-1234.part" << none << none;
    QTest::newRow("text file") << "create lista.txt" << none << none;
    QTest::newRow("file in a subfolder") << "create sub/IMG_0010.jpg" << none << none;
    QTest::newRow("folder named like a JPEG") << "mkdir Exportadas.jpg" << none << none;
    QTest::newRow("content rewritten") << "rewrite IMG_0001.JPG" << none << none;
    QTest::newRow("created then deleted at once") << "flash IMG_0099.jpg" << none << none;
}

void TestFolderWatcher::changes()
{
    QFETCH(QString, action);
    QFETCH(QStringList, added);
    QFETCH(QStringList, removed);

    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    w.watch(_folder, known());
    settle(w);
    QCOMPARE(changed.size(), 0);

    const QStringList words = action.split(QLatin1Char(' '));
    const QString verb = words.first();
    if (verb == "create") {
        TestEnv::touch(path(words[1]));
    } else if (verb == "delete") {
        QVERIFY(QFile::remove(path(words[1])));
    } else if (verb == "rename") {
        QVERIFY(QFile::rename(path(words[1]), path(words[2])));
    } else if (verb == "movein") {
        const QString outside = TestEnv::touch(_tmp->filePath(words[1]));
        QVERIFY(QFile::rename(outside, path(words[1])));
    } else if (verb == "receive") {
        // How a received file lands: written under a hidden name, then renamed into place.
        const QString part = path(QStringLiteral(".corvane-77.part"));
        TestEnv::touch(part, QByteArray(256 * 1024, 'r'));
        QTest::qWait(100);
        QVERIFY(QFile::rename(part, path(words[1])));
    } else if (verb == "burst") {
        for (int i = 1; i < words.size(); ++i)
            TestEnv::touch(path(words[i]));
    } else if (verb == "mixed") {
        TestEnv::touch(path("IMG_0007.xmp"));
        TestEnv::touch(path("IMG_0007.jpg"));
        QVERIFY(QFile::remove(path("IMG_0001.NEF")));
    } else if (verb == "mkdir") {
        QVERIFY(QDir().mkdir(path(words[1])));
    } else if (verb == "rewrite") {
        TestEnv::touch(path(words[1]), QByteArray(4096, 'z'));
    } else if (verb == "flash") {
        TestEnv::touch(path(words[1]));
        QVERIFY(QFile::remove(path(words[1])));
    } else {
        QFAIL(qPrintable("unknown action " + action));
    }

    if (added.isEmpty() && removed.isEmpty()) {
        QTest::qWait(kQuietMs);
        settle(w);
        QCOMPARE(changed.size(), 0);
        return;
    }
    QVERIFY2(changed.wait(1000), "no report");
    QCOMPARE(changed.first().at(0).toStringList(), paths(added));
    QCOMPARE(changed.first().at(1).toStringList(), paths(removed));
    // One change, one report.
    QTest::qWait(kQuietMs);
    QCOMPARE(changed.size(), 1);
}

void TestFolderWatcher::steadyStreamStillReports()
{
    // A camera sending a shot every 120 ms keeps the folder busy for seconds; shots must still
    // show up as they come, within a second, not when the stream stops. The real delays.
    FolderWatcher w;
    QStringList reported;
    QElapsedTimer sinceFirst;
    qint64 firstReportAt = -1;
    connect(&w, &FolderWatcher::filesChanged, this, [&](const QStringList &added, const QStringList &removed) {
        QVERIFY(removed.isEmpty());
        if (firstReportAt < 0)
            firstReportAt = sinceFirst.elapsed();
        reported += added;
    });
    w.watch(_folder, known());
    settle(w);

    QStringList sent;
    sinceFirst.start();
    for (int i = 0; i < 20; ++i) {
        const QString name = QStringLiteral("R_%1.jpg").arg(i);
        TestEnv::touch(path(name));
        sent << path(name);
        QTest::qWait(120);
    }
    QTRY_COMPARE_WITH_TIMEOUT(reported.size(), sent.size(), 1500);
    QVERIFY2(firstReportAt >= 0 && firstReportAt < 1000, qPrintable(QString::number(firstReportAt)));
    QCOMPARE(reported, sent);   // each once, in order
}

void TestFolderWatcher::folderGone()
{
    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    QSignalSpy gone(&w, &FolderWatcher::folderGone);
    w.watch(_folder, known());
    settle(w);

    QVERIFY(QDir(_folder).removeRecursively());
    QVERIFY(gone.wait(1000));
    QCOMPARE(gone.first().first().toString(), _folder);
    QCOMPARE(changed.size(), 0);

    // Once gone, the watcher is idle: the folder coming back later is a new open for the caller.
    QVERIFY(QDir().mkpath(_folder));
    TestEnv::touch(path("IMG_0001.JPG"));
    QTest::qWait(kQuietMs);
    QCOMPARE(gone.size(), 1);
    QCOMPARE(changed.size(), 0);
    QVERIFY(w.folder().isEmpty());
}

void TestFolderWatcher::missingFolderIsGone()
{
    FolderWatcher w(nullptr, kFast);
    QSignalSpy gone(&w, &FolderWatcher::folderGone);
    const QString missing = _tmp->filePath(QStringLiteral("no-existe"));
    w.watch(missing, {});
    QVERIFY(gone.wait(1000));
    QCOMPARE(gone.first().first().toString(), missing);
}

void TestFolderWatcher::recreatedFolderIsWatchedAgain()
{
    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    QSignalSpy gone(&w, &FolderWatcher::folderGone);
    w.watch(_folder, known());
    settle(w);

    // Replaced within the debounce: the old inode's watch is dropped by the kernel.
    QVERIFY(QDir(_folder).removeRecursively());
    QVERIFY(QDir().mkpath(_folder));
    QVERIFY(changed.wait(1000));
    QCOMPARE(gone.size(), 0);
    QCOMPARE(changed.last().at(0).toStringList(), QStringList());
    QCOMPARE(changed.last().at(1).toStringList(),
             paths({"IMG_0001.JPG", "IMG_0001.NEF", "IMG_0002.jpg", "IMG_0002.xmp"}));

    TestEnv::touch(path("IMG_0100.jpg"));
    QVERIFY2(changed.wait(1000), "the new folder is not watched");
    QCOMPARE(changed.last().at(0).toStringList(), paths({"IMG_0100.jpg"}));
}

void TestFolderWatcher::stopAndSwitchSilenceTheOldFolder()
{
    const QString other = _tmp->filePath(QStringLiteral("otra"));
    QVERIFY(QDir().mkpath(other));

    FolderWatcher w(nullptr, kFast);
    QSignalSpy changed(&w, &FolderWatcher::filesChanged);
    w.watch(_folder, known());
    settle(w);
    w.stop();
    TestEnv::touch(path("IMG_0003.jpg"));
    QTest::qWait(kQuietMs);
    QCOMPARE(changed.size(), 0);

    w.watch(other, {});
    settle(w);
    TestEnv::touch(path("IMG_0004.jpg"));   // in the old folder
    QTest::qWait(kQuietMs);
    QCOMPARE(changed.size(), 0);
    TestEnv::touch(other + QStringLiteral("/IMG_0001.jpg"));
    QVERIFY(changed.wait(1000));
    QCOMPARE(changed.first().at(0).toStringList(), QStringList{other + QStringLiteral("/IMG_0001.jpg")});
}

QTEST_GUILESS_MAIN(TestFolderWatcher)
#include "tst_folderwatcher.moc"
