// The command line as a user runs it: the real executable on real folders.
#include "marks/marksfile.h"
#include "corvanerun.h"
#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>


class TestCli : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY2(corvaneBuilt(), "CORVANE_BIN must name the built corvane");
    }

    void scanJson()
    {
        QTemporaryDir dir;
        TestEnv::touch(dir.filePath("A.NEF"), QByteArray(10, 'n'));
        TestEnv::touch(dir.filePath("A.JPG"), QByteArray(5, 'j'));
        TestEnv::touch(dir.filePath("A.xmp"), "<x/>");
        TestEnv::touch(dir.filePath("clip.mp4"));
        TestEnv::touch(dir.filePath("sub/b.jpg"));
        const CorvaneRun r = corvane({"scan", "--json", dir.path()});
        QCOMPARE(r.status, 0);
        const QJsonObject root = QJsonDocument::fromJson(r.out).object();
        const QJsonArray items = root.value("items").toArray();
        QCOMPARE(items.size(), 2);
        QJsonObject pair;
        for (const QJsonValue &v : items)
            if (v.toObject().value("badge").toString() == "NEF+JPG")
                pair = v.toObject();
        QVERIFY(pair.value("url").toString().endsWith("/A.NEF"));
        QVERIFY(pair.value("previewURL").toString().endsWith("/A.JPG"));
        QCOMPARE(pair.value("previewIsRaw").toBool(), false);
        QCOMPARE(pair.value("size").toInt(), 15);
        QCOMPARE(pair.value("hasSidecar").toBool(), true);
        QCOMPARE(pair.value("files").toArray().size(), 2);
        QCOMPARE(root.value("subfolders").toArray().size(), 1);
        QCOMPARE(root.value("folderCount").toInt(), 1);
        QCOMPARE(root.value("truncated").toBool(), false);
        QCOMPARE(root.value("denied").toBool(), false);

        const CorvaneRun rec = corvane({"scan", "--recursive", "--json", dir.path()});
        QCOMPARE(QJsonDocument::fromJson(rec.out).object().value("items").toArray().size(), 3);
        QCOMPARE(QJsonDocument::fromJson(rec.out).object().value("folderCount").toInt(), 2);
        // Plain text: one line per shot.
        const CorvaneRun text = corvane({"scan", dir.path()});
        QVERIFY(text.out.contains("NEF+JPG\t15\t"));
    }

    void markThenMarks()
    {
        QTemporaryDir dir;
        const QString nef = TestEnv::touch(dir.filePath("IMG_1.NEF"));
        TestEnv::touch(dir.filePath("IMG_1.JPG"));
        const QString b = TestEnv::touch(dir.filePath("b.jpg"));
        CorvaneRun r = corvane({"mark", "--color", "3", "--rating", "4", "--tag", "on", "--rotate", "1", nef, b});
        QCOMPARE(r.status, 0);
        // On disk as soon as the command returns.
        auto f = MarksFile::load(dir.path());
        QVERIFY(f);
        QCOMPARE(f->marks.value("img_1"), Marks::from(ColorClass::c3, 4, true, 1, {}));
        // Options left out keep their marks; --rotate adds quarter turns.
        r = corvane({"mark", "--rating", "0", "--rotate", "-2", dir.filePath("IMG_1.JPG")});
        QCOMPARE(r.status, 0);
        f = MarksFile::load(dir.path());
        QCOMPARE(f->marks.value("img_1"), Marks::from(ColorClass::c3, 0, true, 3, {}));

        r = corvane({"marks", "--json", dir.path()});
        QCOMPARE(r.status, 0);
        const QJsonObject marks = QJsonDocument::fromJson(r.out).object().value("marks").toObject();
        QCOMPARE(marks.value("b").toObject().value("c").toInt(), 3);
        QCOMPARE(marks.value("img_1").toObject().value("o").toInt(), 3);
    }

    void marksFollowTheStorageMode()
    {
        QTemporaryDir dir;
        const QString one = TestEnv::touch(dir.filePath("DSC_1.JPG")), two = TestEnv::touch(dir.filePath("DSC_2.JPG"));
        const QByteArray rated = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>"
                                 "<rdf:Description rdf:about='' xmlns:xmp='http://ns.adobe.com/xap/1.0/' xmp:Rating='3'/>"
                                 "</rdf:RDF></x:xmpmeta>";
        TestEnv::touch(dir.filePath("DSC_2.xmp"), rated);
        const auto listed = [&](const QStringList &extra) {
            const CorvaneRun r = corvane(QStringList{"marks", "--json"} + extra + QStringList{dir.path()});
            return QJsonDocument::fromJson(r.out).object();
        };
        // Rated in another tool: shown from the sidecar.
        QJsonObject root = listed({});
        QCOMPARE(root.value("sources").toObject().value("dsc_2").toString(), QStringLiteral("sidecar"));
        QCOMPARE(root.value("marks").toObject().value("dsc_2").toObject().value("r").toInt(), 3);

        // Sidecars for one run: the sidecar is written, and read back by exiftool.
        QCOMPARE(corvane({"mark", "--storage", "sidecar", "--color", "5", one}).status, 0);
        QProcess exiftool;
        exiftool.start("exiftool", {"-s3", "-XMP:Label", dir.filePath("DSC_1.xmp")});
        QVERIFY(exiftool.waitForFinished(20000));
        QCOMPARE(exiftool.readAllStandardOutput().trimmed(), QByteArray("Morado"));

        // The folder file: a colour on the shot rated elsewhere keeps its stars and leaves the
        // other tool's file alone.
        QCOMPARE(corvane({"mark", "--color", "1", two}).status, 0);
        QCOMPARE(TestEnv::readAll(dir.filePath("DSC_2.xmp")), rated);
        root = listed({"--storage", "json"});
        QCOMPARE(root.value("sources").toObject().value("dsc_2").toString(), QStringLiteral("file"));
        QCOMPARE(root.value("marks").toObject().value("dsc_2").toObject(), QJsonObject({{"c", 1}, {"r", 3}}));
        QCOMPARE(corvane({"marks", "--storage", "xml", dir.path()}).status, 2);
    }

    void badUsageAndFailures()
    {
        QTemporaryDir dir;
        QCOMPARE(corvane({"mark", "--color", "9", dir.filePath("x.jpg")}).status, 2);
        QCOMPARE(corvane({"mark", "--tag", "maybe", dir.filePath("x.jpg")}).status, 2);
        QCOMPARE(corvane({"scan"}).status, 2);
        QCOMPARE(corvane({"scan", "--bogus", dir.path()}).status, 2);
        const CorvaneRun missing = corvane({"mark", "--color", "1", dir.filePath("missing.jpg")});
        QCOMPARE(missing.status, 1);
        QVERIFY(QString::fromUtf8(missing.err).contains(QStringLiteral("No existe")));
        QCOMPARE(corvane({"scan", dir.filePath("nothing")}).status, 1);
    }

    // Two bodies at one wedding, a client's message with a range and a shot that does not exist.
    void pickFromAMessage()
    {
        QTemporaryDir dir;
        for (const char *name : {"DSC_0412.NEF", "_DSF0412.RAF", "DSC_0415.NEF", "DSC_0433.JPG", "DSC_0533.NEF",
                                 "DSC_0533.JPG", "DSC_0600.NEF", "DSC_0601.NEF", "DSC_0602.NEF", "DSC_0604.NEF",
                                 "DSC_0605.NEF", "DSC_0700.NEF"})
            TestEnv::touch(dir.filePath(name));
        const QString message = QStringLiteral("Hola! Me quedo con la 0412, 415, 433,\nDSC_0533.NEF y 600-605");

        const CorvaneRun r = corvane({"pick", dir.path(), "--message", message, "--json"});
        QCOMPARE(r.status, 1);   // 603 is not there
        const QJsonObject root = QJsonDocument::fromJson(r.out).object();
        QCOMPARE(root.value("missing").toArray(), QJsonArray{"603"});
        QCOMPARE(root.value("selected").toArray().size(), 10);
        const QJsonArray tokens = root.value("tokens").toArray();
        QCOMPARE(tokens.size(), 10);
        const QJsonObject twoBodies = tokens[6].toObject();
        QCOMPARE(twoBodies.value("token").toString(), "0412");
        QCOMPARE(twoBodies.value("files").toArray().size(), 2);
        QCOMPARE(twoBodies.value("problem").toString(), QStringLiteral("varias con ese número"));
        QCOMPARE(tokens[3].toObject().value("problem").toString(), QStringLiteral("No hay ninguna imagen con ese número"));
        QCOMPARE(tokens[9].toObject().value("token").toString(), "dsc_0533");

        // From standard input, marking: the paths of the shots, and their colour on disk.
        QProcess p;
        p.start(corvaneBin(), {"pick", dir.path(), "-", "--color", "2", "--select-only"});
        p.write(message.toUtf8());
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished(60000));
        QCOMPARE(p.exitCode(), 1);
        QCOMPARE(p.readAllStandardOutput().count('\n'), 10);
        const auto f = MarksFile::load(dir.path());
        QVERIFY(f);
        QCOMPARE(f->marks.size(), 10);
        QCOMPARE(f->marks.value("_dsf0412").c, 2);
        QVERIFY(!f->marks.contains("dsc_0700"));

        // Every token found: status 0, and one line per token in plain text.
        TestEnv::touch(dir.filePath("message.txt"), "415\n600-602 DSC_0700");
        const CorvaneRun all = corvane({"pick", dir.path(), "--message-file", dir.filePath("message.txt")});
        QCOMPARE(all.status, 0);
        QCOMPARE(all.out.count('\n'), 6);
        QVERIFY(all.out.contains("dsc_0700\tDSC_0700.NEF\n"));

        QCOMPARE(corvane({"pick", dir.path()}).status, 2);
        QCOMPARE(corvane({"pick", dir.path(), "--message", "1", "--message-file", "x"}).status, 2);
        QCOMPARE(corvane({"pick", dir.path(), "--message", "1", "--color", "9"}).status, 2);
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
