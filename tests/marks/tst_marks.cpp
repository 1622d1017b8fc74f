// The marks record, the per-folder file format and its atomic writing.
#include "marks/marks.h"
#include "marks/marksfile.h"
#include "model/photo.h"
#include "testenv.h"
#include "util/atomicfile.h"

#include <QtTest>

class TestMarks : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }
    void cleanup() { AtomicFile::setFailureForTesting(nullptr); }

    void neutralValuesGiveAnEmptyRecord()
    {
        const Marks m = Marks::from(ColorClass::none, 0, false, 4, CropSpec{0.00005, 0, 0.99995, 1, 0.005});
        QVERIFY(m.isEmpty());
        QVERIFY(Marks::from(ColorClass::none, -3, false, 0, std::nullopt).isEmpty());
        QCOMPARE(Marks::from(ColorClass::none, 0, false, -1, std::nullopt).o, std::optional<int>(3));
        QCOMPARE(Marks::from(ColorClass::none, 0, false, 5, std::nullopt).o, std::optional<int>(1));
    }

    void encodesCompactWithSortedKeys()
    {
        MarksFile f;
        f.marks.insert("img_1", Marks::from(ColorClass::c3, 4, true, 1, CropSpec{0.1, 0.2, 0.5, 0.5, 2}));
        f.marks.insert("dsc_9", Marks::from(ColorClass::c8, 0, false, 0, std::nullopt));
        f.cameraOffsets.insert("Canon EOS R6#123", -3600.5);
        const QByteArray json = f.encode();
        QCOMPARE(json,
                 QByteArray(R"({"app":"Corvane","cameraOffsets":{"Canon EOS R6#123":-3600.5},)"
                            R"("marks":{"dsc_9":{"c":8},"img_1":{"c":3,"k":{"angle":2,"h":0.5,"w":0.5,"x":0.1,"y":0.2},"o":1,"r":4,"t":true}},)"
                            R"("version":1})"));
        const auto back = MarksFile::decode(json);
        QVERIFY(back);
        QCOMPARE(back->marks, f.marks);
        QCOMPARE(back->cameraOffsets, f.cameraOffsets);
        // No offsets: the key is left out entirely.
        f.cameraOffsets.clear();
        QVERIFY(!f.encode().contains("cameraOffsets"));
    }

    void badFilesDecodeAsNoMarks_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("blank") << QByteArray("  \n");
        QTest::newRow("truncated") << QByteArray(R"({"app":"Corvane","marks":{"a":{"c":)");
        QTest::newRow("not json") << QByteArray("hola");
        QTest::newRow("array") << QByteArray("[1,2]");
        QTest::newRow("marks is a list") << QByteArray(R"({"marks":[]})");
        QTest::newRow("binary") << QByteArray("\x00\xff\xfe", 3);
    }
    void badFilesDecodeAsNoMarks()
    {
        QFETCH(QByteArray, content);
        QVERIFY(!MarksFile::decode(content));
    }

    void wrongValuesAreDroppedNotFatal()
    {
        const auto f = MarksFile::decode(R"({"marks":{"a":{"c":9,"r":"5","t":1,"o":2},"b":{"c":2.5},"c":"x","d":{"r":5}},
            "cameraOffsets":{"ok":3600,"far":200000,"neg":-172800,"nan":"x"}})");
        QVERIFY(f);
        QCOMPARE(f->marks.size(), 2);   // "b" and "c" hold nothing valid
        QCOMPARE(f->marks.value("a").o, std::optional<int>(2));
        QVERIFY(!f->marks.value("a").c);
        QVERIFY(!f->marks.value("a").r);
        QCOMPARE(f->marks.value("d").r, std::optional<int>(5));
        QCOMPARE(f->cameraOffsets.keys(), QStringList({"neg", "ok"}));
    }

    void keyIsTheLowerCasedBaseName()
    {
        QCOMPARE(MarksFile::keyFor("/x/IMG_1.NEF"), QStringLiteral("img_1"));
        QCOMPARE(MarksFile::keyFor("/x/IMG_1.JPG"), QStringLiteral("img_1"));
        QCOMPARE(MarksFile::keyFor("/x/a.b.JPG"), QStringLiteral("a.b"));
    }

    void applyAndReadBackThroughAPhoto()
    {
        ScannedItem item;
        item.url = "/x/a.jpg";
        item.files = {item.url};
        Photo p(item);
        const Marks m = Marks::from(ColorClass::c5, 2, true, 3, std::nullopt);
        m.applyTo(p);
        QCOMPARE(p.colorClass(), ColorClass::c5);
        QCOMPARE(p.rotation(), 3);
        QCOMPARE(Marks::fromPhoto(p), m);
        Marks{}.applyTo(p);
        QVERIFY(Marks::fromPhoto(p).isEmpty());
    }

    void saveKeepsOffsetsAndRetiresTheLegacyFile()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath(".ostrel.json"), R"({"app":"Ostrel","version":1,"marks":{"a":{"r":2}},"cameraOffsets":{"cam":60}})");
        auto loaded = MarksFile::load(dir.path());
        QVERIFY(loaded);
        QCOMPARE(loaded->marks.value("a").r, std::optional<int>(2));
        MarksMap map = loaded->marks;
        map.insert("b", Marks::from(ColorClass::c1, 0, false, 0, std::nullopt));
        QCOMPARE(MarksFile::save(dir.path(), map, std::nullopt), QString());
        QVERIFY(!QFile::exists(dir.filePath(".ostrel.json")));
        const auto saved = MarksFile::decode(TestEnv::readAll(dir.filePath(".corvane.json")));
        QVERIFY(saved);
        QCOMPARE(saved->marks.size(), 2);
        // The legacy file held the offsets; they were kept only if the new file had them. The
        // folder file is the one read once it exists.
        QCOMPARE(MarksFile::save(dir.path(), map, CameraOffsets{{"cam", 60}}), QString());
        QCOMPARE(MarksFile::save(dir.path(), map, std::nullopt), QString());
        QCOMPARE(MarksFile::load(dir.path())->cameraOffsets.value("cam"), 60.0);
    }

    void clearingTheLastMarkRetiresTheLegacyFileToo()
    {
        // Otherwise the old file would bring the cleared mark back at the next load.
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath(".ostrel.json"), R"({"app":"Ostrel","version":1,"marks":{"a":{"r":2}}})");
        QCOMPARE(MarksFile::save(dir.path(), {{"a", Marks{}}}, std::nullopt), QString());
        QVERIFY(!QFile::exists(dir.filePath(".ostrel.json")));
        const auto again = MarksFile::load(dir.path());
        QVERIFY(!again || again->marks.value("a").isEmpty());
    }

    void emptyFolderKeepsNoFileUnlessOffsets()
    {
        QTemporaryDir dir;
        QCOMPARE(MarksFile::save(dir.path(), {{"a", Marks::from(ColorClass::c2, 0, false, 0, {})}}, std::nullopt), QString());
        QVERIFY(QFile::exists(dir.filePath(".corvane.json")));
        QCOMPARE(MarksFile::save(dir.path(), {}, std::nullopt), QString());
        QVERIFY(!QFile::exists(dir.filePath(".corvane.json")));
        QCOMPARE(MarksFile::save(dir.path(), {}, CameraOffsets{{"cam", 1.5}}), QString());
        QVERIFY(QFile::exists(dir.filePath(".corvane.json")));
        QCOMPARE(MarksFile::save(dir.path(), {}, std::nullopt), QString());   // offsets kept from the file
        QVERIFY(QFile::exists(dir.filePath(".corvane.json")));
    }

    void aFailedWriteLeavesTheOldFileWhole_data()
    {
        QTest::addColumn<QByteArray>("step");
        QTest::newRow("open") << QByteArray("open");
        QTest::newRow("write") << QByteArray("write");
        QTest::newRow("sync") << QByteArray("sync");
        QTest::newRow("rename") << QByteArray("rename");
    }
    void aFailedWriteLeavesTheOldFileWhole()
    {
        QFETCH(QByteArray, step);
        QTemporaryDir dir;
        const MarksMap before{{"a", Marks::from(ColorClass::c1, 1, false, 0, {})}};
        QCOMPARE(MarksFile::save(dir.path(), before, std::nullopt), QString());
        const QByteArray old = TestEnv::readAll(dir.filePath(".corvane.json"));
        AtomicFile::setFailureForTesting(step.constData());
        const QString error = MarksFile::save(dir.path(), {{"b", Marks::from(ColorClass::c2, 0, false, 0, {})}}, std::nullopt);
        AtomicFile::setFailureForTesting(nullptr);
        QVERIFY(error.startsWith(QStringLiteral("No se pudieron guardar las marcas")));
        QCOMPARE(TestEnv::readAll(dir.filePath(".corvane.json")), old);
        // No temporary file is left behind.
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList({".corvane.json"}));
    }
};

QTEST_GUILESS_MAIN(TestMarks)
#include "tst_marks.moc"
