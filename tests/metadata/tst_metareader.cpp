// Capture metadata read back from real files: JPEGs made with vips and tagged with the exiv2 tool,
// damaged files, and the camera samples when present.
#include "metadata/metareader.h"
#include "testenv.h"
#include "testtools.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHash>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cmath>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

using Batch = QList<QPair<QUuid, std::optional<PhotoMeta>>>;

// A small real JPEG; `strip` leaves out the EXIF block vips writes by default.
QString makeJpeg(const QString &path, int w = 64, int h = 48, bool strip = false)
{
    return TestTools::run(QStringLiteral("vips"), {QStringLiteral("black"),
                                            path + (strip ? QStringLiteral("[strip]") : QString()),
                                            QString::number(w), QString::number(h)});
}

// Applies exiv2 modify commands ("set Exif.Image.Model X", "add Iptc…") to a file.
QString tag(const QString &path, const QStringList &commands)
{
    QStringList args;
    for (const QString &c : commands)
        args << QStringLiteral("-M") << c;
    args << path;
    return TestTools::run(QStringLiteral("exiv2"), args);
}

// One field of PhotoMeta by name, for data-driven rows.
QVariant field(const PhotoMeta &m, const QString &name)
{
    auto opt = [](const auto &o) { return o ? QVariant::fromValue(*o) : QVariant(); };
    if (name == "captureDate") return m.captureDate;
    if (name == "orientation") return m.orientation;
    if (name == "lens") return m.lens;
    if (name == "aperture") return opt(m.aperture);
    if (name == "iso") return opt(m.iso);
    if (name == "keywords") return m.keywords;
    return QStringLiteral("<unknown field %1>").arg(name);
}

// Counts the files opened in a folder: how much reading really took place.
class OpenCounter
{
public:
    explicit OpenCounter(const QString &dir) : fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        if (fd >= 0)
            inotify_add_watch(fd, QFile::encodeName(dir).constData(), IN_OPEN);
    }
    ~OpenCounter()
    {
        if (fd >= 0)
            close(fd);
    }
    OpenCounter(const OpenCounter &) = delete;
    OpenCounter &operator=(const OpenCounter &) = delete;
    bool valid() const { return fd >= 0; }

    // Opens since the last call; -1 when there were more than the kernel's queue holds.
    int take()
    {
        int opens = 0;
        bool overflow = false;
        alignas(inotify_event) char buf[8192];
        for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;)
            for (const char *p = buf; p < buf + n;) {
                const auto *e = reinterpret_cast<const inotify_event *>(p);
                overflow |= (e->mask & IN_Q_OVERFLOW) != 0;
                opens += (e->mask & IN_OPEN) != 0;
                p += sizeof(inotify_event) + e->len;
            }
        return overflow ? -1 : opens;
    }

private:
    int fd;
};

QDateTime local(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::LocalTime);
}

} // namespace

class TestMetaReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    // readPhotoMeta
    void readsWhatWasWritten();
    void gpsHemispheres_data();
    void gpsHemispheres();
    void fallbacks_data();
    void fallbacks();
    void unreadableFiles_data();
    void unreadableFiles();
    void truncatedAfterHeaders();
    void sidecarKeepsItsCaptureTime();
    void cameraSamples();
    void everySampleSurvives();

    // MetaReader
    void reportsEveryJobOnce();
    void restartDropsOldRequest_data();
    void restartDropsOldRequest();
    void cancelStopsResults();
    void destroyedMidRun();

private:
    // 200 files in four kinds: three tagged with distinct ISO values, one without metadata.
    QList<MetaReader::Job> makeJobs(const QString &dir, int count, QHash<QUuid, int> *expectedIso);

    QTemporaryDir _tmp;
    QList<MetaReader::Job> _jobs;   // the 200 files, read by every MetaReader case
    QHash<QUuid, int> _expectedIso;
};

void TestMetaReader::initTestCase()
{
    TestEnv::isolate();
    QVERIFY(_tmp.isValid());
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("vips")).isEmpty(), "vips missing (libvips-tools)");
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("exiv2")).isEmpty(), "exiv2 tool missing");
    _jobs = makeJobs(_tmp.filePath(QStringLiteral("many")), 200, &_expectedIso);
    QCOMPARE(_jobs.size(), 200);
}

