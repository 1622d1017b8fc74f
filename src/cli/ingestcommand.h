#pragma once
#include <QStringList>

// corvane ingest --from DIR --to DIR [--backup DIR] [--structure S] [--session TEXT] [--rename]
// [--preset N | --pattern JSON] [--start N] [--digits N] [--skip-imported] [--video] [--verify]
// [--eject] [--dry-run] [--json]: imports a card (or any folder) with the window's engine, a
// progress bar on a terminal and the summary at the end. Exit status 1 when anything failed.
int ingestCommand(const QStringList &args);
