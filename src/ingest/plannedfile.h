#pragma once
#include <QDateTime>
#include <QString>

// One copy to make. The same relative path is used on every destination.
struct PlannedFile {
    QString src;                  // path on the card
    QString relPath;              // folders and file name under the destination root, "/"-joined
    qint64 size = 0;
    QString historyKey;           // its key in the imported-files record
    // Bit i set: destination i already holds these very bytes (same size and SHA-256) under
    // relPath, so nothing is written there and the file counts as skipped on that disk.
    quint32 presentIn = 0;

    bool presentOn(int rootIndex) const { return presentIn & (1u << rootIndex); }
    QString name() const { return src.mid(src.lastIndexOf(QLatin1Char('/')) + 1); }
};
