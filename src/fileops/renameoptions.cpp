#include "renameoptions.h"

#include <QSettings>

namespace NameCases {

QString rawValue(NameCase c)
{
    switch (c) {
    case NameCase::lower: return QStringLiteral("lower");
    case NameCase::upper: return QStringLiteral("upper");
    case NameCase::keep: break;
    }
    return QStringLiteral("keep");
}

std::optional<NameCase> fromRaw(const QString &raw)
{
    for (NameCase c : {NameCase::keep, NameCase::lower, NameCase::upper})
        if (rawValue(c) == raw)
            return c;
    return std::nullopt;
}

QString nameLabel(NameCase c)
{
    switch (c) {
    case NameCase::lower: return QStringLiteral("minúsculas");
    case NameCase::upper: return QStringLiteral("MAYÚSCULAS");
    case NameCase::keep: break;
    }
    return QStringLiteral("Sin cambios");
}

QString extensionLabel(NameCase c)
{
    switch (c) {
    case NameCase::lower: return QStringLiteral(".nef");
    case NameCase::upper: return QStringLiteral(".NEF");
    case NameCase::keep: break;
    }
    return QStringLiteral("Sin cambios");
}

QString apply(NameCase c, const QString &text)
{
    switch (c) {
    case NameCase::lower: return text.toLower();
    case NameCase::upper: return text.toUpper();
    case NameCase::keep: break;
    }
    return text;
}

} // namespace NameCases

const QList<RenameTemplate> &RenameTemplate::all()
{
    using K = NameToken::Kind;
    static const QList<RenameTemplate> list = {
        {QStringLiteral("simple"), QStringLiteral("Nombre y número"), {K::text, K::counter}},
        {QStringLiteral("date-name"), QStringLiteral("Fecha, nombre y número"), {K::date, K::text, K::counter}},
        {QStringLiteral("name-original"), QStringLiteral("Nombre y número de cámara"), {K::text, K::original}},
        {QStringLiteral("date-original"), QStringLiteral("Fecha y número de cámara"), {K::date, K::original}},
        {QStringLiteral("date-time"), QStringLiteral("Fecha y hora"), {K::date, K::time, K::counter}},
        {QStringLiteral("camera"), QStringLiteral("Cámara, fecha y número"), {K::camera, K::date, K::counter}},
        {QStringLiteral("number"), QStringLiteral("Solo número"), {K::counter}},
    };
    return list;
}

std::optional<RenameTemplate> RenameTemplate::byId(const QString &id)
{
    for (const RenameTemplate &t : all())
        if (t.id == id)
            return t;
    return std::nullopt;
}

NamePattern RenameTemplate::pattern(const QString &separator, const QString &text) const
{
    NamePattern p;
    p.separator = separator;
    for (NameToken::Kind k : kinds)
        p.tokens.append(NameToken(k, {}, k == NameToken::Kind::text ? text : QString()));
    return p;
}

NamePattern RenameOptions::effectivePattern() const
{
    if (mode == Mode::custom)
        return pattern.value_or(RenameTemplate::all().first().pattern(separator, name));
    NamePattern p;
    p.separator = separator;
    if (!name.trimmed().isEmpty())
        p.tokens.append(NameToken(NameToken::Kind::text, {}, name.trimmed()));
    p.tokens.append(NameToken(NameToken::Kind::counter));
    return p;
}

RenameOptions RenameOptions::load()
{
    const QSettings s;
    RenameOptions o;
    o.mode = s.value(QStringLiteral("rename.mode")).toString() == QLatin1String("custom") ? Mode::custom : Mode::simple;
    o.separator = s.value(QStringLiteral("rename.separator"), o.separator).toString();
    const QString json = s.value(QStringLiteral("rename.pattern")).toString();
    if (!json.isEmpty())
        o.pattern = NamePattern::fromJsonText(json);
    bool ok = false;
    if (const int n = s.value(QStringLiteral("rename.start")).toInt(&ok); ok && n >= 0)
        o.start = n;
    if (const int n = s.value(QStringLiteral("rename.digits")).toInt(&ok); ok && n >= 1 && n <= 8)
        o.digits = n;
    o.caseOn = s.value(QStringLiteral("rename.caseOn"), false).toBool();
    o.nameCase = NameCases::fromRaw(s.value(QStringLiteral("rename.nameCase")).toString()).value_or(NameCase::keep);
    o.extCase = NameCases::fromRaw(s.value(QStringLiteral("rename.extCase")).toString()).value_or(NameCase::keep);
    return o;
}

void RenameOptions::save() const
{
    QSettings s;
    s.setValue(QStringLiteral("rename.mode"), mode == Mode::custom ? QStringLiteral("custom") : QStringLiteral("simple"));
    s.setValue(QStringLiteral("rename.separator"), separator);
    if (pattern)
        s.setValue(QStringLiteral("rename.pattern"), pattern->toJsonText());
    s.setValue(QStringLiteral("rename.start"), start);
    s.setValue(QStringLiteral("rename.digits"), digits);
    s.setValue(QStringLiteral("rename.caseOn"), caseOn);
    s.setValue(QStringLiteral("rename.nameCase"), NameCases::rawValue(nameCase));
    s.setValue(QStringLiteral("rename.extCase"), NameCases::rawValue(extCase));
}
