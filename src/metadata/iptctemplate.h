#pragma once
// A named IPTC template: the texts to put on shots, and for each field whether it replaces what a
// file holds or fills it only when empty; keywords may also be added to the file's own. Kept as
// JSON whose keys are the IPTC standard's lower-camel-case names, so a template can be written by
// hand or by a script:
//   {"name": "Boda", "creator": "Ana Núñez", "keywords": ["boda", "Segovia"],
//    "modes": {"creator": "ifEmpty", "keywords": "add"}}
// A field left out (or empty) is never touched. Plain value; safe on any thread.
#include "iptcfields.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <array>
#include <optional>

struct IptcTemplate {
    enum class Mode { replace, ifEmpty };
    enum class KeywordMode { add, replace, ifEmpty };

    // Bounds of what a template (and the text a file ends up with) may hold; beyond them a file
    // is refused with a message rather than written with a field no agency tool would take.
    static constexpr int kMaxLineChars = 512;
    static constexpr int kMaxTextChars = 2000;      // description, usage terms, instructions
    static constexpr int kMaxCountryCodeChars = 3;
    static constexpr int kMaxKeywordChars = 100;
    static constexpr int kMaxKeywords = 1000;
    static constexpr qsizetype kMaxJsonBytes = 1024 * 1024;

    QString name;
    IptcValues values;
    std::array<Mode, kIptcFieldCount> modes{};      // replace by default
    KeywordMode keywordMode = KeywordMode::add;

    Mode mode(IptcField f) const { return modes[size_t(f)]; }
    void setMode(IptcField f, Mode m) { modes[size_t(f)] = m; }

    // Whether the template writes anything at all.
    bool isEmpty() const { return values.isEmpty(); }

    // What a file holding `existing` holds after the template is applied.
    IptcValues appliedTo(const IptcValues &existing) const;

    QJsonObject toJson() const;
    QByteArray toJsonBytes() const;
    // Absent, with a Spanish sentence in `error`, for text that is not a template. The limits are
    // not checked here but on each file written (IptcLimits), where the file's own texts count too.
    static std::optional<IptcTemplate> fromJson(const QJsonObject &o, QString *error = nullptr);
    static std::optional<IptcTemplate> fromJsonBytes(const QByteArray &bytes, QString *error = nullptr);

    static const char *modeName(Mode m);
    static const char *keywordModeName(KeywordMode m);
};

namespace IptcLimits {
// The first reason `values` cannot be written (a Spanish phrase), or empty when it can: a field
// too long, control characters, too many or too long keywords.
QString problem(const IptcValues &values);
} // namespace IptcLimits
