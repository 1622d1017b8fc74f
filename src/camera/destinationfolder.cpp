#include "destinationfolder.h"

#include "util/fileio.h"
#include "util/partfiles.h"
#include "util/uniquefd.h"

#include <QFile>
#include <QHash>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace {

QByteArray native(const QString &name) { return name.toUtf8(); }

// name in lower case → name as it is on disk, for every entry of a folder.
QHash<QString, QString> listNames(int dirFd)
{
    QHash<QString, QString> names;
    UniqueFd copy(::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!copy)
        return names;
    DIR *dir = ::fdopendir(copy.get());
    if (!dir)
        return names;
    copy.release();   // closedir() closes it
    while (const dirent *e = ::readdir(dir)) {
        const QString name = QFile::decodeName(e->d_name);
        names.insert(name.toLower(), name);
    }
    ::closedir(dir);
    return names;
}

bool readAt(int fd, char *buf, size_t n, off_t offset)
{
    while (n > 0) {
        const ssize_t got = ::pread(fd, buf, n, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        buf += got;
        n -= size_t(got);
        offset += got;
    }
    return true;
}

// Two buffers the size of the file (at most 1 MiB), left uninitialised and made once per placing:
// a camera repeating one name compares each upload with every earlier one, and zeroing or
// faulting in 2 MiB for each of those comparisons cost more than reading the files.
struct CompareBuffers {
    std::unique_ptr<char[]> x, y;
    size_t size = 0;
};

bool sameContents(int dirFd, const QString &name, int otherFd, CompareBuffers &buffers)
{
    const UniqueFd fd(::openat(dirFd, native(name).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!fd)
        return false;
    struct stat a, b;
    bool same = ::fstat(fd.get(), &a) == 0 && ::fstat(otherFd, &b) == 0 && S_ISREG(a.st_mode) && a.st_size == b.st_size;
    if (same && !(a.st_dev == b.st_dev && a.st_ino == b.st_ino)) {
        const size_t chunk = size_t(std::min<off_t>(a.st_size, off_t(1) << 20));
        if (buffers.size < chunk) {
            buffers.x.reset(new char[chunk]);
            buffers.y.reset(new char[chunk]);
            buffers.size = chunk;
        }
        char *x = buffers.x.get(), *y = buffers.y.get();
        for (off_t pos = 0; same && pos < a.st_size;) {
            const size_t n = size_t(std::min<off_t>(off_t(chunk), a.st_size - pos));
            same = readAt(fd.get(), x, n, pos) && readAt(otherFd, y, n, pos) && std::memcmp(x, y, n) == 0;
            pos += off_t(n);
        }
    }
    return same;
}

QString numbered(const QString &name, int n)
{
    if (n == 1)
        return name;
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const qsizetype cut = dot > 0 ? dot : name.size();
    return name.left(cut) + QLatin1Char('-') + QString::number(n) + name.mid(cut);
}

} // namespace

DestinationFolder::DestinationFolder(const QString &root)
    : _root(root)
{
    _fd.reset(::open(QFile::encodeName(root).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!_fd)
        _openError = errno;
}

QString DestinationFolder::pathOf(const FTPPath::Parts &parts) const
{
    return parts.isEmpty() ? _root : _root + QLatin1Char('/') + parts.join(QLatin1Char('/'));
}

std::optional<quint64> DestinationFolder::freeBytes() const
{
    struct statvfs s;
    if (!_fd || ::fstatvfs(_fd.get(), &s) != 0)
        return std::nullopt;
    return quint64(s.f_bavail) * quint64(s.f_frsize);
}

UniqueFd DestinationFolder::openFolder(const FTPPath::Parts &parts, bool create) const
{
    if (!_fd) {
        errno = _openError;
        return {};
    }
    UniqueFd cur(::openat(_fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const QString &part : parts) {
        if (!cur)
            return {};
        const QByteArray name = native(part);
        int next = ::openat(cur.get(), name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && create) {
            if (::mkdirat(cur.get(), name.constData(), 0755) == 0 || errno == EEXIST)
                next = ::openat(cur.get(), name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        }
        cur.reset(next);
    }
    return cur;
}

DestinationFolder::Temp DestinationFolder::createTemp() const
{
    Temp t;
    if (!_fd) {
        errno = _openError;
        return t;
    }
    t.name = ".corvane-" + QUuid::createUuid().toString(QUuid::WithoutBraces).toLatin1() + ".part";
    t.fd.reset(::openat(_fd.get(), t.name.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (t.fd)
        PartFiles::hold(t.fd.get());   // so a receiver starting on this folder leaves it alone
    return t;
}

void DestinationFolder::discard(Temp &temp) const
{
    temp.fd.reset();
    if (!temp.name.isEmpty() && _fd)
        ::unlinkat(_fd.get(), temp.name.constData(), 0);
    temp.name.clear();
}

DestinationFolder::Placed DestinationFolder::place(Temp &temp, const FTPPath::Parts &folder, const QString &name) const
{
    Placed out;
    const UniqueFd dir = openFolder(folder, true);
    if (!dir) {
        out.error = errno;
        discard(temp);
        return out;
    }
    QHash<QString, QString> existing = listNames(dir.get());
    const QString prefix = pathOf(folder) + QLatin1Char('/');
    CompareBuffers buffers;
    for (int n = 1; n < 100000; ++n) {
        const QString candidate = numbered(name, n);
        const auto it = existing.constFind(candidate.toLower());
        if (it != existing.constEnd()) {
            if (sameContents(dir.get(), *it, temp.fd.get(), buffers)) {
                out.path = prefix + *it;
                out.repeat = true;
                break;
            }
            continue;
        }
        const int e = FileIo::renameNoReplaceAt(_fd.get(), temp.name, dir.get(), native(candidate));
        if (e == 0) {
            out.path = prefix + candidate;
            temp.name.clear();   // it is the stored file now
            break;
        }
        if (e != EEXIST) {
            out.error = e;
            break;
        }
        // Taken meanwhile by someone else: look at it again as an existing file.
        existing.insert(candidate.toLower(), candidate);
        --n;
    }
    if (out.path.isEmpty() && !out.error)
        out.error = EEXIST;
    discard(temp);
    return out;
}

quint64 DestinationFolder::finishingCost(const FTPPath::Parts &folder, const QString &name, quint64 size) const
{
    constexpr quint64 kCheckReads = 3;   // the TIFF walk's budget is three times the file
    quint64 compared = 0;
    if (const UniqueFd dir = openFolder(folder, false)) {
        const QHash<QString, QString> existing = listNames(dir.get());
        // place() takes the first free name of the row and compares with the ones before it.
        for (int n = 1; n < 100000; ++n) {
            const auto it = existing.constFind(numbered(name, n).toLower());
            if (it == existing.constEnd())
                break;
            struct stat st;
            if (::fstatat(dir.get(), native(*it).constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)
                && quint64(st.st_size) == size)
                ++compared;
        }
    }
    return size * (kCheckReads + 2 * compared);
}

bool DestinationFolder::isFile(const FTPPath::Parts &file) const
{
    if (file.isEmpty())
        return false;
    const UniqueFd dir = openFolder(file.mid(0, file.size() - 1), false);
    struct stat st;
    return dir && ::fstatat(dir.get(), native(file.last()).constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
}

int DestinationFolder::rename(const FTPPath::Parts &from, const FTPPath::Parts &to, QString *path) const
{
    if (from.isEmpty() || to.isEmpty())
        return EINVAL;
    const UniqueFd a = openFolder(from.mid(0, from.size() - 1), false);
    if (!a)
        return errno;
    const FTPPath::Parts toFolder = to.mid(0, to.size() - 1);
    const UniqueFd b = openFolder(toFolder, true);
    if (!b)
        return errno;
    struct stat st;
    const QByteArray src = native(from.last());
    if (::fstatat(a.get(), src.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    if (!S_ISREG(st.st_mode))
        return EISDIR;
    const QHash<QString, QString> existing = listNames(b.get());
    for (int n = 1; n < 100000; ++n) {
        const QString candidate = numbered(to.last(), n);
        if (existing.contains(candidate.toLower()))
            continue;
        const int e = FileIo::renameNoReplaceAt(a.get(), src, b.get(), native(candidate));
        if (e == EEXIST)
            continue;   // taken meanwhile
        if (e == 0 && path)
            *path = pathOf(toFolder + FTPPath::Parts{candidate});
        return e;
    }
    return EEXIST;
}
