#include "shotrenamer.h"

#include "marks/marksfile.h"

#include "fileopmoves.h"

using FileOpMoves::folderOf;

namespace ShotRenamer {

QString runningText(int shots)
{
    return shots == 1 ? QStringLiteral("Renombrando 1 imagen…") : QStringLiteral("Renombrando %1 imágenes…").arg(shots);
}

RenameOutcome run(const RenamePlan &plan, const FileOpEngine::Progress &progress)
{
    FileOpJournal journal;
    journal.id = FileOpEngine::newId();
    journal.op = FileOpJournal::Op::rename;
    QStringList oldNames;
    int n = 0;
    for (const RenameRow &row : plan.rows) {
        if (!row.changed || !row.problem.isEmpty())
            continue;
        FileOpShot shot;
        shot.folder = folderOf(row.moves.first().from);
        for (const RenameMove &m : row.moves)
            shot.steps.append({m.from, folderOf(m.from) + QStringLiteral("/.corvane-%1-%2.renaming").arg(journal.id).arg(n++), m.to});
        shot.oldKey = MarksFile::keyFor(row.moves.first().from);
        shot.newKey = MarksFile::keyFor(row.moves.first().to);
        journal.shots.append(shot);
        oldNames.append(row.oldName);
    }
    if (journal.shots.isEmpty()) {
        RenameOutcome out;
        out.error = QStringLiteral("No hay nada que renombrar.");
        return out;
    }
    return FileOpEngine::run(journal, oldNames, false, progress);
}

} // namespace ShotRenamer
