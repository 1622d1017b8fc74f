#include "fileopjournal.h"

#include "marks/marksfile.h"
#include "util/atomicfile.h"
#include "util/fileio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <cerrno>

namespace {

QString stateName(FileOpJournal::State s)
{
    switch (s) {
    case FileOpJournal::State::placing: return QStringLiteral("placing");
    case FileOpJournal::State::marked: return QStringLiteral("marked");
    case FileOpJournal::State::moving: break;
    }
    return QStringLiteral("moving");
}

bool exists(const QString &path) { return QFileInfo::exists(path) || QFileInfo(path).isSymLink(); }

// A free name beside `path`: NAME-2.EXT, NAME-3.EXT…
QString freeNameBeside(const QString &path)
{
    const QFileInfo info(path);
    const QString base = info.completeBaseName(), ext = info.suffix();
    for (int n = 2;; ++n) {
        const QString candidate = info.dir().filePath(ext.isEmpty() ? QStringLiteral("%1-%2").arg(base).arg(n)
                                                                    : QStringLiteral("%1-%2.%3").arg(base).arg(n).arg(ext));
        if (!exists(candidate))
            return candidate;
    }
}

// `temp` back to `from`, or beside it when something took that name meanwhile.
void placeBack(const FileOpStep &step, QStringList &savedAs)
{
    if (!exists(step.temp))
        return;
    if (FileIo::renameNoReplace(step.temp, step.from) == 0)
        return;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString beside = freeNameBeside(step.from);
        if (FileIo::renameNoReplace(step.temp, beside) == 0) {
            savedAs.append(beside);
            return;
        }
    }
    savedAs.append(step.temp);   // left under the temporary name, which the journal names
}

QString folderOfPath(const QString &p) { return p.left(p.lastIndexOf(QLatin1Char('/'))); }

} // namespace

