#include "iptctemplate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

namespace {

// Keywords compared as agencies do: "Boda" and "boda " are one keyword.
QString keywordKey(const QString &k) { return k.trimmed().toCaseFolded(); }

void appendUnique(QStringList &list, QSet<QString> &seen, const QString &k)
{
    const QString t = k.trimmed();
    if (t.isEmpty())
        return;
    const QString key = keywordKey(t);
    if (seen.contains(key))
        return;
    seen.insert(key);
    list.append(t);
}

bool isControl(QChar c, bool multiline)
{
    const ushort u = c.unicode();
    if (multiline && (u == '\n' || u == '\r' || u == '\t'))
        return false;
    return u < 0x20 || (u >= 0x7F && u <= 0x9F);
}

int maxChars(IptcField f)
{
    if (f == IptcField::countryCode)
        return IptcTemplate::kMaxCountryCodeChars;
    return IptcFields::multiline(f) ? IptcTemplate::kMaxTextChars : IptcTemplate::kMaxLineChars;
}

} // namespace

namespace IptcLimits {

QString problem(const IptcValues &values)
{
    for (IptcField f : IptcFields::all()) {
        const QString &v = values[f];
        if (v.size() > maxChars(f))
            return QStringLiteral("«%1» es demasiado largo (%2 caracteres; como mucho %3)")
                .arg(IptcFields::label(f)).arg(v.size()).arg(maxChars(f));
        for (const QChar c : v)
            if (isControl(c, IptcFields::multiline(f)))
                return QStringLiteral("«%1» lleva caracteres de control").arg(IptcFields::label(f));
    }
    if (values.keywords.size() > IptcTemplate::kMaxKeywords)
        return QStringLiteral("demasiadas palabras clave (%1; como mucho %2)")
            .arg(values.keywords.size()).arg(IptcTemplate::kMaxKeywords);
    for (const QString &k : values.keywords) {
        if (k.size() > IptcTemplate::kMaxKeywordChars)
            return QStringLiteral("una palabra clave es demasiado larga (%1 caracteres; como mucho %2)")
                .arg(k.size()).arg(IptcTemplate::kMaxKeywordChars);
        for (const QChar c : k)
            if (isControl(c, false))
                return QStringLiteral("una palabra clave lleva caracteres de control");
    }
    return {};
}

} // namespace IptcLimits

IptcValues IptcTemplate::appliedTo(const IptcValues &existing) const
{
    IptcValues out = existing;
    for (IptcField f : IptcFields::all()) {
        const QString &v = values[f];
        if (v.isEmpty())
            continue;
        if (mode(f) == Mode::replace || existing[f].trimmed().isEmpty())
            out[f] = v;
    }
    if (!values.keywords.isEmpty()) {
        QStringList list;
        QSet<QString> seen;
        const bool keep = keywordMode == KeywordMode::add
                          || (keywordMode == KeywordMode::ifEmpty && !existing.keywords.isEmpty());
        const bool add = keywordMode != KeywordMode::ifEmpty || existing.keywords.isEmpty();
        if (keep)
            for (const QString &k : existing.keywords)
                appendUnique(list, seen, k);
        if (add)
            for (const QString &k : values.keywords)
                appendUnique(list, seen, k);
        out.keywords = list;
    }
    return out;
}

const char *IptcTemplate::modeName(Mode m) { return m == Mode::ifEmpty ? "ifEmpty" : "replace"; }

const char *IptcTemplate::keywordModeName(KeywordMode m)
{
    switch (m) {
    case KeywordMode::add: return "add";
    case KeywordMode::replace: return "replace";
    case KeywordMode::ifEmpty: return "ifEmpty";
    }
    return "add";
}

QJsonObject IptcTemplate::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("name"), name);
    QJsonObject m;
    for (IptcField f : IptcFields::all()) {
        const QString key = QLatin1String(IptcFields::jsonName(f));
        if (!values[f].isEmpty())
            o.insert(key, values[f]);
        if (mode(f) != Mode::replace)
            m.insert(key, QLatin1String(modeName(mode(f))));
    }
    if (!values.keywords.isEmpty())
        o.insert(QLatin1String(IptcFields::kKeywordsJson), QJsonArray::fromStringList(values.keywords));
    if (keywordMode != KeywordMode::add)
        m.insert(QLatin1String(IptcFields::kKeywordsJson), QLatin1String(keywordModeName(keywordMode)));
    if (!m.isEmpty())
        o.insert(QStringLiteral("modes"), m);
    return o;
}

