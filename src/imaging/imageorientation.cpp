#include "imageorientation.h"

#include <QTransform>

#include <cmath>

namespace ImageOrientation {

QImage apply(const QImage &image, int orientation)
{
    if (image.isNull())
        return image;
    // Qt's rotate() turns clockwise on screen; its quarter turns take a fast path.
    const auto turn = [&image](int degrees) { return image.transformed(QTransform().rotate(degrees)); };
    switch (orientation) {
    case 2: return image.mirrored(true, false);
    case 3: return image.mirrored(true, true);
    case 4: return image.mirrored(false, true);
    case 5: return turn(90).mirrored(true, false);    // transpose
    case 6: return turn(90);
    case 7: return turn(90).mirrored(false, true);    // transverse
    case 8: return turn(270);
    default: return image;
    }
}

int fromLibRawFlip(int flip)
{
    static const int exif[8] = {1, 2, 4, 3, 5, 8, 6, 7};
    return flip >= 0 && flip < 8 ? exif[flip] : 1;
}

int fromDisplayMatrix(const int32_t m[9])
{
    if (!m)
        return 1;
    const auto fp = [](int32_t v) { return double(v) / 65536.0; };
    const double sx = std::hypot(fp(m[0]), fp(m[3]));
    const double sy = std::hypot(fp(m[1]), fp(m[4]));
    if (sx == 0 || sy == 0)
        return 1;
    // The clockwise turn that shows the frame upright, in [0, 360), as FFmpeg's own tools read it.
    double theta = std::round(std::atan2(fp(m[1]) / sy, fp(m[0]) / sx) * 180.0 / M_PI);
    theta -= 360.0 * std::floor(theta / 360.0 + 0.9 / 360.0);

    // Mirrors show as a negative entry where a pure rotation would have a positive one.
    if (std::fabs(theta - 90) < 1.0)
        return m[3] > 0 ? 5 : 6;
    if (std::fabs(theta - 180) < 1.0) {
        const bool h = m[0] < 0, v = m[4] < 0;
        return h && v ? 3 : h ? 2 : v ? 4 : 1;
    }
    if (std::fabs(theta - 270) < 1.0)
        return m[3] < 0 ? 7 : 8;
    if (std::fabs(theta) < 1.0)
        return m[4] < 0 ? 4 : 1;
    return 1;
}

} // namespace ImageOrientation
