#include "mappedfile.h"

#include "util/uniquefd.h"

#include <QFile>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

MappedFile::MappedFile(const QString &path)
{
    const UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return;
    _size = st.st_size;
    if (_size == 0) {
        static const char nothing = 0;
        _data = &nothing;
        return;
    }
    void *p = ::mmap(nullptr, size_t(_size), PROT_READ, MAP_PRIVATE, fd.get(), 0);
    if (p == MAP_FAILED) {
        _size = 0;
        return;
    }
    ::madvise(p, size_t(_size), MADV_SEQUENTIAL);
    _data = static_cast<const char *>(p);
    _mapped = true;
}

MappedFile::~MappedFile()
{
    if (_mapped)
        ::munmap(const_cast<char *>(_data), size_t(_size));
}
