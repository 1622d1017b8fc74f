#include "fileopengine.h"

#include "fileopmoves.h"

#include "marks/marksfile.h"
#include "util/atomicfile.h"
#include "util/fileio.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QUuid>

#include <sys/stat.h>

namespace {

using Op = FileOpJournal::Op;
using FileOpMoves::baseOf;
using FileOpMoves::deviceOf;
using FileOpMoves::folderOf;

void syncFolders(const FileOpJournal &journal)
{
    QSet<QString> folders;
    for (const FileOpShot &s : journal.shots)
        for (const FileOpStep &st : s.steps) {
            folders.insert(folderOf(st.from));
            if (!st.to.isEmpty())
                folders.insert(folderOf(st.to));
        }
    for (const QString &f : std::as_const(folders))
        FileIo::syncFolder(f);
}

struct Ticker {
    const FileOpEngine::Progress &progress;
    int total = 0, done = 0;
    void operator()(int n = 1)
    {
        done += n;
        if (progress)
            progress(done, total);
    }
};

void fail(FileOpOutcome &out, const QString &name, const QString &why)
{
    out.kept.append(name);
    out.messages.append(QStringLiteral("%1: %2").arg(name, why));
}

// Each shot's file after file to the trash; a shot whose second file will not go takes its first
// back out, so that no shot is ever half in the trash.
QList<FileOpShot> runTrash(FileOpJournal &journal, const QStringList &names, FileOpOutcome &out, Ticker &tick)
{
    QList<FileOpShot> finished;
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        FileOpShot &shot = journal.shots[i];
        QString error;
        qsizetype k = 0;
        for (; k < shot.steps.size() && error.isEmpty(); ++k) {
            error = FileOpMoves::trash(shot.steps[k].from, shot.steps[k].to);
            tick();
        }
        if (error.isEmpty()) {
            finished.append(shot);
            ++out.done;
            out.files += int(shot.steps.size());
            continue;
        }
        for (qsizetype back = 0; back + 1 < k; ++back)
            FileOpMoves::untrash(shot.steps[back].to, shot.steps[back].from, out.savedAs);
        fail(out, names[i], error);
    }
    return finished;
}

QList<FileOpShot> runUntrash(FileOpJournal &journal, const QStringList &names, FileOpOutcome &out, Ticker &tick)
{
    QList<FileOpShot> finished;
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        const FileOpShot &shot = journal.shots[i];
        QStringList errors;
        for (const FileOpStep &s : shot.steps) {
            if (const QString e = FileOpMoves::untrash(s.from, s.to, out.savedAs); !e.isEmpty())
                errors.append(e);
            tick();
        }
        if (errors.size() == shot.steps.size()) {
            fail(out, names[i], errors.first());
            continue;
        }
        if (!errors.isEmpty())
            out.messages.append(QStringLiteral("%1: %2").arg(names[i], errors.join(QStringLiteral("; "))));
        finished.append(shot);
        ++out.done;
        out.files += int(shot.steps.size() - errors.size());
    }
    return finished;
}

// Rename, move and copy: every name given up into a temporary one (or a copy made there), the
// journal synced again, then every new name given.
QList<FileOpShot> runTwoPhases(FileOpJournal &journal, const QStringList &names, bool verify, FileOpOutcome &out, Ticker &tick, bool &journalLost)
{
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        FileOpShot &shot = journal.shots[i];
        for (qsizetype k = 0; k < shot.steps.size(); ++k) {
            const FileOpStep &st = shot.steps[k];
            const QString e = shot.copies ? FileOpMoves::copyFile(st.from, st.temp, verify)
                                          : [&] {
                                                const int err = FileIo::renameNoReplace(st.from, st.temp);
                                                return err == 0 ? QString()
                                                       : err == ENOENT ? QStringLiteral("el archivo ya no está")
                                                                       : AtomicFile::describeErrno(err);
                                            }();
            tick();
            if (e.isEmpty())
                continue;
            shot.skipped = true;
            FileOpMoves::restore(shot, out.savedAs);
            out.kept.append(names[i]);
            out.messages.append(QStringLiteral("%1: %2").arg(QFileInfo(st.from).fileName(), e));
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
        journalLost = true;
        return {};
    }
    QList<FileOpShot> finished;
    for (qsizetype i = 0; i < journal.shots.size(); ++i) {
        const FileOpShot &shot = journal.shots[i];
        if (shot.skipped)
            continue;
        const QString e = FileOpMoves::finish(shot, out.savedAs);
        tick(int(shot.steps.size()));
        if (!e.isEmpty()) {
            fail(out, names[i], e);
            continue;
        }
        finished.append(shot);
        ++out.done;
        out.files += int(shot.steps.size());
    }
    syncFolders(journal);
    // A move between disks: the originals go only once every copy is in place and on the disk.
    if (journal.op == Op::move)
        for (const FileOpShot &shot : std::as_const(finished))
            if (shot.copies)
                FileOpMoves::removeOriginals(shot);
    return finished;
}

