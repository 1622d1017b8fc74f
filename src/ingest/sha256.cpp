#include "sha256.h"

#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <unistd.h>

Sha256::Sha256()
    : _ctx(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(_ctx, EVP_sha256(), nullptr);
}

Sha256::~Sha256() { EVP_MD_CTX_free(_ctx); }

void Sha256::add(const char *data, qint64 size)
{
    if (size > 0)
        EVP_DigestUpdate(_ctx, data, size_t(size));
}

QByteArray Sha256::finish()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(_ctx, digest, &length);
    EVP_DigestInit_ex(_ctx, EVP_sha256(), nullptr);
    return QByteArray(reinterpret_cast<const char *>(digest), int(length));
}

namespace {

struct AlignedBuffer {
    char *data = nullptr;
    AlignedBuffer() { data = static_cast<char *>(std::aligned_alloc(4096, size_t(Sha256::kChunk))); }
    ~AlignedBuffer() { std::free(data); }
    AlignedBuffer(const AlignedBuffer &) = delete;
    AlignedBuffer &operator=(const AlignedBuffer &) = delete;
};

// One chunk. Direct I/O may only read whole, aligned chunks, so a short read means the end of the
// file and nothing more is asked after it.
qint64 readChunk(int fd, char *buffer, bool direct)
{
    if (!direct)
        return FileIo::readFully(fd, buffer, Sha256::kChunk);
    for (;;) {
        const ssize_t n = ::read(fd, buffer, size_t(Sha256::kChunk));
        if (n >= 0 || errno != EINTR)
            return n;
    }
}

} // namespace

Sha256::FileDigest Sha256::ofFile(const QString &path, bool fromDisk, const std::function<bool(qint64)> &keepGoing)
{
    FileDigest r;
    const QByteArray native = QFile::encodeName(path);
    const UniqueFd fd(::open(native.constData(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        r.error = errno;
        return r;
    }
    // From the disk: flush and drop what memory holds of the file, then read it with direct I/O
    // where the file system offers it (no copy through the page cache, and no cached page can
    // answer instead of the disk); elsewhere the dropped cache makes the reads go to the disk.
    UniqueFd directFd;
    if (fromDisk) {
        FileIo::flushAndDrop(fd.get());
        directFd.reset(::open(native.constData(), O_RDONLY | O_CLOEXEC | O_DIRECT));
    }
    AlignedBuffer a, b;
    char *current = a.data, *next = b.data;
    qint64 n = -1;
    if (directFd) {
        n = readChunk(directFd.get(), current, true);
        // Some file systems open for direct I/O and then refuse it: read through the cache.
        if (n < 0 && errno == EINVAL)
            directFd.reset();
    }
    const bool direct = directFd.isValid();
    const int in = direct ? directFd.get() : fd.get();
    if (!direct) {
        ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        n = readChunk(in, current, false);
    }

    // The next chunk is read while this one is hashed.
    Sha256 hash;
    for (;;) {
        if (n < 0) {
            r.error = errno;
            break;
        }
        const bool more = n == kChunk;
        std::future<qint64> ahead;
        if (more)
            ahead = std::async(std::launch::async, [&, next] {
                const qint64 got = readChunk(in, next, direct);
                return got < 0 ? -qint64(errno) - 1 : got;
            });
        hash.add(current, n);
        r.size += n;
        const bool go = !keepGoing || keepGoing(n);
        if (!more) {
            r.digest = hash.finish();
            break;
        }
        n = ahead.get();
        if (n < -1) {
            errno = int(-n - 1);
            n = -1;
        }
        std::swap(current, next);
        if (!go) {
            r.cancelled = true;
            break;
        }
    }
    if (fromDisk)
        ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED);
    return r;
}
