#pragma once
// The hidden ".corvane-<UUID>.part" files that a copy or an upload is written into before it
// takes its final name. The writer holds an exclusive flock() on its part file for as long as it
// writes it; the lock dies with the process, so a part file nobody holds was left by a writer that
// was killed, and is safe to remove. Any thread.
#include <QString>

namespace PartFiles {

bool isPartName(const QString &name);
// Takes the writer's lock on an open part file.
void hold(int fd);
// Removes the part files nobody holds in `folder`; returns how many.
int removeStale(const QString &folder);
// The same in `root` and every folder below it down to `depth` levels (symbolic links are not
// followed). The depth keeps the walk to the folders a writer could have used: a destination root
// can hold years of archive that need not be read.
int removeStaleBelow(const QString &root, int depth);

} // namespace PartFiles
