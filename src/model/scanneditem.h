#pragma once
#include <QDateTime>
#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>

// One grouped shot as a listing produces it: the RAW, JPEG and other files that share a base name.
struct ScannedItem {
    QString url;            // main file: the RAW, else the JPEG, else the first member
    QString previewURL;     // the file decoded for thumbnails and previews
    bool previewIsRaw = false;
    QString sidecarURL;     // main file with the extension replaced by "xmp"
    QStringList files;      // every member, in listing order
    QString badge;          // "NEF", "NEF+JPG"
    std::optional<QDateTime> created;
    std::optional<QDateTime> modified;
    qint64 size = 0;        // sum over members; unreadable members count 0
};

// The product of one listing.
struct ScanResult {
    QList<ScannedItem> items;
    QStringList subfolders;     // absolute paths, sorted naturally
    bool denied = false;        // access to the folder was refused
    QSet<QString> xmpKeys;      // grouping keys that have a sidecar
    int folderCount = 0;        // distinct folders holding items
    bool truncated = false;     // the recursive listing stopped at its limit
    QStringList extras;         // the folder's other files (neither media nor sidecars)
};
