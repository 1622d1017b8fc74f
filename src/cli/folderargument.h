#pragma once
// The start the folder commands share: one folder argument, checked, then listed. Each step says
// what went wrong on stderr and gives the exit status to return.
#include "argparser.h"

#include "model/folderscanner.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace FolderArgument {

// Parses `args` wanting exactly one positional argument that names a folder. Returns the folder
// in standard form; otherwise "", with `status` 2 for bad usage (the parser's error, or `usage`
// when it has none) or 1 when it is not a folder.
QString parse(ArgParser &parser, const QStringList &args, int &status, const QString &usage = {});

// Lists `folder` (not its subfolders); nothing, after saying so, when it may not be read.
std::optional<ScanResult> list(const QString &folder);

// The message for a folder that may not be read.
void reportDenied(const QString &folder);

} // namespace FolderArgument
