// Finding the JPEGs cameras embed in RAW files: every container flavour, the JPEG checks, the
// choice for a view size, the byte search, hostile files, the real camera samples (against
// exiv2's reading of them) and the `raw-previews` command.
// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "sampledata/tiffrawwriter.h"
#include "imaging/rawpreview.h"
#include "corvanerun.h"
#include "tangledtiff.h"
#include "testenv.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

using RawPreview::Candidate;
using TiffRawWriter::Layout;
using TiffRawWriter::Options;

namespace {

const uint8_t *bytesOf(const QByteArray &b) { return reinterpret_cast<const uint8_t *>(b.constData()); }

QList<Candidate> candidatesOf(const QByteArray &file) { return RawPreview::findCandidates(bytesOf(file), file.size()); }

// One line per candidate, so a failing comparison shows everything found.
QString render(const QList<Candidate> &list)
{
    QStringList out;
    for (const Candidate &c : list)
        out << QStringLiteral("%1-%2 %3x%4 o%5 %6")
                   .arg(c.start)
                   .arg(c.end)
                   .arg(c.width)
                   .arg(c.height)
                   .arg(c.exifOrientation ? QString::number(*c.exifOrientation) : QStringLiteral("-"))
                   .arg(c.hasKnownEnd ? "known" : "unknown");
    return out.join(QLatin1String("; "));
}

QString expect(qint64 start, qint64 end, int w, int h, int orientation, bool known)
{
    Candidate c;
    c.start = start;
    c.end = end;
    c.width = w;
    c.height = h;
    if (orientation)
        c.exifOrientation = orientation;
    c.hasKnownEnd = known;
    return render({c});
}

// ----- Hand-made JPEG pieces, for the marker rules.

QByteArray be16(int v) { return QByteArray(1, char(v >> 8)) + char(v & 0xFF); }
QByteArray segment(quint8 marker, const QByteArray &payload)
{
    return QByteArray(1, '\xFF') + char(marker) + be16(int(payload.size()) + 2) + payload;
}
QByteArray frame(quint8 marker, int w, int h)
{
    return segment(marker, QByteArray(1, 8) + be16(h) + be16(w) + QByteArray("\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01", 10));
}
const QByteArray kSoi("\xFF\xD8", 2);
const QByteArray kEoi("\xFF\xD9", 2);
QByteArray sos() { return segment(0xDA, QByteArray("\x03\x01\x00\x02\x11\x03\x11\x00\x3F\x00", 10)); }
// A complete JPEG as far as the marker walks go: its entropy data holds stuffed FFs and a restart marker.
QByteArray tinyJpeg(int w, int h, quint8 frameMarker = 0xC0)
{
    return kSoi + segment(0xE0, "JFIF\0") + frame(frameMarker, w, h) + segment(0xC4, QByteArray(20, 1)) + sos()
           + QByteArray("\x12\xFF\x00\x34\xFF\xD0\x56", 7) + kEoi;
}

// ----- A little-endian TIFF assembled entry by entry, for structures the writer never makes.

QByteArray le16(quint32 v) { return QByteArray(1, char(v & 0xFF)) + char((v >> 8) & 0xFF); }
QByteArray le32(quint32 v) { return le16(v & 0xFFFF) + le16(v >> 16); }

struct Entry {
    quint16 tag, type;
    quint32 count, value;
};

class HandTiff
{
public:
    explicit HandTiff(quint16 magic = 42) : bytes("II" + le16(magic) + le32(8)) {}

    // Appends an IFD; returns its offset.
    qint64 ifd(const QList<Entry> &entries, quint32 next = 0)
    {
        pad();
        const qint64 at = bytes.size();
        bytes += le16(quint32(entries.size()));
        for (const Entry &e : entries)
            bytes += le16(e.tag) + le16(e.type) + le32(e.count) + (e.type == 3 && e.count == 1 ? le16(e.value) + le16(0) : le32(e.value));
        bytes += le32(next);
        return at;
    }
    qint64 data(const QByteArray &b)
    {
        pad();
        const qint64 at = bytes.size();
        bytes += b;
        return at;
    }
    void set32(qint64 at, quint32 v) { bytes.replace(at, 4, le32(v)); }
    // Where the value of an IFD's entry, or its next pointer, sits.
    static qint64 valueAt(qint64 ifd, int entry) { return ifd + 2 + 12 * entry + 8; }
    static qint64 nextAt(qint64 ifd, int entries) { return ifd + 2 + 12 * entries; }

