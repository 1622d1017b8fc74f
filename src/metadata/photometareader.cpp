#include "photometareader.h"

#include "model/filekinds.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStringDecoder>

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <mutex>

namespace {

// ---------------------------------------------------------------------------------------------
// exiv2 set-up

QMutex xmpToolkitLock;

void lockXmpToolkit(void *data, bool lock)
{
    auto *m = static_cast<QMutex *>(data);
    if (lock)
        m->lock();
    else
        m->unlock();
}

} // namespace

// The XMP toolkit is not thread-safe by itself: it must be initialised once, before any reader
// thread decodes, with a lock exiv2 takes around every toolkit call.
void ensureExiv2()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::XmpParser::initialize(lockXmpToolkit, &xmpToolkitLock);
        // HEIF, AVIF, CR3 and JPEG XL are off by default in 0.27.
        Exiv2::enableBMFF(true);
        // A damaged file is not worth a line on the terminal: it simply has no metadata.
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    });
}

namespace {

// ---------------------------------------------------------------------------------------------
// Text

// Metadata strings are meant to be ASCII or UTF-8, but old IPTC writers used Latin-1.
QString decodeText(const std::string &bytes)
{
    std::string_view view(bytes);
    if (const auto nul = view.find('\0'); nul != std::string_view::npos)
        view = view.substr(0, nul);
    const QByteArrayView raw(view.data(), qsizetype(view.size()));
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString s = utf8(raw);
    if (utf8.hasError())
        s = QString::fromLatin1(raw);
    return s.trimmed();
}

// Placeholders cameras and tools write for "nothing here".
bool isPlaceholder(const QString &s)
{
    if (s.isEmpty())
        return true;
    static const QStringList junk{QStringLiteral("unknown"), QStringLiteral("n/a"), QStringLiteral("none"),
                                  QStringLiteral("----"), QStringLiteral("-"), QStringLiteral("0")};
    return junk.contains(s, Qt::CaseInsensitive);
}

// The text of a datum: strings as they are; undefined bytes only when they spell printable text.
QString datumText(const Exiv2::Metadatum &d)
{
    if (d.typeId() == Exiv2::undefined) {
        const long n = d.count();
        std::string bytes;
        for (long i = 0; i < n; ++i) {
            const long c = d.toLong(i);
            if (c == 0)
                break;
            if (c < 0x20 || c > 0x7e)
                return {};
            bytes.push_back(char(c));
        }
        return decodeText(bytes);
    }
    return decodeText(d.toString());
}

// ---------------------------------------------------------------------------------------------
// Lookups that never throw (an unknown key name throws in exiv2)

const Exiv2::Exifdatum *findExif(const Exiv2::ExifData &exif, const char *key)
{
    try {
        const auto it = exif.findKey(Exiv2::ExifKey(key));
        if (it != exif.end() && it->count() > 0)
            return &*it;
    } catch (const std::exception &) {
    }
    return nullptr;
}

const Exiv2::Xmpdatum *findXmp(const Exiv2::XmpData &xmp, const char *key)
{
    try {
        const auto it = xmp.findKey(Exiv2::XmpKey(key));
        if (it != xmp.end())
            return &*it;
    } catch (const std::exception &) {
    }
    return nullptr;
}

QString exifText(const Exiv2::ExifData &exif, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        if (const auto *d = findExif(exif, key)) {
            const QString s = datumText(*d);
            if (!isPlaceholder(s))
                return s;
        }
    }
    return {};
}

