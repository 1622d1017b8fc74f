#pragma once
// The destination folder of the FTP receiver as the file system sees it. Every path is walked
// from a descriptor of the destination one level at a time, refusing symbolic links, so a link
// planted inside the destination never leads out of it. Nothing is ever replaced: a final name is
// taken with FileIo::renameNoReplaceAt(). Names are
// compared without regard to case, as the grid groups them. Errors are errno values.
// Used on the receiver's thread only.
#include "ftppath.h"
#include "util/uniquefd.h"

#include <QByteArray>
#include <QString>
#include <optional>

class DestinationFolder
{
public:
    explicit DestinationFolder(const QString &root);

    bool isOpen() const { return _fd.isValid(); }
    int openError() const { return _openError; }
    QString root() const { return _root; }
    QString pathOf(const FTPPath::Parts &parts) const;

    // Bytes free for an ordinary user on the destination's volume.
    std::optional<quint64> freeBytes() const;

    // A descriptor of the folder at `parts`, creating missing levels when asked; an invalid one
    // with errno set on failure.
    UniqueFd openFolder(const FTPPath::Parts &parts, bool create) const;

    struct Temp {
        UniqueFd fd;
        QByteArray name;   // ".corvane-<UUID>.part" in the destination itself
    };
    // A new hidden temporary file; an invalid fd with errno set on failure.
    Temp createTemp() const;
    // Closes and removes it.
    void discard(Temp &temp) const;

    struct Placed {
        QString path;        // the stored file (or the existing twin of a repeat)
        bool repeat = false; // a file with the same name and the very same contents was there
        int error = 0;
    };
    // Moves the finished temporary file to `name` in the folder at `folder`: the name itself when
    // free, nothing when a file of that name has the same contents, else "stem-2.ext",
    // "stem-3.ext"… The temporary file is gone afterwards whatever happens.
    Placed place(Temp &temp, const FTPPath::Parts &folder, const QString &name) const;

    // At most how many bytes checking and placing a finished file of `size` bytes as `name` in
    // `folder` reads: the completeness check's share, and two reads of it for every stored file
    // of the same size that place() would compare it with.
    quint64 finishingCost(const FTPPath::Parts &folder, const QString &name, quint64 size) const;

    // Whether `file` is a regular file (a symbolic link is not).
    bool isFile(const FTPPath::Parts &file) const;
    // Renames a regular file inside the destination without replacing anything: to `to` when that
    // name is free, else to the first free "stem-2.ext", "stem-3.ext"… as place() does. 0 and the
    // new path in `path`, or an errno.
    int rename(const FTPPath::Parts &from, const FTPPath::Parts &to, QString *path = nullptr) const;

private:
    QString _root;
    UniqueFd _fd;
    int _openError = 0;
};