    QByteArray bytes;

private:
    void pad()
    {
        if (bytes.size() % 2)
            bytes += '\0';
    }
};

// A TIFF whose first IFD points at `jpeg` through 513/514 (the declared length given).
QByteArray tiffAround(const QByteArray &jpeg, qint64 declared = -1)
{
    HandTiff t;
    const qint64 ifd = t.ifd({{513, 4, 1, 0}, {514, 4, 1, quint32(declared < 0 ? jpeg.size() : declared)}});
    t.set32(HandTiff::valueAt(ifd, 0), quint32(t.data(jpeg)));
    t.bytes += QByteArray(64, '\0');   // never shorter than the 65-byte minimum
    return t.bytes;
}

QByteArray smallJpeg(int w, int h, int seed = 0) { return TiffRawWriter::photoJpeg(w, h, 90, seed); }

// Deterministic noise (a fixed xorshift), for the garbage cases.
QByteArray noise(qsizetype size, quint32 seed)
{
    QByteArray b(size, '\0');
    quint32 s = seed;
    for (qsizetype i = 0; i < size; ++i) {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        b[i] = char(s >> 24);
    }
    return b;
}


} // namespace

class TestRawPreview : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY(VIPS_INIT("tst_rawpreview") == 0);
    }

    // ----- Containers as cameras write them

    void containers_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("expected");

        const QByteArray main = smallJpeg(640, 427);
        const QByteArray thumb = smallJpeg(160, 120, 1);
        auto tiff = [&](Options o, Layout *layout) {
            o.jpeg = o.jpeg.isEmpty() ? main : o.jpeg;
            o.sensorBytes = 4096;
            return TiffRawWriter::build(o, layout);
        };
        Layout l;
        QByteArray f;
        // The first JPEG the writer placed, 640×427, with the orientation given.
        const auto preview = [&](int orientation) {
            return expect(l.jpegs[0].first, l.jpegs[0].first + l.jpegs[0].second, 640, 427, orientation, true);
        };

        Options o;
        o.orientation = 6;
        o.moreJpegs = {thumb};
        f = tiff(o, &l);
        QTest::newRow("II, preview and thumbnail in sub-IFDs")
            << f << preview(6) + "; " + expect(l.jpegs[1].first, l.jpegs[1].first + thumb.size(), 160, 120, 6, true);

        o = {};
        o.orientation = 8;
        o.canonSignature = true;
        f = tiff(o, &l);
        QTest::newRow("CR2 signature after the header") << f << preview(8);

        o = {};
        o.orientation = 3;
        o.magic = Options::Magic::Panasonic;
        f = tiff(o, &l);
        QVERIFY(f.startsWith(QByteArray("IIU\0", 4)));
        QTest::newRow("Panasonic 0x55, JPEG in tag 0x002E") << f << preview(3);

        o.magic = Options::Magic::OlympusRO;
        f = tiff(o, &l);
        QVERIFY(f.startsWith("IIRO"));
        QTest::newRow("Olympus IIRO") << f << preview(3);

        o.magic = Options::Magic::OlympusRS;
        f = tiff(o, &l);
        QVERIFY(f.startsWith("IIRS"));
        QTest::newRow("Olympus IIRS") << f << preview(3);

        o = {};
        o.orientation = 8;
        o.jpeg = main;
        o.sensorBytes = 4096;
        f = TiffRawWriter::buildFuji(o, &l);
        QVERIFY(f.startsWith("FUJIFILM"));
        QTest::newRow("Fuji header, orientation in the JPEG's EXIF") << f << preview(8);

        o = {};
        o.orientation = 0;
        o.jpeg = TiffRawWriter::withExifOrientation(main, 5);
        f = tiff(o, &l);
        QTest::newRow("no container orientation: the JPEG's EXIF gives it") << f << preview(5);

        o.jpeg = TiffRawWriter::withExifOrientation(main, 7, true);
        o.bigEndian = true;
        f = tiff(o, &l);
        QTest::newRow("MM container, MM EXIF in the JPEG") << f << preview(7);

        o = {};
        o.orientation = 6;
        o.jpeg = TiffRawWriter::withExifOrientation(main, 3);
        f = tiff(o, &l);
        QTest::newRow("the container's orientation is not overridden by the JPEG's") << f << preview(6);

        o = {};
        o.jpegRef = Options::JpegRef::StartOnly;
        f = tiff(o, &l);
        QTest::newRow("start only: the end is unknown") << f << expect(l.jpegs[0].first, f.size(), 640, 427, 1, false);
    }
    void containers()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, expected);
        QCOMPARE(render(candidatesOf(file)), expected);
    }

    // Whatever the container, the bytes handed out are exactly the JPEG the camera stored.
    void embeddedBytesAreTheJpeg_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QByteArray>("jpeg");
        QTest::addColumn<int>("orientation");
        const QByteArray main = smallJpeg(900, 600);
        Options o;
        o.jpeg = main;
        o.orientation = 6;
        o.sensorBytes = 8192;
        o.jpegRef = Options::JpegRef::StartOnly;
        QTest::newRow("start only") << TiffRawWriter::build(o) << main << 6;
        o.jpegRef = Options::JpegRef::Strip;
        o.bigEndian = true;
        QTest::newRow("strip, MM") << TiffRawWriter::build(o) << main << 6;
        o = {};
        o.jpeg = main;
        o.orientation = 8;
        QTest::newRow("Fuji") << TiffRawWriter::buildFuji(o) << TiffRawWriter::withExifOrientation(main, 8) << 8;
    }
    void embeddedBytesAreTheJpeg()
    {
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, jpeg);
        QFETCH(int, orientation);
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("shot.raw"), file);
        const auto e = RawPreview::embeddedJPEG(path, 800, 0, true, false);
        QVERIFY(e);
        QVERIFY(e->jpeg == jpeg);
        QCOMPARE(e->label, QStringLiteral("JPEG del RAW"));
        QCOMPARE(e->orientation, std::optional<int>(orientation));
        QCOMPARE(e->longSide, 900);
    }

    // ----- Limits and loops

    void loopsAreWalkedOnce()
    {
        const QByteArray jpeg = tinyJpeg(300, 200);
        HandTiff t;
        const qint64 ifd0 = t.ifd({{274, 3, 1, 6}, {330, 4, 1, 0}, {513, 4, 1, 0}, {514, 4, 1, quint32(jpeg.size())}});
        const qint64 sub = t.ifd({{330, 4, 1, 0}, {513, 4, 1, 0}, {514, 4, 1, quint32(jpeg.size())}});
        const qint64 exif = t.ifd({{34665, 4, 1, 0}});
        const qint64 at = t.data(jpeg);
        t.set32(HandTiff::valueAt(ifd0, 2), quint32(at));
        t.set32(HandTiff::valueAt(sub, 1), quint32(at));
        t.set32(HandTiff::valueAt(ifd0, 1), quint32(sub));
        t.bytes += QByteArray(64, '\0');
        // IFD0 → sub-IFD; both have the same JPEG, each is one candidate.
        QCOMPARE(candidatesOf(t.bytes).size(), 2);

        t.set32(HandTiff::nextAt(ifd0, 4), quint32(ifd0));   // IFD0 is its own next
        t.set32(HandTiff::valueAt(sub, 0), quint32(ifd0));   // the sub-IFD's sub-IFD is IFD0
        t.set32(HandTiff::nextAt(sub, 3), quint32(sub));     // and it chains to itself
        t.set32(HandTiff::valueAt(exif, 0), quint32(exif));  // an EXIF IFD pointing at itself
        t.set32(HandTiff::nextAt(exif, 1), quint32(ifd0));
        t.set32(HandTiff::nextAt(ifd0, 4), quint32(exif));
        QCOMPARE(render(candidatesOf(t.bytes)),
                 expect(at, at + jpeg.size(), 300, 200, 6, true) + "; " + expect(at, at + jpeg.size(), 300, 200, 6, true));
    }

    // ----- The JPEG check: markers up to the frame header

    void jpegCheck_data()
    {
        QTest::addColumn<QByteArray>("jpeg");
        QTest::addColumn<qint64>("declared");   // -1: the JPEG's own size
        QTest::addColumn<QString>("result");    // "WxH known|unknown", or "rejected"

        const QByteArray f = frame(0xC0, 320, 240);
        const QByteArray app = segment(0xE0, "JFIF\0");
        QTest::newRow("baseline") << kSoi + app + f << qint64(-1) << "320x240 known";
        QTest::newRow("progressive C2") << kSoi + frame(0xC2, 320, 240) << qint64(-1) << "320x240 known";
        QTest::newRow("CD rejects") << kSoi + frame(0xCD, 320, 240) << qint64(-1) << "rejected";
        QTest::newRow("fill bytes") << kSoi + QByteArray(5, '\xFF') + app.mid(1) + QByteArray(3, '\xFF') + f
                                    << qint64(-1) << "320x240 known";
        QTest::newRow("segment length 1") << kSoi + QByteArray("\xFF\xE0\x00\x01", 4) + f << qint64(-1) << "rejected";
        QTest::newRow("EOI before the frame") << kSoi + app + kEoi + f << qint64(-1) << "rejected";
        QTest::newRow("SOS before the frame") << kSoi + app + sos() + f << qint64(-1) << "rejected";
        QTest::newRow("no FF D8") << QByteArray("\xFF\xD9") + f << qint64(-1) << "rejected";
        const QByteArray whole = kSoi + app + f;
        QTest::newRow("declared length 4: unknown end") << whole << qint64(4) << "320x240 unknown";
        QTest::newRow("declared length past the file: unknown end") << whole << qint64(1 << 30) << "320x240 unknown";
        // The frame's marker and length inside the declared range, its size outside.
        QTest::newRow("declared length cuts the frame header") << whole << qint64(whole.size() - f.size() + 6) << "rejected";
        QTest::newRow("declared length just holds the frame's size") << whole << qint64(whole.size() - f.size() + 9)
                                                                      << "320x240 known";
    }
    void jpegCheck()
    {
        QFETCH(QByteArray, jpeg);
        QFETCH(qint64, declared);
        QFETCH(QString, result);
        const QList<Candidate> list = candidatesOf(tiffAround(jpeg, declared));
        QVERIFY(list.size() <= 1);
        const QString got = list.isEmpty() ? QStringLiteral("rejected")
                                           : QStringLiteral("%1x%2 %3").arg(list[0].width).arg(list[0].height).arg(
                                                 list[0].hasKnownEnd ? "known" : "unknown");
        QCOMPARE(got, result);
    }

    // ----- The end walk and the byte search

    void jpegEnd_data()
    {
        QTest::addColumn<QByteArray>("jpeg");
        QTest::addColumn<bool>("complete");
        QTest::newRow("tiny") << tinyJpeg(10, 10) << true;
        QTest::newRow("with an EXIF APP1") << TiffRawWriter::withExifOrientation(smallJpeg(300, 200), 6) << true;
        void *buf = nullptr;
        size_t size = 0;
        vips::VImage::xyz(640, 480).extract_band(0).cast(VIPS_FORMAT_UCHAR).write_to_buffer(
            ".jpg", &buf, &size, vips::VImage::option()->set("interlace", true)->set("Q", 90));
        const QByteArray progressive(static_cast<const char *>(buf), qsizetype(size));
        g_free(buf);
        QVERIFY(progressive.contains(QByteArray("\xFF\xC2", 2)));
        QTest::newRow("libvips progressive") << progressive << true;
        QTest::newRow("no EOI") << tinyJpeg(10, 10).chopped(2) << false;
        QTest::newRow("arithmetic C9") << tinyJpeg(10, 10, 0xC9) << false;
        QTest::newRow("EOI without frame") << kSoi + segment(0xE0, "x") + kEoi << false;
    }
    void jpegEnd()
    {
        QFETCH(QByteArray, jpeg);
        QFETCH(bool, complete);
        const QByteArray bytes = "junk" + jpeg + " trailing";
        const auto end = RawPreview::jpegEnd(bytesOf(bytes), bytes.size(), 4);
        QCOMPARE(end.has_value(), complete);
        if (complete)
            QCOMPARE(*end, 4 + jpeg.size());
    }

    void searchKeepsTheLongest_data()
    {
        QTest::addColumn<bool>("bigFirst");
        QTest::newRow("5 KB then 2 MB") << false;
        QTest::newRow("2 MB then 5 KB") << true;
    }
    void searchKeepsTheLongest()
    {
        QFETCH(bool, bigFirst);
        const QByteArray small = TiffRawWriter::photoJpeg(128, 96, 95, 1);
        const QByteArray big = TiffRawWriter::photoJpeg(3200, 2133, 95, 2);
        QVERIFY(small.size() > 3000 && small.size() < 8000);
        QVERIFY(big.size() > 1800000);
        const QByteArray gap(1000, '\x20');
        const QByteArray bytes = gap + (bigFirst ? big : small) + gap + (bigFirst ? small : big) + gap;
        const qint64 bigAt = bigFirst ? gap.size() : 2 * gap.size() + small.size();
        const auto found = RawPreview::searchJPEG(bytesOf(bytes), bytes.size());
        QVERIFY(found);
        QCOMPARE(found->first, bigAt);
        QCOMPARE(found->second, bigAt + big.size());
    }

    void searchFindsNothing_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("FF D8 FF at the very end") << QByteArray("abc\xFF\xD8\xFF", 6);
        QTest::newRow("cut JPEG") << tinyJpeg(40, 30).chopped(3);
    }
    void searchFindsNothing()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(!RawPreview::searchJPEG(bytesOf(bytes), bytes.size()));
    }

    // ----- Choosing for a view size

    void floorAndMinimum_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("minLong");
        QTest::addColumn<bool>("used");
        QTest::newRow("160x120 refused for a 100-pixel request") << 160 << 120 << 100 << 0 << false;
        QTest::newRow("200 is enough") << 200 << 150 << 100 << 0 << true;
        QTest::newRow("1620x1080 refused for minLong 2000") << 1620 << 1080 << 2560 << 2000 << false;
    }
    void floorAndMinimum()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(int, size);
        QFETCH(int, minLong);
        QFETCH(bool, used);
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("a.nef"), tiffAround(tinyJpeg(width, height)));
        for (bool fit : {true, false}) {
            const auto e = RawPreview::embeddedJPEG(path, size, minLong, fit, false);
            QCOMPARE(e.has_value(), used);
            // The byte search ignores the floor: it finds the same JPEG under its own label.
            const auto searched = RawPreview::embeddedJPEG(path, size, minLong, fit, true);
            QVERIFY(searched);
            QCOMPARE(searched->label, used ? QStringLiteral("JPEG del RAW") : QStringLiteral("JPEG del RAW (búsqueda)"));
            QCOMPARE(searched->longSide, used ? std::max(width, height) : 0);
            QVERIFY(searched->jpeg == tinyJpeg(width, height));
        }
    }

    void fitOrLargest()
    {
        Options o;
        o.jpeg = smallJpeg(1616, 1080);
        o.moreJpegs = {smallJpeg(1000, 3000, 1), smallJpeg(320, 240, 2)};   // a portrait counts its long side
        o.orientation = 6;
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("a.arw"), TiffRawWriter::build(o));
        QCOMPARE(RawPreview::embeddedJPEG(path, 1600, 0, true, false)->jpeg, o.jpeg);
        QCOMPARE(RawPreview::embeddedJPEG(path, 1616, 0, true, false)->jpeg, o.jpeg);   // exactly the size
        QCOMPARE(RawPreview::embeddedJPEG(path, 1700, 0, true, false)->jpeg, o.moreJpegs[0]);
        QCOMPARE(RawPreview::embeddedJPEG(path, 300, 0, true, false)->jpeg, o.moreJpegs[1]);
        QCOMPARE(RawPreview::embeddedJPEG(path, 300, 0, false, false)->jpeg, o.moreJpegs[0]);
        QCOMPARE(RawPreview::embeddedJPEG(path, 300, 0, false, false)->longSide, 3000);
        // 320 fits 300 but misses a minimum of 400: refused, not replaced by a bigger one.
        QVERIFY(!RawPreview::embeddedJPEG(path, 300, 400, true, false));
    }

    // A preview whose end is not declared and cannot be found is not used; the search steps in.
    void unknownEndWithoutEnd()
    {
        const QByteArray thumb = tinyJpeg(300, 200);
        const QByteArray cut = smallJpeg(1200, 800).chopped(100);
        HandTiff t;
        const qint64 ifd0 = t.ifd({{513, 4, 1, 0}, {514, 4, 1, quint32(thumb.size())}});
        const qint64 ifd1 = t.ifd({{513, 4, 1, 0}});
        t.set32(HandTiff::nextAt(ifd0, 2), quint32(ifd1));
        const qint64 thumbAt = t.data(thumb);
        t.set32(HandTiff::valueAt(ifd0, 0), quint32(thumbAt));
        t.set32(HandTiff::valueAt(ifd1, 0), quint32(t.data(cut)));
        t.bytes += QByteArray(100, '\x20');
        QCOMPARE(candidatesOf(t.bytes).size(), 2);
        QTemporaryDir dir;
        const QString path = TestEnv::touch(dir.filePath("a.orf"), t.bytes);
        QVERIFY(!RawPreview::embeddedJPEG(path, 2560, 0, true, false));
        const auto e = RawPreview::embeddedJPEG(path, 2560, 0, true, true);
        QVERIFY(e);
        QCOMPARE(e->label, QStringLiteral("JPEG del RAW (búsqueda)"));
        QVERIFY(e->jpeg == thumb);
        QVERIFY(!e->orientation);
    }

    void unreadableFiles()
    {
        QTemporaryDir dir;
        QVERIFY(!RawPreview::embeddedJPEG(dir.filePath("missing.nef"), 2560, 0, true, true));
        QVERIFY(!RawPreview::embeddedJPEG(dir.path(), 2560, 0, true, true));
    }

    // ----- Hostile and broken files: nothing found, nothing read outside the file

    void hostile_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::newRow("zero bytes") << QByteArray();
        QTest::newRow("noise") << noise(300000, 1);
        QTest::newRow("noise after II*") << QByteArray("II*\0\x08\0\0\0", 8) + noise(300000, 2);
        QTest::newRow("II* and FF") << QByteArray("II*\0\x08\0\0\0", 8) + QByteArray(100000, '\xFF');
        QTest::newRow("FUJIFILM and FF") << QByteArray("FUJIFILM") + QByteArray(100000, '\xFF');

        HandTiff t;
        t.ifd({{330, 4, 0xFFFFFFFF, 8}, {34665, 4, 1, 8}, {513, 4, 1, 0xFFFFFFFF}, {514, 4, 1, 0xFFFFFFFF}});
        QTest::newRow("counts and offsets past the end") << t.bytes + QByteArray(64, '\0');

        HandTiff u;
        const qint64 many = u.ifd({{330, 4, 40000, 0}}, 8);
        QByteArray eights;
        for (int i = 0; i < 40000; ++i)
            eights += le32(8);
        u.set32(HandTiff::valueAt(many, 0), quint32(u.data(eights)));
        QTest::newRow("40000 sub-IFDs, all IFD0") << u.bytes;

        QByteArray count = QByteArray("II*\0\x08\0\0\0", 8) + le16(900) + QByteArray(100, '\0');
        QTest::newRow("entry count past the end") << count;
        QTest::newRow("first IFD past the end") << QByteArray("II*\0\xF0\xFF\xFF\xFF", 8) + QByteArray(100, '\0');

        QTest::newRow("marker length below 2") << tiffAround(kSoi + QByteArray("\xFF\xE1\x00\x01", 4) + QByteArray(60, '\xFF'));
        // An EXIF APP1 whose IFD chains to itself.
        const QByteArray exif = QByteArray("Exif\0\0", 6) + "II*\0" + le32(8) + le16(1) + le16(274) + le16(3) + le32(1)
                                + le32(6) + le32(8);
        QTest::newRow("EXIF IFD chaining to itself, no frame")
            << tiffAround(kSoi + segment(0xE1, exif) + kEoi);

        // The same nested walk, many times over: every IFD points at the next one twice.
        HandTiff deep;
        QList<qint64> ifds;
        for (int i = 0; i < 500; ++i)
            ifds << deep.ifd({{330, 4, 2, 0}, {34665, 4, 1, 0}});
        for (int i = 0; i + 1 < ifds.size(); ++i) {
            const qint64 array = deep.data(le32(quint32(ifds[i + 1])) + le32(quint32(ifds[i + 1])));
            deep.set32(HandTiff::valueAt(ifds[i], 0), quint32(array));
            deep.set32(HandTiff::valueAt(ifds[i], 1), quint32(ifds[i + 1]));
            deep.set32(HandTiff::nextAt(ifds[i], 2), quint32(ifds[i + 1]));
        }
        QTest::newRow("500 IFDs all pointing onwards") << deep.bytes;
        QTest::newRow("tangled: fanning sub-IFDs, loops, 100000-value arrays") << TangledTiff::build(0);
    }
    void hostile()
    {
        QFETCH(QByteArray, file);
        QVERIFY(candidatesOf(file).isEmpty());
        QTemporaryDir dir;
        QVERIFY(!RawPreview::embeddedJPEG(TestEnv::touch(dir.filePath("x.nef"), file), 2560, 0, true, true));
        QVERIFY(!RawPreview::embeddedJPEG(TestEnv::touch(dir.filePath("x.nef"), file), 100, 0, false, true));
    }

    // Cut short anywhere: no crash, no candidate reaching past the cut, and the preview is only
    // handed out when it is whole.
    void truncated()
    {
        Options o;
        o.jpeg = smallJpeg(1200, 800);
        o.orientation = 6;
        o.sensorBytes = 20000;
        Layout layout;
        const QByteArray file = TiffRawWriter::build(o, &layout);
        const qint64 jpegAt = layout.jpegs[0].first, jpegEnd = jpegAt + o.jpeg.size();
        // Every byte through the IFDs and the JPEG's header, then coarser steps.
        QList<qint64> cuts;
        for (qint64 cut = 0; cut < file.size(); cut += cut < layout.thumbOffset || (cut >= jpegAt && cut < jpegAt + 700) ? 1 : 1499)
            cuts << cut;
        cuts << jpegEnd - 1 << jpegEnd << file.size();
        for (qint64 cut : std::as_const(cuts)) {
            const QByteArray part = file.left(cut);
            for (const Candidate &c : candidatesOf(part)) {
                QVERIFY(c.start >= 0 && c.start < c.end && c.end <= part.size());
                QCOMPARE(c.hasKnownEnd, cut >= jpegEnd);
            }
            const auto choice = RawPreview::choose(bytesOf(part), part.size(), 800, 0, true, true);
            QCOMPARE(choice.has_value(), cut >= jpegEnd);
            if (choice)
                QCOMPARE(choice->candidate.end, jpegEnd);
        }
        QTemporaryDir dir;
        QVERIFY(!RawPreview::embeddedJPEG(TestEnv::touch(dir.filePath("cut.nef"), file.left(jpegEnd - 1)), 800, 0, true, true));
        QCOMPARE(RawPreview::embeddedJPEG(TestEnv::touch(dir.filePath("whole.nef"), file), 800, 0, true, true)->jpeg, o.jpeg);
    }

    // ----- Real camera files, read as exiv2 reads them

    void realSamples()
    {
        const QString samples = TestEnv::samples();
        if (samples.isEmpty())
            QSKIP("CORVANE_SAMPLES is not set");
        const QString exiv2 = QStandardPaths::findExecutable(QStringLiteral("exiv2"));
        if (exiv2.isEmpty())
            QSKIP("exiv2 is not installed");

        // Sizes that differ for a reason, not a fault:
        const QHash<QString, QString> skipped{
            // The embedded JPEG the RAF header points at is 8×8, and exiv2 lists it; it also lists
            // the 160×120 EXIF thumbnail kept inside that JPEG's APP1, which is no container
            // candidate (its APP1 is read for the orientation only).
            {"exiftool_FujiFilm.raf", "8x8"},
            // Not a RAW: a whole JPEG named .nef. exiv2 lists the thumbnails inside its EXIF
            // (Nikon's 425×640 preview among them); the byte search takes the longest JPEG, the
            // file itself.
            {"mei_Issue_247-1_is_jpeg.nef", "2000x3008"},
        };

        int compared = 0;
        const QDir dir(samples + QStringLiteral("/raw"));
        for (const QFileInfo &info : dir.entryInfoList(QDir::Files, QDir::Name)) {
            QFile file(info.filePath());
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray bytes = file.readAll();

            // Every sample, whatever its state, is walked without fault.
            const QList<Candidate> list = candidatesOf(bytes);
            for (const Candidate &c : list)
                QVERIFY(c.start >= 0 && c.end <= bytes.size() && c.start < c.end);
            const auto searched = RawPreview::choose(bytesOf(bytes), bytes.size(), 2560, 0, true, true);

            QProcess p;
            p.start(exiv2, {QStringLiteral("-pp"), info.filePath()});
            QVERIFY(p.waitForFinished(30000));
            static const QRegularExpression line(QStringLiteral("^Preview \\d+: image/jpeg, (\\d+)x(\\d+) pixels"),
                                                 QRegularExpression::MultilineOption);
            int w = 0, h = 0;
            for (auto it = line.globalMatch(QString::fromUtf8(p.readAllStandardOutput())); it.hasNext();) {
                const auto m = it.next();
                const int mw = m.captured(1).toInt(), mh = m.captured(2).toInt();
                if (std::max(mw, mh) > std::max(w, h)) {
                    w = mw;
                    h = mh;
                }
            }
            if (!w)
                continue;   // exiv2 lists no JPEG preview here

            // ISO-media (CR3) and CIFF (CRW) containers are not parsed: only the byte search applies.
            const bool searchOnly = bytes.mid(4, 4) == "ftyp" || bytes.mid(6, 8) == "HEAPCCDR";
            QSize ours;
            if (searchOnly) {
                QVERIFY2(list.isEmpty(), qPrintable(info.fileName()));
                QVERIFY2(searched, qPrintable(info.fileName()));
                QCOMPARE(searched->label, QStringLiteral("JPEG del RAW (búsqueda)"));
                ours = QSize(searched->candidate.width, searched->candidate.height);
            } else if (const auto big = RawPreview::largest(list)) {
                ours = QSize(big->width, big->height);
            } else if (searched) {
                ours = QSize(searched->candidate.width, searched->candidate.height);
            }
            const QString got = QStringLiteral("%1x%2").arg(ours.width()).arg(ours.height());
            if (skipped.contains(info.fileName())) {
                QCOMPARE(got, skipped.value(info.fileName()));
                continue;
            }
            QVERIFY2(got == QStringLiteral("%1x%2").arg(w).arg(h),
                     qPrintable(QStringLiteral("%1: ours %2, exiv2 %3x%4").arg(info.fileName(), got).arg(w).arg(h)));
            ++compared;
        }
        QVERIFY(compared >= 2);
    }

    // ----- The command line

    void command()
    {
        QVERIFY2(corvaneBuilt(), "CORVANE_BIN must name the built corvane");
        QTemporaryDir dir;
        Options o;
        o.jpeg = smallJpeg(1616, 1080);
        o.moreJpegs = {smallJpeg(3000, 2000, 1)};
        o.orientation = 8;
        o.jpegRef = Options::JpegRef::StartOnly;
        Layout layout;
        const QString raw = TestEnv::touch(dir.filePath("DSC_0001.NEF"), TiffRawWriter::build(o, &layout));
        const QString none = TestEnv::touch(dir.filePath("notes.txt"), "hola");
        const QString searched = TestEnv::touch(dir.filePath("thumb.cr3"), QByteArray(100, ' ') + tinyJpeg(160, 120));

        CorvaneRun r = corvane({"raw-previews", "--json", "--size", "1600", raw, none, searched});
        QCOMPARE(r.status, 0);
        const QJsonArray files = QJsonDocument::fromJson(r.out).array();
        QCOMPARE(files.size(), 3);
        const QJsonObject first = files[0].toObject();
        QCOMPARE(first.value("file").toString(), raw);
        QCOMPARE(first.value("candidates").toArray().size(), 2);
        const QJsonObject chosen = first.value("chosen").toObject();
        QCOMPARE(chosen.value("label").toString(), QStringLiteral("JPEG del RAW"));
        QCOMPARE(chosen.value("width").toInt(), 1616);
        QCOMPARE(chosen.value("end").toInteger(), layout.jpegs[0].first + layout.jpegs[0].second);   // walked
        QVERIFY(files[1].toObject().value("chosen").isNull());
        QCOMPARE(files[1].toObject().value("candidates").toArray().size(), 0);
        const QJsonObject third = files[2].toObject().value("chosen").toObject();
        QCOMPARE(third.value("label").toString(), QStringLiteral("JPEG del RAW (búsqueda)"));
        QCOMPARE(third.value("start").toInt(), 100);
        QCOMPARE(third.value("width").toInt(), 160);

        r = corvane({"raw-previews", raw});
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.contains("1616×1080"));
        QVERIFY(r.out.contains("JPEG del RAW"));

        QCOMPARE(corvane({"raw-previews"}).status, 2);
        QCOMPARE(corvane({"raw-previews", "--size", "ancho", raw}).status, 2);
        QCOMPARE(corvane({"raw-previews", "--size", "0", raw}).status, 2);
        QCOMPARE(corvane({"raw-previews", "--bogus", raw}).status, 2);
        r = corvane({"raw-previews", "--json", dir.filePath("missing.NEF"), raw});
        QCOMPARE(r.status, 1);
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 1);
        QCOMPARE(corvane({"raw-previews", dir.path()}).status, 1);
    }
};

QTEST_GUILESS_MAIN(TestRawPreview)
#include "tst_rawpreview.moc"
