#pragma once
// Capture metadata of one file through exiv2: dates, size, orientation, camera, lens, exposure,
// GPS and IPTC texts. Thread-safe; exiv2's exceptions are caught here and never leave.
#include "model/photometa.h"

#include <QString>
#include <optional>

// Sets exiv2 up once per process (the XMP toolkit's lock, BMFF, silence). Any thread.
void ensureExiv2();

// Absent when the file cannot be read or holds no metadata exiv2 understands.
std::optional<PhotoMeta> readPhotoMeta(const QString &path);

// The same, with the IPTC texts of the shot's sidecar (when `sidecar` names one that exists) over
// the file's own: a RAW's author, city and keywords live there.
std::optional<PhotoMeta> readPhotoMeta(const QString &path, const QString &sidecar);
