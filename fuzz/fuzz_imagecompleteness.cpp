// The completeness check reads the headers of every file a camera (or anyone who knows the
// password) uploads: JPEG segments, TIFF directories, ISO boxes.
#include "camera/imagecompleteness.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int fd = ::memfd_create("fuzz", MFD_CLOEXEC);
    if (fd < 0 || ::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != ssize_t(size))
        return 0;
    // Sanitizers do the checking; the verdict depends on the bytes alone.
    TiffReader::Work work;
    if (ImageCompleteness::check(fd, &work) != ImageCompleteness::check(fd))
        __builtin_trap();
    // The TIFF walk of any upload costs in proportion to its size (the receiver checks each one).
    const TiffReader::Work limit = TiffReader::limitFor(qint64(size));
    if (work.ifds > limit.ifds || work.entries > limit.entries || work.bytes > limit.bytes)
        __builtin_trap();
    return 0;
}
