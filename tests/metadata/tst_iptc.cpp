// IPTC templates on real files: what exiftool reads back (accents and ñ included) from JPEGs and
// sidecars, everything else in the file kept, the modes, refused input leaving the original
// untouched, undo, a run killed mid-batch, the template JSON and library, and the commands.
#include "metadata/iptcbatch.h"
#include "metadata/iptcfile.h"
#include "metadata/iptclibrary.h"
#include "metadata/jpegsegments.h"
#include "metadata/xmpdocument.h"
#include "corvanerun.h"
#include "testenv.h"
#include "testimages.h"
#include "testtools.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>

namespace {

IptcTemplate weddingTemplate()
{
    IptcTemplate t;
    t.name = QStringLiteral("Boda Logroño");
    t.values[IptcField::creator] = QStringLiteral("Ana Núñez Peña");
    t.values[IptcField::creatorJobtitle] = QStringLiteral("Fotógrafa");
    t.values[IptcField::creditLine] = QStringLiteral("Ana Núñez / Estudio Año");
    t.values[IptcField::source] = QStringLiteral("Estudio Castaño");
    t.values[IptcField::copyrightNotice] = QStringLiteral("© 2026 Ana Núñez");
    t.values[IptcField::usageTerms] = QStringLiteral("Solo uso editorial");
    t.values[IptcField::headline] = QStringLiteral("Boda en Logroño");
    t.values[IptcField::description] = QStringLiteral("Los novios salen de Santa María\ncon su niño.");
    t.values[IptcField::event] = QStringLiteral("Boda de Íñigo y Begoña");
    t.values[IptcField::city] = QStringLiteral("Logroño");
    t.values[IptcField::provinceState] = QStringLiteral("La Rioja");
    t.values[IptcField::country] = QStringLiteral("España");
    t.values[IptcField::countryCode] = QStringLiteral("ESP");
    t.values[IptcField::instructions] = QStringLiteral("No recortar");
    t.values[IptcField::contactEmail] = QStringLiteral("ana@núñez.es");
    t.values[IptcField::contactPhone] = QStringLiteral("+34 600 000 000");
    t.values[IptcField::contactUrl] = QStringLiteral("https://anañez.es");
    t.values.keywords = {QStringLiteral("boda"), QStringLiteral("niño"), QStringLiteral("Logroño")};
    return t;
}

// exiftool's reading of one file, group-qualified ("IPTC:By-line"), lists as lists.
QJsonObject exiftool(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("exiftool"), {QStringLiteral("-j"), QStringLiteral("-G1"), QStringLiteral("-struct"),
                                         QStringLiteral("-IPTC:all"), QStringLiteral("-XMP:all"), path});
    p.waitForFinished(60000);
    return QJsonDocument::fromJson(p.readAllStandardOutput()).array().at(0).toObject();
}

QStringList list(const QJsonValue &v)
{
    if (v.isArray()) {
        QStringList out;
        for (const QJsonValue &x : v.toArray())
            out.append(x.toVariant().toString());
        return out;
    }
    return v.isUndefined() ? QStringList() : QStringList{v.toVariant().toString()};
}

bool haveExiftool() { return !QStandardPaths::findExecutable(QStringLiteral("exiftool")).isEmpty(); }

// The segments a template may not change, with the image data: "<marker>:<bytes>" each.
QList<QByteArray> keptParts(const QByteArray &bytes)
{
    QList<QByteArray> parts;
    const auto l = JpegSegments::parse(bytes);
    if (!l)
        return parts;
    for (const auto &s : l->segments)
        if (!JpegSegments::isXmp(bytes, s) && !JpegSegments::isPhotoshop(bytes, s))
            parts.append(QByteArray::number(s.marker) + ':' + bytes.mid(s.data, s.dataSize()));
    parts.append(bytes.mid(l->scan));
    return parts;
}

