#pragma once
// EXIF orientations (1…8) combined with the user's rotation mark. The display draws a shot
// upright by its EXIF orientation and then turns it clockwise by the mark; a sidecar records
// the same picture as one EXIF orientation. Pure functions: safe on any thread.

namespace Orientation {

// The EXIF orientation that shows pixels stored with orientation `exif` as the display shows
// them turned `quarterTurns` clockwise. Values of `exif` outside 1…8 count as 1.
int turned(int exif, int quarterTurns);

} // namespace Orientation
