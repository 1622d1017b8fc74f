#include "sharpverdict.h"

#include "photo.h"
#include "util/settings.h"


namespace {
struct Thresholds {
    double t, a, b;
};
Thresholds thresholds(SharpSensitivity s)
{
    switch (s) {
    case SharpSensitivity::strict: return {180.0, 1.0, 1.07};
    case SharpSensitivity::loose: return {60.0, 0.93, 0.97};
    case SharpSensitivity::normal: break;
    }
    return {110.0, 1.0, 1.0};   // no doubtful band for faces under "normal"
}
} // namespace

SharpSensitivity sharpSensitivityFromString(const QString &s)
{
    if (s == QLatin1String("strict"))
        return SharpSensitivity::strict;
    if (s == QLatin1String("loose"))
        return SharpSensitivity::loose;
    return SharpSensitivity::normal;
}

QString sharpSensitivityToString(SharpSensitivity s)
{
    switch (s) {
    case SharpSensitivity::strict: return QStringLiteral("strict");
    case SharpSensitivity::loose: return QStringLiteral("loose");
    case SharpSensitivity::normal: break;
    }
    return QStringLiteral("normal");
}

SharpSensitivity currentSharpSensitivity()
{
    return sharpSensitivityFromString(Settings::sharpSensitivity.get());
}

int sharpVerdict(std::optional<double> sharpness, std::optional<double> face, SharpSensitivity s)
{
    const Thresholds th = thresholds(s);
    if (face)
        return *face < th.a ? SharpBlurry : (*face < th.b ? SharpDoubtful : SharpSharp);
    if (sharpness)
        return *sharpness < th.t ? SharpBlurry : (*sharpness < 2.5 * th.t ? SharpDoubtful : SharpSharp);
    return SharpUnmeasured;
}

int sharpVerdict(const Photo &p, SharpSensitivity s)
{
    return sharpVerdict(p.sharpness(), p.faceSharpness(), s);
}

QString sharpReason(std::optional<double> sharpness, std::optional<double> face, SharpSensitivity s)
{
    if (sharpVerdict(sharpness, face, s) != SharpBlurry)
        return {};
    if (face)
        return QStringLiteral("Ojos desenfocados · nitidez de la cara %1").arg(*face, 0, 'f', 2);
    return QStringLiteral("Desenfocada o movida · nitidez %1 (mínimo %2)")
        .arg(qRound(*sharpness))
        .arg(qRound(thresholds(s).t));
}

QString sharpReason(const Photo &p, SharpSensitivity s)
{
    return sharpReason(p.sharpness(), p.faceSharpness(), s);
}