qint64 mtimeNs(const QString &path)
{
    struct stat st {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

QString copyTo(const QString &from, const QString &dir)
{
    const QString to = dir + QLatin1Char('/') + QFileInfo(from).fileName();
    QFile::copy(from, to);
    QFile::setPermissions(to, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    return to;
}

} // namespace

class TestIptc : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnv::isolate(); }

    void jpegsReadBackByExiftool_data();
    void jpegsReadBackByExiftool();
    void sidecarsReadBackAndKeepForeignData();
    void modes();
    void badInputLeavesOriginalsAndBatchGoesOn();
    void undoPutsBackTheBytes();
    void killedBatchLeavesEachFileWholeOrOld();
    void templateJsonAndLibrary();
    void commands();
};

void TestIptc::jpegsReadBackByExiftool_data()
{
    QTest::addColumn<QString>("source");
    static QTemporaryDir generated;
    QTest::newRow("generated") << TestImages::writeJpeg(generated.filePath("generated.jpg"), 320, 200);
    const QString samples = TestEnv::samples();
    if (samples.isEmpty())
        return;
    for (const QFileInfo &f : QDir(samples + "/jpeg").entryInfoList({"*.jpg"}, QDir::Files, QDir::Name))
        QTest::newRow(qPrintable(f.fileName())) << f.absoluteFilePath();
}

void TestIptc::jpegsReadBackByExiftool()
{
    QFETCH(QString, source);
    if (!haveExiftool())
        QSKIP("exiftool is not installed");
    QTemporaryDir dir;
    const QString path = copyTo(source, dir.path());
    const QByteArray before = TestEnv::readAll(path);
    const qint64 mtime = mtimeNs(path);

    const IptcFile::Result r = IptcFile::apply(weddingTemplate(), path);
    QVERIFY2(r.kind == IptcFile::Result::written, qPrintable(r.message));
    const QByteArray after = TestEnv::readAll(path);
    QCOMPARE(keptParts(after), keptParts(before));   // EXIF, maker notes, ICC, image data
    QCOMPARE(mtimeNs(path), mtime);
    QVERIFY(QDir(dir.path()).entryList(QDir::Hidden | QDir::Files).filter(".part").isEmpty());

    const QJsonObject e = exiftool(path);
    QCOMPARE(e.value("IPTC:CodedCharacterSet").toString(), QStringLiteral("UTF8"));
    QCOMPARE(e.value("IPTC:By-line").toString(), QStringLiteral("Ana Núñez Peña"));
    QCOMPARE(e.value("IPTC:CopyrightNotice").toString(), QStringLiteral("© 2026 Ana Núñez"));
    QCOMPARE(e.value("IPTC:City").toString(), QStringLiteral("Logroño"));
    QCOMPARE(list(e.value("XMP-dc:Creator")), QStringList{"Ana Núñez Peña"});
    QCOMPARE(e.value("XMP-dc:Rights").toString(), QStringLiteral("© 2026 Ana Núñez"));
    QCOMPARE(e.value("XMP-photoshop:City").toString(), QStringLiteral("Logroño"));
    QCOMPARE(e.value("XMP-iptcExt:Event").toString(), QStringLiteral("Boda de Íñigo y Begoña"));
    QCOMPARE(e.value("XMP-dc:Description").toString(), QStringLiteral("Los novios salen de Santa María\ncon su niño."));
    QCOMPARE(e.value("XMP-iptcCore:CreatorContactInfo").toObject().value("CiEmailWork").toString(), QStringLiteral("ana@núñez.es"));
    // Keywords are added to the file's own, once each, the same in both forms.
    const QStringList iim = list(e.value("IPTC:Keywords")), xmp = list(e.value("XMP-dc:Subject"));
    for (const QString &k : weddingTemplate().values.keywords) {
        QCOMPARE(iim.count(k), 1);
        QCOMPARE(xmp.count(k), 1);
    }
    // The same reading through Corvane, and a second run changes nothing.
    QCOMPARE(IptcFile::read(path)->text, weddingTemplate().appliedTo(IptcValues{}).text);
    QCOMPARE(IptcFile::apply(weddingTemplate(), path).kind, IptcFile::Result::unchanged);
}

