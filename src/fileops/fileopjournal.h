#pragma once
// The journal of a file operation (rename, move, copy, trash, or the undo of a trash): where every
// file of every shot is before, during and after it. It is on disk (written and synced) before the
// first file is touched and again when the operation moves to its second phase, so that after a
// crash the next start can put every shot in one place under one name: an operation that was still
// taking names away (or copying) is rolled back, one that was giving the new names is finished, a
// trash that had begun on a shot sends the rest of that shot to the trash too. A journal that
// cannot be read is left where it is and reported, never replayed. Journals live in the
// application-support folder ("journal/"); finished ones are kept in "journal/done/" for undo.
// Any thread, one operation at a time per process.
#include "marks/marks.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

struct FileOpStep {
    QString from, temp, to;  // trash: `to` is the file's place in the trash once it is there
};

struct FileOpShot {
    QList<FileOpStep> steps;
    QString folder;          // where its marks are kept
    QString toFolder;        // where they go (move, copy); empty: the same folder
    QString oldKey, newKey;  // its marks keys before and after
    // Its marks when the operation began, set under the new key once it is in place: kept here so
    // that doing it again after a crash gives the same file (marks of names that swap included).
    std::optional<Marks> marks;
    bool copies = false;     // its files are copied into the temporaries, not renamed into them
    bool skipped = false;    // left where it was in the first phase
};

struct FileOpJournal {
    // moving: names are being taken away (into temporaries, or copies made); placing: new names
    // are being given; marked: files and marks are done, only the journal's retirement is left.
    enum class State { moving, placing, marked };
    enum class Op { rename, move, copy, trash, untrash };
    QString id;              // file name stem
    Op op = Op::rename;
    State state = State::moving;
    QList<FileOpShot> shots;

    QByteArray encode() const;
    // Nothing when `data` is not a journal this version wrote (or holds more than `limit` steps).
    static std::optional<FileOpJournal> decode(const QByteArray &data, int limit = 1'000'000);

    static QString opName(Op op);            // "rename", "move"…
    static QString folder();                 // <app data>/journal
    QString path() const;                    // folder()/<id>.json
    // Writes it atomically (synced). Returns an error text, empty on success.
    QString save() const;
    // Keeps it among the finished operations (for undo) and removes the running one.
    void retire() const;
    // A finished operation, by id; the newest one when `id` is empty.
    static std::optional<FileOpJournal> finished(const QString &id = {});
    // Forgets a finished operation once it has been undone.
    static void forget(const QString &id);

    // What a start after a crash found and did.
    struct Recovery {
        int finished = 0;        // shots put in their new place
        int restored = 0;        // shots put back in the old one
        QStringList ops;         // the operations cut short ("renombrado", "copia"…)
        QStringList savedAs;     // files that could take neither name, under the one they have now
        QStringList unreadable;  // journals left for inspection
        QString sentence() const;   // one line for the user; empty when nothing was found
    };
    static Recovery recoverAll();
};
