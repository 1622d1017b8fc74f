// The generated sample shoot, and the RAW-like files it writes, read back the way Corvane and other
// tools read them: the folder listing, a TIFF walk, libvips, exiv2.
// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "cli/sampleshoot.h"
#include "cli/tiffrawwriter.h"
#include "model/filekinds.h"
#include "model/folderscanner.h"
#include "testenv.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QtTest>

#include <exiv2/exiv2.hpp>

namespace {

// A small TIFF reader, independent of the writer's code.
struct Tiff {
    QByteArray bytes;
    bool big = false;
    bool ok = false;

    explicit Tiff(const QByteArray &b) : bytes(b)
    {
        if (b.size() < 8)
            return;
        if (b.startsWith("II"))
            big = false;
        else if (b.startsWith("MM"))
            big = true;
        else
            return;
        ok = u16(2) == 42;
    }
    quint32 u16(qint64 at) const
    {
        const auto *p = reinterpret_cast<const quint8 *>(bytes.constData()) + at;
        return big ? (p[0] << 8) | p[1] : (p[1] << 8) | p[0];
    }
    quint32 u32(qint64 at) const
    {
        const auto *p = reinterpret_cast<const quint8 *>(bytes.constData()) + at;
        return big ? (quint32(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3]
                   : (quint32(p[3]) << 24) | (p[2] << 16) | (p[1] << 8) | p[0];
    }

    struct Entry {
        quint32 type = 0, count = 0;
        qint64 valueAt = 0;   // where the value bytes are
    };
    using Ifd = QMap<quint32, Entry>;

    static int typeSize(quint32 type) { return type == 3 ? 2 : type == 4 ? 4 : type == 5 ? 8 : 1; }

    Ifd ifd(qint64 at) const
    {
        Ifd out;
        if (at < 8 || at + 2 > bytes.size())
            return out;
        const quint32 n = u16(at);
        quint32 lastTag = 0;
        for (quint32 i = 0; i < n; ++i) {
            const qint64 e = at + 2 + 12 * i;
            if (e + 12 > bytes.size())
                return {};
            Entry entry{u16(e + 2), u32(e + 4), e + 8};
            const qint64 size = qint64(entry.count) * typeSize(entry.type);
            if (size > 4)
                entry.valueAt = u32(e + 8);
            if (entry.valueAt + size > bytes.size() || u16(e) <= lastTag)
                return {};   // out of the file, or tags out of order
            lastTag = u16(e);
            out.insert(u16(e), entry);
        }
        return out;
    }
    quint32 value(const Ifd &d, quint32 tag, int index = 0) const
    {
        const Entry e = d.value(tag);
        if (e.type == 3)
            return u16(e.valueAt + 2 * index);
        if (e.type == 4)
            return u32(e.valueAt + 4 * index);
        return 0;
    }
    QByteArray text(const Ifd &d, quint32 tag) const
    {
        const Entry e = d.value(tag);
        if (e.type != 2 || e.count == 0)
            return {};
        QByteArray t = bytes.mid(e.valueAt, e.count);
        return t.endsWith('\0') ? t.chopped(1) : QByteArray();
    }
    qint64 firstIfd() const { return u32(4); }
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Every file under `root` by its path relative to it, hidden ones included.
QMap<QString, QString> filesUnder(const QString &root)
{
    QMap<QString, QString> out;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        out.insert(QDir(root).relativeFilePath(path), path);
    }
    return out;
}

struct Exif {
    QString model, date, caption;
    int orientation = 0;
    QStringList keywords;
    bool ok = false;
};

Exif readExif(const QString &path)
{
    Exif out;
    try {
        auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
        image->readMetadata();
        const Exiv2::ExifData &exif = image->exifData();
        auto model = exif.findKey(Exiv2::ExifKey("Exif.Image.Model"));
        auto date = exif.findKey(Exiv2::ExifKey("Exif.Photo.DateTimeOriginal"));
        auto orientation = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
        if (model != exif.end())
            out.model = QString::fromStdString(model->toString());
        if (date != exif.end())
            out.date = QString::fromStdString(date->toString());
        if (orientation != exif.end())
            out.orientation = int(orientation->toLong());
        const Exiv2::IptcData &iptc = image->iptcData();
        for (const auto &d : iptc) {
            if (d.key() == "Iptc.Application2.Keywords")
                out.keywords.append(QString::fromStdString(d.toString()));
            if (d.key() == "Iptc.Application2.Caption")
                out.caption = QString::fromStdString(d.toString());
        }
        out.ok = true;
    } catch (const std::exception &) {
    }
    return out;
}

// The embedded preview of a RAW-like file as the writer lays it out: (offset, length) or (-1, -1).
QPair<qint64, qint64> previewRange(const Tiff &t, Tiff::Ifd *previewIfd = nullptr)
{
    const Tiff::Ifd ifd0 = t.ifd(t.firstIfd());
    if (!ifd0.contains(330))
        return {-1, -1};
    const Tiff::Ifd sub = t.ifd(t.value(ifd0, 330, 0));
    if (!sub.contains(513) || !sub.contains(514))
        return {-1, -1};
    if (previewIfd)
        *previewIfd = sub;
    return {t.value(sub, 513), t.value(sub, 514)};
}

} // namespace

class TestSampleShoot : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir first, second;
    QList<QPair<int, int>> steps;
    QString dir;

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY(VIPS_INIT("tst_sampleshoot") == 0);
        QVERIFY(first.isValid() && second.isValid());
        dir = first.path() + "/Boda";
        QElapsedTimer timer;
        timer.start();
        const QString error = SampleShoot::generate(dir, [this](int done, int total) { steps.append({done, total}); });
        QVERIFY2(error.isEmpty(), qPrintable(error));
        qInfo("sample shoot generated in %lld ms", timer.elapsed());
    }

    void progressCountsUp()
    {
        QVERIFY(steps.size() >= 2);
        QCOMPARE(steps.first().first, 0);
        QCOMPARE(steps.last().first, steps.last().second);
        for (qsizetype i = 1; i < steps.size(); ++i) {
            QVERIFY(steps[i].first > steps[i - 1].first);
            QCOMPARE(steps[i].second, steps.first().second);
        }
    }

    void listsAsAShoot()
    {
        LoadToken token;
        const ScanResult r = FolderScanner::listFolder(dir, token);
        const bool heic = QFile::exists(dir + "/IMG_7411.HEIC");
        const bool video = QFile::exists(dir + "/IMG_7414.MOV");
        if (!QStandardPaths::findExecutable("ffmpeg").isEmpty())
            QVERIFY(video);
        QCOMPARE(r.items.size(), 33 + int(heic) + int(video));

        QMap<FileKinds::Kind, int> byKind;
        QMap<QString, int> badges;
        for (const ScannedItem &item : r.items) {
            ++byKind[FileKinds::kindOf(item.url)];
            ++badges[item.badge];
        }
        QCOMPARE(byKind.value(FileKinds::Kind::Jpeg), 24);
        QCOMPARE(byKind.value(FileKinds::Kind::Raw), 8);
        QCOMPARE(byKind.value(FileKinds::Kind::OtherImage), 1 + int(heic));
        QCOMPARE(byKind.value(FileKinds::Kind::Video), int(video));
        QCOMPARE(badges.value("NEF+JPG"), 4);
        QCOMPARE(badges.value("CR2+JPG"), 2);
        QCOMPARE(badges.value("NEF"), 1);
        QCOMPARE(badges.value("CR2"), 1);
        QCOMPARE(badges.value("PNG"), 1);

        QVERIFY(r.xmpKeys.contains(FolderScanner::groupingKey(dir + "/DSC_0106.NEF")));
        QCOMPARE(r.subfolders, QStringList{dir + "/Ceremonia"});
        QCOMPARE(r.extras, QStringList{dir + "/notas.txt"});

        const ScanResult sub = FolderScanner::listFolder(dir + "/Ceremonia", token);
        QCOMPARE(sub.items.size(), 4);
        for (const ScannedItem &item : sub.items)
            QVERIFY(FileKinds::isJpeg(item.url));

        const ScanResult tree = FolderScanner::listTree(dir, token);
        QCOMPARE(tree.items.size(), r.items.size() + 4);
        QCOMPARE(tree.folderCount, 2);
    }

    void filesAreDatedAtTheShot()
    {
        const QDateTime modified = QFileInfo(dir + "/DSC_0097.JPG").lastModified();
        QCOMPARE(modified, QDateTime(QDate(2023, 6, 17), QTime(11, 5, 41)));
    }

    void rawsCarryTheirPreview_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("model");
        QTest::addColumn<QString>("sibling");
        QTest::newRow("pair NEF") << "DSC_0098.NEF" << QByteArray("NIKON Z 6_2") << "DSC_0098.JPG";
        QTest::newRow("pair CR2 sideways") << "IMG_0205.CR2" << QByteArray("Canon EOS 5D Mark IV") << "IMG_0205.JPG";
        QTest::newRow("NEF alone") << "DSC_0106.NEF" << QByteArray("NIKON Z 6_2") << "";
        QTest::newRow("CR2 alone") << "IMG_0209.CR2" << QByteArray("Canon EOS 5D Mark IV") << "";
    }
    void rawsCarryTheirPreview()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, model);
        QFETCH(QString, sibling);
        const Tiff t(readAll(dir + "/" + name));
        QVERIFY(t.ok);
        QVERIFY(!t.big);
        QVERIFY(t.bytes.startsWith(QByteArray("II*\0", 4)));

        const Tiff::Ifd ifd0 = t.ifd(t.firstIfd());
        QVERIFY(!ifd0.isEmpty());
        QCOMPARE(t.text(ifd0, 272), model);
        QVERIFY(t.value(ifd0, 274) >= 1 && t.value(ifd0, 274) <= 8);
        QVERIFY(t.text(ifd0, 306).startsWith("2023:06:17 "));

        // Thumbnail strip: uncompressed RGB inside the file.
        QCOMPARE(t.value(ifd0, 259), 1u);
        const quint32 tw = t.value(ifd0, 256), th = t.value(ifd0, 257);
        QVERIFY(tw > 0 && tw <= 160 && th > 0 && th <= 120);
        QCOMPARE(t.value(ifd0, 279), tw * th * 3);
        QVERIFY(t.value(ifd0, 273) % 2 == 0);
        QVERIFY(qint64(t.value(ifd0, 273)) + t.value(ifd0, 279) <= t.bytes.size());

        // EXIF IFD.
        const Tiff::Ifd exif = t.ifd(t.value(ifd0, 34665));
        QCOMPARE(t.text(exif, 36867), t.text(ifd0, 306));

        // The preview: a whole JPEG at the stated range, decodable, its size declared.
        Tiff::Ifd sub;
        const auto [offset, length] = previewRange(t, &sub);
        QVERIFY(offset > 0 && length > 4);
        QVERIFY(offset % 2 == 0);
        QVERIFY(offset + length <= t.bytes.size());
        const QByteArray jpeg = t.bytes.mid(offset, length);
        QVERIFY(jpeg.startsWith("\xFF\xD8"));
        QVERIFY(jpeg.endsWith("\xFF\xD9"));
        const vips::VImage img = vips::VImage::new_from_buffer(jpeg.constData(), size_t(jpeg.size()), "");
        QCOMPARE(quint32(img.width()), t.value(sub, 256));
        QCOMPARE(quint32(img.height()), t.value(sub, 257));
        QVERIFY(img.width() >= 1200);
        QCOMPARE(img.avg() > 20, true);   // a picture, not a black frame

        if (!sibling.isEmpty()) {
            const vips::VImage jpg = vips::VImage::new_from_file(QFile::encodeName(dir + "/" + sibling).constData());
            QCOMPARE(jpg.width(), img.width());
            QCOMPARE(jpg.height(), img.height());
        }

        // Sensor data sits in a sub-IFD strip of its own, after the preview.
        const Tiff::Ifd sensor = t.ifd(t.value(ifd0, 330, 1));
        QCOMPARE(t.value(sensor, 262), 32803u);
        QVERIFY(t.value(sensor, 273) >= quint32(offset + length));
        QCOMPARE(qint64(t.value(sensor, 273)) + t.value(sensor, 279), qint64(t.bytes.size()));

        // Other readers agree.
        const Exif meta = readExif(dir + "/" + name);
        QVERIFY(meta.ok);
        QCOMPARE(meta.model, QString::fromLatin1(model));
        QCOMPARE(meta.date.toLatin1(), t.text(exif, 36867));
    }

    void jpegMetadata()
    {
        const Exif portrait = readExif(dir + "/DSC_0097.JPG");
        QVERIFY(portrait.ok);
        QCOMPARE(portrait.model, QStringLiteral("NIKON Z 6_2"));
        QCOMPARE(portrait.date, QStringLiteral("2023:06:17 11:05:41"));
        QCOMPARE(portrait.orientation, 8);

        // Stored sideways, upright once the orientation is applied.
        const QByteArray path = QFile::encodeName(dir + "/DSC_0097.JPG");
        const vips::VImage stored = vips::VImage::new_from_file(path.constData());
        QVERIFY(stored.width() > stored.height());
        const vips::VImage shown = vips::VImage::thumbnail(path.constData(), 400);
        QVERIFY(shown.height() > shown.width());

        const Exif tagged = readExif(dir + "/IMG_0202.JPG");
        QCOMPARE(tagged.model, QStringLiteral("Canon EOS 5D Mark IV"));
        QVERIFY(tagged.keywords.contains("ceremonia"));
        QCOMPARE(tagged.caption, QStringLiteral("Entrada de la novia con su padre"));

        QCOMPARE(readExif(dir + "/_DSF0451.JPG").model, QStringLiteral("X-T4"));
        QCOMPARE(readExif(dir + "/IMG_7410.JPG").orientation, 6);
        QCOMPARE(readExif(dir + "/Ceremonia/DSC_0103.JPG").orientation, 6);
    }

    void blurredShotsAreSofter()
    {
        // The Laplacian's spread, as a sharpness measure sees it: a focused shot beside its missed one.
        auto detail = [this](const QString &name) {
            const vips::VImage grey = vips::VImage::thumbnail(QFile::encodeName(dir + "/" + name).constData(), 800)
                                          .colourspace(VIPS_INTERPRETATION_B_W);
            const vips::VImage lap = grey.conv(vips::VImage::new_matrixv(3, 3, 0.0, 1.0, 0.0, 1.0, -4.0, 1.0, 0.0, 1.0, 0.0));
            return lap.deviate();
        };
        QVERIFY(detail("IMG_0203.JPG") > 3 * detail("IMG_0204.JPG"));
        QVERIFY(detail("_DSF0452.JPG") > 3 * detail("_DSF0453.JPG"));
    }

    void sidecarIsReadable()
    {
        const QByteArray xmp = readAll(dir + "/DSC_0106.xmp");
        QVERIFY(xmp.startsWith("<?xpacket begin=\"\xEF\xBB\xBF\""));
        QVERIFY(xmp.contains("xmp:Rating=\"3\""));
        QVERIFY(xmp.contains("xmp:Label=\"Verde\""));
        std::string packet = xmp.toStdString();
        Exiv2::XmpData data;
        QCOMPARE(Exiv2::XmpParser::decode(data, packet), 0);
        QCOMPARE(QString::fromStdString(data["Xmp.xmp.Rating"].toString()), QStringLiteral("3"));
    }

    void notesAreText()
    {
        const QString notes = QString::fromUtf8(readAll(dir + "/notas.txt"));
        QVERIFY(notes.contains(QStringLiteral("Lucía")));
    }

    void sameBytesEveryRun()
    {
        const QString again = second.path() + "/Boda";
        QVERIFY(SampleShoot::generate(again).isEmpty());
        // And again in place: a previous sample shoot may be generated over.
        QVERIFY(SampleShoot::generate(again).isEmpty());

        const QMap<QString, QString> a = filesUnder(dir), b = filesUnder(again);
        QCOMPARE(a.keys(), b.keys());
        int compared = 0;
        for (auto it = a.cbegin(); it != a.cend(); ++it) {
            const QString ext = FileKinds::extensionOf(it.key());
            if (ext == "mov" || ext == "heic")
                continue;   // made by outside encoders
            QVERIFY2(readAll(it.value()) == readAll(b.value(it.key())), qPrintable(it.key()));
            ++compared;
        }
        QVERIFY(compared >= 40);
    }

    void refusesOtherFolders()
    {
        QTemporaryDir tmp;
        TestEnv::touch(tmp.path() + "/mis-fotos/IMG_0001.JPG");
        const QString error = SampleShoot::generate(tmp.path() + "/mis-fotos");
        QVERIFY(error.contains(QStringLiteral("no está vacía")));
        QCOMPARE(QDir(tmp.path() + "/mis-fotos").entryList(QDir::Files | QDir::Hidden).size(), 1);

        TestEnv::touch(tmp.path() + "/archivo");
        QVERIFY(!SampleShoot::generate(tmp.path() + "/archivo").isEmpty());
    }

    // The writer on its own, in the shapes extractor tests will want.
    void writerLayouts_data()
    {
        QTest::addColumn<bool>("big");
        QTest::addColumn<bool>("canon");
        QTest::addColumn<int>("more");
        QTest::addColumn<qint64>("sensor");
        QTest::newRow("little") << false << false << 0 << qint64(1 << 16);
        QTest::newRow("big endian") << true << false << 0 << qint64(1 << 16);
        QTest::newRow("canon header") << false << true << 0 << qint64(4096);
        QTest::newRow("two previews") << false << false << 1 << qint64(1 << 16);
        QTest::newRow("no sensor") << true << false << 1 << qint64(0);
        QTest::newRow("odd sensor") << false << false << 0 << qint64(100003);
    }
    void writerLayouts()
    {
        QFETCH(bool, big);
        QFETCH(bool, canon);
        QFETCH(int, more);
        QFETCH(qint64, sensor);
        auto jpegOf = [](int w, int h) {
            void *buf = nullptr;
            size_t size = 0;
            vips::VImage::black(w, h).linear(1.0, 128.0).cast(VIPS_FORMAT_UCHAR).write_to_buffer(".jpg", &buf, &size);
            QByteArray out(static_cast<const char *>(buf), qsizetype(size));
            g_free(buf);
            return out;
        };

        TiffRawWriter::Options o;
        o.bigEndian = big;
        o.canonSignature = canon;
        o.orientation = 6;
        o.date = QDateTime(QDate(2024, 2, 29), QTime(9, 8, 7));
        o.jpeg = jpegOf(640, 427);
        for (int i = 0; i < more; ++i)
            o.moreJpegs.append(jpegOf(160, 120));
        o.sensorBytes = sensor;
        QCOMPARE(TiffRawWriter::jpegSize(o.jpeg), qMakePair(640, 427));

        TiffRawWriter::Layout layout;
        const QByteArray file = TiffRawWriter::build(o, &layout);
        const Tiff t(file);
        QVERIFY(t.ok);
        QCOMPARE(t.big, big);
        QCOMPARE(file.mid(8, 4) == QByteArray("CR\x02\x00", 4), canon);
        QCOMPARE(t.firstIfd(), layout.ifd0);
        QCOMPARE(layout.ifd0 % 2, 0);

        const Tiff::Ifd ifd0 = t.ifd(t.firstIfd());
        QCOMPARE(t.value(ifd0, 274), 6u);
        QCOMPARE(t.text(ifd0, 306), QByteArray("2024:02:29 09:08:07"));
        QCOMPARE(t.text(ifd0, 271), QByteArray("NIKON CORPORATION"));
        QCOMPARE(qint64(t.value(ifd0, 34665)), layout.exifIfd);
        const qsizetype subCount = 1 + more + (sensor > 0 ? 1 : 0);
        QCOMPARE(qsizetype(ifd0.value(330).count), subCount);
        QCOMPARE(layout.subIfds.size(), subCount);
        QCOMPARE(layout.jpegs.size(), 1 + more);
        for (qsizetype i = 0; i < subCount; ++i) {
            QCOMPARE(qint64(t.value(ifd0, 330, int(i))), layout.subIfds[i]);
            QCOMPARE(layout.subIfds[i] % 2, 0);
            QVERIFY(!t.ifd(layout.subIfds[i]).isEmpty());
        }
        for (qsizetype i = 0; i < layout.jpegs.size(); ++i) {
            const Tiff::Ifd sub = t.ifd(layout.subIfds[i]);
            const auto [offset, length] = layout.jpegs[i];
            QCOMPARE(qint64(t.value(sub, 513)), offset);
            QCOMPARE(qint64(t.value(sub, 514)), length);
            QCOMPARE(t.value(sub, 259), 6u);
            QCOMPARE(offset % 2, 0);
            QCOMPARE(file.mid(offset, length), i == 0 ? o.jpeg : o.moreJpegs[i - 1]);
        }
        QCOMPARE(t.value(t.ifd(layout.subIfds[0]), 256), 640u);

        if (sensor > 0) {
            const Tiff::Ifd s = t.ifd(layout.subIfds.last());
            QCOMPARE(qint64(t.value(s, 273)), layout.sensorOffset);
            QCOMPARE(layout.sensorLength, sensor & ~qint64(1));
            QCOMPARE(qint64(t.value(s, 279)), layout.sensorLength);
            QCOMPARE(qint64(t.value(s, 256)) * t.value(s, 257) * 2, layout.sensorLength);
            QVERIFY(t.value(s, 256) >= t.value(s, 257));
            // The fake sensor data holds no JPEG start for a byte search to trip on.
            QVERIFY(!file.mid(layout.sensorOffset).contains("\xFF\xD8"));
            if (canon)
                QCOMPARE(qint64(t.u32(12)), layout.subIfds.last());
        } else {
            QCOMPARE(layout.sensorOffset, 0);
        }
        QCOMPARE(file, TiffRawWriter::build(o));
    }
};

QTEST_GUILESS_MAIN(TestSampleShoot)
#include "tst_sampleshoot.moc"
