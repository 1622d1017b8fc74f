#pragma once
// Carries out a batch rename planned by planRename() through the journalled engine: each shot with
// all its files, through temporary names (so names may swap or go round in a cycle), then the
// marks moved to the new keys. A shot that fails goes back under its old name and the others go
// on. Runs on the calling thread (a worker, never the GUI thread: it syncs the disk); the marks of
// the folders concerned must be flushed to their files first.
#include "fileopengine.h"
#include "renameplan.h"

using RenameOutcome = FileOpOutcome;

namespace ShotRenamer {

// `progress(done, total)` counts the steps (two per file).
RenameOutcome run(const RenamePlan &plan, const FileOpEngine::Progress &progress = {});

QString runningText(int shots);      // "Renombrando 1 imagen…"

} // namespace ShotRenamer
