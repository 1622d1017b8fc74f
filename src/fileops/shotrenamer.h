#pragma once
// Carries out a batch rename planned by planRename(): each shot with all its files, through
// temporary names (so names may swap or go round in a cycle), under a journal synced before the
// first file is touched, then the marks moved to the new keys. A shot that fails goes back under
// its old name and the others go on. Runs on the calling thread (a worker, never the GUI thread:
// it syncs the disk); the marks of the folders concerned must be flushed to their files first.
#include "renameplan.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <functional>

struct RenameOutcome {
    int renamed = 0;                 // shots now under their new names
    int files = 0;                   // files renamed
    QStringList kept;                // old names of the shots that could not be renamed
    QStringList messages;            // one line per shot that failed: "NAME: reason"
    QStringList savedAs;             // files that could return to neither name
    QList<QPair<QString, QString>> mainFiles;   // a file of each renamed shot: old path → new
    QString error;                   // the whole operation could not start (the journal)

    QString title() const;           // "Renombrado completado", "Renombrado con errores", …
    QString body() const;
};

namespace ShotRenamer {

// `progress(done, total)` counts the steps (two per file).
RenameOutcome run(const RenamePlan &plan, const std::function<void(int, int)> &progress = {});

// Renames back the shots of the last finished operation (its journal), when their files are still
// where it left them. Returns the outcome; `error` when there is nothing to undo.
RenameOutcome undoLast(const std::function<void(int, int)> &progress = {});

QString runningText(int shots);      // "Renombrando 1 imagen…"

} // namespace ShotRenamer
