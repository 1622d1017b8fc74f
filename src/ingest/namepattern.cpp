#include "namepattern.h"

#include "namecleaning.h"
#include "namevalues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSettings>
#include <QStringList>

QString NamePattern::render(const NameValues &values) const
{
    QStringList pieces;
    for (const NameToken &t : tokens) {
        const QString piece = t.render(values, separator);
        if (!piece.isEmpty())   // an unknown camera or empty session leaves no doubled separator
            pieces.append(piece);
    }
    return NameCleaning::name(pieces.join(separator));
}

bool NamePattern::contains(NameToken::Kind k) const
{
    for (const NameToken &t : tokens)
        if (t.kind == k)
            return true;
    return false;
}

bool NamePattern::sameContent(const NamePattern &o) const
{
    if (separator != o.separator || tokens.size() != o.tokens.size())
        return false;
    for (qsizetype i = 0; i < tokens.size(); ++i)
        if (!tokens[i].sameContent(o.tokens[i]))
            return false;
    return true;
}

QJsonObject NamePattern::toJson() const
{
    QJsonArray array;
    for (const NameToken &t : tokens)
        array.append(t.toJson());
    return QJsonObject{{QStringLiteral("tokens"), array}, {QStringLiteral("separator"), separator}};
}

QString NamePattern::toJsonText() const
{
    return QString::fromUtf8(QJsonDocument(toJson()).toJson(QJsonDocument::Compact));
}

std::optional<NamePattern> NamePattern::fromJson(const QJsonObject &o)
{
    const QJsonValue tokens = o.value(QStringLiteral("tokens"));
    const QJsonValue separator = o.value(QStringLiteral("separator"));
    if (!tokens.isArray() || !separator.isString())
        return std::nullopt;
    NamePattern p;
    p.separator = separator.toString();
    for (const QJsonValue &v : tokens.toArray()) {
        if (!v.isObject())
            return std::nullopt;
        auto t = NameToken::fromJson(v.toObject());
        if (!t)
            return std::nullopt;
        p.tokens.append(*t);
    }
    return p;
}

std::optional<NamePattern> NamePattern::fromJsonText(const QString &json)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return fromJson(doc.object());
}

namespace {

NamePattern make(std::initializer_list<NameToken::Kind> kinds)
{
    NamePattern p;
    for (NameToken::Kind k : kinds)
        p.tokens.append(NameToken(k, NameToken::defaultFormat(k)));   // fresh ids
    p.separator = QStringLiteral("_");
    return p;
}

} // namespace

NamePattern NamePattern::defaultPattern()
{
    using K = NameToken::Kind;
    return make({K::date, K::session, K::counter});
}

QList<NamePattern::Preset> NamePattern::presets()
{
    using K = NameToken::Kind;
    return {
        {QStringLiteral("Fecha · Sesión · Número"), defaultPattern()},
        {QStringLiteral("Fecha · Número"), make({K::date, K::counter})},
        {QStringLiteral("Sesión · Número"), make({K::session, K::counter})},
        {QStringLiteral("Fecha · Hora · Número"), make({K::date, K::time, K::counter})},
        {QStringLiteral("Fecha · Nombre original"), make({K::date, K::original})},
        {QStringLiteral("Cámara · Fecha · Número"), make({K::camera, K::date, K::counter})},
        {QStringLiteral("Solo el nombre original"), make({K::original})},
    };
}

NamePattern NamePattern::load(const QSettings &settings, const QString &key)
{
    const QVariant v = settings.value(key);
    if (v.isValid()) {
        if (auto p = fromJsonText(v.toString()))
            return *p;
    }
    return defaultPattern();
}

void NamePattern::save(QSettings &settings, const QString &key) const
{
    settings.setValue(key, toJsonText());
}
