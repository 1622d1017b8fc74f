#pragma once
// One import, start to end, on the calling thread: read the card, plan, remove stale parts, copy
// to one or two destinations, verify, record, eject. Synchronous; IngestRunner runs it on its
// worker thread, tests and benchmarks may call it directly. Reports progress through the box
// and the hooks, which run on the calling thread.
#include "copyrecord.h"
#include "destresult.h"
#include "ingestoptions.h"
#include "ingestphase.h"
#include "ingestplan.h"
#include "ingestsummary.h"

#include "metadata/iptctemplate.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

class CancelToken;
class IngestProgressBox;

struct IngestRequest {
    QString source;               // the card's root or any chosen folder
    QString working;              // destination 0, must exist
    QString backup;               // destination 1; "" for none
    IngestOptions options;
    bool dryRun = false;          // read and plan only
    QString recordPath;           // the imported-files record; "" = ImportedRecord::path()
    QList<IngestItem> known;      // the card as read before (the window's preview); the card is
                                  // still walked, but these files' metadata is not read again
    std::optional<IptcTemplate> iptc; // put on the copies after verification, never on the card

    QStringList destRoots() const;
};

struct IngestReport {
    IngestPlan plan;
    QList<DestResult> dests;      // one per destination
    QList<CopyRecord> records;    // the copies made in this run, for (later) verification
    IngestSummary summary;
    bool cancelled = false;
    bool verified = false;        // verification ran
    int copied = 0;               // files written to at least one destination
    int skipped = 0;              // files left out (record) or already on every destination
    QStringList errors;           // problems not tied to one destination (unreadable card, record)
    QString resultFolder;         // the folder to open at the end (on the working disk)
    QString ejectMessage;         // "Tarjeta expulsada", a failure sentence, or "" when not asked
    QString recordPath;
    int iptcWritten = 0;          // copies the IPTC template was written into (or beside)

    bool hasErrors() const;
};

class IngestJob
{
public:
    struct Hooks {
        // Phase changes, with the files and bytes the phase will go through.
        std::function<void(IngestPhase phase, int filesTotal, qint64 bytesTotal)> phase;
        std::function<void(const IngestPlan &plan)> planned;
        // Tests: runs on the worker after each chunk is written (file name, bytes of it so far).
        std::function<void(const QString &name, qint64 bytes)> chunkCopied;
        // Tests: runs between the copy and its verification, once per record.
        std::function<void(const CopyRecord &record)> beforeVerify;
        // Ejects the volume of the source: "" on success. Defaults to CardEjector::eject.
        std::function<QString(const QString &source)> eject;
    };

    IngestJob(IngestRequest request, CancelToken *cancel, IngestProgressBox *progress, Hooks hooks = {});
    IngestReport run();

    // "Verificar ahora": re-reads every record of a finished run from its disk, deletes the bad
    // copies, removes their keys from the record and rewrites the summary.
    static void verifyNow(IngestReport &report, CancelToken *cancel, IngestProgressBox *progress,
                          const Hooks &hooks = {});

private:
    IngestRequest _request;
    CancelToken *_cancel;
    IngestProgressBox *_progress;
    Hooks _hooks;
};
