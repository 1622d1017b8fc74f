#pragma once
// The new names of a batch rename, checked before anything is touched: one row per shot with its
// old and new name and extensions, and the problem that blocks it (a name already taken in the
// folder). What counts as taken: a file of the folder that is not itself being renamed, compared
// without regard to case (a memory card's file system ignores it); names that only swap among the
// renamed shots never block, since the rename goes through temporary names. Pure (companions()
// looks at the disk); any thread.
#include "renameoptions.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>

// One shot to rename, with every file that carries its name.
struct RenameShot {
    QString mainFile;
    QStringList files;               // the shot's files and its sidecars (see companions())
    QDateTime date;                  // capture date, else the file's
    std::optional<QString> camera;

    // `files` plus the sidecars beside them: NAME.xmp and the darktable-style NAME.EXT.xmp.
    static QStringList companions(const QStringList &files);
};

struct RenameMove {
    QString from, to;   // full paths
};

struct RenameRow {
    int index = 0;                // in the shots handed over
    QString oldName, newName;     // base names
    QStringList oldExts, newExts; // "NEF", "JPG", "xmp"…, as shown
    bool changed = false;
    QString problem;              // "<name> ya existe en la carpeta"; empty when none
    QList<RenameMove> moves;      // only the files whose name changes
};

struct RenamePlan {
    QList<RenameRow> rows;
    bool numbersRepeats = false;  // the pattern may repeat names: equal ones get -2, -3…

    int conflicts() const;
    int changedCount() const;
    int fileCount() const;        // files that change name
    bool canRename() const { return conflicts() == 0 && changedCount() > 0; }
    // The footer line and the button's text of the sheet.
    QString footer() const;
    QString buttonText() const;

    static QString repeatsNote();   // "Sin «Número» ni «Nombre original», Corvane añade -2, -3…"
};

// `shots` in the browser's order (that is the numbering order); `folderFiles` are the names of
// every file in the shots' folder.
RenamePlan planRename(const QList<RenameShot> &shots, const RenameOptions &options, const QStringList &folderFiles);
