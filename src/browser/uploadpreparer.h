#pragma once
// What the upload queue sends for each file: the file as it is, or, for a job that resizes, a
// JPEG of the asked long side decoded through the pipeline's decode road, encoded by libvips and
// carrying the original's IPTC texts (captions and credits travel with the picture to the desk).
// Thread-safe: the queue calls it from its workers.
#include "upload/uploadjob.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

class Photo;

namespace UploadPreparer {

// As UploadQueue::Preparer: `bytes` stays null for a file sent as it is.
bool prepare(const UploadJob &job, const QString &path, QByteArray *bytes, QString *error);

// The files of these shots to send: every member file, or with `jpegOnly` only the JPEG of a
// RAW+JPEG pair (a shot without JPEG sends what it has). Sidecars are left behind.
QStringList filesOf(const QList<Photo *> &photos, bool jpegOnly);

} // namespace UploadPreparer