void TestMetaReader::readsWhatWasWritten()
{
    const QString path = _tmp.filePath(QStringLiteral("full.jpg"));
    QCOMPARE(makeJpeg(path, 64, 48), QString());
    QCOMPARE(tag(path, {
                           "set Exif.Photo.DateTimeOriginal 2023:05:14 10:22:33",
                           "set Exif.Photo.SubSecTimeOriginal 25",
                           "set Exif.Image.DateTime 2024:01:01 00:00:00",   // edit date: not the capture
                           "set Exif.Image.Make Canon",
                           "set Exif.Image.Model Canon EOS R6",
                           "set Exif.Photo.BodySerialNumber 093022004357",
                           "set Exif.Photo.LensModel RF24-105mm F4 L IS USM",
                           "set Exif.Photo.FocalLength 105/1",
                           "set Exif.Photo.FNumber 28/10",
                           "set Exif.Photo.ExposureTime 1/250",
                           "set Exif.Photo.ISOSpeedRatings 3200",
                           "set Exif.Image.Orientation 6",
                           // Stale size left by an editor: the frame itself is 64×48.
                           "set Exif.Photo.PixelXDimension 6000",
                           "set Exif.Photo.PixelYDimension 4000",
                           "set Iptc.Application2.ObjectName Boda en Águilas",
                           "set Iptc.Application2.Caption Los novios saliendo de la iglesia",
                           "set Iptc.Application2.Byline Marta Ruiz",
                           "set Iptc.Application2.Copyright © 2023 Marta Ruiz",
                           "set Iptc.Application2.City Águilas",
                           "set Iptc.Application2.CountryName España",
                           "add Iptc.Application2.Keywords boda",
                           "add Iptc.Application2.Keywords Murcia",
                           "add Iptc.Application2.Keywords ceremonia",
                       }),
             QString());

    const auto m = readPhotoMeta(path);
    QVERIFY(m);
    QCOMPARE(m->captureDate, local(2023, 5, 14, 10, 22, 33, 250));
    QCOMPARE(m->width, 64);
    QCOMPARE(m->height, 48);
    QCOMPARE(m->orientation, 6);
    QCOMPARE(m->uprightWidth(), 48);
    QCOMPARE(m->uprightHeight(), 64);
    QCOMPARE(m->make, QStringLiteral("Canon"));
    QCOMPARE(m->model, QStringLiteral("Canon EOS R6"));
    QCOMPARE(m->cameraName(), QStringLiteral("Canon EOS R6"));
    QCOMPARE(m->serial, QStringLiteral("093022004357"));
    QCOMPARE(m->lens, QStringLiteral("RF24-105mm F4 L IS USM"));
    QCOMPARE(m->focalLength, std::optional<double>(105.0));
    QCOMPARE(m->aperture, std::optional<double>(2.8));
    QCOMPARE(m->exposureTime, std::optional<double>(1.0 / 250));
    QCOMPARE(m->iso, std::optional<int>(3200));
    QVERIFY(!m->latitude && !m->longitude && !m->altitude);
    QCOMPARE(m->title, QStringLiteral("Boda en Águilas"));
    QCOMPARE(m->caption, QStringLiteral("Los novios saliendo de la iglesia"));
    QCOMPARE(m->creator, QStringLiteral("Marta Ruiz"));
    QCOMPARE(m->copyright, QStringLiteral("© 2023 Marta Ruiz"));
    QCOMPARE(m->city, QStringLiteral("Águilas"));
    QCOMPARE(m->country, QStringLiteral("España"));
    QCOMPARE(m->keywords, (QStringList{"boda", "Murcia", "ceremonia"}));
}

void TestMetaReader::gpsHemispheres_data()
{
    QTest::addColumn<QString>("latRef");
    QTest::addColumn<QString>("lonRef");
    QTest::addColumn<QString>("altRef");
    QTest::addColumn<double>("lat");
    QTest::addColumn<double>("lon");
    QTest::addColumn<double>("alt");
    // 33°51'35.4" = 33.85983…, 151°12'30" = 151.208333…
    QTest::newRow("north east, above sea") << "N" << "E" << "0" << 33.859833 << 151.208333 << 58.5;
    QTest::newRow("south west, below sea") << "S" << "W" << "1" << -33.859833 << -151.208333 << -58.5;
}

