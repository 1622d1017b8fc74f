#pragma once
// The file-level moves of a journalled operation, shared by a running operation and the recovery
// of an interrupted one. Plain system calls: any thread (a worker: copies sync the disk).
#include "fileopjournal.h"

#include <QString>
#include <QStringList>

#include <sys/types.h>

namespace FileOpMoves {

// A copy of `from` at `to`, which must not exist: data synced, permissions and modification time
// kept, its size checked, and with `verify` both files read back and compared by SHA-256 (the copy
// from the disk). On any failure nothing is left at `to`. Returns an error text, empty when done.
QString copyFile(const QString &from, const QString &to, bool verify);

// Gives every file of the shot its new name (temporary → final); on any failure the whole shot
// goes back: renamed files to their old names (or a free one beside them, listed in `savedAs`),
// copies removed. Returns an error text, empty when done.
QString finish(const FileOpShot &shot, QStringList &savedAs);
// Undoes the first phase for the shot: files under their temporary names go back to their old
// names; copies are removed.
void restore(const FileOpShot &shot, QStringList &savedAs);
// After a move by copying: removes each original whose copy is in place with the same size.
void removeOriginals(const FileOpShot &shot);

// Sends a file to the freedesktop trash. Returns an error text, empty when done; `where` is its
// path in the trash.
QString trash(const QString &path, QString &where);
// Takes a file back out of the trash to `to` (or a free name beside it, listed in `savedAs`) and
// removes its entry in the trash's list. Returns an error text, empty when done.
QString untrash(const QString &where, const QString &to, QStringList &savedAs);

// The marks of the finished shots follow them: removed from the old key where the files left
// (rename, move, trash), set on the new key where they arrived (rename, move, copy, untrash).
QString moveMarks(FileOpJournal::Op op, const QList<FileOpShot> &finished);

// "/a/b/X.NEF" → "/a/b"; → "X" (the name without its last extension); the file system's device.
QString folderOf(const QString &path);
QString baseOf(const QString &path);
dev_t deviceOf(const QString &path);

// A free name beside `path`: NAME-2.EXT, NAME-3.EXT…
QString freeNameBeside(const QString &path);
bool exists(const QString &path);

} // namespace FileOpMoves
