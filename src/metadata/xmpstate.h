#pragma once
// The marks a sidecar carries for one shot. A sidecar holds no crop.
#include <optional>

struct XmpState {
    int color = 0;                      // colour class 0…8
    int rating = 0;                     // stars 0…5
    bool flag = false;
    int rotation = 0;                   // quarter turns 0…3
    std::optional<int> orientation;     // for writing: the EXIF orientation the rotation results in

    // What is read back compares equal to what was written, the orientation aside.
    bool sameMarks(const XmpState &o) const
    {
        return color == o.color && rating == o.rating && flag == o.flag && rotation == o.rotation;
    }
};
