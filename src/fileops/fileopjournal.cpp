#include "fileopjournal.h"

#include "fileopmoves.h"

#include "util/atomicfile.h"
#include "util/fileio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <algorithm>

namespace {

constexpr int kKeptFinished = 50;
constexpr qint64 kMaxJournalBytes = 64 * 1024 * 1024;

const std::pair<FileOpJournal::Op, const char *> kOps[] = {
    {FileOpJournal::Op::rename, "rename"}, {FileOpJournal::Op::move, "move"},   {FileOpJournal::Op::copy, "copy"},
    {FileOpJournal::Op::trash, "trash"},   {FileOpJournal::Op::untrash, "untrash"},
};

QString stateName(FileOpJournal::State s)
{
    switch (s) {
    case FileOpJournal::State::placing: return QStringLiteral("placing");
    case FileOpJournal::State::marked: return QStringLiteral("marked");
    case FileOpJournal::State::moving: break;
    }
    return QStringLiteral("moving");
}

QString folderOfPath(const QString &p) { return p.left(p.lastIndexOf(QLatin1Char('/'))); }

bool plainAbsolute(const QString &p)
{
    return p.startsWith(QLatin1Char('/')) && !p.contains(QLatin1String("/../")) && !p.endsWith(QLatin1String("/.."));
}

// Every name absolute; a temporary always in the folder of its final name, and a rename never
// leaves its folder: a journal can only ever send a file where the operation meant it to go.
bool stepIsSound(FileOpJournal::Op op, const FileOpStep &st)
{
    using Op = FileOpJournal::Op;
    if (!plainAbsolute(st.from))
        return false;
    switch (op) {
    case Op::rename:
        return plainAbsolute(st.to) && folderOfPath(st.from) == folderOfPath(st.temp) && folderOfPath(st.from) == folderOfPath(st.to);
    case Op::move:
    case Op::copy:
        return plainAbsolute(st.to) && plainAbsolute(st.temp) && folderOfPath(st.temp) == folderOfPath(st.to);
    case Op::trash:
        return st.temp.isEmpty() && (st.to.isEmpty() || plainAbsolute(st.to));
    case Op::untrash:
        return st.temp.isEmpty() && plainAbsolute(st.to);
    }
    return false;
}

QString doneFolder() { return FileOpJournal::folder() + QStringLiteral("/done"); }

std::optional<FileOpJournal> readJournal(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() > kMaxJournalBytes)
        return std::nullopt;
    return FileOpJournal::decode(f.readAll());
}

QString opWords(FileOpJournal::Op op)
{
    switch (op) {
    case FileOpJournal::Op::move: return QStringLiteral("un traslado");
    case FileOpJournal::Op::copy: return QStringLiteral("una copia");
    case FileOpJournal::Op::trash: return QStringLiteral("un envío a la papelera");
    case FileOpJournal::Op::untrash: return QStringLiteral("una recuperación de la papelera");
    case FileOpJournal::Op::rename: break;
    }
    return QStringLiteral("un renombrado");
}

