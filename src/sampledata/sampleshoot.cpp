// glib (under libvips) names a struct member "signals", a word Qt's headers define away: it goes first.
#include <vips/vips8>

#include "sampleshoot.h"

#include "tiffrawwriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numeric>
#include <vector>

using vips::VImage;

namespace SampleShoot {
namespace {

using Rgb = std::vector<double>;

// ---------------------------------------------------------------------------------------------
// The shoot: who shot what, when.

struct Camera {
    const char *make;
    const char *model;
    const char *lens;
    const char *serial;
    const char *prefix;     // file names as the camera writes them
    const char *rawExt;     // empty: the camera's RAWs are not of the TIFF kind we write
    double aspect;          // long side / short side
    Rgb tint;               // each camera renders colour its own way
    double focalMin, focalMax, fNumber;
};

enum CameraId { Nikon, Canon, Fuji, Phone };

const std::array<Camera, 4> kCameras{{
    {"NIKON CORPORATION", "NIKON Z 6_2", "NIKKOR Z 24-70mm f/2.8 S", "6012345", "DSC_", "NEF", 1.5,
     {1.06, 1.0, 0.88}, 24, 70, 2.8},
    {"Canon", "Canon EOS 5D Mark IV", "EF70-200mm f/2.8L IS III USM", "032021001234", "IMG_", "CR2", 1.5,
     {0.9, 0.98, 1.1}, 70, 200, 2.8},
    {"FUJIFILM", "X-T4", "XF56mmF1.2 R", "0AB12345", "_DSF", "", 1.5,
     {0.94, 1.06, 0.96}, 56, 56, 1.2},
    {"Apple", "iPhone 13", "iPhone 13 back dual wide camera 5.1mm f/1.6", "", "IMG_", "", 4.0 / 3.0,
     {1.05, 0.95, 1.03}, 5.1, 5.1, 1.6},
}};

enum class Kind { Jpeg, RawJpeg, RawOnly, Heic, Png, Video };
enum Scene { Getting, Church, Grove, Party };

const char *const kSceneNames[] = {"Preparativos", "Ceremonia", "Retratos en el olivar", "Banquete"};

struct Plan {
    Kind kind;
    CameraId camera;
    Scene scene;
    const char *time;
    int orientation;    // EXIF orientation; 6 and 8 store the pixels sideways
    bool blurred;
    int longSide;
    const char *folder = "";
    bool portrait = false;  // upright portrait framing (implied by 6 and 8)
    const char *caption = nullptr;
    const char *keywords = nullptr;   // comma-separated
};

// Shot numbers follow each camera's own counter, in this order.
const Plan kPlans[] = {
    {Kind::Jpeg, Fuji, Getting, "11:02:14", 1, false, 2400},
    {Kind::Jpeg, Fuji, Getting, "11:02:15", 6, false, 2400},
    {Kind::Jpeg, Fuji, Getting, "11:02:16", 1, true, 2400},
    {Kind::Jpeg, Nikon, Getting, "11:05:40", 1, false, 3000},
    {Kind::Jpeg, Nikon, Getting, "11:05:41", 8, false, 2000},
    {Kind::Jpeg, Phone, Getting, "11:07:03", 6, false, 2016},
    {Kind::RawJpeg, Nikon, Getting, "11:09:12", 1, false, 2400},
    {Kind::Jpeg, Canon, Getting, "11:12:30", 1, true, 1800},
    {Kind::Jpeg, Canon, Church, "12:31:02", 1, false, 3000, "", false, "Entrada de la novia con su padre",
     "boda,ceremonia,ermita"},
    {Kind::Jpeg, Canon, Church, "12:31:03", 1, false, 3000},
    {Kind::Jpeg, Canon, Church, "12:31:04", 1, true, 3000},
    {Kind::RawJpeg, Canon, Church, "12:34:50", 6, false, 2400},
    {Kind::RawJpeg, Canon, Church, "12:34:51", 1, false, 2400},
    {Kind::Jpeg, Nikon, Church, "12:40:10", 1, false, 1600},
    {Kind::RawJpeg, Nikon, Church, "12:40:11", 1, true, 2400},
    {Kind::Heic, Phone, Church, "12:45:00", 1, false, 1024},
    {Kind::Jpeg, Nikon, Church, "13:02:05", 1, false, 2000, "Ceremonia"},
    {Kind::Jpeg, Nikon, Church, "13:02:06", 1, false, 2000, "Ceremonia"},
    {Kind::Jpeg, Nikon, Church, "13:04:31", 6, false, 1800, "Ceremonia", false, "El «sí, quiero»",
     "boda,ceremonia,votos"},
    {Kind::Jpeg, Nikon, Church, "13:04:32", 1, true, 1600, "Ceremonia"},
    {Kind::Jpeg, Fuji, Grove, "17:30:05", 1, false, 2400},
    {Kind::Jpeg, Fuji, Grove, "17:30:06", 1, false, 2400, "", true},
    {Kind::Jpeg, Fuji, Grove, "17:30:07", 6, true, 2400},
    {Kind::RawJpeg, Nikon, Grove, "17:33:20", 1, false, 3000, "", false, "Lucía y Andrés en el olivar",
     "boda,retrato,novios"},
    {Kind::RawOnly, Nikon, Grove, "17:33:21", 8, false, 2400},
    {Kind::Jpeg, Nikon, Grove, "17:35:00", 1, false, 1200},
    {Kind::Jpeg, Phone, Grove, "17:40:12", 1, false, 2016},
    {Kind::Png, Phone, Grove, "17:41:00", 1, false, 1200},
    {Kind::Jpeg, Canon, Grove, "17:45:30", 1, false, 2000},
    {Kind::Jpeg, Canon, Grove, "17:45:31", 8, true, 2000},
    {Kind::Jpeg, Nikon, Party, "21:04:10", 1, false, 2400, "", false, "Brindis de los padrinos",
     "boda,banquete,brindis"},
    {Kind::RawJpeg, Nikon, Party, "21:04:11", 1, false, 2400},
    {Kind::RawOnly, Canon, Party, "21:10:00", 1, true, 2400},
    {Kind::Jpeg, Canon, Party, "21:10:01", 1, false, 1800},
    {Kind::Video, Phone, Party, "21:15:00", 1, false, 640},
    {Kind::Jpeg, Phone, Party, "21:16:30", 6, false, 2016},
    {Kind::Jpeg, Fuji, Party, "21:20:00", 1, false, 2400},
    {Kind::Jpeg, Fuji, Party, "21:20:01", 1, true, 2400},
    {Kind::Jpeg, Nikon, Party, "21:30:45", 1, false, 2000},
};

// Where each camera's counter stood when the shoot began.
const std::array<int, 4> kFirstNumber{96, 201, 451, 7410};

// The RAW alone that gets a sidecar from "another program" (its plan index).
constexpr int kSidecarShot = 24;

const QDate kWeddingDay(2023, 6, 17);

struct Settings {
    int exposureDen;
    int iso;
};
const Settings kSceneSettings[] = {{160, 800}, {250, 1600}, {640, 100}, {60, 3200}};

// ---------------------------------------------------------------------------------------------
// Drawing: scenes that read as photographs at thumbnail size (gradients, light, figures, text),
// with fine detail (window bars, stone courses, garlands) for sharpness measures to find. A plain
// RGB raster: hundreds of small shapes per picture would cost far more as libvips draw operations.

class Canvas
{
public:
    // `tint` is the camera's colour rendering, applied to every colour drawn.
    Canvas(int w, int h, const Rgb &tint) : w(w), h(h), pixels(size_t(w) * size_t(h) * 3), tint(tint) {}

