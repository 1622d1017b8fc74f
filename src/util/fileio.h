#pragma once
// Low-level file helpers of card ingest and of the camera receiver. All are plain system calls:
// safe on any thread.
#include <QByteArray>
#include <QString>
#include <QtGlobal>

namespace FileIo {

// Writes the file's dirty pages to the disk (fsync) and drops all its pages from the page cache
// (posix_fadvise DONTNEED), so that the next read comes from the disk. Returns 0 or an errno.
int flushAndDrop(int fd);
// Pages of the file now held in memory (mincore over a mapping); -1 when it cannot be told.
qint64 residentPages(int fd);

// read() until `size` bytes or the end of the file; -1 on error (errno set).
qint64 readFully(int fd, char *buffer, qint64 size);
// write() all of it; false on error (errno set).
bool writeFully(int fd, const char *data, qint64 size);

// Renames without ever replacing an existing file: renameat2(RENAME_NOREPLACE), falling back to
// link + unlink, then to a check before rename() where the file system offers neither (FAT over
// some drivers). Returns 0 or an errno (EEXIST when the target is taken).
int renameNoReplace(const QString &from, const QString &to);
// The same with each name relative to a folder's descriptor (AT_FDCWD for the current folder).
int renameNoReplaceAt(int fromDir, const QByteArray &from, int toDir, const QByteArray &to);

// mkdir -p; returns 0 or the errno of the step that failed (ENOTDIR when a file is in the way).
int makePath(const QString &folder);

// fsync of a folder, so renames in it are durable.
void syncFolder(const QString &folder);

} // namespace FileIo
