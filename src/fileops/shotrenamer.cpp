#include "shotrenamer.h"

#include "fileopjournal.h"

#include "marks/marksfile.h"
#include "util/atomicfile.h"
#include "util/fileio.h"

#include <QFileInfo>
#include <QHash>
#include <QUuid>

namespace {

QString baseOf(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.left(dot) : name;
}

QString folderOf(const QString &p) { return p.left(p.lastIndexOf(QLatin1Char('/'))); }

RenameOutcome execute(FileOpJournal journal, const QStringList &oldNames, const std::function<void(int, int)> &progress)
{
    RenameOutcome out;
    int total = 0;
    for (const FileOpShot &s : std::as_const(journal.shots))
        total += int(s.steps.size()) * 2;
    int done = 0;
    const auto tick = [&] {
        ++done;
        if (progress)
            progress(done, total);
    };

    // The marks travel in the journal, so setting them again after a crash changes nothing.
    QHash<QString, MarksMap> marksOf;
    for (FileOpShot &shot : journal.shots) {
        if (!marksOf.contains(shot.folder))
            marksOf.insert(shot.folder, MarksFile::load(shot.folder).value_or(MarksFile{}).marks);
        if (const auto m = marksOf[shot.folder].constFind(shot.oldKey); m != marksOf[shot.folder].constEnd())
            shot.marks = *m;
    }
    if (const QString e = journal.save(); !e.isEmpty()) {
        out.error = QStringLiteral("No se puede escribir el registro de la operación: %1.").arg(e);
        return out;
    }
    // First phase: every name is given up, into a temporary one.
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        FileOpShot &shot = journal.shots[i];
        for (qsizetype k = 0; k < shot.steps.size(); ++k) {
            const int e = FileIo::renameNoReplace(shot.steps[k].from, shot.steps[k].temp);
            tick();
            if (e == 0)
                continue;
            shot.skipped = true;
            FileOpMoves::restore(shot, out.savedAs);
            out.kept.append(oldNames[i]);
            out.messages.append(QStringLiteral("%1: %2").arg(QFileInfo(shot.steps[k].from).fileName(),
                                                             e == ENOENT ? QStringLiteral("el archivo ya no está") : AtomicFile::describeErrno(e)));
            break;
        }
    }
    journal.state = FileOpJournal::State::placing;
    if (const QString e = journal.save(); !e.isEmpty()) {
        // Without a record of the second phase a crash could not finish it: undo the first.
        for (const FileOpShot &shot : std::as_const(journal.shots))
            FileOpMoves::restore(shot, out.savedAs);
        QFile::remove(journal.path());
        out.error = QStringLiteral("No se puede escribir el registro de la operación: %1.").arg(e);
        return out;
    }
    // Second phase: the new names.
    QList<FileOpShot> finished;
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        const FileOpShot &shot = journal.shots[i];
        if (shot.skipped)
            continue;
        const QString e = FileOpMoves::finish(shot, out.savedAs);
        for (qsizetype k = 0; k < shot.steps.size(); ++k)
            tick();
        if (!e.isEmpty()) {
            out.kept.append(oldNames[i]);
            out.messages.append(QStringLiteral("%1: %2").arg(oldNames[i], e));
            continue;
        }
        finished.append(shot);
        ++out.renamed;
        out.files += int(shot.steps.size());
    }
    for (const QString &folder : [&] {
             QSet<QString> f;
             for (const FileOpShot &s : std::as_const(journal.shots))
                 if (!s.steps.isEmpty())
                     f.insert(folderOf(s.steps.first().from));
             return f;
         }())
        FileIo::syncFolder(folder);
    FileOpMoves::moveMarks(finished);
    journal.state = FileOpJournal::State::marked;
    // Only what was renamed is taken back by an undo.
    journal.shots = finished;
    if (journal.save().isEmpty())
        journal.retire();
    else
        QFile::remove(journal.path());
    for (const FileOpShot &s : std::as_const(finished))
        out.mainFiles.append({s.steps.first().from, s.steps.first().to});
    return out;
}

