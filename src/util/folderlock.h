#pragma once
// An exclusive advisory lock on a folder, held while the object lives: flock() on the folder's
// own descriptor, so no lock file is ever left among the user's images. Processes that take it
// around a read-modify-write of a file in the folder never lose each other's changes.
// On a local disk the lock always holds. Network file systems may refuse it (NFS serves flock as
// a byte-range lock, which a folder opened for reading cannot take) or honour it only on one
// computer (SMB); then isHeld() is false and the caller goes on unlocked, which is what it did
// before there was a lock. Any thread; blocks until the lock is free.
#include "uniquefd.h"

#include <QString>

class FolderLock
{
public:
    explicit FolderLock(const QString &folder);
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    bool isHeld() const { return _held; }

private:
    UniqueFd _fd;
    bool _held = false;
};
