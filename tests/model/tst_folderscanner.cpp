// Listing and grouping of real files in temporary folders.
#include "model/folderscanner.h"
#include "testenv.h"

#include <QtTest>

class TestFolderScanner : public QObject
{
    Q_OBJECT

    const ScannedItem *itemWithMain(const ScanResult &r, const QString &name)
    {
        for (const ScannedItem &i : r.items)
            if (i.url.endsWith(QLatin1Char('/') + name))
                return &i;
        return nullptr;
    }

private slots:
    void initTestCase() { TestEnv::isolate(); }

    void rawJpegAndSidecarGroupIntoOneShot()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("A.NEF"), QByteArray(100, 'n'));
        TestEnv::touch(dir.filePath("A.JPG"), QByteArray(30, 'j'));
        TestEnv::touch(dir.filePath("A.xmp"), "<x/>");
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 1);
        const ScannedItem &i = r.items.first();
        QVERIFY(i.url.endsWith("/A.NEF"));
        QVERIFY(i.previewURL.endsWith("/A.JPG"));
        QCOMPARE(i.previewIsRaw, false);
        QCOMPARE(i.badge, QStringLiteral("NEF+JPG"));
        QCOMPARE(i.size, qint64(130));
        QVERIFY(i.sidecarURL.endsWith("/A.xmp"));
        QCOMPARE(i.files.size(), 2);
        QVERIFY(r.xmpKeys.contains(FolderScanner::groupingKey(i.url)));
        QVERIFY(i.modified.has_value());
        QCOMPARE(r.folderCount, 1);
    }

    void videoNeverJoinsAStill()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("A.JPG"));
        TestEnv::touch(dir.filePath("A.MOV"));
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 2);
        QVERIFY(itemWithMain(r, "A.MOV"));
        QVERIFY(FolderScanner::groupingKey(dir.filePath("A.MOV")).endsWith("#v"));
    }

    void keysIgnoreCase()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("a.jpg"), "12");
        TestEnv::touch(dir.filePath("A.JPG"), "345");
        TestEnv::touch(dir.filePath("IMG_0001.CR3"), "1");
        TestEnv::touch(dir.filePath("img_0001.jpg"), "1");
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 2);
        const ScannedItem *pair = itemWithMain(r, "IMG_0001.CR3");
        QVERIFY(pair);
        QCOMPARE(pair->badge, QStringLiteral("CR3+JPG"));
        for (const ScannedItem &i : r.items)
            if (i.files.size() == 2 && i.badge == "JPG")
                QCOMPARE(i.size, qint64(5));
    }

    // A RAW with no JPEG beside it is previewed through itself; two "other" kinds pair up too.
    void otherImageKindsAndBadges()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("x.heic"));
        TestEnv::touch(dir.filePath("x.png"));   // same base name, both "other": first is main
        TestEnv::touch(dir.filePath("y.dng"));
        TestEnv::touch(dir.filePath("y.tif"));
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 2);
        const ScannedItem *dng = itemWithMain(r, "y.dng");
        QVERIFY(dng);
        QCOMPARE(dng->badge, QStringLiteral("DNG"));   // no JPEG member: no "+"
        QVERIFY(dng->previewURL.endsWith("y.dng"));
        QCOMPARE(dng->previewIsRaw, true);
    }

    void hiddenExtrasAndSubfolders()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath(".hidden.jpg"));
        TestEnv::touch(dir.filePath(".corvane.json"), "{}");
        TestEnv::touch(dir.filePath("notes.txt"));
        TestEnv::touch(dir.filePath("no_extension"));
        TestEnv::touch(dir.filePath("b.jpg"));
        QDir(dir.path()).mkdir("Sub 10");
        QDir(dir.path()).mkdir("Sub 9");
        QDir(dir.path()).mkdir(".git");
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 1);
        QVERIFY(r.items[0].url.endsWith("/b.jpg"));
        QCOMPARE(r.extras.size(), 2);
        QCOMPARE(r.subfolders, QStringList({dir.filePath("Sub 9"), dir.filePath("Sub 10")}));
    }

    void oddNamesSurvive()
    {
        QTemporaryDir dir;
        const QStringList names{"con espacio.jpg", "año niño.JPG", "line\nbreak.jpg", "ünï.NEF"};
        for (const QString &n : names)
            TestEnv::touch(dir.filePath(n), "abc");
        // A name that is not valid UTF-8, written with the raw system call.
        const QByteArray bad = QFile::encodeName(dir.path()) + "/bad\xff\xfe.jpg";
        FILE *f = fopen(bad.constData(), "w");
        QVERIFY(f);
        fputs("xyz", f);
        fclose(f);
        const ScanResult r = FolderScanner::listFolder(dir.path(), LoadToken());
        QCOMPARE(r.items.size(), 5);
        for (const ScannedItem &i : r.items)
            if (!i.url.contains("bad"))
                QCOMPARE(i.size, qint64(3));
    }

    void missingFolderIsEmptyNotDenied()
    {
        const ScanResult r = FolderScanner::listFolder("/nonexistent/corvane/folder", LoadToken());
        QVERIFY(!r.denied);
        QVERIFY(r.items.isEmpty());
    }

    void recursiveListingCountsFoldersAndReportsProgress()
    {
        QTemporaryDir dir;
        for (int i = 0; i < 450; ++i)
            TestEnv::touch(dir.filePath(QStringLiteral("a/IMG_%1.JPG").arg(i)));
        TestEnv::touch(dir.filePath("a/b/c/deep.NEF"));
        TestEnv::touch(dir.filePath("a/b/c/deep.jpg"));
        TestEnv::touch(dir.filePath("a/b/c/deep.xmp"));
        TestEnv::touch(dir.filePath("a/readme.txt"));
        TestEnv::touch(dir.filePath(".hidden/x.jpg"));
        QStringList texts;
        QList<int> counts;
        const ScanResult r = FolderScanner::listTree(dir.path(), LoadToken(), [&](const QString &t, int n) {
            texts << t;
            counts << n;
        });
        QCOMPARE(r.items.size(), 451);
        QCOMPARE(r.folderCount, 2);
        QVERIFY(!r.truncated);
        QCOMPARE(counts, QList<int>{400});
        QCOMPARE(texts.first(), QStringLiteral("Buscando imágenes"));
        QCOMPARE(r.xmpKeys.size(), 1);
    }

    void cancelledTokenStopsTheListing()
    {
        QTemporaryDir dir;
        for (int i = 0; i < 50; ++i)
            TestEnv::touch(dir.filePath(QStringLiteral("d%1/x.jpg").arg(i)));
        LoadToken token;
        token.cancel();
        QVERIFY(FolderScanner::listTree(dir.path(), token).items.isEmpty());
        QVERIFY(FolderScanner::listFolder(dir.filePath("d1"), token).items.isEmpty());
    }

    void systemFoldersAreNeverEntered_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("excluded");
        QTest::newRow("proc") << "/proc" << true;
        QTest::newRow("user library") << "/Users/ana/Library" << true;
        QTest::newRow("nested library") << "/Users/ana/Fotos/Library" << false;
        QTest::newRow("usr below home") << "/home/usr" << false;
    }
    void systemFoldersAreNeverEntered()
    {
        QFETCH(QString, path);
        QFETCH(bool, excluded);
        QCOMPARE(FolderScanner::isExcludedSystemPath(path), excluded);
    }
};

QTEST_GUILESS_MAIN(TestFolderScanner)
#include "tst_folderscanner.moc"
