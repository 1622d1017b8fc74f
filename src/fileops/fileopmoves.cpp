#include "fileopmoves.h"

#include "ingest/sha256.h"
#include "marks/marksfile.h"
#include "util/atomicfile.h"
#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray fsName(const QString &path) { return QFile::encodeName(path); }

QString describe(int e) { return e == ENOENT ? QStringLiteral("el archivo ya no está") : AtomicFile::describeErrno(e); }

// The kernel copies (and shares blocks where the file system can) without the data passing
// through here; a plain read/write loop where it cannot (older kernels across file systems).
int copyData(int from, int to, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const ssize_t n = ::copy_file_range(from, nullptr, to, nullptr, size_t(size - done), 0);
        if (n > 0) {
            done += n;
            continue;
        }
        if (n == 0)
            break;   // the file got shorter meanwhile: the size check says so
        if (errno == EINTR)
            continue;
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
            return errno;
        const std::unique_ptr<char[]> buffer(new char[1 << 20]);
        for (;;) {
            const qint64 r = FileIo::readFully(from, buffer.get(), 1 << 20);
            if (r < 0)
                return errno;
            if (r == 0)
                return 0;
            if (!FileIo::writeFully(to, buffer.get(), r))
                return errno;
        }
    }
    return 0;
}

QString copyOnce(const QString &from, const QString &to, bool verify, bool &created)
{
    const UniqueFd src(::open(fsName(from).constData(), O_RDONLY | O_CLOEXEC));
    if (!src)
        return describe(errno);
    struct stat st {};
    if (::fstat(src.get(), &st) != 0)
        return describe(errno);
    UniqueFd dst(::open(fsName(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, (st.st_mode & 0777) | S_IWUSR));
    if (!dst)
        return describe(errno);
    created = true;
    if (const int e = copyData(src.get(), dst.get(), st.st_size); e != 0)
        return describe(e);
    if (::fsync(dst.get()) != 0)
        return describe(errno);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ::futimens(dst.get(), times);   // a file system that cannot keep the time still has the data
    ::fchmod(dst.get(), st.st_mode & 0777);
    struct stat copied {};
    if (::fstat(dst.get(), &copied) != 0)
        return describe(errno);
    if (const int e = dst.close(); e != 0)
        return describe(e);
    if (copied.st_size != st.st_size)
        return QStringLiteral("la copia no tiene el tamaño del original");
    if (verify) {
        const QByteArray a = Sha256::ofFile(from, false).digest;
        const QByteArray b = Sha256::ofFile(to, true).digest;
        if (a.isEmpty() || a != b)
            return QStringLiteral("la copia no es igual al original");
    }
    return {};
}

// `temp` back to `from`, or beside it when something took that name meanwhile.
void placeBack(const FileOpStep &step, QStringList &savedAs)
{
    if (!FileOpMoves::exists(step.temp))
        return;
    if (FileIo::renameNoReplace(step.temp, step.from) == 0)
        return;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString beside = FileOpMoves::freeNameBeside(step.from);
        if (FileIo::renameNoReplace(step.temp, beside) == 0) {
            savedAs.append(beside);
            return;
        }
    }
    savedAs.append(step.temp);   // left under the temporary name, which the journal names
}

qint64 sizeOf(const QString &path)
{
    struct stat st {};
    return ::lstat(fsName(path).constData(), &st) == 0 ? qint64(st.st_size) : -1;
}

// <trash>/files/NAME → <trash>/info/NAME.trashinfo
QString trashInfoOf(const QString &where)
{
    const QFileInfo f(where);
    return f.dir().absoluteFilePath(QStringLiteral("../info/%1.trashinfo").arg(f.fileName()));
}

} // namespace