void TestIptc::sidecarsReadBackAndKeepForeignData()
{
    if (!haveExiftool())
        QSKIP("exiftool is not installed");
    QTemporaryDir dir;
    // A RAW without a sidecar gets a new one.
    const QString raw = TestEnv::touch(dir.filePath("DSC_0001.NEF"), "raw bytes");
    QVERIFY(IptcFile::apply(weddingTemplate(), raw).kind == IptcFile::Result::written);
    QCOMPARE(TestEnv::readAll(raw), QByteArray("raw bytes"));
    QJsonObject e = exiftool(dir.filePath("DSC_0001.xmp"));
    QCOMPARE(list(e.value("XMP-dc:Creator")), QStringList{"Ana Núñez Peña"});
    QCOMPARE(list(e.value("XMP-dc:Subject")), QStringList({"boda", "niño", "Logroño"}));
    QCOMPARE(e.value("XMP-photoshop:City").toString(), QStringLiteral("Logroño"));
    QCOMPARE(e.value("XMP-xmpRights:UsageTerms").toString(), QStringLiteral("Solo uso editorial"));

    // A Lightroom sidecar keeps every develop setting and its own keywords.
    const QString samples = TestEnv::samples();
    if (samples.isEmpty())
        QSKIP("no sample files");
    const QString lr = samples + "/xmp/exifr_sidecar_IMG_5910_lightroom.xmp";
    const QString sidecar = dir.filePath("IMG_5910.xmp");
    QVERIFY(QFile::copy(lr, sidecar));
    QFile::setPermissions(sidecar, QFile::ReadOwner | QFile::WriteOwner);
    const QString cr2 = TestEnv::touch(dir.filePath("IMG_5910.CR2"));
    const QJsonObject before = exiftool(sidecar);
    QVERIFY(IptcFile::apply(weddingTemplate(), cr2).kind == IptcFile::Result::written);
    e = exiftool(sidecar);
    for (auto it = before.begin(); it != before.end(); ++it)
        if (it.key().startsWith("XMP-crs:") || it.key().startsWith("XMP-aux:") || it.key() == "XMP-xmp:Rating")
            QCOMPARE(e.value(it.key()), it.value());
    QCOMPARE(list(e.value("XMP-dc:Creator")), QStringList{"Ana Núñez Peña"});
    QCOMPARE(list(e.value("XMP-dc:Subject")), QStringList({"Alvin the Squirrel", "Berkley", "USA", "boda", "niño", "Logroño"}));
    QCOMPARE(IptcFile::read(cr2)->keywords.size(), 6);
}

void TestIptc::modes()
{
    QTemporaryDir dir;
    const QString path = TestImages::writeJpeg(dir.filePath("a.jpg"), 64, 48);
    IptcTemplate first;
    first.values[IptcField::city] = QStringLiteral("Segovia");
    first.values[IptcField::creator] = QStringLiteral("Luis");
    first.values.keywords = {"Boda", "iglesia"};
    QVERIFY(IptcFile::apply(first, path).ok());

    IptcTemplate second;
    second.values[IptcField::city] = QStringLiteral("Logroño");
    second.setMode(IptcField::city, IptcTemplate::Mode::ifEmpty);
    second.values[IptcField::creator] = QStringLiteral("Ana");
    second.values.keywords = {"boda ", "banquete"};   // "boda" is already there
    QVERIFY(IptcFile::apply(second, path).ok());
    IptcValues v = *IptcFile::read(path);
    QCOMPARE(v[IptcField::city], QStringLiteral("Segovia"));
    QCOMPARE(v[IptcField::creator], QStringLiteral("Ana"));
    QCOMPARE(v.keywords, QStringList({"Boda", "iglesia", "banquete"}));

    second.keywordMode = IptcTemplate::KeywordMode::replace;
    QVERIFY(IptcFile::apply(second, path).ok());
    QCOMPARE(IptcFile::read(path)->keywords, QStringList({"boda", "banquete"}));
    second.keywordMode = IptcTemplate::KeywordMode::ifEmpty;
    second.values.keywords = {"otra"};
    QCOMPARE(IptcFile::apply(second, path).kind, IptcFile::Result::unchanged);
}

