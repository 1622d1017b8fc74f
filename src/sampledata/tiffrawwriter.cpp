// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "tiffrawwriter.h"

#include <QHash>

#include <algorithm>
#include <cmath>

namespace TiffRawWriter {
namespace {

enum Type : quint16 { Byte = 1, Ascii = 2, Short = 3, Long = 4, Rational = 5, Undefined = 7 };

enum Tag : quint16 {
    NewSubfileType = 254, ImageWidth = 256, ImageLength = 257, BitsPerSample = 258, Compression = 259,
    Photometric = 262, Make = 271, Model = 272, StripOffsets = 273, Orientation = 274,
    SamplesPerPixel = 277, RowsPerStrip = 278, StripByteCounts = 279, PlanarConfig = 284,
    DateTime = 306, SubIFDs = 330, PanasonicJpeg = 0x002E, JpegOffset = 513, JpegLength = 514, CfaRepeatPatternDim = 33421,
    CfaPattern = 33422, ExposureTime = 33434, FNumber = 33437, ExifIfd = 34665, Iso = 34855,
    ExifVersion = 36864, DateTimeOriginal = 36867, DateTimeDigitized = 36868, FocalLength = 37386,
    BodySerialNumber = 42033, LensModel = 42036,
};

int typeSize(quint16 type)
{
    switch (type) {
    case Short: return 2;
    case Long: return 4;
    case Rational: return 8;
    default: return 1;
    }
}

// Integers in the file's byte order.
struct Order {
    bool big = false;
    void put16(char *p, quint16 v) const
    {
        const quint8 b[2] = {quint8(v >> 8), quint8(v)};
        p[0] = char(big ? b[0] : b[1]);
        p[1] = char(big ? b[1] : b[0]);
    }
    void put32(char *p, quint32 v) const
    {
        for (int i = 0; i < 4; ++i)
            p[i] = char(big ? quint8(v >> (24 - 8 * i)) : quint8(v >> (8 * i)));
    }
    QByteArray enc16(quint16 v) const
    {
        QByteArray b(2, '\0');
        put16(b.data(), v);
        return b;
    }
    QByteArray enc32(quint32 v) const
    {
        QByteArray b(4, '\0');
        put32(b.data(), v);
        return b;
    }
};

struct Entry {
    quint16 tag;
    quint16 type;
    quint32 count;
    QByteArray value;   // already in the file's byte order
};

class Ifd
{
public:
    explicit Ifd(Order order) : o(order) {}

    void shorts(quint16 tag, std::initializer_list<quint16> values)
    {
        QByteArray v;
        for (quint16 x : values)
            v += o.enc16(x);
        entries.append({tag, Short, quint32(values.size()), v});
    }
    void longs(quint16 tag, const QList<quint32> &values)
    {
        QByteArray v;
        for (quint32 x : values)
            v += o.enc32(x);
        entries.append({tag, Long, quint32(values.size()), v});
    }
    void ascii(quint16 tag, const QByteArray &text)
    {
        if (!text.isEmpty())
            entries.append({tag, Ascii, quint32(text.size() + 1), text + '\0'});
    }
    void rational(quint16 tag, quint32 num, quint32 den)
    {
        entries.append({tag, Rational, 1, o.enc32(num) + o.enc32(den)});
    }
    void bytes(quint16 tag, quint16 type, const QByteArray &value)
    {
        entries.append({tag, type, quint32(value.size()), value});
    }

    QList<Entry> entries;

private:
    Order o;
};

class Buffer
{
public:
    explicit Buffer(Order order) : o(order) {}

    qint64 pos() const { return data.size(); }
    // TIFF wants every offset on a word boundary.
    void align(int n = 2)
    {
        while (data.size() % n)
            data.append('\0');
    }
    void append(const QByteArray &b) { data.append(b); }
    void set32(qint64 at, quint32 v) { o.put32(data.data() + at, v); }

    struct Written {
        qint64 at = 0;
        QHash<quint16, qint64> valueAt;   // where each tag's value bytes sit
    };