    void gradient(const Rgb &topIn, const Rgb &bottomIn)
    {
        const Rgb top = tinted(topIn), bottom = tinted(bottomIn);
        for (int y = 0; y < h; ++y) {
            const double t = double(y) / std::max(1, h - 1);
            const quint8 c[3] = {quint8(top[0] + (bottom[0] - top[0]) * t), quint8(top[1] + (bottom[1] - top[1]) * t),
                                 quint8(top[2] + (bottom[2] - top[2]) * t)};
            quint8 *row = &pixels[size_t(y) * size_t(w) * 3];
            for (int x = 0; x < w; ++x, row += 3)
                std::copy(c, c + 3, row);
        }
    }
    // Coordinates are fractions of the width and height; radii fractions of the short side.
    void rect(const Rgb &c, double x, double y, double rw, double rh)
    {
        fill(tinted(c), px(x), py(y), std::max(1, px(rw)), std::max(1, py(rh)));
    }
    // Edges blended by coverage along each row, so round shapes are not jagged.
    void circle(const Rgb &cIn, double fx, double fy, double fr)
    {
        const Rgb c = tinted(cIn);
        const double cx = fx * w, cy = fy * h, r = std::max(1.0, fr * std::min(w, h));
        for (int y = std::max(0, int(cy - r)); y < std::min(h, int(cy + r) + 1); ++y) {
            const double dy = y + 0.5 - cy;
            if (dy * dy >= r * r)
                continue;
            const double half = std::sqrt(r * r - dy * dy);
            span(c, y, cx - half, cx + half);
        }
    }
    // A shape narrowing from `bottomWidth` to `topWidth`, centred on x.
    void trapezoid(const Rgb &cIn, double fx, double top, double height, double topWidth, double bottomWidth)
    {
        const Rgb c = tinted(cIn);
        const int y0 = py(top), rows = std::max(1, py(height));
        for (int r = 0; r < rows; ++r) {
            const double width = (topWidth + (bottomWidth - topWidth) * r / rows) * w;
            span(c, y0 + r, fx * w - width / 2, fx * w + width / 2);
        }
    }
    void hline(const Rgb &c, double x, double y, double lw) { fill(tinted(c), px(x), py(y), std::max(1, px(lw)), 1); }
    void person(double x, double base, double height, const Rgb &clothes, bool dress)
    {
        const double head = height * 0.13;
        const double aspect = double(h) / w;
        if (dress) {
            trapezoid(clothes, x, base - height * 0.8, height * 0.8, height * 0.09 * aspect, height * 0.4 * aspect);
        } else {
            rect(clothes, x - height * 0.09 * aspect, base - height * 0.8, height * 0.18 * aspect, height * 0.8);
            rect({235, 235, 235}, x - height * 0.02 * aspect, base - height * 0.78, height * 0.04 * aspect,
                 height * 0.25);
        }
        const double r = head * h / std::min(w, h) / 2;
        circle({60, 40, 30}, x, base - height * 0.86, r * 1.1);
        circle({222, 178, 148}, x, base - height * 0.86 + head * 0.08, r);
    }
    // Ink through an 8-bit coverage mask (rendered text) at pixel position (x, y).
    void mask(const Rgb &c, const quint8 *m, int mw, int mh, int x0, int y0)
    {
        for (int y = std::max(0, -y0); y < mh && y0 + y < h; ++y)
            for (int x = std::max(0, -x0); x < mw && x0 + x < w; ++x)
                blend(c, x0 + x, y0 + y, m[size_t(y) * size_t(mw) + size_t(x)] / 255.0);
    }