void TestMetaReader::gpsHemispheres()
{
    QFETCH(QString, latRef);
    QFETCH(QString, lonRef);
    QFETCH(QString, altRef);
    QFETCH(double, lat);
    QFETCH(double, lon);
    QFETCH(double, alt);
    const QString path = _tmp.filePath(QStringLiteral("gps-%1%2%3.jpg").arg(latRef, lonRef, altRef));
    QCOMPARE(makeJpeg(path), QString());
    QCOMPARE(tag(path, {"set Exif.GPSInfo.GPSLatitude 33/1 51/1 3540/100",
                        "set Exif.GPSInfo.GPSLatitudeRef " + latRef,
                        "set Exif.GPSInfo.GPSLongitude 151/1 12/1 30/1",
                        "set Exif.GPSInfo.GPSLongitudeRef " + lonRef,
                        "set Exif.GPSInfo.GPSAltitude 117/2",
                        "set Exif.GPSInfo.GPSAltitudeRef " + altRef}),
             QString());
    const auto m = readPhotoMeta(path);
    QVERIFY(m && m->latitude && m->longitude && m->altitude);
    QVERIFY2(std::abs(*m->latitude - lat) < 1e-5, qPrintable(QString::number(*m->latitude, 'f', 6)));
    QVERIFY2(std::abs(*m->longitude - lon) < 1e-5, qPrintable(QString::number(*m->longitude, 'f', 6)));
    QCOMPARE(*m->altitude, alt);
}

void TestMetaReader::fallbacks_data()
{
    QTest::addColumn<QStringList>("commands");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("date from the image date when the original is absent")
        << QStringList{"set Exif.Image.DateTime 2019:12:31 23:59:58"} << "captureDate"
        << QVariant(local(2019, 12, 31, 23, 59, 58));
    QTest::newRow("date from XMP, zone offset ignored")
        << QStringList{"set Xmp.exif.DateTimeOriginal 2021-02-13T19:29:05+01:00"} << "captureDate"
        << QVariant(local(2021, 2, 13, 19, 29, 5));
    QTest::newRow("zeroed date is no date")
        << QStringList{"set Exif.Photo.DateTimeOriginal 0000:00:00 00:00:00", "set Exif.Image.Model X"}
        << "captureDate" << QVariant(QDateTime());
    QTest::newRow("ISO past 65535 from the exposure index")
        << QStringList{"set Exif.Photo.ISOSpeedRatings 65535", "set Exif.Photo.RecommendedExposureIndex 102400"}
        << "iso" << QVariant(102400);
    QTest::newRow("f-number from the APEX aperture")
        << QStringList{"set Exif.Photo.ApertureValue 4/1"} << "aperture" << QVariant(4.0);
    QTest::newRow("IPTC keywords win over dc:subject")
        << QStringList{"set Xmp.dc.subject XmpBag xmp", "add Iptc.Application2.Keywords iptc"} << "keywords"
        << QVariant(QStringList{"iptc"});
    QTest::newRow("placeholder lens is no lens")
        << QStringList{"set Exif.Photo.LensModel ----", "set Exif.Image.Model X"} << "lens" << QVariant(QString());
    QTest::newRow("orientation out of range is upright")
        << QStringList{"set Exif.Image.Orientation 9"} << "orientation" << QVariant(1);
}

void TestMetaReader::fallbacks()
{
    QFETCH(QStringList, commands);
    QFETCH(QString, name);
    QFETCH(QVariant, expected);
    const QString path = _tmp.filePath(QStringLiteral("fallback-%1.jpg").arg(QTest::currentDataTag()).replace(' ', '_'));
    QCOMPARE(makeJpeg(path, 32, 24, /*strip*/ true), QString());
    QCOMPARE(tag(path, commands), QString());
    const auto m = readPhotoMeta(path);
    QVERIFY(m);
    const QVariant got = field(*m, name);
    if (expected.typeId() == QMetaType::Double)
        QVERIFY2(std::abs(got.toDouble() - expected.toDouble()) < 1e-9, qPrintable(got.toString()));
    else
        QCOMPARE(got, expected);
}

