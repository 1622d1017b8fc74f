#include "shottransfer.h"

#include "fileopmoves.h"
#include "renameplan.h"

#include "marks/marksfile.h"
#include "util/atomicfile.h"
#include "util/fileio.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>

namespace {

using Op = FileOpJournal::Op;
using FileOpMoves::baseOf;
using FileOpMoves::deviceOf;
using FileOpMoves::folderOf;

// NAME.NEF → NAME-2.NEF; NAME.NEF.xmp → NAME-2.NEF.xmp
QString withSuffix(const QString &name, const QString &base, const QString &suffix)
{
    if (suffix.isEmpty())
        return name;
    if (name.startsWith(base + QLatin1Char('.')))
        return base + suffix + name.mid(base.size());
    const qsizetype dot = name.indexOf(QLatin1Char('.'), 1);
    return dot < 0 ? name + suffix : name.left(dot) + suffix + name.mid(dot);
}

FileOpOutcome transfer(Op op, const QList<ShotTransfer::Shot> &shots, const QString &folder, bool verify,
                       const FileOpEngine::Progress &progress)
{
    FileOpOutcome early;
    early.op = op;
    early.destination = folder;
    if (const int e = FileIo::makePath(folder); e != 0) {
        early.error = QStringLiteral("No se puede usar la carpeta %1: %2.").arg(folder, AtomicFile::describeErrno(e));
        return early;
    }
    const QList<QList<ShotTransfer::Move>> moves = ShotTransfer::plan(shots, folder);
    FileOpJournal journal;
    journal.id = FileOpEngine::newId();
    journal.op = op;
    QStringList names;
    const dev_t destDevice = deviceOf(folder);
    int n = 0;
    for (qsizetype i = 0; i < shots.size(); ++i) {
        if (shots[i].isEmpty())
            continue;
        if (moves[i].isEmpty()) {
            early.kept.append(baseOf(shots[i].first()));
            early.messages.append(QStringLiteral("%1: ya está en esa carpeta").arg(baseOf(shots[i].first())));
            continue;
        }
        FileOpShot shot;
        shot.folder = folderOf(moves[i].first().from);
        shot.toFolder = folder;
        shot.oldKey = MarksFile::keyFor(moves[i].first().from);
        shot.newKey = MarksFile::keyFor(moves[i].first().to);
        shot.copies = op == Op::copy || deviceOf(shot.folder) != destDevice;
        for (const ShotTransfer::Move &m : moves[i])
            shot.steps.append({m.from, folder + QStringLiteral("/.corvane-%1-%2.%3").arg(journal.id).arg(n++).arg(op == Op::copy ? "copying" : "moving"), m.to});
        journal.shots.append(shot);
        names.append(baseOf(moves[i].first().from));
    }
    if (journal.shots.isEmpty()) {
        if (early.kept.isEmpty())
            early.error = QStringLiteral("No hay ninguna imagen que %1.").arg(op == Op::copy ? QStringLiteral("copiar") : QStringLiteral("mover"));
        return early;
    }
    FileOpOutcome out = FileOpEngine::run(journal, names, verify, progress);
    out.kept += early.kept;
    out.messages += early.messages;
    return out;
}

} // namespace

namespace ShotTransfer {

QList<QList<Move>> plan(const QList<Shot> &shots, const QString &folder)
{
    const QString target = QFileInfo(folder).canonicalFilePath();
    QSet<QString> taken;
    for (const QString &name : QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        taken.insert(name.toLower());
    QList<QList<Move>> all;
    for (const Shot &given : shots) {
        Shot shot;
        for (const QString &f : given)
            shot.append(QDir::cleanPath(QFileInfo(f).absoluteFilePath()));
        QList<Move> moves;
        if (shot.isEmpty() || (!target.isEmpty() && QFileInfo(folderOf(shot.first())).canonicalFilePath() == target)) {
            all.append(moves);
            continue;
        }
        const QStringList files = RenameShot::companions(shot);
        const QString base = baseOf(shot.first());
        for (int n = 1;; ++n) {
            const QString suffix = n == 1 ? QString() : QStringLiteral("-%1").arg(n);
            QStringList names;
            bool free = true;
            for (const QString &f : files) {
                names.append(withSuffix(QFileInfo(f).fileName(), base, suffix));
                free = free && !taken.contains(names.last().toLower());
            }
            if (!free)
                continue;
            for (qsizetype k = 0; k < files.size(); ++k) {
                taken.insert(names[k].toLower());
                moves.append({files[k], folder + QLatin1Char('/') + names[k]});
            }
            break;
        }
        all.append(moves);
    }
    return all;
}

FileOpOutcome copy(const QList<Shot> &shots, const QString &folder, bool verify, const FileOpEngine::Progress &progress)
{
    return transfer(Op::copy, shots, QDir::cleanPath(QDir(folder).absolutePath()), verify, progress);
}

FileOpOutcome move(const QList<Shot> &shots, const QString &folder, bool verify, const FileOpEngine::Progress &progress)
{
    return transfer(Op::move, shots, QDir::cleanPath(QDir(folder).absolutePath()), verify, progress);
}

FileOpOutcome trash(const QList<Shot> &shots, const FileOpEngine::Progress &progress)
{
    FileOpJournal journal;
    journal.id = FileOpEngine::newId();
    journal.op = Op::trash;
    QStringList names;
    for (const Shot &s : shots) {
        if (s.isEmpty())
            continue;
        FileOpShot shot;
        const QString main = QDir::cleanPath(QFileInfo(s.first()).absoluteFilePath());
        shot.folder = folderOf(main);
        shot.oldKey = MarksFile::keyFor(main);
        for (const QString &f : RenameShot::companions(s))
            shot.steps.append({QDir::cleanPath(QFileInfo(f).absoluteFilePath()), QString(), QString()});
        journal.shots.append(shot);
        names.append(baseOf(main));
    }
    if (journal.shots.isEmpty()) {
        FileOpOutcome out;
        out.op = Op::trash;
        out.error = QStringLiteral("No hay ninguna imagen que mover a la papelera.");
        return out;
    }
    return FileOpEngine::run(journal, names, false, progress);
}

QString runningText(FileOpJournal::Op op, int shots)
{
    const QString what = shotCount(shots);
    switch (op) {
    case Op::copy: return QStringLiteral("Copiando %1…").arg(what);
    case Op::move: return QStringLiteral("Moviendo %1…").arg(what);
    case Op::trash: return QStringLiteral("Moviendo %1 a la papelera…").arg(what);
    case Op::untrash: return QStringLiteral("Recuperando %1 de la papelera…").arg(what);
    case Op::rename: break;
    }
    return QStringLiteral("Renombrando %1…").arg(what);
}

} // namespace ShotTransfer
