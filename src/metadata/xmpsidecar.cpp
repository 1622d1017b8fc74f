#include "xmpsidecar.h"

#include "xmplabels.h"

#include "util/atomicbatch.h"
#include "util/atomicfile.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <sys/stat.h>

namespace XmpSidecar {
namespace {

std::optional<qlonglong> integer(const std::optional<QString> &text)
{
    if (!text)
        return std::nullopt;
    bool ok = false;
    const qlonglong v = text->trimmed().toLongLong(&ok, 10);
    return ok ? std::optional<qlonglong>(v) : std::nullopt;
}

WriteResult logged(WriteResult::Kind kind, const QString &message)
{
    qWarning().noquote() << message;
    return {kind, message};
}

QString unreadableMessage(const QString &path) { return QStringLiteral("no se pudo leer un .xmp — no se modifica: %1").arg(path); }

// The file's bytes; absent when it cannot be read or is too large to be a sidecar.
std::optional<QByteArray> readBytes(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() > XmpDocument::kMaxBytes)
        return std::nullopt;
    QByteArray bytes = f.read(XmpDocument::kMaxBytes + 1);
    if (f.error() != QFileDevice::NoError || bytes.size() > XmpDocument::kMaxBytes)
        return std::nullopt;
    return bytes;
}

} // namespace

QString failedMessage(const QString &error, const QString &path)
{
    return QStringLiteral("error guardando un .xmp: %1 (%2)").arg(error, path);
}

void apply(XmpDocument &doc, const XmpState &state, const QStringList &labels)
{
    const int color = std::clamp(state.color, 0, 8);
    const int rating = std::clamp(state.rating, 0, 5);
    const int rotation = ((state.rotation % 4) + 4) % 4;
    doc.set(kXmpNs, "xmp", "Rating", QString::number(rating));
    doc.set(kXmpNs, "xmp", "Label", XmpLabels::label(color, labels));
    doc.set(kPhotoMechanicNs, "photomechanic", "ColorClass", QString::number(color));
    doc.set(kPhotoMechanicNs, "photomechanic", "Tagged", state.flag ? QStringLiteral("True") : QStringLiteral("False"));
    // Another tool's orientation stays as it is until Corvane has turned the shot.
    if (doc.holds(kCorvaneNs, "Rotation") || rotation != 0) {
        doc.set(kCorvaneNs, "corvane", "Rotation", rotation ? QString::number(rotation) : QString());
        doc.set(kTiffNs, "tiff", "Orientation", state.orientation ? QString::number(*state.orientation) : QString());
    }
    // Photo Mechanic keeps tag, colour and rating again in "tagged:colour:rating:…".
    if (const auto prefs = doc.value(kPhotoMechanicNs, "Prefs")) {
        QStringList fields = prefs->split(QLatin1Char(':'));
        if (fields.size() > 2) {
            fields[0] = state.flag ? QStringLiteral("1") : QStringLiteral("0");
            fields[1] = QString::number(color);
            fields[2] = QString::number(rating);
            doc.set(kPhotoMechanicNs, "photomechanic", "Prefs", fields.join(QLatin1Char(':')));
        }
    }
}

XmpState stateOf(const XmpDocument &doc, const QStringList &labels)
{
    XmpState s;
    s.rating = int(std::clamp<qlonglong>(integer(doc.value(kXmpNs, "Rating")).value_or(0), 0, 5));

    const std::optional<QString> prefsText = doc.value(kPhotoMechanicNs, "Prefs");
    const QStringList prefs = prefsText ? prefsText->split(QLatin1Char(':'), Qt::SkipEmptyParts) : QStringList();
    std::optional<qlonglong> color = integer(doc.value(kPhotoMechanicNs, "ColorClass"));
    if (!color && prefs.size() >= 2)
        color = integer(prefs.at(1));
    if (color)
        s.color = int(std::clamp<qlonglong>(*color, 0, 8));
    else if (const auto label = doc.value(kXmpNs, "Label"))
        s.color = XmpLabels::colour(*label, labels);

    s.rotation = int(integer(doc.value(kCorvaneNs, "Rotation")).value_or(0) & 3);

    if (const auto tagged = doc.value(kPhotoMechanicNs, "Tagged")) {
        const QString t = tagged->trimmed().toLower();
        s.flag = t == QLatin1String("true") || t == QLatin1String("1");
    } else {
        s.flag = !prefs.isEmpty() && prefs.first() == QLatin1String("1");
    }
    return s;
}

WriteResult write(const QString &path, const XmpState &state, const QStringList &labels, AtomicBatch *batch)
{
    const QFileInfo info(path);
    const bool exists = info.exists();
    QByteArray before;
    std::optional<XmpDocument> doc;
    if (exists) {
        const auto bytes = readBytes(path);
        XmpDocument::Problem problem = XmpDocument::Problem::unreadable;
        if (bytes)
            doc = XmpDocument::parse(*bytes, &problem);
        if (!doc) {
            if (problem == XmpDocument::Problem::noDescription)
                return logged(WriteResult::noDescription, QStringLiteral("un .xmp no tiene rdf:Description — no se modifica: %1").arg(path));
            return logged(WriteResult::unreadable, unreadableMessage(path));
        }
        before = *bytes;
    } else {
        doc = XmpDocument::blank();
    }

    apply(*doc, state, labels);
    const QByteArray after = doc->bytes();
    if (exists && after == before)
        return {WriteResult::unchanged, {}};
    // The rename would replace a sidecar its owner made read-only; refuse as the folder would.
    if (exists && !info.isWritable())
        return logged(WriteResult::failed, QStringLiteral("error guardando un .xmp: el archivo es de solo lectura (%1)").arg(path));
    if (batch) {
        struct stat st {};
        const mode_t mode = exists && ::stat(QFile::encodeName(path).constData(), &st) == 0 ? (st.st_mode & 07777) : 0644;
        const AtomicFile::Result r = batch->add(path, after, mode);
        if (!r.ok())
            return logged(WriteResult::failed, failedMessage(r.error, path));
        return {WriteResult::written, {}};
    }
    const AtomicFile::Result r = AtomicFile::write(path, after);
    if (!r.ok())
        return logged(WriteResult::failed, failedMessage(r.error, path));
    if (exists)
        QFile::setPermissions(path, info.permissions());
    return {WriteResult::written, {}};
}

std::optional<XmpState> read(const QString &path, const QStringList &labels)
{
    const auto bytes = readBytes(path);
    if (!bytes)
        return std::nullopt;
    const auto doc = XmpDocument::parse(*bytes);
    if (!doc)
        return std::nullopt;
    return stateOf(*doc, labels);
}

} // namespace XmpSidecar