    VImage image() const
    {
        return VImage::new_from_memory(const_cast<quint8 *>(pixels.data()), pixels.size(), w, h, 3, VIPS_FORMAT_UCHAR)
            .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    }

    const int w, h;

private:
    Rgb tinted(const Rgb &c) const
    {
        return {std::min(255.0, c[0] * tint[0]), std::min(255.0, c[1] * tint[1]), std::min(255.0, c[2] * tint[2])};
    }
    int px(double f) const { return int(std::lround(f * w)); }
    int py(double f) const { return int(std::lround(f * h)); }

    void fill(const Rgb &c, int x0, int y0, int rw, int rh)
    {
        const int x1 = std::min(w, x0 + rw), y1 = std::min(h, y0 + rh);
        const quint8 v[3] = {quint8(c[0]), quint8(c[1]), quint8(c[2])};
        for (int y = std::max(0, y0); y < y1; ++y) {
            quint8 *p = &pixels[(size_t(y) * size_t(w) + size_t(std::max(0, x0))) * 3];
            for (int x = std::max(0, x0); x < x1; ++x, p += 3)
                std::copy(v, v + 3, p);
        }
    }
    // One row from left to right (pixel units), partial pixels at both ends blended.
    void span(const Rgb &c, int y, double left, double right)
    {
        if (y < 0 || y >= h || right <= left)
            return;
        const int a = int(std::ceil(left)), b = int(std::floor(right));
        if (a > b) {
            blend(c, int(left), y, right - left);
            return;
        }
        fill(c, a, y, b - a, 1);
        blend(c, a - 1, y, a - left);
        blend(c, b, y, right - b);
    }
    void blend(const Rgb &c, int x, int y, double alpha)
    {
        if (x < 0 || x >= w || y < 0 || y >= h || alpha <= 0)
            return;
        quint8 *p = &pixels[(size_t(y) * size_t(w) + size_t(x)) * 3];
        for (int i = 0; i < 3; ++i)
            p[i] = quint8(std::lround(p[i] + (c[i] - p[i]) * std::min(1.0, alpha)));
    }

