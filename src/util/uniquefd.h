#pragma once
// Owns one file descriptor and closes it when it goes, on every path out of a function.
#include <cerrno>
#include <unistd.h>
#include <utility>

class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : _fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : _fd(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const { return _fd; }
    bool isValid() const { return _fd >= 0; }
    explicit operator bool() const { return isValid(); }

    // Hands the descriptor over; this no longer closes it.
    int release() { return std::exchange(_fd, -1); }
    // Closes the one held (leaving errno as it was: callers read it after a failed call) and
    // takes `fd`.
    void reset(int fd = -1)
    {
        if (_fd >= 0 && _fd != fd) {
            const int saved = errno;
            ::close(_fd);
            errno = saved;
        }
        _fd = fd;
    }
    // Closes now and says how it went: 0, or the errno of close(), which after writes may be the
    // first word of a full disk or a lost network volume.
    int close()
    {
        if (_fd < 0)
            return 0;
        const int rc = ::close(std::exchange(_fd, -1));
        return rc == 0 ? 0 : errno;
    }

private:
    int _fd = -1;
};