void TestIptc::badInputLeavesOriginalsAndBatchGoesOn()
{
    QTemporaryDir dir;
    const QString good = TestImages::writeJpeg(dir.filePath("bien.jpg"), 64, 48);
    const QString broken = dir.filePath("roto.jpg");
    QByteArray bytes = TestEnv::readAll(good);
    bytes.insert(2, QByteArray("\xFF\xE1\x7F\xFF" "Exif\0\0", 10));   // APP1 longer than the file
    TestEnv::touch(broken, bytes);
    const QString readOnly = TestImages::writeJpeg(dir.filePath("protegido.jpg"), 64, 48);
    QFile::setPermissions(readOnly, QFile::ReadOwner);
    const QString raw = TestEnv::touch(dir.filePath("DSC_0002.NEF"));
    const QString badSidecar = TestEnv::touch(dir.filePath("DSC_0002.xmp"), "<x:xmpmeta><rdf:RDF");

    const QStringList files{broken, readOnly, raw, good};
    QHash<QString, QByteArray> original;
    for (const QString &f : files + QStringList{badSidecar})
        original.insert(f, TestEnv::readAll(f));
    const IptcBatch::Outcome o = IptcBatch::apply(weddingTemplate(), files);
    QCOMPARE(o.written, 1);
    QCOMPARE(o.failed, 3);
    QCOMPARE(o.messages.size(), 3);
    QVERIFY2(o.messages[0].startsWith("roto.jpg: el JPEG tiene un segmento dañado"), qPrintable(o.messages[0]));
    QVERIFY2(o.messages[1].startsWith("protegido.jpg: el archivo es de solo lectura"), qPrintable(o.messages[1]));
    QVERIFY2(o.messages[2].startsWith("DSC_0002.xmp: no se pudo leer el .xmp"), qPrintable(o.messages[2]));
    for (const QString &f : files + QStringList{badSidecar})
        if (f != good)
            QCOMPARE(TestEnv::readAll(f), original.value(f));

    // Values no agency tool takes: one message per file, nothing written.
    struct Case {
        const char *name;
        std::function<void(IptcTemplate &)> spoil;
        const char *message;
    };
    const QList<Case> cases{
        {"5000 keywords", [](IptcTemplate &t) { for (int i = 0; i < 5000; ++i) t.values.keywords.append(QString::number(i)); },
         "demasiadas palabras clave (5003; como mucho 1000)"},
        {"100 KB field", [](IptcTemplate &t) { t.values[IptcField::description] = QString(100 * 1024, QLatin1Char('a')); },
         "«Descripción» es demasiado largo (102400 caracteres; como mucho 2000)"},
        {"control characters", [](IptcTemplate &t) { t.values[IptcField::creator] = QStringLiteral("Ana\x01\x1b"); },
         "«Autor» lleva caracteres de control"},
    };
    const QString other = TestImages::writeJpeg(dir.filePath("otra.jpg"), 64, 48);
    for (const Case &c : cases) {
        IptcTemplate t = weddingTemplate();
        c.spoil(t);
        const QByteArray a = TestEnv::readAll(good), b = TestEnv::readAll(other);
        const IptcBatch::Outcome bad = IptcBatch::apply(t, {good, other, raw});
        QCOMPARE(bad.failed, 3);
        QCOMPARE(bad.messages.first(), QStringLiteral("bien.jpg: %1; no se ha modificado").arg(QString::fromUtf8(c.message)));
        QCOMPARE(TestEnv::readAll(good), a);
        QCOMPARE(TestEnv::readAll(other), b);
    }
    QVERIFY(QDir(dir.path()).entryList(QDir::Hidden | QDir::Files).filter(".part").isEmpty());
}

