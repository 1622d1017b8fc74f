#pragma once
// The in-memory marks of every folder touched. GUI thread only (the CLI uses it on its main
// thread). Persisting hands a folder's map and the keys changed since the last persist to the
// MarksStore, which writes only those keys.
#include "marksfile.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <optional>

class MarksStore;

class MarksBook
{
public:
    explicit MarksBook(MarksStore *store) : store(store) {}

    // The folder's map, loaded from disk the first time it is asked for.
    const MarksMap &folder(const QString &folder);
    // Replaces a folder's map as loaded elsewhere (a scan worker read the file).
    void seed(const QString &folder, const MarksMap &marks);
    bool isLoaded(const QString &folder) const;
    // The marks of one shot (by its main file), or absent.
    std::optional<Marks> marksFor(const QString &mainFile);
    // Sets or (with an empty record or nullopt) removes one shot's marks.
    void set(const QString &mainFile, std::optional<Marks> marks, bool persist = true);
    // Hands a folder's changes to the store (after several set(…, false)).
    void persist(const QString &folder);
    // Takes the marks another process wrote into the folder's file, except where this process
    // has a change not yet on disk. Nothing is scheduled: the file already holds them. Returns
    // the keys whose marks changed.
    QSet<QString> adopt(const QString &folder, const MarksMap &onDisk);
    // Moves a shot's marks to a new main file (a rename or a move).
    void move(const QString &oldMainFile, const QString &newMainFile);
    void forget(const QString &folder);

    MarksStore *writer() const { return store; }

    QHash<QString, MarksMap> byDir;   // standardised folder path → key → marks

private:
    MarksStore *store;
    QHash<QString, QSet<QString>> dirty;   // folder → keys set since its last persist
};