    std::vector<quint8> pixels;
    Rgb tint;
};

// Deterministic variation per shot.
double jitter(int seed, int salt, double amount)
{
    quint32 s = quint32(seed) * 2654435761u + quint32(salt) * 40503u;
    s ^= s >> 15;
    s *= 2246822519u;
    s ^= s >> 13;
    return (double(s % 10000) / 10000.0 - 0.5) * 2 * amount;
}

void drawGettingReady(Canvas &c, int seed)
{
    c.gradient({214, 190, 160}, {130, 100, 80});
    c.rect({96, 64, 44}, 0, 0.8, 1, 0.2);
    for (double x = 0; x < 1; x += 0.045)
        c.rect({70, 46, 32}, x, 0.8, 0.002, 0.2);
    // Window with bars: fine, high-contrast detail.
    const double wx = 0.07 + jitter(seed, 1, 0.03);
    c.rect({160, 60, 70}, wx - 0.05, 0.06, 0.05, 0.7);
    c.rect({160, 60, 70}, wx + 0.3, 0.06, 0.05, 0.7);
    c.rect({250, 246, 232}, wx, 0.1, 0.3, 0.55);
    for (int i = 0; i <= 4; ++i) {
        c.rect({90, 70, 60}, wx + i * 0.075 - 0.003, 0.1, 0.006, 0.55);
        c.rect({90, 70, 60}, wx, 0.1 + i * 0.1375 - 0.004, 0.3, 0.008);
    }
    // Mirror, table, flowers.
    c.circle({120, 96, 60}, 0.78, 0.36, 0.2);
    c.circle({196, 210, 214}, 0.78, 0.36, 0.18);
    c.rect({110, 76, 50}, 0.66, 0.62, 0.3, 0.04);
    for (int i = 0; i < 7; ++i)
        c.circle(i % 2 ? Rgb{230, 120, 150} : Rgb{250, 240, 235}, 0.86 + jitter(seed, 10 + i, 0.04),
                 0.54 + jitter(seed, 20 + i, 0.04), 0.025);
    c.rect({60, 110, 70}, 0.855, 0.56, 0.01, 0.06);
    c.person(0.55 + jitter(seed, 2, 0.06), 0.95, 0.72, {248, 246, 240}, true);
}

void drawChurch(Canvas &c, int seed)
{
    c.gradient({92, 142, 210}, {200, 220, 238});
    c.rect({96, 140, 70}, 0, 0.74, 1, 0.26);
    const Rgb stone{206, 190, 160};
    const double cx = 0.5 + jitter(seed, 1, 0.08);
    c.trapezoid({150, 80, 60}, cx, 0.16, 0.2, 0.02, 0.46);
    c.rect(stone, cx - 0.2, 0.36, 0.4, 0.42);
    c.rect(stone, cx + 0.12, 0.08, 0.08, 0.3);   // bell tower
    c.circle({60, 50, 40}, cx + 0.16, 0.15, 0.025);
    for (double y = 0.38; y < 0.78; y += 0.022)
        c.hline({176, 160, 132}, cx - 0.2, y, 0.4);
    c.rect({70, 50, 40}, cx - 0.045, 0.56, 0.09, 0.22);
    c.circle({70, 50, 40}, cx, 0.56, 0.045);
    for (int i = 0; i < 4; ++i)
        c.rect({50, 60, 90}, cx - 0.17 + i * 0.1 - (i >= 2 ? 0.02 : 0), 0.42, 0.03, 0.08);
    for (int t = 0; t < 3; ++t) {
        const double tx = 0.06 + t * 0.09 + jitter(seed, 5 + t, 0.02);
        c.rect({90, 64, 40}, tx - 0.008, 0.56, 0.016, 0.2);
        c.circle({52, 96, 52}, tx, 0.52, 0.09);
    }
    const double px = 0.78 + jitter(seed, 2, 0.08);
    c.person(px, 0.94, 0.5, {250, 248, 244}, true);
    c.person(px + 0.06, 0.94, 0.54, {36, 40, 60}, false);
}

void drawGrove(Canvas &c, int seed)
{
    c.gradient({238, 150, 90}, {250, 226, 176});
    const double sx = 0.68 + jitter(seed, 1, 0.1);
    for (int i = 6; i >= 1; --i)
        c.circle({255, 230.0 - i * 6, 170.0 - i * 12}, sx, 0.48, 0.05 + i * 0.035);
    c.circle({255, 250, 230}, sx, 0.48, 0.05);
    c.circle({150, 140, 80}, 0.2, 1.25, 0.75);
    c.circle({128, 124, 70}, 0.85, 1.3, 0.8);
    c.rect({118, 110, 62}, 0, 0.72, 1, 0.28);
    for (int t = 0; t < 6; ++t) {
        const double tx = 0.05 + t * 0.18 + jitter(seed, 10 + t, 0.03);
        const double ty = 0.7 + (t % 2) * 0.05;
        c.rect({80, 62, 44}, tx - 0.006, ty - 0.08, 0.012, 0.12);
        for (int l = 0; l < 5; ++l)
            c.circle({96.0 + l * 8, 116.0 + l * 6, 72}, tx + jitter(seed, 30 + t * 5 + l, 0.03),
                     ty - 0.12 + jitter(seed, 60 + t * 5 + l, 0.03), 0.035);
    }
    const double px = 0.4 + jitter(seed, 2, 0.1);
    c.person(px, 0.96, 0.62, {252, 250, 246}, true);
    c.person(px + 0.07, 0.96, 0.66, {44, 44, 52}, false);
}

void drawParty(Canvas &c, int seed)
{
    c.gradient({18, 20, 46}, {70, 44, 40});
    // Garlands: rows of bulbs hanging in parabolas.
    for (int g = 0; g < 3; ++g) {
        const double base = 0.08 + g * 0.1 + jitter(seed, g, 0.02);
        for (int i = 0; i <= 40; ++i) {
            const double x = i / 40.0;
            const double y = base + 0.12 * (1 - 4 * (x - 0.5) * (x - 0.5));
            c.circle({120, 90, 50}, x, y, 0.014);
            c.circle({255, 226, 160}, x, y, 0.006);
        }
    }
    for (int t = 0; t < 3; ++t) {
        const double tx = 0.04 + t * 0.34;
        c.rect({240, 236, 228}, tx, 0.66, 0.26, 0.12);
        c.rect({200, 196, 188}, tx, 0.77, 0.26, 0.01);
        for (int k = 0; k < 4; ++k) {
            c.rect({250, 250, 240}, tx + 0.03 + k * 0.06, 0.6, 0.006, 0.06);
            c.circle({255, 190, 90}, tx + 0.033 + k * 0.06, 0.595, 0.008);
        }
    }
    const double px = 0.45 + jitter(seed, 3, 0.1);
    c.person(px, 0.98, 0.55, {250, 248, 244}, true);
    c.person(px + 0.06, 0.98, 0.6, {30, 30, 36}, false);
    c.person(0.15 + jitter(seed, 4, 0.05), 0.99, 0.5, {140, 40, 70}, true);
    c.person(0.85 + jitter(seed, 5, 0.05), 0.99, 0.52, {40, 60, 90}, false);
}

// The upright picture of one shot, caption included.
VImage renderUpright(int w, int h, Scene scene, const Camera &camera, int seed, const QString &name,
                     const QDateTime &when)
{
    Canvas c(w, h, camera.tint);
    switch (scene) {
    case Getting: drawGettingReady(c, seed); break;
    case Church: drawChurch(c, seed); break;
    case Grove: drawGrove(c, seed); break;
    case Party: drawParty(c, seed); break;
    }

    // Caption: the file name and time, so each shot is recognisable at a glance.
    const int pt = std::max(12, int(std::min(w, h) * 0.04));
    const QString markup = QStringLiteral("<b>%1</b>   %2\n<small>Boda de Lucía y Andrés · %3</small>")
                               .arg(name.toHtmlEscaped(), when.toString(QStringLiteral("HH:mm:ss")),
                                    QString::fromUtf8(kSceneNames[scene]).toHtmlEscaped());
    try {
        const VImage text = VImage::text(markup.toUtf8().constData(),
                                         VImage::option()
                                             ->set("font", QStringLiteral("DejaVu Sans %1").arg(pt).toUtf8().constData())
                                             ->set("dpi", 72));
        size_t size = 0;
        const std::unique_ptr<void, void (*)(void *)> mask(text.write_to_memory(&size), g_free);
        const auto *m = static_cast<const quint8 *>(mask.get());
        const int x = int(w * 0.03), y = h - int(h * 0.03) - text.height();
        const int shadow = std::max(1, pt / 16);
        c.mask({0, 0, 0}, m, text.width(), text.height(), x + shadow, y + shadow);
        c.mask({255, 255, 255}, m, text.width(), text.height(), x, y);
    } catch (const vips::VError &) {
        vips_error_clear();   // without fonts the picture simply has no caption
    }
    // The raster dies with this function: hand over a copy libvips owns.
    return c.image().copy_memory();
}

// The picture as the camera stores it: sideways for orientations 6 and 8.
VImage storedFor(const VImage &upright, int orientation)
{
    switch (orientation) {
    case 3: return upright.rot(VIPS_ANGLE_D180);
    case 6: return upright.rot(VIPS_ANGLE_D270);
    case 8: return upright.rot(VIPS_ANGLE_D90);
    default: return upright;
    }
}

QByteArray saveBuffer(const VImage &img, const char *suffix, vips::VOption *options)
{
    void *buf = nullptr;
    size_t size = 0;
    img.write_to_buffer(suffix, &buf, &size, options);
    QByteArray out(static_cast<const char *>(buf), qsizetype(size));
    g_free(buf);
    return out;
}

// ---------------------------------------------------------------------------------------------
// Metadata.

struct ShotInfo {
    const Plan *plan;
    const Camera *camera;
    QString name;           // base name, e.g. "DSC_0101"
    QString folder;         // absolute
    QDateTime when;
    int storedWidth = 0, storedHeight = 0;
    int iso = 0, exposureDen = 0;
    double focal = 0;
};

void fillExif(Exiv2::ExifData &exif, const ShotInfo &s)
{
    const QByteArray date = s.when.toString(QStringLiteral("yyyy:MM:dd HH:mm:ss")).toLatin1();
    exif["Exif.Image.Make"] = s.camera->make;
    exif["Exif.Image.Model"] = s.camera->model;
    exif["Exif.Image.Orientation"] = uint16_t(s.plan->orientation);
    exif["Exif.Image.DateTime"] = date.constData();
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, uint32_t(s.exposureDen));
    exif["Exif.Photo.FNumber"] = Exiv2::URational(uint32_t(std::lround(s.camera->fNumber * 10)), 10);
    exif["Exif.Photo.ISOSpeedRatings"] = uint16_t(s.iso);
    exif["Exif.Photo.DateTimeOriginal"] = date.constData();
    exif["Exif.Photo.DateTimeDigitized"] = date.constData();
    exif["Exif.Photo.FocalLength"] = Exiv2::URational(uint32_t(std::lround(s.focal * 10)), 10);
    exif["Exif.Photo.PixelXDimension"] = uint32_t(s.storedWidth);
    exif["Exif.Photo.PixelYDimension"] = uint32_t(s.storedHeight);
    exif["Exif.Photo.LensModel"] = s.camera->lens;
    if (*s.camera->serial)
        exif["Exif.Photo.BodySerialNumber"] = s.camera->serial;
}

void fillIptc(Exiv2::IptcData &iptc, const Plan &p)
{
    if (!p.caption && !p.keywords)
        return;
    iptc["Iptc.Envelope.CharacterSet"] = "\x1b%G";   // UTF-8
    if (p.caption)
        iptc["Iptc.Application2.Caption"] = p.caption;
    if (p.keywords) {
        for (const QString &k : QString::fromUtf8(p.keywords).split(QLatin1Char(','))) {
            Exiv2::StringValue v(k.toStdString());
            iptc.add(Exiv2::IptcKey("Iptc.Application2.Keywords"), &v);
        }
    }
}

// The JPEG with the shot's EXIF (and IPTC) added.
QByteArray withMetadata(const QByteArray &jpeg, const ShotInfo &s)
{
    auto image = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte *>(jpeg.constData()),
                                           long(jpeg.size()));
    image->readMetadata();
    Exiv2::ExifData exif;
    fillExif(exif, s);
    Exiv2::IptcData iptc;
    fillIptc(iptc, *s.plan);
    image->setExifData(exif);
    image->setIptcData(iptc);
    image->writeMetadata();
    Exiv2::BasicIo &io = image->io();
    io.seek(0, Exiv2::BasicIo::beg);
    const Exiv2::DataBuf data = io.read(long(io.size()));
    return QByteArray(reinterpret_cast<const char *>(data.pData_), qsizetype(data.size_));
}

