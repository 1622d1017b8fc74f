#include "filebytes.h"

#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QFile>
#include <fcntl.h>
#include <sys/stat.h>

namespace {
thread_local std::vector<char> tBuffer;
}

FileBytes::FileBytes(const QString &path)
    : _buffer(tBuffer)
{
    const UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return;
    ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    if (_buffer.size() < size_t(st.st_size) + 1)
        _buffer.resize(size_t(st.st_size) + 1);
    const qint64 n = FileIo::readFully(fd.get(), _buffer.data(), st.st_size);
    if (n < 0)
        return;
    _size = n;   // shortened since the size was read: what is there is sent
    _open = true;
}
