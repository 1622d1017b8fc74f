#pragma once
// One undoable change of marks: what it was ("color", "estrellas"…) and, per shot, its marks
// before and after, keyed by the shot's main file.
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

    bool isEmpty() const { return shots.isEmpty(); }
    // "color en 35 imágenes", "color en 1 imagen"
    QString describe() const;
};
