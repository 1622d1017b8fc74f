#include "facet.h"

#include "photometa.h"

#include <cmath>

namespace Facets {

QList<Facet> all()
{
    return {Facet::camera, Facet::lens, Facet::focalLength, Facet::iso, Facet::date, Facet::fileType,
            Facet::creator, Facet::city, Facet::keyword};
}

QString title(Facet f)
{
    switch (f) {
    case Facet::camera: return QStringLiteral("Cámara");
    case Facet::lens: return QStringLiteral("Objetivo");
    case Facet::focalLength: return QStringLiteral("Focal");
    case Facet::iso: return QStringLiteral("ISO");
    case Facet::date: return QStringLiteral("Fecha");
    case Facet::fileType: return QStringLiteral("Tipo de archivo");
    case Facet::creator: return QStringLiteral("Autor");
    case Facet::city: return QStringLiteral("Ciudad");
    case Facet::keyword: return QStringLiteral("Palabras clave");
    }
    return {};
}

FacetValues build(const PhotoMeta *meta, const QString &badge)
{
    FacetValues v;
    // "NEF+JPG" offers both types: a pair is found by either.
    QStringList types = badge.split(QLatin1Char('+'), Qt::SkipEmptyParts);
    if (!types.isEmpty())
        v.insert(Facet::fileType, types);
    if (!meta)
        return v;
    const QString camera = meta->cameraName();
    if (!camera.isEmpty())
        v.insert(Facet::camera, {camera});
    if (!meta->lens.trimmed().isEmpty())
        v.insert(Facet::lens, {meta->lens.trimmed()});
    if (meta->focalLength && *meta->focalLength > 0)
        v.insert(Facet::focalLength, {QStringLiteral("%1 mm").arg(std::lround(*meta->focalLength))});
    if (meta->iso && *meta->iso > 0)
        v.insert(Facet::iso, {QString::number(*meta->iso)});
    if (meta->captureDate.isValid())
        v.insert(Facet::date, {meta->captureDate.date().toString(Qt::ISODate)});
    if (!meta->creator.trimmed().isEmpty())
        v.insert(Facet::creator, {meta->creator.trimmed()});
    if (!meta->city.trimmed().isEmpty())
        v.insert(Facet::city, {meta->city.trimmed()});
    if (!meta->keywords.isEmpty())
        v.insert(Facet::keyword, meta->keywords);
    return v;
}

} // namespace Facets
