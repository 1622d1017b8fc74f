#pragma once
// A file's bytes, read whole into memory for sending. Not mapped: a mapping of a file that another
// program shortens meanwhile (a photographer re-exporting it, a card pulled out) kills the process
// with SIGBUS on the next page read, while a read simply gets what is there. Reading 25 MB from the
// page cache costs a few milliseconds, nothing beside the network. Any thread.
#include <QByteArray>
#include <QString>

class FileBytes
{
public:
    explicit FileBytes(const QString &path);

    bool isOpen() const { return _open; }
    const char *data() const { return _bytes.constData(); }
    qint64 size() const { return _bytes.size(); }

private:
    QByteArray _bytes;
    bool _open = false;
};
