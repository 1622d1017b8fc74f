#pragma once
// The main window's commands as a table: object name, menu text, keys, the toolbar's short text,
// whether it is a toggle, and whether it is still to come (shown greyed, "Próximamente"). Only
// data: the window makes a QAction of each row and connects it to what it does, so a key or a
// text is changed in one place. GUI thread only (it builds QKeySequences).
#include <QKeySequence>
#include <QList>
#include <QString>

struct WindowAction {
    QString name;
    QString text;
    QList<QKeySequence> keys = {};
    QString iconText = {};
    bool checkable = false;
    bool later = false;
};

// Every row, in menu order. Names: "openFolder", "color1"…"color8", "rating1"…"rating5",
// "sort-<key>", "viewGrid"…
const QList<WindowAction> &windowActions();