// Puts right one interrupted operation; adds what it did to `r`.
void recoverOne(FileOpJournal &j, FileOpJournal::Recovery &r)
{
    using Op = FileOpJournal::Op;
    QList<FileOpShot> finished;
    for (const FileOpShot &shot : std::as_const(j.shots)) {
        if (j.op == Op::trash) {
            // A shot whose trashing had begun goes to the trash whole; the others stay.
            const bool begun = std::any_of(shot.steps.begin(), shot.steps.end(), [](const FileOpStep &s) { return !FileOpMoves::exists(s.from); });
            if (!begun)
                continue;
            for (const FileOpStep &s : shot.steps) {
                QString where;
                FileOpMoves::trash(s.from, where);
            }
            finished.append(shot);
            ++r.finished;
        } else if (j.op == Op::untrash) {
            bool any = false;
            for (const FileOpStep &s : shot.steps)
                if (FileOpMoves::exists(s.from)) {
                    FileOpMoves::untrash(s.from, s.to, r.savedAs);
                    any = true;
                }
            if (any) {
                finished.append(shot);
                ++r.finished;
            }
        } else if (j.state == FileOpJournal::State::moving || shot.skipped) {
            const bool touched = std::any_of(shot.steps.begin(), shot.steps.end(), [](const FileOpStep &s) { return FileOpMoves::exists(s.temp); });
            FileOpMoves::restore(shot, r.savedAs);
            r.restored += touched ? 1 : 0;
        } else if (j.state == FileOpJournal::State::placing) {
            if (FileOpMoves::finish(shot, r.savedAs).isEmpty()) {
                if (j.op == Op::move && shot.copies)
                    FileOpMoves::removeOriginals(shot);
                finished.append(shot);
                ++r.finished;
            } else {
                ++r.restored;
            }
        } else if (j.op == Op::move && shot.copies) {
            FileOpMoves::removeOriginals(shot);   // marked: only the originals may be left
        }
    }
    if (j.state != FileOpJournal::State::marked)
        FileOpMoves::moveMarks(j.op, finished);
    if (!finished.isEmpty() || r.restored > 0)
        r.ops.append(opWords(j.op));
}

} // namespace

QString FileOpJournal::opName(Op op)
{
    for (const auto &[o, name] : kOps)
        if (o == op)
            return QLatin1String(name);
    return {};
}

QByteArray FileOpJournal::encode() const
{
    QJsonArray shotList;
    for (const FileOpShot &s : shots) {
        QJsonArray steps;
        for (const FileOpStep &st : s.steps)
            steps.append(QJsonObject{{"from", st.from}, {"temp", st.temp}, {"to", st.to}});
        QJsonObject o{{"steps", steps}, {"folder", s.folder}, {"oldKey", s.oldKey}, {"newKey", s.newKey}, {"skipped", s.skipped}};
        if (!s.toFolder.isEmpty())
            o.insert("toFolder", s.toFolder);
        if (s.copies)
            o.insert("copies", true);
        if (s.marks)
            o.insert("marks", s.marks->toJson());
        shotList.append(o);
    }
    const QJsonObject root{{"app", "Corvane"}, {"version", 1}, {"id", id}, {"op", opName(op)},
                           {"state", stateName(state)}, {"shots", shotList}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

std::optional<FileOpJournal> FileOpJournal::decode(const QByteArray &data, int limit)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject root = doc.object();
    if (root.value("app").toString() != QLatin1String("Corvane") || root.value("version").toInt() != 1)
        return std::nullopt;
    FileOpJournal j;
    j.id = root.value("id").toString();
    const QString op = root.value("op").toString();
    const auto known = std::find_if(std::begin(kOps), std::end(kOps), [&](const auto &o) { return op == QLatin1String(o.second); });
    if (known == std::end(kOps))
        return std::nullopt;
    j.op = known->first;
    const QString state = root.value("state").toString();
    if (state == QLatin1String("moving"))
        j.state = State::moving;
    else if (state == QLatin1String("placing"))
        j.state = State::placing;
    else if (state == QLatin1String("marked"))
        j.state = State::marked;
    else
        return std::nullopt;
    if (!root.value("shots").isArray())
        return std::nullopt;
    int steps = 0;
    for (const QJsonValue &sv : root.value("shots").toArray()) {
        if (!sv.isObject())
            return std::nullopt;
        const QJsonObject so = sv.toObject();
        FileOpShot shot;
        shot.folder = so.value("folder").toString();
        shot.toFolder = so.value("toFolder").toString();
        shot.oldKey = so.value("oldKey").toString();
        shot.newKey = so.value("newKey").toString();
        shot.skipped = so.value("skipped").toBool();
        shot.copies = so.value("copies").toBool();
        if (so.value("marks").isObject())
            shot.marks = Marks::fromJson(so.value("marks").toObject());
        if (!so.value("steps").isArray())
            return std::nullopt;
        for (const QJsonValue &stv : so.value("steps").toArray()) {
            if (++steps > limit)
                return std::nullopt;
            const QJsonObject o = stv.toObject();
            FileOpStep st{o.value("from").toString(), o.value("temp").toString(), o.value("to").toString()};
            if (!stepIsSound(j.op, st))
                return std::nullopt;
            shot.steps.append(st);
        }
        j.shots.append(shot);
    }
    return j;
}

QString FileOpJournal::folder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/journal");
}