    // Entries sorted by tag, values that do not fit in 4 bytes after the IFD.
    Written writeIfd(Ifd ifd)
    {
        std::stable_sort(ifd.entries.begin(), ifd.entries.end(),
                         [](const Entry &a, const Entry &b) { return a.tag < b.tag; });
        align(4);
        Written w;
        w.at = pos();
        append(o.enc16(quint16(ifd.entries.size())));
        QList<qint64> offsetFields;
        for (const Entry &e : std::as_const(ifd.entries)) {
            append(o.enc16(e.tag) + o.enc16(e.type) + o.enc32(e.count));
            offsetFields.append(pos());
            QByteArray field = e.value.size() <= 4 ? e.value : QByteArray();
            field.resize(4, '\0');
            append(field);
        }
        append(o.enc32(0));   // no next IFD
        for (qsizetype i = 0; i < ifd.entries.size(); ++i) {
            const Entry &e = ifd.entries[i];
            Q_ASSERT(e.value.size() == qsizetype(e.count) * typeSize(e.type));
            if (e.value.size() <= 4) {
                w.valueAt.insert(e.tag, offsetFields[i]);
                continue;
            }
            align();
            set32(offsetFields[i], quint32(pos()));
            w.valueAt.insert(e.tag, pos());
            append(e.value);
        }
        return w;
    }

    QByteArray data;

private:
    Order o;
};

QByteArray dateText(const QDateTime &d)
{
    return d.toString(QStringLiteral("yyyy:MM:dd HH:mm:ss")).toLatin1();
}

// Width of a sensor holding `pixels`: the smallest divisor not below the square root, so the shape
// is landscape and as near square as the count allows.
quint32 sensorWidth(quint64 pixels)
{
    auto w = quint64(std::sqrt(double(pixels)));
    while (w * w < pixels)
        ++w;
    while (w < pixels && pixels % w != 0)
        ++w;
    return quint32(std::max<quint64>(w, 1));
}

// Deterministic 14-bit samples in 16-bit words. Their high byte never reaches 0xFF, so the data
// holds no JPEG start marker that a byte search could stumble on.
void fillSensor(char *p, qint64 bytes, Order o)
{
    quint32 s = 0x9E3779B9u;
    for (qint64 i = 0; i + 1 < bytes; i += 2) {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        o.put16(p + i, quint16(s & 0x3FFF));
    }
}

} // namespace

QPair<int, int> jpegSize(const QByteArray &jpeg)
{
    const auto *b = reinterpret_cast<const quint8 *>(jpeg.constData());
    const qsizetype n = jpeg.size();
    if (n < 4 || b[0] != 0xFF || b[1] != 0xD8)
        return {0, 0};
    qsizetype p = 2;
    while (p + 4 <= n) {
        if (b[p] != 0xFF)
            return {0, 0};
        while (p < n && b[p] == 0xFF)
            ++p;
        if (p >= n)
            break;
        const quint8 m = b[p++];
        if (m == 0x01 || (m >= 0xD0 && m <= 0xD7))
            continue;
        if (m == 0xD9 || m == 0xDA || p + 2 > n)
            break;
        const int len = (b[p] << 8) | b[p + 1];
        if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
            if (p + 7 > n)
                break;
            return {(b[p + 5] << 8) | b[p + 6], (b[p + 3] << 8) | b[p + 4]};
        }
        if (len < 2)
            break;
        p += len;
    }
    return {0, 0};
}