// A bare EXIF block ("Exif\0\0" + TIFF), as image savers carry it.
QByteArray exifBlock(const ShotInfo &s)
{
    Exiv2::ExifData exif;
    fillExif(exif, s);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    return QByteArray("Exif\0\0", 6) + QByteArray(reinterpret_cast<const char *>(blob.data()), qsizetype(blob.size()));
}

QByteArray sidecarXmp(const ShotInfo &s)
{
    return QString::fromUtf8(
               "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
               "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"XMP Core 6.0.0\">\n"
               " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
               "  <rdf:Description rdf:about=\"\"\n"
               "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
               "    xmlns:tiff=\"http://ns.adobe.com/tiff/1.0/\"\n"
               "    xmlns:exif=\"http://ns.adobe.com/exif/1.0/\"\n"
               "   tiff:Make=\"%1\"\n"
               "   tiff:Model=\"%2\"\n"
               "   tiff:Orientation=\"%3\"\n"
               "   exif:DateTimeOriginal=\"%4\"\n"
               "   xmp:CreatorTool=\"%2 Ver.01.10\"\n"
               "   xmp:Rating=\"3\"\n"
               "   xmp:Label=\"Verde\"/>\n"
               " </rdf:RDF>\n"
               "</x:xmpmeta>\n"
               "<?xpacket end=\"w\"?>\n")
        .arg(QString::fromUtf8(s.camera->make), QString::fromUtf8(s.camera->model))
        .arg(s.plan->orientation)
        .arg(s.when.toString(Qt::ISODate))
        .toUtf8();
}

