#pragma once
// The choices of a batch rename and the settings that remember them ("rename.*"): a typed name
// with a separator and a running number (simple), or a full naming pattern of blocks (custom);
// the first number and its width; optional changes of case for the name and the extension.
// Plain values; load() and save() read and write the settings (any thread).
#include "ingest/namepattern.h"
#include "ingest/nametoken.h"

#include <QList>
#include <QString>
#include <optional>

enum class NameCase { keep, lower, upper };

namespace NameCases {
QString rawValue(NameCase c);                           // "keep", "lower", "upper"
std::optional<NameCase> fromRaw(const QString &raw);
QString nameLabel(NameCase c);                          // "Sin cambios", "minúsculas", "MAYÚSCULAS"
QString extensionLabel(NameCase c);                     // "Sin cambios", ".nef", ".NEF"
QString apply(NameCase c, const QString &text);
} // namespace NameCases

// A ready-made block list of custom mode.
struct RenameTemplate {
    QString id;
    QString title;
    QList<NameToken::Kind> kinds;

    // The seven built-in ones, in the sheet's order.
    static const QList<RenameTemplate> &all();
    static std::optional<RenameTemplate> byId(const QString &id);
    // A pattern of one new block of each kind, in order (text blocks take `text`).
    NamePattern pattern(const QString &separator, const QString &text = {}) const;
};

struct RenameOptions {
    enum class Mode { simple, custom };
    Mode mode = Mode::simple;
    QString name;                    // simple mode; typed each time, never remembered
    QString separator = QStringLiteral("_");
    std::optional<NamePattern> pattern;   // custom mode; none yet until the user builds one
    int start = 1;
    int digits = 3;
    bool caseOn = false;
    NameCase nameCase = NameCase::keep;
    NameCase extCase = NameCase::keep;

    // The pattern the names come from: in simple mode the typed name (when there is one), the
    // separator and the number; in custom mode the edited pattern (the first template if none).
    NamePattern effectivePattern() const;

    static RenameOptions load();
    void save() const;
};
