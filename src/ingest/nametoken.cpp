#include "nametoken.h"

#include "namecleaning.h"
#include "namevalues.h"
#include "posixdateformatter.h"

#include <QJsonValue>
#include <QStringList>
#include <algorithm>

namespace {

struct KindInfo {
    NameToken::Kind kind;
    const char *raw;
    const char *label;   // UTF-8
};

const KindInfo kKinds[] = {
    {NameToken::Kind::date, "date", "Fecha"},
    {NameToken::Kind::time, "time", "Hora"},
    {NameToken::Kind::session, "session", "Sesión"},
    {NameToken::Kind::counter, "counter", "Número"},
    {NameToken::Kind::camera, "camera", "Cámara"},
    {NameToken::Kind::original, "original", "Nombre original"},
    {NameToken::Kind::text, "text", "Texto"},
    {NameToken::Kind::folder, "folder", "Carpeta"},
};

const KindInfo &info(NameToken::Kind k)
{
    return kKinds[int(k)];
}

} // namespace

NameToken::NameToken(Kind k, const QString &format, const QString &text)
    : kind(k), format(format), text(text)
{
}

const QList<NameToken::Kind> &NameToken::allKinds()
{
    static const QList<Kind> kinds = [] {
        QList<Kind> l;
        for (const KindInfo &i : kKinds)
            l.append(i.kind);
        return l;
    }();
    return kinds;
}

QString NameToken::rawValue(Kind k)
{
    return QString::fromLatin1(info(k).raw);
}

std::optional<NameToken::Kind> NameToken::kindFromRaw(const QString &raw)
{
    for (const KindInfo &i : kKinds)
        if (raw == QLatin1String(i.raw))
            return i.kind;
    return std::nullopt;
}

QString NameToken::label(Kind k)
{
    return QString::fromUtf8(info(k).label);
}

QString NameToken::defaultFormat(Kind k)
{
    switch (k) {
    case Kind::date:
        return QStringLiteral("yyyyMMdd");
    case Kind::time:
        return QStringLiteral("HHmmss");
    default:
        return {};
    }
}

QString NameToken::render(const NameValues &v, const QString &separator) const
{
    switch (kind) {
    case Kind::date:
    case Kind::time:
        return PosixDateFormatter::formatDate(v.date, format.isEmpty() ? defaultFormat(kind) : format);
    case Kind::session: {
        // A session never brings dots or run-together words into a name.
        const QString wordSeparator = (separator.isEmpty() || separator == QLatin1String(".")) ? QStringLiteral("_") : separator;
        return NameCleaning::component(v.session).split(QLatin1Char(' '), Qt::SkipEmptyParts).join(wordSeparator);
    }
    case Kind::counter: {
        const int width = int(std::clamp<qint64>(v.digits, 1, 8));
        return QString::asprintf("%0*lld", width, static_cast<long long>(v.seq));
    }
    case Kind::camera:
        return NameCleaning::component(v.camera.value_or(QString())).remove(QLatin1Char(' '));
    case Kind::original:
        return v.original;
    case Kind::text:
        return NameCleaning::component(text);
    case Kind::folder:
        return NameCleaning::component(v.folder);
    }
    return {};
}

QJsonObject NameToken::toJson() const
{
    return QJsonObject{
        {QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("kind"), rawValue(kind)},
        {QStringLiteral("format"), format},
        {QStringLiteral("text"), text},
    };
}

std::optional<NameToken> NameToken::fromJson(const QJsonObject &o)
{
    const auto k = kindFromRaw(o.value(QStringLiteral("kind")).toString());
    if (!k)
        return std::nullopt;
    NameToken t(*k, o.value(QStringLiteral("format")).toString(), o.value(QStringLiteral("text")).toString());
    const QUuid id = QUuid::fromString(o.value(QStringLiteral("id")).toString());
    if (!id.isNull())
        t.id = id;
    return t;
}