FileOpShot shotOf(const QList<RenameMove> &moves, const QString &folder, const QString &id, int &n)
{
    FileOpShot shot;
    shot.folder = folder;
    for (const RenameMove &m : moves) {
        const QString temp = folderOf(m.from) + QStringLiteral("/.corvane-%1-%2.renaming").arg(id).arg(n++);
        shot.steps.append({m.from, temp, m.to});
    }
    if (!moves.isEmpty()) {
        shot.oldKey = MarksFile::keyFor(moves.first().from);
        shot.newKey = MarksFile::keyFor(moves.first().to);
    }
    return shot;
}

} // namespace

QString RenameOutcome::title() const
{
    if (!error.isEmpty() || (renamed == 0 && !kept.isEmpty()))
        return QStringLiteral("No se ha renombrado nada");
    if (!kept.isEmpty())
        return QStringLiteral("Renombrado con errores");
    return QStringLiteral("Renombrado completado");
}

QString RenameOutcome::body() const
{
    if (!error.isEmpty())
        return error;
    QString s;
    if (renamed > 0) {
        s = QStringLiteral("Se han renombrado %1 (%2 archivos, con sus parejas RAW/JPG y .xmp)")
                .arg(renamed == 1 ? QStringLiteral("1 imagen") : QStringLiteral("%1 imágenes").arg(renamed))
                .arg(files);
        if (kept.isEmpty())
            return s + QStringLiteral(". No ha habido ningún error y las marcas se han conservado.");
        s += QStringLiteral(". ");
    }
    if (kept.size() == 1)
        s += QStringLiteral("1 imagen no se ha podido renombrar y conserva %1.").arg(kept.first());
    else if (kept.size() > 1)
        s += QStringLiteral("%1 imágenes no se han podido renombrar y conservan %2.").arg(kept.size()).arg(kept.join(QStringLiteral(", ")));
    if (!savedAs.isEmpty())
        s += QStringLiteral(" No pudieron volver a su nombre y se han guardado como: %1.").arg(savedAs.join(QStringLiteral(", ")));
    return s;
}

namespace ShotRenamer {

QString runningText(int shots)
{
    return shots == 1 ? QStringLiteral("Renombrando 1 imagen…") : QStringLiteral("Renombrando %1 imágenes…").arg(shots);
}

RenameOutcome run(const RenamePlan &plan, const std::function<void(int, int)> &progress)
{
    FileOpJournal journal;
    journal.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    journal.op = QStringLiteral("rename");
    QStringList oldNames;
    int n = 0;
    for (const RenameRow &row : plan.rows) {
        if (!row.changed || !row.problem.isEmpty())
            continue;
        journal.shots.append(shotOf(row.moves, folderOf(row.moves.first().from), journal.id, n));
        oldNames.append(row.oldName);
    }
    if (journal.shots.isEmpty()) {
        RenameOutcome out;
        out.error = QStringLiteral("No hay nada que renombrar.");
        return out;
    }
    return execute(journal, oldNames, progress);
}

RenameOutcome undoLast(const std::function<void(int, int)> &progress)
{
    const auto last = FileOpJournal::last();
    if (!last || last->shots.isEmpty()) {
        RenameOutcome out;
        out.error = QStringLiteral("No hay ninguna operación con archivos que deshacer.");
        return out;
    }
    FileOpJournal journal;
    journal.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    journal.op = QStringLiteral("rename");
    QStringList oldNames;
    int n = 0;
    for (const FileOpShot &shot : last->shots) {
        QList<RenameMove> back;
        for (const FileOpStep &s : shot.steps)
            back.append({s.to, s.from});
        journal.shots.append(shotOf(back, shot.folder, journal.id, n));
        oldNames.append(baseOf(shot.steps.first().to));
    }
    FileOpJournal::forgetLast();
    return execute(journal, oldNames, progress);
}

} // namespace ShotRenamer
