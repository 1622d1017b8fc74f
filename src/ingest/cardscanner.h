#pragma once
// Reading a card ("Leyendo la tarjeta…"): every image (and, when asked, every video) below the
// card folder, skipping hidden files and folders, with its capture date and camera model read by
// exiv2. Thread-safe; meant for a worker thread.
#include "ingestitem.h"

#include <QHash>
#include <QList>
#include <QString>
#include <functional>

class CancelToken;

struct CardScan {
    QList<IngestItem> items;      // in listing order
    QString error;                // one Spanish sentence when the folder cannot be read
    bool cancelled = false;
};

namespace CardScanner {

// `progress` runs every few files, on any thread: while walking, (files found, 0); while reading
// the metadata, (files read, files found). Files in `known` (by path) with the same size take
// their date and camera from there instead of being read again: the import window has read the
// card once already for its preview, and reading a big card costs the photographer minutes.
CardScan scan(const QString &root, bool includeVideo, const CancelToken *cancel = nullptr,
              const std::function<void(int done, int total)> &progress = {},
              const QHash<QString, IngestItem> *known = nullptr);

// The date and camera of one file: EXIF first, then the earlier of its creation and modification
// dates. Used by scan(); exposed for tests.
void readDateAndCamera(const QString &path, IngestItem &item);

} // namespace CardScanner
