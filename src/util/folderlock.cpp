#include "folderlock.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

FolderLock::FolderLock(const QString &folder)
    : _fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!_fd)
        return;
    int r;
    do
        r = ::flock(_fd.get(), LOCK_EX);
    while (r != 0 && errno == EINTR);
    _held = r == 0;
}

FolderLock::~FolderLock()
{
    if (_held)
        ::flock(_fd.get(), LOCK_UN);
}