const char kNotes[] =
    "Boda de Lucía y Andrés — sábado 17 de junio de 2023\n"
    "Finca El Olivar (Toledo)\n"
    "\n"
    "Horario\n"
    "  11:00  Preparativos: la novia en casa, el novio en el hotel\n"
    "  12:30  Ceremonia en la ermita\n"
    "  17:30  Retratos en el olivar\n"
    "  21:00  Banquete y baile\n"
    "\n"
    "Fotos imprescindibles\n"
    "  - Anillos y detalles del vestido\n"
    "  - Entrada de la novia con su padre\n"
    "  - Grupo familiar completo a la salida de la ermita\n"
    "  - Primer baile\n"
    "\n"
    "Equipo: Nikon Z 6II y Fuji X-T4; segunda cámara Canon 5D Mark IV (Marta).\n"
    "Entrega: selección de 300 fotos antes del 15 de julio.\n";

// ---------------------------------------------------------------------------------------------
// Files.

// Writes the bytes and dates the file at the moment of the shot, as a card would.
bool writeFile(const QString &path, const QByteArray &bytes, const QDateTime &when)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size() || !f.flush())
        return false;   // flushed first: a later write would date the file now
    if (when.isValid())
        f.setFileTime(when, QFileDevice::FileModificationTime);
    return true;
}

void dateFile(const QString &path, const QDateTime &when)
{
    QFile f(path);
    if (f.open(QIODevice::ReadOnly))
        f.setFileTime(when, QFileDevice::FileModificationTime);
}

QString writeError(const QString &path)
{
    return QStringLiteral("No se pudo escribir «%1».").arg(QDir::toNativeSeparators(path));
}

