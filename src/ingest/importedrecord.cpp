#include "importedrecord.h"

#include "util/atomicfile.h"
#include "util/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

#include <algorithm>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace ImportedRecord {
namespace {

// Two imports finishing at once must not lose each other's keys: the read-modify-write runs under
// an advisory lock on a hidden file beside the record.
class RecordLock
{
public:
    explicit RecordLock(const QString &file)
    {
        const QString lockPath = QFileInfo(file).absolutePath() + QStringLiteral("/.importadas.lock");
        _fd.reset(::open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (_fd)
            ::flock(_fd.get(), LOCK_EX);
    }

private:
    UniqueFd _fd;   // closing it releases the lock
};

QString write(const QString &file, const QSet<QString> &keys)
{
    QStringList sorted(keys.begin(), keys.end());
    std::sort(sorted.begin(), sorted.end());
    const QByteArray json = QJsonDocument(QJsonArray::fromStringList(sorted)).toJson(QJsonDocument::Compact);
    const AtomicFile::Result r = AtomicFile::write(file, json);
    if (!r.ok())
        return QStringLiteral("No se pudo guardar la lista de importadas en «%1»: %2.").arg(file, r.error);
    return {};
}

QString update(const QSet<QString> &add, const QSet<QString> &remove, const QString &file)
{
    QDir().mkpath(QFileInfo(file).absolutePath());
    RecordLock lock(file);
    QSet<QString> keys = load(file);
    const qsizetype before = keys.size();
    keys.unite(add);
    for (const QString &k : remove)
        keys.remove(k);
    if (keys.size() == before && remove.isEmpty() && QFileInfo::exists(file))
        return {};
    return write(file, keys);
}

} // namespace

QString historyKey(const QString &fileName, qint64 size, const QDateTime &date)
{
    // Whole seconds, truncated (msecs / 1000 rounds towards zero).
    return fileName + QLatin1Char('|') + QString::number(size) + QLatin1Char('|')
           + QString::number(date.isValid() ? date.toMSecsSinceEpoch() / 1000 : 0);
}

QString path()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    const QString folder = base + QStringLiteral("/Corvane");
    QDir().mkpath(folder);
    return folder + QStringLiteral("/importadas.json");
}

QSet<QString> load(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll());
    QSet<QString> keys;
    if (!doc.isArray())
        return keys;
    const QJsonArray array = doc.array();
    for (const QJsonValue &v : array)
        if (v.isString())
            keys.insert(v.toString());
    return keys;
}

QString add(const QSet<QString> &keys, const QString &file) { return update(keys, {}, file); }

QString remove(const QSet<QString> &keys, const QString &file)
{
    if (keys.isEmpty())
        return {};
    return update({}, keys, file);
}

} // namespace ImportedRecord