// Every text of an XMP property: the x-default (else first) entry of a language alternative, each
// item of an array, or the simple value.
QStringList xmpTexts(const Exiv2::Xmpdatum &d)
{
    QStringList out;
    const Exiv2::Value &v = d.value();
    if (const auto *alt = dynamic_cast<const Exiv2::LangAltValue *>(&v)) {
        if (!alt->value_.empty()) {
            const auto it = alt->value_.find("x-default");
            out.append(decodeText(it != alt->value_.end() ? it->second : alt->value_.begin()->second));
        }
    } else if (const auto *arr = dynamic_cast<const Exiv2::XmpArrayValue *>(&v)) {
        for (long i = 0; i < arr->count(); ++i)
            out.append(decodeText(arr->toString(i)));
    } else {
        out.append(decodeText(v.toString()));
    }
    for (QString &s : out) {
        // An array read as plain text comes back as 'type="Seq" value'.
        if (s.startsWith(QLatin1String("type=\""))) {
            const qsizetype end = s.indexOf(QLatin1String("\" "), 6);
            s = end < 0 ? QString() : s.mid(end + 2).trimmed();
        }
    }
    out.removeIf([](const QString &s) { return s.isEmpty(); });
    return out;
}

QString xmpText(const Exiv2::XmpData &xmp, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        if (const auto *d = findXmp(xmp, key)) {
            const QStringList texts = xmpTexts(*d);
            if (!texts.isEmpty() && !isPlaceholder(texts.first()))
                return texts.first();
        }
    }
    return {};
}

// A rational as a double; absent when the denominator is zero or the value is not finite.
std::optional<double> rationalAt(const Exiv2::Metadatum &d, long n = 0)
{
    if (d.count() <= n)
        return std::nullopt;
    const Exiv2::Rational r = d.toRational(n);
    if (r.second == 0)
        return std::nullopt;
    const double v = double(r.first) / double(r.second);
    return std::isfinite(v) ? std::optional<double>(v) : std::nullopt;
}

std::optional<double> positiveRational(const Exiv2::ExifData &exif, const char *key)
{
    if (const auto *d = findExif(exif, key)) {
        const auto v = rationalAt(*d);
        if (v && *v > 0)
            return v;
    }
    return std::nullopt;
}

// "1/250", "0.004", "28/10" as written in XMP.
std::optional<double> parseFraction(const QString &s)
{
    bool ok1 = false, ok2 = false;
    const qsizetype slash = s.indexOf(QLatin1Char('/'));
    double v = 0;
    if (slash < 0) {
        v = s.toDouble(&ok1);
        ok2 = true;
    } else {
        const double num = s.left(slash).toDouble(&ok1);
        const double den = s.mid(slash + 1).toDouble(&ok2);
        if (den == 0)
            return std::nullopt;
        v = num / den;
    }
    if (!ok1 || !ok2 || !std::isfinite(v) || v <= 0)
        return std::nullopt;
    return v;
}

// The first run of digits of a printed value ("ISO 200" → 200).
std::optional<int> leadingNumber(const QString &s)
{
    qsizetype i = 0;
    while (i < s.size() && !s.at(i).isDigit())
        ++i;
    qsizetype j = i;
    while (j < s.size() && s.at(j).isDigit())
        ++j;
    bool ok = false;
    const int v = s.mid(i, j - i).toInt(&ok);
    return ok && v > 0 ? std::optional<int>(v) : std::nullopt;
}

// ---------------------------------------------------------------------------------------------
// Dates

