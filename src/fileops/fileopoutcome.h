#pragma once
// What a file operation (or its undo) did, and the texts that say it: a title and a body for the
// result sheet or the toast, one line per shot that failed.
#include "fileopjournal.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

struct FileOpOutcome {
    FileOpJournal::Op op = FileOpJournal::Op::rename;
    bool undo = false;               // the undo of an earlier operation
    QString id;                      // its journal among the finished ones (for undo); empty: none
    QString destination;             // copy, move: the folder
    int done = 0;                    // shots renamed, copied, moved, trashed…
    int files = 0;                   // their files
    QStringList kept;                // names of the shots left as they were
    QStringList messages;            // one line per shot that failed: "NAME: reason"
    QStringList savedAs;             // files that could return to neither name
    QList<QPair<QString, QString>> mainFiles;   // a file of each shot done: old path → new
    QString error;                   // the whole operation could not start (the journal)

    bool ok() const { return error.isEmpty() && kept.isEmpty() && savedAs.isEmpty(); }
    QString title() const;           // "Renombrado completado", "Copia con errores"…
    QString body() const;
    // A one-line summary for a toast: "3 imágenes movidas a la papelera."
    QString summary() const;
};

// "1 imagen", "3 imágenes"
QString shotCount(int n);
