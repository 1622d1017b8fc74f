// XMP sidecars: edits in place that leave another tool's file whole, the reading precedence,
// the labels of the colours, refused files, the store's queue and `corvane xmp-export`.
#include "imaging/imageorientation.h"
#include "marks/marksfile.h"
#include "metadata/xmplabels.h"
#include "metadata/xmpsidecar.h"
#include "metadata/xmpstore.h"
#include "util/atomicbatch.h"
#include "model/orientation.h"
#include "util/atomicfile.h"
#include "corvanerun.h"
#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QtTest>
#include <unistd.h>

using namespace XmpSidecar;

namespace {

const QStringList kSpanish = XmpLabels::presets().first().labels;

QByteArray packet(const QByteArray &description)
{
    return "<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
           "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
           " <rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
           + description
           + "\n </rdf:RDF>\n"
             "</x:xmpmeta>\n"
             "<?xpacket end='w'?>";
}

XmpState state(int color, int rating, bool flag, int rotation = 0, std::optional<int> orientation = {})
{
    return {color, rating, flag, rotation, orientation};
}

XmpState stateOfBytes(const QByteArray &bytes)
{
    const auto doc = XmpDocument::parse(bytes);
    return doc ? stateOf(*doc, kSpanish) : XmpState{-1, -1, false, -1, {}};
}

QByteArray edited(const QByteArray &bytes, const XmpState &s, const QStringList &labels = kSpanish)
{
    auto doc = XmpDocument::parse(bytes);
    if (!doc)
        return {};
    apply(*doc, s, labels);
    return doc->bytes();
}

QString decoded(const QByteArray &bytes)
{
    if (bytes.startsWith("\xFF\xFE"))
        return QStringDecoder(QStringConverter::Utf16LE)(bytes);
    return QString::fromUtf8(bytes);
}

// The properties Corvane writes, as "namespace local-name" for xmpstripped.py.
const QStringList kWritten = {
    QStringLiteral("http://ns.adobe.com/xap/1.0/ Rating"),         QStringLiteral("http://ns.adobe.com/xap/1.0/ Label"),
    QStringLiteral("%1 ColorClass").arg(kPhotoMechanicNs),         QStringLiteral("%1 Tagged").arg(kPhotoMechanicNs),
    QStringLiteral("%1 Prefs").arg(kPhotoMechanicNs),              QStringLiteral("%1 Rotation").arg(kCorvaneNs),
    QStringLiteral("http://ns.adobe.com/tiff/1.0/ Orientation"),
};

// The file in canonical form without the written properties; empty when Python cannot read it.
QByteArray stripped(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("python3"), QStringList{QFINDTESTDATA("xmpstripped.py"), path} + kWritten);
    p.waitForFinished(30000);
    return p.exitCode() == 0 ? p.readAllStandardOutput() : QByteArray();
}

bool haveExiftool() { return !QStandardPaths::findExecutable(QStringLiteral("exiftool")).isEmpty(); }

// Every XMP tag exiftool finds, per file, keyed "XMP-group:Tag"; an object holding only the
// file's name when exiftool cannot read it.
QJsonArray exiftool(const QStringList &paths)
{
    QProcess p;
    p.start(QStringLiteral("exiftool"), QStringList{"-j", "-n", "-G1", "-XMP:all"} + paths);
    p.waitForFinished(60000);
    return QJsonDocument::fromJson(p.readAllStandardOutput()).array();
}

QString exiv2(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("exiv2"), {"-px", path});
    p.waitForFinished(30000);
    return QString::fromUtf8(p.readAllStandardOutput());
}