QByteArray build(const Options &opt, Layout *layoutOut)
{
    const Order o{opt.bigEndian};
    Buffer buf(o);
    Layout layout;

    // Header.
    buf.append(opt.bigEndian ? QByteArray("MM") : QByteArray("II"));
    buf.append(o.enc16(quint16(opt.magic)));
    const qint64 firstIfdField = buf.pos();
    buf.append(o.enc32(0));
    qint64 canonRawField = -1;
    if (opt.canonSignature) {
        buf.append(QByteArray("CR\x02\x00", 4));
        canonRawField = buf.pos();
        buf.append(o.enc32(0));
    }

    const bool thumb = opt.thumbWidth > 0 && opt.thumbHeight > 0;
    const quint32 thumbBytes = thumb ? quint32(opt.thumbWidth) * quint32(opt.thumbHeight) * 3 : 0;
    const qint64 sensorBytes = std::clamp<qint64>(opt.sensorBytes, 0, 0x7FFF0000) & ~qint64(1);
    const bool panasonic = opt.magic == Options::Magic::Panasonic && !opt.jpeg.isEmpty();
    const bool firstIsMain = !opt.jpeg.isEmpty() && !panasonic;   // the sub-IFDs' first JPEG is `jpeg`
    QList<QByteArray> jpegs;   // one sub-IFD each
    if (firstIsMain)
        jpegs.append(opt.jpeg);
    jpegs.append(opt.moreJpegs);
    const qsizetype subCount = jpegs.size() + (sensorBytes > 0 ? 1 : 0);

    // IFD0: the thumbnail, the camera, and the pointers to everything else.
    Ifd ifd0(o);
    if (thumb) {
        ifd0.longs(NewSubfileType, {1});
        ifd0.longs(ImageWidth, {quint32(opt.thumbWidth)});
        ifd0.longs(ImageLength, {quint32(opt.thumbHeight)});
        ifd0.shorts(BitsPerSample, {8, 8, 8});
        ifd0.shorts(Compression, {1});
        ifd0.shorts(Photometric, {2});
        ifd0.longs(StripOffsets, {0});
        ifd0.shorts(SamplesPerPixel, {3});
        ifd0.longs(RowsPerStrip, {quint32(opt.thumbHeight)});
        ifd0.longs(StripByteCounts, {thumbBytes});
        ifd0.shorts(PlanarConfig, {1});
    }
    ifd0.ascii(Make, opt.make);
    ifd0.ascii(Model, opt.model);
    if (opt.orientation > 0)
        ifd0.shorts(Orientation, {quint16(opt.orientation)});
    if (opt.date.isValid())
        ifd0.ascii(DateTime, dateText(opt.date));
    if (panasonic)
        ifd0.bytes(PanasonicJpeg, Undefined, opt.jpeg);
    if (subCount > 0)
        ifd0.longs(SubIFDs, QList<quint32>(subCount, 0));
    ifd0.longs(ExifIfd, {0});

    const Buffer::Written w0 = buf.writeIfd(ifd0);
    layout.ifd0 = w0.at;
    buf.set32(firstIfdField, quint32(w0.at));
    if (panasonic)
        layout.jpegs.append({w0.valueAt.value(PanasonicJpeg), opt.jpeg.size()});

    // EXIF IFD.
    Ifd exif(o);
    if (opt.exposureNum > 0 && opt.exposureDen > 0)
        exif.rational(ExposureTime, quint32(opt.exposureNum), quint32(opt.exposureDen));
    if (opt.fNumber > 0)
        exif.rational(FNumber, quint32(std::lround(opt.fNumber * 10)), 10);
    if (opt.iso > 0)
        exif.shorts(Iso, {quint16(std::min(opt.iso, 65535))});
    exif.bytes(ExifVersion, Undefined, QByteArray("0230"));
    if (opt.date.isValid()) {
        exif.ascii(DateTimeOriginal, dateText(opt.date));
        exif.ascii(DateTimeDigitized, dateText(opt.date));
    }
    if (opt.focalLength > 0)
        exif.rational(FocalLength, quint32(std::lround(opt.focalLength * 10)), 10);
    exif.ascii(BodySerialNumber, opt.bodySerial);
    exif.ascii(LensModel, opt.lensModel);
    const Buffer::Written we = buf.writeIfd(exif);
    layout.exifIfd = we.at;
    buf.set32(w0.valueAt.value(ExifIfd), quint32(we.at));

    // One sub-IFD per preview, then the sensor's.
    QList<Buffer::Written> previewIfds;
    QList<quint16> offsetTags;   // the tag of each preview's offset
    for (qsizetype i = 0; i < jpegs.size(); ++i) {
        const QByteArray &jpeg = jpegs[i];
        const auto ref = i == 0 && firstIsMain ? opt.jpegRef : Options::JpegRef::Interchange;
        Ifd sub(o);
        sub.longs(NewSubfileType, {1});
        const auto [w, h] = jpegSize(jpeg);
        if (w > 0 && h > 0) {
            sub.longs(ImageWidth, {quint32(w)});
            sub.longs(ImageLength, {quint32(h)});
        }
        if (ref == Options::JpegRef::Strip) {
            sub.shorts(Compression, {quint16(opt.stripCompression)});
            sub.longs(StripOffsets, {0});
            sub.longs(RowsPerStrip, {quint32(std::max(h, 1))});
            sub.longs(StripByteCounts, {quint32(jpeg.size())});
            offsetTags.append(StripOffsets);
        } else {
            sub.shorts(Compression, {6});
            sub.longs(JpegOffset, {0});
            if (ref == Options::JpegRef::Interchange)
                sub.longs(JpegLength, {quint32(jpeg.size())});
            offsetTags.append(JpegOffset);
        }
        previewIfds.append(buf.writeIfd(sub));
        layout.subIfds.append(previewIfds.last().at);
    }
    Buffer::Written sensorIfd;
    quint32 sw = 0, sh = 0;
    if (sensorBytes > 0) {
        sw = sensorWidth(quint64(sensorBytes / 2));
        sh = quint32(sensorBytes / 2 / sw);
        Ifd sub(o);
        sub.longs(NewSubfileType, {0});
        sub.longs(ImageWidth, {sw});
        sub.longs(ImageLength, {sh});
        sub.shorts(BitsPerSample, {16});
        sub.shorts(Compression, {1});
        sub.shorts(Photometric, {32803});   // colour filter array
        sub.longs(StripOffsets, {0});
        sub.shorts(SamplesPerPixel, {1});
        sub.longs(RowsPerStrip, {sh});
        sub.longs(StripByteCounts, {quint32(sensorBytes)});
        sub.shorts(PlanarConfig, {1});
        sub.shorts(CfaRepeatPatternDim, {2, 2});
        sub.bytes(CfaPattern, Byte, QByteArray("\x00\x01\x01\x02", 4));   // RGGB
        sensorIfd = buf.writeIfd(sub);
        layout.subIfds.append(sensorIfd.at);
        if (canonRawField >= 0)
            buf.set32(canonRawField, quint32(sensorIfd.at));
    }
    const qint64 subField = w0.valueAt.value(SubIFDs, -1);
    for (qsizetype i = 0; i < layout.subIfds.size(); ++i)
        buf.set32(subField + 4 * i, quint32(layout.subIfds[i]));

    // The data: thumbnail pixels, previews, sensor.
    if (thumb) {
        buf.align();
        layout.thumbOffset = buf.pos();
        buf.set32(w0.valueAt.value(StripOffsets), quint32(buf.pos()));
        if (opt.thumbRgb.size() == qsizetype(thumbBytes)) {
            buf.append(opt.thumbRgb);
        } else {
            QByteArray ramp(thumbBytes, '\0');
            for (quint32 i = 0; i < thumbBytes; ++i)
                ramp[i] = char(((i / 3) % quint32(opt.thumbWidth)) * 255 / quint32(opt.thumbWidth));
            buf.append(ramp);
        }
    }
    for (qsizetype i = 0; i < jpegs.size(); ++i) {
        buf.align();
        layout.jpegs.append({buf.pos(), jpegs[i].size()});
        buf.set32(previewIfds[i].valueAt.value(offsetTags[i]), quint32(buf.pos()));
        buf.append(jpegs[i]);
    }
    if (sensorBytes > 0) {
        buf.align();
        layout.sensorOffset = buf.pos();
        layout.sensorLength = sensorBytes;
        buf.set32(sensorIfd.valueAt.value(StripOffsets), quint32(buf.pos()));
        const qint64 at = buf.pos();
        buf.data.resize(at + sensorBytes);
        fillSensor(buf.data.data() + at, sensorBytes, o);
    }

    if (layoutOut)
        *layoutOut = layout;
    return buf.data;
}