void TestMetaReader::unreadableFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");   // null: no file at all
    QByteArray noise(64 * 1024, '\0');
    for (int i = 0; i < noise.size(); ++i)
        noise[i] = char((i * 7919 + 13) % 251);
    QTest::newRow("missing file") << "missing.jpg" << QByteArray();
    QTest::newRow("empty file") << "empty.jpg" << QByteArray("");
    QTest::newRow("text named .jpg") << "notes.jpg" << QByteArray("no es una imagen\n").repeated(50);
    QTest::newRow("noise as RAW") << "noise.nef" << noise;
    QTest::newRow("JPEG start marker only") << "soi.jpg" << QByteArray("\xFF\xD8\xFF", 3);
    QTest::newRow("TIFF header with a wild IFD offset") << "wild.dng" << QByteArray("II*\0\xFF\xFF\xFF\x7F", 8);
    const QString stripped = _tmp.filePath(QStringLiteral("stripped-source.jpg"));
    QCOMPARE(makeJpeg(stripped, 64, 48, true), QString());
    QTest::newRow("JPEG without metadata") << "stripped.jpg" << TestEnv::readAll(stripped);
    QTest::newRow("folder named .jpg") << "folder.jpg" << QByteArray();
}

void TestMetaReader::unreadableFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    const QString path = _tmp.filePath(QStringLiteral("bad/") + name);
    if (name == "folder.jpg")
        QVERIFY(QDir().mkpath(path));
    else if (!bytes.isNull())
        TestEnv::touch(path, bytes);
    QVERIFY(!readPhotoMeta(path));
}

void TestMetaReader::truncatedAfterHeaders()
{
    // A copy cut short (card pulled mid-transfer): every prefix must be survivable, and once the
    // EXIF block is whole its date is there even though the picture data is not.
    const QString full = _tmp.filePath(QStringLiteral("whole.jpg"));
    QCOMPARE(makeJpeg(full, 256, 192), QString());
    QCOMPARE(tag(full, {"set Exif.Photo.DateTimeOriginal 2022:09:03 17:45:12", "set Exif.Image.Model NIKON Z 6"}),
             QString());
    const QByteArray bytes = TestEnv::readAll(full);
    QVERIFY(bytes.size() > 600);
    // End of the APP1 (EXIF) segment: marker FFE1 at 2 after SOI… or later after APP0.
    qsizetype app1 = bytes.indexOf(QByteArray("\xFF\xE1", 2));
    QVERIFY(app1 > 0);
    const int app1Len = (uchar(bytes[app1 + 2]) << 8) | uchar(bytes[app1 + 3]);
    const qsizetype afterExif = app1 + 2 + app1Len;

    const QString cut = _tmp.filePath(QStringLiteral("cut.jpg"));
    for (qsizetype n = 1; n < bytes.size(); n += (n < afterExif + 64 ? 7 : 97)) {
        TestEnv::touch(cut, bytes.left(n));
        const auto m = readPhotoMeta(cut);
        if (n >= afterExif) {
            QVERIFY2(m, qPrintable(QStringLiteral("cut at %1 of %2").arg(n).arg(bytes.size())));
            QCOMPARE(m->captureDate, local(2022, 9, 3, 17, 45, 12));
            QCOMPARE(m->model, QStringLiteral("NIKON Z 6"));
        }
    }
}

void TestMetaReader::sidecarKeepsItsCaptureTime()
{
    // A sidecar with a day-only IPTC date beside the exact capture time, as Lightroom writes it.
    const QByteArray xmp = R"(<x:xmpmeta xmlns:x="adobe:ns:meta/">
 <rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
  <rdf:Description rdf:about=""
    xmlns:exif="http://ns.adobe.com/exif/1.0/"
    xmlns:tiff="http://ns.adobe.com/tiff/1.0/"
    xmlns:aux="http://ns.adobe.com/exif/1.0/aux/"
    xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/"
    xmlns:dc="http://purl.org/dc/elements/1.1/"
   exif:DateTimeOriginal="2008-09-20T09:01:07.09+01:00"
   photoshop:DateCreated="2008-12-19"
   exif:ISOSpeedRatings="400"
   exif:FNumber="56/10"
   exif:GPSLatitude="37,36.5S"
   exif:GPSLongitude="0,59.25W"
   tiff:Make="Canon"
   tiff:Model="Canon EOS 5D Mark IV"
   aux:SerialNumber="025021000123"
   aux:Lens="EF70-200mm f/2.8L IS II USM">
   <dc:subject><rdf:Bag><rdf:li>regata</rdf:li><rdf:li>Cartagena</rdf:li></rdf:Bag></dc:subject>
  </rdf:Description>
 </rdf:RDF>
</x:xmpmeta>
)";
    const QString path = _tmp.filePath(QStringLiteral("IMG_0001.xmp"));
    TestEnv::touch(path, xmp);
    const auto m = readPhotoMeta(path);
    QVERIFY(m);
    QCOMPARE(m->captureDate, local(2008, 9, 20, 9, 1, 7, 90));
    QCOMPARE(m->iso, std::optional<int>(400));
    QCOMPARE(m->aperture, std::optional<double>(5.6));
    QCOMPARE(m->cameraName(), QStringLiteral("Canon EOS 5D Mark IV"));
    QCOMPARE(m->serial, QStringLiteral("025021000123"));
    QCOMPARE(m->lens, QStringLiteral("EF70-200mm f/2.8L IS II USM"));
    QVERIFY(m->latitude && m->longitude);
    QVERIFY(std::abs(*m->latitude + 37.608333) < 1e-5);
    QVERIFY(std::abs(*m->longitude + 0.9875) < 1e-5);
    QCOMPARE(m->keywords, (QStringList{"regata", "Cartagena"}));
}

