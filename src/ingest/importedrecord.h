#pragma once
// The record of imported card files: "importadas.json" in ~/.local/share/Corvane/, a JSON array of
// history keys ("DSC_0001.NEF|24567890|1716040800"). Read and written whole; writes are atomic.
// Not locked across processes: one import runs at a time. Safe on any thread (no shared state).
#include <QDateTime>
#include <QSet>
#include <QString>

namespace ImportedRecord {

// Card file name, "|", size in bytes, "|", capture date in whole seconds since 1970 UTC.
QString historyKey(const QString &fileName, qint64 size, const QDateTime &date);

// The record's path (its folder is created when missing).
QString path();

// The keys in the record; a missing, unreadable or damaged file counts as empty.
QSet<QString> load(const QString &file = path());
// Adds / removes keys in one read and one atomic write. Returns "" or one Spanish sentence.
QString add(const QSet<QString> &keys, const QString &file = path());
QString remove(const QSet<QString> &keys, const QString &file = path());

} // namespace ImportedRecord