namespace FileOpMoves {

QString folderOf(const QString &path) { return path.left(path.lastIndexOf(QLatin1Char('/'))); }

QString baseOf(const QString &path)
{
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.left(dot) : name;
}

dev_t deviceOf(const QString &path)
{
    struct stat st {};
    return ::stat(fsName(path).constData(), &st) == 0 ? st.st_dev : dev_t(-1);
}

bool exists(const QString &path)
{
    struct stat st {};
    return ::lstat(fsName(path).constData(), &st) == 0;
}

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

QString copyFile(const QString &from, const QString &to, bool verify)
{
    bool created = false;
    const QString error = copyOnce(from, to, verify, created);
    if (!error.isEmpty() && created)
        ::unlink(fsName(to).constData());
    return error;
}

void restore(const FileOpShot &shot, QStringList &savedAs)
{
    for (const FileOpStep &s : shot.steps) {
        if (shot.copies)
            ::unlink(fsName(s.temp).constData());   // a copy (whole or partial): the original is untouched
        else
            placeBack(s, savedAs);
    }
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
        // The whole shot goes back: the files already placed return to their temporaries first,
        // so a name another shot of the batch gave up is never needed twice.
        for (qsizetype k = 0; k < i; ++k)
            if (!exists(shot.steps[k].temp))
                FileIo::renameNoReplace(shot.steps[k].to, shot.steps[k].temp);
        restore(shot, savedAs);
        return e == EEXIST ? QStringLiteral("%1 ya existe en la carpeta").arg(QFileInfo(s.to).fileName()) : describe(e);
    }
    return {};
}

void removeOriginals(const FileOpShot &shot)
{
    QSet<QString> folders;
    for (const FileOpStep &s : shot.steps) {
        const qint64 size = sizeOf(s.from);
        if (size >= 0 && size == sizeOf(s.to) && !exists(s.temp)) {
            ::unlink(fsName(s.from).constData());
            folders.insert(QFileInfo(s.from).absolutePath());
        }
    }
    for (const QString &f : std::as_const(folders))
        FileIo::syncFolder(f);
}

QString trash(const QString &path, QString &where)
{
    if (!exists(path))
        return describe(ENOENT);
    if (QFile::moveToTrash(path, &where))
        return {};
    // Qt does not say why; the folder's permissions are the usual reason.
    return QFileInfo(QFileInfo(path).absolutePath()).isWritable()
               ? QStringLiteral("no se puede mover a la papelera en este disco")
               : AtomicFile::describeErrno(EACCES);
}

QString untrash(const QString &where, const QString &to, QStringList &savedAs)
{
    if (!exists(where))
        return QStringLiteral("%1 ya no está en la papelera").arg(QFileInfo(to).fileName());
    FileIo::makePath(QFileInfo(to).absolutePath());
    int e = FileIo::renameNoReplace(where, to);
    if (e == EEXIST) {
        const QString beside = freeNameBeside(to);
        e = FileIo::renameNoReplace(where, beside);
        if (e == 0)
            savedAs.append(beside);
    }
    if (e != 0)
        return describe(e);
    QFile::remove(trashInfoOf(where));
    return {};
}

QString moveMarks(FileOpJournal::Op op, const QList<FileOpShot> &finished)
{
    using Op = FileOpJournal::Op;
    const bool leaves = op == Op::rename || op == Op::move || op == Op::trash;
    const bool arrives = op == Op::rename || op == Op::move || op == Op::copy || op == Op::untrash;
    struct Change {
        MarksMap ours;
        QSet<QString> changed;
    };
    QHash<QString, Change> byFolder;
    for (const FileOpShot &s : finished) {
        const QString to = s.toFolder.isEmpty() ? s.folder : s.toFolder;
        if (op == Op::rename && s.oldKey == s.newKey)
            continue;
        if (leaves)
            byFolder[s.folder].changed.insert(s.oldKey);
        if (arrives && !s.newKey.isEmpty()) {
            Change &c = byFolder[to];
            c.changed.insert(s.newKey);
            if (s.marks && !s.marks->isEmpty())
                c.ours.insert(s.newKey, *s.marks);
        }
    }
    QString error;
    for (auto it = byFolder.cbegin(); it != byFolder.cend(); ++it)
        if (const QString e = MarksFile::saveChanges(it.key(), it->ours, it->changed, std::nullopt); !e.isEmpty())
            error = e;
    return error;
}

} // namespace FileOpMoves