// A two-second test clip through ffmpeg, made while the pictures are drawn. Silently nothing when
// ffmpeg is missing or fails.
class VideoJob
{
public:
    void start(const QString &path, const QDateTime &when)
    {
        _path = path;
        _when = when;
        _ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
        if (!_ffmpeg.isEmpty())
            launch(QStringList{"-c:v", "libx264", "-preset", "veryfast"});
    }
    void finish()
    {
        if (_ffmpeg.isEmpty())
            return;
        if (!succeeded()) {
            launch(QStringList{"-c:v", "mpeg4", "-q:v", "5"});   // an ffmpeg built without x264
            if (!succeeded())
                return;
        }
        dateFile(_path, _when);
    }

private:
    void launch(const QStringList &codec)
    {
        const QStringList common{"-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                                 "testsrc=duration=2:size=640x360:rate=25", "-pix_fmt", "yuv420p",
                                 "-metadata", "creation_time=" + _when.toUTC().toString(Qt::ISODate),
                                 "-fflags", "+bitexact"};
        _process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        _process.setStandardOutputFile(QProcess::nullDevice());
        _process.start(_ffmpeg, common + codec + QStringList{_path});
    }
    bool succeeded()
    {
        const bool ok = _process.waitForFinished(60000) && _process.exitStatus() == QProcess::NormalExit
                        && _process.exitCode() == 0 && QFileInfo(_path).size() > 0;
        if (!ok) {
            _process.kill();
            _process.waitForFinished(1000);
            QFile::remove(_path);
        }
        return ok;
    }

    QProcess _process;
    QString _ffmpeg, _path;
    QDateTime _when;
};

bool isEmptyOrSample(const QString &dir)
{
    const QStringList entries =
        QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return entries.isEmpty() || entries.contains(QLatin1String(kMarkerName));
}

// One shot's files; returns an error sentence or empty.
QString writeShot(const ShotInfo &s, int seed)
{
    const Plan &p = *s.plan;
    const QString base = s.folder + QLatin1Char('/') + s.name;

    const bool sideways = p.orientation == 6 || p.orientation == 8;
    const bool portrait = sideways || p.portrait;
    const int shortSide = int(std::lround(p.longSide / s.camera->aspect));
    const int w = portrait ? shortSide : p.longSide;
    const int h = portrait ? p.longSide : shortSide;

    VImage upright = renderUpright(w, h, p.scene, *s.camera, seed, s.name, s.when);
    if (p.blurred)
        upright = upright.gaussblur(8);   // missed focus / camera shake
    const VImage stored = storedFor(upright, p.orientation);
    ShotInfo info = s;
    info.storedWidth = stored.width();
    info.storedHeight = stored.height();

    if (p.kind == Kind::Png) {
        const QByteArray png = saveBuffer(stored, ".png", VImage::option()->set("compression", 6)->set("strip", true));
        return writeFile(base + QStringLiteral(".PNG"), png, s.when) ? QString() : writeError(base + ".PNG");
    }
    if (p.kind == Kind::Heic) {
        try {
            VImage tagged = stored.copy();
            const QByteArray exif = exifBlock(info);
            vips_image_set_blob_copy(tagged.get_image(), VIPS_META_EXIF_NAME, exif.constData(), size_t(exif.size()));
            const QByteArray heic = saveBuffer(tagged, ".heic", VImage::option()->set("Q", 50)->set("bitdepth", 8)->set("effort", 0));
            if (!writeFile(base + QStringLiteral(".HEIC"), heic, s.when))
                return writeError(base + ".HEIC");
        } catch (const vips::VError &) {
            // No HEVC encoder here: the shoot goes without its HEIC.
            vips_error_clear();
        }
        return {};
    }

    const QByteArray plain = saveBuffer(stored, ".jpg", VImage::option()->set("Q", 88)->set("strip", true));
    if (p.kind == Kind::Jpeg || p.kind == Kind::RawJpeg) {
        const QString path = base + QStringLiteral(".JPG");
        if (!writeFile(path, withMetadata(plain, info), s.when))
            return writeError(path);
    }
    if (p.kind == Kind::RawJpeg || p.kind == Kind::RawOnly) {
        TiffRawWriter::Options o;
        o.make = s.camera->make;
        o.model = s.camera->model;
        o.orientation = p.orientation;
        o.date = s.when;
        o.jpeg = plain;
        // From the JPEG: its shrink-on-load is far cheaper than resizing the full picture.
        const std::unique_ptr<VipsBlob, void (*)(VipsBlob *)> blob(
            vips_blob_copy(plain.constData(), size_t(plain.size())), [](VipsBlob *b) { vips_area_unref(VIPS_AREA(b)); });
        const VImage thumb = VImage::thumbnail_buffer(blob.get(), 160, VImage::option()->set("height", 120));
        size_t thumbSize = 0;
        void *thumbPixels = thumb.write_to_memory(&thumbSize);
        o.thumbWidth = thumb.width();
        o.thumbHeight = thumb.height();
        o.thumbRgb = QByteArray(static_cast<const char *>(thumbPixels), qsizetype(thumbSize));
        g_free(thumbPixels);
        o.sensorBytes = 1 << 20;
        o.canonSignature = qstrcmp(s.camera->rawExt, "CR2") == 0;
        o.exposureNum = 1;
        o.exposureDen = s.exposureDen;
        o.fNumber = s.camera->fNumber;
        o.iso = s.iso;
        o.focalLength = s.focal;
        o.lensModel = s.camera->lens;
        o.bodySerial = s.camera->serial;
        const QString path = base + QLatin1Char('.') + QLatin1String(s.camera->rawExt);
        if (!writeFile(path, TiffRawWriter::build(o), s.when))
            return writeError(path);
    }
    return {};
}

