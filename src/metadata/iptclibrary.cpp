#include "iptclibrary.h"

#include "util/atomicfile.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

namespace IptcLibrary {
namespace {

constexpr qsizetype kMaxFileBytes = 16 * 1024 * 1024;

qsizetype indexOf(const QList<IptcTemplate> &list, const QString &name)
{
    for (qsizetype i = 0; i < list.size(); ++i)
        if (list[i].name.compare(name, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

QString write(const QList<IptcTemplate> &list, const QString &file)
{
    QJsonArray a;
    for (const IptcTemplate &t : list)
        a.append(t.toJson());
    QDir().mkpath(QFileInfo(file).absolutePath());
    const AtomicFile::Result r = AtomicFile::write(file, QJsonDocument(a).toJson(QJsonDocument::Indented));
    return r.ok() ? QString() : QStringLiteral("No se pudieron guardar las plantillas IPTC: %1.").arg(r.error);
}

} // namespace

QString path()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    return base + QStringLiteral("/Corvane/plantillas-iptc.json");
}

QList<IptcTemplate> load(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly) || f.size() > kMaxFileBytes)
        return {};
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll());
    QList<IptcTemplate> out;
    for (const QJsonValue &v : doc.array()) {
        auto t = IptcTemplate::fromJson(v.toObject());
        if (t && !t->name.isEmpty() && indexOf(out, t->name) < 0)
            out.append(std::move(*t));
    }
    return out;
}

std::optional<IptcTemplate> find(const QString &name, const QString &file)
{
    const QList<IptcTemplate> list = load(file);
    const qsizetype i = indexOf(list, name.trimmed());
    return i < 0 ? std::nullopt : std::optional<IptcTemplate>(list[i]);
}

QString save(const IptcTemplate &t, const QString &previousName, const QString &file)
{
    IptcTemplate saved = t;
    saved.name = t.name.trimmed();
    if (saved.name.isEmpty())
        return QStringLiteral("La plantilla necesita un nombre.");
    const QString problem = IptcLimits::problem(saved.values);
    if (!problem.isEmpty())
        return QStringLiteral("No se puede guardar la plantilla: %1.").arg(problem);
    QList<IptcTemplate> list = load(file);
    const qsizetype old = indexOf(list, previousName.isEmpty() ? saved.name : previousName);
    const qsizetype clash = indexOf(list, saved.name);
    if (clash >= 0 && clash != old)
        return QStringLiteral("Ya hay una plantilla que se llama «%1».").arg(saved.name);
    if (old >= 0)
        list[old] = saved;
    else
        list.append(saved);
    return write(list, file);
}

QString remove(const QString &name, const QString &file)
{
    QList<IptcTemplate> list = load(file);
    const qsizetype i = indexOf(list, name);
    if (i < 0)
        return {};
    list.removeAt(i);
    return write(list, file);
}

QString copyName(const QString &name, const QString &file)
{
    const QList<IptcTemplate> list = load(file);
    QString candidate = QStringLiteral("%1 (copia)").arg(name);
    for (int n = 2; indexOf(list, candidate) >= 0; ++n)
        candidate = QStringLiteral("%1 (copia %2)").arg(name).arg(n);
    return candidate;
}

} // namespace IptcLibrary
