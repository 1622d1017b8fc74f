#pragma once
// Reading and writing a shot's IPTC texts. A JPEG holds them itself, as IPTC IIM (UTF-8, with the
// coded character set declared) inside the Photoshop segment and as the matching XMP; every other
// kind (RAW, HEIC, video…) holds them in its .xmp sidecar, edited in place so another tool's
// sidecar keeps everything else.
//
// A JPEG is rewritten only through a hidden temporary file in its folder: the new file is built
// from the original's own segments (EXIF, maker notes, ICC profile and image data are copied, not
// re-encoded), read back from the disk and compared with the original's image data byte for byte,
// given the original's permissions and modification time, synced and renamed over it. Any failure
// leaves the original as it was and says why in one Spanish sentence. exiv2 encodes and decodes
// the IIM and the XMP; its exceptions never leave. Safe on any thread, one writer per file.
#include "iptctemplate.h"

#include <QByteArray>
#include <QString>
#include <optional>

class AtomicBatch;

namespace IptcFile {

// Whether the texts of `path` go inside it (a JPEG) or into its sidecar.
bool writesInside(const QString &path);
// The sidecar of a file: the existing one, else the name with the extension replaced by "xmp".
QString sidecarFor(const QString &path);

// What a later undo puts back: the JPEG's own XMP and Photoshop segments, or the sidecar's bytes.
struct Undo {
    QString file;               // the JPEG or the sidecar that was written
    bool jpeg = false;
    bool existed = true;        // a sidecar that was created is removed again
    QByteArray before;          // the sidecar's bytes, or the JPEG's XMP segment
    QByteArray beforePhotoshop; // the JPEG's Photoshop segments
};

struct Result {
    enum Kind { written, unchanged, failed } kind = failed;
    QString file;               // what was (or would have been) written: the JPEG or the sidecar
    QString message;            // "IMG_0001.jpg: el disco está lleno; no se ha modificado"
    std::optional<Undo> undo;   // when written
    bool ok() const { return kind != failed; }
};

// Applies `t` to the shot file `path`. With a batch the new file waits in it as a synced-later
// temporary and replaces the old one at the batch's commit (one disk flush for many files).
Result apply(const IptcTemplate &t, const QString &path, AtomicBatch *batch = nullptr);
// Puts back what an apply wrote; the same safety as apply. Empty, or a Spanish sentence.
QString undo(const Undo &u);

// The texts a shot holds: a JPEG's own (XMP first, IIM for what the XMP lacks); for other files
// their embedded metadata with the sidecar's over it. Absent when nothing can be read.
std::optional<IptcValues> read(const QString &path);

// Test hook: runs after the temporary file is written and checked, before it replaces the
// original (the SIGKILL test stops the program here). Not thread-safe; tests only.
void setBeforeRenameForTesting(void (*hook)(const QString &temp));

} // namespace IptcFile
