#include "orientation.h"

namespace Orientation {

int turned(int exif, int quarterTurns)
{
    // Each orientation as a horizontal mirror (or none) followed by k clockwise quarter turns;
    // turning further only adds to k.
    struct Parts { bool mirror; int k; };
    static const Parts parts[9] = {{false, 0}, {false, 0}, {true, 0}, {false, 2}, {true, 2},
                                   {true, 3},  {false, 1}, {true, 1}, {false, 3}};
    static const int plain[4] = {1, 6, 3, 8};
    static const int mirrored[4] = {2, 7, 4, 5};
    const Parts p = parts[exif >= 1 && exif <= 8 ? exif : 1];
    const int k = ((p.k + quarterTurns) % 4 + 4) % 4;
    return p.mirror ? mirrored[k] : plain[k];
}

} // namespace Orientation
