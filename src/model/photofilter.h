#pragma once
// Which shots the grid shows.
#include "sharpverdict.h"
#include "colorclass.h"
#include "facet.h"

#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

class Photo;

enum class TagFilter { any, tagged, untagged };
enum class SharpFilter { any, blurry, sharp, eyesClosed };

struct PhotoFilter {
    QSet<ColorClass> colors;            // empty: no colour criterion
    TagFilter tag = TagFilter::any;
    int minRating = 0;
    QMap<Facet, QSet<QString>> meta;    // a facet with an empty set imposes nothing
    bool burstBestOnly = false;
    SharpFilter sharp = SharpFilter::any;
    bool newOnly = false;
    bool damagedOnly = false;
    QString text;                       // as typed
    QStringList words;                  // folded words of `text`, every one required
    std::optional<QString> advanced;    // advanced query; rejects nothing until search exists
    std::optional<QUuid> person;

    // Sets `text` and derives `words` (folded, split on white space).
    void setText(const QString &t);
    bool isEmpty() const;
    bool operator==(const PhotoFilter &) const = default;

    // Whether the shot passes. `leaveOut` ignores that facet's own selection (facet counts).
    bool passes(const Photo &p, SharpSensitivity s, std::optional<Facet> leaveOut = std::nullopt) const;
};
