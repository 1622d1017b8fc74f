#pragma once
// One sidecar read or written, synchronously: the work of XMPStore's queue and of the command
// line. An existing sidecar is edited in place (XmpDocument) and replaced atomically; one that
// cannot be understood is left untouched. Problems are logged with the file's path. Safe on any
// thread, but two writes of one sidecar must not run at once (XMPStore serialises them).
#include "xmpdocument.h"
#include "xmpstate.h"

#include <QString>
#include <QStringList>
#include <optional>

class AtomicBatch;

namespace XmpSidecar {

inline constexpr char kXmpNs[] = "http://ns.adobe.com/xap/1.0/";
inline constexpr char kPhotoMechanicNs[] = "http://ns.camerabits.com/photomechanic/1.0/";
inline constexpr char kTiffNs[] = "http://ns.adobe.com/tiff/1.0/";
inline constexpr char kCorvaneNs[] = "https://corvane.app/ns/1.0/";

struct WriteResult {
    enum Kind { written, unchanged, unreadable, noDescription, failed } kind = written;
    QString message;   // what was logged, path included; empty when written or unchanged
    bool ok() const { return kind == written || kind == unchanged; }
};

// Writes `state` into the sidecar at `path`, creating it from the template when absent.
// `labels` are the texts of colours 1…5 (XmpLabels::userLabels()). With a batch the new bytes
// wait in it, and the sidecar changes at the batch's commit.
WriteResult write(const QString &path, const XmpState &state, const QStringList &labels, AtomicBatch *batch = nullptr);

// The line logged when a write failed, as write() logs it.
QString failedMessage(const QString &error, const QString &path);

// The marks the sidecar at `path` holds; absent when it is missing or cannot be understood.
std::optional<XmpState> read(const QString &path, const QStringList &labels);

// The edit and the reading themselves, on a packet in memory.
void apply(XmpDocument &doc, const XmpState &state, const QStringList &labels);
XmpState stateOf(const XmpDocument &doc, const QStringList &labels);

} // namespace XmpSidecar
