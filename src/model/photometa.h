#pragma once
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <optional>

// Capture metadata of one file, as read by the metadata reader. Absent values stay empty.
struct PhotoMeta {
    QDateTime captureDate;       // camera local time, read as the local time zone
    int width = 0;               // pixel size as stored (before orientation)
    int height = 0;
    int orientation = 1;         // EXIF orientation 1…8
    QString make, model, serial, lens;
    std::optional<double> focalLength;   // mm
    std::optional<double> aperture;      // f-number
    std::optional<double> exposureTime;  // seconds
    std::optional<int> iso;
    std::optional<double> latitude, longitude, altitude;
    // IPTC texts
    QString title, caption, creator, copyright, city, country;
    QStringList keywords;

    // Upright size (orientations 5…8 swap the sides).
    int uprightWidth() const { return orientation >= 5 ? height : width; }
    int uprightHeight() const { return orientation >= 5 ? width : height; }
    // "Canon EOS R6": the make is dropped when the model already starts with it.
    QString cameraName() const;
};
