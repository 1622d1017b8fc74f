#pragma once
#include <QHashFunctions>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

struct PhotoMeta;

// The kinds of capture data the filter panel offers.
// The last three are IPTC texts: who made the shot, where, and its keywords (one value each).
enum class Facet : int { camera, lens, focalLength, iso, date, fileType, creator, city, keyword };

inline size_t qHash(Facet f, size_t seed = 0) noexcept { return ::qHash(int(f), seed); }

using FacetValues = QMap<Facet, QStringList>;

namespace Facets {
QList<Facet> all();
QString title(Facet f);                 // Spanish label for the panel
// The facet values of a shot, from its metadata (may be null) and its badge ("NEF+JPG").
FacetValues build(const PhotoMeta *meta, const QString &badge);
} // namespace Facets