void TestMetaReader::cameraSamples()
{
    const QString root = TestEnv::samples();
    if (root.isEmpty())
        QSKIP("camera samples absent");

    {
        const auto m = readPhotoMeta(root + "/jpeg/exifsamples_gps_DSCN0010.jpg");
        QVERIFY(m && m->latitude && m->longitude);
        // 43°28'3" N, 11°53'6" E (Tuscany)
        QVERIFY2(std::abs(*m->latitude - 43.4675) < 0.001, qPrintable(QString::number(*m->latitude)));
        QVERIFY2(std::abs(*m->longitude - 11.885) < 0.001, qPrintable(QString::number(*m->longitude)));
        QCOMPARE(m->cameraName(), QStringLiteral("NIKON COOLPIX P6000"));
        QCOMPARE(m->captureDate, local(2008, 10, 22, 16, 28, 39));
    }
    {
        const auto m = readPhotoMeta(root + "/jpeg/exifsamples_orientation_portrait_8.jpg");
        QVERIFY(m);
        QCOMPARE(m->orientation, 8);
    }
    {
        // The Canon lens table maps this ID to several lenses; the body's own text is exact.
        const auto m = readPhotoMeta(root + "/raw/exiv2_Canon-R6-pruned.CR3");
        QVERIFY(m);
        QCOMPARE(m->model, QStringLiteral("Canon EOS R6"));
        QCOMPARE(m->lens, QStringLiteral("RF70-200mm F2.8 L IS USM"));
        QCOMPARE(m->serial, QStringLiteral("093022004357"));
        QCOMPARE(m->iso, std::optional<int>(100));
        QCOMPARE(m->captureDate, local(2021, 5, 12, 12, 21, 21, 920));   // with SubSecTimeOriginal
    }
    {
        // Nikon keeps the lens only as an ID in its maker note.
        const auto m = readPhotoMeta(root + "/raw/exiftool_Nikon.nef");
        QVERIFY(m);
        QCOMPARE(m->lens, QStringLiteral("Nikon AF-S DX Zoom-Nikkor 18-70mm f/3.5-4.5G IF-ED"));
        QCOMPARE(m->serial, QStringLiteral("12345678"));
        QCOMPARE(m->iso, std::optional<int>(200));
    }
    {
        const auto m = readPhotoMeta(root + "/jpeg/mei_Canon_EOS_1000D.jpg");
        QVERIFY(m);
        QCOMPARE(m->lens, QStringLiteral("EF-S18-55mm f/3.5-5.6 IS"));
        QVERIFY(!m->serial.isEmpty());
        QCOMPARE(m->exposureTime, std::optional<double>(1.0 / 250));
    }
    {
        const auto m = readPhotoMeta(root + "/jpeg/exiftool_XMP.jpg");
        QVERIFY(m);
        QCOMPARE(m->title, QStringLiteral("Test IPTC picture"));
        QCOMPARE(m->creator, QStringLiteral("Phil Harvey"));
        QCOMPARE(m->keywords, (QStringList{"ExifTool", "Test", "XMP"}));
    }
}

