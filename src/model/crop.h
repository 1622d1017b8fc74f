#pragma once
#include <cmath>

// A crop as fractions of the image, plus a straightening angle in degrees.
struct CropSpec {
    double x = 0, y = 0, w = 1, h = 1, angle = 0;

    // Near-identity crops are noise from the crop tool, not a decision: they count as no crop.
    bool isIdentity() const
    {
        return std::fabs(angle) < 0.01 && x <= 0.0001 && y <= 0.0001 && w >= 0.9999 && h >= 0.9999;
    }
    bool operator==(const CropSpec &) const = default;
};