void TestIptc::undoPutsBackTheBytes()
{
    QTemporaryDir dir;
    const QString jpeg = TestImages::writeJpeg(dir.filePath("a.jpg"), 64, 48);
    const QString raw = TestEnv::touch(dir.filePath("b.NEF"));
    const QString sidecar = TestEnv::touch(dir.filePath("c.xmp"), XmpDocument::blank().bytes());
    const QString rawWithSidecar = TestEnv::touch(dir.filePath("c.ORF"));
    const QByteArray jpegBefore = TestEnv::readAll(jpeg), sidecarBefore = TestEnv::readAll(sidecar);
    const IptcBatch::Outcome o = IptcBatch::apply(weddingTemplate(), {jpeg, raw, rawWithSidecar});
    QCOMPARE(o.undo.size(), 3);
    QVERIFY(TestEnv::readAll(jpeg) != jpegBefore);
    QVERIFY(IptcBatch::undo(o.undo).isEmpty());
    QCOMPARE(TestEnv::readAll(jpeg), jpegBefore);
    QCOMPARE(TestEnv::readAll(sidecar), sidecarBefore);
    QVERIFY(!QFileInfo::exists(dir.filePath("b.xmp")));
}

void TestIptc::killedBatchLeavesEachFileWholeOrOld()
{
    if (!corvaneBuilt())
        QSKIP("corvane is not built");
    QTemporaryDir dir;
    QStringList files;
    QHash<QString, QByteArray> original;
    for (int i = 0; i < 12; ++i) {
        const QString f = dir.filePath(QStringLiteral("IMG_%1.jpg").arg(i));
        QVERIFY2(TestTools::run("vips", {"gaussnoise", f + "[Q=95]", "1600", "1200"}).isEmpty(), "vips");
        files.append(f);
        original.insert(f, TestEnv::readAll(f));
    }
    const QString json = TestEnv::touch(dir.filePath("t.json"), weddingTemplate().toJsonBytes());
    const IptcValues done = weddingTemplate().appliedTo(IptcValues{});
    // One whole run first, to spread the kills over its length.
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(corvane(QStringList{"iptc", "apply", "--template-file", json} + files).status, 0);
    const int runMs = int(clock.elapsed());
    QRandomGenerator rng(14);   // fixed: the same kill times every run
    int whole = 0, old = 0;
    for (int round = 0; round < 10; ++round) {
        for (const QString &f : files)
            TestEnv::touch(f, original.value(f));
        QProcess p;
        p.start(corvaneBin(), QStringList{"iptc", "apply", "--template-file", json} + files);
        QVERIFY(p.waitForStarted());
        QThread::msleep(ulong(rng.bounded(runMs + 1)));
        ::kill(pid_t(p.processId()), SIGKILL);
        p.waitForFinished();
        for (const QString &f : files) {
            const QByteArray now = TestEnv::readAll(f);
            if (now == original.value(f)) {
                ++old;
                continue;
            }
            QCOMPARE(keptParts(now), keptParts(original.value(f)));
            QCOMPARE(IptcFile::read(f)->text, done.text);
            ++whole;
        }
    }
    qInfo("after the kills: %d files fully written, %d as before", whole, old);
}

void TestIptc::templateJsonAndLibrary()
{
    const IptcTemplate t = [] {
        IptcTemplate x = weddingTemplate();
        x.setMode(IptcField::city, IptcTemplate::Mode::ifEmpty);
        x.keywordMode = IptcTemplate::KeywordMode::replace;
        return x;
    }();
    const auto back = IptcTemplate::fromJsonBytes(t.toJsonBytes());
    QVERIFY(back);
    QCOMPARE(back->values, t.values);
    QCOMPARE(back->mode(IptcField::city), IptcTemplate::Mode::ifEmpty);
    QCOMPARE(back->keywordMode, IptcTemplate::KeywordMode::replace);
    QVERIFY(t.toJson().contains("creatorJobtitle") && t.toJson().contains("contactUrl"));

    QString why;
    QVERIFY(!IptcTemplate::fromJsonBytes(R"({"autor": "Ana"})", &why));
    QCOMPARE(why, QStringLiteral("campo desconocido: «autor»"));
    QVERIFY(!IptcTemplate::fromJsonBytes(R"({"keywords": "boda"})", &why));
    QVERIFY(!IptcTemplate::fromJsonBytes(R"({"modes": {"city": "sometimes"}})", &why));
    QVERIFY(!IptcTemplate::fromJsonBytes(QByteArray(IptcTemplate::kMaxJsonBytes + 1, ' '), &why));

    QTemporaryDir dir;
    const QString file = dir.filePath("plantillas-iptc.json");
    QVERIFY(IptcLibrary::save(t, {}, file).isEmpty());
    IptcTemplate copy = t;
    copy.name = IptcLibrary::copyName(t.name, file);
    QCOMPARE(copy.name, QStringLiteral("Boda Logroño (copia)"));
    QVERIFY(IptcLibrary::save(copy, {}, file).isEmpty());
    copy.name = QStringLiteral("boda logroño");
    QCOMPARE(IptcLibrary::save(copy, QStringLiteral("Boda Logroño (copia)"), file),
             QStringLiteral("Ya hay una plantilla que se llama «boda logroño»."));
    IptcTemplate tooLong = t;
    tooLong.values[IptcField::headline] = QString(600, QLatin1Char('x'));
    QVERIFY(IptcLibrary::save(tooLong, {}, file).startsWith("No se puede guardar la plantilla: «Titular» es demasiado largo"));
    QVERIFY(IptcLibrary::remove(t.name, file).isEmpty());
    QCOMPARE(IptcLibrary::load(file).size(), 1);
    QVERIFY(IptcLibrary::find("BODA LOGROÑO (COPIA)", file));
}