QByteArray withExifOrientation(const QByteArray &jpeg, int orientation, bool bigEndian)
{
    if (jpeg.size() < 2)
        return jpeg;
    const Order o{bigEndian};
    const QByteArray tiff = (bigEndian ? QByteArray("MM") : QByteArray("II")) + o.enc16(42) + o.enc32(8)
                            + o.enc16(1)                                               // one entry
                            + o.enc16(Orientation) + o.enc16(Short) + o.enc32(1)
                            + o.enc16(quint16(orientation)) + o.enc16(0)
                            + o.enc32(0);                                              // no IFD1
    const QByteArray payload = QByteArray("Exif\0\0", 6) + tiff;
    const QByteArray segment = QByteArray("\xFF\xE1", 2) + Order{true}.enc16(quint16(payload.size() + 2)) + payload;
    return jpeg.left(2) + segment + jpeg.mid(2);
}

QByteArray buildFuji(const Options &opt, Layout *layoutOut)
{
    const Order be{true};
    const qint64 sensorBytes = std::clamp<qint64>(opt.sensorBytes, 0, 0x7FFF0000) & ~qint64(1);
    const QByteArray jpeg = opt.orientation > 0 ? withExifOrientation(opt.jpeg, opt.orientation) : opt.jpeg;

    // Header: magic, format version, camera id, camera name, directory version, then the
    // offset/length pairs of the JPEG, the CFA header and the CFA data.
    constexpr int kHeader = 160;
    constexpr int kCfaHeader = 16;
    QByteArray out(kHeader, '\0');
    auto put = [&out](int at, const QByteArray &text, int max) {
        std::copy_n(text.constData(), std::min<qsizetype>(text.size(), max), out.data() + at);
    };
    put(0, "FUJIFILMCCD-RAW ", 16);
    put(16, "0201", 4);
    put(20, "FF129502", 8);
    put(28, opt.model, 32);
    put(60, "0100", 4);

    Layout layout;
    const qint64 jpegAt = kHeader;
    be.put32(out.data() + 84, quint32(jpegAt));
    be.put32(out.data() + 88, quint32(jpeg.size()));
    out.append(jpeg);
    while (out.size() % 16)
        out.append('\0');
    if (!jpeg.isEmpty())
        layout.jpegs.append({jpegAt, jpeg.size()});

    if (sensorBytes > 0) {
        be.put32(out.data() + 92, quint32(out.size()));
        be.put32(out.data() + 96, kCfaHeader);
        out.append(QByteArray(kCfaHeader, '\0'));
        layout.sensorOffset = out.size();
        layout.sensorLength = sensorBytes;
        be.put32(out.data() + 100, quint32(out.size()));
        be.put32(out.data() + 104, quint32(sensorBytes));
        const qint64 at = out.size();
        out.resize(at + sensorBytes);
        fillSensor(out.data() + at, sensorBytes, be);
    }
    if (layoutOut)
        *layoutOut = layout;
    return out;
}

