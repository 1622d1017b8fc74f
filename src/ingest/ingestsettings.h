#pragma once
// The import screen's remembered choices, the "ingest.*" user defaults. A plain value; load()
// and save() use QSettings (GUI thread or any one thread at a time).
#include "ingestoptions.h"

#include <QString>

struct IngestSettings {
    QString dest;                 // "ingest.dest": working disk folder
    bool backupOn = false;        // "ingest.backupOn"
    QString backup;               // "ingest.backup": backup folder
    IngestStructure structure = IngestStructure::yearDate;   // "ingest.structure" (raw value)
    bool renameOn = false;        // "ingest.renameOn"
    QString namePattern;          // "ingest.namePattern": the pattern's JSON ("" = the default)
    qint64 start = 1;             // "ingest.start"
    qint64 digits = 4;            // "ingest.digits"
    bool skipImported = true;     // "ingest.skipImported"
    bool video = false;           // "ingest.video"
    bool fullVerify = true;       // "ingest.fullVerify"
    bool eject = false;           // "ingest.eject"
    bool open = true;             // "ingest.open": open the result in Corvane at the end

    static IngestSettings load();
    void save() const;

    // The pattern, the default one when the stored JSON does not decode.
    NamePattern pattern() const;
    // The run's choices (the session is typed per import, not remembered).
    IngestOptions options(const QString &session = {}) const;
};
