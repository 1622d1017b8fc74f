#pragma once
// The per-folder marks file ".corvane.json" (and the legacy ".ostrel.json" it replaces).
#include "marks.h"

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>
#include <optional>

using MarksMap = QHash<QString, Marks>;          // key: lower-cased base name of the main file
using CameraOffsets = QMap<QString, double>;      // camera identifier → seconds

struct MarksFile {
    static constexpr const char *kFileName = ".corvane.json";
    static constexpr const char *kLegacyFileName = ".ostrel.json";
    static constexpr double kMaxOffsetSeconds = 172800.0;   // 48 hours

    MarksMap marks;
    CameraOffsets cameraOffsets;

    // Compact JSON with sorted keys: {"app":"Corvane","cameraOffsets":{…},"marks":{…},"version":1}
    QByteArray encode() const;
    // Absent for empty content, non-JSON or a wrong shape. Offsets that are not finite or are
    // beyond 48 hours are dropped; empty marks records are dropped.
    static std::optional<MarksFile> decode(const QByteArray &data);

    // The marks key of a file: its base name, lower-cased.
    static QString keyFor(const QString &path);

    // Reads ".corvane.json", else ".ostrel.json", of a folder.
    static std::optional<MarksFile> load(const QString &folder);
    // Writes or deletes the folder's file (see MarksStore). Returns an error text, empty on success.
    static QString save(const QString &folder, const MarksMap &marks, std::optional<CameraOffsets> offsets);
    // Writes only what this process changed: under the folder's lock, reads the file as it is
    // now, sets the `changed` keys to their value in `ours` (removing those absent there) and
    // saves the result, so marks another process wrote meanwhile survive. `merged` receives what
    // was written. Returns an error text, empty on success.
    static QString saveChanges(const QString &folder, const MarksMap &ours, const QSet<QString> &changed,
                               std::optional<CameraOffsets> offsets, MarksMap *merged = nullptr);
};
