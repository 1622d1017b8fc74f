#pragma once
// One block of a naming pattern: a kind, plus a date format (date, time) or a literal text (text).
// A value type; `id` only gives the block an identity in lists (drag, remove).
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

struct NameValues;

struct NameToken {
    // Closed set; the order is also the order of the editor's palette.
    enum class Kind { date, time, session, counter, camera, original, text, folder };

    QUuid id = QUuid::createUuid();
    Kind kind = Kind::text;
    QString format;   // Unicode date pattern for date/time; empty = the kind's default
    QString text;     // literal text for `text`

    NameToken() = default;
    explicit NameToken(Kind k, const QString &format = {}, const QString &text = {});

    // Same kind, format and text (ids are ignored: two presets compare equal).
    bool sameContent(const NameToken &o) const { return kind == o.kind && format == o.format && text == o.text; }
    bool operator==(const NameToken &) const = default;

    // This block's piece of text for `values`; `separator` is the pattern's (the session joins
    // its words with it). Not cleaned as a whole name: that is the pattern's last step.
    QString render(const NameValues &values, const QString &separator) const;

    // {"id": "<uuid>", "kind": "date", "format": "", "text": ""}; format and text always present.
    QJsonObject toJson() const;
    // Nothing when `kind` is missing or unknown. A missing or bad id gets a fresh one; missing
    // format/text read as empty.
    static std::optional<NameToken> fromJson(const QJsonObject &o);

    // ----- The kinds
    static const QList<Kind> &allKinds();            // palette order
    static QString rawValue(Kind k);                  // "date", "time", "session", …
    static std::optional<Kind> kindFromRaw(const QString &raw);
    static QString label(Kind k);                     // "Fecha", "Hora", "Sesión", "Número", …
    static QString defaultFormat(Kind k);             // "yyyyMMdd" for date, "HHmmss" for time, else ""
    // Whether the palette offers the kind again once it stands in a pattern (only `text`).
    static bool repeatable(Kind k) { return k == Kind::text; }
};
