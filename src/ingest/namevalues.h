#pragma once
// What one rendering of a naming pattern is fed: the values of one file, or of the group of
// files (a RAW and its JPEG) that share a name. Built by the caller; a plain value.
#include <QDateTime>
#include <QString>
#include <optional>

struct NameValues {
    QDateTime date;                  // capture date; rendered in local time
    qint64 seq = 1;                  // the running number of this file or group
    qint64 digits = 4;               // requested width of the number (rendering clamps it to 1…8)
    std::optional<QString> camera;   // camera model, absent when unknown
    QString original;                // the file's original name without its extension
    QString session;                 // the session name as the user typed it
    QString folder;                  // a folder name

    // Plausible values for previews in editors: 2024-05-18 14:32:07, number 1, 4 digits,
    // "NIKON Z 9", "DSC_0001", "Boda Marta y Luis", "100NCZ_9".
    static NameValues sample();
};