QByteArray photoJpeg(int width, int height, int quality, int seed)
{
    using vips::VImage;
    const double w = width, h = height;
    const VImage xy = VImage::xyz(width, height);
    const VImage x = xy[0], y = xy[1];

    // Light: a sky falling into warm ground, a bright sun-like disc, one dark figure.
    const VImage sky = y * (-120.0 / h) + 200.0;
    const VImage dx = x - w * (0.3 + 0.05 * (seed % 7)), dy = y - h * 0.35;
    const VImage disc = ((dx * dx + dy * dy) < (h * h * 0.02)).ifthenelse(60.0, 0.0);
    const VImage figure = (((x - w * 0.65).abs() < w * 0.06) & (y > h * 0.4)).ifthenelse(-110.0, 0.0);
    // Fine detail everywhere (leaves, fabric) and sensor noise: what makes camera JPEGs big.
    const VImage texture = (x * 23.0 + y * 7.0).sin() * (y * 19.0 - x * 5.0).sin() * 10.0;
    const VImage noise = VImage::gaussnoise(width, height, VImage::option()->set("sigma", 2.0)->set("mean", 0.0)->set("seed", seed));
    const VImage grey = sky + disc + figure + texture + noise;
    const std::vector<double> tint{1.06, 1.0, 0.86};
    const VImage rgb = (grey.bandjoin(grey).bandjoin(grey) * tint)
                           .cast(VIPS_FORMAT_UCHAR)
                           .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    void *buf = nullptr;
    size_t size = 0;
    rgb.write_to_buffer(".jpg", &buf, &size, VImage::option()->set("Q", quality)->set("strip", true));
    QByteArray out(static_cast<const char *>(buf), qsizetype(size));
    g_free(buf);
    return out;
}

Options realistic(const QByteArray &preview)
{
    Options o;
    o.make = "NIKON CORPORATION";
    o.model = "NIKON Z 6_2";
    o.orientation = 1;
    o.date = QDateTime(QDate(2023, 6, 17), QTime(12, 31, 2));
    o.jpeg = preview.isEmpty() ? photoJpeg(6000, 4000, 90) : preview;
    o.thumbWidth = 160;
    o.thumbHeight = 120;
    o.sensorBytes = 8 << 20;
    o.exposureNum = 1;
    o.exposureDen = 250;
    o.fNumber = 2.8;
    o.iso = 400;
    o.focalLength = 50;
    o.lensModel = "NIKKOR Z 50mm f/1.8 S";
    o.bodySerial = "6012345";
    return o;
}

} // namespace TiffRawWriter
