#pragma once
// The IPTC texts agencies read on every shot: the fields of a template and of a file, named as
// in the IPTC Photo Metadata standard (lower camel case, the template JSON's keys) and in Spanish
// for the window. Plain values; safe on any thread.
#include <QString>
#include <QStringList>
#include <array>

enum class IptcField {
    creator,
    creatorJobtitle,
    creditLine,
    source,
    copyrightNotice,
    usageTerms,
    headline,
    description,
    event,
    city,
    provinceState,
    country,
    countryCode,
    instructions,
    contactEmail,
    contactPhone,
    contactUrl,
};
inline constexpr int kIptcFieldCount = int(IptcField::contactUrl) + 1;

namespace IptcFields {
// "creatorJobtitle"
const char *jsonName(IptcField f);
// "Cargo del autor"
QString label(IptcField f);
// The fields that may hold several lines (the others are one line).
bool multiline(IptcField f);
// Every field, in the order of the window and of `corvane iptc show`.
const std::array<IptcField, kIptcFieldCount> &all();
// The key "keywords" and its label "Palabras clave".
inline constexpr char kKeywordsJson[] = "keywords";
QString keywordsLabel();
} // namespace IptcFields

struct IptcValues {
    std::array<QString, kIptcFieldCount> text;
    QStringList keywords;

    QString &operator[](IptcField f) { return text[size_t(f)]; }
    const QString &operator[](IptcField f) const { return text[size_t(f)]; }
    bool isEmpty() const;
    bool operator==(const IptcValues &) const = default;
};
