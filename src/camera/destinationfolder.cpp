#include "destinationfolder.h"

#include "util/fileio.h"

#include <QFile>
#include <QHash>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
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
    const int copy = ::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (copy < 0)
        return names;
    DIR *dir = ::fdopendir(copy);
    if (!dir) {
        ::close(copy);
        return names;
    }
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

bool sameContents(int dirFd, const QString &name, int otherFd)
{
    const int fd = ::openat(dirFd, native(name).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    struct stat a, b;
    bool same = ::fstat(fd, &a) == 0 && ::fstat(otherFd, &b) == 0 && S_ISREG(a.st_mode) && a.st_size == b.st_size;
    if (same && !(a.st_dev == b.st_dev && a.st_ino == b.st_ino)) {
        std::vector<char> x(1 << 20), y(1 << 20);
        for (off_t pos = 0; same && pos < a.st_size;) {
            const size_t n = size_t(std::min<off_t>(off_t(x.size()), a.st_size - pos));
            same = readAt(fd, x.data(), n, pos) && readAt(otherFd, y.data(), n, pos) && std::equal(x.begin(), x.begin() + long(n), y.begin());
            pos += off_t(n);
        }
    }
    ::close(fd);
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
    _fd = ::open(QFile::encodeName(root).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (_fd < 0)
        _openError = errno;
}

DestinationFolder::~DestinationFolder()
{
    if (_fd >= 0)
        ::close(_fd);
}

QString DestinationFolder::pathOf(const FTPPath::Parts &parts) const
{
    return parts.isEmpty() ? _root : _root + QLatin1Char('/') + parts.join(QLatin1Char('/'));
}

std::optional<quint64> DestinationFolder::freeBytes() const
{
    struct statvfs s;
    if (_fd < 0 || ::fstatvfs(_fd, &s) != 0)
        return std::nullopt;
    return quint64(s.f_bavail) * quint64(s.f_frsize);
}

int DestinationFolder::openFolder(const FTPPath::Parts &parts, bool create) const
{
    if (_fd < 0) {
        errno = _openError;
        return -1;
    }
    int cur = ::openat(_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const QString &part : parts) {
        if (cur < 0)
            return -1;
        const QByteArray name = native(part);
        int next = ::openat(cur, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && create) {
            if (::mkdirat(cur, name.constData(), 0755) == 0 || errno == EEXIST)
                next = ::openat(cur, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        }
        const int e = errno;
        ::close(cur);
        errno = e;
        cur = next;
    }
    return cur;
}

DestinationFolder::Temp DestinationFolder::createTemp() const
{
    Temp t;
    if (_fd < 0) {
        errno = _openError;
        return t;
    }
    t.name = ".corvane-" + QUuid::createUuid().toString(QUuid::WithoutBraces).toLatin1() + ".part";
    t.fd = ::openat(_fd, t.name.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    return t;
}

void DestinationFolder::discard(Temp &temp) const
{
    if (temp.fd >= 0) {
        ::close(temp.fd);
        temp.fd = -1;
    }
    if (!temp.name.isEmpty() && _fd >= 0)
        ::unlinkat(_fd, temp.name.constData(), 0);
    temp.name.clear();
}

DestinationFolder::Placed DestinationFolder::place(Temp &temp, const FTPPath::Parts &folder, const QString &name) const
{
    Placed out;
    const int dir = openFolder(folder, true);
    if (dir < 0) {
        out.error = errno;
        discard(temp);
        return out;
    }
    QHash<QString, QString> existing = listNames(dir);
    const QString prefix = pathOf(folder) + QLatin1Char('/');
    for (int n = 1; n < 100000; ++n) {
        const QString candidate = numbered(name, n);
        const auto it = existing.constFind(candidate.toLower());
        if (it != existing.constEnd()) {
            if (sameContents(dir, *it, temp.fd)) {
                out.path = prefix + *it;
                out.repeat = true;
                break;
            }
            continue;
        }
        const int e = FileIo::renameNoReplaceAt(_fd, temp.name, dir, native(candidate));
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
    ::close(dir);
    discard(temp);
    return out;
}

bool DestinationFolder::isFile(const FTPPath::Parts &file) const
{
    if (file.isEmpty())
        return false;
    const int dir = openFolder(file.mid(0, file.size() - 1), false);
    if (dir < 0)
        return false;
    struct stat st;
    const bool ok = ::fstatat(dir, native(file.last()).constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
    ::close(dir);
    return ok;
}

int DestinationFolder::rename(const FTPPath::Parts &from, const FTPPath::Parts &to) const
{
    if (from.isEmpty() || to.isEmpty())
        return EINVAL;
    const int a = openFolder(from.mid(0, from.size() - 1), false);
    if (a < 0)
        return errno;
    const int b = openFolder(to.mid(0, to.size() - 1), true);
    if (b < 0) {
        const int e = errno;
        ::close(a);
        return e;
    }
    int e = 0;
    struct stat st;
    const QByteArray src = native(from.last());
    if (::fstatat(a, src.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        e = errno;
    else if (!S_ISREG(st.st_mode))
        e = EISDIR;
    else if (listNames(b).contains(to.last().toLower()))
        e = EEXIST;
    else
        e = FileIo::renameNoReplaceAt(a, src, b, native(to.last()));
    ::close(a);
    ::close(b);
    return e;
}
