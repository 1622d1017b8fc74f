#pragma once
#include <QStringList>

// corvane rename [options] FILE...: renames the shots of the files given (each with all its files
// and sidecars), numbered in the order given; --dry-run prints the plan and its conflicts.
int renameCommand(const QStringList &args);
// corvane undo: takes back the last file operation.
int undoCommand(const QStringList &args);
