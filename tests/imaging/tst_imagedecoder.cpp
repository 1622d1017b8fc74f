// The decode road: every kind of shot comes out upright at the long side asked for, with the
// label of the step that made it. Images are made here (libvips, exiv2, ffmpeg, TiffRawWriter)
// with a red block in the top-left corner of an otherwise blue picture, so that where the block
// ends up tells how the image was turned. Damaged and hostile files give no image and no crash;
// the real camera samples are decoded when present.
// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "sampledata/tiffrawwriter.h"
#include "imaging/exifthumbnail.h"
#include "imaging/imagedecoder.h"
#include "imaging/imageorientation.h"
#include "imaging/vipsbitmap.h"
#include "model/filekinds.h"
#include "testenv.h"
#include "testtools.h"

#include <QDirIterator>
#include <QtConcurrent>
#include <QtTest>

using vips::VImage;

namespace {

enum Corner { TopLeft, TopRight, BottomLeft, BottomRight };

// Blue, with a red block over the top-left quarter's corner (a quarter of each side).
VImage marked(int w, int h, const std::vector<double> &base = {0, 0, 255})
{
    const VImage blue = VImage::black(w, h).new_from_image(base);
    const VImage red = VImage::black(qMax(1, w / 4), qMax(1, h / 4)).new_from_image({255, 0, 0});
    return blue.insert(red, 0, 0).cast(VIPS_FORMAT_UCHAR).copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

QByteArray jpegBytes(const VImage &image, int quality = 90)
{
    void *buf = nullptr;
    size_t len = 0;
    image.write_to_buffer(".jpg", &buf, &len, VImage::option()->set("Q", quality)->set("strip", true));
    QByteArray out(static_cast<const char *>(buf), qsizetype(len));
    g_free(buf);
    return out;
}

bool isRed(QRgb p) { return qRed(p) > 180 && qGreen(p) < 90 && qBlue(p) < 90; }
bool isBlue(QRgb p) { return qBlue(p) > 180 && qRed(p) < 90 && qGreen(p) < 90; }
bool isGreen(QRgb p) { return qGreen(p) > 150 && qRed(p) < 90 && qBlue(p) < 90; }

// A pixel a little inside each corner.
QRgb cornerPixel(const QImage &image, Corner c)
{
    const int dx = qMax(1, image.width() / 20), dy = qMax(1, image.height() / 20);
    const int x = (c == TopLeft || c == BottomLeft) ? dx : image.width() - 1 - dx;
    const int y = (c == TopLeft || c == TopRight) ? dy : image.height() - 1 - dy;
    return image.pixel(x, y);
}

// Red in exactly the corner expected, blue in the other three.
QString checkCorner(const QImage &image, Corner red)
{
    if (image.isNull())
        return QStringLiteral("no image");
    for (Corner c : {TopLeft, TopRight, BottomLeft, BottomRight}) {
        const QRgb p = cornerPixel(image, c);
        const bool ok = c == red ? isRed(p) : isBlue(p);
        if (!ok)
            return QStringLiteral("corner %1 is #%2").arg(int(c)).arg(p & 0xFFFFFF, 6, 16, QLatin1Char('0'));
    }
    return {};
}

QSize sizeOf(const QImage &image) { return image.size(); }
int longSide(const QImage &image) { return qMax(image.width(), image.height()); }
bool sane(const QImage &image)
{
    return image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32_Premultiplied;
}

} // namespace

class TestImageDecoder : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    QString path(const QString &name) const { return dir.filePath(name); }

    // A 600×400 marked JPEG with the given EXIF orientation (0: no EXIF at all).
    QString orientedJpeg(const QString &name, int orientation, int w = 600, int h = 400)
    {
        const QString p = path(name);
        marked(w, h).write_to_file(p.toUtf8().constData(), VImage::option()->set("strip", true));
        if (orientation > 0)
            [&] { QCOMPARE(TestTools::run("exiv2", {"-M", QStringLiteral("set Exif.Image.Orientation %1").arg(orientation), p}), QString()); }();
        return p;
    }

