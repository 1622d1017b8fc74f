#pragma once
// Folder listings and the grouping of files into shots. Pure functions: safe on any thread.
#include "loadtoken.h"
#include "scanneditem.h"

#include <QString>
#include <QStringList>
#include <functional>

namespace FolderScanner {

// Stops the recursive listing: more kept files than this sets `truncated`.
inline constexpr int kTreeFileLimit = 250000;
inline constexpr int kProgressEvery = 400;

using Progress = std::function<void(const QString &text, int count)>;

// Standardised absolute path: no "." or "..", no trailing slash.
QString standardPath(const QString &path);

// The folder of a standardised path ("/" for a file at the root).
QString parentOf(const QString &path);

// Grouping key: standardised folder path, "/", lower-cased base name ("#v" added for videos).
QString groupingKey(const QString &path);

struct Grouped {
    QList<ScannedItem> items;
    QSet<QString> xmpKeys;
};
// Groups files (absolute paths, in listing order) into shots.
Grouped group(const QStringList &files);

// The direct entries of one folder.
ScanResult listFolder(const QString &folder, const LoadToken &token);

// A folder and all its descendants (system folders and hidden ones are never entered).
ScanResult listTree(const QString &root, const LoadToken &token, const Progress &progress = {});

// Whether the recursive listing skips this standardised directory path.
bool isExcludedSystemPath(const QString &standardizedPath);

} // namespace FolderScanner
