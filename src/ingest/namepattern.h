#pragma once
// A naming pattern: blocks joined by one separator, rendered into a cleaned base file name
// (no extension). Uniqueness of names in a destination is the caller's work.
// Rendering is pure except for the shared date-formatter cache, so it may run on any thread.
#include "nametoken.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

class QSettings;
struct NamePatternPreset;
struct NameValues;

struct NamePattern {
    QList<NameToken> tokens;
    QString separator = QStringLiteral("_");

    // Renders each block, drops the empty pieces, joins them with `separator` as stored, and
    // applies the name cleaning. May be empty: the caller then keeps the original name.
    QString render(const NameValues &values) const;

    bool contains(NameToken::Kind k) const;
    // Neither «Número» nor «Nombre original»: several images will get the same base name.
    bool mayRepeatNames() const { return !tokens.isEmpty() && !contains(NameToken::Kind::counter) && !contains(NameToken::Kind::original); }
    // Same blocks (kind, format, text) and separator, ignoring ids.
    bool sameContent(const NamePattern &o) const;
    bool operator==(const NamePattern &) const = default;

    // {"separator": "_", "tokens": [...]}
    QJsonObject toJson() const;
    QString toJsonText() const;   // compact
    // Nothing when `tokens` is not an array of decodable blocks or `separator` is not a string.
    static std::optional<NamePattern> fromJson(const QJsonObject &o);
    static std::optional<NamePattern> fromJsonText(const QString &json);

    // date ("yyyyMMdd"), session, counter; separator "_".
    static NamePattern defaultPattern();

    // The seven built-in presets, in the editor's order; fresh ids on every call.
    using Preset = NamePatternPreset;
    static QList<Preset> presets();

    // The pattern kept as JSON text under `key` ("ingest.namePattern"); the default pattern when
    // the key is missing or does not decode.
    static NamePattern load(const QSettings &settings, const QString &key = QStringLiteral("ingest.namePattern"));
    void save(QSettings &settings, const QString &key = QStringLiteral("ingest.namePattern")) const;
};

struct NamePatternPreset {
    QString title;          // "Fecha · Sesión · Número", …
    NamePattern pattern;
};