// "2023:05:14 10:22:33" (EXIF) or "2023-05-14T10:22:33.5+02:00" (XMP). The camera's clock time is
// kept as local time: any zone offset is ignored, like the EXIF dates that carry none.
QDateTime parseDate(const QString &text, bool allowDateOnly, const QString &subSeconds = {})
{
    int parts[6] = {0, 0, 0, 0, 0, 0};
    const int width[6] = {4, 2, 2, 2, 2, 2};
    qsizetype pos = 0;
    int found = 0;
    for (; found < 6; ++found) {
        // separators between fields: ":" "-" "/" " " "T"
        if (found > 0) {
            if (pos >= text.size())
                break;
            const QChar c = text.at(pos);
            const bool dateSep = c == QLatin1Char(':') || c == QLatin1Char('-') || c == QLatin1Char('/');
            const bool midSep = c == QLatin1Char(' ') || c == QLatin1Char('T');
            if (!(found == 3 ? midSep : dateSep))
                break;
            ++pos;
        }
        int v = 0;
        for (int k = 0; k < width[found]; ++k, ++pos) {
            if (pos >= text.size() || !text.at(pos).isDigit())
                return {};
            v = v * 10 + text.at(pos).digitValue();
        }
        parts[found] = v;
    }
    // Seconds may be missing; a date without a time only comes from XMP.
    if (!(found >= 5 || (found == 3 && allowDateOnly)))
        return {};
    const QDate date(parts[0], parts[1], parts[2]);
    int ms = 0;
    if (found == 6) {
        // XMP carries fractions inline ("…:33.45"); EXIF keeps them in a SubSecTime tag.
        QString frac = subSeconds.trimmed();
        if (frac.isEmpty() && pos < text.size() && text.at(pos) == QLatin1Char('.')) {
            qsizetype end = pos + 1;
            while (end < text.size() && text.at(end).isDigit())
                ++end;
            frac = text.mid(pos + 1, end - pos - 1);
        }
        qsizetype digits = 0;
        while (digits < frac.size() && digits < 3 && frac.at(digits).isDigit())
            ++digits;
        if (digits > 0)
            ms = frac.left(digits).leftJustified(3, QLatin1Char('0')).toInt();
    }
    const QTime time(parts[3], parts[4], parts[5], ms);
    if (parts[0] < 1800 || !date.isValid() || !time.isValid())
        return {};
    return QDateTime(date, time, Qt::LocalTime);
}

QDateTime captureDate(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp)
{
    const struct { const char *date, *subSec; } exifDates[] = {
        {"Exif.Photo.DateTimeOriginal", "Exif.Photo.SubSecTimeOriginal"},
        {"Exif.Image.DateTimeOriginal", nullptr},   // TIFF/EP, some RAWs
        {"Exif.Photo.DateTimeDigitized", "Exif.Photo.SubSecTimeDigitized"},
        {"Exif.Image.DateTime", "Exif.Photo.SubSecTime"},
    };
    for (const auto &k : exifDates) {
        if (const auto *d = findExif(exif, k.date)) {
            QString sub;
            if (k.subSec)
                if (const auto *s = findExif(exif, k.subSec))
                    sub = datumText(*s);
            const QDateTime dt = parseDate(datumText(*d), false, sub);
            if (dt.isValid())
                return dt;
        }
    }
    for (const char *key : {"Xmp.exif.DateTimeOriginal", "Xmp.xmp.CreateDate", "Xmp.exif.DateTimeDigitized",
                            "Xmp.photoshop.DateCreated"}) {
        if (const auto *d = findXmp(xmp, key)) {
            const QDateTime dt = parseDate(decodeText(d->toString()), true);
            if (dt.isValid())
                return dt;
        }
    }
    return {};
}

// ---------------------------------------------------------------------------------------------
// GPS

std::optional<double> exifCoordinate(const Exiv2::ExifData &exif, const char *valueKey, const char *refKey,
                                     char negativeRef, double limit)
{
    const auto *d = findExif(exif, valueKey);
    if (!d || d->count() < 1)
        return std::nullopt;
    const auto deg = rationalAt(*d, 0);
    if (!deg)
        return std::nullopt;
    // Minutes and seconds may be missing or written as 0/0 by some phones.
    const double min = rationalAt(*d, 1).value_or(0.0);
    const double sec = rationalAt(*d, 2).value_or(0.0);
    double v = *deg + min / 60.0 + sec / 3600.0;
    if (const auto *ref = findExif(exif, refKey)) {
        const QString r = datumText(*ref);
        if (!r.isEmpty() && r.at(0).toUpper() == QLatin1Char(negativeRef))
            v = -v;
    }
    if (!std::isfinite(v) || std::abs(v) > limit)
        return std::nullopt;
    return v;
}

