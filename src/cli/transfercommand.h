#pragma once
#include <QStringList>

// corvane copy|move --to DIR [--verify] FILE...: copies or moves the shots of the files given, each
// with all its files, sidecars and marks, never replacing a file in DIR.
int copyCommand(const QStringList &args);
int moveCommand(const QStringList &args);
// corvane trash FILE...: sends the shots of the files given to the trash.
int trashCommand(const QStringList &args);