QByteArray FileOpJournal::encode() const
{
    QJsonArray shotList;
    for (const FileOpShot &s : shots) {
        QJsonArray steps;
        for (const FileOpStep &st : s.steps)
            steps.append(QJsonObject{{"from", st.from}, {"temp", st.temp}, {"to", st.to}});
        QJsonObject o{{"steps", steps}, {"folder", s.folder}, {"oldKey", s.oldKey}, {"newKey", s.newKey}, {"skipped", s.skipped}};
        if (s.marks)
            o.insert("marks", s.marks->toJson());
        shotList.append(o);
    }
    const QJsonObject root{{"app", "Corvane"}, {"version", 1}, {"id", id}, {"op", op},
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
    j.op = root.value("op").toString();
    const QString state = root.value("state").toString();
    if (state == QLatin1String("moving"))
        j.state = State::moving;
    else if (state == QLatin1String("placing"))
        j.state = State::placing;
    else if (state == QLatin1String("marked"))
        j.state = State::marked;
    else
        return std::nullopt;
    if (j.op != QLatin1String("rename") || !root.value("shots").isArray())
        return std::nullopt;
    int steps = 0;
    for (const QJsonValue &sv : root.value("shots").toArray()) {
        if (!sv.isObject())
            return std::nullopt;
        const QJsonObject so = sv.toObject();
        FileOpShot shot;
        shot.folder = so.value("folder").toString();
        shot.oldKey = so.value("oldKey").toString();
        shot.newKey = so.value("newKey").toString();
        shot.skipped = so.value("skipped").toBool();
        if (so.value("marks").isObject())
            shot.marks = Marks::fromJson(so.value("marks").toObject());
        if (!so.value("steps").isArray())
            return std::nullopt;
        for (const QJsonValue &stv : so.value("steps").toArray()) {
            if (++steps > limit)
                return std::nullopt;
            const QJsonObject o = stv.toObject();
            FileOpStep st{o.value("from").toString(), o.value("temp").toString(), o.value("to").toString()};
            // Every name absolute and in one folder: a journal never sends a file elsewhere.
            if (!st.from.startsWith(QLatin1Char('/')) || folderOfPath(st.from) != folderOfPath(st.temp)
                || folderOfPath(st.from) != folderOfPath(st.to) || st.from.contains(QLatin1String("/../")))
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
    const QString last = folder() + QStringLiteral("/last.json");
    if (::rename(QFile::encodeName(path()).constData(), QFile::encodeName(last).constData()) == 0)
        FileIo::syncFolder(folder());
}

std::optional<FileOpJournal> FileOpJournal::last()
{
    QFile f(folder() + QStringLiteral("/last.json"));
    if (!f.open(QIODevice::ReadOnly) || f.size() > 64 * 1024 * 1024)
        return std::nullopt;
    return decode(f.readAll());
}

void FileOpJournal::forgetLast() { QFile::remove(folder() + QStringLiteral("/last.json")); }

QString FileOpJournal::Recovery::sentence() const
{
    if (finished + restored == 0 && savedAs.isEmpty() && unreadable.isEmpty())
        return {};
    if (!unreadable.isEmpty())
        return QStringLiteral("Una operación con archivos quedó a medias y su registro no se puede leer: se ha dejado en %1 para revisarlo.")
            .arg(unreadable.first());
    QString s = QStringLiteral("Corvane se cerró en mitad de un renombrado: %1 imágenes han quedado con el nombre nuevo y %2 con el anterior.")
                    .arg(finished).arg(restored);
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
            continue;
        QFile f(dir.filePath(name));
        std::optional<FileOpJournal> j;
        if (f.open(QIODevice::ReadOnly) && f.size() <= 64 * 1024 * 1024)
            j = decode(f.readAll());
        f.close();
        if (!j || j->id + QStringLiteral(".json") != name) {
            // Left for inspection under a name that is not looked at again.
            const QString aside = dir.filePath(name + QStringLiteral(".ilegible"));
            QFile::rename(dir.filePath(name), aside);
            r.unreadable.append(aside);
            continue;
        }
        QList<FileOpShot> finished;
        for (const FileOpShot &shot : std::as_const(j->shots)) {
            if (j->state == State::moving || shot.skipped) {
                const bool touched = std::any_of(shot.steps.begin(), shot.steps.end(), [](const FileOpStep &s) { return exists(s.temp); });
                FileOpMoves::restore(shot, r.savedAs);
                r.restored += touched ? 1 : 0;
            } else if (j->state == State::placing) {
                if (FileOpMoves::finish(shot, r.savedAs).isEmpty()) {
                    finished.append(shot);
                    ++r.finished;
                } else {
                    ++r.restored;
                }
            }
        }
        if (j->state == State::placing)
            FileOpMoves::moveMarks(finished);
        j->state = State::marked;
        QFile::remove(j->path());
        FileIo::syncFolder(folder());
    }
    return r;
}

namespace FileOpMoves {

void restore(const FileOpShot &shot, QStringList &savedAs)
{
    for (const FileOpStep &s : shot.steps)
        placeBack(s, savedAs);
}

QString finish(const FileOpShot &shot, QStringList &savedAs)
{
    for (qsizetype i = 0; i < shot.steps.size(); ++i) {
        const FileOpStep &s = shot.steps[i];
        if (!exists(s.temp))
            continue;   // given its name before a crash
        const int e = FileIo::renameNoReplace(s.temp, s.to);
        if (e == 0)
            continue;
        // The whole shot goes back: the files already renamed return to their temporaries first,
        // so a name another shot of the batch gave up is never needed twice.
        for (qsizetype k = 0; k < i; ++k)
            if (!exists(shot.steps[k].temp))
                FileIo::renameNoReplace(shot.steps[k].to, shot.steps[k].temp);
        restore(shot, savedAs);
        return e == EEXIST ? QStringLiteral("%1 ya existe en la carpeta").arg(QFileInfo(s.to).fileName())
                           : AtomicFile::describeErrno(e);
    }
    return {};
}

QString moveMarks(const QList<FileOpShot> &finished)
{
    QHash<QString, QList<const FileOpShot *>> byFolder;
    for (const FileOpShot &s : finished)
        if (s.oldKey != s.newKey)
            byFolder[s.folder].append(&s);
    QString error;
    for (auto it = byFolder.cbegin(); it != byFolder.cend(); ++it) {
        MarksMap ours;
        QSet<QString> changed;
        for (const FileOpShot *s : it.value()) {
            changed.insert(s->oldKey);
            changed.insert(s->newKey);
            if (s->marks && !s->marks->isEmpty())
                ours.insert(s->newKey, *s->marks);
        }
        if (const QString e = MarksFile::saveChanges(it.key(), ours, changed, std::nullopt); !e.isEmpty())
            error = e;
    }
    return error;
}

} // namespace FileOpMoves