// XMP writes "41,24.5N" or "41,24,30N".
std::optional<double> xmpCoordinate(const Exiv2::XmpData &xmp, const char *key, char negativeRef, double limit)
{
    const auto *d = findXmp(xmp, key);
    if (!d)
        return std::nullopt;
    QString s = decodeText(d->toString());
    if (s.isEmpty())
        return std::nullopt;
    const QChar ref = s.back().toUpper();
    bool negative = false;
    if (ref.isLetter()) {
        negative = ref == QLatin1Char(negativeRef);
        s.chop(1);
    }
    const QStringList parts = s.split(QLatin1Char(','));
    if (parts.isEmpty() || parts.size() > 3)
        return std::nullopt;
    double v = 0, scale = 1;
    for (const QString &p : parts) {
        bool ok = false;
        const double x = p.trimmed().toDouble(&ok);
        if (!ok)
            return std::nullopt;
        v += x / scale;
        scale *= 60;
    }
    if (negative)
        v = -v;
    if (!std::isfinite(v) || std::abs(v) > limit)
        return std::nullopt;
    return v;
}

void readGps(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp, PhotoMeta &m)
{
    auto lat = exifCoordinate(exif, "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLatitudeRef", 'S', 90);
    auto lon = exifCoordinate(exif, "Exif.GPSInfo.GPSLongitude", "Exif.GPSInfo.GPSLongitudeRef", 'W', 180);
    if (!lat || !lon) {
        lat = xmpCoordinate(xmp, "Xmp.exif.GPSLatitude", 'S', 90);
        lon = xmpCoordinate(xmp, "Xmp.exif.GPSLongitude", 'W', 180);
    }
    // Cameras without a fix often write zeros; 0°, 0° is open sea.
    if (!lat || !lon || (*lat == 0 && *lon == 0))
        return;
    m.latitude = lat;
    m.longitude = lon;
    if (const auto *d = findExif(exif, "Exif.GPSInfo.GPSAltitude")) {
        if (auto alt = rationalAt(*d)) {
            if (const auto *ref = findExif(exif, "Exif.GPSInfo.GPSAltitudeRef"); ref && ref->toLong() == 1)
                *alt = -*alt;
            m.altitude = alt;
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Exposure

std::optional<int> readIso(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp)
{
    auto plausible = [](long v) { return v > 0 && v < 65535; };
    if (const auto *d = findExif(exif, "Exif.Photo.ISOSpeedRatings"); d && plausible(d->toLong()))
        return int(d->toLong());
    // 65535 means "too large for a SHORT": the value is in one of the newer tags.
    for (const char *key : {"Exif.Photo.ISOSpeed", "Exif.Photo.RecommendedExposureIndex",
                            "Exif.Photo.StandardOutputSensitivity", "Exif.Image.ISOSpeedRatings"}) {
        if (const auto *d = findExif(exif, key); d && d->toLong() > 0)
            return int(d->toLong());
    }
    try {
        // Maker notes: their printed form is the ISO value.
        const auto it = Exiv2::isoSpeed(exif);
        if (it != exif.end()) {
            // Some tables print nonsense for some bodies ("3.125"): an ISO is a whole number.
            const QString printed = QString::fromStdString(it->print(&exif));
            if (!printed.contains(QLatin1Char('.')))
                if (auto v = leadingNumber(printed); v && *v >= 6)
                    return v;
        }
    } catch (const std::exception &) {
    }
    for (const char *key : {"Xmp.exif.ISOSpeedRatings", "Xmp.exifEX.PhotographicSensitivity"}) {
        if (const auto *d = findXmp(xmp, key)) {
            const QStringList t = xmpTexts(*d);
            if (!t.isEmpty())
                if (auto v = leadingNumber(t.first()))
                    return v;
        }
    }
    return std::nullopt;
}

void readExposure(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp, PhotoMeta &m)
{
    m.focalLength = positiveRational(exif, "Exif.Photo.FocalLength");
    if (!m.focalLength)
        m.focalLength = positiveRational(exif, "Exif.Image.FocalLength");

    m.aperture = positiveRational(exif, "Exif.Photo.FNumber");
    if (!m.aperture)
        m.aperture = positiveRational(exif, "Exif.Image.FNumber");
    if (!m.aperture) {
        // APEX aperture value: N = 2^(Av/2).
        if (auto av = positiveRational(exif, "Exif.Photo.ApertureValue"))
            m.aperture = std::pow(2.0, *av / 2.0);
    }

    m.exposureTime = positiveRational(exif, "Exif.Photo.ExposureTime");
    if (!m.exposureTime)
        m.exposureTime = positiveRational(exif, "Exif.Image.ExposureTime");
    if (!m.exposureTime) {
        // APEX shutter speed value: t = 2^-Tv.
        if (const auto *d = findExif(exif, "Exif.Photo.ShutterSpeedValue")) {
            if (auto tv = rationalAt(*d); tv && std::abs(*tv) < 30)
                m.exposureTime = std::pow(2.0, -*tv);
        }
    }

    if (!m.focalLength)
        m.focalLength = parseFraction(xmpText(xmp, {"Xmp.exif.FocalLength"}));
    if (!m.aperture)
        m.aperture = parseFraction(xmpText(xmp, {"Xmp.exif.FNumber"}));
    if (!m.exposureTime)
        m.exposureTime = parseFraction(xmpText(xmp, {"Xmp.exif.ExposureTime"}));

    m.iso = readIso(exif, xmp);
}

// ---------------------------------------------------------------------------------------------
// Camera and lens

QString readLens(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp)
{
    // The standard tag and Canon's own text name the lens exactly; the lens-ID tables of the
    // maker notes are ambiguous (one ID, several lenses), so they come after.
    QString lens = exifText(exif, {"Exif.Photo.LensModel", "Exif.Canon.LensModel"});
    if (!lens.isEmpty())
        return lens;
    try {
        const auto it = Exiv2::lensName(exif);
        if (it != exif.end()) {
            const QString s = decodeText(it->print(&exif));
            // Unknown IDs print as "(123)" or a bare number.
            bool numeric = false;
            s.toDouble(&numeric);
            if (!isPlaceholder(s) && !s.startsWith(QLatin1Char('(')) && !numeric
                && !s.startsWith(QLatin1String("Unknown"), Qt::CaseInsensitive))
                return s;
        }
    } catch (const std::exception &) {
    }
    return xmpText(xmp, {"Xmp.exifEX.LensModel", "Xmp.aux.Lens"});
}

QString readSerial(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp, const QString &model)
{
    QString serial = exifText(exif, {"Exif.Photo.BodySerialNumber", "Exif.Image.CameraSerialNumber"});
    if (serial.isEmpty()) {
        try {
            const auto it = Exiv2::serialNumber(exif);
            if (it != exif.end()) {
                const bool numeric = it->typeId() == Exiv2::unsignedLong || it->typeId() == Exiv2::unsignedShort;
                if (numeric && it->groupName() == "Canon") {
                    // Canon keeps a number; bodies and Lightroom show it with ten digits, except
                    // the EOS-1D line's six.
                    const quint32 v = quint32(it->toLong(0));
                    serial = model.contains(QLatin1String("EOS-1D")) ? QString::number(v)
                                                                     : QStringLiteral("%1").arg(v, 10, 10, QLatin1Char('0'));
                } else if (numeric) {
                    serial = QString::number(it->toLong(0));
                } else {
                    serial = datumText(*it);
                    // Some Nikon bodies write "NO= 1005a431".
                    if (serial.startsWith(QLatin1String("NO=")))
                        serial = serial.mid(3).trimmed();
                }
            }
        } catch (const std::exception &) {
        }
    }
    if (isPlaceholder(serial))
        serial = xmpText(xmp, {"Xmp.exifEX.BodySerialNumber", "Xmp.aux.SerialNumber"});
    return serial;
}

// The size of the full-resolution image of a TIFF-based RAW: the IFD marked as the primary image.
std::pair<int, int> primaryIfdSize(const Exiv2::ExifData &exif)
{
    for (const auto &d : exif) {
        if (d.tag() != 0x00fe || d.toLong() != 0)   // NewSubfileType 0: full-resolution image
            continue;
        const std::string group = d.groupName();
        const std::string prefix = "Exif." + group + ".";
        const auto *w = findExif(exif, (prefix + "ImageWidth").c_str());
        const auto *h = findExif(exif, (prefix + "ImageLength").c_str());
        if (w && h && w->toLong() > 0 && h->toLong() > 0)
            return {int(w->toLong()), int(h->toLong())};
    }
    return {0, 0};
}

void readSize(Exiv2::Image &image, const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp, const QString &path,
              PhotoMeta &m)
{
    // A JPEG's frame header is the truth; its EXIF size may predate a resize or a crop.
    const bool jpeg = FileKinds::isJpeg(path) || image.mimeType() == "image/jpeg";
    if (jpeg && image.pixelWidth() > 0 && image.pixelHeight() > 0) {
        m.width = image.pixelWidth();
        m.height = image.pixelHeight();
        return;
    }
    const auto *px = findExif(exif, "Exif.Photo.PixelXDimension");
    const auto *py = findExif(exif, "Exif.Photo.PixelYDimension");
    if (px && py && px->toLong() > 0 && py->toLong() > 0) {
        m.width = int(px->toLong());
        m.height = int(py->toLong());
        return;
    }
    if (FileKinds::isRaw(path)) {
        // A RAW's first IFD often describes its small preview, not the picture.
        const auto [w, h] = primaryIfdSize(exif);
        if (w > 0) {
            m.width = w;
            m.height = h;
            return;
        }
    }
    if (image.pixelWidth() > 0 && image.pixelHeight() > 0) {
        m.width = image.pixelWidth();
        m.height = image.pixelHeight();
        return;
    }
    const int xw = xmpText(xmp, {"Xmp.exif.PixelXDimension", "Xmp.tiff.ImageWidth"}).toInt();
    const int xh = xmpText(xmp, {"Xmp.exif.PixelYDimension", "Xmp.tiff.ImageLength"}).toInt();
    if (xw > 0 && xh > 0) {
        m.width = xw;
        m.height = xh;
    }
}

int readOrientation(const Exiv2::ExifData &exif, const Exiv2::XmpData &xmp)
{
    if (const auto *d = findExif(exif, "Exif.Image.Orientation")) {
        const long v = d->toLong();
        if (v >= 1 && v <= 8)
            return int(v);
    }
    if (const auto *d = findXmp(xmp, "Xmp.tiff.Orientation")) {
        const long v = d->toLong();
        if (v >= 1 && v <= 8)
            return int(v);
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------
// IPTC

namespace Iptc {
enum : uint16_t {
    ObjectName = 5,
    Keywords = 25,
    Byline = 80,
    City = 90,
    CountryName = 101,
    Copyright = 116,
    Caption = 120,
};
}

void readTexts(const Exiv2::IptcData &iptc, const Exiv2::XmpData &xmp, const Exiv2::ExifData &exif, PhotoMeta &m)
{
    for (const auto &d : iptc) {
        if (d.record() != Exiv2::IptcDataSets::application2)
            continue;
        QString *target = nullptr;
        switch (d.tag()) {
        case Iptc::ObjectName: target = &m.title; break;
        case Iptc::Caption: target = &m.caption; break;
        case Iptc::Byline: target = &m.creator; break;
        case Iptc::Copyright: target = &m.copyright; break;
        case Iptc::City: target = &m.city; break;
        case Iptc::CountryName: target = &m.country; break;
        case Iptc::Keywords: {
            const QString k = decodeText(d.toString());
            if (!k.isEmpty() && !m.keywords.contains(k))
                m.keywords.append(k);
            continue;
        }
        default: continue;
        }
        // Repeatable datasets (several by-lines): the first one names the shot.
        if (target->isEmpty())
            *target = decodeText(d.toString());
    }

    if (!xmp.empty()) {
        auto fill = [&](QString &field, const char *key) {
            if (field.isEmpty())
                field = xmpText(xmp, {key});
        };
        fill(m.title, "Xmp.dc.title");
        fill(m.caption, "Xmp.dc.description");
        fill(m.creator, "Xmp.dc.creator");
        fill(m.copyright, "Xmp.dc.rights");
        fill(m.city, "Xmp.photoshop.City");
        fill(m.country, "Xmp.photoshop.Country");
        if (m.keywords.isEmpty()) {
            if (const auto *d = findXmp(xmp, "Xmp.dc.subject")) {
                for (const QString &k : xmpTexts(*d))
                    if (!m.keywords.contains(k))
                        m.keywords.append(k);
            }
        }
    }

    // The owner name and copyright set in the camera's menu.
    if (m.creator.isEmpty())
        m.creator = exifText(exif, {"Exif.Image.Artist"});
    if (m.copyright.isEmpty())
        m.copyright = exifText(exif, {"Exif.Image.Copyright"});
}

bool hasAnything(const PhotoMeta &m)
{
    return m.captureDate.isValid() || m.width > 0 || m.height > 0 || m.orientation != 1 || !m.make.isEmpty()
        || !m.model.isEmpty() || !m.serial.isEmpty() || !m.lens.isEmpty() || m.focalLength || m.aperture
        || m.exposureTime || m.iso || m.latitude || !m.title.isEmpty() || !m.caption.isEmpty()
        || !m.creator.isEmpty() || !m.copyright.isEmpty() || !m.city.isEmpty() || !m.country.isEmpty()
        || !m.keywords.isEmpty();
}

} // namespace

std::optional<PhotoMeta> readPhotoMeta(const QString &path)
{
    ensureExiv2();
    try {
        auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString(), false);
        if (!image.get())
            return std::nullopt;
        try {
            image->readMetadata();
        } catch (const std::exception &) {
            // A truncated file (card pulled, copy cut short) throws after its headers were read:
            // whatever was decoded before the damage is still worth showing.
        }
        // Reading a sidecar, exiv2 fills EXIF and IPTC from the XMP by its own table, which lets
        // photoshop:DateCreated (often a bare day) overwrite the capture time: use the XMP as written.
        static const Exiv2::ExifData noExif;
        static const Exiv2::IptcData noIptc;
        const bool sidecar = image->imageType() == Exiv2::ImageType::xmp;
        const Exiv2::ExifData &exif = sidecar ? noExif : image->exifData();
        const Exiv2::IptcData &iptc = sidecar ? noIptc : image->iptcData();
        const Exiv2::XmpData &xmp = image->xmpData();
        if (exif.empty() && iptc.empty() && xmp.empty())
            return std::nullopt;

        PhotoMeta m;
        m.captureDate = captureDate(exif, xmp);
        readSize(*image, exif, xmp, path, m);
        m.orientation = readOrientation(exif, xmp);
        m.make = exifText(exif, {"Exif.Image.Make"});
        if (m.make.isEmpty())
            m.make = xmpText(xmp, {"Xmp.tiff.Make"});
        m.model = exifText(exif, {"Exif.Image.Model"});
        if (m.model.isEmpty())
            m.model = xmpText(xmp, {"Xmp.tiff.Model"});
        m.serial = readSerial(exif, xmp, m.model);
        m.lens = readLens(exif, xmp);
        readExposure(exif, xmp, m);
        readGps(exif, xmp, m);
        readTexts(iptc, xmp, exif, m);
        if (!hasAnything(m))
            return std::nullopt;
        return m;
    } catch (const std::exception &) {
        // Exiv2::AnyError derives from std::exception: unreadable or unknown files end here.
        return std::nullopt;
    } catch (...) {
        return std::nullopt;
    }
}


std::optional<PhotoMeta> readPhotoMeta(const QString &path, const QString &sidecar)
{
    std::optional<PhotoMeta> meta = readPhotoMeta(path);
    if (sidecar.isEmpty() || !QFileInfo::exists(sidecar))
        return meta;
    const std::optional<PhotoMeta> side = readPhotoMeta(sidecar);
    if (!side)
        return meta;
    PhotoMeta m = meta.value_or(PhotoMeta{});
    const auto over = [](QString &mine, const QString &theirs) {
        if (!theirs.isEmpty())
            mine = theirs;
    };
    over(m.title, side->title);
    over(m.caption, side->caption);
    over(m.creator, side->creator);
    over(m.copyright, side->copyright);
    over(m.city, side->city);
    over(m.country, side->country);
    if (!side->keywords.isEmpty())
        m.keywords = side->keywords;
    return hasAnything(m) ? std::optional<PhotoMeta>(m) : meta;
}
