#pragma once
// One undoable change of marks: what it was ("color", "estrellas"…) and, per shot, its marks
// before and after, keyed by the shot's main file. A file operation takes its place in the same
// list, so Ctrl+Z goes back through both in the order they were made.
#include "marks.h"

#include <QList>
#include <QString>
#include <optional>

struct MarksChange {
    struct Shot {
        QString file;                  // the shot's main file
        std::optional<Marks> before;   // absent: no marks
        std::optional<Marks> after;
    };
    QString what;
    QList<Shot> shots;
    // A file operation (rename, move, copy, trash): undone through its journal, never redone.
    // `what` then says it whole ("papelera de 3 imágenes").
    QString fileOp;

    bool isEmpty() const { return shots.isEmpty() && fileOp.isEmpty(); }
    // "color en 35 imágenes", "color en 1 imagen"
    QString describe() const;
};