// exiftool and exiv2, the tools of record, read what Corvane wrote in `path`, unless they could
// not read `original` either (a few samples are beyond them: a UTF-16 packet, a bare rdf:RDF,
// a control character).
void checkReadBack(const QString &path, int color, int rating, bool flag, const QString &label, const QString &original = {})
{
    if (haveExiftool()) {
        const QJsonArray both = exiftool(original.isEmpty() ? QStringList{path} : QStringList{path, original});
        const QJsonObject o = both.first().toObject();
        if (original.isEmpty() || both.last().toObject().size() > 1) {
            QCOMPARE(o.value("XMP-xmp:Rating").toInt(-1), rating);
            QCOMPARE(o.value("XMP-xmp:Label").toString(), label);
            QCOMPARE(o.value("XMP-photomech:ColorClass").toInt(-1), color);
            QCOMPARE(o.value("XMP-photomech:Tagged").toBool(!flag), flag);
        }
    }
    if (!original.isEmpty() && exiv2(original).isEmpty())
        return;
    const QString px = exiv2(path);
    const auto has = [&px](const char *key, const QString &value) {
        return px.contains(QRegularExpression(QStringLiteral("%1 +XmpText +\\d+  %2\n").arg(QRegularExpression::escape(key), value)));
    };
    QVERIFY2(has("Xmp.xmp.Rating", QString::number(rating)), qPrintable(px));
    QVERIFY2(has("Xmp.xmp.Label", label), qPrintable(px));
    QVERIFY2(has("Xmp.photomechanic.ColorClass", QString::number(color)), qPrintable(px));
    QVERIFY2(has("Xmp.photomechanic.Tagged", flag ? QStringLiteral("True") : QStringLiteral("False")), qPrintable(px));
}

} // namespace