// Copies are removed only while their originals are still there, with the same size: undoing a
// copy never loses the only copy of a shot.
FileOpOutcome removeCopies(const FileOpJournal &done)
{
    FileOpOutcome out;
    out.op = Op::copy;
    out.undo = true;
    if (!done.shots.isEmpty())
        out.destination = done.shots.first().toFolder;
    QList<FileOpShot> removed;
    for (const FileOpShot &shot : done.shots) {
        bool all = true;
        for (const FileOpStep &s : shot.steps) {
            QFileInfo original(s.from), copy(s.to);
            if (!copy.exists())
                continue;
            if (!original.exists() || original.size() != copy.size() || !QFile::remove(s.to))
                all = false;
            else
                ++out.files;
        }
        if (all) {
            removed.append(shot);
            ++out.done;
        } else {
            fail(out, baseOf(shot.steps.first().to), QStringLiteral("la copia se conserva porque el original ya no está igual"));
        }
    }
    FileOpMoves::moveMarks(Op::trash, [&] {
        // The copies' marks leave their folder as a trashed shot's would.
        QList<FileOpShot> gone = removed;
        for (FileOpShot &s : gone) {
            s.folder = s.toFolder;
            s.oldKey = s.newKey;
        }
        return gone;
    }());
    return out;
}

FileOpShot reversed(const FileOpShot &shot, const QString &id, int &n)
{
    FileOpShot back;
    back.folder = shot.toFolder.isEmpty() ? shot.folder : shot.toFolder;
    back.toFolder = shot.toFolder.isEmpty() ? QString() : shot.folder;
    back.oldKey = shot.newKey;
    back.newKey = shot.oldKey;
    for (const FileOpStep &s : shot.steps)
        back.steps.append({s.to, folderOf(s.from) + QStringLiteral("/.corvane-%1-%2.returning").arg(id).arg(n++), s.from});
    if (!back.steps.isEmpty() && !back.toFolder.isEmpty())
        back.copies = deviceOf(folderOf(back.steps.first().from)) != deviceOf(back.toFolder);
    return back;
}

} // namespace

namespace FileOpEngine {

QString newId() { return QUuid::createUuid().toString(QUuid::WithoutBraces); }

FileOpOutcome run(FileOpJournal journal, const QStringList &names, bool verify, const Progress &progress)
{
    FileOpOutcome out;
    out.op = journal.op;
    if (!journal.shots.isEmpty() && !journal.shots.first().toFolder.isEmpty())
        out.destination = journal.shots.first().toFolder;
    Ticker tick{progress};
    for (const FileOpShot &s : std::as_const(journal.shots))
        tick.total += int(s.steps.size()) * (journal.op == Op::trash || journal.op == Op::untrash ? 1 : 2);

    // The marks travel in the journal, so setting them again after a crash changes nothing (an
    // untrash brings those the trash took).
    if (journal.op != Op::untrash) {
        QHash<QString, MarksMap> marksOf;
        for (FileOpShot &shot : journal.shots) {
            if (!marksOf.contains(shot.folder))
                marksOf.insert(shot.folder, MarksFile::load(shot.folder).value_or(MarksFile{}).marks);
            if (const auto m = marksOf[shot.folder].constFind(shot.oldKey); m != marksOf[shot.folder].constEnd())
                shot.marks = *m;
        }
    }
    if (const QString e = journal.save(); !e.isEmpty()) {
        out.error = QStringLiteral("No se puede escribir el registro de la operación: %1.").arg(e);
        return out;
    }
    QList<FileOpShot> finished;
    bool journalLost = false;
    if (journal.op == Op::trash)
        finished = runTrash(journal, names, out, tick);
    else if (journal.op == Op::untrash)
        finished = runUntrash(journal, names, out, tick);
    else
        finished = runTwoPhases(journal, names, verify, out, tick, journalLost);
    if (journalLost)
        return out;
    FileOpMoves::moveMarks(journal.op, finished);
    journal.state = FileOpJournal::State::marked;
    // Only what was done is taken back by an undo.
    journal.shots = finished;
    if (!finished.isEmpty() && journal.op != Op::untrash && journal.save().isEmpty()) {
        journal.retire();
        out.id = journal.id;
    } else {
        QFile::remove(journal.path());
    }
    for (const FileOpShot &s : std::as_const(finished))
        out.mainFiles.append({s.steps.first().from, s.steps.first().to});
    return out;
}

FileOpOutcome undo(const QString &id, const Progress &progress)
{
    const auto done = FileOpJournal::finished(id);
    if (!done || done->shots.isEmpty()) {
        FileOpOutcome out;
        out.undo = true;
        out.error = QStringLiteral("No hay ninguna operación con archivos que deshacer.");
        return out;
    }
    FileOpJournal::forget(done->id);
    if (done->op == Op::copy)
        return removeCopies(*done);

    FileOpJournal journal;
    journal.id = newId();
    journal.op = done->op == Op::trash ? Op::untrash : done->op;
    QStringList names;
    int n = 0;
    for (const FileOpShot &shot : done->shots) {
        if (done->op == Op::trash) {
            FileOpShot back = shot;
            back.newKey = shot.oldKey;
            back.steps.clear();
            for (const FileOpStep &s : shot.steps)
                back.steps.append({s.to, QString(), s.from});
            journal.shots.append(back);
        } else {
            journal.shots.append(reversed(shot, journal.id, n));
        }
        names.append(baseOf(shot.steps.first().from));
    }
    FileOpOutcome out = run(journal, names, false, progress);
    out.undo = true;
    out.op = done->op;
    // An undo is not itself undone.
    if (!out.id.isEmpty())
        FileOpJournal::forget(out.id);
    out.id.clear();
    return out;
}

} // namespace FileOpEngine
