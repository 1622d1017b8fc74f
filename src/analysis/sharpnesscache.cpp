#include "sharpnesscache.h"

#include "util/atomicfile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

namespace {
const char *const kFileName = "nitidez-v6.json";
// Earlier generations of the measure; their scores are not comparable with today's.
const char *const kOldFiles[] = {"nitidez.json", "nitidez-caras.json", "nitidez-v3.json", "nitidez-v4.json",
                                 "nitidez-v5.json"};
} // namespace

SharpnessCache::SharpnessCache(const QString &folder) : _url(QDir(folder).filePath(QLatin1String(kFileName)))
{
    const QDir dir(folder);
    for (const char *old : kOldFiles)
        QFile::remove(dir.filePath(QLatin1String(old)));

    QFile file(_url);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll());
    const QJsonObject root = doc.object();   // empty when the file is not a JSON object
    for (auto it = root.constBegin(); it != root.constEnd(); ++it) {
        const QJsonObject o = it.value().toObject();
        const QJsonValue s = o.value(QLatin1String("s"));
        if (!s.isDouble())
            continue;
        values.insert(it.key(), {s.toDouble(), o.value(QLatin1String("x")).toDouble(0.5),
                                 o.value(QLatin1String("y")).toDouble(0.5)});
    }
}

QString SharpnessCache::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/com.tessaly.corvane");
}

SharpnessCache &SharpnessCache::shared()
{
    static SharpnessCache cache(defaultFolder());
    return cache;
}

QString SharpnessCache::photoKey(const QString &path)
{
    const QFileInfo info(path);
    return path + QLatin1Char('|') + QString::number(info.size()) + QLatin1Char('|')
        + QString::number(info.lastModified().toMSecsSinceEpoch());
}

std::optional<SharpResult> SharpnessCache::get(const QString &key) const
{
    QMutexLocker locker(&lock);
    const auto it = values.constFind(key);
    if (it == values.constEnd())
        return std::nullopt;
    SharpResult r;
    r.best = it->best;
    r.focusX = it->focusX;
    r.focusY = it->focusY;
    return r;
}

void SharpnessCache::put(const QString &key, const SharpResult &result)
{
    QMutexLocker locker(&lock);
    values.insert(key, {result.best, result.focusX, result.focusY});
    dirty = true;
    ++generation;
}

bool SharpnessCache::isDirty() const
{
    QMutexLocker locker(&lock);
    return dirty;
}

bool SharpnessCache::save()
{
    // One writer at a time, so an older snapshot can never land after a newer one.
    QMutexLocker saving(&saveLock);
    QJsonObject root;
    quint64 savedGeneration;
    {
        QMutexLocker locker(&lock);
        if (!dirty)
            return true;
        for (auto it = values.constBegin(); it != values.constEnd(); ++it)
            root.insert(it.key(), QJsonObject{{QStringLiteral("s"), it->best},
                                              {QStringLiteral("x"), it->focusX},
                                              {QStringLiteral("y"), it->focusY}});
        savedGeneration = generation;
    }
    // The disk write happens outside the lock so measuring workers are never held up by it.
    QDir().mkpath(QFileInfo(_url).absolutePath());
    if (!AtomicFile::write(_url, QJsonDocument(root).toJson(QJsonDocument::Compact)).ok())
        return false;
    QMutexLocker locker(&lock);
    if (generation == savedGeneration)
        dirty = false;
    return true;
}
