#include "filebytes.h"

#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QFile>
#include <fcntl.h>
#include <sys/stat.h>

FileBytes::FileBytes(const QString &path)
{
    const UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return;
    ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    _bytes.resize(qsizetype(st.st_size));
    const qint64 n = FileIo::readFully(fd.get(), _bytes.data(), st.st_size);
    if (n < 0) {
        _bytes.clear();
        return;
    }
    _bytes.truncate(qsizetype(n));   // shortened since the size was read: what is there is sent
    _open = true;
}
