#pragma once
// A file's bytes mapped read-only, for sending: the transfer reads straight from the page cache,
// with no copy and no fresh 20 MB buffer per file. Unmapped when it goes. Any thread.
#include <QString>

class MappedFile
{
public:
    explicit MappedFile(const QString &path);
    ~MappedFile();
    MappedFile(const MappedFile &) = delete;
    MappedFile &operator=(const MappedFile &) = delete;

    bool isOpen() const { return _data != nullptr; }
    const char *data() const { return _data; }
    qint64 size() const { return _size; }

private:
    const char *_data = nullptr;
    qint64 _size = 0;
    bool _mapped = false;
};
