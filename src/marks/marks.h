#pragma once
// One shot's marks as they are stored: every field optional, absent ones omitted from JSON.
#include "model/colorclass.h"
#include "model/crop.h"

#include <QJsonObject>
#include <optional>

class Photo;

struct Marks {
    std::optional<int> c;          // colour class 1…8
    std::optional<int> r;          // stars 1…5
    std::optional<bool> t;         // flagged; only true is stored
    std::optional<int> o;          // quarter turns 1…3
    std::optional<CropSpec> k;     // crop, never an identity crop

    bool isEmpty() const { return !c && !r && !t && !o && !k; }
    bool operator==(const Marks &) const = default;

    // From the values of a shot, applying the storage rules (0 and identity crops are absent).
    static Marks from(ColorClass color, int rating, bool tagged, int rotation, const std::optional<CropSpec> &crop);
    static Marks fromPhoto(const Photo &p);
    // Applies the record to a shot (absent fields reset the mark).
    void applyTo(Photo &p) const;

    QJsonObject toJson() const;
    // Lenient: values of the wrong type or out of range are dropped, not fatal.
    static Marks fromJson(const QJsonObject &o);
};
