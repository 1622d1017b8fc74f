#pragma once
// Tells a complete image file from one cut short, by its contents (not its name):
// - JPEG: the marker segments before the image data lie inside the file, and the file ends with
//   the end-of-image marker (trailing zero padding allowed);
// - TIFF-based RAW (NEF, CR2, ARW, DNG, ORF, RW2, PEF, …) and TIFF: every IFD, and every strip,
//   tile and embedded JPEG they point to, lies inside the file;
// - ISO media (HEIC, CR3, MOV, MP4, …): the top-level boxes add up to the file size.
// Any other kind is taken as it comes, and so is a TIFF too tangled to check within the reader's
// budget (no camera writes one). Reads little: headers, directories and the last bytes; the TIFF
// walk's work is bounded in proportion to the file's size whatever its bytes.
// Pure functions of the file's bytes: safe on any thread.
#include "imaging/tiffreader.h"

#include <QString>

namespace ImageCompleteness {

enum class Verdict { complete, truncated, unknownKind };

// `fd` is an open, readable file; its offset is not used. `tiffWork`, when given, receives the
// work the TIFF walk did (zero for other kinds).
Verdict check(int fd, TiffReader::Work *tiffWork = nullptr);
Verdict checkFile(const QString &path);

} // namespace ImageCompleteness
