// The EXIF thumbnail walk reads the APP1 segment of any JPEG and any TIFF a user opens.
#include "imaging/exifthumbnail.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto found = ExifThumbnail::find(data, qint64(size));
    if (found) {
        // A thumbnail is a JPEG's start, within bounds, with an orientation EXIF defines.
        if (found->jpeg.size() < 5 || found->jpeg.size() > qsizetype(size) || found->jpeg.size() > ExifThumbnail::kMaxThumbnailBytes
            || uint8_t(found->jpeg[0]) != 0xFF || uint8_t(found->jpeg[1]) != 0xD8 || found->orientation < 1
            || found->orientation > 8)
            __builtin_trap();
    }
    return 0;
}