// One shot, with foreign exceptions turned into the sentence shown.
QString makeShot(const ShotInfo &s, int seed)
{
    try {
        return writeShot(s, seed);
    } catch (const vips::VError &) {
        vips_error_clear();
        return QStringLiteral("No se pudo dibujar la imagen de ejemplo «%1».").arg(s.name);
    } catch (const std::exception &) {   // exiv2
        return QStringLiteral("No se pudieron escribir los metadatos de «%1».").arg(s.name);
    }
}

} // namespace

QString generate(const QString &dirIn, std::function<void(int done, int total)> progress)
{
    const QString dir = QDir::cleanPath(QDir(dirIn).absolutePath());
    const QFileInfo fi(dir);
    if (fi.exists() && !fi.isDir())
        return QStringLiteral("«%1» no es una carpeta.").arg(QDir::toNativeSeparators(dir));
    if (!QDir().mkpath(dir))
        return QStringLiteral("No se pudo crear la carpeta «%1».").arg(QDir::toNativeSeparators(dir));
    if (!isEmptyOrSample(dir))
        return QStringLiteral("La carpeta «%1» no está vacía y no es una sesión de ejemplo: elige una carpeta vacía.")
            .arg(QDir::toNativeSeparators(dir));
    if (VIPS_INIT("corvane") != 0)
        return QStringLiteral("No se pudo preparar libvips para dibujar la sesión de ejemplo.");

    // The marker goes first, so that an interrupted run can be repeated in the same folder.
    const QString marker = dir + QLatin1Char('/') + QLatin1String(kMarkerName);
    if (!writeFile(marker, QByteArrayLiteral("Sesión de ejemplo de Corvane\n"), {}))
        return writeError(marker);

    const int planCount = int(std::size(kPlans));
    const int total = planCount + 1;   // the shots, then the notes
    if (progress)
        progress(0, total);

    QList<ShotInfo> shots;
    std::array<int, 4> counter = kFirstNumber;
    for (int i = 0; i < planCount; ++i) {
        const Plan &p = kPlans[i];
        ShotInfo s;
        s.plan = &p;
        s.camera = &kCameras[p.camera];
        const int number = counter[p.camera]++;
        s.name = QLatin1String(s.camera->prefix) + QStringLiteral("%1").arg(number, 4, 10, QLatin1Char('0'));
        s.folder = *p.folder ? dir + QLatin1Char('/') + QLatin1String(p.folder) : dir;
        s.when = QDateTime(kWeddingDay, QTime::fromString(QLatin1String(p.time), QStringLiteral("HH:mm:ss")));
        s.iso = kSceneSettings[p.scene].iso;
        s.exposureDen = kSceneSettings[p.scene].exposureDen;
        s.focal = s.camera->focalMin + (s.camera->focalMax - s.camera->focalMin) * ((i * 7) % 10) / 9.0;
        if (*p.folder && !QDir().mkpath(s.folder))
            return QStringLiteral("No se pudo crear la carpeta «%1».").arg(QDir::toNativeSeparators(s.folder));
        shots.append(s);
    }

    // Shots are independent: draw them side by side, slowest first, and report them in order.
    // Declared before the futures so that, on an early return, its destructor waits for them.
    QThreadPool pool;
    pool.setMaxThreadCount(std::clamp(QThread::idealThreadCount(), 2, 4));
    VideoJob video;
    QList<QFuture<QString>> results(planCount);
    QList<int> order(planCount);
    std::iota(order.begin(), order.end(), 0);
    std::stable_partition(order.begin(), order.end(), [](int i) { return kPlans[i].kind == Kind::Heic; });
    for (int i : std::as_const(order)) {
        if (kPlans[i].kind == Kind::Video) {
            video.start(shots[i].folder + QLatin1Char('/') + shots[i].name + QStringLiteral(".MOV"), shots[i].when);
            results[i] = QtFuture::makeReadyFuture(QString());
            continue;
        }
        results[i] = QtConcurrent::run(&pool, [shot = shots[i], seed = i + 1] { return makeShot(shot, seed); });
    }

    for (int i = 0; i < planCount; ++i) {
        if (kPlans[i].kind == Kind::Video)
            video.finish();
        const QString error = results[i].result();
        if (!error.isEmpty()) {
            pool.clear();
            return error;
        }
        if (i == kSidecarShot) {
            const ShotInfo &s = shots[i];
            const QString xmp = s.folder + QLatin1Char('/') + s.name + QStringLiteral(".xmp");
            if (!writeFile(xmp, sidecarXmp(s), s.when.addSecs(86400)))
                return writeError(xmp);
        }
        if (progress)
            progress(i + 1, total);
    }

    const QString notes = dir + QStringLiteral("/notas.txt");
    if (!writeFile(notes, QByteArray(kNotes), QDateTime(kWeddingDay.addDays(-3), QTime(22, 14, 0))))
        return writeError(notes);
    if (progress)
        progress(total, total);
    return {};
}

} // namespace SampleShoot
