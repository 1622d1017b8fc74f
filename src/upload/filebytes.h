#pragma once
// A file's bytes, read whole into memory for sending. Not mapped: a mapping of a file that another
// program shortens meanwhile (a photographer re-exporting it, a card pulled out) kills the process
// with SIGBUS on the next page read, while a read simply gets what is there. The memory is the
// calling thread's own and kept for its next file: fresh pages for every 25 MB frame cost more
// than the copy from the page cache. So one FileBytes at a time per thread (the queue's workers
// and the command line each send one file at a time).
#include <QString>

#include <vector>

class FileBytes
{
public:
    explicit FileBytes(const QString &path);
    FileBytes(const FileBytes &) = delete;
    FileBytes &operator=(const FileBytes &) = delete;

    bool isOpen() const { return _open; }
    const char *data() const { return _buffer.data(); }
    qint64 size() const { return _size; }

private:
    std::vector<char> &_buffer;
    qint64 _size = 0;
    bool _open = false;
};
