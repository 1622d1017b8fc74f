#pragma once
// A template applied to many files, as the command line, the import and the window do it: the
// new files wait as synced-later temporaries and replace the old ones a group at a time, one disk
// flush per group, so a killed run leaves each file as it was or fully written. A file that fails
// says why and the others go on. Synchronous; runs on the caller's (worker) thread.
#include "iptcfile.h"

#include <QList>
#include <QStringList>
#include <functional>

namespace IptcBatch {

inline constexpr int kGroupFiles = 64;
inline constexpr qint64 kGroupBytes = qint64(512) << 20;

struct Outcome {
    int written = 0, unchanged = 0, failed = 0;
    QStringList messages;            // one per failed file
    QList<IptcFile::Undo> undo;      // what was written, for putting it back
};

// `progress` runs after each file with the count done; returning false stops before the next.
Outcome apply(const IptcTemplate &t, const QStringList &files,
              const std::function<bool(int done, int total)> &progress = {});

// Puts back everything an apply wrote, newest first; the sentences of what could not be.
QStringList undo(const QList<IptcFile::Undo> &undo);

} // namespace IptcBatch
