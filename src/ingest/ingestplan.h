#pragma once
// Planning an import: numbers, folders, base names and unique paths for the files of a card.
// Pure apart from reading the destinations. Safe on any thread; meant for a worker thread.
#include "ingestitem.h"
#include "ingestoptions.h"
#include "plannedfile.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>

class CancelToken;

struct IngestPlan {
    QList<PlannedFile> files;     // every file to write to at least one destination, in copy order
    int itemCount = 0;            // files found on the card
    int skippedImported = 0;      // left out because the record lists them
    QList<int> present;           // per destination: files already there with the same bytes
    QStringList presentKeys;      // history keys of files already on every destination
    qint64 bytesTotal = 0;        // bytes to read from the card
    bool cancelled = false;

    // "Todo lo de la tarjeta ya está importado": nothing left to copy anywhere.
    bool nothingToDo() const { return files.isEmpty(); }
    // Files a destination will receive.
    int toCopy(int rootIndex) const;
};

namespace IngestPlanner {

enum class DestinationCheck {
    none,   // plan against this run only (the screen's live preview)
    full,   // also avoid every name already taken in the destinations; a file already there with
            // the same size and SHA-256 counts as copied (reads both files to compare)
};

struct Input {
    QList<IngestItem> items;
    IngestOptions options;
    QStringList destRoots;        // 1 or 2 destination folders
    QSet<QString> imported;       // the record's keys (used with options.skipImported)
    DestinationCheck check = DestinationCheck::full;
    const CancelToken *cancel = nullptr;
    // Bytes read while comparing with files already in the destinations (progress).
    std::function<void(qint64 bytes, const QString &name)> comparing;
};

// Items are numbered over the whole card (one number per shot, by capture date then name) before
// already imported ones are left out, so a re-run names every file as the first run did.
IngestPlan plan(const Input &input);

} // namespace IngestPlanner
