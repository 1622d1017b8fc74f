#pragma once
// How a shot's marks meet its sidecar, for the window and the command line alike: the state
// written for a record, and which of the folder file and the sidecar a shot's marks come from.
//   folder-file mode: the folder file's record; a shot it does not mark shows its sidecar's marks
//     (a folder rated in another tool), which are not written back unless the user changes them.
//   sidecar mode: the sidecar's colour, stars, flag and turn, over the record, which keeps what a
//     sidecar cannot hold (the crop).
// Pure functions (sidecarToRead() looks at the disk); any thread.
#include "xmpstate.h"

#include "marks/marks.h"
#include "marks/marksstorage.h"

#include <QSet>
#include <QString>
#include <optional>

namespace SidecarMarks {

enum class Source { none, file, sidecar };
// "file" or "sidecar"; "" for none.
QString sourceName(Source source);

// What a record writes to a sidecar (no orientation: that needs the image).
XmpState stateOf(const Marks &marks);
// `state` with the orientation that results from `image`'s own and the turn, when it carries none
// and the sidecar may hold a turn (a new one, or an existing file that may have an earlier one).
// Reads the image's EXIF then: not for the GUI thread.
XmpState withOrientation(XmpState state, const QString &image, const QString &sidecar);
// The sidecar a shot's marks are written to: the main file with its extension replaced by "xmp".
QString sidecarOf(const QString &mainFile);

struct Resolved {
    std::optional<Marks> marks;   // absent: no marks
    Source source = Source::none;
};
Resolved resolve(MarksStorage storage, const std::optional<Marks> &record, const std::optional<XmpState> &sidecar);

// The sidecar to read for a shot: its own ("IMG_0001.xmp") when the scan found one, else one
// named the darktable and digiKam way ("IMG_0001.NEF.xmp"); "" when there is none. `xmpKeys` are
// the scan's grouping keys of the .xmp files found.
QString sidecarToRead(const QString &mainFile, const QString &sidecarURL, const QSet<QString> &xmpKeys);

} // namespace SidecarMarks
