#pragma once
// Carries out a journalled file operation on shots: rename, move, copy, trash, and the undo of any
// of them. Each shot with all its files: a shot that fails is put back as it was and the others go
// on. The journal is synced before the first file is touched and when the second phase begins;
// the marks follow the shots. Runs on the calling thread (a worker, never the GUI thread: it syncs
// the disk); the marks of the folders concerned must be flushed to their files first.
#include "fileopjournal.h"
#include "fileopoutcome.h"

#include <QStringList>
#include <functional>

namespace FileOpEngine {

using Progress = std::function<void(int done, int total)>;

// `journal` holds the shots and their steps (state moving); `names` one display name per shot
// (its base name). With `verify`, copies are read back and compared by SHA-256.
FileOpOutcome run(FileOpJournal journal, const QStringList &names, bool verify = false, const Progress &progress = {});

// Undoes a finished operation (the newest one when `id` is empty) when its files are still where
// it left them: renamed and moved shots go back, copies are removed (only while their originals
// are there), trashed shots come back out of the trash with their marks.
FileOpOutcome undo(const QString &id = {}, const Progress &progress = {});

// A new journal id.
QString newId();

} // namespace FileOpEngine
