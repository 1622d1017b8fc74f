#include "marks.h"

#include "model/photo.h"

#include <QJsonValue>
#include <cmath>

Marks Marks::from(ColorClass color, int rating, bool tagged, int rotation, const std::optional<CropSpec> &crop)
{
    Marks m;
    if (int(color) >= 1 && int(color) <= 8)
        m.c = int(color);
    if (rating >= 1)
        m.r = rating > 5 ? 5 : rating;
    if (tagged)
        m.t = true;
    if ((rotation & 3) != 0)
        m.o = rotation & 3;
    if (crop && !crop->isIdentity())
        m.k = *crop;
    return m;
}

Marks Marks::fromPhoto(const Photo &p)
{
    return from(p.colorClass(), p.rating(), p.tagged(), p.rotation(), p.crop());
}

void Marks::applyTo(Photo &p) const
{
    p.setColorClass(colorClassFromInt(c.value_or(0)));
    p.setRating(r.value_or(0));
    p.setTagged(t.value_or(false));
    p.setRotation(o.value_or(0));
    p.setCrop(k);
}

QJsonObject Marks::toJson() const
{
    QJsonObject o_;
    if (c)
        o_.insert(QStringLiteral("c"), *c);
    if (r)
        o_.insert(QStringLiteral("r"), *r);
    if (t && *t)
        o_.insert(QStringLiteral("t"), true);
    if (o)
        o_.insert(QStringLiteral("o"), *o);
    if (k) {
        QJsonObject crop;
        crop.insert(QStringLiteral("x"), k->x);
        crop.insert(QStringLiteral("y"), k->y);
        crop.insert(QStringLiteral("w"), k->w);
        crop.insert(QStringLiteral("h"), k->h);
        crop.insert(QStringLiteral("angle"), k->angle);
        o_.insert(QStringLiteral("k"), crop);
    }
    return o_;
}

namespace {
std::optional<int> intIn(const QJsonValue &v, int lo, int hi)
{
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (d != std::floor(d) || d < lo || d > hi)
        return std::nullopt;
    return int(d);
}
} // namespace

Marks Marks::fromJson(const QJsonObject &obj)
{
    Marks m;
    m.c = intIn(obj.value(QStringLiteral("c")), 1, 8);
    m.r = intIn(obj.value(QStringLiteral("r")), 1, 5);
    if (obj.value(QStringLiteral("t")).toBool(false))
        m.t = true;
    m.o = intIn(obj.value(QStringLiteral("o")), 1, 3);
    const QJsonValue kv = obj.value(QStringLiteral("k"));
    if (kv.isObject()) {
        const QJsonObject ko = kv.toObject();
        CropSpec crop;
        bool ok = true;
        auto num = [&](const char *key, double &out) {
            const QJsonValue v = ko.value(QLatin1String(key));
            if (v.isDouble() && std::isfinite(v.toDouble()))
                out = v.toDouble();
            else
                ok = false;
        };
        num("x", crop.x);
        num("y", crop.y);
        num("w", crop.w);
        num("h", crop.h);
        num("angle", crop.angle);
        if (ok && !crop.isIdentity())
            m.k = crop;
    }
    return m;
}