void TestIptc::commands()
{
    if (!corvaneBuilt())
        QSKIP("corvane is not built");
    QTemporaryDir dir;
    QVERIFY(IptcLibrary::save(weddingTemplate()).isEmpty());
    const QString jpeg = TestImages::writeJpeg(dir.filePath("a.jpg"), 64, 48);
    const QString raw = TestEnv::touch(dir.filePath("a.NEF"));
    CorvaneRun r = corvane({"iptc", "apply", "--template", "boda logroño", jpeg, raw});
    QVERIFY2(r.status == 0, r.err.constData());
    QCOMPARE(r.out.trimmed(), QByteArray("2 escritos, 0 ya la tenían, 0 con errores"));
    r = corvane({"iptc", "show", "--json", jpeg, raw});
    QCOMPARE(r.status, 0);
    const QJsonArray shown = QJsonDocument::fromJson(r.out).array();
    QCOMPARE(shown.size(), 2);
    for (const QJsonValue &v : shown) {
        QCOMPARE(v["creator"].toString(), QStringLiteral("Ana Núñez Peña"));
        QCOMPARE(v["keywords"].toArray().size(), 3);
    }
    r = corvane({"iptc", "show", jpeg});
    QVERIFY(r.out.contains("Ciudad: Logroño\n"));
    r = corvane({"iptc", "apply", "--template", "no existe", jpeg});
    QCOMPARE(r.status, 1);
    QCOMPARE(corvane({"iptc", "apply", jpeg}).status, 2);

    // At import: on the copies after verification, never on the card.
    const QString card = dir.filePath("card/DCIM/100CANON");
    const QString cardJpeg = TestImages::writeJpeg(card + "/IMG_0001.JPG", 64, 48);
    TestEnv::touch(card + "/IMG_0001.CR2", "raw");
    const QByteArray cardBytes = TestEnv::readAll(cardJpeg);
    QDir().mkpath(dir.filePath("dest"));
    r = corvane({"ingest", "--from", dir.filePath("card"), "--to", dir.filePath("dest"), "--structure", "none",
                 "--verify", "--iptc", "Boda Logroño", "--json"});
    QVERIFY2(r.status == 0, r.out.constData());
    QCOMPARE(QJsonDocument::fromJson(r.out).object().value("iptcWritten").toInt(), 2);
    QCOMPARE(TestEnv::readAll(cardJpeg), cardBytes);
    QVERIFY(!QFileInfo::exists(card + "/IMG_0001.xmp"));
    QCOMPARE((*IptcFile::read(dir.filePath("dest/IMG_0001.JPG")))[IptcField::city], QStringLiteral("Logroño"));
    QCOMPARE((*IptcFile::read(dir.filePath("dest/IMG_0001.CR2")))[IptcField::city], QStringLiteral("Logroño"));
}

QTEST_GUILESS_MAIN(TestIptc)
#include "tst_iptc.moc"
