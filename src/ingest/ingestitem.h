#pragma once
#include <QDateTime>
#include <QString>
#include <optional>

// One file found on the card.
struct IngestItem {
    QString url;                  // absolute path on the card
    qint64 size = 0;              // bytes
    QDateTime date;               // capture date (EXIF), else the earlier of the file's dates
    std::optional<QString> camera;// camera model, when the file says
    QString groupKey;             // shared by the files of one shot (RAW + JPEG)
    bool isVideo = false;
};