QString FileOpJournal::path() const { return folder() + QLatin1Char('/') + id + QStringLiteral(".json"); }

QString FileOpJournal::save() const
{
    if (const int e = FileIo::makePath(folder()); e != 0)
        return AtomicFile::describeErrno(e);
    return AtomicFile::write(path(), encode()).error;
}

void FileOpJournal::retire() const
{
    const QDir done(doneFolder());
    if (FileIo::makePath(done.path()) != 0 || !QFile::rename(path(), done.filePath(id + QStringLiteral(".json")))) {
        QFile::remove(path());
        return;
    }
    FileIo::syncFolder(folder());
    // Undo reaches back a few dozen operations; older records go.
    const QStringList all = done.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Time);
    for (qsizetype i = kKeptFinished; i < all.size(); ++i)
        QFile::remove(done.filePath(all[i]));
}

std::optional<FileOpJournal> FileOpJournal::finished(const QString &id)
{
    const QDir done(doneFolder());
    if (!id.isEmpty())
        return readJournal(done.filePath(id + QStringLiteral(".json")));
    const QStringList all = done.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Time);
    return all.isEmpty() ? std::nullopt : readJournal(done.filePath(all.first()));
}

void FileOpJournal::forget(const QString &id)
{
    QFile::remove(QDir(doneFolder()).filePath(id + QStringLiteral(".json")));
}

QString FileOpJournal::Recovery::sentence() const
{
    if (finished + restored == 0 && savedAs.isEmpty() && unreadable.isEmpty())
        return {};
    if (!unreadable.isEmpty())
        return QStringLiteral("Una operación con archivos quedó a medias y su registro no se puede leer: se ha dejado en %1 para revisarlo.")
            .arg(unreadable.first());
    QString s = QStringLiteral("Corvane se cerró en mitad de %1: %2 imágenes han quedado en su sitio nuevo y %3 como estaban.")
                    .arg(ops.isEmpty() ? QStringLiteral("una operación con archivos") : ops.first())
                    .arg(finished)
                    .arg(restored);
    if (ops.size() == 1 && ops.first() == QLatin1String("un renombrado"))
        s = QStringLiteral("Corvane se cerró en mitad de un renombrado: %1 imágenes han quedado con el nombre nuevo y %2 con el anterior.")
                .arg(finished)
                .arg(restored);
    if (!savedAs.isEmpty())
        s += QStringLiteral(" %1 archivos no pudieron volver a su nombre: %2.").arg(savedAs.size()).arg(savedAs.join(QStringLiteral(", ")));
    return s;
}

FileOpJournal::Recovery FileOpJournal::recoverAll()
{
    Recovery r;
    const QDir dir(folder());
    for (const QString &name : dir.entryList({QStringLiteral("*.json")}, QDir::Files)) {
        if (name == QLatin1String("last.json"))
            continue;   // an early version's finished operation, not a running one
        std::optional<FileOpJournal> j = readJournal(dir.filePath(name));
        if (!j || j->id + QStringLiteral(".json") != name) {
            // Left for inspection under a name that is not looked at again.
            const QString aside = dir.filePath(name + QStringLiteral(".ilegible"));
            QFile::rename(dir.filePath(name), aside);
            r.unreadable.append(aside);
            continue;
        }
        recoverOne(*j, r);
        QFile::remove(j->path());
        FileIo::syncFolder(folder());
    }
    return r;
}
