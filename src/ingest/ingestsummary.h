#pragma once
// The end of an import as the user reads it: a title and a body.
#include <QString>

enum class IngestOutcome {
    verified,       // verified, no errors
    copied,         // copied without errors, not verified
    errors,         // something failed on some destination
    cancelled,
    nothingToDo,    // "Todo lo de la tarjeta ya está importado"
    planned,        // a dry run: planned, nothing written
};

struct IngestSummary {
    IngestOutcome outcome = IngestOutcome::copied;
    QString title;
    QString body;

    static IngestSummary make(IngestOutcome outcome, int destCount);
};
