#include "fileio.h"
#include "uniquefd.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace FileIo {

int flushAndDrop(int fd)
{
    // Dirty pages cannot be dropped: they must reach the disk first.
    if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS)
        return errno;
    const int e = ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    return e == ESPIPE ? 0 : e;
}

qint64 residentPages(int fd)
{
    struct stat st;
    if (::fstat(fd, &st) != 0 || st.st_size == 0)
        return st.st_size == 0 ? 0 : -1;
    void *map = ::mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED)
        return -1;
    const long page = ::sysconf(_SC_PAGESIZE);
    std::vector<unsigned char> vec(size_t((st.st_size + page - 1) / page));
    qint64 resident = -1;
    if (::mincore(map, size_t(st.st_size), vec.data()) == 0) {
        resident = 0;
        for (unsigned char v : vec)
            resident += v & 1;
    }
    ::munmap(map, size_t(st.st_size));
    return resident;
}

qint64 readFully(int fd, char *buffer, qint64 size)
{
    qint64 got = 0;
    while (got < size) {
        const ssize_t n = ::read(fd, buffer + got, size_t(size - got));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (n == 0)
            break;
        got += n;
    }
    return got;
}

bool writeFully(int fd, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (n == 0) {
            errno = ENOSPC;
            return false;
        }
        data += n;
        size -= n;
    }
    return true;
}

int renameNoReplace(const QString &from, const QString &to)
{
    return renameNoReplaceAt(AT_FDCWD, QFile::encodeName(from), AT_FDCWD, QFile::encodeName(to));
}

int renameNoReplaceAt(int fromDir, const QByteArray &from, int toDir, const QByteArray &to)
{
    const char *src = from.constData(), *dst = to.constData();
    if (::renameat2(fromDir, src, toDir, dst, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
        return errno;
    // No RENAME_NOREPLACE here: a hard link is just as exclusive.
    if (::linkat(fromDir, src, toDir, dst, 0) == 0) {
        ::unlinkat(fromDir, src, 0);
        return 0;
    }
    if (errno == EEXIST)
        return EEXIST;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK)
        return errno;
    // Neither (FAT through some drivers): check, then rename. Only another program racing us for
    // this very name could slip in between.
    struct stat st;
    if (::fstatat(toDir, dst, &st, AT_SYMLINK_NOFOLLOW) == 0)
        return EEXIST;
    if (::renameat(fromDir, src, toDir, dst) != 0)
        return errno;
    return 0;
}

int makePath(const QString &folder)
{
    const QByteArray path = QFile::encodeName(folder);
    struct stat st;
    if (::stat(path.constData(), &st) == 0)
        return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    const qsizetype slash = folder.lastIndexOf(QLatin1Char('/'));
    if (slash > 0)
        if (const int e = makePath(folder.left(slash)))
            return e;
    if (::mkdir(path.constData(), 0755) != 0 && errno != EEXIST)
        return errno;
    return 0;
}

void syncFolder(const QString &folder)
{
    const UniqueFd fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        ::fsync(fd.get());
}

} // namespace FileIo