QByteArray IptcTemplate::toJsonBytes() const { return QJsonDocument(toJson()).toJson(QJsonDocument::Indented); }

std::optional<IptcTemplate> IptcTemplate::fromJson(const QJsonObject &o, QString *error)
{
    const auto fail = [error](const QString &why) -> std::optional<IptcTemplate> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    IptcTemplate t;
    const QJsonValue name = o.value(QStringLiteral("name"));
    if (!name.isUndefined() && !name.isString())
        return fail(QStringLiteral("«name» debe ser un texto"));
    t.name = name.toString().trimmed();

    QSet<QString> known{QStringLiteral("name"), QStringLiteral("modes"), QLatin1String(IptcFields::kKeywordsJson)};
    for (IptcField f : IptcFields::all()) {
        const QString key = QLatin1String(IptcFields::jsonName(f));
        known.insert(key);
        const QJsonValue v = o.value(key);
        if (v.isUndefined() || v.isNull())
            continue;
        if (!v.isString())
            return fail(QStringLiteral("«%1» debe ser un texto").arg(key));
        t.values[f] = v.toString().trimmed();
    }
    const QJsonValue kw = o.value(QLatin1String(IptcFields::kKeywordsJson));
    if (!kw.isUndefined() && !kw.isNull()) {
        if (!kw.isArray())
            return fail(QStringLiteral("«keywords» debe ser una lista de textos"));
        const QJsonArray a = kw.toArray();
        QSet<QString> seen;
        for (const QJsonValue &k : a) {
            if (!k.isString())
                return fail(QStringLiteral("«keywords» debe ser una lista de textos"));
            appendUnique(t.values.keywords, seen, k.toString());
        }
    }
    for (auto it = o.begin(); it != o.end(); ++it)
        if (!known.contains(it.key()))
            return fail(QStringLiteral("campo desconocido: «%1»").arg(it.key()));

    const QJsonValue modes = o.value(QStringLiteral("modes"));
    if (!modes.isUndefined()) {
        if (!modes.isObject())
            return fail(QStringLiteral("«modes» debe ser un objeto"));
        const QJsonObject m = modes.toObject();
        for (auto it = m.begin(); it != m.end(); ++it) {
            const QString value = it.value().toString();
            if (it.key() == QLatin1String(IptcFields::kKeywordsJson)) {
                if (value == QLatin1String("add")) t.keywordMode = KeywordMode::add;
                else if (value == QLatin1String("replace")) t.keywordMode = KeywordMode::replace;
                else if (value == QLatin1String("ifEmpty")) t.keywordMode = KeywordMode::ifEmpty;
                else return fail(QStringLiteral("modo desconocido para «keywords»: «%1» (add, replace o ifEmpty)").arg(value));
                continue;
            }
            bool found = false;
            for (IptcField f : IptcFields::all()) {
                if (it.key() != QLatin1String(IptcFields::jsonName(f)))
                    continue;
                found = true;
                if (value == QLatin1String("replace")) t.setMode(f, Mode::replace);
                else if (value == QLatin1String("ifEmpty")) t.setMode(f, Mode::ifEmpty);
                else return fail(QStringLiteral("modo desconocido para «%1»: «%2» (replace o ifEmpty)").arg(it.key(), value));
            }
            if (!found)
                return fail(QStringLiteral("campo desconocido en «modes»: «%1»").arg(it.key()));
        }
    }
    return t;
}

std::optional<IptcTemplate> IptcTemplate::fromJsonBytes(const QByteArray &bytes, QString *error)
{
    if (bytes.size() > kMaxJsonBytes) {
        if (error)
            *error = QStringLiteral("la plantilla ocupa demasiado (como mucho 1 MB)");
        return std::nullopt;
    }
    QJsonParseError pe{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &pe);
    if (pe.error != QJsonParseError::NoError || !doc.isObject()) {
        if (error)
            *error = QStringLiteral("la plantilla no es un JSON válido");
        return std::nullopt;
    }
    return fromJson(doc.object(), error);
}