    QString writeRaw(const QString &name, const TiffRawWriter::Options &o)
    {
        return TestEnv::touch(path(name), TiffRawWriter::build(o));
    }

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY(dir.isValid());
        ImageDecoder::initialize();
    }

    // ----- Orientation of ordinary JPEGs

    void jpegOrientation_data()
    {
        QTest::addColumn<int>("orientation");
        QTest::addColumn<QSize>("expected");
        QTest::addColumn<int>("corner");
        QTest::newRow("none") << 0 << QSize(300, 200) << int(TopLeft);
        QTest::newRow("3 upside down") << 3 << QSize(300, 200) << int(BottomRight);
        QTest::newRow("6 turned right") << 6 << QSize(200, 300) << int(TopRight);
        QTest::newRow("8 turned left") << 8 << QSize(200, 300) << int(BottomLeft);
    }
    void jpegOrientation()
    {
        QFETCH(int, orientation);
        QFETCH(QSize, expected);
        QFETCH(int, corner);
        const QString p = orientedJpeg(QStringLiteral("o%1.jpg").arg(orientation), orientation);

        const ImageDecoder::Result r = ImageDecoder::decode(p, false, 300);
        QCOMPARE(r.source, QString::fromUtf8(ImageDecoder::kJpeg));
        QCOMPARE(r.image.format(), QImage::Format_RGB32);
        QCOMPARE(sizeOf(r.image), expected);
        QCOMPARE(checkCorner(r.image, Corner(corner)), QString());

        // Both modes of the step agree when there is no embedded thumbnail.
        QCOMPARE(sizeOf(ImageDecoder::thumbnailFromFile(p, 300, false)), expected);
        QCOMPARE(sizeOf(ImageDecoder::thumbnailFromFile(p, 300, true)), expected);

        // Full image: full size, turned the same way.
        const QImage full = ImageDecoder::fullImage(p, false);
        QCOMPARE(sizeOf(full), expected * 2);
        QCOMPARE(checkCorner(full, Corner(corner)), QString());
    }

    void neverEnlarged()
    {
        const QString p = orientedJpeg(QStringLiteral("small.jpg"), 6, 120, 80);
        const ImageDecoder::Result r = ImageDecoder::decode(p, false, 420);
        QCOMPARE(sizeOf(r.image), QSize(80, 120));
        QCOMPARE(checkCorner(r.image, TopRight), QString());
        QVERIFY(ImageDecoder::decode(p, false, 0).image.isNull());
        QVERIFY(ImageDecoder::decode(p, false, -5).image.isNull());
    }

    // ----- The embedded EXIF thumbnail (step 3 of the road)

    void exifThumbnail()
    {
        // Main image 1200×800 (marked), its EXIF thumbnail 240×160 and all green, orientation 6.
        const QString p = orientedJpeg(QStringLiteral("withthumb.jpg"), 6, 1200, 800);
        VImage::black(240, 160).new_from_image({0, 200, 0}).cast(VIPS_FORMAT_UCHAR)
            .write_to_file(path(QStringLiteral("withthumb-thumb.jpg")).toUtf8().constData(), VImage::option()->set("strip", true));
        QCOMPARE(TestTools::run("exiv2", {"-it", p}), QString());

        const auto found = ExifThumbnail::read(p);
        QVERIFY(found.has_value());
        QCOMPARE(found->orientation, 6);

        // Whatever its size, turned by the file's orientation.
        const QImage embedded = ImageDecoder::thumbnailFromFile(p, 1000, true);
        QCOMPARE(sizeOf(embedded), QSize(160, 240));
        QVERIFY(isGreen(cornerPixel(embedded, TopLeft)));

        // Long side 240 ≥ 400/2: the road takes it.
        const ImageDecoder::Result small = ImageDecoder::decode(p, false, 400);
        QCOMPARE(sizeOf(small.image), QSize(160, 240));
        QVERIFY(isGreen(cornerPixel(small.image, BottomRight)));

        // 240 < 600/2: the road decodes the full image instead.
        const ImageDecoder::Result large = ImageDecoder::decode(p, false, 600);
        QCOMPARE(sizeOf(large.image), QSize(400, 600));
        QCOMPARE(checkCorner(large.image, TopRight), QString());
        QCOMPARE(sizeOf(ImageDecoder::thumbnailFromFile(p, 400, false)), QSize(267, 400));
    }

    // ----- Other still formats

    void formats_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("options");
        QTest::addColumn<QString>("label");
        QTest::newRow("png") << "f.png" << "" << ImageDecoder::kOther;
        QTest::newRow("tiff") << "f.tif" << "" << ImageDecoder::kOther;
        QTest::newRow("webp") << "f.webp" << "[Q=90]" << ImageDecoder::kOther;
        QTest::newRow("heic") << "f.heic" << "[compression=hevc,Q=90]" << ImageDecoder::kHeic;
        QTest::newRow("avif") << "f.avif" << "[compression=av1,Q=90]" << ImageDecoder::kHeic;
        QTest::newRow("jxl") << "f.jxl" << "[Q=90]" << ImageDecoder::kOther;
    }
    void formats()
    {
        QFETCH(QString, name);
        QFETCH(QString, options);
        QFETCH(QString, label);
        const QString p = path(name);
        try {
            marked(640, 480).write_to_file((p + options).toUtf8().constData());
        } catch (const vips::VError &e) {
            vips_error_clear();
            QSKIP(qPrintable(QStringLiteral("libvips here cannot write %1: %2").arg(name, QString::fromUtf8(e.what()))));
        }
        const ImageDecoder::Result r = ImageDecoder::decode(p, false, 320);
        QCOMPARE(r.source, label);
        QCOMPARE(r.image.format(), QImage::Format_RGB32);
        QCOMPARE(sizeOf(r.image), QSize(320, 240));
        QCOMPARE(checkCorner(r.image, TopLeft), QString());
        QCOMPARE(sizeOf(ImageDecoder::fullImage(p, false)), QSize(640, 480));
    }

    void alphaAndGrey()
    {
        // RGBA PNG: the left half transparent.
        const QString rgba = path(QStringLiteral("alpha.png"));
        const VImage colour = marked(200, 100);
        const VImage alpha = VImage::black(100, 100).new_from_image({0}).join(
            VImage::black(100, 100).new_from_image({255}), VIPS_DIRECTION_HORIZONTAL).cast(VIPS_FORMAT_UCHAR);
        colour.bandjoin(alpha).write_to_file(rgba.toUtf8().constData());
        const QImage a = ImageDecoder::decode(rgba, false, 100).image;
        QCOMPARE(a.format(), QImage::Format_ARGB32_Premultiplied);
        QCOMPARE(sizeOf(a), QSize(100, 50));
        QCOMPARE(qAlpha(a.pixel(5, 25)), 0);
        QCOMPARE(qAlpha(a.pixel(95, 25)), 255);
        QVERIFY(isBlue(a.pixel(95, 40)));

        // One-band grey PNG: RGB32 with equal channels.
        const QString grey = path(QStringLiteral("grey.png"));
        VImage::black(80, 60).new_from_image({128}).cast(VIPS_FORMAT_UCHAR).write_to_file(grey.toUtf8().constData());
        const QImage g = ImageDecoder::decode(grey, false, 40).image;
        QCOMPARE(g.format(), QImage::Format_RGB32);
        QCOMPARE(sizeOf(g), QSize(40, 30));
        const QRgb p = g.pixel(20, 15);
        QVERIFY(qAbs(qRed(p) - 128) <= 2 && qRed(p) == qGreen(p) && qGreen(p) == qBlue(p));
    }

    // ----- Orientation helpers agree with libvips

    void orientationHelpersAgree_data()
    {
        QTest::addColumn<int>("orientation");
        for (int o = 1; o <= 8; ++o)
            QTest::addRow("%d", o) << o;
    }
    void orientationHelpersAgree()
    {
        QFETCH(int, orientation);
        // A 6×4 image with distinct pixels: any wrong turn or mirror shows.
        VImage ramp = VImage::xyz(6, 4).extract_band(0).linear(30, 0)
                          .bandjoin(VImage::xyz(6, 4).extract_band(1).linear(60, 0))
                          .bandjoin(VImage::black(6, 4))
                          .cast(VIPS_FORMAT_UCHAR).copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        const QImage upright = VipsBitmap::toQImage(ramp.get_image());
        VImage tagged = ramp.copy();
        tagged.set(VIPS_META_ORIENTATION, orientation);
        const VImage turned = tagged.autorot();
        QCOMPARE(ImageOrientation::apply(upright, orientation), VipsBitmap::toQImage(turned.get_image()));
    }

    // ----- RAW files

    // The camera stores the preview as the sensor saw it and says "turn right" in IFD0; a preview
    // that carries its own EXIF orientation keeps it over the container's.
    void rawEmbeddedJpeg_data()
    {
        QTest::addColumn<int>("own");   // the preview's own EXIF orientation; 0: none
        QTest::addColumn<int>("corner");
        QTest::newRow("turned by the container") << 0 << int(TopRight);
        QTest::newRow("the preview's own 8") << 8 << int(BottomLeft);
    }
    void rawEmbeddedJpeg()
    {
        QFETCH(int, own);
        QFETCH(int, corner);
        TiffRawWriter::Options o;
        o.orientation = 6;
        o.jpeg = own ? TestEnv::readAll(orientedJpeg(QStringLiteral("own%1.jpg").arg(own), own, 1200, 800))
                     : jpegBytes(marked(1200, 800));
        const QString p = writeRaw(own ? QStringLiteral("own%1.nef").arg(own) : QStringLiteral("turned.nef"), o);

        const ImageDecoder::Result r = ImageDecoder::decode(p, true, 600);
        QCOMPARE(r.source, QString::fromUtf8(ImageDecoder::kRawEmbedded));
        QCOMPARE(sizeOf(r.image), QSize(400, 600));
        QCOMPARE(checkCorner(r.image, Corner(corner)), QString());

        // Not enlarged when the preview is smaller than asked but at least half; under half but
        // past the 200-pixel floor it is still the preview, not the developed sensor data.
        QCOMPARE(sizeOf(ImageDecoder::decode(p, true, 2000).image), QSize(800, 1200));
        const ImageDecoder::Result big = ImageDecoder::decode(p, true, 3000);
        QCOMPARE(big.source, QString::fromUtf8(ImageDecoder::kRawEmbedded));
        QCOMPARE(sizeOf(big.image), QSize(800, 1200));
        // Not reduced at all, turned all the same.
        QCOMPARE(checkCorner(ImageDecoder::thumbnailFromJpeg(o.jpeg, 5000, 6), Corner(corner)), QString());

        // Full image: the whole preview, upright.
        const QImage full = ImageDecoder::fullImage(p, true);
        QCOMPARE(sizeOf(full), QSize(800, 1200));
        QCOMPARE(checkCorner(full, Corner(corner)), QString());
    }

    void rawWithoutPreview()
    {
        // No JPEG anywhere: the last step develops the sensor data.
        TiffRawWriter::Options o;
        o.sensorBytes = 1 << 16;
        const QString p = writeRaw(QStringLiteral("nopreview.nef"), o);
        const ImageDecoder::Result r = ImageDecoder::decode(p, true, 400);
        QCOMPARE(r.source, QString::fromUtf8(ImageDecoder::kRawDeveloped));
        QVERIFY(!r.image.isNull() && longSide(r.image) <= 400);
        QCOMPARE(r.image.format(), QImage::Format_RGB32);
        QCOMPARE(ImageDecoder::developRaw(p, 0).size(), ImageDecoder::fullImage(p, true).size());
        QVERIFY(ImageDecoder::developRaw(path(QStringLiteral("o6.jpg")), 400).isNull());

        // A JPEG that only carries a RAW's name is still shown.
        const QString renamed = path(QStringLiteral("renamed.nef"));
        QVERIFY(QFile::copy(orientedJpeg(QStringLiteral("tobenamed.jpg"), 6), renamed));
        const ImageDecoder::Result j = ImageDecoder::decode(renamed, true, 300);
        QCOMPARE(sizeOf(j.image), QSize(200, 300));
        QCOMPARE(checkCorner(j.image, TopRight), QString());
    }

    // ----- Video

    void video_data()
    {
        QTest::addColumn<QString>("rotate");
        QTest::addColumn<QSize>("expected");
        QTest::addColumn<int>("corner");
        QTest::newRow("none") << "" << QSize(320, 240) << int(TopLeft);
        QTest::newRow("phone portrait (rotation -90)") << "270" << QSize(240, 320) << int(TopRight);
        QTest::newRow("rotation 90") << "90" << QSize(240, 320) << int(BottomLeft);
        QTest::newRow("rotation 180") << "180" << QSize(320, 240) << int(BottomRight);
    }
    void video()
    {
        QFETCH(QString, rotate);
        QFETCH(QSize, expected);
        QFETCH(int, corner);
        const QString plain = path(QStringLiteral("plain.mp4"));
        if (!QFile::exists(plain)) {
            const QString made = TestTools::run("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i",
                                                    "color=c=blue:s=320x240:d=2,drawbox=x=0:y=0:w=80:h=60:color=red:t=fill",
                                                    "-pix_fmt", "yuv420p", plain});
            if (!made.isEmpty())
                QSKIP(qPrintable(made));
        }
        QString p = plain;
        if (!rotate.isEmpty()) {
            p = path(QStringLiteral("rot%1.mov").arg(rotate));
            QCOMPARE(TestTools::run("ffmpeg", {"-v", "error", "-y", "-i", plain, "-c", "copy", "-metadata:s:v:0",
                                        QStringLiteral("rotate=%1").arg(rotate), p}),
                     QString());
        }
        const ImageDecoder::Result r = ImageDecoder::decode(p, false, 320);
        QCOMPARE(r.source, QString::fromUtf8(ImageDecoder::kVideo));
        QCOMPARE(r.image.format(), QImage::Format_RGB32);
        QCOMPARE(qAlpha(r.image.pixel(0, 0)), 255);
        QCOMPARE(sizeOf(r.image), expected);
        QCOMPARE(checkCorner(r.image, Corner(corner)), QString());
        QCOMPARE(sizeOf(ImageDecoder::decode(p, false, 160).image), expected / 2);
        QCOMPARE(sizeOf(ImageDecoder::fullImage(p, false)), expected);
    }

    void videoFrameAtOneSecond_data()
    {
        QTest::addColumn<QString>("graph");
        QTest::addColumn<bool>("green");
        // Red for the first second, green after: the frame at 1.0 s is green.
        QTest::newRow("two seconds") << "color=c=red:s=160x120:d=1[a];color=c=lime:s=160x120:d=1[b];[a][b]concat" << true;
        // Shorter than a second: its last frame.
        QTest::newRow("half a second") << "color=c=red:s=160x120:d=0.5" << false;
    }
    void videoFrameAtOneSecond()
    {
        QFETCH(QString, graph);
        QFETCH(bool, green);
        const QString p = path(QStringLiteral("timed-%1.mp4").arg(green));
        const QString made = TestTools::run("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", graph, "-g", "100",
                                                "-pix_fmt", "yuv420p", p});
        if (!made.isEmpty())
            QSKIP(qPrintable(made));
        const QImage frame = ImageDecoder::videoFrame(p, 160);
        QCOMPARE(sizeOf(frame), QSize(160, 120));
        const QRgb c = frame.pixel(80, 60);
        QVERIFY2(green ? isGreen(c) : isRed(c), qPrintable(QString::number(c, 16)));
    }

    // ----- Damaged and hostile files

    void badInput_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("isRaw");
        QTest::addColumn<bool>("mustBeNull");

        const QByteArray jpeg = jpegBytes(marked(640, 480));
        QByteArray huge = jpeg;   // the same file, its frame header claiming 65000 × 65000
        const qsizetype sof = huge.indexOf("\xFF\xC0");
        QVERIFY(sof > 0);
        huge[sof + 5] = huge[sof + 7] = char(0xFD);
        huge[sof + 6] = huge[sof + 8] = char(0xE8);
        QByteArray garbage;
        for (int i = 0; i < 50000; ++i)
            garbage.append(char((i * 7919) % 251));

        QTest::newRow("missing file") << "" << QByteArray() << false << true;
        QTest::newRow("zero bytes .jpg") << "zero.jpg" << QByteArray("") << false << true;
        QTest::newRow("zero bytes .mov") << "zero.mov" << QByteArray("") << false << true;
        QTest::newRow("garbage .jpg") << "garbage.jpg" << garbage << false << true;
        QTest::newRow("garbage .cr3 reaches the developer") << "garbage.cr3" << garbage << true << true;
        QTest::newRow("garbage .mp4") << "garbage.mp4" << garbage << false << true;
        // Formats libvips reads with loaders it marks unsafe for untrusted files: refused.
        QTest::newRow("svg named .png") << "vector.png"
                                        << QByteArray("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"900\" height=\"600\">"
                                                      "<rect width=\"900\" height=\"600\" fill=\"red\"/></svg>")
                                        << false << true;
        QTest::newRow("ppm named .tif") << "pixels.tif" << QByteArray("P6\n4 4\n255\n") + QByteArray(48, '\x7f') << false << true;
        QTest::newRow("jpeg header only") << "header.jpg" << jpeg.left(300) << false << false;
        QTest::newRow("truncated jpeg") << "truncated.jpg" << jpeg.left(jpeg.size() / 2) << false << false;
        QTest::newRow("65000 x 65000 jpeg") << "huge.jpg" << huge << false << true;
        QTest::newRow("65000 x 65000 in a raw") << "huge.nef" << TiffRawWriter::build([&] {
            TiffRawWriter::Options o;
            o.jpeg = huge;
            return o;
        }()) << true << false;
    }
    void badInput()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(bool, isRaw);
        QFETCH(bool, mustBeNull);
        const QString p = name.isEmpty() ? path(QStringLiteral("does-not-exist.jpg")) : TestEnv::touch(path(name), bytes);

        for (int size : {420, 2000}) {
            const ImageDecoder::Result r = ImageDecoder::decode(p, isRaw, size);
            if (mustBeNull)
                QVERIFY2(r.image.isNull(), qPrintable(QStringLiteral("%1×%2").arg(r.image.width()).arg(r.image.height())));
            else if (!r.image.isNull())
                QVERIFY(longSide(r.image) <= size && sane(r.image));
        }
        const QImage full = ImageDecoder::fullImage(p, isRaw);
        if (mustBeNull)
            QVERIFY(full.isNull());
        else if (!full.isNull())
            QVERIFY(qint64(full.width()) * full.height() <= ImageDecoder::kMaxPixels);
        QVERIFY(ImageDecoder::thumbnailFromJpeg(bytes, 420, 6).isNull() || !mustBeNull);
    }

    // ----- Threads

    void parallelDecodesAgree()
    {
        // Workers decode at once in the pipeline: the same inputs give the same pixels.
        QStringList files;
        for (const char *name : {"o6.jpg", "o8.jpg", "f.png", "f.webp", "withthumb.jpg", "turned.nef", "plain.mp4"})
            if (QFile::exists(path(name)))
                files << path(name);
        QVERIFY(files.size() >= 5);
        QList<QImage> alone;
        for (const QString &f : files)
            alone << ImageDecoder::decode(f, FileKinds::isRaw(f), 250).image;
        QStringList many;
        for (int i = 0; i < 6; ++i)
            many << files;
        QThreadPool pool;
        pool.setMaxThreadCount(4);
        const QList<QImage> together = QtConcurrent::blockingMapped(&pool, many, [](const QString &f) {
            return ImageDecoder::decode(f, FileKinds::isRaw(f), 250).image;
        });
        for (qsizetype i = 0; i < together.size(); ++i)
            QVERIFY2(together[i] == alone[i % files.size()], qPrintable(many[i]));
    }

    // ----- The real camera files

    void samples_data()
    {
        QTest::addColumn<QString>("file");
        const QString root = TestEnv::samples();
        if (root.isEmpty()) {
            QTest::newRow("absent") << QString();
            return;
        }
        for (const char *sub : {"jpeg", "heif", "png", "tiff", "webp", "avif", "jxl", "video", "raw", "fuzz"}) {
            QDirIterator it(root + QLatin1Char('/') + QLatin1String(sub), QDir::Files);
            while (it.hasNext()) {
                const QString f = it.next();
                QTest::newRow(qPrintable(QStringLiteral("%1/%2").arg(QLatin1String(sub), QFileInfo(f).fileName()))) << f;
            }
        }
    }
    void samples()
    {
        QFETCH(QString, file);
        if (TestEnv::samples().isEmpty())
            QSKIP("no samples folder");
        const bool raw = FileKinds::isRaw(file);
        const ImageDecoder::Result r = ImageDecoder::decode(file, raw, 420);
        if (r.image.isNull())
            return;   // a stripped or damaged sample: no image is a fine answer
        QVERIFY(sane(r.image));
        QVERIFY(r.image.width() >= 1 && r.image.height() >= 1 && longSide(r.image) <= 420);
        const QStringList labels{ImageDecoder::kJpeg, ImageDecoder::kHeic, ImageDecoder::kOther, ImageDecoder::kRawDeveloped,
                                 ImageDecoder::kRawEmbedded, ImageDecoder::kRawSearched, ImageDecoder::kVideo};
        QVERIFY2(labels.contains(r.source), qPrintable(r.source));
        if (raw)
            QVERIFY(r.source == ImageDecoder::kRawDeveloped || r.source == ImageDecoder::kRawEmbedded
                    || r.source == ImageDecoder::kRawSearched || r.source == ImageDecoder::kOther);
    }

    void samplesPortrait_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("portrait");
        QTest::newRow("Sony HIF, orientation 6") << "heif/exiv2_issue_9292_sony_6_right_top.HIF" << true;
        QTest::newRow("Sony HIF, orientation 8") << "heif/exiv2_issue_9292_sony_8_left-bottom.HIF" << true;
        QTest::newRow("Sony HIF, orientation 1") << "heif/exiv2_issue_9292_sony_1_top_left.HIF" << false;
        QTest::newRow("iPhone HEIC, orientation 6") << "heif/photoprism_iphone_15_pro.heic" << true;
        QTest::newRow("AVIF, irot") << "avif/libvips_avif-orientation-6.avif" << true;
        // Stored 700×840 and marked "turn right": shown landscape.
        QTest::newRow("JPEG, orientation 6") << "jpeg/immich_portrait-orientation-6.jpg" << false;
        QTest::newRow("JPEG, orientation 8") << "jpeg/exifsamples_orientation_portrait_8.jpg" << true;
        QTest::newRow("iPhone MOV, rotation 90") << "video/mei_iphone6_with-gps_rot90.mov" << true;
        QTest::newRow("iPad HEVC MOV, rotation 90") << "video/photoprism_ipad_hevc_rot90.mov" << true;
        QTest::newRow("3GP, rotation 90") << "video/mei_ftyp3gp5_rot90.mp4" << true;
        QTest::newRow("CR3 preview, byte search") << "raw/exiv2_Canon-R6-pruned.CR3" << false;
        QTest::newRow("JPEG named .nef") << "raw/mei_Issue_247-1_is_jpeg.nef" << true;
    }
    void samplesPortrait()
    {
        QFETCH(QString, file);
        QFETCH(bool, portrait);
        const QString root = TestEnv::samples();
        if (root.isEmpty())
            QSKIP("no samples folder");
        const QString p = root + QLatin1Char('/') + file;
        if (!QFile::exists(p))
            QSKIP("sample absent");
        const ImageDecoder::Result r = ImageDecoder::decode(p, FileKinds::isRaw(p), 420);
        QVERIFY2(!r.image.isNull(), qPrintable(r.source));
        // An embedded thumbnail of at least half the size serves (an iPhone's is 320 long).
        QVERIFY2(longSide(r.image) >= 210 && longSide(r.image) <= 420, qPrintable(QString::number(longSide(r.image))));
        QCOMPARE(r.image.height() > r.image.width(), portrait);
    }
};

QTEST_GUILESS_MAIN(TestImageDecoder)
#include "tst_imagedecoder.moc"
