#include "photofilter.h"

#include "photo.h"

#include <QRegularExpression>

void PhotoFilter::setText(const QString &t)
{
    text = t;
    static const QRegularExpression space(QStringLiteral("\\s+"));
    words = foldForSearch(t).split(space, Qt::SkipEmptyParts);
}

bool PhotoFilter::isEmpty() const
{
    return *this == PhotoFilter{};
}

bool PhotoFilter::passes(const Photo &p, SharpSensitivity s, std::optional<Facet> leaveOut) const
{
    if (!colors.isEmpty() && !colors.contains(p.colorClass()))
        return false;
    if (p.rating() < minRating)
        return false;
    if ((tag == TagFilter::tagged && !p.tagged()) || (tag == TagFilter::untagged && p.tagged()))
        return false;
    if (burstBestOnly && p.burstCount() >= 1 && !p.isBurstBest())
        return false;
    if (newOnly && !p.isNew())
        return false;
    if (damagedOnly && !p.damaged())
        return false;
    switch (sharp) {
    case SharpFilter::any: break;
    case SharpFilter::blurry:
        if (sharpVerdict(p, s) != SharpBlurry)
            return false;
        break;
    case SharpFilter::sharp:
        if (sharpVerdict(p, s) != SharpSharp)
            return false;
        break;
    case SharpFilter::eyesClosed:
        if (!p.eyesClosed())
            return false;
        break;
    }
    for (auto it = meta.cbegin(); it != meta.cend(); ++it) {
        // Empty selections impose nothing, in the counting test too.
        if (it.value().isEmpty() || (leaveOut && it.key() == *leaveOut))
            continue;
        const QStringList values = p.facets.value(it.key());
        bool any = false;
        for (const QString &v : values)
            if (it.value().contains(v)) {
                any = true;
                break;
            }
        if (!any)
            return false;
    }
    if (!words.isEmpty()) {
        const QString &hay = p.searchText();
        for (const QString &w : words)
            if (!hay.contains(w))
                return false;
    }
    if (person && !p.personIDs.contains(*person))
        return false;
    return true;
}
