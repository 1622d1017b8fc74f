// The debounced writer, the in-memory book and the legacy attributes.
#include "marks/legacyxattr.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "corvanerun.h"
#include "testenv.h"

#include <QtTest>
#include <sys/xattr.h>
#include <unistd.h>

class TestMarksStore : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void burstOfMarksWritesOnceAfterTheLastChange()
    {
        QTemporaryDir dir;
        MarksStore store;
        MarksBook book(&store);
        for (int i = 0; i < 10; ++i) {
            book.set(dir.filePath(QStringLiteral("IMG_%1.JPG").arg(i)), Marks::from(ColorClass::c2, i % 5 + 1, false, 0, {}));
            QTest::qWait(20);
        }
        QCOMPARE(store.writeCount(), 0);
        QVERIFY(!QFile::exists(dir.filePath(".corvane.json")));
        QTRY_COMPARE_WITH_TIMEOUT(store.writeCount(), 1, 3000);
        QTest::qWait(600);
        QCOMPARE(store.writeCount(), 1);
        QCOMPARE(MarksFile::load(dir.path())->marks.size(), 10);
    }

    void pairSharesOneEntry()
    {
        QTemporaryDir dir;
        MarksStore store;
        MarksBook book(&store);
        book.set(dir.filePath("IMG_1.NEF"), Marks::from(ColorClass::c1, 0, false, 0, {}));
        book.set(dir.filePath("IMG_1.JPG"), Marks::from(ColorClass::c1, 3, false, 0, {}));
        store.flush();
        const auto f = MarksFile::load(dir.path());
        QCOMPARE(f->marks.keys(), QStringList({"img_1"}));
        QCOMPARE(f->marks.value("img_1").r, std::optional<int>(3));
    }

    void clearingTheLastMarkDeletesTheFile()
    {
        QTemporaryDir dir;
        MarksStore store;
        MarksBook book(&store);
        book.set(dir.filePath("a.jpg"), Marks::from(ColorClass::c1, 0, false, 0, {}));
        store.flush();
        QVERIFY(QFile::exists(dir.filePath(".corvane.json")));
        book.set(dir.filePath("a.jpg"), std::nullopt);
        store.flush();
        QVERIFY(!QFile::exists(dir.filePath(".corvane.json")));
    }

    void flushOnDestructionWritesPendingMarks()
    {
        QTemporaryDir dir;
        {
            MarksStore store;
            MarksBook book(&store);
            book.set(dir.filePath("a.jpg"), Marks::from(ColorClass::c7, 0, false, 0, {}));
        }
        QCOMPARE(MarksFile::load(dir.path())->marks.value("a").c, std::optional<int>(7));
    }

    void bookLoadsFromDiskOnceAndKeepsItsOwnState()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath(".corvane.json"), R"({"app":"Corvane","version":1,"marks":{"a":{"r":4}}})");
        MarksStore store;
        MarksBook book(&store);
        QCOMPARE(book.marksFor(dir.filePath("A.JPG"))->r, std::optional<int>(4));
        book.move(dir.filePath("A.JPG"), dir.filePath("boda_001.JPG"));
        QVERIFY(!book.marksFor(dir.filePath("a.jpg")));
        QCOMPARE(book.marksFor(dir.filePath("boda_001.jpg"))->r, std::optional<int>(4));
        store.flush();
        QCOMPARE(MarksFile::load(dir.path())->marks.keys(), QStringList({"boda_001"}));
    }

    void readOnlyFolderReportsAndRetries()
    {
        if (geteuid() == 0)
            QSKIP("root writes into read-only folders");
        QTemporaryDir dir;
        MarksStore store;
        MarksBook book(&store);
        QSignalSpy failed(&store, &MarksStore::writeFailed);
        QFile::setPermissions(dir.path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        book.set(dir.filePath("a.jpg"), Marks::from(ColorClass::c1, 0, false, 0, {}));
        store.flush();
        QTRY_COMPARE(failed.size(), 1);
        QVERIFY(failed.first().first().toString().contains(QStringLiteral("solo lectura")));
        QCOMPARE(book.marksFor(dir.filePath("a.jpg"))->c, std::optional<int>(1));   // still in memory
        QFile::setPermissions(dir.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        // A later change to another folder flushes the failed one too.
        QTemporaryDir other;
        book.set(other.filePath("b.jpg"), Marks::from(ColorClass::c2, 0, false, 0, {}));
        store.flush();
        QCOMPARE(MarksFile::load(dir.path())->marks.value("a").c, std::optional<int>(1));
    }

    void offsetsAreWrittenWithTheMarks()
    {
        QTemporaryDir dir;
        MarksStore store;
        MarksBook book(&store);
        book.set(dir.filePath("a.jpg"), Marks::from(ColorClass::c1, 0, false, 0, {}));
        store.scheduleOffsets(dir.path(), {{"Canon#1", 120.0}});
        store.flush();
        const auto f = MarksFile::load(dir.path());
        QCOMPARE(f->cameraOffsets.value("Canon#1"), 120.0);
        QCOMPARE(f->marks.size(), 1);
    }

    void twentyProcessesMarkingOneFolderLoseNothing()
    {
        // Each `corvane mark` reads the file, changes one shot and writes; without the folder
        // lock and the merge, the last writer's map would erase the others' marks.
        QVERIFY(corvaneBuilt());
        QTemporaryDir dir;
        std::vector<std::unique_ptr<QProcess>> runs;
        for (int i = 0; i < 20; ++i)
            TestEnv::touch(dir.filePath(QStringLiteral("DSC_%1.JPG").arg(i, 4, 10, QLatin1Char('0'))));
        for (int i = 0; i < 20; ++i) {
            auto p = std::make_unique<QProcess>();
            p->start(corvaneBin(), {"mark", "--color", QString::number(i % 8 + 1),
                                    dir.filePath(QStringLiteral("DSC_%1.JPG").arg(i, 4, 10, QLatin1Char('0')))});
            runs.push_back(std::move(p));
        }
        for (auto &p : runs) {
            QVERIFY(p->waitForFinished(60000));
            QCOMPARE(p->exitCode(), 0);
        }
        const auto f = MarksFile::load(dir.path());
        QVERIFY(f);
        QCOMPARE(f->marks.size(), 20);
        QCOMPARE(f->marks.value("dsc_0013").c, std::optional<int>(6));

        // A writer of this process that holds an older copy of the folder changes only its key.
        MarksStore store;
        MarksBook book(&store);
        book.folder(dir.path());
        QCOMPARE(QProcess::execute(corvaneBin(), {"mark", "--color", "0", dir.filePath("DSC_0001.JPG")}), 0);
        book.set(dir.filePath("DSC_0002.JPG"), std::nullopt);
        store.flush();
        const auto after = MarksFile::load(dir.path());
        QCOMPARE(after->marks.size(), 18);
        QVERIFY(!after->marks.contains("dsc_0001") && !after->marks.contains("dsc_0002"));
    }

    void legacyAttributesAreRead()
    {
        QTemporaryDir dir;
        const QString a = TestEnv::touch(dir.filePath("a.jpg"));
        const QString b = TestEnv::touch(dir.filePath("b.jpg"));
        const QByteArray newer = R"({"c":4,"r":2})";
        const QByteArray older = R"({"t":true})";
        if (setxattr(QFile::encodeName(a).constData(), LegacyXattr::kName, newer.constData(), size_t(newer.size()), 0) != 0)
            QSKIP("this file system keeps no user attributes");
        setxattr(QFile::encodeName(b).constData(), LegacyXattr::kOlderName, older.constData(), size_t(older.size()), 0);
        QCOMPARE(LegacyXattr::read(a)->c, std::optional<int>(4));
        QCOMPARE(LegacyXattr::read(b)->t, std::optional<bool>(true));
        QVERIFY(!LegacyXattr::read(dir.filePath("missing.jpg")));

        LegacyXattrReader reader;
        QSignalSpy found(&reader, &LegacyXattrReader::found);
        reader.read({a, b, dir.filePath("none.jpg")}, 7);
        QVERIFY(found.wait(3000));
        QCOMPARE(found.first().at(0).toULongLong(), 7ull);
        QCOMPARE((found.first().at(1).value<QHash<QString, Marks>>().size()), 2);
    }
};

QTEST_GUILESS_MAIN(TestMarksStore)
#include "tst_marksstore.moc"
