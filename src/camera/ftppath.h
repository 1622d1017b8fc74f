#pragma once
// The paths an FTP client names, folded into paths under the destination folder. A client path
// is resolved against the client's current folder (or from the top when it begins with "/") and
// reduced to plain components: "." is dropped, ".." goes up one level but never above the top.
// Refused, so nothing outside the destination is ever reached and nothing of ours is touched:
// bytes that are not UTF-8, control characters and NUL, backslashes, Unicode direction controls,
// components that begin with "." (hidden files are the receiver's own), components longer than
// 200 bytes, and more than 32 levels.
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace FTPPath {

// The components of a resolved path; empty for the top of the destination.
using Parts = QStringList;

// A folder path (CWD, MKD). An empty argument names the current folder.
std::optional<Parts> resolveFolder(const Parts &cwd, const QByteArray &argument);
// A file path (STOR, RNFR, RNTO): the argument must end in a usable file name.
std::optional<Parts> resolveFile(const Parts &cwd, const QByteArray &argument);

// How the client sees a folder: "/" or "/DCIM/100NIKON".
QString display(const Parts &parts);

} // namespace FTPPath
