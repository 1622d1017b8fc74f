#include "marksfile.h"

#include "model/filekinds.h"
#include "util/atomicfile.h"
#include "util/folderlock.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>

QByteArray MarksFile::encode() const
{
    QJsonObject root;   // QJsonObject keeps its keys sorted
    root.insert(QStringLiteral("app"), QStringLiteral("Corvane"));
    root.insert(QStringLiteral("version"), 1);
    QJsonObject m;
    for (auto it = marks.cbegin(); it != marks.cend(); ++it)
        if (!it.value().isEmpty())
            m.insert(it.key(), it.value().toJson());
    root.insert(QStringLiteral("marks"), m);
    if (!cameraOffsets.isEmpty()) {
        QJsonObject o;
        for (auto it = cameraOffsets.cbegin(); it != cameraOffsets.cend(); ++it)
            o.insert(it.key(), it.value());
        root.insert(QStringLiteral("cameraOffsets"), o);
    }
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

std::optional<MarksFile> MarksFile::decode(const QByteArray &data)
{
    if (data.trimmed().isEmpty())
        return std::nullopt;
    QJsonParseError err;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &err);
    if (err.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject root = doc.object();
    const QJsonValue marksValue = root.value(QStringLiteral("marks"));
    if (!marksValue.isObject())
        return std::nullopt;
    MarksFile f;
    const QJsonObject m = marksValue.toObject();
    for (auto it = m.constBegin(); it != m.constEnd(); ++it) {
        if (!it.value().isObject())
            continue;
        const Marks marks = Marks::fromJson(it.value().toObject());
        if (!marks.isEmpty())
            f.marks.insert(it.key(), marks);
    }
    const QJsonObject offsets = root.value(QStringLiteral("cameraOffsets")).toObject();
    for (auto it = offsets.constBegin(); it != offsets.constEnd(); ++it) {
        if (!it.value().isDouble())
            continue;
        const double s = it.value().toDouble();
        if (std::isfinite(s) && std::fabs(s) <= kMaxOffsetSeconds)
            f.cameraOffsets.insert(it.key(), s);
    }
    return f;
}

QString MarksFile::keyFor(const QString &path)
{
    return FileKinds::baseNameOf(path).toLower();
}

std::optional<MarksFile> MarksFile::load(const QString &folder)
{
    for (const char *name : {kFileName, kLegacyFileName}) {
        QFile file(folder + QLatin1Char('/') + QLatin1String(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        // A file that exists but does not decode counts as no marks; the legacy one is not tried.
        return decode(file.readAll());
    }
    return std::nullopt;
}

namespace {
// Once the folder file holds the marks (or there are none), the old app's file is never read again.
QString retireLegacy(const QString &folder)
{
    const QString legacy = folder + QLatin1Char('/') + QLatin1String(MarksFile::kLegacyFileName);
    if (QFile::exists(legacy) && !QFile::remove(legacy))
        return QStringLiteral("No se pudo borrar el archivo antiguo de marcas «%1».").arg(legacy);
    return {};
}
} // namespace

QString MarksFile::save(const QString &folder, const MarksMap &marks, std::optional<CameraOffsets> offsets)
{
    const QString target = folder + QLatin1Char('/') + QLatin1String(kFileName);
    if (!offsets) {
        if (const auto existing = load(folder))
            offsets = existing->cameraOffsets;
    }
    bool anyMarks = false;
    for (const Marks &m : marks)
        if (!m.isEmpty()) {
            anyMarks = true;
            break;
        }
    const bool anyOffsets = offsets && !offsets->isEmpty();

    if (anyMarks || anyOffsets) {
        MarksFile f;
        f.marks = marks;
        if (offsets)
            f.cameraOffsets = *offsets;
        const AtomicFile::Result r = AtomicFile::write(target, f.encode());
        if (!r.ok())
            return QStringLiteral("No se pudieron guardar las marcas en «%1»: %2. Siguen en memoria y se volverá a intentar.")
                .arg(folder, r.error);
        return retireLegacy(folder);
    }
    if (QFile::exists(target) && !QFile::remove(target))
        return QStringLiteral("No se pudo borrar «%1», que ya no tiene marcas.").arg(target);
    // With no marks left the old file must go too, or it would bring them back at the next load.
    return retireLegacy(folder);
}

QString MarksFile::saveChanges(const QString &folder, const MarksMap &ours, const QSet<QString> &changed,
                               std::optional<CameraOffsets> offsets, MarksMap *merged)
{
    const FolderLock lock(folder);
    const auto existing = load(folder);
    // A file that is there but does not decode holds nothing to keep: this process's map
    // replaces it whole, as it did before marks were merged.
    const bool unreadable = !existing && QFile::exists(folder + QLatin1Char('/') + QLatin1String(kFileName));
    MarksMap result = existing ? existing->marks : unreadable ? ours : MarksMap{};
    for (const QString &key : changed) {
        const auto it = ours.constFind(key);
        if (it != ours.constEnd() && !it->isEmpty())
            result.insert(key, *it);
        else
            result.remove(key);
    }
    if (!offsets)
        offsets = existing ? existing->cameraOffsets : CameraOffsets{};
    const QString error = save(folder, result, offsets);
    if (merged)
        *merged = std::move(result);
    return error;
}
