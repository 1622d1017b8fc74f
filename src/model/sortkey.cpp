#include "sortkey.h"

#include "naturalcompare.h"

#include <algorithm>

namespace {
const char *const kNames[] = {"name", "captureDate", "created", "modified", "size", "dimensions", "type", "taste"};
}

QString sortKeyToString(SortKey k) { return QString::fromLatin1(kNames[int(k)]); }

SortKey sortKeyFromString(const QString &s)
{
    for (int i = 0; i < 8; ++i)
        if (s == QLatin1String(kNames[i]))
            return SortKey(i);
    return SortKey::name;
}

QList<SortKey> allSortKeys()
{
    return {SortKey::name, SortKey::captureDate, SortKey::created, SortKey::modified,
            SortKey::size, SortKey::dimensions, SortKey::type, SortKey::taste};
}

QString sortKeyTitle(SortKey k)
{
    switch (k) {
    case SortKey::name: return QStringLiteral("Nombre");
    case SortKey::captureDate: return QStringLiteral("Fecha de captura");
    case SortKey::created: return QStringLiteral("Fecha de creación");
    case SortKey::modified: return QStringLiteral("Fecha de modificación");
    case SortKey::size: return QStringLiteral("Tamaño");
    case SortKey::dimensions: return QStringLiteral("Dimensiones");
    case SortKey::type: return QStringLiteral("Tipo");
    case SortKey::taste: return QStringLiteral("Puntuación aprendida");
    }
    return {};
}

namespace {

// A sortable value of one shot for one key; `present` false when the shot has none.
struct Value {
    bool present = false;
    double number = 0;
    QString text;
};

Value valueOf(const Photo &p, SortKey key)
{
    switch (key) {
    case SortKey::name: return {true, 0, p.name()};
    case SortKey::captureDate: {
        const auto d = p.captureDate();
        return d ? Value{true, double(d->toMSecsSinceEpoch()), {}} : Value{};
    }
    case SortKey::created:
        return p.fileCreated ? Value{true, double(p.fileCreated->toMSecsSinceEpoch()), {}} : Value{};
    case SortKey::modified:
        return p.fileModified ? Value{true, double(p.fileModified->toMSecsSinceEpoch()), {}} : Value{};
    case SortKey::size: return {true, double(p.fileSize), {}};
    case SortKey::dimensions:
        if (p.meta() && p.meta()->width > 0 && p.meta()->height > 0)
            return {true, double(p.meta()->width) * p.meta()->height, {}};
        return {};
    case SortKey::type: return {true, 0, p.badge};
    case SortKey::taste: return p.tasteScore() ? Value{true, *p.tasteScore(), {}} : Value{};
    }
    return {};
}

} // namespace

void sortPhotos(QList<PhotoPtr> &photos, SortKey key, bool ascending)
{
    // Values are computed once, not in every comparison.
    struct Entry {
        Value v;
        PhotoPtr p;
    };
    std::vector<Entry> entries;
    entries.reserve(photos.size());
    for (const PhotoPtr &p : std::as_const(photos))
        entries.push_back({valueOf(*p, key), p});

    std::stable_sort(entries.begin(), entries.end(), [&](const Entry &a, const Entry &b) {
        if (a.v.present != b.v.present)
            return a.v.present;   // missing values last, whatever the direction
        int c = 0;
        if (a.v.present) {
            if (key == SortKey::name || key == SortKey::type)
                c = key == SortKey::name ? naturalCompare(a.v.text, b.v.text) : QString::compare(a.v.text, b.v.text);
            else
                c = a.v.number < b.v.number ? -1 : (a.v.number > b.v.number ? 1 : 0);
        }
        if (c != 0)
            return ascending ? c < 0 : c > 0;
        const int byName = naturalCompare(a.p->name(), b.p->name());
        if (byName != 0)
            return byName < 0;
        return a.p->url() < b.p->url();
    });
    for (qsizetype i = 0; i < photos.size(); ++i)
        photos[i] = std::move(entries[size_t(i)].p);
}
