#pragma once
// The journal of a file operation: what every file of every shot is called before, during and
// after it. It is on disk (written and synced) before the first file is touched and again when the
// operation moves to its second phase, so that after a crash the next start can put every shot
// back under one name: an operation that was still taking names away is rolled back, one that was
// giving the new names is finished. A journal that cannot be read is left where it is and
// reported, never replayed. Journals live in the application-support folder ("journal/"); the
// last finished one is kept for undo. Any thread, one operation at a time per process.
#include "marks/marks.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

struct FileOpStep {
    QString from, temp, to;
};

struct FileOpShot {
    QList<FileOpStep> steps;
    QString folder;          // where its marks are kept
    QString oldKey, newKey;  // its marks keys before and after
    // Its marks when the operation began, set under the new key once it is renamed: kept here so
    // that doing it again after a crash gives the same file (marks of names that swap included).
    std::optional<Marks> marks;
    bool skipped = false;    // left under its old name in the first phase
};

struct FileOpJournal {
    // moving: names are being taken away (into temporaries); placing: new names are being given;
    // marked: files and marks are done, only the journal's retirement is left.
    enum class State { moving, placing, marked };
    QString id;              // file name stem
    QString op;              // "rename"
    State state = State::moving;
    QList<FileOpShot> shots;

    QByteArray encode() const;
    // Nothing when `data` is not a journal this version wrote (or holds more than `limit` steps).
    static std::optional<FileOpJournal> decode(const QByteArray &data, int limit = 1'000'000);

    static QString folder();                 // <app data>/journal
    QString path() const;                    // folder()/<id>.json
    // Writes it atomically (synced). Returns an error text, empty on success.
    QString save() const;
    // Keeps it as the last finished operation (for undo) and removes the running one.
    void retire() const;
    static std::optional<FileOpJournal> last();
    static void forgetLast();

    // What a start after a crash found and did.
    struct Recovery {
        int finished = 0;        // shots put under their new names
        int restored = 0;        // shots put back under their old names
        QStringList savedAs;     // files that could take neither name, under the one they have now
        QStringList unreadable;  // journals left for inspection
        QString sentence() const;   // one line for the user; empty when nothing was found
    };
    static Recovery recoverAll();
};

// The moves themselves, shared by a running operation and the recovery of an interrupted one.
namespace FileOpMoves {
// Gives every file of the shot its new name; on any failure puts the whole shot back under its
// old name (or a free one beside it, listed in `savedAs`). Returns an error text, empty when done.
QString finish(const FileOpShot &shot, QStringList &savedAs);
// Puts every file of the shot that is under its temporary name back under its old name.
void restore(const FileOpShot &shot, QStringList &savedAs);
// Moves the marks of the finished shots to their new keys, in each folder's marks file.
QString moveMarks(const QList<FileOpShot> &finished);
} // namespace FileOpMoves