void TestMetaReader::everySampleSurvives()
{
    const QString root = TestEnv::samples();
    if (root.isEmpty())
        QSKIP("camera samples absent");
    int read = 0, withMeta = 0, withDate = 0;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const auto m = readPhotoMeta(path);
        ++read;
        if (m) {
            ++withMeta;
            withDate += m->captureDate.isValid();
            QVERIFY2(m->orientation >= 1 && m->orientation <= 8, qPrintable(path));
            QVERIFY2(m->width >= 0 && m->height >= 0, qPrintable(path));
            if (m->latitude)
                QVERIFY2(std::abs(*m->latitude) <= 90 && std::abs(*m->longitude) <= 180, qPrintable(path));
        }
    }
    QVERIFY(read > 50);
    // Most of the stills are camera files with EXIF dates.
    QVERIFY2(withDate > read / 3, qPrintable(QStringLiteral("%1 of %2 dated").arg(withDate).arg(read)));
    QVERIFY(withMeta >= withDate);
}

QList<MetaReader::Job> TestMetaReader::makeJobs(const QString &dir, int count, QHash<QUuid, int> *expectedIso)
{
    QDir().mkpath(dir);
    const int isos[] = {100, 800, 6400, 0};   // 0: a file without metadata
    QStringList sources;
    for (int iso : isos) {
        const QString src = dir + QStringLiteral("/src-%1.jpg").arg(iso);
        if (!QFile::exists(src)) {
            if (!makeJpeg(src, 16, 16, iso == 0).isEmpty())
                return {};
            if (iso && !tag(src, {QStringLiteral("set Exif.Photo.ISOSpeedRatings %1").arg(iso)}).isEmpty())
                return {};
        }
        sources << src;
    }
    QList<MetaReader::Job> jobs;
    for (int i = 0; i < count; ++i) {
        const int k = i % 4;
        const QString path = dir + QStringLiteral("/IMG_%1.jpg").arg(i, 4, 10, QLatin1Char('0'));
        if (!QFile::exists(path) && !QFile::copy(sources[k], path))
            return {};
        const QUuid id = QUuid::createUuid();
        jobs.append({id, path});
        expectedIso->insert(id, isos[k]);
    }
    return jobs;
}

void TestMetaReader::reportsEveryJobOnce()
{
    const auto &jobs = _jobs;

    MetaReader reader;
    QHash<QUuid, int> seen;
    QList<QUuid> order;
    int batches = 0;
    bool finishedEarly = false, finished = false;
    connect(&reader, &MetaReader::metaReady, this, [&](quint64 gen, const Batch &batch) {
        QCOMPARE(gen, quint64(7));
        QVERIFY(!batch.isEmpty() && batch.size() <= 32);
        finishedEarly |= finished;
        ++batches;
        for (const auto &[id, meta] : batch) {
            ++seen[id];
            order.append(id);
            const int iso = _expectedIso.value(id, -1);
            QVERIFY(iso >= 0);
            if (iso == 0)
                QVERIFY(!meta);
            else
                QVERIFY(meta && meta->iso == iso);
        }
    });
    QSignalSpy done(&reader, &MetaReader::finished);
    connect(&reader, &MetaReader::finished, this, [&] { finished = true; });
    reader.start(jobs, 7);
    QVERIFY(done.wait(10000));
    QCOMPARE(done.size(), 1);
    QCOMPARE(done.first().first().value<quint64>(), quint64(7));
    QVERIFY(!finishedEarly);
    QVERIFY(batches >= 200 / 32);
    QCOMPARE(seen.size(), 200);
    for (auto it = seen.cbegin(); it != seen.cend(); ++it)
        QCOMPARE(it.value(), 1);
    // Read in the order asked.
    for (int i = 0; i < jobs.size(); ++i)
        QCOMPARE(order[i], jobs[i].id);
}

void TestMetaReader::restartDropsOldRequest_data()
{
    QTest::addColumn<bool>("waitForFirstBatch");
    QTest::addColumn<int>("queueMs");   // time the first request's results pile up undelivered
    QTest::newRow("restart at once") << false << 0;
    QTest::newRow("restart with results queued") << false << 60;
    QTest::newRow("restart after results began") << true << 60;
}