class TestXmpStore : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    // The orientation written for a turned shot shows it as the display does: upright by its
    // EXIF orientation, then turned clockwise.
    void orientationMatchesTheDisplay()
    {
        QImage image(3, 2, QImage::Format_RGB32);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x)
                image.setPixel(x, y, qRgb(x * 80, y * 120, 7));
        for (int exif = 1; exif <= 8; ++exif)
            for (int turns = 0; turns < 4; ++turns) {
                const QImage shown = ImageOrientation::apply(image, exif).transformed(QTransform().rotate(90 * turns));
                QCOMPARE(ImageOrientation::apply(image, Orientation::turned(exif, turns)), shown);
            }
    }

    void labels_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QStringList>("user");
        QTest::addColumn<int>("color");
        QTest::newRow("English preset under the Spanish list") << " red " << kSpanish << 1;
        QTest::newRow("own text of colour 6 is not read back") << "Naranja" << kSpanish << 0;
        QTest::newRow("user's own list") << "Boda" << QStringList{"Boda", "b", "c", "d", "e"} << 1;
        QTest::newRow("unknown") << "Magenta" << kSpanish << 0;
    }
    void labels()
    {
        QFETCH(QString, label);
        QFETCH(QStringList, user);
        QFETCH(int, color);
        QCOMPARE(XmpLabels::colour(label, user), color);
    }

    void reading_data()
    {
        QTest::addColumn<QByteArray>("attributes");
        QTest::addColumn<int>("color");
        QTest::addColumn<int>("rating");
        QTest::addColumn<bool>("flag");
        QTest::addColumn<int>("rotation");
        QTest::newRow("rejected -1 reads 0") << QByteArray("xmp:Rating='-1'") << 0 << 0 << false << 0;
        QTest::newRow("sign, clamp") << QByteArray("xmp:Rating='+9' corvane:Rotation='5'") << 0 << 5 << false << 1;
        QTest::newRow("colour class first") << QByteArray("pm:ColorClass='4' pm:Prefs='1:2:3' xmp:Label='Red'") << 4 << 0 << true << 0;
        QTest::newRow("prefs, empty fields dropped") << QByteArray("pm:Prefs='::1:6:3' xmp:Label='Red'") << 6 << 0 << true << 0;
        QTest::newRow("label last") << QByteArray("xmp:Label='Purple' pm:Tagged='TRUE'") << 5 << 0 << true << 0;
        QTest::newRow("tagged wins over prefs") << QByteArray("pm:Tagged='no' pm:Prefs='1:0:0'") << 0 << 0 << false << 0;
        QTest::newRow("tagged 1") << QByteArray("pm:Tagged='1'") << 0 << 0 << true << 0;
        QTest::newRow("escaped label") << QByteArray("xmp:Label='&#x54;o Do'") << 5 << 0 << false << 0;
    }
    void reading()
    {
        QFETCH(QByteArray, attributes);
        const QByteArray bytes = packet("  <rdf:Description rdf:about='' xmlns:xmp='http://ns.adobe.com/xap/1.0/' "
                                        "xmlns:pm='http://ns.camerabits.com/photomechanic/1.0/' xmlns:corvane='"
                                        + QByteArray(kCorvaneNs) + "' " + attributes + "/>");
        const XmpState s = stateOfBytes(bytes);
        QTEST(s.color, "color");
        QTEST(s.rating, "rating");
        QTEST(s.flag, "flag");
        QTEST(s.rotation, "rotation");
    }

    void elementFormIsReplacedAndTheRestKept()
    {
        const QByteArray head = packet("").split('\n').mid(0, 3).join('\n') + '\n';
        const QByteArray before = head
            + "  <rdf:Description rdf:about=''\n    xmlns:xmp='http://ns.adobe.com/xap/1.0/'>\n"
              "   <xmp:Rating>3</xmp:Rating>\n   <!-- kept -->\n   <xmp:CreatorTool>Cámara &amp; co</xmp:CreatorTool>\n"
              "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end='w'?>";
        const QByteArray after = edited(before, state(0, 5, false));
        const QByteArray expected = head
            + "  <rdf:Description rdf:about=''\n    xmlns:xmp='http://ns.adobe.com/xap/1.0/'\n    xmp:Rating=\"5\"\n"
              "    xmlns:photomechanic=\"http://ns.camerabits.com/photomechanic/1.0/\"\n    photomechanic:ColorClass=\"0\"\n"
              "    photomechanic:Tagged=\"False\">\n"
              "   <!-- kept -->\n   <xmp:CreatorTool>Cámara &amp; co</xmp:CreatorTool>\n"
              "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end='w'?>";
        QCOMPARE(after, expected);
    }

    void photoMechanicPrefsAndLabels()
    {
        // Prefs in a description of its own, as Photo Mechanic writes it.
        const QByteArray pm = packet("  <rdf:Description rdf:about=''/>\n  <rdf:Description rdf:about=''"
                                     " xmlns:photomechanic='http://ns.camerabits.com/photomechanic/1.0/'>\n"
                                     "   <photomechanic:Prefs>0:0:0:-00001</photomechanic:Prefs>\n  </rdf:Description>");
        const QByteArray after = edited(pm, state(2, 4, true));
        QVERIFY2(after.contains("photomechanic:Prefs=\"1:2:4:-00001\""), after);
        QVERIFY(!after.contains("<photomechanic:Prefs>"));
        QVERIFY(!edited(packet("  <rdf:Description rdf:about='' xmlns:photomechanic='http://ns.camerabits.com/photomechanic/1.0/'"
                               " photomechanic:Prefs='0:0'/>"), state(2, 4, true)).contains("Prefs=\"1"));

        const QStringList english = XmpLabels::presets().at(1).labels;
        QVERIFY(edited(XmpDocument::blank().bytes(), state(7, 0, false), english).contains("xmp:Label=\"Rosa\""));
        QVERIFY(edited(XmpDocument::blank().bytes(), state(2, 0, false), english).contains("xmp:Label=\"Yellow\""));
        const QByteArray labelled = edited(XmpDocument::blank().bytes(), state(1, 0, false));
        QVERIFY(!edited(labelled, state(0, 0, false)).contains("Label"));
    }

    void rotationRule()
    {
        const QByteArray foreign = packet("  <rdf:Description rdf:about='' xmlns:tiff='http://ns.adobe.com/tiff/1.0/'"
                                          " tiff:Orientation='6'/>");
        // Not turned in Corvane: the other tool's orientation stays.
        const QByteArray same = edited(foreign, state(0, 0, false, 0, 1));
        QVERIFY(same.contains("tiff:Orientation='6'"));
        QVERIFY(!same.contains("Rotation"));
        // Turned: both written; turned back: the image's own orientation returns.
        const QByteArray turned = edited(foreign, state(0, 0, false, 1, Orientation::turned(6, 1)));
        QVERIFY2(turned.contains("corvane:Rotation=\"1\"") && turned.contains("tiff:Orientation=\"3\""), turned);
        QCOMPARE(stateOfBytes(turned).rotation, 1);
        const QByteArray back = edited(turned, state(0, 0, false, 0, 6));
        QVERIFY(!back.contains("Rotation") && back.contains("tiff:Orientation=\"6\""));
    }

    void namespacePrefixes()
    {
        // XMP basic bound as "xap" on rdf:RDF is reused; "photomechanic" taken by another URI is not.
        const QByteArray before = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'"
                                  " xmlns:xap='http://ns.adobe.com/xap/1.0/' xmlns:photomechanic='urn:other'>"
                                  "<rdf:Description rdf:about=''><photomechanic:Note>x</photomechanic:Note></rdf:Description>"
                                  "</rdf:RDF></x:xmpmeta>";
        const QByteArray after = edited(before, state(3, 2, true));
        QVERIFY2(after.contains(" xap:Rating=\"2\"") && !after.contains("xmlns:xmp"), after);
        QVERIFY(after.contains(" xmlns:photomechanic2=\"http://ns.camerabits.com/photomechanic/1.0/\" photomechanic2:ColorClass=\"3\""));
        QVERIFY(after.contains("<photomechanic:Note>x</photomechanic:Note>"));
        QVERIFY(stateOfBytes(after).sameMarks(state(3, 2, true)));
    }

    void newSidecarFromTheTemplate()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("IMG_1.xmp");
        QCOMPARE(write(path, state(2, 3, true), kSpanish).kind, WriteResult::written);
        checkReadBack(path, 2, 3, true, QStringLiteral("Amarillo"));
        QCOMPARE(write(path, state(2, 3, true), kSpanish).kind, WriteResult::unchanged);
        QVERIFY(read(path, kSpanish)->sameMarks(state(2, 3, true)));
        QVERIFY(!read(dir.filePath("missing.xmp"), kSpanish));
    }

    void refusedFilesAreLeftUntouched_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        const QString unreadable = QStringLiteral("no se pudo leer un .xmp — no se modifica");
        const QByteArray description = "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about=''/></rdf:RDF>";
        QTest::newRow("not well-formed") << packet("  <rdf:Description rdf:about=''>").left(200) << unreadable;
        QTest::newRow("empty") << QByteArray() << unreadable;
        QTest::newRow("no description") << QByteArray("<x:xmpmeta xmlns:x='adobe:ns:meta/'/>")
                                        << QStringLiteral("un .xmp no tiene rdf:Description — no se modifica");
        QByteArray laughs = "<?xml version='1.0'?>\n<!DOCTYPE x:xmpmeta [\n <!ENTITY a0 'ha'>\n";
        for (int i = 1; i < 10; ++i)
            laughs += QStringLiteral(" <!ENTITY a%1 '&a%2;&a%2;&a%2;&a%2;&a%2;&a%2;&a%2;&a%2;&a%2;&a%2;'>\n").arg(i).arg(i - 1).toLatin1();
        QTest::newRow("billion laughs") << laughs + "]>\n<x:xmpmeta xmlns:x='adobe:ns:meta/'>&a9;" + description + "</x:xmpmeta>" << unreadable;
        QTest::newRow("external entity") << "<!DOCTYPE x [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>\n<x>&e;" + description + "</x>" << unreadable;
        QTest::newRow("100,000 levels") << QByteArray("<a>").repeated(100000) + description + QByteArray("</a>").repeated(100000) << unreadable;
        QTest::newRow("UTF-32") << QByteArray("\xFF\xFE\0\0<\0\0\0", 8) << unreadable;
        QTest::newRow("lone surrogate in UTF-16") << QByteArray("\xFF\xFE<\0\x00\xD8>\0", 8) << unreadable;
    }
    void refusedFilesAreLeftUntouched()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("IMG_1.xmp"), bytes);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QRegularExpression::escape(message + ": " + path)));
        const WriteResult r = write(path, state(1, 5, true, 1, 6), kSpanish);
        QVERIFY(!r.ok());
        QCOMPARE(TestEnv::readAll(path), bytes);
        QVERIFY(!read(path, kSpanish));
    }

    void fiftyMegabytesOfGarbage()
    {
        QTemporaryDir dir;
        QFile f(dir.filePath("IMG_1.xmp"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        const QByteArray chunk = QByteArray("<rdf:Description ").repeated(4096);
        while (f.size() < 50 * 1024 * 1024)
            f.write(chunk);
        f.close();
        const QDateTime modified = QFileInfo(f).lastModified();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("no se pudo leer un .xmp")));
        QCOMPARE(write(f.fileName(), state(1, 1, false), kSpanish).kind, WriteResult::unreadable);
        QCOMPARE(QFileInfo(f.fileName()).lastModified(), modified);
    }

    void failedWritesKeepTheOldFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("IMG_1.xmp");
        QCOMPARE(write(path, state(1, 1, false), kSpanish).kind, WriteResult::written);
        const QByteArray old = TestEnv::readAll(path);
        AtomicFile::setFailureForTesting("rename");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^error guardando un \\.xmp: .+")));
        const WriteResult r = write(path, state(2, 2, true), kSpanish);
        AtomicFile::setFailureForTesting(nullptr);
        QCOMPARE(r.kind, WriteResult::failed);
        QCOMPARE(TestEnv::readAll(path), old);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"IMG_1.xmp"});

        if (geteuid() == 0)
            QSKIP("root writes into read-only folders");
        QFile::setPermissions(dir.path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("error guardando un \\.xmp: la carpeta es de solo lectura")));
        QCOMPARE(write(path, state(3, 3, true), kSpanish).kind, WriteResult::failed);
        QFile::setPermissions(dir.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(TestEnv::readAll(path), old);
    }

    // Sidecars of Lightroom, Camera Raw, Bridge, darktable, digiKam, Apple, Photo Mechanic…:
    // after a rating, a colour and a flag, they differ only in the properties written.
    void foreignSidecars_data()
    {
        QTest::addColumn<QString>("file");
        const QString samples = TestEnv::samples();
        if (samples.isEmpty())
            return;
        for (const QFileInfo &f : QDir(samples + "/xmp").entryInfoList({"*.xmp"}, QDir::Files, QDir::Name))
            QTest::newRow(qPrintable(f.fileName())) << f.filePath();
    }
    void foreignSidecars()
    {
        QFETCH(QString, file);
        if (file.isEmpty())
            QSKIP("no sample sidecars");
        QTemporaryDir dir;
        const QString path = dir.filePath("IMG_1.xmp"), original = dir.filePath("original.xmp");
        QVERIFY(QFile::copy(file, path) && QFile::copy(file, original));
        const QByteArray before = TestEnv::readAll(path);

        QVERIFY(write(path, state(3, 4, true), kSpanish).ok());
        const QByteArray after = TestEnv::readAll(path);
        QVERIFY(read(path, kSpanish)->sameMarks(state(3, 4, true)));

        // Canonical forms without the written properties are equal (where Python can read the file).
        if (const QByteArray strippedBefore = stripped(original); !strippedBefore.isEmpty())
            QCOMPARE(stripped(path), strippedBefore);
        // Byte for byte before the first description and after the packet's descriptions.
        const QString b = decoded(before), a = decoded(after);
        const qsizetype start = b.indexOf(QRegularExpression(QStringLiteral("<(\\w+:)?Description[\\s/>]")));
        const qsizetype end = b.lastIndexOf(QRegularExpression(QStringLiteral("</(\\w+:)?RDF\\s*>")));
        QVERIFY(start > 0 && end > start);
        QCOMPARE(a.left(start), b.left(start));
        QCOMPARE(a.right(b.size() - end), b.mid(end));

        checkReadBack(path, 3, 4, true, QStringLiteral("Verde"), original);
    }

    void aBatchChangesNothingUntilItsCommit()
    {
        QTemporaryDir dir;
        const QString a = TestEnv::touch(dir.filePath("a.xmp"), "old a");
        QFile::setPermissions(a, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QString b = dir.filePath("b.xmp");
        {
            AtomicBatch abandoned;   // a run that stops before its commit
            QVERIFY(abandoned.add(a, "new a").ok());
            QVERIFY(abandoned.add(b, "new b").ok());
            QCOMPARE(TestEnv::readAll(a), QByteArray("old a"));
            QVERIFY(!QFile::exists(b));
        }
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.xmp"});
        AtomicBatch batch;
        QVERIFY(batch.add(a, "new a", 0600).ok());
        QVERIFY(batch.add(b, "new b").ok());
        QVERIFY(batch.commit().isEmpty());
        QCOMPARE(TestEnv::readAll(a), QByteArray("new a"));
        QCOMPARE(TestEnv::readAll(b), QByteArray("new b"));
        QCOMPARE(QFile::permissions(a), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 2);
    }

    void storeQueue()
    {
        QTemporaryDir dir;
        XMPStore store;
        store.setLabels(XmpLabels::presets().at(2).labels);
        const QString a = dir.filePath("a.xmp"), b = dir.filePath("b.xmp");
        QString thread;
        QObject::connect(&store, &XMPStore::batchProgress, &store, [&] { thread = QThread::currentThread()->objectName(); }, Qt::DirectConnection);
        for (int r = 1; r <= 5; ++r)
            store.write(a, state(1, r, false));
        QSignalSpy progress(&store, &XMPStore::batchProgress);
        QSignalSpy finished(&store, &XMPStore::batchFinished);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("error guardando un \\.xmp")));
        const quint64 batch = store.writeAll({{b, state(4, 0, true), {}}, {dir.filePath("none/c.xmp"), state(1, 1, false), {}}});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 5000);
        QCOMPARE(finished.first(), (QList<QVariant>{batch, 1, 1}));
        QCOMPARE(progress.size(), 2);
        QCOMPARE(thread, QStringLiteral("com.tessaly.corvane.xmp"));
        QVERIFY(TestEnv::readAll(b).contains("xmp:Label=\"Review\""));

        QSignalSpy read(&store, &XMPStore::sidecarsRead);
        store.read({a, b, dir.filePath("missing.xmp")}, 9);
        QTRY_COMPARE_WITH_TIMEOUT(read.size(), 1, 5000);
        const auto states = read.first().at(1).value<QHash<QString, XmpState>>();
        QCOMPARE(states.size(), 2);
        QCOMPARE(states.value(a).rating, 5);   // the last of the burst
        QVERIFY(states.value(b).flag);
    }

    void exportCommand()
    {
        QVERIFY2(corvaneBuilt(), "corvane is not built");
        QTemporaryDir dir;
        for (const char *name : {"IMG_1.JPG", "IMG_2.NEF", "IMG_3.JPG"})
            TestEnv::touch(dir.filePath(name));
        const QByteArray broken = "<x:xmpmeta";
        TestEnv::touch(dir.filePath("IMG_2.xmp"), broken);
        MarksMap marks;
        marks.insert("img_1", Marks::from(ColorClass::c2, 3, true, 0, {}));
        marks.insert("img_2", Marks::from(ColorClass::none, 5, false, 1, {}));
        QVERIFY(MarksFile::save(dir.path(), marks, std::nullopt).isEmpty());

        CorvaneRun r = corvane({"xmp-export", dir.path()});
        QCOMPARE(r.status, 1);
        QVERIFY2(r.out.contains("1 .xmp escritos"), r.out);
        QVERIFY2(r.err.contains("no se pudo leer un .xmp — no se modifica"), r.err);
        QCOMPARE(TestEnv::readAll(dir.filePath("IMG_2.xmp")), broken);
        QVERIFY(read(dir.filePath("IMG_1.xmp"), kSpanish)->sameMarks(state(2, 3, true)));
        QVERIFY(!QFile::exists(dir.filePath("IMG_3.xmp")));

        QFile::remove(dir.filePath("IMG_2.xmp"));
        r = corvane({"xmp-export", dir.path()});
        QCOMPARE(r.status, 0);
        QVERIFY2(r.out.contains("2 .xmp escritos"), r.out);
        QCOMPARE(read(dir.filePath("IMG_2.xmp"), kSpanish)->rotation, 1);
    }
};

QTEST_GUILESS_MAIN(TestXmpStore)
#include "tst_xmpstore.moc"
