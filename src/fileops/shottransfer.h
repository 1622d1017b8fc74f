#pragma once
// Copying, moving and trashing shots, each with all its files (RAW, JPEG, its .xmp and the
// darktable-style NAME.EXT.xmp) and its marks, through the journalled engine. A shot never
// replaces a file in the destination: when any of its names is taken there (compared without
// regard to case, as a card's file system does) the whole shot takes NAME-2, NAME-3…, so its
// files keep one name. Between disks a move copies, checks and only then removes the originals.
// Runs on the calling thread (a worker): it syncs the disk.
#include "fileopengine.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace ShotTransfer {

// A shot: its files (the sidecars beside them are added).
using Shot = QStringList;

struct Move {
    QString from, to;
};
// Where each file of each shot goes in `folder`; a shot already in `folder` gets no moves.
QList<QList<Move>> plan(const QList<Shot> &shots, const QString &folder);

FileOpOutcome copy(const QList<Shot> &shots, const QString &folder, bool verify, const FileOpEngine::Progress &progress = {});
FileOpOutcome move(const QList<Shot> &shots, const QString &folder, bool verify, const FileOpEngine::Progress &progress = {});
FileOpOutcome trash(const QList<Shot> &shots, const FileOpEngine::Progress &progress = {});

// "Copiando 3 imágenes…", "Moviendo…", "Enviando a la papelera…"
QString runningText(FileOpJournal::Op op, int shots);

} // namespace ShotTransfer