void TestMetaReader::restartDropsOldRequest()
{
    QFETCH(bool, waitForFirstBatch);
    QFETCH(int, queueMs);
    const auto &first = _jobs;
    // The same files under new ids: results of the first request cannot pass for the second.
    QList<MetaReader::Job> second;
    for (const auto &j : first)
        second.append({QUuid::createUuid(), j.path});
    // Long enough that the first request is still running when it is replaced.
    QList<MetaReader::Job> longFirst;
    for (int r = 0; r < 20; ++r)
        longFirst += first;

    MetaReader reader;
    bool restarted = false;
    int staleAfterRestart = 0;
    QSet<QUuid> secondSeen;
    int secondFinished = 0, firstFinished = 0;
    connect(&reader, &MetaReader::metaReady, this, [&](quint64 gen, const Batch &batch) {
        if (gen == 1) {
            staleAfterRestart += restarted;
            return;
        }
        QCOMPARE(gen, quint64(2));
        for (const auto &p : batch) {
            QVERIFY(!secondSeen.contains(p.first));
            secondSeen.insert(p.first);
        }
    });
    connect(&reader, &MetaReader::finished, this, [&](quint64 gen) {
        (gen == 1 ? firstFinished : secondFinished)++;
    });
    QSignalSpy batchSpy(&reader, &MetaReader::metaReady);
    QSignalSpy done(&reader, &MetaReader::finished);

    reader.start(longFirst, 1);
    if (waitForFirstBatch)
        QVERIFY(batchSpy.wait(5000));
    // No event processing here: batches the worker sends meanwhile wait in the queue and must
    // not come out after the restart.
    QThread::msleep(queueMs);
    reader.start(second, 2);
    restarted = true;
    QVERIFY(done.wait(10000));
    QTest::qWait(200);   // anything still queued from the first request would show now

    QCOMPARE(staleAfterRestart, 0);
    QCOMPARE(firstFinished, 0);
    QCOMPARE(secondFinished, 1);
    QCOMPARE(secondSeen.size(), second.size());
    for (const auto &j : second)
        QVERIFY(secondSeen.contains(j.id));
}

void TestMetaReader::cancelStopsResults()
{
    const auto &jobs = _jobs;
    MetaReader reader;
    QSignalSpy batches(&reader, &MetaReader::metaReady);
    QSignalSpy done(&reader, &MetaReader::finished);
    reader.start(jobs, 3);
    reader.cancel();
    QTest::qWait(500);
    QCOMPARE(batches.size(), 0);
    QCOMPARE(done.size(), 0);

    // The reader still serves the next request.
    reader.start(jobs.mid(0, 10), 4);
    QVERIFY(done.wait(5000));
    QCOMPARE(done.first().first().value<quint64>(), quint64(4));

    // An empty request finishes too, with nothing to report.
    batches.clear();
    done.clear();
    reader.start({}, 9);
    QVERIFY(done.wait(2000));
    QCOMPARE(batches.size(), 0);
    QCOMPARE(done.first().first().value<quint64>(), quint64(9));
}

void TestMetaReader::destroyedMidRun()
{
    // 80000 reads: the destructor must stop the worker at the next file, not wait for them.
    QList<MetaReader::Job> many;
    for (int r = 0; r < 400; ++r)
        many += _jobs;
    OpenCounter opens(_tmp.filePath(QStringLiteral("many")));
    QVERIFY(opens.valid());

    int received = 0;
    {
        auto reader = std::make_unique<MetaReader>();
        connect(reader.get(), &MetaReader::metaReady, this, [&](quint64, const Batch &b) { received += b.size(); });
        QSignalSpy batchSpy(reader.get(), &MetaReader::metaReady);
        reader->start(many, 1);
        QVERIFY(batchSpy.wait(5000));
        opens.take();
        reader.reset();
        // A destructor that waited would open the tens of thousands of files left.
        const int openedWhileStopping = opens.take();
        QVERIFY2(openedWhileStopping >= 0 && openedWhileStopping < 1000, qPrintable(QString::number(openedWhileStopping)));
    }
    const int atDestruction = received;
    QVERIFY(atDestruction < many.size());
    // Deliveries that were queued die with the reader.
    QTest::qWait(200);
    QCOMPARE(received, atDestruction);

    // Destroyed without ever starting, and right after starting.
    { MetaReader idle; }
    {
        MetaReader r;
        r.start(many, 2);
    }
}

QTEST_GUILESS_MAIN(TestMetaReader)
#include "tst_metareader.moc"
